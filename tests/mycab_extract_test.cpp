// Extracting cabinets, which are written by hand.
#include <ZKQ_general/mycab.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include "support/buffer.h"
#include "support/cabinet.h"
#include "support/child.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/paths.h"
#include "support/working_dir.h"

namespace {

namespace fs = std::filesystem;
using support::Cabinet;
using support::Entry;
using support::Exists;
using support::ReadFile;
using support::TempDir;
using support::WriteFile;
using Paths = std::vector<std::string>;

constexpr size_t kPathRoom = 300;

BOOL ExtractAll(const std::string& cabinet, const std::string& directory)
{
    const support::NoTempFiles watch;
    support::MarkErrorText();
    return ZKQGeneral_ExtractMyCabAllFile(cabinet.c_str(), directory.c_str());
}

/// Extracts what must succeed.
void Extract(const TempDir& dir, const Cabinet& cabinet, const std::string& directory)
{
    WriteFile(dir.File("c"), cabinet.Bytes());
    EXPECT_TRUE(ExtractAll(dir.File("c"), directory)) << support::ErrorText();
}

/// The path of the extracted file, or the error text behind a "!".
std::string ExtractOne(const std::string& cabinet, const std::string& directory, long index)
{
    const support::NoTempFiles watch;
    support::Buffer name(kPathRoom);
    strcpy(name.Data(), directory.c_str());
    support::MarkErrorText();
    const BOOL done = ZKQGeneral_ExtractMyCabOneFile(cabinet.c_str(), name.Data(), index);
    EXPECT_TRUE(name.GuardIntact());
    if (!done) {
        EXPECT_EQ(name.Text(), directory) << "a failure leaves the name as it was";
    }
    return done ? name.Text() : "!" + support::ErrorText();
}

struct stat Status(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

std::vector<long> percentages;

void* Record(void* percentage)
{
    percentages.push_back(reinterpret_cast<long>(percentage));
    return reinterpret_cast<void*>(-1L); // changes nothing
}

Cabinet Letters(size_t count)
{
    Cabinet cabinet;
    for (size_t i = 0; i < count; ++i)
        cabinet.entries.push_back({.name = "f" + std::to_string(i), .content = "content " + std::to_string(i)});
    return cabinet;
}

TEST(Extract, AllFiles)
{
    const TempDir dir;
    const std::string large = support::Pattern(1000000);
    Extract(dir,
            {.entries = {{.name = "a.txt", .content = "a"},
                         {.name = "sub/b.txt", .content = large},
                         {.name = "sub/deep/er/c", .content = std::string(100000, '\0')}}},
            dir.File("out"));
    EXPECT_EQ(support::TreeOf(dir.File("out")),
              (Paths{"a.txt", "sub/", "sub/b.txt", "sub/deep/", "sub/deep/er/", "sub/deep/er/c"}));
    EXPECT_EQ(ReadFile(dir.File("out/a.txt")), "a");
    EXPECT_TRUE(ReadFile(dir.File("out/sub/b.txt")) == large);
    EXPECT_TRUE(ReadFile(dir.File("out/sub/deep/er/c")) == std::string(100000, '\0'));
}

TEST(Extract, DirectoriesOfEveryForm)
{
    const TempDir dir;
    const support::WorkingDir inside(dir.Path());
    WriteFile("c", Letters(1).Bytes());
    fs::create_directory("made");
    for (const std::string directory : {"out", "out2/", "./out3", "./out4/", "deep/er/out", "made/../out5", "made"}) {
        EXPECT_TRUE(ExtractAll("c", directory)) << directory << ": " << support::ErrorText();
        EXPECT_EQ(ReadFile(directory + "/f0"), "content 0") << directory;
    }
    EXPECT_TRUE(ExtractAll("c", ".")) << support::ErrorText();
    EXPECT_EQ(ReadFile("f0"), "content 0");
    EXPECT_TRUE(ExtractAll(dir.File("c"), dir.File("absolute/out"))) << support::ErrorText();
    EXPECT_EQ(ReadFile("absolute/out/f0"), "content 0");
}

TEST(Extract, AnEmptyDirectoryIsTheWorkingDirectory)
{
    const TempDir dir;
    WriteFile(dir.File("c"), Letters(1).Bytes());
    fs::create_directory(dir.File("here"));
    const support::WorkingDir inside(dir.File("here"));
    EXPECT_TRUE(ExtractAll("../c", "")) << support::ErrorText();
    EXPECT_EQ(ReadFile("f0"), "content 0");
    EXPECT_FALSE(Exists("/f0"));
    unlink("f0");
    const std::string path = ExtractOne("../c", "", 0);
    EXPECT_EQ(ReadFile(path), "content 0");
    EXPECT_FALSE(path.starts_with("/"));
}

TEST(Extract, ADirectoryBehindALink)
{
    const TempDir dir;
    fs::create_directories(dir.File("real/sub"));
    fs::create_directory_symlink("real", dir.File("link"));
    Extract(dir, Letters(1), dir.File("link"));
    EXPECT_EQ(ReadFile(dir.File("real/f0")), "content 0");
    Extract(dir, Letters(1), dir.File("link/sub"));
    EXPECT_EQ(ReadFile(dir.File("real/sub/f0")), "content 0");
    Extract(dir, Letters(1), dir.File("link/new"));
    EXPECT_EQ(ReadFile(dir.File("real/new/f0")), "content 0");
}

TEST(Extract, ExistingFilesAreReplaced)
{
    const TempDir dir;
    fs::create_directory(dir.File("out"));
    WriteFile(dir.File("out/f0"), std::string(10000, 'o'));
    WriteFile(dir.File("out/other"), "other");
    Extract(dir, Letters(2), dir.File("out"));
    EXPECT_EQ(ReadFile(dir.File("out/f0")), "content 0");
    EXPECT_EQ(ReadFile(dir.File("out/f1")), "content 1");
    EXPECT_EQ(ReadFile(dir.File("out/other")), "other");
    Extract(dir, Letters(2), dir.File("out"));
    EXPECT_EQ(support::TreeOf(dir.File("out")), (Paths{"f0", "f1", "other"}));
}

TEST(Extract, ModesAndTimes)
{
    const TempDir dir;
    const support::Umask mask(077);
    const struct {
        const char* flag;
        mode_t mode;
    } modes[] = {{"33188", 0644}, {"33261", 0755},  {"33024", 0400}, {"0", 0444},       {"33206", 0666},
                 {"420", 0644},   {"35309", 04755}, {"", 0444},      {"letters", 0444}, {"33152 and more", 0600}};
    Cabinet cabinet;
    for (size_t i = 0; i < std::size(modes); ++i)
        cabinet.entries.push_back({.name = "f" + std::to_string(i), .content = "x", .accessFlag = modes[i].flag});
    Extract(dir, cabinet, dir.File("out"));
    for (size_t i = 0; i < std::size(modes); ++i) {
        const struct stat status = Status(dir.File("out/f" + std::to_string(i)));
        EXPECT_EQ(status.st_mode, S_IFREG | modes[i].mode) << modes[i].flag;
        EXPECT_EQ(status.st_mtim.tv_sec, support::kSomeTime);
        EXPECT_EQ(status.st_mtim.tv_nsec, 0);
        EXPECT_EQ(status.st_atim.tv_sec, support::kSomeTime);
    }
}

TEST(Extract, TimesOfEveryKind)
{
    const TempDir dir;
    const char* const times[] = {"1", "2147483647", "-1", "-2147483648", "1000000000 or so"};
    Cabinet cabinet;
    for (size_t i = 0; i < std::size(times); ++i)
        cabinet.entries.push_back({.name = "f" + std::to_string(i), .content = "x", .time = times[i]});
    Extract(dir, cabinet, dir.File("out"));
    for (size_t i = 0; i < std::size(times); ++i)
        EXPECT_EQ(Status(dir.File("out/f" + std::to_string(i))).st_mtim.tv_sec, atol(times[i]));
}

TEST(Extract, NoTimeIsNow)
{
    const TempDir dir;
    for (const char* time : {"0", "", "letters"}) {
        const long before = ::time(nullptr);
        Extract(dir, {.entries = {{.name = "f", .content = "x", .time = time}}}, dir.File("out"));
        const struct stat status = Status(dir.File("out/f"));
        EXPECT_GE(status.st_mtim.tv_sec, before - 1);
        EXPECT_LE(status.st_mtim.tv_sec, ::time(nullptr) + 1);
        EXPECT_GE(status.st_atim.tv_sec, before - 1);
    }
}

TEST(Extract, ASmallerSizeCuts)
{
    const TempDir dir;
    Extract(dir, {.entries = {{.name = "f", .content = "0123456789", .size = "4"}}}, dir.File("out"));
    EXPECT_EQ(ReadFile(dir.File("out/f")), "0123");
    Extract(dir, {.entries = {{.name = "f", .size = "10", .stream = support::ManyZeros(32)}}}, dir.File("out"));
    EXPECT_EQ(ReadFile(dir.File("out/f")), std::string(10, '\0'));
}

TEST(Extract, BytesBehindAStreamAreLeftAlone)
{
    const TempDir dir;
    Extract(dir, {.entries = {{.name = "f", .content = "content", .stream = support::Deflated("content") + "more"}}},
            dir.File("out"));
    EXPECT_EQ(ReadFile(dir.File("out/f")), "content");
    Cabinet cabinet = Letters(2);
    cabinet.tail = "behind the directory";
    Extract(dir, cabinet, dir.File("out"));
    EXPECT_EQ(ReadFile(dir.File("out/f1")), "content 1");
}

TEST(Extract, TheDirectoryMayLieAnywhere)
{
    const TempDir dir;
    Cabinet cabinet = Letters(1);
    const std::string text = cabinet.Directory();
    const std::string bytes = cabinet.Bytes();
    // The directory once more, behind itself.
    cabinet.tail = support::Deflated(text);
    cabinet.offset = static_cast<int64_t>(bytes.size());
    cabinet.compact = static_cast<int64_t>(cabinet.tail.size());
    Extract(dir, cabinet, dir.File("out"));
    EXPECT_EQ(ReadFile(dir.File("out/f0")), "content 0");
}

TEST(Extract, ReservedBytesAreNotLookedAt)
{
    const TempDir dir;
    std::string bytes = Letters(1).Bytes();
    bytes.replace(32, 96, 96, 'r');
    WriteFile(dir.File("c"), bytes);
    EXPECT_TRUE(ExtractAll(dir.File("c"), dir.File("out")));
    EXPECT_EQ(ReadFile(dir.File("out/f0")), "content 0");
}

TEST(Extract, NoMembers)
{
    const TempDir dir;
    Extract(dir, {.directory = "[none]\n"}, dir.File("out"));
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 0), std::string("!") + strerror(EINVAL));
}

TEST(Extract, FewerMembersThanSections)
{
    const TempDir dir;
    Cabinet cabinet = Letters(3);
    cabinet.count = 2;
    Extract(dir, cabinet, dir.File("out"));
    EXPECT_EQ(support::TreeOf(dir.File("out")), (Paths{"f0", "f1"}));
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 2), std::string("!") + strerror(EINVAL));
}

// --- the directory is read as any profile text ---

/// The usual keys of a member that is the only one.
std::string Keys(const std::string& name, size_t compact)
{
    return "Name = " + name + "\nStartPos = 128\nCompactSize = " + std::to_string(compact) + "\nSize = 7\n";
}

class DirectoryText : public testing::Test {
protected:
    /// Extracts a cabinet of "content" with a directory of our own.
    BOOL ExtractWith(const std::string& text)
    {
        const Cabinet cabinet{.entries = {{.name = "unused", .content = "content"}}, .directory = text};
        WriteFile(dir.File("c"), cabinet.Bytes());
        return ExtractAll(dir.File("c"), dir.File("out"));
    }

    TempDir dir;
    const size_t compact = support::Deflated("content").size();
    const std::string keys = Keys("f", compact);
};

TEST_F(DirectoryText, NamesOfSectionsAndKeysHaveNoCase)
{
    std::string text = "[FILE0]\n" + keys;
    text.replace(text.find("Name"), 4, "NAME");
    text.replace(text.find("StartPos"), 8, "startpos");
    EXPECT_TRUE(ExtractWith(text)) << support::ErrorText();
    EXPECT_EQ(ReadFile(dir.File("out/f")), "content");
}

TEST_F(DirectoryText, TheFirstMatchWins)
{
    EXPECT_TRUE(ExtractWith("[File0]\n" + keys + "Name = second\n[File0]\nName = third\nSize = 2\n"));
    EXPECT_EQ(support::TreeOf(dir.File("out")), Paths{"f"});
    EXPECT_EQ(ReadFile(dir.File("out/f")), "content");
}

TEST_F(DirectoryText, ASectionMayComeInPieces)
{
    const size_t half = keys.find("CompactSize");
    EXPECT_TRUE(ExtractWith("[File0]\n" + keys.substr(0, half) + "[Other]\nx = y\n[File0]\n" + keys.substr(half)))
        << support::ErrorText();
    EXPECT_EQ(ReadFile(dir.File("out/f")), "content");
}

TEST_F(DirectoryText, BlanksAndCarriageReturns)
{
    EXPECT_TRUE(ExtractWith("\r\n[File0] what follows\r\n\r\n  Name   =   f  \rxyz\n"
                            "StartPos=128\r\n CompactSize = " +
                            std::to_string(compact) + "   \r\nSize =7\r\n; comment\n# comment\nno value\n"))
        << support::ErrorText();
    EXPECT_EQ(support::TreeOf(dir.File("out")), Paths{"f"});
    EXPECT_EQ(ReadFile(dir.File("out/f")), "content");
}

TEST_F(DirectoryText, SectionsInAnyOrder)
{
    const std::string stream = support::Deflated("0");
    const Cabinet two{.entries = {{.name = "a", .content = "0"}, {.name = "b", .content = "1"}}};
    std::string text = two.Directory();
    const size_t second = text.find("[File1]");
    Cabinet turned = two;
    turned.directory = text.substr(second) + text.substr(0, second);
    Extract(dir, turned, dir.File("out"));
    EXPECT_EQ(ReadFile(dir.File("out/a")), "0");
    EXPECT_EQ(ReadFile(dir.File("out/b")), "1");
}

TEST_F(DirectoryText, ABrokenHeaderMattersToLookUpsThatReachIt)
{
    EXPECT_TRUE(ExtractWith("[File0]\n" + keys + "Time = 1000000000\nAccessFlag = 33184\n[broken\n"));
    EXPECT_EQ(Status(dir.File("out/f")).st_mode, S_IFREG | 0640U);
    EXPECT_EQ(Status(dir.File("out/f")).st_mtim.tv_sec, 1000000000);
    const long before = ::time(nullptr);
    EXPECT_TRUE(ExtractWith("[File0]\n" + keys + "[broken\n[File0]\nTime = 1000000000\nAccessFlag = 33184\n"));
    EXPECT_EQ(Status(dir.File("out/f")).st_mode, S_IFREG | 0444U) << "neither time nor mode are reached";
    EXPECT_GE(Status(dir.File("out/f")).st_mtim.tv_sec, before - 1);
    EXPECT_FALSE(ExtractWith("[broken\n[File0]\n" + keys));
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_FALSE(ExtractWith("[File0]\nName = g\n[broken\n[File0]\n" + keys));
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_FALSE(Exists(dir.File("out/g")));
}

TEST_F(DirectoryText, TextEndsAtANul)
{
    EXPECT_TRUE(ExtractWith("[File0]\n" + keys + std::string("\0[File1]\nName = x\n", 18)));
    EXPECT_EQ(ReadFile(dir.File("out/f")), "content");
    EXPECT_FALSE(ExtractWith(std::string("\0", 1) + "[File0]\n" + keys));
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_FALSE(ExtractWith("[File0]\nName = f\n" + std::string("\0\n", 2) + keys));
    EXPECT_SYSTEM_ERROR(EBADMSG);
}

TEST_F(DirectoryText, NumbersAreReadAsFarAsTheyGo)
{
    const std::string count = std::to_string(compact);
    for (const std::string& text : {"Name = f\nStartPos = 128 and\nCompactSize = " + count + "x\nSize = +7.9\n",
                                    "Name = f\nStartPos = 0128\nCompactSize = 00" + count + "\nSize = 07\n"}) {
        EXPECT_TRUE(ExtractWith("[File0]\n" + text)) << support::ErrorText();
        EXPECT_EQ(ReadFile(dir.File("out/f")), "content");
        unlink(dir.File("out/f").c_str());
    }
    EXPECT_FALSE(ExtractWith("[File0]\nName = f\nStartPos = 0x80\nCompactSize = " + count + "\nSize = 7\n"));
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_FALSE(ExtractWith("[File0]\nName = f\nStartPos = " + std::string(100, '0') + "128\nCompactSize = " + count +
                             "\nSize = 7\n"))
        << "numbers are cut at 99 bytes";
    EXPECT_SYSTEM_ERROR(EBADMSG);
}

TEST_F(DirectoryText, AMemberNeedsANameAndThreeNumbers)
{
    for (const char* key : {"Name", "StartPos", "CompactSize", "Size"}) {
        std::string text = "[File0]\n" + keys;
        const size_t at = text.find(key);
        text.erase(at, text.find('\n', at) + 1 - at);
        EXPECT_FALSE(ExtractWith(text)) << key;
        EXPECT_SYSTEM_ERROR(EBADMSG);
        text.insert(at, std::string(key) + " = " + (std::string(key) == "Name" ? "" : "0") + "\n");
        EXPECT_FALSE(ExtractWith(text)) << key;
        EXPECT_SYSTEM_ERROR(EBADMSG);
    }
    EXPECT_FALSE(Exists(dir.File("out/f")));
}

TEST_F(DirectoryText, SectionsAreNumberedInPlainDecimal)
{
    for (const char* section : {"File00", "File 0", "File", "File0 ", " File0", "File1", "File-0"}) {
        EXPECT_FALSE(ExtractWith("[" + std::string(section) + "]\n" + keys)) << section;
        EXPECT_SYSTEM_ERROR(EBADMSG);
    }
}

// --- one file ---

TEST(ExtractOneFile, TellsThePath)
{
    const TempDir dir;
    Cabinet cabinet = Letters(3);
    cabinet.entries[1].name = "sub/dir/f1";
    WriteFile(dir.File("c"), cabinet.Bytes());
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 1), dir.File("out/sub/dir/f1"));
    EXPECT_EQ(support::TreeOf(dir.File("out")), (Paths{"sub/", "sub/dir/", "sub/dir/f1"}));
    EXPECT_EQ(ReadFile(dir.File("out/sub/dir/f1")), "content 1");
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out/"), 2), dir.File("out/f2"));
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 0), dir.File("out/f0"));
    const support::WorkingDir inside(dir.Path());
    EXPECT_EQ(ExtractOne("c", "relative", 0), "relative/f0");
    EXPECT_EQ(ReadFile("relative/f0"), "content 0");
}

TEST(ExtractOneFile, NumbersThatTheCabinetDoesNotHave)
{
    const TempDir dir;
    WriteFile(dir.File("c"), Letters(1).Bytes());
    const std::string refused = std::string("!") + strerror(EINVAL);
    for (const long index : {1L, 2L, -1L, -2L, 1L << 32, LONG_MAX, LONG_MIN})
        EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), index), refused) << index;
    EXPECT_FALSE(Exists(dir.File("out")));
}

TEST(ExtractOneFile, TheNumberIsLookedAtBeforeTheDirectory)
{
    const TempDir dir;
    Cabinet cabinet = Letters(1);
    cabinet.directoryStream = "no stream at all";
    WriteFile(dir.File("c"), cabinet.Bytes());
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 1), std::string("!") + strerror(EINVAL));
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 0), "!data error");
}

TEST(ExtractOneFile, OtherMembersMayBeDamaged)
{
    const TempDir dir;
    Cabinet cabinet = Letters(3);
    cabinet.entries[0].stream = "damaged";
    cabinet.entries[2].name = "";
    WriteFile(dir.File("c"), cabinet.Bytes());
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 1), dir.File("out/f1"));
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 0), "!data error");
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 2), std::string("!") + strerror(EBADMSG));
}

TEST(ExtractOneFile, PathsUpToTheLimit)
{
    const TempDir dir;
    const support::WorkingDir inside(dir.Path());
    Cabinet cabinet;
    cabinet.entries = {{.name = support::NestedPath(295), .content = "x"},
                       {.name = support::NestedPath(296), .content = "x"}};
    WriteFile("c", cabinet.Bytes());
    EXPECT_EQ(ExtractOne("c", "out", 0), "out/" + support::NestedPath(295));
    EXPECT_EQ(ReadFile("out/" + support::NestedPath(295)), "x");
    fs::remove_all("out");
    EXPECT_EQ(ExtractOne("c", "out", 1), std::string("!") + strerror(EBADMSG));
    EXPECT_FALSE(Exists("out/d/d/d/d"));
    EXPECT_FALSE(ExtractAll("c", "out")) << "the second is too long";
    EXPECT_EQ(ReadFile("out/" + support::NestedPath(295)), "x");
}

// --- progress ---

std::vector<long> PercentagesOf(size_t members)
{
    const TempDir dir;
    WriteFile(dir.File("c"), Letters(members).Bytes());
    percentages.clear();
    EXPECT_TRUE(ZKQGeneral_ExtractMyCabAllFile_P(dir.File("c").c_str(), dir.File("out").c_str(), Record));
    EXPECT_TRUE(Exists(dir.File("out/f" + std::to_string(members - 1))));
    return percentages;
}

TEST(ExtractProgress, FilesInPercent)
{
    EXPECT_EQ(PercentagesOf(1), (std::vector<long>{0, 100}));
    EXPECT_EQ(PercentagesOf(3), (std::vector<long>{0, 33, 66, 100}));
    EXPECT_EQ(PercentagesOf(4), (std::vector<long>{0, 25, 50, 75, 100}));
    std::vector<long> expected;
    for (int i = 0; i <= 100; ++i)
        expected.push_back(static_cast<long>(i / 100.0 * 100.0));
    EXPECT_EQ(PercentagesOf(100), expected);
}

TEST(ExtractProgress, EndsWithTheFirstFailure)
{
    const TempDir dir;
    Cabinet cabinet = Letters(4);
    cabinet.entries[2].stream = "damaged";
    WriteFile(dir.File("c"), cabinet.Bytes());
    percentages.clear();
    EXPECT_FALSE(ZKQGeneral_ExtractMyCabAllFile_P(dir.File("c").c_str(), dir.File("out").c_str(), Record));
    EXPECT_EQ(percentages, (std::vector<long>{0, 25, 50}));
}

TEST(ExtractProgress, ACallbackOfAnEarlierCallIsNotCalled)
{
    const TempDir dir;
    WriteFile(dir.File("c"), Letters(2).Bytes());
    EXPECT_TRUE(ZKQGeneral_ExtractMyCabAllFile_P(dir.File("c").c_str(), dir.File("out").c_str(), Record));
    percentages.clear();
    EXPECT_TRUE(ZKQGeneral_ExtractMyCabAllFile_P(dir.File("c").c_str(), dir.File("out").c_str(), nullptr));
    EXPECT_TRUE(ExtractAll(dir.File("c"), dir.File("out")));
    EXPECT_EQ(ExtractOne(dir.File("c"), dir.File("out"), 1), dir.File("out/f1"));
    const std::string list = dir.File("out") + std::string(2, '\0');
    EXPECT_TRUE(ZKQGeneral_MakeMyCabFile(dir.File("d").c_str(), list.c_str(), 1));
    EXPECT_EQ(percentages, std::vector<long>{});
}

TEST(ExtractProgress, NoMembersNoCall)
{
    const TempDir dir;
    WriteFile(dir.File("c"), Cabinet{.directory = "[none]\n"}.Bytes());
    percentages.clear();
    EXPECT_TRUE(ZKQGeneral_ExtractMyCabAllFile_P(dir.File("c").c_str(), dir.File("out").c_str(), Record));
    EXPECT_EQ(percentages, std::vector<long>{});
}

// --- failures ---

TEST(Extract, NullArguments)
{
    const TempDir dir;
    WriteFile(dir.File("c"), Letters(1).Bytes());
    const std::string cabinet = dir.File("c");
    const std::string out = dir.File("out");
    char name[kPathRoom] = "";
    const auto refused = [](BOOL result) {
        EXPECT_FALSE(result);
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
    };
    support::MarkErrorText();
    refused(ZKQGeneral_ExtractMyCabAllFile(nullptr, out.c_str()));
    refused(ZKQGeneral_ExtractMyCabAllFile(cabinet.c_str(), nullptr));
    refused(ZKQGeneral_ExtractMyCabAllFile_P(nullptr, out.c_str(), Record));
    refused(ZKQGeneral_ExtractMyCabAllFile_P(cabinet.c_str(), nullptr, Record));
    refused(ZKQGeneral_ExtractMyCabOneFile(nullptr, name, 0));
    refused(ZKQGeneral_ExtractMyCabOneFile(cabinet.c_str(), nullptr, 0));
    refused(ZKQGeneral_ExtractMyCabOneFile(cabinet.c_str(), nullptr, -1));
    EXPECT_FALSE(Exists(out));
}

TEST(Extract, CabinetsThatCannotBeRead)
{
    const TempDir dir;
    EXPECT_FALSE(ExtractAll(dir.File("none"), dir.File("out")));
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_FALSE(ExtractAll(dir.Path(), dir.File("out")));
    EXPECT_SYSTEM_ERROR(EISDIR);
    ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0666), 0);
    EXPECT_FALSE(ExtractAll(dir.File("fifo"), dir.File("out"))) << "and does not wait for a writer";
    EXPECT_FALSE(support::ErrorTextIsMarked());
    EXPECT_FALSE(ExtractAll("/dev/zero", dir.File("out")));
    EXPECT_FALSE(ExtractAll("", dir.File("out")));
    EXPECT_FALSE(Exists(dir.File("out")));
}

TEST(Extract, ADamagedMemberLeavesAnOlderFileAndTheOnesBefore)
{
    const TempDir dir;
    fs::create_directory(dir.File("out"));
    WriteFile(dir.File("out/f1"), "older");
    Cabinet cabinet = Letters(3);
    for (const char* damage : {"damaged", "\x78\x9C", ""}) {
        cabinet.entries[1].stream = damage;
        cabinet.entries[1].compactSize = std::to_string(std::max<size_t>(strlen(damage), 1));
        WriteFile(dir.File("c"), cabinet.Bytes());
        EXPECT_FALSE(ExtractAll(dir.File("c"), dir.File("out")));
        EXPECT_FALSE(support::ErrorTextIsMarked());
        EXPECT_EQ(ReadFile(dir.File("out/f0")), "content 0");
        EXPECT_EQ(ReadFile(dir.File("out/f1")), "older");
        EXPECT_FALSE(Exists(dir.File("out/f2")));
    }
    cabinet.entries[1].name = "new";
    WriteFile(dir.File("c"), cabinet.Bytes());
    EXPECT_FALSE(ExtractAll(dir.File("c"), dir.File("out")));
    EXPECT_FALSE(Exists(dir.File("out/new")));
}

TEST(Extract, TargetsThatCannotBeMade)
{
    const TempDir dir;
    WriteFile(dir.File("c"), Letters(1).Bytes());
    WriteFile(dir.File("file"), "x");
    EXPECT_FALSE(ExtractAll(dir.File("c"), dir.File("file")));
    EXPECT_SYSTEM_ERROR(EEXIST);
    EXPECT_EQ(ReadFile(dir.File("file")), "x");
    fs::create_directories(dir.File("out/f0"));
    EXPECT_FALSE(ExtractAll(dir.File("c"), dir.File("out")));
    EXPECT_SYSTEM_ERROR(EISDIR);
    EXPECT_FALSE(ExtractAll(dir.File("c"), dir.File(std::string(400, 'x'))));
    EXPECT_FALSE(support::ErrorTextIsMarked());
}

TEST(Extract, DirectoriesThatMayNotBeWritten)
{
    const TempDir dir;
    WriteFile(dir.File("c"), Letters(1).Bytes());
    fs::create_directory(dir.File("closed"));
    chmod(dir.File("closed").c_str(), 0555);
    const support::WorkingDir inside(dir.Path());
    RUN_IN_CHILD([] {
        support::BecomeNobody();
        EXPECT_FALSE(ExtractAll("c", "closed"));
        EXPECT_SYSTEM_ERROR(EACCES);
        EXPECT_FALSE(ExtractAll("c", "closed/new"));
        EXPECT_SYSTEM_ERROR(EACCES);
    });
}

TEST(Extract, AFullDisk)
{
    const TempDir dir;
    Cabinet cabinet;
    cabinet.entries = {{.name = "big", .content = support::Pattern(2000000)}};
    WriteFile(dir.File("c"), cabinet.Bytes());
    fs::create_directory(dir.File("small"));
    RUN_IN_CHILD([&] {
        support::EnterPrivateMounts();
        if (mount("none", dir.File("small").c_str(), "tmpfs", 0, "size=64k") != 0)
            support::SkipChild("mount");
        EXPECT_FALSE(ExtractAll(dir.File("c"), dir.File("small")));
        EXPECT_SYSTEM_ERROR(ENOSPC);
    });
}

TEST(Extract, WhatWasMadeComesBack)
{
    const TempDir dir;
    fs::create_directories(dir.File("tree/sub/deep"));
    const Paths files = {"a", "b c", "sub/\xD6\xD0", "sub/deep/d"};
    for (const std::string& file : files) {
        const std::string path = dir.File("tree/" + file);
        WriteFile(path, support::Pattern(file.size() * 30000));
        chmod(path.c_str(), 0640);
        const timespec times[] = {{1000000000, 0}, {1000000000, 0}};
        utimensat(AT_FDCWD, path.c_str(), times, 0);
    }
    const std::string list = dir.File("tree") + std::string(2, '\0');
    ASSERT_TRUE(ZKQGeneral_MakeMyCabFile(dir.File("c").c_str(), list.c_str(), 1)) << support::ErrorText();
    EXPECT_TRUE(ExtractAll(dir.File("c"), dir.File("out"))) << support::ErrorText();
    EXPECT_EQ(support::TreeOf(dir.File("out")), support::TreeOf(dir.File("tree")));
    for (const std::string& file : files) {
        EXPECT_TRUE(ReadFile(dir.File("out/" + file)) == ReadFile(dir.File("tree/" + file)));
        EXPECT_EQ(support::Mode(dir.File("out/" + file)), 0640U);
        EXPECT_EQ(Status(dir.File("out/" + file)).st_mtim.tv_sec, 1000000000);
    }
}

TEST(Extract, NothingLeaks)
{
    const TempDir dir;
    WriteFile(dir.File("good"), Letters(2).Bytes());
    Cabinet damaged = Letters(2);
    damaged.entries[1].stream = "damaged";
    WriteFile(dir.File("bad"), damaged.Bytes());
    support::ExpectNothingLeaks([&] {
        ZKQGeneral_ExtractMyCabAllFile(dir.File("good").c_str(), dir.File("out").c_str());
        ZKQGeneral_ExtractMyCabAllFile(dir.File("bad").c_str(), dir.File("out").c_str());
    });
}

} // namespace
