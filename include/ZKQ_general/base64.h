/**
 * @file base64.h
 * @brief Base64 texts, with or without line breaks.
 *
 * The alphabet is that of RFC 4648, padded with "=". Lines are separated by CR LF.
 */
#ifndef ZKQ_GENERAL_BASE64_H
#define ZKQ_GENERAL_BASE64_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Sets after how many characters ZKQGeneral_ConvertToBase64() breaks the line; 72 until it is called.
 *
 * One setting for the whole process. Who changes it while another thread encodes does not know which of the two counts.
 *
 * @param MaxChars  A multiple of 4; 0 for no line breaks; a negative number means the same as without its sign.
 * @return `TRUE`; `FALSE` for any other number, with a message of the library's own, and the setting is unchanged.
 */
ZKQ_API BOOL ZKQGeneral_SetBase64LineFeed(int MaxChars);

/**
 * @brief Encodes bytes into a text with the line length that is set.
 *
 * A line break follows every full line, the last one too.
 *
 * @param in   The bytes; null is allowed for none.
 * @param len  Their number.
 * @param out  Receives the text. It must have room for 4 characters for each 3 bytes begun, 2 for each line break, and
 *             the NUL. With null, nothing is done.
 */
ZKQ_API void ZKQGeneral_ConvertToBase64(const unsigned char* in, unsigned int len, char* out);

/**
 * @brief Encodes bytes into a text that the library allocates.
 * @param in            The bytes; null is allowed for none.
 * @param len           Their number.
 * @param out           Receives the text, released with ZKQGeneral_FreeMallocBuffer(); null on failure.
 * @param CharsPerLine  A line break follows whenever the number of characters in the line is a multiple of this; 0 for
 *                      none, and the sign does not matter. Lines grow by 4 characters, so that one that is no multiple
 *                      of 4 gives lines of the first multiple of both.
 * @return `TRUE`, or `FALSE` with `EINVAL` or `ENOMEM`.
 */
ZKQ_API BOOL ZKQGeneral_ConvertToBase64Ex(const unsigned char* in, int len, char** out, int CharsPerLine);

/**
 * @brief Decodes a text.
 *
 * CR, LF and blanks between groups of four characters are passed over; inside a group they are an error. The first "="
 * in the third or fourth place of a group ends the text, whatever follows. In the first or second place it is not
 * refused and decodes to meaningless bytes.
 *
 * @param in   The text.
 * @param out  Receives the bytes: 3 for each 4 characters are always enough, and no more is written than is decoded.
 *             It does not overlap the text.
 * @param len  Receives the number of bytes, after a failure those before it.
 * @return `TRUE`; `FALSE` with `EINVAL` for a null argument, `EMSGSIZE` for more bytes than `*len` can tell, or a message
 *         of the library's own for a text that is not Base64.
 */
ZKQ_API BOOL ZKQGeneral_ConvertFromBase64(const char* in, unsigned char* out, unsigned int* len);

/**
 * @brief Decodes a text into a buffer that the library allocates.
 * @param in   The text, as for ZKQGeneral_ConvertFromBase64().
 * @param out  Receives the bytes, released with ZKQGeneral_FreeMallocBuffer() **also after a failure**: it then holds
 *             what was decoded. Null if it could not be allocated.
 * @param len  Receives the number of bytes, after a failure those before it.
 * @return As ZKQGeneral_ConvertFromBase64(), and `ENOMEM`.
 */
ZKQ_API BOOL ZKQGeneral_ConvertFromBase64Ex(const char* in, unsigned char** out, int* len);

#ifdef __cplusplus
}
#endif

#endif
