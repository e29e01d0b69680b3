// A second, slow and obvious model of the Base64 rules. It knows nothing of the library and shares no code with it.
#pragma once

#include <stddef.h>

#include <string>

namespace support::model {

inline const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Encodes; `perLine` is what the number of characters in a line is compared with after each group.
inline std::string Encode(const std::string& bytes, int perLine)
{
    std::string text;
    long long count = 0;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const std::string group = bytes.substr(i, 3);
        std::string bits;
        for (const char byte : group)
            for (int bit = 7; bit >= 0; --bit)
                bits += (static_cast<unsigned char>(byte) >> bit & 1) != 0 ? '1' : '0';
        while (bits.size() % 6 != 0)
            bits += '0';
        std::string characters;
        for (size_t j = 0; j < bits.size(); j += 6)
            characters += kAlphabet[static_cast<size_t>(std::stoi(bits.substr(j, 6), nullptr, 2))];
        while (characters.size() < 4)
            characters += '=';
        text += characters;
        count += 4;
        if (perLine != 0 && count % perLine == 0) {
            text += "\r\n";
            count = 0;
        }
    }
    return text;
}

/// What decoding ends with.
struct Decoded {
    bool good = false;
    std::string bytes;

    friend bool operator==(const Decoded&, const Decoded&) = default;
};

inline bool IsBreak(char c)
{
    return c == '\r' || c == '\n' || c == ' ';
}

inline bool PassesFilter(char c)
{
    return kAlphabet.find(c) != std::string::npos || c == '=' || IsBreak(c);
}

/// The place in the alphabet; "=" counts as 127, of which the low six bits are taken.
inline unsigned Place(char c)
{
    return (c == '=' ? 127u : static_cast<unsigned>(kAlphabet.find(c))) & 63u;
}

/// Decodes a text up to its first NUL.
inline Decoded Decode(std::string text)
{
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    Decoded result;
    size_t i = 0;
    while (i < text.size()) {
        if (IsBreak(text[i])) {
            ++i;
            continue;
        }
        if (i + 4 > text.size())
            return result;
        for (size_t j = i; j < i + 4; ++j)
            if (!PassesFilter(text[j]))
                return result;
        if (IsBreak(text[i + 1]) || IsBreak(text[i + 2]) || IsBreak(text[i + 3])) {
            ++i;
            continue;
        }
        const unsigned a = Place(text[i]);
        const unsigned b = Place(text[i + 1]);
        const unsigned c = Place(text[i + 2]);
        const unsigned d = Place(text[i + 3]);
        result.bytes += static_cast<char>(a * 4 + b / 16);
        if (text[i + 2] != '=') {
            result.bytes += static_cast<char>(b % 16 * 16 + c / 4);
            if (text[i + 3] != '=') {
                result.bytes += static_cast<char>(c % 4 * 64 + d);
                i += 4;
                continue;
            }
        }
        break;
    }
    result.good = true;
    return result;
}

} // namespace support::model
