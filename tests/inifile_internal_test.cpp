// Handing texts out to buffers of the caller.
#include <gtest/gtest.h>
#include <limits.h>

#include <string>

#include "../src/internal/text.h"
#include "support/buffer.h"

namespace {

TEST(OutputString, CutOrRefused)
{
    for (size_t length : {0U, 1U, 4U, 5U, 6U, 100U}) {
        for (size_t size : {1U, 2U, 4U, 5U, 6U, 7U, 101U}) {
            for (int flag : {0, 1}) {
                SCOPED_TRACE(std::to_string(length) + " into " + std::to_string(size) + " flag " +
                             std::to_string(flag));
                const std::string value(length, 'x');
                const bool refused = flag == 0 && length > size;
                support::Buffer buffer(size);
                const std::string expected = refused ? "" : value.substr(0, size - 1);
                EXPECT_EQ(GeneralMisc_OutputString(value, buffer.Data(), size, flag),
                          static_cast<int>(expected.size()));
                EXPECT_TRUE(buffer.GuardIntact());
                EXPECT_EQ(buffer.Untouched(), refused);
                if (!refused) {
                    EXPECT_EQ(buffer.Text(), expected);
                }
            }
        }
    }
}

TEST(OutputString, NoRoomWritesNothing)
{
    support::Buffer buffer(0);
    for (int flag : {0, 1}) {
        EXPECT_EQ(GeneralMisc_OutputString("value", buffer.Data(), 0, flag), 0);
        EXPECT_EQ(GeneralMisc_OutputString("", buffer.Data(), 0, flag), 0);
    }
    EXPECT_TRUE(buffer.Untouched());
}

TEST(OutputString, SizesAboveTheRangeOfInt)
{
    for (DWORD size : {DWORD{1} << 31, DWORD{1} << 32, ULONG_MAX}) {
        support::Buffer buffer(6);
        EXPECT_EQ(GeneralMisc_OutputString("value", buffer.Data(), size, 0), 5) << size;
        EXPECT_EQ(buffer.Text(), "value");
    }
}

} // namespace
