// What every owner of the C++ layer promises.
#pragma once

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

namespace support {

/// An owner that has something is moved about, moved to itself, and gives it up; the handle is the same throughout. What
/// it was given comes back, to be used or released.
template <class Owner>
Owner ExpectMoves(Owner first)
{
    static_assert(!std::is_copy_constructible_v<Owner> && !std::is_copy_assignable_v<Owner>);
    static_assert(std::is_nothrow_move_constructible_v<Owner> && std::is_nothrow_move_assignable_v<Owner>);
    static_assert(std::is_nothrow_destructible_v<Owner>);
    EXPECT_FALSE(Owner());
    void* const handle = first.get();
    EXPECT_TRUE(first);
    Owner second(std::move(first));
    EXPECT_FALSE(first); // NOLINT: that it is empty is what is tested
    EXPECT_EQ(second.get(), handle);
    Owner third;
    third = std::move(second);
    EXPECT_FALSE(second); // NOLINT
    EXPECT_EQ(third.get(), handle);
    Owner& same = third;
    third = std::move(same);
    EXPECT_EQ(third.get(), handle);
    void* const released = third.release();
    EXPECT_EQ(released, handle);
    EXPECT_FALSE(third);
    EXPECT_EQ(third.release(), nullptr);
    third.reset();
    third.reset(released);
    EXPECT_EQ(third.get(), handle);
    return third;
}

/// The same, and an owner that is assigned to releases what it had: a leak or a double release is the sanitizers' to see.
template <class Owner>
Owner ExpectReplaces(Owner one, Owner other)
{
    void* const handle = other.get();
    EXPECT_NE(one.get(), handle);
    one = std::move(other);
    EXPECT_EQ(one.get(), handle);
    return one;
}

/// A failure keeps the reason that it had, whatever fails next, and has an empty value.
template <class Result, class Fail>
void ExpectKeepsReason(Result& failed, const char* reason, Fail fail)
{
    ASSERT_FALSE(failed);
    EXPECT_FALSE(failed.ok());
    EXPECT_STREQ(failed.text(), reason);
    fail();
    EXPECT_STREQ(failed.text(), reason);
    EXPECT_EQ(failed.error().text, reason);
    EXPECT_EQ(failed.error().code, failed.code());
}

} // namespace support
