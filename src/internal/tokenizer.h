// The line splitter, without copies.
#pragma once

#include <limits.h>

#include <algorithm>
#include <bitset>
#include <string_view>

/// Takes texts apart at the bytes of a set.
class Tokenizer {
public:
    Tokenizer(std::string_view text, std::string_view separators) : rest_(text)
    {
        for (const char c : separators)
            separators_.set(static_cast<unsigned char>(c));
    }

    /// The next token; empty at the end.
    std::string_view Next()
    {
        const char* const end = rest_.data() + rest_.size();
        const char* const first = std::find_if_not(rest_.data(), end, [this](char c) { return IsSeparator(c); });
        const char* const last = std::find_if(first, end, [this](char c) { return IsSeparator(c); });
        rest_ = {last, static_cast<size_t>(end - last)};
        return {first, static_cast<size_t>(last - first)};
    }

private:
    bool IsSeparator(char c) const { return separators_[static_cast<unsigned char>(c)]; }

    std::string_view rest_;
    std::bitset<UCHAR_MAX + 1> separators_;
};
