// Leaks seen from inside, also in builds without a leak checker.
#pragma once

#include <gtest/gtest.h>
#include <malloc.h>

namespace support {

inline size_t HeapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// Repeats an action and expects that it does not use up the heap: a leak of one block a time is seen.
template <class Action>
void ExpectNothingLeaks(Action action)
{
    constexpr int repeats = 1000;
    constexpr size_t smallestBlock = 32;
    action();
    const size_t before = HeapInUse();
    for (int i = 0; i < repeats; ++i)
        action();
    EXPECT_LT(HeapInUse(), before + repeats * smallestBlock / 2);
}

} // namespace support
