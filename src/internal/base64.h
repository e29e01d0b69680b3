// Base64 for other families: by lengths, without a line length that somebody else sets, without the error text.
#pragma once

#include <ZKQ_general/base64.h>
#include <stddef.h>

#include <string_view>

/// Characters that `len` bytes become, line breaks and NUL not counted.
constexpr size_t Base64Length(size_t len)
{
    return (len + 2) / 3 * 4;
}

/// Encodes without line breaks, whatever the setting, and ends the text with a NUL.
void General_Misc_ConvertToBase64(const unsigned char* in, unsigned int len, char* out);

/// Characters that `len` bytes become with line breaks, the NUL not counted.
size_t Base64LengthWithBreaks(size_t len, int MaxCharPerLine);

/// Encodes, with a line break whenever the length of a line is a multiple of `MaxCharPerLine` (0: none), and ends the
/// text with a NUL, whose place is returned.
char* ConvertToBase64_R(const unsigned char* in, size_t len, char* out, int MaxCharPerLine);

/// Decodes a text, which need not be terminated. `*len` is the number of bytes written, at most 3 for each 4 characters;
/// 0, or EBADMSG with those before the fault.
int ConvertFromBase64_R(std::string_view text, unsigned char* out, size_t* len);
/// As above, for a text that ends with a NUL: faster than if the caller measured it.
int ConvertFromBase64_R(const char* text, unsigned char* out, size_t* len);
