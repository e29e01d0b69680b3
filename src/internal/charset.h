// Conversions between charsets, for families that need them without the error text.
#pragma once

/// From a charset to another; UCS-2 is little-endian.
enum TextConversion { kGbkToUcs2, kUcs2ToGbk, kGbkToUtf8, kUtf8ToGbk };
inline constexpr int kTextConversions = 4;

/// What the exported functions of iconv.h do, with the same meaning of every argument; 0 or an errno value.
int ConvertText(TextConversion conversion, const void* In, int InLength, void* Out, int* nMaxChar);
