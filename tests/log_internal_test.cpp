// What of the logs cannot be reached from outside: the passing of time, odd executables, the library's own context.
#include <iconv.h>
#include <sys/stat.h>

#include "../src/internal/error.h"
#include "../src/internal/log.h"
#include "../src/internal/memory_object.h"
#include "messages_gbk.h"
#include "support/error_text.h"
#include "support/log_context.h"
#include "support/working_dir.h"

namespace {

using support::AppInfo;
using support::LogContext;
using support::LogDir;
using support::ReadFile;

LOGCTX* Inside(const LogContext& ctx)
{
    return static_cast<LOGCTX*>(ctx.Get());
}

TEST(LogFileNames, UseTheExecutablesBaseNameAndProcess)
{
    struct Row {
        const char* executable;
        const char* shared;
        const char* shared2;
    };
    const Row rows[] = {{"/opt/app/server", "/t/server[42].log", "/t/server[42]_2.log"},
                        {"/opt/app/server.bin", "/t/server[42].log", "/t/server[42]_2.log"},
                        {"/opt/a.b/server.1.2", "/t/server.1[42].log", "/t/server.1[42]_2.log"},
                        {"/opt/a.b/server", "/t/server[42].log", "/t/server[42]_2.log"},
                        {"/.hidden", "/t/[42].log", "/t/[42]_2.log"},
                        {"server", "/t/AllApp.logAllApp_2.log", "/t/"},
                        {"", "/t/AllApp.logAllApp_2.log", "/t/"}};
    for (const Row& row : rows) {
        LOGCTX ctx = {};
        strcpy(ctx.TempPath, "/t/");
        strcpy(ctx.ProjectName, "project");
        General_MakeLogFileName(&ctx, row.executable, 42);
        EXPECT_STREQ(ctx.LogFileName, "/t/project.log");
        EXPECT_STREQ(ctx.LogFileName_All, row.shared) << row.executable;
        EXPECT_STREQ(ctx.LogFileName_All2, row.shared2) << row.executable;
    }
}

TEST(LogFileNames, AreCutTo127Bytes)
{
    LOGCTX ctx = {};
    memset(ctx.TempPath, '/', sizeof ctx.TempPath - 1);
    memset(ctx.ProjectName, 'p', sizeof ctx.ProjectName - 1);
    General_MakeLogFileName(&ctx, "/" + std::string(298, 'x'), 42);
    EXPECT_EQ(strlen(ctx.LogFileName), 127u);
    EXPECT_EQ(strlen(ctx.LogFileName_All), 127u);
    EXPECT_EQ(strlen(ctx.LogFileName_All2), 127u);
    EXPECT_EQ(ctx.MaxBinaryLength, 0) << "nothing behind the name was touched";
}

TEST(LogDirectory, OfAWorkingDirectoryThatJustFits)
{
    // 94 bytes with a last component of one: "log/" in its place makes 97, and 95 is the most.
    LogDir dir;
    struct Row {
        size_t last;
        int error;
    };
    for (const auto& [last, error] : {Row{1, EINVAL}, Row{2, EINVAL}, Row{3, 0}, Row{10, 0}}) {
        const size_t middle = 94 - dir.Path().size() - 2 - last;
        std::string deep = dir.File(std::string(middle, 'm'));
        mkdir(deep.c_str(), 0777);
        deep += "/" + std::string(last, 'l');
        ASSERT_EQ(mkdir(deep.c_str(), 0777), 0);
        ASSERT_EQ(deep.size(), 94u);
        const support::WorkingDir working(deep);
        LOGCTX ctx = {};
        EXPECT_EQ(ProcessTempPath(&ctx, nullptr), error) << last;
        if (error == 0) {
            EXPECT_EQ(ctx.TempPath, deep.substr(0, 94 - last) + "log/");
        }
        EXPECT_EQ(ctx.IsNeedLog_All, 0);
    }
}

class Refresh : public testing::Test {
protected:
    Refresh() : info_(dir_, 2)
    {
        dir_.Switch("server", 8);
        dir_.Switch("allapp", 4);
        dir_.Switch("allapp2", 1);
    }
    static void Age(const LogContext& ctx, int seconds) { Inside(ctx)->LastCheckTime = time(nullptr) - seconds; }
    static std::vector<int> Masks(const LogContext& ctx)
    {
        const LOGCTX* c = Inside(ctx);
        return {c->IsNeedLog, c->IsNeedLog_All, c->IsNeedLog_All2};
    }
    void SwitchAll(int own, int all, int all2)
    {
        dir_.Switch("server", own);
        dir_.Switch("allapp", all);
        dir_.Switch("allapp2", all2);
    }

    LogDir dir_;
    AppInfo info_;
};

TEST_F(Refresh, ComesAfterMoreThan60Seconds)
{
    const LogContext ctx(info_);
    EXPECT_EQ(Masks(ctx), (std::vector{8, 4, 8}));
    SwitchAll(0, 0, 0);
    Age(ctx, 55); // a second may pass meanwhile, but not five
    ctx.Write(8);
    EXPECT_EQ(Masks(ctx), (std::vector{8, 4, 8}));
    Age(ctx, 61);
    const time_t before = time(nullptr);
    ctx.Write(8);
    EXPECT_EQ(Masks(ctx), (std::vector{0, 0, 8})) << "the second shared log stays on";
    EXPECT_GE(Inside(ctx)->LastCheckTime, before);
}

TEST_F(Refresh, ComesAlsoWhenTheClockWentBack)
{
    const LogContext ctx(info_);
    SwitchAll(2, 0, 0);
    Inside(ctx)->LastCheckTime = time(nullptr) + 100;
    ctx.Write(8);
    EXPECT_EQ(Masks(ctx), (std::vector{2, 0, 8}));
    EXPECT_LE(Inside(ctx)->LastCheckTime, time(nullptr));
}

TEST_F(Refresh, SecondSharedLogFollowsTheOwnMaskWhileItsKeyIsOn)
{
    const LogContext ctx(info_);
    SwitchAll(0, 4, 1);
    Age(ctx, 100);
    ctx.Write(8);
    EXPECT_EQ(Masks(ctx), (std::vector{0, 4, 0}));
}

TEST_F(Refresh, OldSwitchesAreNeverTurnedOff)
{
    info_.Version = 1;
    const LogContext ctx(info_);
    EXPECT_EQ(Masks(ctx), (std::vector{-1, -1, -1}));
    SwitchAll(0, 0, 0);
    Age(ctx, 100);
    ctx.Write(8);
    EXPECT_EQ(Masks(ctx), (std::vector{-1, -1, -1}));
}

TEST_F(Refresh, NeverComesWithAlwaysLog)
{
    info_.Version = 3;
    info_.bAlwaysLog = 2;
    const LogContext ctx(info_);
    Age(ctx, 100);
    const time_t aged = Inside(ctx)->LastCheckTime;
    ctx.Write(8);
    EXPECT_EQ(Inside(ctx)->LastCheckTime, aged);
    EXPECT_EQ(Inside(ctx)->IsNeedLog, 2);
}

TEST_F(Refresh, CreatesTheFilesThatWereSwitchedOn)
{
    SwitchAll(0, 0, 0);
    const LogContext ctx(info_);
    SwitchAll(1, 1, 1);
    Age(ctx, 100);
    ctx.Write(8); // wanted by nobody
    for (const std::string& path : {dir_.OwnLog(), dir_.SharedLog(), dir_.SharedLog2()}) {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        EXPECT_EQ(status.st_mode & 07777, 0666u) << path;
        EXPECT_EQ(status.st_size, 0) << path;
    }
}

TEST_F(Refresh, LeavesTheFilesOfUnchangedSwitchesAlone)
{
    const LogContext ctx(info_);
    for (const std::string& path : {dir_.OwnLog(), dir_.SharedLog(), dir_.SharedLog2()})
        ASSERT_EQ(unlink(path.c_str()), 0) << path;
    Age(ctx, 100);
    ctx.Write(2); // wanted by nobody
    EXPECT_LT(time(nullptr) - Inside(ctx)->LastCheckTime, 60) << "the switches were read";
    for (const std::string& path : {dir_.OwnLog(), dir_.SharedLog(), dir_.SharedLog2()})
        EXPECT_NE(access(path.c_str(), F_OK), 0) << path;
}

TEST_F(Refresh, LeavesErrorTextAndErrnoAlone)
{
    const LogContext ctx(info_);
    ASSERT_EQ(unlink(dir_.File("tamor.ini").c_str()), 0);
    Age(ctx, 100);
    support::MarkErrorText();
    errno = ENOTTY;
    ctx.Write(8);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_EQ(Masks(ctx), (std::vector{0, 0, 8}));
}

TEST_F(Refresh, OnlyTheSecondSharedLogOnWritesNothing)
{
    const LogContext ctx(info_);
    SwitchAll(0, 0, 0);
    Age(ctx, 100);
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_TRUE(ctx.Write(-1));
    EXPECT_EQ(ReadFile(dir_.SharedLog2()), "");
}

TEST(ContextFields, AreWhatTheDescriptionSays)
{
    LogDir dir;
    AppInfo info(dir);
    std::string sub = "sub";
    info.SubName = sub.data();
    info.RecordTime = 3;
    info.MaxFileLength = 77;
    info.Msg = 9;
    info.RecordProcessID = 5;
    info.RecordThreadID = 6;
    info.bAlwaysLog = 12;
    const LogContext made(info);
    const LOGCTX* ctx = Inside(made);
    EXPECT_EQ(ctx->IsNeedLog, 12);
    EXPECT_EQ(ctx->RecordTime, 3);
    EXPECT_EQ(ctx->MaxFileLength, 77);
    EXPECT_EQ(ctx->Msg, 9);
    EXPECT_EQ(ctx->CheckInterval, 60);
    EXPECT_EQ(ctx->AppInfoVersion, 3);
    EXPECT_EQ(ctx->RecordProcessID, 5);
    EXPECT_EQ(ctx->RecordThreadID, 6);
    EXPECT_EQ(ctx->bAlwaysLog, 12);
    EXPECT_STREQ(ctx->SubName, "sub");
    EXPECT_STREQ(ctx->ProjectName, "server");
    EXPECT_EQ(ctx->TempPath, dir.Path() + "/");
    EXPECT_EQ(ctx->fp, 0);
}

TEST(ContextFields, DescriptorsAreZeroBetweenRecords)
{
    LogDir dir;
    for (const char* key : {"server", "allapp", "allapp2"})
        dir.Switch(key, 15);
    AppInfo info(dir);
    const LogContext made(info);
    EXPECT_TRUE(made.Write(8));
    EXPECT_NE(ReadFile(dir.SharedLog2()), "");
    EXPECT_EQ(Inside(made)->fp, 0);
    EXPECT_EQ(Inside(made)->fp_All, 0);
    EXPECT_EQ(Inside(made)->fp_All2, 0);
}

// The library's own context and lock.

TEST(LibraryLog, IsTheProjectGeneral)
{
    char working[95];
    if (getcwd(working, sizeof working) == nullptr) {
        EXPECT_EQ(g_General_LogCtx, nullptr);
        GTEST_SKIP() << "the working directory is too long for a log beside it";
    }
    ASSERT_NE(g_General_LogCtx, nullptr);
    EXPECT_STREQ(g_General_LogCtx->ProjectName, "general");
    EXPECT_EQ(g_General_LogCtx->RecordTime, 1);
    EXPECT_EQ(g_General_LogCtx->AppInfoVersion, 0);
    EXPECT_EQ(g_General_LogCtx->MaxBinaryLength, 4096);
    EXPECT_EQ(g_General_LogCtx->MaxFileLength, 0);
    EXPECT_EQ(pthread_mutex_trylock(&g_General_Mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&g_General_Mutex), 0);
}

TEST(LibraryLog, LoadingLeavesTheFirstErrorText)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // in a process that has just begun
    EXPECT_EXIT(_exit(support::ErrorText() == "Function call successed!" ? 0 : 1), testing::ExitedWithCode(0), "");
}

/// Puts a context of a test in the place of the library's own.
class OwnContext {
public:
    explicit OwnContext(LOGCTX* ctx) : saved_(g_General_LogCtx) { g_General_LogCtx = ctx; }
    OwnContext(const OwnContext&) = delete;
    OwnContext& operator=(const OwnContext&) = delete;
    ~OwnContext() { g_General_LogCtx = saved_; }

private:
    LOGCTX* saved_;
};

std::string ToGbk(std::string utf8)
{
    char output[256];
    char* in = utf8.data();
    char* out = output;
    size_t inLeft = utf8.size();
    size_t outLeft = sizeof output;
    const iconv_t converter = iconv_open("GBK", "UTF-8");
    EXPECT_EQ(iconv(converter, &in, &inLeft, &out, &outLeft), 0u);
    iconv_close(converter);
    return {output, sizeof output - outLeft};
}

TEST(LibraryLog, MemoryFailuresAreLoggedInGbkWithSourceAndLine)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    const OwnContext own(Inside(ctx));
    support::MarkErrorText();
    GMEM dead = {};
    EXPECT_EQ(GMEM_Append(&dead, nullptr, 1), EINVAL);
    EXPECT_EQ(ZKQGeneral_MEM_Write(nullptr, nullptr, 1), 0);
    auto* object = static_cast<GMEM*>(ZKQGeneral_MEM_malloc(16));
    object->Max = object->Size = object->WritePos = INT32_MAX - 10; // as if it had grown that far
    unsigned char byte[16] = {};
    EXPECT_EQ(GMEM_Append(object, byte, 16), ENOMEM);
    EXPECT_EQ(ZKQGeneral_MEM_Write(object, byte, 16), 0);
    object->Size = 0;
    ZKQGeneral_MEM_free(object);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    const std::string log = ReadFile(dir.OwnLog());
    const std::string bad = "[Error] " + ToGbk("输入的内存指针不合法，无法得到内存对象！") + " - string,";
    const std::string full = "[Error] " + ToGbk("内存分配失败，无法为内存对象扩容！") + " - string,";
    EXPECT_EQ(log.substr(0, bad.size()), bad);
    EXPECT_EQ(log.find(bad, 1), log.find('\n') + 1) << "a write to no object is told as well";
    EXPECT_NE(log.find("\n" + full), std::string::npos) << log;
}

TEST(LibraryLog, DiagnosticsSurviveWithoutAContext)
{
    const OwnContext none(nullptr);
    support::MarkErrorText();
    GMEM dead = {};
    EXPECT_EQ(GMEM_Append(&dead, nullptr, 1), EINVAL);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(Messages, AreGbkBytes)
{
    EXPECT_EQ(Message::MemBadPointer, ToGbk("输入的内存指针不合法，无法得到内存对象！"));
    EXPECT_EQ(Message::MemCannotGrow, ToGbk("内存分配失败，无法为内存对象扩容！"));
}

// The setters of the error text.

TEST(ErrorSetters, CutLongTexts)
{
    GeneralMisc_SetErrorString(std::string(255, 'a').c_str());
    EXPECT_EQ(support::ErrorText(), std::string(255, 'a'));
    GeneralMisc_SetErrorString(std::string(70000, 'b').c_str());
    EXPECT_EQ(support::ErrorText(), std::string(255, 'b'));
}

TEST(ErrorSetters, NegativeNumbersHaveNoText)
{
    GeneralMisc_SetSystemError(-1);
    EXPECT_EQ(support::ErrorText(), "Error is unhandled.");
    GeneralMisc_SetSystemError(EINVAL);
    EXPECT_SYSTEM_ERROR(EINVAL);
    GeneralMisc_SetSystemError(99999);
    EXPECT_SYSTEM_ERROR(99999);
    errno = -3;
    GetSystemLastErrorText();
    EXPECT_EQ(support::ErrorText(), "Error is unhandled.");
    errno = EISDIR;
    GetSystemLastErrorText();
    EXPECT_SYSTEM_ERROR(EISDIR);
}

} // namespace
