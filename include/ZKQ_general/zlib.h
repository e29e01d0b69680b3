/**
 * @file zlib.h
 * @brief Compression of whole buffers as plain zlib streams (RFC 1950).
 *
 * No length or other header is added: the caller keeps the plain length where he needs it.
 */
#ifndef ZKQ_GENERAL_ZLIB_H
#define ZKQ_GENERAL_ZLIB_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Compresses bytes into the caller's buffer.
 *
 * @param Src        The bytes; null only if there are none.
 * @param SrcLength  Their number.
 * @param Dst        Receives the stream. It must have the room that the same call with null tells. Null asks for that
 *                   room only: `SrcLength` + `SrcLength` / 16 + 512 + 32768 bytes.
 * @param DstLength  Receives the length of the stream or the room; its value on entry is not read.
 * @return `TRUE`; `FALSE` with `EINVAL` or zlib's message, such as "insufficient memory".
 */
ZKQ_API BOOL ZKQGeneral_Zlib_CompressBuffer(const unsigned char* Src, long SrcLength, unsigned char* Dst,
                                            long* DstLength);

/**
 * @brief Decompresses a stream into the caller's buffer.
 *
 * @param Src          The stream.
 * @param SrcLength    Bytes at `Src`; those after the end of the stream are not looked at.
 * @param Dst          Receives the plain bytes; never more than `PlainLength` are written. Null only for a length of 0.
 * @param PlainLength  The exact plain length.
 * @return `TRUE` if exactly `PlainLength` bytes came out; `FALSE` with "stream error" if another number did, with zlib's
 *         message ("data error" for damage, "buffer error" for a stream cut short, "need dictionary"), or with `EINVAL`.
 */
ZKQ_API BOOL ZKQGeneral_Zlib_UnCompressBuffer(const unsigned char* Src, long SrcLength, unsigned char* Dst,
                                              long PlainLength);

/**
 * @brief Compresses bytes into a buffer that the library allocates.
 *
 * @param Src        The bytes; null only if there are none.
 * @param SrcLength  Their number.
 * @param Dst        Receives the stream, released with ZKQGeneral_FreeMallocBuffer(); left alone on failure.
 * @param DstLength  Receives its length.
 * @return 0; 12 for bad arguments (with `EINVAL`), if zlib could not begin (with its message), or if memory ran out
 *         (with no text; a stream over 2 GiB counts as that); -1 with zlib's message if it failed later.
 */
ZKQ_API int ZKQGeneral_Zlib_CompressBufferEx(const unsigned char* Src, long SrcLength, unsigned char** Dst,
                                             long* DstLength);

/**
 * @brief Decompresses a stream into a buffer that the library allocates.
 *
 * The output is whatever the stream yields. A few bytes can yield a thousand times their number: for streams from
 * strangers prefer ZKQGeneral_Zlib_UnCompressBuffer(), which knows its limit.
 *
 * @param Src        The stream.
 * @param SrcLength  Bytes at `Src`; those after the end of the stream are not looked at.
 * @param Dst        Receives the plain bytes, also when there are none, released with ZKQGeneral_FreeMallocBuffer();
 *                   left alone on failure.
 * @param DstLength  Receives their number.
 * @return 0; 12 with zlib's message for a stream that is damaged or cut short, with `EINVAL` for bad arguments, or with
 *         no text if memory ran out (an output over 2 GiB counts as that).
 */
ZKQ_API int ZKQGeneral_Zlib_UnCompressBufferEx(const unsigned char* Src, long SrcLength, unsigned char** Dst,
                                               long* DstLength);

#ifdef __cplusplus
}
#endif

#endif
