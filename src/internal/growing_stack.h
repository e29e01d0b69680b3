// A stack for walks over what others have nested as deep as they like, where the thread's own would overflow.
#pragma once

#include <stddef.h>
#include <stdlib.h>

#include <algorithm>

#include "guards.h"

/// A stack on the C heap, which begins in itself.
template <class T, size_t kInline>
class GrowingStack {
public:
    // cppcheck-suppress uninitMemberVar ; items are set when they are pushed
    GrowingStack() = default;
    GrowingStack(const GrowingStack&) = delete;
    GrowingStack& operator=(const GrowingStack&) = delete;

    /// False without memory.
    bool Push(const T& item)
    {
        if (size_ == capacity_ && !Grow())
            return false;
        items_[size_++] = item;
        return true;
    }
    void Pop() { --size_; }
    T& Top() { return items_[size_ - 1]; }
    T& operator[](size_t index) { return items_[index]; }
    const T& operator[](size_t index) const { return items_[index]; }
    size_t Size() const { return size_; }
    bool IsEmpty() const { return size_ == 0; }

private:
    bool Grow()
    {
        constexpr size_t kSize = sizeof(T); // NOLINT(bugprone-sizeof-expression): T may be a pointer
        T* const grown = static_cast<T*>(reallocarray(heap_.get(), 2 * capacity_, kSize));
        if (grown == nullptr)
            return false;
        if (heap_ == nullptr)
            std::copy_n(inline_, size_, grown);
        static_cast<void>(heap_.release()); // reallocarray() has taken it
        heap_.reset(grown);
        items_ = grown;
        capacity_ *= 2;
        return true;
    }

    T inline_[kInline];
    MallocPtr<T> heap_;
    T* items_ = inline_;
    size_t size_ = 0;
    size_t capacity_ = kInline;
};
