/**
 * @file iconv.h
 * @brief Between GBK, the library's local code page, and UCS-2 or UTF-8.
 *
 * All lengths are in bytes, of UCS-2 too. A terminating NUL is converted if it is counted, and none is added. The
 * characters are those that the system's iconv has for "GBK", "UNICODELITTLE" (UCS-2, little-endian, without a byte-order
 * mark; no characters beyond U+FFFF) and "UTF-8".
 *
 * All functions return `TRUE`, or `FALSE` with the error text of an errno value: `EINVAL` for a null pointer, a negative
 * length and input that ends within a character; `EILSEQ` for input that is no text in its charset and for characters
 * that the other has not; `EMSGSIZE` if the result does not fit; `ENOMEM`; or why the system has no such converter.
 * A failure writes nothing. Input and output may be the same memory.
 */
#ifndef ZKQ_GENERAL_ICONV_H
#define ZKQ_GENERAL_ICONV_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Converts GBK to UCS-2.
 * @param In        The text; may be null if there is none.
 * @param Out       Receives the result, at most twice as long; null asks for its length alone.
 * @param InLength  Length of the text in bytes; 0 gives 0 and touches nothing else.
 * @param nMaxChar  On entry the room in `Out` in bytes; receives the length of the result in bytes, on success only.
 * @return `FALSE` with an error of those above.
 */
ZKQ_API BOOL ZKQGeneral_AnsiToUnicode(const char* In, unsigned short* Out, int InLength, int* nMaxChar);

/**
 * @brief Converts UCS-2 to GBK.
 * @param In        The text, in units of two bytes; may be null if there is none.
 * @param Out       Receives the result, at most as long; null asks for its length alone.
 * @param InLength  Length of the text in bytes, which is even; 0 gives 0 and touches nothing else.
 * @param nMaxChar  On entry the room in `Out` in bytes; receives the length of the result in bytes, on success only.
 * @return `FALSE` with an error of those above; `EINVAL` also for an odd length.
 */
ZKQ_API BOOL ZKQGeneral_UnicodeToAnsi(const unsigned short* In, char* Out, int InLength, int* nMaxChar);

/**
 * @brief Converts GBK to UTF-8.
 * @param In        The text; may be null if there is none.
 * @param Out       Receives the result, at most three times as long; null asks for its length alone.
 * @param InLength  Length of the text in bytes; 0 gives 0 and touches nothing else.
 * @param nMaxChar  On entry the room in `Out` in bytes; receives the length of the result in bytes, on success only.
 * @return `FALSE` with an error of those above.
 */
ZKQ_API BOOL ZKQGeneral_AnsiToUTF8(const char* In, LPTSTR Out, int InLength, int* nMaxChar);

/**
 * @brief Converts UTF-8 to GBK.
 * @param In        The text; may be null if there is none.
 * @param Out       Receives the result, at most as long; null asks for its length alone.
 * @param InLength  Length of the text in bytes; 0 gives 0 and touches nothing else.
 * @param nMaxChar  On entry the room in `Out` in bytes; receives the length of the result in bytes, on success only.
 * @return `FALSE` with an error of those above.
 */
ZKQ_API BOOL ZKQGeneral_UTF8ToAnsi(const char* In, LPTSTR Out, int InLength, int* nMaxChar);

#ifdef __cplusplus
}
#endif

#endif
