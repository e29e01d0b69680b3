// Scanning and building of texts, without allocation.
#pragma once

#include <ZKQ_general/types.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

/// Paths, and what an operation appends to them, stay below this many bytes.
inline constexpr size_t kPathSize = 300;

constexpr char ToLowerAscii(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/// Compares without regard to ASCII case, whatever the locale.
constexpr bool EqualNoCase(std::string_view a, std::string_view b)
{
    return std::ranges::equal(a, b, {}, ToLowerAscii, ToLowerAscii);
}

/// A text without its first `count` bytes, which it must have; unlike substr() it brings no exception along.
constexpr std::string_view After(std::string_view text, size_t count)
{
    text.remove_prefix(count);
    return text;
}

/// Drops leading and trailing blanks (0x20 only).
constexpr std::string_view TrimBlanks(std::string_view text)
{
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos)
        return {};
    return After(text.substr(0, text.find_last_not_of(' ') + 1), first);
}

/// Turns null into the empty text.
constexpr std::string_view OrEmpty(const char* text)
{
    return text == nullptr ? std::string_view{} : std::string_view{text};
}

/// The part of a path after its last "/".
constexpr std::string_view BaseName(std::string_view path)
{
    return After(path, path.rfind('/') + 1);
}

/// Drops the last "." of a file name and what follows it.
constexpr std::string_view WithoutExtension(std::string_view name)
{
    return name.substr(0, name.rfind('.'));
}

/// A text that as a rule is short: its first bytes are counted without a call.
[[gnu::always_inline]] inline std::string_view ShortText(const char* text)
{
    constexpr size_t kShort = 16;
    for (size_t size = 0; size < kShort; ++size)
        if (text[size] == '\0')
            return {text, size};
    return {text, kShort + strlen(text + kShort)};
}

/// Copies a text, as a rule a short one, without a call for it; returns where it ends.
[[gnu::always_inline]] inline char* CopyShort(char* to, std::string_view text)
{
    const char* const from = text.data();
    const size_t size = text.size();
    const auto copyEnds = [&](auto word) { // two words that may overlap
        memcpy(&word, from, sizeof word);
        auto last = word;
        memcpy(&last, from + size - sizeof word, sizeof word);
        memcpy(to, &word, sizeof word);
        memcpy(to + size - sizeof word, &last, sizeof word);
    };
    if (size > 16)
        memcpy(to, from, size);
    else if (size >= 8)
        copyEnds(uint64_t{});
    else if (size >= 4)
        copyEnds(uint32_t{});
    else
        for (size_t i = 0; i < size; ++i)
            to[i] = from[i];
    return to + size;
}

/// Copies `Value` into a buffer of `nSize` bytes, cut to fit and terminated, and returns the length copied. With `Flag`
/// 0 a value longer than the buffer is not copied at all and 0 returned. A buffer of 0 bytes is never written.
int GeneralMisc_OutputString(std::string_view Value, LPTSTR lpReturnedString, DWORD nSize, int Flag);

/// Builds a text in a fixed buffer: cut at the end of the buffer, always terminated.
class TextBuilder {
public:
    template <size_t N>
    explicit TextBuilder(char (&buffer)[N]) : begin_(buffer), next_(buffer), last_(buffer + N - 1)
    {
        *next_ = '\0';
    }

    TextBuilder& Add(std::string_view text)
    {
        const size_t room = static_cast<size_t>(last_ - next_);
        if (text.size() > room) {
            cut_ = true;
            text = text.substr(0, room);
        }
        next_ += text.copy(next_, text.size());
        *next_ = '\0';
        return *this;
    }
    TextBuilder& Add(char c)
    {
        cut_ |= next_ == last_;
        if (next_ != last_)
            *next_++ = c;
        *next_ = '\0';
        return *this;
    }

    /// Adds a decimal number, filled up with zeros to `width` digits.
    TextBuilder& AddDecimal(long number, int width = 1)
    {
        char digits[24];
        const auto magnitude = number < 0 ? 0 - static_cast<unsigned long>(number) : static_cast<unsigned long>(number);
        const char* end = std::to_chars(digits, std::end(digits), magnitude).ptr;
        if (number < 0)
            Add('-');
        for (auto missing = width - (end - digits); missing > 0; --missing)
            Add('0');
        return Add(std::string_view(digits, static_cast<size_t>(end - digits)));
    }

    /// Goes back to the first `length` bytes.
    void CutTo(size_t length)
    {
        next_ = begin_ + length;
        *next_ = '\0';
        cut_ = false;
    }

    std::string_view Text() const { return {begin_, static_cast<size_t>(next_ - begin_)}; }
    /// Something did not fit.
    bool WasCut() const { return cut_; }

private:
    char* begin_;
    char* next_;
    char* last_;
    bool cut_ = false;
};
