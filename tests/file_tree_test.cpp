// Deleting directory trees. Whatever could hit the root directory runs with an empty directory of the test as its root.
#include <ZKQ_general/file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/child.h"
#include "support/error_text.h"
#include "support/paths.h"
#include "support/temp_dir.h"
#include "support/working_dir.h"

namespace {

using support::Exists;

BOOL Delete(std::string path)
{
    return ZKQGeneral_MyDeleteDirectory(path.data());
}

bool IsEmptyDirectory(const std::string& path)
{
    return std::filesystem::is_empty(path);
}

void MakeSocket(const std::string& path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << strerror(errno);
    close(fd);
}

// A tree with everything a directory may hold. `outside` is what its links point to.
void MakeTree(const std::string& top, const std::string& outside)
{
    std::filesystem::create_directories(top + "/a/b/c");
    std::filesystem::create_directories(top + "/empty");
    std::filesystem::create_directories(top + "/.hidden");
    std::filesystem::create_directories(top + "/...");
    support::WriteFile(top + "/file", "1");
    support::WriteFile(top + "/.dotfile", "1");
    support::WriteFile(top + "/..twodots", "1");
    support::WriteFile(top + "/a/b/c/deep", "1");
    support::WriteFile(top + "/name with blank\nand line feed", "1");
    support::WriteFile(top + "/" + std::string(100, 'n'), "1");
    ASSERT_EQ(mkfifo((top + "/a/fifo").c_str(), 0644), 0);
    ASSERT_EQ(chmod((top + "/file").c_str(), 0), 0);
    ASSERT_EQ(symlink(outside.c_str(), (top + "/a/link to a directory").c_str()), 0);
    ASSERT_EQ(symlink((outside + "/kept").c_str(), (top + "/a/link to a file").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (top + "/dangling").c_str()), 0);
    ASSERT_EQ(symlink("..", (top + "/a/up").c_str()), 0);
    ASSERT_EQ(symlink("/", (top + "/root").c_str()), 0);
}

class Tree : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(Path("outside/sub"));
        support::WriteFile(Path("outside/kept"), "kept");
    }
    void TearDown() override
    {
        EXPECT_EQ(support::ReadFile(Path("outside/kept")), "kept");
        EXPECT_TRUE(support::IsDirectory(Path("outside/sub")));
    }
    std::string Path(const std::string& name) const { return dir_.File(name); }

    support::TempDir dir_;
};

TEST_F(Tree, EverythingInsideGoesAndNothingOutside)
{
    for (const char* slash : {"", "/"}) {
        MakeTree(Path("top"), Path("outside"));
        EXPECT_EQ(Delete(Path("top") + slash), TRUE) << support::ErrorText();
        EXPECT_FALSE(Exists(Path("top")));
    }
}

TEST_F(Tree, SocketsGoToo)
{
    support::WorkingDir here(dir_.Path());
    std::filesystem::create_directories("top");
    MakeSocket("top/socket");
    EXPECT_EQ(Delete("top"), TRUE) << support::ErrorText();
    EXPECT_FALSE(Exists("top"));
}

TEST_F(Tree, EmptyDirectory)
{
    std::filesystem::create_directories(Path("top"));
    support::MarkErrorText();
    EXPECT_EQ(Delete(Path("top")), TRUE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_FALSE(Exists(Path("top")));
}

TEST_F(Tree, ManyEntries)
{
    std::filesystem::create_directories(Path("top"));
    for (int i = 0; i < 2000; ++i) {
        const std::string name = Path("top/entry number ") + std::to_string(i);
        if (i % 10 == 0)
            std::filesystem::create_directories(name);
        else
            support::WriteFile(name, "");
    }
    EXPECT_EQ(Delete(Path("top")), TRUE) << support::ErrorText();
    EXPECT_FALSE(Exists(Path("top")));
}

TEST_F(Tree, RelativePaths)
{
    support::WorkingDir here(dir_.Path());
    for (const char* path : {"top", "./top", "top/", "outside/../top", "outside/sub/../../top/", "top//"}) {
        SCOPED_TRACE(path);
        MakeTree("top", Path("outside"));
        EXPECT_EQ(Delete(path), TRUE) << support::ErrorText();
        EXPECT_FALSE(Exists("top"));
    }
}

TEST_F(Tree, TheArgumentIsNotChanged)
{
    std::filesystem::create_directories(Path("top/a"));
    std::string path = Path("top/");
    EXPECT_EQ(ZKQGeneral_MyDeleteDirectory(path.data()), TRUE);
    EXPECT_EQ(path, Path("top/"));
}

TEST_F(Tree, APathThatCannotBeLookedAtIsNotMissing)
{
    std::filesystem::create_symlink("loop", Path("loop"));
    support::MarkErrorText();
    EXPECT_EQ(Delete(Path("loop/below")), FALSE);
    EXPECT_SYSTEM_ERROR(ELOOP);
}

TEST_F(Tree, AMissingPathIsSuccess)
{
    support::WriteFile(Path("file"), "");
    for (const char* name : {"missing", "missing/", "missing/deeper", "file/below"})
        EXPECT_EQ(Delete(Path(name)), TRUE) << name;
    support::WorkingDir here(dir_.Path());
    EXPECT_EQ(Delete("missing"), TRUE);
    EXPECT_EQ(Delete(std::string(256, 'n')), TRUE) << "nothing can have such a name";
    EXPECT_TRUE(Exists("file"));
}

TEST_F(Tree, WhatIsNoDirectoryFailsAndStays)
{
    support::WriteFile(Path("file"), "content");
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0644), 0);
    ASSERT_EQ(symlink("outside", Path("link to a directory").c_str()), 0);
    ASSERT_EQ(symlink("file", Path("link to a file").c_str()), 0);
    for (const char* name :
         {"file", "file/", "fifo", "link to a directory", "link to a directory/", "link to a file"}) {
        SCOPED_TRACE(name);
        support::MarkErrorText();
        EXPECT_EQ(Delete(Path(name)), FALSE);
        EXPECT_SYSTEM_ERROR(ENOTDIR);
    }
    for (const char* name : {"file", "fifo", "link to a directory", "link to a file"})
        EXPECT_TRUE(Exists(Path(name))) << name;
    EXPECT_EQ(support::ReadFile(Path("file")), "content");
}

TEST_F(Tree, ADanglingLinkExistsAndCannotBeOpened)
{
    ASSERT_EQ(symlink("nowhere", Path("dangling").c_str()), 0);
    support::MarkErrorText();
    EXPECT_EQ(Delete(Path("dangling")), FALSE);
    EXPECT_FALSE(support::ErrorTextIsMarked());
    EXPECT_TRUE(Exists(Path("dangling")));
}

TEST_F(Tree, TheWorkingDirectoryByItsDotIsEmptiedButStays)
{
    MakeTree(Path("top"), Path("outside"));
    support::WorkingDir here(Path("top"));
    EXPECT_EQ(Delete("."), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_TRUE(IsEmptyDirectory(Path("top")));
}

TEST_F(Tree, NullFailsWithEinval)
{
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_MyDeleteDirectory(nullptr), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST_F(Tree, DeepTreesBelowThreeHundredBytes)
{
    support::WorkingDir here(dir_.Path());
    const std::string deepest = support::NestedPath(290);
    std::filesystem::create_directories(deepest);
    support::WriteFile(deepest + "/f", "");
    EXPECT_EQ(Delete("d"), TRUE) << support::ErrorText();
    EXPECT_FALSE(Exists("d"));
}

TEST_F(Tree, ArgumentsOfThreeHundredBytesAndMoreAreRefused)
{
    support::WorkingDir here(dir_.Path());
    for (size_t length : {300U, 301U, 700U}) {
        SCOPED_TRACE(length);
        const std::string deepest = support::NestedPath(length);
        std::filesystem::create_directories(deepest);
        support::MarkErrorText();
        EXPECT_EQ(Delete(deepest), FALSE);
        EXPECT_TRUE(support::ErrorText() == strerror(ENAMETOOLONG) || support::ErrorText() == strerror(EINVAL));
        EXPECT_TRUE(Exists(deepest));
    }
    EXPECT_EQ(Delete(std::string(5000, 'n')), FALSE) << "also where nothing of that name can exist";
}

// The text leaves open whether such a tree is deleted or refused, but not that the answer is true.
TEST_F(Tree, TreesThatGrowBeyondThreeHundredBytesAreDeletedOrRefused)
{
    support::WorkingDir here(dir_.Path());
    const std::string deepest = support::NestedPath(1000);
    std::filesystem::create_directories(deepest);
    support::WriteFile("d/f", "");
    support::MarkErrorText();
    if (Delete("d") == TRUE) {
        EXPECT_FALSE(Exists("d"));
    } else {
        EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
        EXPECT_TRUE(Exists("d"));
    }
}

TEST_F(Tree, DescriptorsAreClosed)
{
    const int before = dup(0);
    close(before);
    for (int i = 0; i < 10; ++i) {
        MakeTree(Path("top"), Path("outside"));
        EXPECT_EQ(Delete(Path("top")), TRUE);
        EXPECT_EQ(Delete(Path("outside/kept")), FALSE);
    }
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

// --- failing entries ---

TEST_F(Tree, AMountedDirectoryStaysWithItsReason)
{
    std::filesystem::create_directories(Path("top/mounted"));
    RUN_IN_CHILD([&] {
        support::EnterPrivateMounts();
        if (mount("none", Path("top/mounted").c_str(), "tmpfs", 0, nullptr) != 0)
            support::SkipChild("mount");
        std::filesystem::create_directories(Path("top/mounted/inside"));
        EXPECT_EQ(Delete(Path("top")), FALSE);
        EXPECT_SYSTEM_ERROR(EBUSY);
        EXPECT_TRUE(Exists(Path("top/mounted")));
        EXPECT_FALSE(Exists(Path("top/mounted/inside"))) << "what was deleted before stays deleted";
    });
}

TEST_F(Tree, AMountedFileStaysWithItsReason)
{
    std::filesystem::create_directories(Path("top/a"));
    support::WriteFile(Path("top/a/mounted"), "");
    RUN_IN_CHILD([&] {
        support::EnterPrivateMounts();
        if (mount(Path("outside/kept").c_str(), Path("top/a/mounted").c_str(), "none", MS_BIND, nullptr) != 0)
            support::SkipChild("mount");
        EXPECT_EQ(Delete(Path("top")), FALSE);
        EXPECT_SYSTEM_ERROR(EBUSY);
        EXPECT_EQ(support::ReadFile(Path("top/a/mounted")), "kept");
    });
}

TEST_F(Tree, WithoutRights)
{
    std::filesystem::create_directories(Path("locked"));
    std::filesystem::create_directories(Path("unreadable"));
    support::WriteFile(Path("locked/file"), "");
    ASSERT_EQ(chmod(dir_.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(Path("unreadable").c_str(), 0700), 0);
    RUN_IN_CHILD([&] {
        if (geteuid() != 0)
            support::SkipChild("needs files of another user");
        support::WorkingDir here(dir_.Path());
        support::BecomeNobody();
        EXPECT_EQ(Delete("locked"), FALSE);
        EXPECT_SYSTEM_ERROR(EACCES);
        EXPECT_TRUE(Exists("locked/file"));
        EXPECT_EQ(Delete("unreadable"), FALSE);
        EXPECT_SYSTEM_ERROR(EACCES);
    });
    EXPECT_TRUE(Exists(Path("unreadable")));
}

// --- the root directory ---

TEST_F(Tree, TheRootDirectoryWithoutItsSlashDoesNotExist)
{
    std::filesystem::create_directories(Path("root/sub"));
    support::WriteFile(Path("root/canary"), "alive");
    RUN_IN_CHILD([&] {
        support::EnterRoot(Path("root"));
        EXPECT_EQ(Delete("/"), TRUE);
        EXPECT_EQ(Delete(""), TRUE);
    });
    EXPECT_EQ(support::ReadFile(Path("root/canary")), "alive");
    EXPECT_TRUE(Exists(Path("root/sub")));
}

TEST_F(Tree, TheRootDirectoryByOtherNamesIsRefused)
{
    std::filesystem::create_directories(Path("root/sub"));
    support::WriteFile(Path("root/canary"), "alive");
    for (const char* name : {"//", "///", "/.", "/./", "/..", "/../", "/../..", "/sub/..", "/sub/../", "/./."}) {
        SCOPED_TRACE(name);
        RUN_IN_CHILD([&] {
            support::EnterRoot(Path("root"));
            EXPECT_EQ(Delete(name), FALSE);
            EXPECT_SYSTEM_ERROR(EBUSY);
        });
        EXPECT_EQ(support::ReadFile(Path("root/canary")), "alive");
        EXPECT_TRUE(Exists(Path("root/sub")));
    }
}

TEST_F(Tree, TheRootDirectoryByRelativeNamesIsRefused)
{
    std::filesystem::create_directories(Path("root/sub"));
    support::WriteFile(Path("root/canary"), "alive");
    for (const char* name : {".", "./", "..", "../", "./.", "sub/.."}) {
        SCOPED_TRACE(name);
        RUN_IN_CHILD([&] {
            support::EnterRoot(Path("root"));
            EXPECT_EQ(Delete(name), FALSE);
        });
        EXPECT_EQ(support::ReadFile(Path("root/canary")), "alive");
        EXPECT_TRUE(Exists(Path("root/sub")));
    }
}

TEST_F(Tree, TheEmptyPathNamesNothing)
{
    std::filesystem::create_directories(Path("root/sub"));
    support::WriteFile(Path("root/canary"), "alive");
    RUN_IN_CHILD([&] {
        support::EnterRoot(Path("root"));
        EXPECT_EQ(Delete(""), TRUE) << "a path that does not exist is success";
    });
    EXPECT_EQ(support::ReadFile(Path("root/canary")), "alive");
    EXPECT_TRUE(Exists(Path("root/sub")));
}

TEST_F(Tree, DirectoriesRightBelowTheRootAreDeleted)
{
    std::filesystem::create_directories(Path("root/sub/deeper"));
    support::WriteFile(Path("root/canary"), "alive");
    RUN_IN_CHILD([&] {
        support::EnterRoot(Path("root"));
        EXPECT_EQ(Delete("/sub"), TRUE) << support::ErrorText();
    });
    EXPECT_FALSE(Exists(Path("root/sub")));
    EXPECT_EQ(support::ReadFile(Path("root/canary")), "alive");
}

} // namespace
