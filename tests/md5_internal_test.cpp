// MD5 piece by piece.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>

#include "../src/internal/md5.h"
#include "support/paths.h"

namespace {

using Digest = std::string;

Digest Whole(const std::string& bytes)
{
    unsigned char digest[kMd5DigestSize];
    Md5Digest(bytes.data(), bytes.size(), digest);
    return {reinterpret_cast<char*>(digest), sizeof digest};
}

// The digest of pieces, each in a block of exactly its size.
Digest InPieces(const std::string& bytes, size_t first, size_t others)
{
    Md5Context context;
    MD5Init(&context);
    for (size_t at = 0, size = first; at < bytes.size(); at += size, size = others) {
        size = std::min(size, bytes.size() - at);
        const std::unique_ptr<void, decltype(&free)> piece(malloc(size), &free);
        memcpy(piece.get(), bytes.data() + at, size);
        MD5Update(&context, piece.get(), size);
        MD5Update(&context, nullptr, 0);
        if (size == 0)
            size = others;
    }
    unsigned char digest[kMd5DigestSize];
    MD5Final(digest, &context);
    return {reinterpret_cast<char*>(digest), sizeof digest};
}

TEST(Md5, PiecesMakeTheWhole)
{
    for (size_t length = 0; length <= 300; length += length < 130 ? 1 : 17) {
        const std::string bytes = support::Pattern(length);
        const Digest expected = Whole(bytes);
        for (const size_t first : {1, 3, 55, 56, 63, 64, 65, 128, 200})
            for (const size_t others : {1, 7, 63, 64, 65, 129})
                ASSERT_EQ(InPieces(bytes, first, others), expected) << length << " " << first << " " << others;
    }
}

TEST(Md5, AContextIsUsedAgain)
{
    Md5Context context;
    unsigned char digest[kMd5DigestSize];
    for (int round = 0; round < 2; ++round) {
        MD5Init(&context);
        MD5Update(&context, "abc", 3);
        MD5Final(digest, &context);
        EXPECT_EQ((Digest{reinterpret_cast<char*>(digest), sizeof digest}), Whole("abc"));
    }
}

TEST(Md5, TheLengthCountsInSixtyFourBits)
{
    // As if 2 GiB had been digested: more bits than fit into 32. What follows is what any implementation computes that
    // goes on from this state.
    Md5Context context;
    MD5Init(&context);
    context.length = uint64_t{1} << 31;
    Md5Context wrapped = context;
    wrapped.length = 0;
    unsigned char digest[kMd5DigestSize];
    unsigned char digestOfLess[kMd5DigestSize];
    MD5Final(digest, &context);
    MD5Final(digestOfLess, &wrapped);
    EXPECT_NE(memcmp(digest, digestOfLess, sizeof digest), 0);
}

} // namespace
