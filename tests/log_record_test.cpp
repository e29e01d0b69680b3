// Log records: their bytes, their results, and which sinks they reach.
#include <fcntl.h>
#include <stdarg.h>
#include <sys/stat.h>

#include <regex>

#include "support/error_text.h"
#include "support/log_context.h"

namespace {

using support::AppInfo;
using support::LogContext;
using support::LogDir;
using support::ReadFile;

std::string Format(const char* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

unsigned char* Bytes(std::string& data)
{
    return reinterpret_cast<unsigned char*>(data.data());
}

/// All three logs on, for all levels.
class LogRecord : public testing::Test {
protected:
    LogRecord() : info_(dir_)
    {
        dir_.Switch("server", 15);
        dir_.Switch("allapp", 15);
        dir_.Switch("allapp2", 1);
    }
    /// The own log of a context that `info_` describes after one action.
    template <class Action>
    std::string OwnLogAfter(Action action)
    {
        const LogContext ctx(info_);
        EXPECT_TRUE(action(ctx.Get()));
        return ReadFile(dir_.OwnLog());
    }

    LogDir dir_;
    AppInfo info_;
};

TEST_F(LogRecord, TagsOfTheLevels)
{
    const std::pair<int, const char*> rows[] = {{1, "[Debug] "}, {2, "[Info ] "}, {4, "[Warn ] "}, {8, "[Error] "},
                                                {-1, " "},       {3, "[Unkow] "}, {15, "[Unkow] "}};
    const LogContext ctx(info_);
    std::string expected;
    for (const auto& [level, tag] : rows) {
        EXPECT_TRUE(ctx.Write(level));
        expected += std::string(tag) + "text - main.c,120\n";
    }
    EXPECT_EQ(ReadFile(dir_.OwnLog()), expected);
}

TEST_F(LogRecord, ACombinedLevelNeedsOneMatchingBit)
{
    dir_.Switch("server", 2);
    dir_.Switch("allapp", 0);
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(3));
    EXPECT_TRUE(ctx.Write(4));
    EXPECT_TRUE(ctx.Write(0));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Unkow] text - main.c,120\n");
}

TEST_F(LogRecord, SourceNameLosesItsDirectories)
{
    const LogContext ctx(info_);
    const std::pair<const char*, const char*> rows[] = {
        {"/usr/src/a.c", "a.c"}, {"a.c", "a.c"}, {"dir/", ""}, {"", ""}, {nullptr, ""}};
    std::string expected;
    for (const auto& [given, shown] : rows) {
        EXPECT_TRUE(ZKQGeneral_RecordLogInfoEx(ctx.Get(), 2, given, -7, "t"));
        expected += std::string("[Info ] t - ") + shown + ",-7\n";
    }
    EXPECT_EQ(ReadFile(dir_.OwnLog()), expected);
}

TEST_F(LogRecord, NullTextCountsAsEmpty)
{
    EXPECT_EQ(OwnLogAfter([](void* ctx) { return ZKQGeneral_RecordLogInfo(ctx, "a.c", 1, nullptr); }), "  - a.c,1\n");
}

TEST_F(LogRecord, OwnLogShowsWhatItsContextAsksFor)
{
    std::string sub = "worker";
    info_.RecordProcessID = 1;
    info_.RecordThreadID = 1;
    info_.SubName = sub.data();
    const std::string log = OwnLogAfter([](void* ctx) { return ZKQGeneral_RecordLogInfoEx(ctx, 8, "m.c", 5, "t"); });
    EXPECT_EQ(log,
              Format("[PID: %d][TID: %X][worker][Error] t - m.c,5\n", getpid(), static_cast<unsigned>(pthread_self())));
}

TEST_F(LogRecord, TimeIsLocalTimeWithMilliseconds)
{
    const time_t start = 0;
    localtime(&start); // the zone has been looked up, and then it changes
    setenv("TZ", "UTC-3:30", 1);
    info_.RecordTime = 1;
    const time_t before = time(nullptr);
    const std::string log = OwnLogAfter([](void* ctx) { return ZKQGeneral_RecordLogInfoEx(ctx, 8, "m.c", 5, "t"); });
    const time_t after = time(nullptr);
    ASSERT_TRUE(std::regex_match(log, std::regex(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\]\[Error\] t - m\.c,5\n)")))
        << log;
    char expected[2][32];
    for (int i = 0; i < 2; ++i) {
        const time_t at = (i == 0 ? before : after) + 3 * 3600 + 1800;
        tm utc;
        strftime(expected[i], sizeof expected[i], "[%Y-%m-%d %H:%M:%S", gmtime_r(&at, &utc));
    }
    EXPECT_GE(log.substr(0, 20), expected[0]);
    EXPECT_LE(log.substr(0, 20), expected[1]);
}

TEST_F(LogRecord, SharedLogsAlwaysShowTimeThreadAndName)
{
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(8));
    const std::string pattern = Format(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\]\[TID: %X\]\[server\])"
                                       R"(\[Error\] text - main\.c,120\n)",
                                       static_cast<unsigned>(pthread_self()));
    EXPECT_TRUE(std::regex_match(ReadFile(dir_.SharedLog()), std::regex(pattern))) << ReadFile(dir_.SharedLog());
    EXPECT_TRUE(std::regex_match(ReadFile(dir_.SharedLog2()), std::regex(pattern))) << ReadFile(dir_.SharedLog2());
}

TEST_F(LogRecord, SharedLogsShowTheSubNameInPlaceOfTheProject)
{
    std::string sub = "worker";
    info_.SubName = sub.data();
    info_.RecordProcessID = 1; // never in the shared logs
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(8));
    const std::string log = ReadFile(dir_.SharedLog());
    EXPECT_NE(log.find("][worker][Error] text"), std::string::npos) << log;
    EXPECT_EQ(log.find("PID"), std::string::npos) << log;
}

TEST_F(LogRecord, SystemErrorShowsTheSystemsText)
{
    const std::string log =
        OwnLogAfter([](void* ctx) { return ZKQGeneral_RecordSystemErrorEx(ctx, 4, "x/y.c", 9, ENOENT); });
    EXPECT_EQ(log, Format("[Warn ] System Call Error: %s - y.c,9\n", strerror(ENOENT)));
}

TEST_F(LogRecord, SystemErrorAtAllLevels)
{
    const std::string log = OwnLogAfter([](void* ctx) { return ZKQGeneral_RecordSystemError(ctx, "y.c", 9, 99999); });
    EXPECT_EQ(log, Format(" System Call Error: %s - y.c,9\n", strerror(99999)));
}

TEST_F(LogRecord, LongTextsAreNotCut)
{
    const LogContext ctx(info_);
    const std::string text(3000000, 'x');
    EXPECT_TRUE(ZKQGeneral_RecordLogInfoEx(ctx.Get(), 2, "a.c", 1, text.c_str()));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Info ] " + text + " - a.c,1\n");
}

struct DumpCase {
    const char* name;
    std::string data;
    std::string body;

    friend void PrintTo(const DumpCase& row, std::ostream* out) { *out << row.name; }
};

class Dump : public LogRecord, public testing::WithParamInterface<DumpCase> {};

TEST_P(Dump, ShowsOffsetHexAndCharacters)
{
    DumpCase c = GetParam();
    const std::string log = OwnLogAfter([&](void* ctx) {
        return ZKQGeneral_RecordBinaryLogInfoEx(ctx, 1, Bytes(c.data), static_cast<int>(c.data.size()), "data");
    });
    EXPECT_EQ(log, "[Debug] data[Length: " + std::to_string(c.data.size()) + "]\n" + c.body + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Table, Dump,
    testing::Values(DumpCase{"empty", "", ""},
                    DumpCase{"three", std::string("A\0z", 3), "000: 41 00 7a " + std::string(39, ' ') + "A.z\n"},
                    DumpCase{"limits_of_printable", "\x1f\x20\x7e\x7f\x80\xff",
                             "000: 1f 20 7e 7f 80 ff " + std::string(30, ' ') + ". ~...\n"},
                    DumpCase{"full_line", "0123456789abcdef",
                             "000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\n"},
                    DumpCase{"second_line", "0123456789abcdefG",
                             "000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\n010: 47 " +
                                 std::string(45, ' ') + "G\n"}),
    [](const auto& row) { return row.param.name; });

TEST_F(LogRecord, DumpIsCutButSaysTheWholeLength)
{
    info_.MaxBinaryLength = 16;
    std::string data(20, 'a');
    const std::string log =
        OwnLogAfter([&](void* ctx) { return ZKQGeneral_RecordBinaryLogInfo(ctx, Bytes(data), 20, "d"); });
    EXPECT_EQ(log, " d[Length: 20]\n000: 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 aaaaaaaaaaaaaaaa\n\n");
}

TEST_F(LogRecord, LargestDumpEndsAtOffsetFf0)
{
    std::string data(5000, 'a');
    const std::string log =
        OwnLogAfter([&](void* ctx) { return ZKQGeneral_RecordBinaryLogInfo(ctx, Bytes(data), 5000, "d"); });
    EXPECT_EQ(log.size(), strlen(" d[Length: 5000]\n") + 256 * 70 + 1);
    EXPECT_NE(log.find("\nff0: 61"), std::string::npos);
}

TEST_F(LogRecord, DumpOfNothingShowsNothing)
{
    const LogContext ctx(info_);
    std::string data = "abc";
    EXPECT_TRUE(ZKQGeneral_RecordBinaryLogInfoEx(ctx.Get(), 2, nullptr, 3, "null"));
    EXPECT_TRUE(ZKQGeneral_RecordBinaryLogInfoEx(ctx.Get(), 2, Bytes(data), -3, nullptr));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Info ] null[Length: 3]\n\n[Info ] [Length: -3]\n\n");
}

TEST_F(LogRecord, DumpWithSourceAndFormat)
{
    std::string data = "A";
    const std::string body = "000: 41 " + std::string(45, ' ') + "A\n\n";
    const LogContext ctx(info_);
    EXPECT_TRUE(ZKQGeneral_RecordBinaryLogInfoEx2(ctx.Get(), 2, Bytes(data), 1, "/s/r.c", 33, "head %d", 5));
    EXPECT_TRUE(ZKQGeneral_RecordBinaryLogInfoEx2(ctx.Get(), 2, Bytes(data), 1, nullptr, 33, "h"));
    EXPECT_TRUE(ZKQGeneral_RecordBinaryLogInfoEx2(ctx.Get(), 2, Bytes(data), 1, "r.c", 33, nullptr));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Info ] head 5[Length: 1] r.c -33\n" + body + "[Info ] h[Length: 1]\n" + body +
                                           "[Info ] [Length: 1] r.c -33\n" + body);
}

TEST_F(LogRecord, DumpHeaderIsCutAt1023Bytes)
{
    const std::string text(2000, 'h');
    const std::string log = OwnLogAfter([&](void* ctx) {
        return ZKQGeneral_RecordBinaryLogInfoEx2(ctx, 2, nullptr, 0, nullptr, 0, "%s", text.c_str());
    });
    EXPECT_EQ(log, "[Info ] " + std::string(1023, 'h') + "[Length: 0]\n\n");
}

TEST_F(LogRecord, LongDumpHeaderKeepsItsSource)
{
    const std::string text(1023, 'h');
    const std::string log = OwnLogAfter([&](void* ctx) {
        return ZKQGeneral_RecordBinaryLogInfoEx2(ctx, 2, nullptr, 0, "/s/r.c", 33, "%s", text.c_str());
    });
    EXPECT_EQ(log, "[Info ] " + text + "[Length: 0] r.c -33\n\n");
}

TEST_F(LogRecord, FormattedRecordsAndTheirTrailers)
{
    const LogContext ctx(info_);
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFile_V(ctx.Get(), "a %d", 1));
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 4, "b %s", "two"));
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx2_V(ctx.Get(), 8, "/d/m.c", 77, "c %.2f", 3.0));
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx2_V(ctx.Get(), 8, nullptr, 77, "d"));
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 8, nullptr));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), " a 1 \n[Warn ] b two \n[Error] c 3.00 m.c -77\n[Error] d \n[Error]  \n");
}

TEST_F(LogRecord, FormattedRecordsReachTheThreeLogs)
{
    const LogContext ctx(info_);
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx2_V(ctx.Get(), 8, "m.c", 77, "%s-%d", "x", 4));
    for (const std::string& path : {dir_.OwnLog(), dir_.SharedLog(), dir_.SharedLog2()}) {
        const std::string log = ReadFile(path);
        EXPECT_NE(log.find("[Error] x-4 m.c -77\n"), std::string::npos) << path << ": " << log;
    }
}

TEST_F(LogRecord, FormattedTextsAreNotCut)
{
    const LogContext ctx(info_);
    std::string expected;
    for (const size_t length : {1000u, 1024u, 10238u, 10239u, 10240u, 10241u, 200000u}) {
        const std::string text(length, 'x');
        EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx2_V(ctx.Get(), 2, "m.c", 1, "<%s>", text.c_str()));
        expected += "[Info ] <" + text + "> m.c -1\n";
    }
    EXPECT_EQ(ReadFile(dir_.OwnLog()), expected);
}

TEST_F(LogRecord, FormatsSeeTheCallersErrno)
{
    const std::string log = OwnLogAfter([&](void* ctx) {
        char format[] = "%m %d";
        errno = ENOTTY;
        const BOOL result = ZKQGeneral_RecordAppLogToFileEx_V(ctx, 2, format, 5);
        EXPECT_EQ(errno, ENOTTY);
        return result;
    });
    EXPECT_EQ(log, Format("[Info ] %s 5 \n", strerror(ENOTTY)));
}

TEST_F(LogRecord, WritingThroughAFormatDoesNotEndTheProcess)
{
    const LogContext ctx(info_);
    char format[] = "ab%n"; // writable, where a hardened C library may refuse "%n" by ending the process
    int count = 0;
    ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 2, format, &count);
    EXPECT_EQ(count, 2);
}

TEST_F(LogRecord, LevelsOfTheSecondSharedLogAloneWriteNothing)
{
    dir_.Switch("server", 8);
    dir_.Switch("allapp", 0);
    info_.Version = 3;
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(2));
    EXPECT_EQ(ReadFile(dir_.SharedLog2()), "");
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_NE(ReadFile(dir_.SharedLog2()), "");
}

TEST_F(LogRecord, ResultIsThatOfTheSecondSharedLog)
{
    ASSERT_EQ(mkdir(dir_.OwnLog().c_str(), 0777), 0);
    ASSERT_EQ(mkdir(dir_.SharedLog().c_str(), 0777), 0);
    const LogContext ctx(info_);
    support::MarkErrorText();
    EXPECT_TRUE(ctx.Write(8)) << "the first two logs may fail";
    ASSERT_EQ(unlink(dir_.SharedLog2().c_str()), 0);
    ASSERT_EQ(mkdir(dir_.SharedLog2().c_str(), 0777), 0);
    EXPECT_FALSE(ctx.Write(8));
    EXPECT_FALSE(ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 8, "x"));
    EXPECT_FALSE(ZKQGeneral_RecordBinaryLogInfoEx(ctx.Get(), 8, nullptr, 0, ""));
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST_F(LogRecord, TheDescriptorIsTestedBeforeTheLevel)
{
    dir_.Switch("server", 8); // the second shared log takes this level
    dir_.Switch("allapp", 15);
    ASSERT_EQ(mkdir(dir_.SharedLog2().c_str(), 0777), 0);
    const LogContext ctx(info_);
    EXPECT_FALSE(ctx.Write(2)) << "wanted by the shared log; the second one is on but cannot be opened";
}

TEST_F(LogRecord, NullContextIsRefused)
{
    std::string data = "x";
    const auto refused = [](BOOL result) {
        EXPECT_FALSE(result);
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
    };
    support::MarkErrorText();
    refused(ZKQGeneral_RecordLogInfo(nullptr, "a", 1, "t"));
    refused(ZKQGeneral_RecordLogInfoEx(nullptr, 1, "a", 1, "t"));
    refused(ZKQGeneral_RecordSystemError(nullptr, "a", 1, 2));
    refused(ZKQGeneral_RecordSystemErrorEx(nullptr, 1, "a", 1, 2));
    refused(ZKQGeneral_RecordBinaryLogInfo(nullptr, Bytes(data), 1, "t"));
    refused(ZKQGeneral_RecordBinaryLogInfoEx(nullptr, 1, Bytes(data), 1, "t"));
    refused(ZKQGeneral_RecordBinaryLogInfoEx2(nullptr, 1, Bytes(data), 1, "a", 1, "t"));
    refused(ZKQGeneral_RecordAppLogToFile_V(nullptr, "t"));
    refused(ZKQGeneral_RecordAppLogToFileEx_V(nullptr, 1, "t"));
    refused(ZKQGeneral_RecordAppLogToFileEx2_V(nullptr, 1, "a", 1, "t"));
}

TEST_F(LogRecord, AWindowTakesTextsAndDumpsAndNothingIsOpened)
{
    info_.hWnd = 5;
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_TRUE(ZKQGeneral_RecordSystemErrorEx(ctx.Get(), 8, "a", 1, 2));
    EXPECT_TRUE(ZKQGeneral_RecordBinaryLogInfoEx(ctx.Get(), 8, nullptr, 0, ""));
    for (const std::string& path : {dir_.OwnLog(), dir_.SharedLog(), dir_.SharedLog2()})
        EXPECT_NE(access(path.c_str(), F_OK), 0) << path;
}

TEST_F(LogRecord, WithAWindowFormattedRecordsStillWriteTheirEnd)
{
    info_.hWnd = 5;
    const LogContext ctx(info_);
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx2_V(ctx.Get(), 8, "m.c", 7, "t"));
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 8, "t"));
    for (const std::string& path : {dir_.OwnLog(), dir_.SharedLog(), dir_.SharedLog2()})
        EXPECT_EQ(ReadFile(path), " m.c -7\n \n") << path;
    EXPECT_TRUE(ZKQGeneral_SetLogWnd(ctx.Get(), 0));
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), " m.c -7\n \n[Error] text - main.c,120\n");
}

TEST_F(LogRecord, ARemovedLogStartsAgain)
{
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(8, "one"));
    ASSERT_EQ(unlink(dir_.OwnLog().c_str()), 0);
    EXPECT_TRUE(ctx.Write(8, "two"));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Error] two - main.c,120\n");
}

TEST_F(LogRecord, AClosedStandardInputDoesNotLoseRecords)
{
    const LogContext ctx(info_);
    const int saved = dup(0);
    close(0);
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "the log must not become the standard input";
    dup2(saved, 0);
    close(saved);
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Error] text - main.c,120\n");
}

TEST_F(LogRecord, NoDescriptorStaysOpen)
{
    const LogContext ctx(info_);
    const int before = open("/dev/null", O_RDONLY);
    close(before);
    for (int i = 0; i < 100; ++i) {
        ctx.Write(8);
        ZKQGeneral_RecordAppLogToFile_V(ctx.Get(), "x");
        ZKQGeneral_RecordBinaryLogInfo(ctx.Get(), nullptr, 0, "");
    }
    const int after = open("/dev/null", O_RDONLY);
    close(after);
    EXPECT_EQ(before, after);
}

// Size limits.

TEST_F(LogRecord, OwnLogAboveItsLimitIsDeletedBeforeTheNextRecord)
{
    info_.MaxFileLength = 50;
    dir_.Switch("allapp", 0);
    dir_.Switch("allapp2", 0);
    const LogContext ctx(info_);
    support::WriteFile(dir_.OwnLog(), std::string(50, 'x'));
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_EQ(ReadFile(dir_.OwnLog()).size(), 50 + strlen("[Error] text - main.c,120\n")) << "at the limit it stays";
    support::MarkErrorText();
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Error] text - main.c,120\n");
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST_F(LogRecord, AFormattedRecordThatMakesTheOwnLogTooLargeIsDeletedByThePassForTheNextLog)
{
    info_.MaxFileLength = 50;
    const LogContext ctx(info_);
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 8, "%s", std::string(60, 'x').c_str()));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "") << "made anew by the next pass, and empty";
    EXPECT_NE(ReadFile(dir_.SharedLog()).find(std::string(60, 'x')), std::string::npos);
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 8, "short"));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Error] short \n");
}

TEST_F(LogRecord, LimitZeroTurnsAllSizeChecksOff)
{
    const LogContext ctx(info_);
    ASSERT_EQ(truncate(dir_.OwnLog().c_str(), 1000000), 0);
    ASSERT_EQ(truncate(dir_.SharedLog().c_str(), 104857601), 0);
    EXPECT_TRUE(ctx.Write(8));
    struct stat status;
    ASSERT_EQ(stat(dir_.OwnLog().c_str(), &status), 0);
    EXPECT_GT(status.st_size, 1000000);
    ASSERT_EQ(stat(dir_.SharedLog().c_str(), &status), 0);
    EXPECT_GT(status.st_size, 104857601);
}

TEST_F(LogRecord, SharedLogsAreDeletedAbove100MiB)
{
    info_.MaxFileLength = 1000000;
    const LogContext ctx(info_);
    ASSERT_EQ(truncate(dir_.SharedLog().c_str(), 104857600), 0);
    ASSERT_EQ(truncate(dir_.SharedLog2().c_str(), 104857601), 0);
    EXPECT_TRUE(ctx.Write(8));
    struct stat status;
    ASSERT_EQ(stat(dir_.SharedLog().c_str(), &status), 0);
    EXPECT_GT(status.st_size, 104857600) << "at the limit it stays";
    ASSERT_EQ(stat(dir_.SharedLog2().c_str(), &status), 0);
    EXPECT_LT(status.st_size, 200);
}

TEST_F(LogRecord, ALogThatIsOffIsDeletedForItsSizeToo)
{
    info_.MaxFileLength = 50;
    dir_.Switch("server", 0);
    support::WriteFile(dir_.OwnLog(), std::string(51, 'x'));
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_NE(access(dir_.OwnLog().c_str(), F_OK), 0);
}

TEST_F(LogRecord, WithAWindowNothingIsDeleted)
{
    info_.MaxFileLength = 50;
    info_.hWnd = 1;
    support::WriteFile(dir_.OwnLog(), std::string(51, 'x'));
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 8, "t"));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), std::string(51, 'x') + " \n");
}

// The append without a context.

TEST(AppendLine, AppendsTextAndLineFeed)
{
    LogDir dir;
    const std::string path = dir.File("any.txt");
    EXPECT_TRUE(ZKQGeneral_RecordLogToFile_V(path.c_str(), "a %d", 1));
    EXPECT_TRUE(ZKQGeneral_RecordLogToFile_V(path.c_str(), "%s", ""));
    EXPECT_TRUE(ZKQGeneral_RecordLogToFile_V(path.c_str(), nullptr));
    EXPECT_EQ(ReadFile(path), "a 1\n\n\n");
}

TEST(AppendLine, CutsAt10239Bytes)
{
    LogDir dir;
    const std::string path = dir.File("any.txt");
    EXPECT_TRUE(ZKQGeneral_RecordLogToFile_V(path.c_str(), "%s", std::string(20000, 'x').c_str()));
    EXPECT_EQ(ReadFile(path), std::string(10239, 'x') + "\n");
}

TEST(AppendLine, FailuresLeaveTheirReason)
{
    LogDir dir;
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_RecordLogToFile_V(nullptr, "x"));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(ZKQGeneral_RecordLogToFile_V(dir.Path().c_str(), "x"));
    EXPECT_SYSTEM_ERROR(EISDIR);
    EXPECT_FALSE(ZKQGeneral_RecordLogToFile_V(dir.File("no/file").c_str(), "x"));
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_FALSE(ZKQGeneral_RecordLogToFile_V("/dev/full", "x"));
    EXPECT_SYSTEM_ERROR(ENOSPC);
    ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0666), 0);
    EXPECT_FALSE(ZKQGeneral_RecordLogToFile_V(dir.File("fifo").c_str(), "x"));
    EXPECT_SYSTEM_ERROR(ENXIO);
}

TEST(LogOnAFullDevice, LosesTheRecordAndOnlyTheLastSinkTells)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    ASSERT_TRUE(ZKQGeneral_SetAppLogFile(ctx.Get(), "/dev/full"));
    EXPECT_TRUE(ctx.Write(8));
}

} // namespace
