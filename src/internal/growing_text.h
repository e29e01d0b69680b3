// A text of unknown length that is built in one block of the C heap, for the writers of XML and JSON.
#pragma once

#include <limits.h>
#include <stddef.h>
#include <stdlib.h>

#include <algorithm>

#include "guards.h"
#include "text.h"

class GrowingText {
public:
    static constexpr size_t kMaxSize = INT_MAX; ///< more is refused as if there were no memory

    /// Room for so many bytes and a NUL; null if there is none.
    char* Reserve(size_t count)
    {
        if (count >= capacity_ - size_ && !Grow(count))
            return nullptr;
        return text_.get() + size_;
    }
    /// What was reserved has been written up to `end`.
    void Advance(const char* end) { size_ = static_cast<size_t>(end - text_.get()); }

    /// Appends texts, as a rule short ones; even of none something is allocated.
    template <class... Texts>
    bool Put(const Texts&... texts)
    {
        char* end = Reserve((texts.size() + ...));
        if (end == nullptr)
            return false;
        ((end = CopyShort(end, texts)), ...);
        Advance(end);
        return true;
    }
    /// Ends the text and hands it over. Something has been put.
    char* Release()
    {
        text_.get()[size_] = '\0';
        return text_.release();
    }

private:
    static constexpr size_t kStep = 8192;

    bool Grow(size_t count)
    {
        if (count >= kMaxSize - size_)
            return false;
        const size_t needed = std::max(size_ + count + 1, size_ + size_ / 2);
        const size_t capacity = std::min((needed + kStep - 1) / kStep * kStep, kMaxSize);
        char* const grown = static_cast<char*>(realloc(text_.get(), capacity));
        if (grown == nullptr)
            return false;
        static_cast<void>(text_.release()); // realloc() has taken it
        text_.reset(grown);
        capacity_ = capacity;
        return true;
    }

    MallocPtr<char> text_;
    size_t size_ = 0;
    size_t capacity_ = 0;
};
