// Whole files in one call: reading into a buffer of the library, writing from a buffer of the caller.
#include <ZKQ_general/error.h>
#include <ZKQ_general/file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>

#include "support/child.h"
#include "support/error_text.h"
#include "support/paths.h"
#include "support/temp_dir.h"
#include "support/working_dir.h"

namespace {

using support::Exists;
using support::Pattern;
using support::ReadFile;
using support::WriteFile;

constexpr size_t kZeros = 100;

// Reads a file with the library and checks the zero bytes behind the content.
struct Content {
    explicit Content(const std::string& path)
    {
        result = ZKQGeneral_GetFileContent(path.c_str(), &buffer, &size);
        if (result != TRUE || buffer == nullptr || size < 0)
            return;
        const auto length = static_cast<size_t>(size);
        bytes.assign(reinterpret_cast<const char*>(buffer), length);
        zeros = std::all_of(buffer + length, buffer + length + kZeros, [](unsigned char c) { return c == 0; });
    }
    ~Content()
    {
        if (result == TRUE)
            ZKQGeneral_FreeMallocBuffer(buffer);
    }
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;

    BOOL result = FALSE;
    unsigned char* buffer = nullptr;
    int size = -1;
    std::string bytes;
    bool zeros = false;
};

BOOL Set(const std::string& path, const std::string& bytes)
{
    return ZKQGeneral_SetFileContent(path.c_str(), reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
}

// --- reading ---

TEST(GetFileContent, ContentIsFollowedByAHundredZeros)
{
    support::TempDir dir;
    for (size_t length : {0U, 1U, 99U, 100U, 4095U, 4096U, 4097U, 1000000U}) {
        SCOPED_TRACE(length);
        WriteFile(dir.File("f"), Pattern(length));
        support::MarkErrorText();
        const Content content(dir.File("f"));
        ASSERT_EQ(content.result, TRUE);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        ASSERT_NE(content.buffer, nullptr);
        EXPECT_EQ(content.size, static_cast<int>(length));
        EXPECT_EQ(content.bytes, Pattern(length));
        EXPECT_TRUE(content.zeros);
    }
}

TEST(GetFileContent, OptionalOutputs)
{
    support::TempDir dir;
    WriteFile(dir.File("f"), "12345");
    int size = -1;
    EXPECT_EQ(ZKQGeneral_GetFileContent(dir.File("f").c_str(), nullptr, &size), TRUE) << "asks for the size alone";
    EXPECT_EQ(size, 5);
    unsigned char* buffer = nullptr;
    EXPECT_EQ(ZKQGeneral_GetFileContent(dir.File("f").c_str(), &buffer, nullptr), TRUE);
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "12345");
    ZKQGeneral_FreeMallocBuffer(buffer);
    EXPECT_EQ(ZKQGeneral_GetFileContent(dir.File("f").c_str(), nullptr, nullptr), TRUE);
}

TEST(GetFileContent, Failures)
{
    support::TempDir dir;
    WriteFile(dir.File("f"), "12345");
    ASSERT_EQ(symlink("nowhere", dir.File("dangling").c_str()), 0);
    const std::pair<std::string, int> rows[] = {
        {dir.File("missing"), ENOENT},  {dir.Path(), EISDIR}, {dir.File("f/x"), ENOTDIR},
        {dir.File("dangling"), ENOENT}, {"", ENOENT},         {dir.File(std::string(300, 'n')), ENAMETOOLONG},
    };
    for (const auto& [path, error] : rows) {
        SCOPED_TRACE(path);
        support::MarkErrorText();
        EXPECT_EQ(Content(path).result, FALSE);
        EXPECT_SYSTEM_ERROR(error);
    }
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetFileContent(nullptr, nullptr, nullptr), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(GetFileContent, TheSizeAloneDoesNotOpenTheFile)
{
    support::TempDir dir;
    ASSERT_EQ(symlink("nowhere", dir.File("dangling").c_str()), 0);
    int size = -1;
    EXPECT_EQ(ZKQGeneral_GetFileContent(dir.File("dangling").c_str(), nullptr, &size), TRUE);
    EXPECT_EQ(size, 7);
    EXPECT_EQ(ZKQGeneral_GetFileContent(dir.Path().c_str(), nullptr, &size), FALSE);
    EXPECT_SYSTEM_ERROR(EISDIR);
}

TEST(GetFileContent, ALinkReadsAsManyBytesAsItsOwnTextIsLong)
{
    support::TempDir dir;
    WriteFile(dir.File("target"), Pattern(1000));
    ASSERT_EQ(symlink("target", dir.File("link").c_str()), 0);
    const Content content(dir.File("link"));
    EXPECT_EQ(content.result, TRUE);
    EXPECT_EQ(content.bytes, Pattern(1000).substr(0, 6));
    EXPECT_TRUE(content.zeros);
}

TEST(GetFileContent, AFileShorterThanItsLengthFails)
{
    support::TempDir dir;
    WriteFile(dir.File("t"), "12");
    ASSERT_EQ(symlink("././t", dir.File("link").c_str()), 0);
    support::MarkErrorText();
    const Content content(dir.File("link"));
    EXPECT_EQ(content.result, FALSE);
    EXPECT_FALSE(support::ErrorTextIsMarked());
    EXPECT_EQ(content.size, 5) << "the size is stored before the file is read";
    EXPECT_EQ(content.buffer, nullptr);
}

TEST(GetFileContent, FilesOfSysfsFail)
{
    const std::string path = "/sys/devices/system/cpu/online";
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0 || info.st_size != 4096)
        GTEST_SKIP() << path << " does not claim a page";
    support::MarkErrorText();
    const Content content(path);
    EXPECT_EQ(content.result, FALSE);
    EXPECT_FALSE(support::ErrorTextIsMarked());
    EXPECT_EQ(content.size, 4096);
}

TEST(GetFileContent, FilesThatClaimNoLengthReadAsEmpty)
{
    support::TempDir dir;
    ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0644), 0);
    for (const std::string& path : {std::string("/proc/self/status"), std::string("/dev/zero"), dir.File("fifo")}) {
        SCOPED_TRACE(path);
        RUN_IN_CHILD([&] {
            const Content content(path);
            EXPECT_EQ(content.result, TRUE);
            EXPECT_EQ(content.size, 0);
            EXPECT_TRUE(content.zeros);
        });
    }
}

TEST(GetFileContent, AnEmptyFileIsNotOpened)
{
    support::TempDir dir;
    WriteFile(dir.File("empty"), "");
    ASSERT_EQ(chmod(dir.File("empty").c_str(), 0), 0);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
    RUN_IN_CHILD([&] {
        support::WorkingDir here(dir.Path());
        support::BecomeNobody();
        EXPECT_EQ(Content("empty").result, TRUE);
    });
}

TEST(GetFileContent, WithoutRights)
{
    support::TempDir dir;
    WriteFile(dir.File("f"), "secret");
    ASSERT_EQ(chmod(dir.File("f").c_str(), 0), 0);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
    RUN_IN_CHILD([&] {
        support::WorkingDir here(dir.Path());
        support::BecomeNobody();
        EXPECT_EQ(Content("f").result, FALSE);
        EXPECT_SYSTEM_ERROR(EACCES);
    });
}

TEST(GetFileContent, FilesAboveTheRangeOfTheSizeAreRefused)
{
    support::TempDir dir;
    WriteFile(dir.File("f"), "");
    if (truncate(dir.File("f").c_str(), off_t{INT_MAX}) != 0)
        GTEST_SKIP() << "no large files here: " << strerror(errno);
    int size = -1;
    EXPECT_EQ(ZKQGeneral_GetFileContent(dir.File("f").c_str(), nullptr, &size), TRUE);
    EXPECT_EQ(size, INT_MAX);
    for (off_t length : {off_t{INT_MAX} + 1, (off_t{1} << 32) + 5}) {
        SCOPED_TRACE(length);
        ASSERT_EQ(truncate(dir.File("f").c_str(), length), 0);
        unsigned char* buffer = nullptr;
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetFileContent(dir.File("f").c_str(), &buffer, &size), FALSE);
        EXPECT_SYSTEM_ERROR(EFBIG);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetFileContent(dir.File("f").c_str(), nullptr, &size), FALSE);
        EXPECT_SYSTEM_ERROR(EFBIG);
    }
}

TEST(GetFileContent, PathsOfThreeHundredBytesAndMore)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    const std::string path = support::NestedPath(500);
    std::filesystem::create_directories(path.substr(0, path.rfind('/')));
    EXPECT_EQ(Set(path, "content"), TRUE) << support::ErrorText();
    EXPECT_EQ(ReadFile(path), "content");
    EXPECT_EQ(Content(path).bytes, "content") << support::ErrorText();
}

// --- writing ---

TEST(SetFileContent, BytesAsGiven)
{
    support::TempDir dir;
    for (size_t length : {1U, 100U, 4095U, 4096U, 4097U, 1000000U}) {
        SCOPED_TRACE(length);
        support::MarkErrorText();
        EXPECT_EQ(Set(dir.File("f"), Pattern(length)), TRUE);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_EQ(ReadFile(dir.File("f")), Pattern(length));
    }
    EXPECT_EQ(Set(dir.File("f"), "short"), TRUE);
    EXPECT_EQ(ReadFile(dir.File("f")), "short") << "a longer file is cut";
}

TEST(SetFileContent, SizeZeroMakesAnEmptyFileAndFails)
{
    support::TempDir dir;
    WriteFile(dir.File("old"), "content");
    const unsigned char byte = 'x';
    for (const char* name : {"new", "old"}) {
        EXPECT_EQ(ZKQGeneral_SetFileContent(dir.File(name).c_str(), &byte, 0), FALSE);
        EXPECT_TRUE(Exists(dir.File(name)));
        EXPECT_EQ(ReadFile(dir.File(name)), "");
    }
    EXPECT_EQ(ZKQGeneral_SetFileContent(dir.File("null").c_str(), nullptr, 0), FALSE);
    EXPECT_TRUE(Exists(dir.File("null")));
}

TEST(SetFileContent, RefusedArgumentsLeaveTheFile)
{
    support::TempDir dir;
    WriteFile(dir.File("f"), "content");
    const std::string path = dir.File("f");
    const unsigned char byte = 'x';
    for (int size : {-1, INT_MIN}) {
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_SetFileContent(path.c_str(), &byte, size), FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_SetFileContent(path.c_str(), nullptr, 1), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_SetFileContent(nullptr, &byte, 1), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(ReadFile(path), "content");
}

TEST(SetFileContent, Failures)
{
    support::TempDir dir;
    WriteFile(dir.File("f"), "content");
    const std::pair<std::string, int> rows[] = {
        {dir.File("missing/f"), ENOENT},
        {dir.Path(), EISDIR},
        {dir.File("f/x"), ENOTDIR},
        {"", ENOENT},
        {dir.File(std::string(300, 'n')), ENAMETOOLONG},
    };
    for (const auto& [path, error] : rows) {
        SCOPED_TRACE(path);
        support::MarkErrorText();
        EXPECT_EQ(Set(path, "x"), FALSE);
        EXPECT_SYSTEM_ERROR(error);
    }
}

TEST(SetFileContent, InPlace)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    WriteFile("f", "old");
    ASSERT_EQ(chmod("f", 0604), 0);
    ASSERT_EQ(link("f", "second name"), 0);
    ASSERT_EQ(symlink("f", "link"), 0);
    const ino_t inode = support::Inode("f");
    EXPECT_EQ(Set("f", "new"), TRUE);
    EXPECT_EQ(support::Inode("f"), inode);
    EXPECT_EQ(support::Mode("f"), 0604U);
    EXPECT_EQ(ReadFile("second name"), "new");
    EXPECT_EQ(Set("link", "newer"), TRUE);
    EXPECT_TRUE(std::filesystem::is_symlink("link"));
    EXPECT_EQ(ReadFile("f"), "newer");
}

TEST(SetFileContent, ModeOfANewFile)
{
    for (mode_t mask : {0U, 022U, 077U}) {
        support::TempDir dir;
        support::Umask guard(mask);
        EXPECT_EQ(Set(dir.File("f"), "x"), TRUE);
        EXPECT_EQ(support::Mode(dir.File("f")), 0666U & ~mask);
    }
}

TEST(SetFileContent, AFifoTakesAllBytesHoweverSlowItsReader)
{
    support::TempDir dir;
    const std::string fifo = dir.File("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const int fd = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(fcntl(fd, F_SETFL, 0), 0);
    const std::string expected = Pattern(1000000);
    std::thread writer([&] { EXPECT_EQ(Set(fifo, expected), TRUE) << support::ErrorText(); });
    std::string received;
    char block[5000];
    // An end before the writer has opened the FIFO is not the end.
    while (received.size() < expected.size()) {
        const ssize_t count = read(fd, block, sizeof block);
        if (count > 0)
            received.append(block, static_cast<size_t>(count));
        else
            std::this_thread::yield();
    }
    writer.join();
    close(fd);
    EXPECT_EQ(received, expected);
}

TEST(SetFileContent, AFullDeviceIsNoticed)
{
    support::MarkErrorText();
    EXPECT_EQ(Set("/dev/full", Pattern(1000000)), FALSE);
    EXPECT_SYSTEM_ERROR(ENOSPC);
}

TEST(SetFileContent, WithoutRights)
{
    support::TempDir dir;
    WriteFile(dir.File("f"), "content");
    ASSERT_EQ(chmod(dir.File("f").c_str(), 0444), 0);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
    RUN_IN_CHILD([&] {
        support::WorkingDir here(dir.Path());
        support::BecomeNobody();
        support::MarkErrorText();
        EXPECT_EQ(Set("f", "x"), FALSE);
        EXPECT_SYSTEM_ERROR(EACCES);
    });
    EXPECT_EQ(ReadFile(dir.File("f")), "content");
}

TEST(FileContent, DescriptorsAreClosed)
{
    support::TempDir dir;
    WriteFile(dir.File("t"), "1");
    ASSERT_EQ(symlink("./t", dir.File("link").c_str()), 0);
    const int before = dup(0);
    close(before);
    EXPECT_EQ(Set(dir.File("f"), "x"), TRUE);
    EXPECT_EQ(Set(dir.File("f"), ""), FALSE);
    EXPECT_EQ(Set("/dev/full", Pattern(100000)), FALSE);
    EXPECT_EQ(Content(dir.File("t")).result, TRUE);
    EXPECT_EQ(Content(dir.File("link")).result, FALSE);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

} // namespace
