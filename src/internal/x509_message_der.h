// The form of mode 0.
#pragma once

#include "x509_message.h"

namespace der {

constexpr unsigned char kRecordTag = 0x30;
constexpr unsigned char kTagNumber = 0x1F; ///< the bits of a tag that are compared
constexpr unsigned char kLongForm = 0x80;
constexpr int kShortForm = 127; ///< the longest length of one byte
constexpr unsigned char kArrayTag = 0x40;
constexpr unsigned char kArrayLength = 4;
constexpr int kArrayHeader = 6;
constexpr int kSmallestElement = 2; ///< bytes of one with nothing in it
constexpr unsigned kLongestWidth = 4;
constexpr uint32_t kLongest = 0xFFFFFF;

/// Bytes that a length takes behind 0x80 | n.
constexpr int WidthOf(uint32_t length)
{
    return static_cast<int>(std::bit_width(length) + 7) / 8;
}

/// Bytes of a tag and a length.
constexpr int HeaderSize(int length)
{
    return length <= kShortForm ? 2 : 2 + WidthOf(static_cast<uint32_t>(length));
}

/// From the machine's order of bytes to the most significant one first, and back.
template <class T>
inline T BigEndian(T value)
{
    if constexpr (sizeof(T) == 4)
        return __builtin_bswap32(value);
    else
        return __builtin_bswap64(value);
}
static_assert(std::endian::native == std::endian::little);

/// Integers from one order of bytes into the other; bytes behind the last whole one as they are.
inline void CopyIntegers(unsigned char* to, const char* from, size_t size)
{
    const size_t whole = size - size % sizeof(uint32_t);
    for (size_t i = 0; i < whole; i += sizeof(uint32_t))
        Store(to + i, BigEndian(Load<uint32_t>(from + i)));
    memcpy(to + whole, from + whole, size - whole);
}

} // namespace der
