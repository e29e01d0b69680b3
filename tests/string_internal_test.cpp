// Appending to a memory object, as other families do it.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "../src/internal/memory_object.h"

namespace {

TEST(MemoryAppend, Results)
{
    auto* object = static_cast<GMEM*>(ZKQGeneral_MEM_malloc(4));
    ASSERT_NE(object, nullptr);
    const unsigned char bytes[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(GMEM_Append(object, bytes, 3), 0);
    EXPECT_EQ(object->Size, 3);
    for (int length : {0, -1, INT_MIN}) {
        EXPECT_EQ(GMEM_Append(object, bytes, length), 0);
        EXPECT_EQ(object->Size, 3);
    }
    EXPECT_EQ(GMEM_Append(object, bytes, 5), 0);
    EXPECT_EQ(object->Size, 8);
    EXPECT_EQ(object->WritePos, 8);
    EXPECT_EQ(object->Max, 4096);
    const unsigned char expected[] = {1, 2, 3, 1, 2, 3, 4, 5};
    EXPECT_EQ(memcmp(object->Buf, expected, sizeof expected), 0);
    ZKQGeneral_MEM_free(object);
}

TEST(MemoryAppend, InvalidObjects)
{
    const unsigned char bytes[] = {1};
    GMEM foreign = {};
    EXPECT_EQ(GMEM_Append(nullptr, bytes, 1), EINVAL);
    EXPECT_EQ(GMEM_Append(&foreign, bytes, 1), EINVAL);
    EXPECT_EQ(GMEM_Append(&foreign, bytes, 0), EINVAL) << "the object is looked at first";
    EXPECT_EQ(foreign.Size, 0);
}

TEST(MemoryAppend, AGrowthBeyondTheRangeOfInt)
{
    auto* object = static_cast<GMEM*>(ZKQGeneral_MEM_malloc(4));
    ASSERT_NE(object, nullptr);
    const unsigned char byte = 7;
    EXPECT_EQ(GMEM_Append(object, &byte, 1), 0);
    EXPECT_EQ(GMEM_Append(object, &byte, INT_MAX), ENOMEM) << "refused before a byte is read";
    EXPECT_EQ(object->Size, 1);
    EXPECT_EQ(object->Max, 4);
    EXPECT_EQ(object->Buf[0], 7);
    ZKQGeneral_MEM_free(object);
}

} // namespace
