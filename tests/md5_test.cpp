// MD5 digests through the shared object.
#include <ZKQ_general/md5.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "support/error_text.h"
#include "support/heap.h"
#include "support/paths.h"
#include "support/temp_dir.h"

namespace {

std::string Hex(const unsigned char* digest)
{
    std::string text;
    for (size_t i = 0; i < 16; ++i) {
        constexpr char digits[] = "0123456789abcdef";
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

// The digest of bytes in a block of exactly their size, written to exactly 16 bytes.
std::string Digest(const std::string& bytes)
{
    const std::unique_ptr<void, decltype(&free)> block(malloc(bytes.size()), &free);
    const std::unique_ptr<void, decltype(&free)> digest(malloc(16), &free);
    memcpy(block.get(), bytes.data(), bytes.size());
    ZKQGeneral_DigestBuffer(block.get(), static_cast<unsigned>(bytes.size()),
                            static_cast<unsigned char*>(digest.get()));
    return Hex(static_cast<unsigned char*>(digest.get()));
}

std::string DigestFile(const std::string& path)
{
    unsigned char digest[16];
    support::MarkErrorText();
    EXPECT_TRUE(ZKQGeneral_DigestFile(path.c_str(), digest)) << support::ErrorText();
    EXPECT_TRUE(support::ErrorTextIsMarked());
    return Hex(digest);
}

// Expects a failure that leaves the digest alone.
void ExpectFailure(const char* path, int number)
{
    unsigned char digest[16];
    memset(digest, 0x5A, sizeof digest);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_DigestFile(path, digest));
    EXPECT_SYSTEM_ERROR(number);
    EXPECT_EQ(Hex(digest), "5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a");
}

constexpr char kOfNothing[] = "d41d8cd98f00b204e9800998ecf8427e";

TEST(DigestBuffer, KnownDigests)
{
    EXPECT_EQ(Digest(""), kOfNothing);
    EXPECT_EQ(Digest("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(Digest("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(Digest("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(Digest("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(Digest("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(Digest("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

// The digests of 0 to 200 bytes one behind the other, and the digest of all that. What is expected was computed with
// Python's hashlib.
TEST(DigestBuffer, EveryLength)
{
    std::string digests;
    for (size_t length = 0; length <= 200; ++length) {
        std::string bytes;
        for (size_t i = 0; i < length; ++i)
            bytes += static_cast<char>(i * 7 + length);
        digests += Digest(bytes);
    }
    EXPECT_EQ(digests.substr(55 * 32, 64), "f1289732253518750e22b62a571a1748179e3b9fa272a23e2a8b32bde1015414");
    EXPECT_EQ(digests.substr(119 * 32, 64), "d49720530a386a3191eac0dc840dd1bd8a440004b569286a42c722295ce1c5a6");
    EXPECT_EQ(Digest(digests), "eab5ceb5de8216677861b4b11027db23");
}

TEST(DigestBuffer, UnalignedBytes)
{
    const std::string bytes = "0123456789" + support::Pattern(1000);
    for (size_t offset = 0; offset < 9; ++offset) {
        unsigned char digest[16];
        ZKQGeneral_DigestBuffer(bytes.data() + offset, 700, digest);
        EXPECT_EQ(Hex(digest), Digest(bytes.substr(offset, 700)));
    }
}

TEST(DigestBuffer, Arguments)
{
    unsigned char digest[16] = {};
    ZKQGeneral_DigestBuffer(nullptr, 1, digest);
    EXPECT_EQ(Hex(digest), std::string(32, '0'));
    ZKQGeneral_DigestBuffer("a", 1, nullptr);
    ZKQGeneral_DigestBuffer(nullptr, 0, digest);
    EXPECT_EQ(Hex(digest), kOfNothing);
}

TEST(DigestBuffer, MillionsOfBytes)
{
    EXPECT_EQ(Digest(std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(DigestFile, ContentDecides)
{
    const support::TempDir dir;
    for (const size_t length : {0, 1, 55, 56, 63, 64, 65, 4096, 1000000}) {
        const std::string content = support::Pattern(length);
        support::WriteFile(dir.File("f"), content);
        EXPECT_EQ(DigestFile(dir.File("f")), Digest(content));
    }
}

TEST(DigestFile, EmptyFilesAndWhatClaimsToBeEmpty)
{
    const support::TempDir dir;
    support::WriteFile(dir.File("empty"), "");
    EXPECT_EQ(DigestFile(dir.File("empty")), kOfNothing);
    EXPECT_EQ(DigestFile("/proc/self/status"), kOfNothing);
    EXPECT_EQ(DigestFile("/dev/null"), kOfNothing);
    ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0600), 0);
    EXPECT_EQ(DigestFile(dir.File("fifo")), kOfNothing) << "without waiting for a writer";
}

TEST(DigestFile, OfALinkAsManyBytesAsItsTextIsLong)
{
    const support::TempDir dir;
    support::WriteFile(dir.File("file"), "abcdefghijklmnopqrstuvwxyz");
    ASSERT_EQ(symlink("file", dir.File("link").c_str()), 0);
    EXPECT_EQ(DigestFile(dir.File("link")), Digest("abcd"));
}

TEST(DigestFile, Failures)
{
    const support::TempDir dir;
    ExpectFailure(dir.File("none").c_str(), ENOENT);
    ExpectFailure(dir.Path().c_str(), EISDIR);
    ExpectFailure("", ENOENT);
    ExpectFailure(nullptr, EINVAL);
    ASSERT_EQ(symlink("nowhere", dir.File("dangling").c_str()), 0);
    ExpectFailure(dir.File("dangling").c_str(), ENOENT);
    support::WriteFile(dir.File("file/x").substr(0, dir.File("file").size()), "x");
    ExpectFailure(dir.File("file/x").c_str(), ENOTDIR);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_DigestFile(dir.File("file").c_str(), nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    const std::string large = dir.File("large");
    support::WriteFile(large, "");
    ASSERT_EQ(truncate(large.c_str(), off_t{INT_MAX} + 1), 0);
    ExpectFailure(large.c_str(), EFBIG);
}

TEST(DigestFile, NothingLeaks)
{
    const support::TempDir dir;
    support::WriteFile(dir.File("f"), "abc");
    support::ExpectNothingLeaks([&] {
        unsigned char digest[16];
        ZKQGeneral_DigestFile(dir.File("f").c_str(), digest);
        ZKQGeneral_DigestFile(dir.File("none").c_str(), digest);
    });
}

} // namespace
