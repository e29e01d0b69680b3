// Log contexts: what is refused, where the logs are, which are on, and how the operator's switches reach them.
#include <ZKQ_general/file.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "support/error_text.h"
#include "support/heap.h"
#include "support/log_context.h"
#include "support/working_dir.h"

namespace {

using support::AppInfo;
using support::LogContext;
using support::LogDir;
using support::ReadFile;
using support::WriteFile;

bool Exists(const std::string& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

mode_t ModeOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

std::string OwnLogOf(void* ctx)
{
    char path[128] = "";
    EXPECT_TRUE(ZKQGeneral_GetAppLogFile(ctx, path));
    return path;
}

/// A marker that no context is: an argument that is refused must leave it alone.
void* Untouched()
{
    static int marker;
    return &marker;
}

void ExpectRefused(APPLOGINFO* info)
{
    support::MarkErrorText();
    void* ctx = Untouched();
    EXPECT_FALSE(ZKQGeneral_IsNeedLogFile(info, &ctx));
    EXPECT_EQ(ctx, Untouched());
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(LogContext, RefusesNullArguments)
{
    LogDir dir;
    AppInfo info(dir);
    ExpectRefused(nullptr);
    info.ProjectName = nullptr;
    ExpectRefused(&info);
    AppInfo good(dir);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_IsNeedLogFile(&good, nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(LogContext, ProjectNameHoldsAtMost31Bytes)
{
    LogDir dir;
    AppInfo info(dir);
    std::string name(32, 'p');
    info.ProjectName = name.data();
    ExpectRefused(&info);
    name.pop_back();
    info.ProjectName = name.data();
    const LogContext ctx(info);
    EXPECT_EQ(OwnLogOf(ctx.Get()), dir.OwnLog(name));
}

TEST(LogContext, SubNameHoldsAtMost15BytesAndIsReadFromVersion3On)
{
    LogDir dir;
    std::string name(16, 's');
    AppInfo info(dir);
    info.SubName = name.data();
    ExpectRefused(&info);
    AppInfo old(dir, 2);
    old.SubName = name.data();
    const LogContext unread(old);
    name.pop_back();
    info.SubName = name.data();
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    EXPECT_TRUE(ctx.Write(ZKQ_LOG_INFO));
    EXPECT_EQ(ReadFile(dir.OwnLog()), "[" + name + "][Info ] text - main.c,120\n");
}

TEST(LogContext, LogDirectoryGetsItsSlash)
{
    LogDir dir;
    for (const char* slash : {"", "/"}) {
        std::string copy = dir.Path() + slash;
        AppInfo info(dir, 1);
        info.TempPath = copy.data();
        const LogContext ctx(info);
        EXPECT_EQ(OwnLogOf(ctx.Get()), dir.OwnLog());
    }
}

struct DirectoryLength {
    size_t length;
    bool endsInSlash;
    bool accepted;

    friend void PrintTo(const DirectoryLength& row, std::ostream* out) { *out << row.length; }
};

class LogDirectoryLength : public testing::TestWithParam<DirectoryLength> {};

TEST_P(LogDirectoryLength, LeavesRoomForTheSlash)
{
    const auto [length, endsInSlash, accepted] = GetParam();
    LogDir dir;
    std::string path = "/" + std::string(length - 1, 'd');
    if (endsInSlash)
        path.back() = '/';
    AppInfo info(dir, 1);
    info.TempPath = path.data();
    void* ctx = Untouched();
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_IsNeedLogFile(&info, &ctx), accepted);
    if (accepted) {
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_EQ(OwnLogOf(ctx), path + (endsInSlash ? "" : "/") + "server.log");
    } else {
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_EQ(ctx, nullptr);
    }
    ZKQGeneral_FreeLogCtx(ctx);
}

INSTANTIATE_TEST_SUITE_P(Lengths, LogDirectoryLength,
                         testing::Values(DirectoryLength{94, false, true}, DirectoryLength{95, true, true},
                                         DirectoryLength{95, false, false}, DirectoryLength{96, true, false},
                                         DirectoryLength{500, false, false}));

TEST(LogContext, WithoutDirectoryLogsBesideTheWorkingDirectory)
{
    LogDir dir;
    ASSERT_EQ(mkdir(dir.File("app").c_str(), 0777), 0);
    ASSERT_EQ(mkdir(dir.File("log").c_str(), 0777), 0);
    const support::WorkingDir working(dir.File("app"));
    WriteFile(dir.File("log/tamor.ini"), "[applog]\nserver=2\n");
    char empty[] = "";
    AppInfo info(dir, 2);
    info.TempPath = empty;
    const LogContext ctx(info);
    EXPECT_EQ(OwnLogOf(ctx.Get()), dir.File("log/server.log"));
    EXPECT_TRUE(ctx.Write(ZKQ_LOG_INFO));
    EXPECT_EQ(ReadFile(dir.File("log/server.log")), "[Info ] text - main.c,120\n");
    AppInfo version0(dir, 0); // does not read TempPath at all
    const LogContext old(version0);
    EXPECT_EQ(OwnLogOf(old.Get()), dir.File("log/server.log"));
}

TEST(LogContext, WorkingDirectoryMayBeTheRoot)
{
    LogDir dir;
    const support::WorkingDir working("/");
    AppInfo info(dir, 0);
    const LogContext ctx(info);
    EXPECT_EQ(OwnLogOf(ctx.Get()), "/log/server.log");
}

TEST(LogContext, WorkingDirectoryThatIsTooLongFails)
{
    LogDir dir;
    const std::string deep = dir.File(std::string(100, 'd'));
    ASSERT_EQ(mkdir(deep.c_str(), 0777), 0);
    const support::WorkingDir working(deep);
    AppInfo info(dir, 0);
    void* ctx = Untouched();
    EXPECT_FALSE(ZKQGeneral_IsNeedLogFile(&info, &ctx));
    EXPECT_EQ(ctx, nullptr);
    EXPECT_SYSTEM_ERROR(ERANGE);
}

TEST(LogContext, MissingDirectoryIsNoFailureAndIsNotMade)
{
    LogDir dir;
    std::string missing = dir.File("missing");
    AppInfo info(dir);
    info.TempPath = missing.data();
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    support::MarkErrorText();
    EXPECT_TRUE(ctx.Write(ZKQ_LOG_ERROR));
    EXPECT_FALSE(Exists(missing));
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

struct SwitchCase {
    const char* name;
    int version;
    int own;
    int all;
    int all2;
    int ownMask;
    int allMask;
    int all2Mask;

    friend void PrintTo(const SwitchCase& row, std::ostream* out) { *out << row.name; }
};

class LogSwitches : public testing::TestWithParam<SwitchCase> {};

/// The levels of 1, 2, 4, 8 with which a log holds records.
int LevelsIn(const std::string& path)
{
    const std::string log = ReadFile(path);
    int levels = 0;
    levels |= log.find("[Debug] ") != std::string::npos ? 1 : 0;
    levels |= log.find("[Info ] ") != std::string::npos ? 2 : 0;
    levels |= log.find("[Warn ] ") != std::string::npos ? 4 : 0;
    levels |= log.find("[Error] ") != std::string::npos ? 8 : 0;
    return levels;
}

TEST_P(LogSwitches, DecideWhichRecordsAreWritten)
{
    const SwitchCase& c = GetParam();
    LogDir dir;
    dir.Switch("server", c.own);
    dir.Switch("allapp", c.all);
    dir.Switch("allapp2", c.all2);
    AppInfo info(dir, c.version);
    const LogContext ctx(info);
    for (const int level : {1, 2, 4, 8})
        EXPECT_TRUE(ctx.Write(level));
    EXPECT_EQ(LevelsIn(dir.OwnLog()), c.ownMask & 15);
    EXPECT_EQ(LevelsIn(dir.SharedLog()), c.allMask & 15);
    EXPECT_EQ(LevelsIn(dir.SharedLog2()), c.all2Mask & 15);
    EXPECT_EQ(Exists(dir.OwnLog()), c.ownMask != 0);
    EXPECT_EQ(Exists(dir.SharedLog()), c.allMask != 0);
    EXPECT_EQ(Exists(dir.SharedLog2()), c.all2Mask != 0);
}

INSTANTIATE_TEST_SUITE_P(Table, LogSwitches,
                         testing::Values(SwitchCase{"off", 2, 0, 0, 0, 0, 0, 0}, //
                                         SwitchCase{"exact", 2, 3, 8, 0, 3, 8, 0},
                                         SwitchCase{"second_takes_own", 2, 3, 0, 5, 3, 0, 3},
                                         SwitchCase{"second_without_own", 2, 0, 4, 5, 0, 4, 0},
                                         SwitchCase{"minus_one", 3, -1, 0, 0, -1, 0, 0},
                                         SwitchCase{"old_means_all", 1, 3, 0, 0, -1, 0, 0},
                                         SwitchCase{"old_shared", 1, 0, 1, 0, 0, -1, 0},
                                         SwitchCase{"old_second_takes_own", 1, 3, 0, 5, -1, 0, -1},
                                         SwitchCase{"old_second_alone", 1, 0, 0, 5, 0, 0, 0}),
                         [](const auto& row) { return row.param.name; });

TEST(LogContext, AlwaysLogIsTheMaskAndIgnoresTheSwitches)
{
    LogDir dir;
    dir.Switch("server", 1);
    AppInfo info(dir);
    info.bAlwaysLog = 6;
    const LogContext ctx(info);
    for (const int level : {1, 2, 4, 8})
        EXPECT_TRUE(ctx.Write(level));
    EXPECT_EQ(LevelsIn(dir.OwnLog()), 6);
}

TEST(LogContext, AlwaysLogIsNotReadBelowVersion3)
{
    LogDir dir;
    AppInfo info(dir, 2);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    EXPECT_TRUE(ctx.Write(ZKQ_LOG_ERROR));
    EXPECT_FALSE(Exists(dir.OwnLog()));
}

TEST(LogContext, ProcessAndThreadAreShownFromVersion2On)
{
    for (const int version : {1, 2}) {
        LogDir dir;
        dir.Switch("server", 15);
        AppInfo info(dir, version);
        info.RecordProcessID = 1;
        info.RecordThreadID = 1;
        const LogContext ctx(info);
        EXPECT_TRUE(ctx.Write(ZKQ_LOG_INFO));
        const std::string log = ReadFile(dir.OwnLog());
        EXPECT_EQ(log.find("[PID: ") != std::string::npos, version == 2) << log;
        EXPECT_EQ(log.find("[TID: ") != std::string::npos, version == 2) << log;
    }
}

TEST(LogContext, FilesThatAreOnAreCreatedWithMode0666)
{
    LogDir dir;
    dir.Switch("server", 8);
    dir.Switch("allapp", 8);
    dir.Switch("allapp2", 8);
    umask(077);
    AppInfo info(dir, 2);
    const LogContext ctx(info);
    for (const std::string& path : {dir.OwnLog(), dir.SharedLog(), dir.SharedLog2()})
        EXPECT_EQ(ModeOf(path), 0666u) << path;
}

TEST(LogContext, CreatingAFileKeepsItsContent)
{
    LogDir dir;
    dir.Switch("server", 8);
    WriteFile(dir.OwnLog(), "kept\n");
    AppInfo info(dir, 2);
    const LogContext ctx(info);
    EXPECT_EQ(ReadFile(dir.OwnLog()), "kept\n");
}

TEST(LogContext, ModeIsNotChangedThroughALinkOrOfADirectory)
{
    LogDir dir;
    WriteFile(dir.File("secret"), "");
    WriteFile(dir.File("twin"), "");
    ASSERT_EQ(chmod(dir.File("secret").c_str(), 0600), 0);
    ASSERT_EQ(chmod(dir.File("twin").c_str(), 0600), 0);
    ASSERT_EQ(symlink("secret", dir.OwnLog().c_str()), 0);
    ASSERT_EQ(link(dir.File("twin").c_str(), dir.SharedLog().c_str()), 0);
    ASSERT_EQ(mkdir(dir.SharedLog2().c_str(), 0700), 0);
    dir.Switch("server", 8);
    dir.Switch("allapp", 8);
    dir.Switch("allapp2", 8);
    AppInfo info(dir, 2);
    const LogContext ctx(info);
    EXPECT_EQ(ModeOf(dir.File("secret")), 0600u);
    EXPECT_EQ(ModeOf(dir.File("twin")), 0600u);
    EXPECT_EQ(ModeOf(dir.SharedLog2()), 0700u);
}

TEST(LogContext, WithAWindowNoFileIsCreated)
{
    LogDir dir;
    dir.Switch("server", 8);
    AppInfo info(dir, 2);
    info.hWnd = 7;
    const LogContext ctx(info);
    EXPECT_FALSE(Exists(dir.OwnLog()));
}

struct DumpLength {
    int given;
    int shown;

    friend void PrintTo(const DumpLength& row, std::ostream* out) { *out << row.given; }
};

class MaxBinaryLength : public testing::TestWithParam<DumpLength> {};

TEST_P(MaxBinaryLength, IsDefaultedAndClamped)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    info.MaxBinaryLength = GetParam().given;
    const LogContext ctx(info);
    std::string data(6000, 'A');
    ASSERT_TRUE(ZKQGeneral_RecordBinaryLogInfo(ctx.Get(), reinterpret_cast<unsigned char*>(data.data()),
                                               static_cast<int>(data.size()), "x"));
    size_t shown = 0;
    const std::string log = ReadFile(dir.OwnLog());
    for (size_t at = log.find("41 "); at != std::string::npos; at = log.find("41 ", at + 1))
        ++shown;
    EXPECT_EQ(shown, static_cast<size_t>(GetParam().shown));
}

INSTANTIATE_TEST_SUITE_P(Table, MaxBinaryLength,
                         testing::Values(DumpLength{0, 4096}, DumpLength{5, 16}, DumpLength{-1, 16}, DumpLength{16, 16},
                                         DumpLength{100, 100}, DumpLength{4096, 4096}, DumpLength{10000, 4096}));

TEST(LogContext, OwnLogFileCanBeNamedAndPlaced)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    EXPECT_TRUE(ZKQGeneral_SetAppLogFile(ctx.Get(), "other.log"));
    EXPECT_EQ(OwnLogOf(ctx.Get()), dir.File("other.log"));
    ASSERT_EQ(mkdir(dir.File("sub").c_str(), 0777), 0);
    EXPECT_TRUE(ZKQGeneral_SetAppLogFile(ctx.Get(), dir.File("sub/own.log").c_str()));
    EXPECT_EQ(OwnLogOf(ctx.Get()), dir.File("sub/own.log"));
    EXPECT_TRUE(ctx.Write(ZKQ_LOG_INFO));
    EXPECT_EQ(ReadFile(dir.File("sub/own.log")), "[Info ] text - main.c,120\n");
}

TEST(LogContext, OwnLogFileMustFitIn128Bytes)
{
    LogDir dir;
    AppInfo info(dir);
    const LogContext ctx(info);
    const size_t room = 127 - dir.Path().size() - 1;
    EXPECT_TRUE(ZKQGeneral_SetAppLogFile(ctx.Get(), std::string(room, 'n').c_str()));
    EXPECT_EQ(OwnLogOf(ctx.Get()).size(), 127u);
    const std::string before = OwnLogOf(ctx.Get());
    EXPECT_FALSE(ZKQGeneral_SetAppLogFile(ctx.Get(), std::string(room + 1, 'n').c_str()));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(ZKQGeneral_SetAppLogFile(ctx.Get(), ("/" + std::string(127, 'n')).c_str()));
    EXPECT_EQ(OwnLogOf(ctx.Get()), before);
}

TEST(LogContext, NullContextIsRefused)
{
    char path[128];
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_GetAppLogFile(nullptr, path));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_SetAppLogFile(nullptr, "x"));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_SetLogWnd(nullptr, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    ZKQGeneral_FreeLogCtx(nullptr);
}

TEST(LogContext, FreeingReleasesTheContext)
{
    LogDir dir;
    AppInfo info(dir);
    support::ExpectNothingLeaks([&] { const LogContext ctx(info); });
}

TEST(LogContext, NullNamesAreRefused)
{
    LogDir dir;
    AppInfo info(dir);
    const LogContext ctx(info);
    EXPECT_FALSE(ZKQGeneral_GetAppLogFile(ctx.Get(), nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_SetAppLogFile(ctx.Get(), nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(LogContext, SwitchFileThatIsADirectoryMeansOff)
{
    LogDir dir;
    ASSERT_EQ(mkdir(dir.File("tamor.ini").c_str(), 0777), 0);
    support::MarkErrorText();
    AppInfo info(dir, 2);
    const LogContext ctx(info);
    EXPECT_TRUE(ctx.Write(ZKQ_LOG_ERROR));
    EXPECT_FALSE(Exists(dir.OwnLog()));
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(LogContext, RubbishInTheSwitchFileLeavesTheErrorTextAlone)
{
    LogDir dir;
    WriteFile(dir.File("tamor.ini"), "[applog\nserver=1\n" + std::string(9000, 'x') + std::string(5, '\0') + "\xff");
    support::MarkErrorText();
    AppInfo info(dir, 2);
    const LogContext ctx(info);
    EXPECT_FALSE(Exists(dir.OwnLog()));
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(LogContext, AFifoInPlaceOfALogDoesNotHang)
{
    LogDir dir;
    ASSERT_EQ(mkfifo(dir.OwnLog().c_str(), 0666), 0);
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    EXPECT_TRUE(ctx.Write(ZKQ_LOG_ERROR));
}

TEST(StandAloneSwitch, NamesGetTheirExtension)
{
    LogDir dir;
    WriteFile(dir.File("cfg.ini"), "[S]\nK=1\n");
    WriteFile(dir.File("up.INI"), "[S]\nK=2\n");
    WriteFile(dir.File(".ini.ini"), "[S]\nK=3\n");
    const auto isOn = [&](const char* file, const char* section, const char* key) {
        return ZKQGeneral_IsNeedRecordAppLogEx(file, section, key, dir.Path().c_str());
    };
    EXPECT_TRUE(isOn("cfg", "S", "K"));
    EXPECT_TRUE(isOn("cfg.ini", "s", "k"));
    EXPECT_TRUE(isOn("up.INI", "S", "K"));
    EXPECT_TRUE(isOn(".ini", "S", "K"));
    EXPECT_FALSE(isOn("cfg", "S", "other"));
    EXPECT_FALSE(isOn("missing", "S", "K"));
}

TEST(StandAloneSwitch, ReadsFromTheTemporaryDirectory)
{
    char path[300];
    ASSERT_TRUE(ZKQGeneral_MyCreateTempFile(path, "zkq", sizeof path));
    ASSERT_EQ(unlink(path), 0);
    const std::string name = std::string(path).substr(5);
    WriteFile("/tmp/" + name + ".ini", "[S]\nK=-1\nZ=0\n");
    EXPECT_TRUE(ZKQGeneral_IsNeedRecordAppLog(name.c_str(), "S", "K"));
    EXPECT_FALSE(ZKQGeneral_IsNeedRecordAppLog(name.c_str(), "S", "Z"));
    EXPECT_EQ(unlink(("/tmp/" + name + ".ini").c_str()), 0);
}

TEST(StandAloneSwitch, PathsHoldAtMost299Bytes)
{
    LogDir dir;
    const std::string deep = dir.File(std::string(100, 'd')); // one name alone may not be that long
    ASSERT_EQ(mkdir(deep.c_str(), 0777), 0);
    const std::string name(299 - deep.size() - strlen("/.ini"), 'n');
    WriteFile(deep + "/" + name + ".ini", "[S]\nK=1\n");
    EXPECT_TRUE(ZKQGeneral_IsNeedRecordAppLogEx(name.c_str(), "S", "K", deep.c_str()));
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_IsNeedRecordAppLogEx((name + "n").c_str(), "S", "K", deep.c_str()));
    EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
}

TEST(StandAloneSwitch, RefusesNullAndLongNames)
{
    const char* arguments[][3] = {{nullptr, "S", "K"}, {"f", nullptr, "K"}, {"f", "S", nullptr}};
    for (const auto& a : arguments) {
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_IsNeedRecordAppLog(a[0], a[1], a[2]));
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_IsNeedRecordAppLogEx(a[0], a[1], a[2], "/tmp"));
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    EXPECT_FALSE(ZKQGeneral_IsNeedRecordAppLog(std::string(300, 'n').c_str(), "S", "K"));
    EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
    EXPECT_FALSE(ZKQGeneral_IsNeedRecordAppLogEx("f", "S", "K", std::string(5000, 'd').c_str()));
    EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
}

} // namespace
