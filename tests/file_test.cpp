// Existence, length and kind of paths, directory chains and short cuts.
#include <ZKQ_general/file.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/error_text.h"
#include "support/paths.h"
#include "support/temp_dir.h"
#include "support/working_dir.h"

namespace {

using support::Exists;
using support::IsDirectory;

// A directory with one thing of each kind.
class Kinds : public testing::Test {
protected:
    void SetUp() override
    {
        support::WriteFile(Path("file"), "12345");
        support::WriteFile(Path("empty"), "");
        ASSERT_EQ(mkdir(Path("dir").c_str(), 0755), 0);
        ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0644), 0);
        ASSERT_EQ(symlink("file", Path("link").c_str()), 0);
        ASSERT_EQ(symlink("dir", Path("dirlink").c_str()), 0);
        ASSERT_EQ(symlink("nowhere at all", Path("dangling").c_str()), 0);
        ASSERT_EQ(symlink("loop", Path("loop").c_str()), 0);
    }
    // "!" in front of a name means: as it stands.
    std::string Path(const std::string& name) const { return name.starts_with('!') ? name.substr(1) : dir_.File(name); }

private:
    support::TempDir dir_;
};

struct KindRow {
    const char* name;
    std::string path;
    int error;        // of all three questions; 0: the path exists
    int length_error; // of the length alone
    DWORD length;
    BOOL directory;
};

const KindRow kKindRows[] = {
    {"regular file", "file", 0, 0, 5, FALSE},
    {"empty file", "empty", 0, 0, 0, FALSE},
    {"directory", "dir", 0, EISDIR, 0, TRUE},
    {"directory with a slash behind", "dir/", 0, EISDIR, 0, TRUE},
    {"root directory", "!/", 0, EISDIR, 0, TRUE},
    {"working directory", "!.", 0, EISDIR, 0, TRUE},
    {"FIFO", "fifo", 0, 0, 0, FALSE},
    {"device", "!/dev/null", 0, 0, 0, FALSE},
    {"link to a file: the link's own length", "link", 0, 0, 4, FALSE},
    {"link to a directory: neither followed nor a directory", "dirlink", 0, 0, 3, FALSE},
    {"link to a directory, followed because of the slash", "dirlink/", 0, EISDIR, 0, TRUE},
    {"dangling link", "dangling", 0, 0, 14, FALSE},
    {"link to itself", "loop", 0, 0, 4, FALSE},
    {"missing", "missing", ENOENT, 0, 0, FALSE},
    {"missing directory", "missing/file", ENOENT, 0, 0, FALSE},
    {"below a file", "file/x", ENOTDIR, 0, 0, FALSE},
    {"below a link to itself", "loop/x", ELOOP, 0, 0, FALSE},
    {"name too long for the system", std::string(256, 'n'), ENAMETOOLONG, 0, 0, FALSE},
    {"path too long for the system", std::string(5000, 'n'), ENAMETOOLONG, 0, 0, FALSE},
    {"empty path", "!", ENOENT, 0, 0, FALSE},
};

TEST_F(Kinds, IsFileExist)
{
    for (const KindRow& row : kKindRows) {
        SCOPED_TRACE(row.name);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_IsFileExist(Path(row.path).c_str()), row.error == 0 ? TRUE : FALSE);
        if (row.error == 0) {
            EXPECT_TRUE(support::ErrorTextIsMarked());
        } else {
            EXPECT_SYSTEM_ERROR(row.error);
        }
    }
}

TEST_F(Kinds, GetFileLength)
{
    for (const KindRow& row : kKindRows) {
        SCOPED_TRACE(row.name);
        const int error = row.error != 0 ? row.error : row.length_error;
        for (bool store : {true, false}) {
            DWORD length = 99;
            support::MarkErrorText();
            EXPECT_EQ(ZKQGeneral_GetFileLength(Path(row.path).c_str(), store ? &length : nullptr),
                      error == 0 ? TRUE : FALSE);
            if (error != 0) {
                EXPECT_SYSTEM_ERROR(error);
                continue;
            }
            EXPECT_TRUE(support::ErrorTextIsMarked());
            EXPECT_EQ(length, store ? row.length : 99);
        }
    }
}

TEST_F(Kinds, IsDirectoryName)
{
    for (const KindRow& row : kKindRows) {
        SCOPED_TRACE(row.name);
        BOOL directory = 99;
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_IsDirectoryName(Path(row.path).c_str(), &directory), row.error == 0 ? TRUE : FALSE);
        EXPECT_EQ(directory, row.error == 0 ? row.directory : FALSE);
        if (row.error == 0) {
            EXPECT_TRUE(support::ErrorTextIsMarked());
        } else {
            EXPECT_SYSTEM_ERROR(row.error);
        }
    }
}

TEST(File, NullPathsFailWithEinval)
{
    DWORD length = 0;
    BOOL directory = TRUE;
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_IsFileExist(nullptr), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetFileLength(nullptr, &length), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_IsDirectoryName(nullptr, &directory), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_IsDirectoryName("/", nullptr), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_CreateMultiLevelDirectory(nullptr), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(File, LengthsAboveFourGigabytesAreNotCut)
{
    support::TempDir dir;
    const std::string path = dir.File("sparse");
    support::WriteFile(path, "");
    constexpr off_t kLength = (off_t{5} << 30) + 7;
    if (truncate(path.c_str(), kLength) != 0)
        GTEST_SKIP() << "no large files here: " << strerror(errno);
    DWORD length = 0;
    EXPECT_EQ(ZKQGeneral_GetFileLength(path.c_str(), &length), TRUE);
    EXPECT_EQ(length, static_cast<DWORD>(kLength));
}

TEST(File, LongPathsThatTheSystemAcceptsAreAnswered)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    const std::string folder = support::NestedPath(400);
    std::filesystem::create_directories(folder);
    support::WriteFile(folder + "/f", "123");
    DWORD length = 0;
    BOOL directory = FALSE;
    EXPECT_EQ(ZKQGeneral_IsFileExist((folder + "/f").c_str()), TRUE);
    EXPECT_EQ(ZKQGeneral_GetFileLength((folder + "/f").c_str(), &length), TRUE);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(ZKQGeneral_IsDirectoryName(folder.c_str(), &directory), TRUE);
    EXPECT_EQ(directory, TRUE);
}

struct ChainRow {
    const char* name;
    std::string path;
    int error;
    std::vector<std::string> made;
    std::vector<std::string> not_made;
};

const ChainRow kChainRows[] = {
    {"no slash", "abc", EINVAL, {}, {"abc"}},
    {"empty", "", EINVAL, {}, {}},
    {"two slashes together", "a//b", EINVAL, {}, {"a", "a/b"}},
    {"two slashes at the end", "a/b//", EINVAL, {}, {"a"}},
    {"two slashes at the start", "//a/b", EINVAL, {}, {"a"}},
    {"one slash at the end", "abc/", 0, {"abc"}, {}},
    {"last part without a slash", "a/b", 0, {"a", "a/b"}, {}},
    {"last part with a slash", "a/b/", 0, {"a", "a/b"}, {}},
    {"many levels", "a/b/c/d/e/f", 0, {"a", "a/b/c", "a/b/c/d/e/f"}, {}},
    {"first part there already", "there/b", 0, {"there", "there/b"}, {}},
    {"all there already", "there/too", 0, {"there/too"}, {}},
    {"begins with a dot", "./x/y", 0, {"x", "x/y"}, {}},
    {"a dot within", "a/./b", 0, {"a", "a/b"}, {}},
    {"upwards", "a/../b", 0, {"a", "b"}, {}},
    {"the root alone", "/", 0, {}, {}},
    {"blanks are part of the name", " a / b", 0, {" a ", " a / b"}, {}},
    {"below a file", "file/b", ENOTDIR, {}, {}},
    {"a file with a slash behind it", "file/", EEXIST, {}, {}},
    {"further below a file", "file/b/c", ENOTDIR, {}, {}},
    {"a file as the last part is not looked at", "there/file", 0, {}, {}},
    {"below a link to a directory", "dirlink/b", 0, {"there/b"}, {}},
    {"a dangling link as the last part exists", "./dangling", 0, {}, {"nowhere"}},
    {"below a dangling link", "dangling/b", ENOENT, {}, {"nowhere"}},
    {"a failure leaves what was made", "a/b/" + std::string(256, 'n') + "/c", ENAMETOOLONG, {"a", "a/b"}, {}},
};

TEST(CreateMultiLevelDirectory, Table)
{
    for (const ChainRow& row : kChainRows) {
        SCOPED_TRACE(row.name);
        support::TempDir dir;
        support::WorkingDir here(dir.Path());
        std::filesystem::create_directories("there/too");
        support::WriteFile("file", "");
        support::WriteFile("there/file", "");
        std::filesystem::create_symlink("there", "dirlink");
        std::filesystem::create_symlink("nowhere", "dangling");

        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_CreateMultiLevelDirectory(row.path.c_str()), row.error == 0 ? TRUE : FALSE);
        if (row.error != 0) {
            EXPECT_SYSTEM_ERROR(row.error);
        }
        for (const std::string& path : row.made)
            EXPECT_TRUE(IsDirectory(path)) << path;
        for (const std::string& path : row.not_made)
            EXPECT_FALSE(Exists(path)) << path;
    }
}

TEST(CreateMultiLevelDirectory, AbsolutePath)
{
    support::TempDir dir;
    EXPECT_EQ(ZKQGeneral_CreateMultiLevelDirectory(dir.File("x/y").c_str()), TRUE);
    EXPECT_TRUE(IsDirectory(dir.File("x/y")));
    EXPECT_EQ(ZKQGeneral_CreateMultiLevelDirectory(dir.File("x/y").c_str()), TRUE);
}

TEST(CreateMultiLevelDirectory, ModeIsSubjectToTheUmask)
{
    for (mode_t mask : {0U, 022U, 077U}) {
        SCOPED_TRACE(mask);
        support::TempDir dir;
        support::Umask guard(mask);
        EXPECT_EQ(ZKQGeneral_CreateMultiLevelDirectory(dir.File("x/y").c_str()), TRUE);
        EXPECT_EQ(support::Mode(dir.File("x")), 0777U & ~mask);
        EXPECT_EQ(support::Mode(dir.File("x/y")), 0777U & ~mask);
    }
}

TEST(CreateMultiLevelDirectory, TheTestOfAMissingPrefixLeavesItsText)
{
    support::TempDir dir;
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_CreateMultiLevelDirectory(dir.File("x/y").c_str()), TRUE);
    EXPECT_SYSTEM_ERROR(ENOENT);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_CreateMultiLevelDirectory(dir.File("x/y").c_str()), TRUE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(CreateMultiLevelDirectory, LengthsAroundThreeHundredBytes)
{
    for (size_t length : {298U, 299U, 300U, 301U, 1000U}) {
        SCOPED_TRACE(length);
        support::TempDir dir;
        support::WorkingDir here(dir.Path());
        const std::string path = support::NestedPath(length);
        ASSERT_EQ(path.size(), length);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_CreateMultiLevelDirectory(path.c_str()), length < 300 ? TRUE : FALSE);
        EXPECT_EQ(IsDirectory(path), length < 300);
        if (length >= 300) {
            EXPECT_TRUE(support::ErrorText() == strerror(ENAMETOOLONG) || support::ErrorText() == strerror(EINVAL));
            EXPECT_FALSE(Exists("d"));
        }
    }
}

TEST(CreateShortCut, MakesALinkWithTheTextAsGiven)
{
    for (const char* target : {"/absolute/nowhere", "relative", "../x", " blank "}) {
        for (const char* description : {static_cast<const char*>(nullptr), "", "a description"}) {
            SCOPED_TRACE(target);
            support::TempDir dir;
            EXPECT_EQ(ZKQGeneral_CreateShortCut(target, description, dir.File("link").c_str()), TRUE);
            EXPECT_TRUE(std::filesystem::is_symlink(dir.File("link")));
            EXPECT_EQ(std::filesystem::read_symlink(dir.File("link")), target);
        }
    }
}

TEST(CreateShortCut, ReplacesAFileOrLink)
{
    support::TempDir dir;
    support::WriteFile(dir.File("file"), "old");
    support::WriteFile(dir.File("kept"), "kept");
    ASSERT_EQ(symlink("kept", dir.File("link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", dir.File("dangling").c_str()), 0);
    for (const char* name : {"file", "link", "dangling"}) {
        EXPECT_EQ(ZKQGeneral_CreateShortCut("target", "", dir.File(name).c_str()), TRUE) << name;
        EXPECT_EQ(std::filesystem::read_symlink(dir.File(name)), "target");
    }
    EXPECT_EQ(support::ReadFile(dir.File("kept")), "kept");
}

TEST(CreateShortCut, AFirstLinkLeavesTheErrorText)
{
    support::TempDir dir;
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_CreateShortCut("target", "", dir.File("link").c_str()), TRUE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(CreateShortCut, ADirectoryOfThatNameStays)
{
    support::TempDir dir;
    ASSERT_EQ(mkdir(dir.File("empty").c_str(), 0755), 0);
    EXPECT_EQ(ZKQGeneral_CreateShortCut("target", "", dir.File("empty").c_str()), FALSE);
    EXPECT_SYSTEM_ERROR(EEXIST);
    EXPECT_TRUE(IsDirectory(dir.File("empty")));
}

TEST(CreateShortCut, Failures)
{
    support::TempDir dir;
    support::WriteFile(dir.File("file"), "content");
    EXPECT_EQ(ZKQGeneral_CreateShortCut("target", "", dir.File("missing/link").c_str()), FALSE);
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_EQ(ZKQGeneral_CreateShortCut("target", "", dir.File("file/link").c_str()), FALSE);
    EXPECT_SYSTEM_ERROR(ENOTDIR);
    EXPECT_EQ(ZKQGeneral_CreateShortCut("target", "", dir.File(std::string(256, 'n')).c_str()), FALSE);
    EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_CreateShortCut("target", "", nullptr), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_CreateShortCut(nullptr, "", dir.File("file").c_str()), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(support::ReadFile(dir.File("file")), "content");
}

TEST(CreateShortCut, WhatStoodThereIsRemovedEvenIfTheLinkFails)
{
    support::TempDir dir;
    support::WriteFile(dir.File("file"), "content");
    EXPECT_EQ(ZKQGeneral_CreateShortCut("", "", dir.File("file").c_str()), FALSE);
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_FALSE(Exists(dir.File("file")));
}

} // namespace
