// A caller's buffer of an exact size, with known bytes behind it that nobody may touch.
#pragma once

#include <stddef.h>

#include <algorithm>
#include <string>

namespace support {

class Buffer {
public:
    static constexpr char kFill = '\x5A';

    explicit Buffer(size_t size) : size_(size), bytes_(size + kGuard, kFill) {}

    char* Data() { return bytes_.data(); }
    size_t Size() const { return size_; }

    /// Nothing behind the buffer was written.
    bool GuardIntact() const { return AllFill(size_); }
    /// Nothing was written at all.
    bool Untouched() const { return AllFill(0); }
    /// The text at the start, ended by a NUL or by the end of the buffer.
    std::string Text() const { return Bytes().substr(0, Bytes().find('\0')); }
    /// All bytes of the buffer.
    std::string Bytes() const { return bytes_.substr(0, size_); }

private:
    static constexpr size_t kGuard = 64;

    bool AllFill(size_t from) const
    {
        return std::all_of(bytes_.begin() + static_cast<ptrdiff_t>(from), bytes_.end(),
                           [](char c) { return c == kFill; });
    }

    size_t size_;
    std::string bytes_;
};

} // namespace support
