// Cabinets from strangers: sizes that lie, names that lead elsewhere, links planted on the way.
#include <ZKQ_general/mycab.h>
#include <errno.h>
#include <limits.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <functional>

#include "support/buffer.h"
#include "support/cabinet.h"
#include "support/child.h"
#include "support/error_text.h"
#include "support/paths.h"
#include "support/sanitizer.h"
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

constexpr int64_t kQuintillion = 1000000000000000000;
constexpr int64_t kNumbers[] = {-1,       INT32_MIN,        INT64_MIN,    INT64_MIN + 1,   INT32_MAX,
                                1L << 32, (1L << 32) + 128, kQuintillion, INT64_MAX - 127, INT64_MAX - 1,
                                INT64_MAX};

/// A directory "box/out" to extract to, whose surroundings must stay as they are.
class Box {
public:
    Box()
    {
        fs::create_directories(dir_.File("box"));
        fs::create_directory(dir_.File("outside"));
        WriteFile(dir_.File("outside/file"), "untouched");
    }
    std::string Out() const { return dir_.File("box/out"); }
    std::string OutFile(const std::string& name) const { return Out() + "/" + name; }
    std::string Outside() const { return dir_.File("outside"); }

    /// Extracts by each of the functions; they agree.
    BOOL Extract(const Cabinet& cabinet) const { return ExtractBytes(cabinet.Bytes()); }

    BOOL ExtractBytes(const std::string& bytes) const
    {
        const support::NoTempFiles watch;
        WriteFile(dir_.File("c"), bytes);
        support::MarkErrorText();
        const BOOL done = ZKQGeneral_ExtractMyCabAllFile(dir_.File("c").c_str(), Out().c_str());
        EXPECT_TRUE(done || !support::ErrorTextIsMarked());
        ExpectNothingOutside();
        return done;
    }

    /// Refused with a reason, by all functions.
    void ExpectRefused(const Cabinet& cabinet, int reason) const
    {
        EXPECT_FALSE(Extract(cabinet));
        EXPECT_SYSTEM_ERROR(reason);
        support::Buffer name(300);
        strcpy(name.Data(), Out().c_str());
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_ExtractMyCabOneFile(dir_.File("c").c_str(), name.Data(), 0));
        EXPECT_SYSTEM_ERROR(reason);
        EXPECT_TRUE(name.GuardIntact());
        EXPECT_EQ(name.Text(), Out());
        ExpectNothingOutside();
    }

    void ExpectNothingOutside() const
    {
        EXPECT_EQ(support::TreeOf(Outside()), Paths{"file"});
        EXPECT_EQ(ReadFile(Outside() + "/file"), "untouched");
        for (const auto& entry : fs::directory_iterator(dir_.Path()))
            EXPECT_TRUE(entry.path().filename() == "box" || entry.path().filename() == "outside" ||
                        entry.path().filename() == "c")
                << entry.path();
        for (const auto& entry : fs::directory_iterator(dir_.File("box")))
            EXPECT_EQ(entry.path().filename(), "out");
    }

private:
    TempDir dir_;
};

Cabinet One()
{
    return {.entries = {{.name = "f", .content = "content"}}};
}

TEST(Hostile, EveryCutIsRefused)
{
    const Box box;
    Cabinet cabinet = One();
    cabinet.entries.push_back({.name = "sub/g", .content = support::Pattern(300)});
    const std::string whole = cabinet.Bytes();
    for (size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(box.ExtractBytes(whole.substr(0, length))) << length;
    EXPECT_TRUE(box.ExtractBytes(whole));
}

TEST(Hostile, EveryDamagedByteIsSeenOrHarmless)
{
    Cabinet cabinet = One();
    cabinet.entries.push_back({.name = "sub/g", .content = support::Pattern(100)});
    const std::string whole = cabinet.Bytes();
    for (size_t at = 0; at < whole.size(); ++at) {
        if (at >= 32 && at < support::kCabinetHeader)
            continue;
        const Box box;
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ (at % 2 == 0 ? 0xFF : 0x01));
        if (box.ExtractBytes(bytes) && support::WordAt(bytes, 0) == 2) {
            EXPECT_EQ(ReadFile(box.OutFile("f")), "content") << at;
            EXPECT_EQ(ReadFile(box.OutFile("sub/g")), support::Pattern(100)) << at;
        }
    }
}

TEST(Hostile, NumbersOfTheHeaderThatLie)
{
    const Box box;
    for (const int64_t number : kNumbers) {
        SCOPED_TRACE(number);
        Cabinet cabinet = One();
        cabinet.offset = number;
        box.ExpectRefused(cabinet, EBADMSG);
        cabinet = One();
        cabinet.compact = number;
        box.ExpectRefused(cabinet, EBADMSG);
        cabinet = One();
        cabinet.plain = number;
        box.ExpectRefused(cabinet, EBADMSG);
        cabinet.compact = number;
        cabinet.offset = number;
        box.ExpectRefused(cabinet, EBADMSG);
    }
    EXPECT_FALSE(Exists(box.OutFile("f")));
}

TEST(Hostile, ADirectoryThatDoesNotYieldItsSize)
{
    const Box box;
    const int64_t length = static_cast<int64_t>(One().Directory().size());
    Cabinet cabinet = One();
    cabinet.plain = length + 1;
    box.ExpectRefused(cabinet, EBADMSG);
    cabinet.plain = 0;
    EXPECT_FALSE(box.Extract(cabinet));
    cabinet.plain = length - 1;
    EXPECT_TRUE(box.Extract(cabinet)) << "the last line feed alone";
    cabinet.plain = 10;
    box.ExpectRefused(cabinet, EBADMSG);
    cabinet = One();
    cabinet.directoryStream = support::ManyZeros(256);
    cabinet.plain = 256 << 20;
    EXPECT_FALSE(box.Extract(cabinet));
}

TEST(Hostile, CountsThatLie)
{
    const Box box;
    for (const int64_t count : {int64_t{1} << 32, int64_t{1} << 33 | 1, kQuintillion, INT64_MAX}) {
        Cabinet cabinet = One();
        cabinet.count = count;
        EXPECT_FALSE(box.Extract(cabinet)) << count;
        EXPECT_SYSTEM_ERROR(EBADMSG);
        EXPECT_EQ(ReadFile(box.OutFile("f")), "content") << "what is there comes before what is not";
        fs::remove(box.OutFile("f"));
    }
    for (const int64_t count : {int64_t{-1}, int64_t{-2}, int64_t{-5}, INT64_MIN, -kQuintillion}) {
        Cabinet cabinet = One();
        cabinet.count = count;
        EXPECT_FALSE(box.Extract(cabinet) && Exists(box.OutFile("f"))) << count;
    }
}

TEST(Hostile, ANameWithAnEmptyPartMakesNoDirectory)
{
    const Box box;
    EXPECT_FALSE(box.Extract({.entries = {{.name = "d//x", .content = "content"}}}));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(Exists(box.Out()));
}

TEST(Hostile, AMemberIsNoneOfTheOthers)
{
    // However many there are said to be, each number finds its own section or none, whichever sections there are.
    for (size_t other = 1; other < 12; ++other) {
        const Box box;
        Cabinet cabinet = One();
        const std::string section = cabinet.Directory();
        cabinet.directory = section + "[File" + std::to_string(other) + section.substr(section.find(']'));
        cabinet.count = 1000;
        const std::string bytes = cabinet.Bytes();
        WriteFile(box.Outside() + "/c", bytes);
        support::Buffer name(300);
        strcpy(name.Data(), box.Out().c_str());
        EXPECT_FALSE(ZKQGeneral_ExtractMyCabOneFile((box.Outside() + "/c").c_str(), name.Data(), 500)) << other;
        EXPECT_SYSTEM_ERROR(EBADMSG);
        EXPECT_TRUE(ZKQGeneral_ExtractMyCabOneFile((box.Outside() + "/c").c_str(), name.Data(), 0)) << other;
        EXPECT_EQ(ReadFile(box.OutFile("f")), "content");
    }
}

TEST(Hostile, OneMemberMoreThanThereIs)
{
    const Box box;
    Cabinet cabinet = One();
    cabinet.count = 2;
    EXPECT_FALSE(box.Extract(cabinet));
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_EQ(ReadFile(box.OutFile("f")), "content") << "what came before stays";
}

TEST(Hostile, NumbersOfMembersThatLie)
{
    const Box box;
    const Paths texts = {"-1",
                         "-128",
                         "-9223372036854775808",
                         "-99999999999999999999999999",
                         "2147483647",
                         "2147483648",
                         "4294967296",
                         "4294967424",
                         "9223372036854775807",
                         "9223372036854775680",
                         "99999999999999999999999999"};
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        Cabinet cabinet = One();
        cabinet.entries[0].startPos = text;
        box.ExpectRefused(cabinet, EBADMSG);
        cabinet = One();
        cabinet.entries[0].compactSize = text;
        box.ExpectRefused(cabinet, EBADMSG);
        cabinet = One();
        cabinet.entries[0].size = text;
        box.ExpectRefused(cabinet, EBADMSG);
        cabinet.entries[0].startPos = text;
        cabinet.entries[0].compactSize = text;
        box.ExpectRefused(cabinet, EBADMSG);
    }
    EXPECT_FALSE(Exists(box.OutFile("f")));
}

TEST(Hostile, AMemberBeyondTheEnd)
{
    const Box box;
    const int64_t length = static_cast<int64_t>(One().Bytes().size());
    for (const int64_t start : {length, length - 1, length + 1}) {
        Cabinet cabinet = One();
        cabinet.entries[0].startPos = std::to_string(start);
        EXPECT_FALSE(box.Extract(cabinet)) << start;
    }
    Cabinet cabinet = One();
    cabinet.entries[0].compactSize = std::to_string(length - 127);
    EXPECT_FALSE(box.Extract(cabinet));
    EXPECT_SYSTEM_ERROR(EBADMSG);
}

TEST(Hostile, ASizeLargerThanWhatComesOut)
{
    const Box box;
    Cabinet cabinet = One();
    cabinet.entries[0].size = "8";
    box.ExpectRefused(cabinet, EBADMSG);
    EXPECT_FALSE(Exists(box.OutFile("f")));
}

TEST(Hostile, ASizeThatNoStreamCanHaveTakesNoMemory)
{
    if (support::IsInstrumented())
        GTEST_SKIP() << "limits on memory mean nothing here";
    const Box box;
    RUN_IN_CHILD([&] {
        const rlimit limit = {1 << 30, 1 << 30};
        if (setrlimit(RLIMIT_AS, &limit) != 0)
            support::SkipChild("setrlimit");
        Cabinet cabinet = One();
        cabinet.entries[0].size = "2147483647";
        EXPECT_FALSE(box.Extract(cabinet));
        EXPECT_SYSTEM_ERROR(EBADMSG);
        cabinet = One();
        cabinet.plain = INT32_MAX;
        EXPECT_FALSE(box.Extract(cabinet));
        EXPECT_SYSTEM_ERROR(EBADMSG);
    });
}

TEST(Hostile, MembersThatOverlap)
{
    const Box box;
    Cabinet cabinet;
    cabinet.entries = {{.name = "f", .content = "content"}, {.name = "g", .content = "content", .startPos = "128"}};
    if (box.Extract(cabinet)) {
        EXPECT_EQ(ReadFile(box.OutFile("f")), "content");
        EXPECT_EQ(ReadFile(box.OutFile("g")), "content");
    } else {
        EXPECT_SYSTEM_ERROR(EBADMSG);
    }
    // The directory's own stream as a member, and a member in the header.
    cabinet = One();
    const std::string bytes = cabinet.Bytes();
    cabinet.entries[0].startPos = std::to_string(support::WordAt(bytes, 8));
    box.Extract(cabinet);
    cabinet.entries[0].startPos = "1";
    EXPECT_FALSE(box.Extract(cabinet));
}

TEST(Hostile, TheSameNameTwice)
{
    const Box box;
    Cabinet cabinet;
    cabinet.entries = {{.name = "f", .content = "first"}, {.name = "f", .content = "second", .accessFlag = "33024"}};
    EXPECT_TRUE(box.Extract(cabinet));
    EXPECT_EQ(ReadFile(box.OutFile("f")), "second");
    cabinet.entries = {{.name = "d", .content = "a file"}, {.name = "d/f", .content = "below it"}};
    EXPECT_FALSE(box.Extract(cabinet));
    EXPECT_EQ(ReadFile(box.OutFile("d")), "a file");
    cabinet.entries = {{.name = "e/f", .content = "below it"}, {.name = "e", .content = "a file"}};
    EXPECT_FALSE(box.Extract(cabinet));
    EXPECT_EQ(ReadFile(box.OutFile("e/f")), "below it");
}

TEST(Hostile, NamesThatLeadElsewhere)
{
    const Box box;
    for (const char* name : {"/f", "//f", "..", "../f", "../../outside/file", "a/../../f", "a/..", "a/../f", "./../f",
                             "a/b/../../../f", "../out/f", ".././f", "/", "../box/out/f", "sub/../../../outside/f"}) {
        SCOPED_TRACE(name);
        Cabinet cabinet = One();
        cabinet.entries[0].name = name;
        box.ExpectRefused(cabinet, EBADMSG);
    }
    Cabinet cabinet = One();
    cabinet.entries[0].name = box.Outside() + "/file";
    box.ExpectRefused(cabinet, EBADMSG);
    EXPECT_FALSE(Exists(box.OutFile("f")));
}

TEST(Hostile, DotsThatLeadNowhere)
{
    const Box box;
    for (const char* name : {"..f", "f..", "...", "a/..b", "a../b", "a/.../b", ". .", ".f"}) {
        Cabinet cabinet = One();
        cabinet.entries[0].name = name;
        EXPECT_TRUE(box.Extract(cabinet)) << name << ": " << support::ErrorText();
        EXPECT_EQ(ReadFile(box.OutFile(name)), "content") << name;
    }
}

TEST(Hostile, NamesThatAreNoFiles)
{
    const Box box;
    for (const char* name : {".", "./", "sub/", "sub/.", "a//", "sub//"}) {
        Cabinet cabinet = One();
        cabinet.entries[0].name = name;
        EXPECT_FALSE(box.Extract(cabinet)) << name;
    }
}

TEST(Hostile, NamesThatAreTooLong)
{
    const Box box;
    for (const size_t length : {300UL, 301UL, 1000UL, 4000UL, 299 - box.Out().size(), 300 - box.Out().size()}) {
        Cabinet cabinet = One();
        cabinet.entries[0].name = support::NestedPath(length);
        EXPECT_FALSE(box.Extract(cabinet)) << length;
        EXPECT_SYSTEM_ERROR(EBADMSG);
    }
    EXPECT_FALSE(Exists(box.OutFile("d")));
    Cabinet cabinet = One();
    cabinet.entries[0].name = support::NestedPath(298 - box.Out().size());
    EXPECT_TRUE(box.Extract(cabinet)) << support::ErrorText();
    cabinet.entries[0].name = std::string(256, 'n');
    if (box.Out().size() + 257 < 300) {
        EXPECT_FALSE(box.Extract(cabinet)) << "longer than a name may be";
    }
}

TEST(Hostile, LinksToDirectories)
{
    const Box box;
    fs::create_directories(box.Out());
    fs::create_directory_symlink(box.Outside(), box.OutFile("link"));
    fs::create_directory_symlink("../../outside", box.OutFile("relative"));
    fs::create_directory(box.OutFile("sub"));
    fs::create_directory_symlink(box.Outside(), box.OutFile("sub/link"));
    for (const char* name :
         {"link/file", "link/new", "relative/file", "link/sub/new", "sub/link/file", "./link/new", "sub/./link/x/y"}) {
        Cabinet cabinet = One();
        cabinet.entries[0].name = name;
        EXPECT_FALSE(box.Extract(cabinet)) << name;
    }
}

TEST(Hostile, LinksInThePlaceOfTheFile)
{
    const Box box;
    ASSERT_EQ(chmod((box.Outside() + "/file").c_str(), 0600), 0);
    const mode_t mode = 0600;
    fs::create_directories(box.Out());
    for (const std::string& target : {box.Outside() + "/file", box.Outside() + "/new", box.Outside()}) {
        fs::remove(box.OutFile("f"));
        fs::create_symlink(target, box.OutFile("f"));
        const BOOL done = box.Extract(One());
        if (done) {
            EXPECT_FALSE(fs::is_symlink(box.OutFile("f")));
            EXPECT_EQ(ReadFile(box.OutFile("f")), "content");
        }
    }
    // Another name of a file outside is as good as a link.
    fs::remove(box.OutFile("f"));
    fs::create_hard_link(box.Outside() + "/file", box.OutFile("f"));
    EXPECT_TRUE(box.Extract(One())) << support::ErrorText();
    EXPECT_EQ(ReadFile(box.OutFile("f")), "content");
    EXPECT_EQ(support::Mode(box.Outside() + "/file"), mode) << "nor is the mode of what they lead to changed";
}

TEST(Hostile, SpecialFilesInThePlaceOfTheFile)
{
    const Box box;
    fs::create_directories(box.Out());
    ASSERT_EQ(mkfifo(box.OutFile("f").c_str(), 0666), 0);
    if (box.Extract(One())) { // which must not wait for a reader
        EXPECT_EQ(ReadFile(box.OutFile("f")), "content");
    }
}

TEST(Hostile, ALinkPlantedByAnEarlierCabinet)
{
    // No mode word makes a link, a directory or a device of a member.
    const Box box;
    for (const unsigned type : {S_IFLNK, S_IFDIR, S_IFCHR, S_IFBLK, S_IFIFO, S_IFSOCK}) {
        Cabinet cabinet = One();
        cabinet.entries[0].content = box.Outside();
        cabinet.entries[0].accessFlag = std::to_string(type | 0777U);
        EXPECT_TRUE(box.Extract(cabinet));
        struct stat status = {};
        ASSERT_EQ(lstat(box.OutFile("f").c_str(), &status), 0);
        EXPECT_TRUE(S_ISREG(status.st_mode));
        EXPECT_EQ(status.st_mode & 07777U, 0777U);
    }
    for (const char* flag : {"-1", "9223372036854775807", "-9223372036854775808", "99999999999999999999"}) {
        Cabinet cabinet = One();
        cabinet.entries[0].accessFlag = flag;
        cabinet.entries[0].time = flag;
        box.Extract(cabinet);
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(box.OutFile("f"))));
        fs::remove(box.OutFile("f"));
    }
}

TEST(Hostile, StreamsThatNeedADictionary)
{
    const Box box;
    Cabinet cabinet = One();
    cabinet.entries[0].stream = support::Deflated("content", {.dictionary = "con"});
    EXPECT_FALSE(box.Extract(cabinet));
    EXPECT_EQ(support::ErrorText(), "need dictionary");
    cabinet.entries[0].stream = support::Deflated("content", {.windowBits = 31});
    EXPECT_FALSE(box.Extract(cabinet));
    EXPECT_EQ(support::ErrorText(), "data error");
    cabinet = One();
    cabinet.entries[0].compactSize = std::to_string(support::Deflated("content").size() - 1);
    EXPECT_FALSE(box.Extract(cabinet));
    EXPECT_EQ(support::ErrorText(), "buffer error");
}

TEST(Hostile, ManySectionsThatNobodyAsksFor)
{
    const Box box;
    Cabinet cabinet = One();
    std::string text;
    for (int i = 5; i < 100000; ++i)
        text += "[File" + std::to_string(i) + "]\nName = " + std::to_string(i) + "\n";
    cabinet.directory = text + One().Directory();
    EXPECT_TRUE(box.Extract(cabinet)) << support::ErrorText();
    EXPECT_EQ(support::TreeOf(box.Out()), Paths{"f"});
}

TEST(Hostile, ManyMembersTakeTimeInProportion)
{
    // 20000 members that are all the first stream: a look-up from the start for each would take minutes.
    const Box box;
    Cabinet cabinet = One();
    std::string text;
    const std::string compact = std::to_string(support::Deflated("content").size());
    for (int i = 0; i < 20000; ++i)
        text += "[File" + std::to_string(i) + "]\nName = f" + std::to_string(i % 10) +
                "\nStartPos = 128\nCompactSize = " + compact + "\nSize = 7\nTime = 0\nAccessFlag = 0\n";
    cabinet.directory = text;
    cabinet.count = 20000;
    if (box.Extract(cabinet)) {
        EXPECT_EQ(support::TreeOf(box.Out()).size(), 10U);
    } else {
        EXPECT_SYSTEM_ERROR(EBADMSG);
    }
}

} // namespace
