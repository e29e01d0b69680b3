// Making cabinets, judged by a reader that knows the format alone.
#include <ZKQ_general/inifile.h>
#include <ZKQ_general/mycab.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>

#include "support/cabinet.h"
#include "support/child.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/paths.h"
#include "support/working_dir.h"

namespace {

namespace fs = std::filesystem;
using support::CabinetReader;
using support::Exists;
using support::ReadFile;
using support::TempDir;
using support::WriteFile;
using Names = std::vector<std::string>;

/// A list of names in a heap block of exactly its length, so that a sanitizer sees one byte read behind its end.
class NameList {
public:
    explicit NameList(const Names& names)
    {
        std::string bytes;
        for (const std::string& name : names)
            bytes += name + '\0';
        bytes += '\0';
        if (names.empty())
            bytes += '\0';
        list_.reset(new char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), list_.get());
    }
    const char* Get() const { return list_.get(); }

private:
    std::unique_ptr<char[]> list_;
};

BOOL Make(const std::string& cabinet, const Names& names, int flag = 1)
{
    const support::NoTempFiles watch;
    return ZKQGeneral_MakeMyCabFile(cabinet.c_str(), NameList(names).Get(), flag);
}

/// Makes a cabinet that must succeed, without a word, and takes it apart.
CabinetReader Made(const std::string& cabinet, const Names& names, int flag = 1)
{
    support::MarkErrorText();
    EXPECT_TRUE(Make(cabinet, names, flag)) << support::ErrorText();
    EXPECT_TRUE(support::ErrorTextIsMarked()) << support::ErrorText();
    return CabinetReader(ReadFile(cabinet));
}

/// A failure for a reason, which leaves no cabinet.
void ExpectRefused(const std::string& cabinet, const Names& names, int reason, int flag = 1)
{
    support::MarkErrorText();
    EXPECT_FALSE(Make(cabinet, names, flag));
    EXPECT_SYSTEM_ERROR(reason);
    EXPECT_FALSE(Exists(cabinet));
}

void WriteDeep(const std::string& path, const std::string& content)
{
    fs::create_directories(fs::path(path).parent_path());
    WriteFile(path, content);
}

/// The files below a directory in the order of the listing, by the rules of the walk.
Names Walk(const std::string& directory, const std::string& prefix, bool takesFiles)
{
    Names names;
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(directory.c_str()), closedir);
    while (const dirent* entry = readdir(listing.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (entry->d_type == DT_DIR) {
            for (const std::string& below : Walk(directory + "/" + name, prefix + name + "/", true))
                names.push_back(below);
        } else if (takesFiles) {
            names.push_back(prefix + name);
        }
    }
    return names;
}

void SetTime(const std::string& path, time_t seconds)
{
    const timespec times[] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

std::vector<long> percentages;

void* Record(void* percentage)
{
    percentages.push_back(reinterpret_cast<long>(percentage));
    return reinterpret_cast<void*>(-1L); // changes nothing
}

TEST(Make, OneFile)
{
    const TempDir dir;
    WriteFile(dir.File("x.txt"), "ten bytes.");
    chmod(dir.File("x.txt").c_str(), 0640);
    SetTime(dir.File("x.txt"), 1000000001);
    const CabinetReader cabinet = Made(dir.File("c"), {dir.File("x.txt")});
    ASSERT_EQ(cabinet.Members().size(), 1U);
    const support::Member& member = cabinet.Members()[0];
    EXPECT_EQ(member.name, "x.txt");
    EXPECT_EQ(member.content, "ten bytes.");
    EXPECT_EQ(member.startPos, 128);
    EXPECT_EQ(member.time, 1000000001);
    EXPECT_EQ(member.accessFlag, 0100640);
    EXPECT_EQ(cabinet.Directory(),
              "[File0]\nName = x.txt\nStartPos = 128\nCompactSize = " + std::to_string(member.compactSize) +
                  "\nSize = 10\nTime = 1000000001\nAccessFlag = 33184\n");
    const std::string bytes = ReadFile(dir.File("c"));
    EXPECT_EQ(support::WordAt(bytes, 0), 1);
    EXPECT_EQ(static_cast<long>(bytes.size()), 128 + member.compactSize + support::WordAt(bytes, 16));
}

TEST(Make, FlagDecidesAboutFilesThatLieDirectlyInTheDirectory)
{
    const TempDir dir;
    WriteDeep(dir.File("dir/a.txt"), "a");
    WriteDeep(dir.File("dir/sub/b.txt"), "b");
    WriteDeep(dir.File("dir/sub/more/c.txt"), "c");
    WriteDeep(dir.File("dir/other/d.txt"), "d");
    const std::string root = dir.File("dir");
    const Names all = Walk(root, "", true);
    ASSERT_EQ(all.size(), 4U);
    for (const int flag : {1, 2, -1})
        EXPECT_EQ(Made(dir.File("c"), {root}, flag).Names(), all);
    const Names below = Walk(root, "", false);
    ASSERT_EQ(below.size(), 3U);
    EXPECT_EQ(Made(dir.File("c"), {root}, 0).Names(), below);
}

TEST(Make, FlagDoesNotMatterForFilesThatAreNamed)
{
    const TempDir dir;
    WriteDeep(dir.File("dir/a.txt"), "a");
    EXPECT_EQ(Made(dir.File("c"), {dir.File("dir/a.txt")}, 0).Names(), Names{"a.txt"});
}

TEST(Make, ADirectoryOfPlainFilesHasNoMembersWithoutTheFlag)
{
    const TempDir dir;
    WriteDeep(dir.File("dir/a.txt"), "a");
    fs::create_directory(dir.File("dir/empty"));
    ExpectRefused(dir.File("c"), {dir.File("dir")}, EINVAL, 0);
    ExpectRefused(dir.File("c"), {dir.File("dir/empty")}, EINVAL, 1);
}

TEST(Make, ManyNamesKeepTheirOrder)
{
    const TempDir dir;
    WriteFile(dir.File("one"), "1");
    WriteFile(dir.File("two"), "22");
    WriteDeep(dir.File("dir/three"), "333");
    const CabinetReader cabinet =
        Made(dir.File("c"), {dir.File("two"), dir.File("dir"), dir.File("one"), dir.File("two")});
    EXPECT_EQ(cabinet.Names(), (Names{"two", "three", "one", "two"}));
    EXPECT_EQ(cabinet.Members()[1].content, "333");
    EXPECT_EQ(cabinet.Members()[3].content, "22");
}

TEST(Make, ContentsOfEveryKind)
{
    const TempDir dir;
    Names names;
    std::vector<std::string> contents;
    for (const size_t length : {1, 2, 8191, 8192, 8193, 32768, 32769, 1000000}) {
        contents.push_back(support::Pattern(length));
        names.push_back(dir.File("f" + std::to_string(length)));
        WriteFile(names.back(), contents.back());
    }
    contents.emplace_back(3000000, '\0');
    names.push_back(dir.File("zeros"));
    WriteFile(names.back(), contents.back());
    const CabinetReader cabinet = Made(dir.File("c"), names);
    ASSERT_EQ(cabinet.Members().size(), contents.size());
    for (size_t i = 0; i < contents.size(); ++i)
        EXPECT_TRUE(cabinet.Members()[i].content == contents[i]) << i;
}

TEST(Make, ManyMembers)
{
    const TempDir dir;
    for (int i = 0; i < 2000; ++i)
        WriteDeep(dir.File("dir/" + std::to_string(i % 7) + "/file " + std::to_string(i)), std::to_string(i));
    const CabinetReader cabinet = Made(dir.File("c"), {dir.File("dir")});
    EXPECT_EQ(cabinet.Names(), Walk(dir.File("dir"), "", true));
    for (const support::Member& member : cabinet.Members())
        EXPECT_EQ(member.name.substr(7), member.content);
}

TEST(Make, RelativeNamesAndSlashes)
{
    const TempDir dir;
    const support::WorkingDir inside(dir.Path());
    WriteDeep("dir/sub/file", "f");
    WriteDeep("dir/top", "t");
    const Names all = Walk("dir", "", true);
    for (const char* name : {"dir", "dir/", "./dir", "./dir/", "dir/.", "dir//", "dir/../dir"})
        EXPECT_EQ(Made("c", {name}).Names(), all) << name;
    EXPECT_EQ(Made("c", {"dir/sub/file"}).Names(), Names{"file"});
    EXPECT_EQ(Made("c", {"dir//sub//file"}).Names(), Names{"file"});
    EXPECT_EQ(Made("c", {"./dir/top"}).Names(), Names{"top"});
    WriteFile("ab", "x");
    EXPECT_EQ(Made("c", {"ab"}).Names(), Names{"ab"}) << "two bytes are long enough";
    EXPECT_EQ(Made("c", {"../" + fs::path(dir.Path()).filename().string() + "/ab"}).Names(), Names{"ab"});
}

TEST(Make, NamesThatAreTooShort)
{
    const TempDir dir;
    const support::WorkingDir inside(dir.Path());
    WriteFile("a", "x");
    WriteFile("ab", "x");
    fs::create_directory("d");
    WriteFile("d/ab", "x");
    for (const char* name : {"a", "d", "d/", "/", ".", "./", "//"})
        ExpectRefused("c", {name}, EINVAL);
    ExpectRefused("c", {"ab", "a"}, EINVAL);
}

TEST(Make, EmptyList)
{
    const TempDir dir;
    ExpectRefused(dir.File("c"), {}, EINVAL);
}

TEST(Make, NullArguments)
{
    const TempDir dir;
    WriteFile(dir.File("ab"), "x");
    const NameList list({dir.File("ab")});
    const std::string cabinet = dir.File("c");
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_MakeMyCabFile(nullptr, list.Get(), 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_MakeMyCabFile(cabinet.c_str(), nullptr, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_MakeMyCabFile_P(nullptr, list.Get(), 1, Record));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_MakeMyCabFile_P(cabinet.c_str(), nullptr, 1, Record));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(Exists(cabinet));
    EXPECT_TRUE(ZKQGeneral_MakeMyCabFile_P(cabinet.c_str(), list.Get(), 1, nullptr));
}

TEST(Make, MissingFiles)
{
    const TempDir dir;
    WriteFile(dir.File("there"), "x");
    ExpectRefused(dir.File("c"), {dir.File("none")}, ENOENT);
    ExpectRefused(dir.File("c"), {dir.File("there"), dir.File("none")}, ENOENT);
    ExpectRefused(dir.File("c"), {dir.File("there/none")}, ENOTDIR);
    fs::create_symlink("nowhere", dir.File("dangling"));
    ExpectRefused(dir.File("c"), {dir.File("dangling")}, ENOENT);
}

TEST(Make, FilesThatACabinetCannotHold)
{
    const TempDir dir;
    WriteFile(dir.File("good"), "x");
    WriteFile(dir.File("empty"), "");
    ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0666), 0);
    fs::create_directory(dir.File("real"));
    fs::create_directory_symlink("real", dir.File("link"));
    for (const char* name : {"empty", "fifo"})
        ExpectRefused(dir.File("c"), {dir.File("good"), dir.File(name)}, EINVAL);
    ExpectRefused(dir.File("c"), {dir.File("good"), dir.File("link")}, EISDIR);
    ExpectRefused(dir.File("c"), {"/dev/null"}, EINVAL);
    ExpectRefused(dir.File("c"), {"/dev/zero"}, EINVAL);
    ExpectRefused(dir.File("c"), {"/proc/self/status"}, EINVAL);
    fs::create_directory(dir.File("walked"));
    fs::create_directory_symlink("../real", dir.File("walked/link"));
    ExpectRefused(dir.File("c"), {dir.File("walked")}, EISDIR);
    fs::remove(dir.File("walked/link"));
    ASSERT_EQ(mkfifo(dir.File("walked/fifo").c_str(), 0666), 0);
    ExpectRefused(dir.File("c"), {dir.File("walked")}, EINVAL);
}

TEST(Make, LinksAreFollowedAndTakenAtTheLengthOfTheirOwnText)
{
    const TempDir dir;
    const support::WorkingDir inside(dir.Path());
    WriteFile("target", "0123456789");
    chmod("target", 0640);
    SetTime("target", 1000000001);
    fs::create_symlink("target", "link");
    const CabinetReader cabinet = Made("c", {"link"});
    ASSERT_EQ(cabinet.Members().size(), 1U);
    EXPECT_EQ(cabinet.Members()[0].name, "link");
    EXPECT_EQ(cabinet.Members()[0].content, "012345") << "the length of \"target\"";
    EXPECT_EQ(cabinet.Members()[0].time, 1000000001);
    EXPECT_EQ(cabinet.Members()[0].accessFlag, 0100640);
    unlink("c");
    WriteFile("target", "0123");
    support::MarkErrorText();
    EXPECT_FALSE(Make("c", {"link"})) << "shorter than that";
    EXPECT_FALSE(support::ErrorTextIsMarked());
    EXPECT_FALSE(Exists("c"));
}

TEST(Make, NamesThatWouldForgeASection)
{
    const TempDir dir;
    WriteDeep(dir.File("dir/line\n[File1]"), "x");
    ExpectRefused(dir.File("c"), {dir.File("dir")}, EINVAL);
    ExpectRefused(dir.File("c"), {dir.File("dir/line\n[File1]")}, EINVAL);
    WriteDeep(dir.File("lines\n/file"), "x");
    EXPECT_EQ(Made(dir.File("c"), {dir.File("lines\n")}).Names(), Names{"file"}) << "it is not in the directory";
}

/// What the directory would be if each key were written by itself.
std::string DirectoryByKeys(const std::string& file, const std::vector<support::Member>& members)
{
    for (size_t i = 0; i < members.size(); ++i) {
        const support::Member& member = members[i];
        const std::pair<const char*, std::string> keys[] = {{"Name", member.name},
                                                            {"StartPos", std::to_string(member.startPos)},
                                                            {"CompactSize", std::to_string(member.compactSize)},
                                                            {"Size", std::to_string(member.size)},
                                                            {"Time", std::to_string(member.time)},
                                                            {"AccessFlag", std::to_string(member.accessFlag)}};
        for (const auto& [key, value] : keys)
            EXPECT_TRUE(ZKQGeneral_WritePrivateProfileString(("File" + std::to_string(i)).c_str(), key, value.c_str(),
                                                             file.c_str()));
    }
    return ReadFile(file);
}

TEST(Make, TheDirectoryIsWhatWritingKeyByKeyGives)
{
    const TempDir dir;
    Names paths;
    Names names;
    for (const char* name : {"plain", "a=b", " blanks ", "[File1]", ";comment", "#mark", "cr\rin it", "cr at end\r",
                             "\rcr first", "tab\t", "\xD6\xD0\xCE\xC4", "Size = 5", "quote\"", "]", "%s%n"}) {
        if (strlen(name) < 2)
            continue;
        paths.push_back(dir.File("d/" + std::string(name)));
        names.emplace_back(name);
        WriteDeep(paths.back(), "content of " + std::string(name));
        SetTime(paths.back(), support::kSomeTime);
    }
    support::MarkErrorText();
    ASSERT_TRUE(Make(dir.File("c"), paths)) << support::ErrorText();
    const std::string bytes = ReadFile(dir.File("c"));
    const auto directory = support::Inflated(bytes.substr(static_cast<size_t>(support::WordAt(bytes, 8))));
    ASSERT_TRUE(directory.has_value());
    std::vector<support::Member> members;
    long position = 128;
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string section = "File" + std::to_string(i);
        const long compact = ZKQGeneral_GetPrivateProfileInt_Mem(section.c_str(), "CompactSize", 0, directory->c_str());
        const long size = static_cast<long>(std::string("content of " + names[i]).size());
        members.push_back({names[i], "", position, compact, size, support::kSomeTime, support::kPlainFile});
        chmod(paths[i].c_str(), 0644);
        position += compact;
    }
    ASSERT_TRUE(Make(dir.File("c"), paths));
    EXPECT_EQ(*support::Inflated(ReadFile(dir.File("c")).substr(static_cast<size_t>(support::WordAt(bytes, 8)))),
              DirectoryByKeys(dir.File("keys.ini"), members));
}

TEST(Make, ModesAndTimes)
{
    const TempDir dir;
    const long times[] = {1, 0, 2147483647, 2147483648, 4000000000, -1};
    Names paths;
    std::vector<long> expected;
    for (const long time : times) {
        paths.push_back(dir.File("t" + std::to_string(time)));
        WriteFile(paths.back(), "x");
        SetTime(paths.back(), time);
        struct stat status = {};
        ASSERT_EQ(stat(paths.back().c_str(), &status), 0);
        expected.push_back(static_cast<int32_t>(status.st_mtime)); // the file system may not know all of them
    }
    const mode_t modes[] = {0600, 0444, 0755, 04711, 02755, 01666};
    for (const mode_t mode : modes) {
        paths.push_back(dir.File("m" + std::to_string(mode)));
        WriteFile(paths.back(), "x");
        ASSERT_EQ(chmod(paths.back().c_str(), mode), 0);
    }
    const CabinetReader cabinet = Made(dir.File("c"), paths);
    ASSERT_EQ(cabinet.Members().size(), paths.size());
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(cabinet.Members()[i].time, expected[i]) << "low 32 bits, signed";
    for (size_t i = 0; i < std::size(modes); ++i) {
        struct stat status = {};
        ASSERT_EQ(stat(paths[std::size(times) + i].c_str(), &status), 0);
        EXPECT_EQ(cabinet.Members()[std::size(times) + i].accessFlag, static_cast<long>(status.st_mode));
    }
}

TEST(Make, AnExistingCabinetIsReplaced)
{
    const TempDir dir;
    WriteFile(dir.File("ab"), "x");
    WriteFile(dir.File("c"), std::string(100000, 'o'));
    EXPECT_EQ(Made(dir.File("c"), {dir.File("ab")}).Names(), Names{"ab"});
}

TEST(Make, ACabinetIsNotItsOwnMember)
{
    const TempDir dir;
    WriteDeep(dir.File("dir/ab"), "x");
    EXPECT_EQ(Made(dir.File("dir/c"), {dir.File("dir")}).Names(), Names{"ab"}) << "it was not there yet";
    const std::string before = ReadFile(dir.File("dir/c"));
    support::MarkErrorText();
    EXPECT_FALSE(Make(dir.File("dir/c"), {dir.File("dir")}));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_TRUE(ReadFile(dir.File("dir/c")) == before) << "nor is it lost for that";
}

TEST(Make, WhatFailsBeforeTheCabinetIsCreatedLeavesAnOlderOne)
{
    const TempDir dir;
    WriteFile(dir.File("c"), "older");
    support::MarkErrorText();
    EXPECT_FALSE(Make(dir.File("c"), {dir.File("none")}));
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_FALSE(Make(dir.File("c"), {}));
    EXPECT_FALSE(Make(dir.File("c"), {"a"}));
    WriteFile(dir.File("empty"), "");
    EXPECT_FALSE(Make(dir.File("c"), {dir.File("empty")}));
    EXPECT_FALSE(Make(dir.File("c"), {dir.Path()}));
    EXPECT_FALSE(Make(dir.File("c"), {"/dev/zero"}));
    EXPECT_EQ(ReadFile(dir.File("c")), "older");
}

TEST(Make, CabinetsThatCannotBeCreated)
{
    const TempDir dir;
    WriteFile(dir.File("ab"), "x");
    ExpectRefused(dir.File("no/such/place"), {dir.File("ab")}, ENOENT);
    support::MarkErrorText();
    EXPECT_FALSE(Make(dir.Path(), {dir.File("ab")}));
    EXPECT_SYSTEM_ERROR(EISDIR);
    EXPECT_TRUE(support::IsDirectory(dir.Path()));
    EXPECT_FALSE(Make("", {dir.File("ab")}));
}

TEST(Make, ADeviceThatIsFullIsNotDeleted)
{
    // A device of our own: the machine's is not put at risk.
    const TempDir dir;
    const std::string device = dir.File("full");
    WriteFile(dir.File("ab"), "x");
    const bool made = mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 7)) == 0;
    const int opened = made ? open(device.c_str(), O_WRONLY) : -1;
    if (opened < 0)
        GTEST_SKIP() << "no devices can be made here: " << strerror(errno);
    close(opened);
    support::MarkErrorText();
    EXPECT_FALSE(Make(device, {dir.File("ab")}));
    EXPECT_SYSTEM_ERROR(ENOSPC);
    EXPECT_TRUE(Exists(device));
}

TEST(Make, AFullDiskLeavesNoCabinet)
{
    const TempDir dir;
    std::string content = support::Pattern(2000000);
    std::mt19937 random(1);
    for (char& byte : content)
        byte = static_cast<char>(random());
    WriteFile(dir.File("ab"), content);
    RUN_IN_CHILD([&] {
        support::EnterPrivateMounts();
        fs::create_directory(dir.File("small"));
        if (mount("none", dir.File("small").c_str(), "tmpfs", 0, "size=64k") != 0)
            support::SkipChild("mount");
        ExpectRefused(dir.File("small/c"), {dir.File("ab")}, ENOSPC);
    });
}

TEST(Make, FilesThatMayNotBeRead)
{
    const TempDir dir;
    WriteFile(dir.File("secret"), "x");
    WriteFile(dir.File("good"), "x");
    chmod(dir.File("secret").c_str(), 0);
    fs::create_directory(dir.File("closed"));
    WriteFile(dir.File("closed/ab"), "x");
    chmod(dir.Path().c_str(), 0777);
    const support::WorkingDir inside(dir.Path());
    RUN_IN_CHILD([] {
        chmod("closed", 0);
        support::BecomeNobody();
        ExpectRefused("c", {"good", "secret"}, EACCES);
        ExpectRefused("c", {"good", "closed"}, EACCES);
    });
    chmod("closed", 0777);
}

TEST(Make, LongPaths)
{
    const TempDir dir;
    const support::WorkingDir inside(dir.Path());
    const std::string longest = support::NestedPath(299);
    WriteDeep(longest, "x");
    EXPECT_EQ(Made("c", {longest}).Names(), Names{fs::path(longest).filename()});
    const CabinetReader cabinet = Made("c", {"d/d"});
    EXPECT_EQ(cabinet.Names(), Names{longest.substr(4)});
    fs::remove_all("d");
    unlink("c");
    const std::string over = support::NestedPath(300);
    WriteDeep(over, "x");
    ExpectRefused("c", {over}, ENAMETOOLONG);
    ExpectRefused("c", {"d/d"}, ENAMETOOLONG);
    ExpectRefused("c", {std::string(5000, 'x')}, ENAMETOOLONG);
    ExpectRefused(std::string(5000, 'x'), {"d/d"}, ENAMETOOLONG);
}

TEST(Make, DoubledSlashesDoNotCostACharacterOfTheName)
{
    const TempDir dir;
    WriteDeep(dir.File("dir/sub/file"), "f");
    for (const char* end : {"", "/", "//", "///"})
        EXPECT_EQ(Made(dir.File("c"), {dir.File("dir") + end}).Names(), Names{"sub/file"}) << end;
    EXPECT_EQ(Made(dir.File("c"), {dir.Path() + "//dir"}).Names(), Names{"sub/file"});
}

TEST(Make, NumbersKeep32Bits)
{
    const TempDir dir;
    // A file of 2 GiB and more cannot be told from a damaged one later; it is refused before anything is read.
    const std::string path = dir.File("sparse");
    WriteFile(path, "");
    if (truncate(path.c_str(), (1L << 31)) != 0)
        GTEST_SKIP() << strerror(errno);
    ExpectRefused(dir.File("c"), {path}, EFBIG);
    ASSERT_EQ(truncate(path.c_str(), (1L << 40)), 0);
    ExpectRefused(dir.File("c"), {path}, EFBIG);
}

TEST(MakeProgress, BytesInPercent)
{
    const TempDir dir;
    WriteFile(dir.File("f1"), std::string(10, 'a'));
    WriteFile(dir.File("f2"), std::string(20, 'b'));
    WriteFile(dir.File("f3"), std::string(69, 'c'));
    WriteFile(dir.File("f4"), std::string(1, 'd'));
    const NameList list({dir.File("f1"), dir.File("f2"), dir.File("f3"), dir.File("f4")});
    percentages.clear();
    EXPECT_TRUE(ZKQGeneral_MakeMyCabFile_P(dir.File("c").c_str(), list.Get(), 1, Record));
    EXPECT_EQ(percentages, (std::vector<long>{0, 10, 30, 99, 100}));
    EXPECT_EQ(CabinetReader(ReadFile(dir.File("c"))).Members().size(), 4U);
    // The next call begins anew.
    percentages.clear();
    EXPECT_TRUE(ZKQGeneral_MakeMyCabFile_P(dir.File("c").c_str(), list.Get(), 1, Record));
    EXPECT_EQ(percentages, (std::vector<long>{0, 10, 30, 99, 100}));
}

TEST(MakeProgress, PercentagesAreCutAfterDividing)
{
    const TempDir dir;
    Names names;
    std::vector<long> expected;
    for (int i = 0; i <= 100; ++i)
        expected.push_back(static_cast<long>(i / 100.0 * 100.0));
    for (int i = 0; i < 100; ++i) {
        names.push_back(dir.File("f" + std::to_string(i)));
        WriteFile(names.back(), "x");
    }
    ASSERT_EQ(expected[29], 28);
    percentages.clear();
    EXPECT_TRUE(ZKQGeneral_MakeMyCabFile_P(dir.File("c").c_str(), NameList(names).Get(), 1, Record));
    EXPECT_EQ(percentages, expected);
}

TEST(MakeProgress, ACallbackOfAnEarlierCallIsNotCalled)
{
    const TempDir dir;
    WriteFile(dir.File("ab"), "x");
    const NameList list({dir.File("ab")});
    EXPECT_TRUE(ZKQGeneral_MakeMyCabFile_P(dir.File("c").c_str(), list.Get(), 1, Record));
    percentages.clear();
    EXPECT_TRUE(ZKQGeneral_MakeMyCabFile(dir.File("c").c_str(), list.Get(), 1));
    EXPECT_TRUE(ZKQGeneral_MakeMyCabFile_P(dir.File("c").c_str(), list.Get(), 1, nullptr));
    EXPECT_TRUE(ZKQGeneral_ExtractMyCabAllFile(dir.File("c").c_str(), dir.File("out").c_str()));
    EXPECT_EQ(percentages, std::vector<long>{});
}

TEST(MakeProgress, NothingIsCalledForWhatFailsBefore)
{
    const TempDir dir;
    percentages.clear();
    EXPECT_FALSE(ZKQGeneral_MakeMyCabFile_P(dir.File("c").c_str(), NameList({dir.File("none")}).Get(), 1, Record));
    EXPECT_EQ(percentages, std::vector<long>{});
}

std::function<void()> meanwhile;

void* Interfere(void*)
{
    if (meanwhile)
        meanwhile();
    meanwhile = nullptr;
    return nullptr;
}

/// Makes a cabinet of "first" and "second" in a directory; `change` happens when both have been looked at.
BOOL MakeWhile(const TempDir& dir, const std::function<void()>& change)
{
    WriteFile(dir.File("first"), std::string(1000, 'f'));
    WriteFile(dir.File("second"), std::string(1000, 's'));
    meanwhile = change;
    const support::NoTempFiles watch;
    support::MarkErrorText();
    const NameList list({dir.File("first"), dir.File("second")});
    return ZKQGeneral_MakeMyCabFile_P(dir.File("c").c_str(), list.Get(), 1, Interfere);
}

TEST(MakeMeanwhile, AFileVanishes)
{
    const TempDir dir;
    EXPECT_FALSE(MakeWhile(dir, [&] { unlink(dir.File("second").c_str()); }));
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_FALSE(Exists(dir.File("c")));
}

TEST(MakeMeanwhile, AFileBecomesEmpty)
{
    const TempDir dir;
    EXPECT_FALSE(MakeWhile(dir, [&] { WriteFile(dir.File("second"), ""); }));
    EXPECT_FALSE(support::ErrorTextIsMarked());
    EXPECT_FALSE(Exists(dir.File("c")));
}

TEST(MakeMeanwhile, AFileBecomesAFifo)
{
    const TempDir dir;
    EXPECT_FALSE(MakeWhile(dir, [&] {
        unlink(dir.File("second").c_str());
        mkfifo(dir.File("second").c_str(), 0666);
    }));
    EXPECT_FALSE(support::ErrorTextIsMarked());
    EXPECT_FALSE(Exists(dir.File("c")));
}

TEST(MakeMeanwhile, AFileGrowsOrShrinks)
{
    for (const size_t length : {10, 5000}) {
        const TempDir dir;
        ASSERT_TRUE(MakeWhile(dir, [&] { WriteFile(dir.File("second"), std::string(length, 'n')); }))
            << support::ErrorText();
        const CabinetReader cabinet(ReadFile(dir.File("c")));
        ASSERT_EQ(cabinet.Members().size(), 2U);
        EXPECT_EQ(cabinet.Members()[1].content, std::string(length, 'n'));
    }
}

TEST(Make, NothingLeaks)
{
    const TempDir dir;
    WriteDeep(dir.File("dir/ab"), "x");
    WriteDeep(dir.File("dir/sub/cd"), "y");
    WriteDeep(dir.File("bad/empty"), "");
    const NameList good({dir.File("dir")});
    const NameList bad({dir.File("dir"), dir.File("bad")});
    support::ExpectNothingLeaks([&] {
        ZKQGeneral_MakeMyCabFile(dir.File("c").c_str(), good.Get(), 1);
        ZKQGeneral_MakeMyCabFile(dir.File("c").c_str(), bad.Get(), 1);
    });
}

} // namespace
