/**
 * @file md5.h
 * @brief MD5 digests (RFC 1321): 16 bytes, for checksums and names, not for secrets.
 */
#ifndef ZKQ_GENERAL_MD5_H
#define ZKQ_GENERAL_MD5_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Digests bytes in memory.
 * @param string  The bytes; null is allowed for none.
 * @param len     Their number.
 * @param digest  Receives 16 bytes. With null, nothing is done.
 */
ZKQ_API void ZKQGeneral_DigestBuffer(const void* string, unsigned int len, unsigned char* digest);

/**
 * @brief Digests the content of a file as ZKQGeneral_GetFileContent() reads it: whole and into memory.
 *
 * What that function sees as empty, such as FIFOs and files in /proc, has the digest of no bytes, and of a link only as
 * many bytes are seen as its own text is long.
 *
 * @param filename  The file.
 * @param digest    Receives 16 bytes; left alone on failure.
 * @return `TRUE`; `FALSE` with `EINVAL` for a null argument, or with the reason for which the file cannot be read.
 */
ZKQ_API BOOL ZKQGeneral_DigestFile(const char* filename, unsigned char* digest);

#ifdef __cplusplus
}
#endif

#endif
