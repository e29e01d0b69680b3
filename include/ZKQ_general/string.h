/**
 * @file string.h
 * @brief Splitting a line into tokens, and a growable memory object.
 */
#ifndef ZKQ_GENERAL_STRING_H
#define ZKQ_GENERAL_STRING_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Splits a text at any of a set of separator bytes.
 *
 * Runs of separators count as one; separators at the ends produce nothing; there is no quoting.
 *
 * @param pszString     The text.
 * @param pszTokenizer  The separators, each byte one of them.
 * @param Count         Receives the number of tokens, 0 for a text without any.
 * @return An array of `*Count` texts and a final null, released with ZKQGeneral_FreeParseLineInfoBuffer(); a token
 *         for which memory ran out is a null entry. Null with `EINVAL` or `ENOMEM`. Callers take turns on one lock.
 */
ZKQ_API char** ZKQGeneral_ParseLineInfo(const char* pszString, const char* pszTokenizer, int* Count);

/**
 * @brief Releases an array of ZKQGeneral_ParseLineInfo() with its texts.
 * @param ptr    The array; null is ignored.
 * @param Count  The number of texts, as it was returned.
 */
ZKQ_API void ZKQGeneral_FreeParseLineInfoBuffer(char** ptr, int Count);

/**
 * @brief Makes a memory object: bytes are appended at its end and read from its start.
 *
 * One object is used by one thread at a time. Every operation ignores a pointer that is not a live object.
 *
 * @param InitSize  Room to begin with in bytes; 0 or less means 4096.
 * @return The object, released with ZKQGeneral_MEM_free(); null when memory ran out. When only the room could not be
 *         had, an object that every operation ignores.
 */
ZKQ_API void* ZKQGeneral_MEM_malloc(int InitSize);

/**
 * @brief Releases a memory object and the data it still holds.
 * @param Ptr  The object; anything else, null included, is ignored.
 */
ZKQ_API void ZKQGeneral_MEM_free(void* Ptr);

/**
 * @brief Appends bytes to a memory object, which grows as needed.
 * @param Ptr   The object.
 * @param Buf   The bytes.
 * @param Size  Their number; 0 or less appends nothing.
 * @return `Size`; 0 if the object is not valid or memory ran out, which then left the object as it was. Both are told in
 *         the library's own log, "general.log", if that is switched on.
 */
ZKQ_API int ZKQGeneral_MEM_Write(void* Ptr, const unsigned char* Buf, int Size);

/**
 * @brief Reads the next bytes of a memory object.
 * @param Ptr   The object.
 * @param Buf   Receives the bytes.
 * @param Size  The most to read.
 * @return The number of bytes read: 0 at the end, or if the object is not valid.
 */
ZKQ_API int ZKQGeneral_MEM_Read(void* Ptr, unsigned char* Buf, int Size);

/**
 * @brief Hands the data of a memory object to the caller and leaves the object empty but alive.
 * @param Ptr   The object; if it is not valid the outputs are left alone.
 * @param Buf   Receives the data, released with ZKQGeneral_FreeMallocBuffer(); null if there never was room for any.
 * @param Size  Receives the number of bytes.
 * @return Always 0.
 */
ZKQ_API int ZKQGeneral_MEM_Detach(void* Ptr, unsigned char** Buf, int* Size);

#ifdef __cplusplus
}
#endif

#endif
