// Copying a file.
#include <ZKQ_general/file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
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
using support::Pattern;
using support::ReadFile;
using support::WriteFile;

BOOL Copy(const std::string& from, const std::string& to, BOOL fail_if_exists = FALSE)
{
    return ZKQGeneral_CopyFile(from.c_str(), to.c_str(), fail_if_exists);
}

// A file of sysfs, whose length is said to be a page but which holds less; empty if there is none.
std::string SysfsFile()
{
    for (const char* path : {"/sys/kernel/mm/transparent_hugepage/enabled", "/sys/devices/system/cpu/online",
                             "/sys/kernel/uevent_seqnum", "/sys/kernel/notes"}) {
        struct stat info = {};
        const std::string content = ReadFile(path);
        if (lstat(path, &info) == 0 && !content.empty() && static_cast<size_t>(info.st_size) > content.size())
            return path;
    }
    return "";
}

TEST(CopyFile, LengthsAroundThePieceOfCopying)
{
    support::TempDir dir;
    for (size_t length : {0U, 1U, 100U, 4095U, 4096U, 4097U, 8191U, 8192U, 8193U, 1000000U}) {
        SCOPED_TRACE(length);
        WriteFile(dir.File("from"), Pattern(length));
        support::MarkErrorText();
        EXPECT_EQ(Copy(dir.File("from"), dir.File("to")), TRUE);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_EQ(ReadFile(dir.File("to")), Pattern(length));
        EXPECT_EQ(ReadFile(dir.File("from")), Pattern(length));
    }
}

TEST(CopyFile, ALongerDestinationIsCut)
{
    support::TempDir dir;
    WriteFile(dir.File("from"), "short");
    WriteFile(dir.File("to"), Pattern(10000));
    EXPECT_EQ(Copy(dir.File("from"), dir.File("to")), TRUE);
    EXPECT_EQ(ReadFile(dir.File("to")), "short");
}

TEST(CopyFile, ModeBitsAreThoseOfTheSource)
{
    support::Umask mask(077);
    for (mode_t mode : {0644U, 0600U, 0755U, 0777U, 0444U, 0400U, 0U, 04755U, 02644U, 01666U}) {
        SCOPED_TRACE(mode);
        support::TempDir dir;
        WriteFile(dir.File("from"), "content");
        WriteFile(dir.File("old"), "old");
        ASSERT_EQ(chmod(dir.File("from").c_str(), mode), 0);
        if (geteuid() != 0 && access(dir.File("from").c_str(), R_OK) != 0)
            continue;
        EXPECT_EQ(Copy(dir.File("from"), dir.File("new")), TRUE);
        EXPECT_EQ(Copy(dir.File("from"), dir.File("old")), TRUE);
        EXPECT_EQ(support::Mode(dir.File("new")), mode) << "of a new file, whatever the umask";
        EXPECT_EQ(support::Mode(dir.File("old")), mode) << "of a file that was there";
    }
}

TEST(CopyFile, AnExistingDestinationFailsIfAskedTo)
{
    support::TempDir dir;
    WriteFile(dir.File("from"), "new");
    WriteFile(dir.File("file"), "old");
    ASSERT_EQ(mkdir(dir.File("dir").c_str(), 0755), 0);
    ASSERT_EQ(symlink("nowhere", dir.File("dangling").c_str()), 0);
    for (const char* name : {"file", "dir", "dangling", "from"}) {
        for (BOOL flag : {TRUE, 2, -1}) {
            SCOPED_TRACE(name);
            support::MarkErrorText();
            EXPECT_EQ(Copy(dir.File("from"), dir.File(name), flag), FALSE);
            EXPECT_SYSTEM_ERROR(EEXIST);
        }
    }
    EXPECT_EQ(ReadFile(dir.File("file")), "old");
    EXPECT_EQ(ReadFile(dir.File("from")), "new");
    EXPECT_FALSE(Exists(dir.File("nowhere")));
    EXPECT_EQ(Copy(dir.File("from"), dir.File("missing"), TRUE), TRUE);
    EXPECT_EQ(ReadFile(dir.File("missing")), "new");
    EXPECT_EQ(Copy(dir.File("from"), dir.File("file"), FALSE), TRUE);
    EXPECT_EQ(ReadFile(dir.File("file")), "new");
}

struct FailureRow {
    const char* name;
    std::string from;
    std::string to;
    BOOL fail_if_exists;
    int error;
};

TEST(CopyFile, FailuresLeaveTheDestinationAlone)
{
    const FailureRow rows[] = {
        {"source missing", "missing", "to", FALSE, ENOENT},
        {"source missing, destination there", "missing", "there", FALSE, ENOENT},
        {"destination is looked at before the source", "missing", "there", TRUE, EEXIST},
        {"source a directory", "dir", "to", FALSE, EISDIR},
        {"source a directory, destination there", "dir", "there", FALSE, EISDIR},
        {"source below a file", "there/x", "to", FALSE, ENOTDIR},
        {"source a dangling link", "dangling", "to", FALSE, ENOENT},
        {"source name too long", std::string(300, 'n'), "to", FALSE, ENAMETOOLONG},
        {"source path too long", std::string(5000, 'n'), "to", FALSE, ENAMETOOLONG},
        {"directory of the destination missing", "from", "missing/to", FALSE, ENOENT},
        {"destination a directory", "from", "dir", FALSE, EISDIR},
        {"destination below a file", "from", "there/to", FALSE, ENOTDIR},
        {"destination name too long", "from", std::string(300, 'n'), FALSE, ENAMETOOLONG},
    };
    support::TempDir dir;
    WriteFile(dir.File("from"), "new");
    WriteFile(dir.File("there"), "old");
    ASSERT_EQ(mkdir(dir.File("dir").c_str(), 0755), 0);
    ASSERT_EQ(symlink("nowhere", dir.File("dangling").c_str()), 0);
    for (const FailureRow& row : rows) {
        SCOPED_TRACE(row.name);
        support::MarkErrorText();
        EXPECT_EQ(Copy(dir.File(row.from), dir.File(row.to), row.fail_if_exists), FALSE);
        EXPECT_SYSTEM_ERROR(row.error);
        EXPECT_EQ(ReadFile(dir.File("there")), "old");
        EXPECT_FALSE(Exists(dir.File("to")));
    }
}

TEST(CopyFile, NullArguments)
{
    support::TempDir dir;
    WriteFile(dir.File("f"), "content");
    for (BOOL flag : {FALSE, TRUE}) {
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_CopyFile(nullptr, dir.File("to").c_str(), flag), FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_CopyFile(dir.File("f").c_str(), nullptr, flag), FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    EXPECT_FALSE(Exists(dir.File("to")));
}

TEST(CopyFile, ALinkCopiesAsManyBytesAsItsOwnTextIsLong)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    WriteFile("target", Pattern(5000));
    ASSERT_EQ(chmod("target", 0640), 0);
    for (const std::string& text : {std::string("target"), std::string("./target"),
                                    "./" + std::string(4000, '/') + "target", dir.File("target")}) {
        SCOPED_TRACE(text.size());
        std::filesystem::remove("link");
        if (symlink(text.c_str(), "link") != 0)
            continue;
        EXPECT_EQ(Copy("link", "to"), TRUE);
        EXPECT_EQ(ReadFile("to"), Pattern(5000).substr(0, text.size()));
        EXPECT_EQ(support::Mode("to"), 0640U) << "the mode is that of the target";
    }
}

TEST(CopyFile, ASourceThatEndsEarlyFailsWithoutAText)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    WriteFile("t", "12");
    ASSERT_EQ(symlink("././t", "link"), 0);
    WriteFile("to", "old content");
    support::MarkErrorText();
    EXPECT_EQ(Copy("link", "to"), FALSE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_TRUE(Exists("to")) << "a partial destination stays";
    EXPECT_TRUE(std::string("12").starts_with(ReadFile("to"))) << ReadFile("to");
}

TEST(CopyFile, FilesOfSysfsFail)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    const std::string sysfs = SysfsFile();
    if (sysfs.empty())
        GTEST_SKIP() << "no file of sysfs that is shorter than it says";
    support::MarkErrorText();
    EXPECT_EQ(Copy(sysfs, "to"), FALSE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_TRUE(Exists("to"));
    EXPECT_TRUE(ReadFile(sysfs).starts_with(ReadFile("to")));
}

TEST(CopyFile, AFileOfProcCopiesAsEmpty)
{
    support::TempDir dir;
    EXPECT_EQ(Copy("/proc/self/status", dir.File("to")), TRUE);
    EXPECT_TRUE(Exists(dir.File("to")));
    EXPECT_EQ(ReadFile(dir.File("to")), "");
}

TEST(CopyFile, ALinkToADirectoryFails)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    ASSERT_EQ(mkdir("dir", 0755), 0);
    ASSERT_EQ(symlink("dir", "link"), 0);
    EXPECT_EQ(Copy("link", "to"), FALSE);
}

TEST(CopyFile, AFifoDoesNotHang)
{
    support::TempDir dir;
    ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0644), 0);
    RUN_IN_CHILD([&] {
        if (Copy(dir.File("fifo"), dir.File("to")) == TRUE) {
            EXPECT_TRUE(Exists(dir.File("to"))) << "success without a destination";
        }
    });
    EXPECT_EQ(ReadFile(dir.File("to")), "");
}

TEST(CopyFile, OntoItselfIsRefused)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    WriteFile("from", "content");
    std::filesystem::create_directory("sub");
    ASSERT_EQ(link("from", "hard link"), 0);
    ASSERT_EQ(symlink("from", "link"), 0);
    const std::string same[] = {"from", "./from", "sub/../from", dir.File("from"), "hard link", "link"};
    for (const std::string& name : same) {
        SCOPED_TRACE(name);
        support::MarkErrorText();
        EXPECT_EQ(Copy("from", name), FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
        EXPECT_EQ(Copy(name, "from"), FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_EQ(ReadFile("from"), "content");
    }
}

TEST(CopyFile, ALinkAsDestinationIsWrittenThrough)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    WriteFile("from", "new");
    WriteFile("target", "old");
    ASSERT_EQ(symlink("target", "link"), 0);
    ASSERT_EQ(symlink("made", "dangling"), 0);
    EXPECT_EQ(Copy("from", "link"), TRUE);
    EXPECT_EQ(Copy("from", "dangling"), TRUE);
    EXPECT_TRUE(std::filesystem::is_symlink("link"));
    EXPECT_EQ(ReadFile("target"), "new");
    EXPECT_EQ(ReadFile("made"), "new");
}

TEST(CopyFile, InPlace)
{
    support::TempDir dir;
    support::WorkingDir here(dir.Path());
    WriteFile("from", "new");
    WriteFile("to", "old");
    const ino_t inode = support::Inode("to");
    ASSERT_EQ(link("to", "second name"), 0);
    EXPECT_EQ(Copy("from", "to"), TRUE);
    EXPECT_EQ(support::Inode("to"), inode);
    EXPECT_EQ(ReadFile("second name"), "new");
}

TEST(CopyFile, PathsOfThreeHundredBytesAndMore)
{
    for (size_t length : {290U, 299U, 300U, 301U, 1000U}) {
        SCOPED_TRACE(length);
        support::TempDir dir;
        support::WorkingDir here(dir.Path());
        const std::string path = support::NestedPath(length);
        std::filesystem::create_directories(path.substr(0, path.rfind('/')));
        WriteFile("from", "content");
        EXPECT_EQ(Copy("from", path), TRUE) << support::ErrorText();
        EXPECT_EQ(ReadFile(path), "content");
        EXPECT_EQ(Copy(path, "to"), TRUE) << support::ErrorText();
        EXPECT_EQ(ReadFile("to"), "content");
    }
}

TEST(CopyFile, AFullDeviceFailsWithoutAText)
{
    support::TempDir dir;
    // A device of the test's own, because the copy changes the mode of its destination.
    const std::string full = dir.File("full");
    if (mknod(full.c_str(), S_IFCHR | 0666, makedev(1, 7)) != 0 || access(full.c_str(), W_OK) != 0)
        GTEST_SKIP() << "no device can be made here: " << strerror(errno);
    WriteFile(dir.File("from"), Pattern(100000));
    support::MarkErrorText();
    EXPECT_EQ(Copy(dir.File("from"), full), FALSE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(CopyFile, AFullFileSystemLeavesAPartialDestination)
{
    support::TempDir dir;
    std::filesystem::create_directory(dir.File("small"));
    WriteFile(dir.File("from"), Pattern(1000000));
    RUN_IN_CHILD([&] {
        support::EnterPrivateMounts();
        if (mount("none", dir.File("small").c_str(), "tmpfs", 0, "size=64k") != 0)
            support::SkipChild("mount");
        support::MarkErrorText();
        EXPECT_EQ(Copy(dir.File("from"), dir.File("small/to")), FALSE);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        const std::string partial = ReadFile(dir.File("small/to"));
        EXPECT_GT(partial.size(), 4096U);
        EXPECT_TRUE(Pattern(1000000).starts_with(partial));
    });
}

TEST(CopyFile, AcrossFileSystems)
{
    support::TempDir dir;
    std::filesystem::create_directory(dir.File("other"));
    RUN_IN_CHILD([&] {
        support::EnterPrivateMounts();
        if (mount("none", dir.File("other").c_str(), "tmpfs", 0, nullptr) != 0)
            support::SkipChild("mount");
        for (size_t length : {0U, 1U, 4095U, 4096U, 4097U, 100000U}) {
            SCOPED_TRACE(length);
            WriteFile(dir.File("from"), Pattern(length));
            EXPECT_EQ(Copy(dir.File("from"), dir.File("other/to")), TRUE);
            EXPECT_EQ(ReadFile(dir.File("other/to")), Pattern(length));
            EXPECT_EQ(Copy(dir.File("other/to"), dir.File("back")), TRUE);
            EXPECT_EQ(ReadFile(dir.File("back")), Pattern(length));
        }
    });
}

TEST(CopyFile, ADeviceGetsTheModeOfTheSourceToo)
{
    support::TempDir dir;
    // A device of the test's own, because the copy changes the mode of its destination.
    const std::string null = dir.File("null");
    if (mknod(null.c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0 || access(null.c_str(), W_OK) != 0) {
        GTEST_SKIP() << "no device can be made here: " << strerror(errno);
    }
    WriteFile(dir.File("from"), Pattern(100000));
    ASSERT_EQ(chmod(dir.File("from").c_str(), 0600), 0);
    EXPECT_EQ(Copy(dir.File("from"), null), TRUE);
    EXPECT_EQ(support::Mode(null), 0600U);
}

TEST(CopyFile, DescriptorsAreClosed)
{
    support::TempDir dir;
    WriteFile(dir.File("from"), "content");
    ASSERT_EQ(symlink("./////from", dir.File("link").c_str()), 0);
    const int before = dup(0);
    close(before);
    EXPECT_EQ(Copy(dir.File("from"), dir.File("to")), TRUE);
    EXPECT_EQ(Copy(dir.File("from"), dir.File("missing/to")), FALSE);
    EXPECT_EQ(Copy(dir.File("link"), dir.File("to")), FALSE);
    EXPECT_EQ(Copy(dir.File("from"), dir.File("from")), FALSE);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST(CopyFile, WithoutRights)
{
    support::TempDir dir;
    WriteFile(dir.File("unreadable"), "secret");
    WriteFile(dir.File("from"), "content");
    WriteFile(dir.File("readonly"), "old");
    ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(dir.File("unreadable").c_str(), 0600), 0);
    ASSERT_EQ(chmod(dir.File("readonly").c_str(), 0644), 0);
    ASSERT_EQ(chmod(dir.File("from").c_str(), 0644), 0);
    RUN_IN_CHILD([&] {
        if (geteuid() != 0)
            support::SkipChild("needs files of another user");
        support::WorkingDir here(dir.Path());
        support::BecomeNobody();
        for (const auto& [from, to] : {std::pair{"unreadable", "to"}, {"from", "readonly"}, {"from", "to"}}) {
            support::MarkErrorText();
            EXPECT_EQ(Copy(from, to), FALSE) << from << " to " << to;
            EXPECT_SYSTEM_ERROR(EACCES);
        }
    });
    EXPECT_EQ(ReadFile(dir.File("readonly")), "old");
    EXPECT_FALSE(Exists(dir.File("to")));
}

} // namespace
