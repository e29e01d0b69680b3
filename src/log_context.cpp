#include <ZKQ_general/inifile.h>
#include <ZKQ_general/system.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include "internal/error.h"
#include "internal/file.h"
#include "internal/guards.h"
#include "internal/log.h"
#include "internal/profile_text.h"
#include "internal/system.h"
#include "internal/text.h"

namespace {

constexpr int kCheckInterval = 60;
constexpr int kMinBinaryLength = 16;
constexpr int kMaxBinaryLength = 4096;
constexpr size_t kMaxWorkingDirectory = 94;
constexpr std::string_view kSwitchFile = "tamor.ini";
constexpr std::string_view kSwitchSection = "applog";
constexpr std::string_view kProfileExtension = ".ini";

struct FreeLogContext {
    void operator()(LOGCTX* ctx) const { ZKQGeneral_FreeLogCtx(ctx); }
};

int ClampBinaryLength(int length)
{
    return length == 0 ? kMaxBinaryLength : std::clamp(length, kMinBinaryLength, kMaxBinaryLength);
}

/// The arguments of ZKQGeneral_IsNeedLogFile() can make a context.
bool IsValid(const APPLOGINFO& info)
{
    if (info.ProjectName == nullptr || strlen(info.ProjectName) >= sizeof(LOGCTX::ProjectName))
        return false;
    return info.Version <= 2 || info.SubName == nullptr || strlen(info.SubName) < sizeof(LOGCTX::SubName);
}

/// Reads the levels of the three sinks from the switch file; without one, all are 0.
LogMasks GetLogLevel(const LOGCTX& ctx)
{
    LogMasks levels = {};
    char path[kPathSize];
    TextBuilder(path).Add(ctx.TempPath).Add(kSwitchFile);
    unsigned char* content = nullptr;
    if (FileContent(path, &content, nullptr) != 0)
        return levels;
    const MallocPtr<unsigned char> owner(content);
    const std::string_view text = reinterpret_cast<char*>(content);
    const std::string_view keys[kLogTypes] = {ctx.ProjectName, "allapp", "allapp2"};
    for (int i = 0; i < kLogTypes; ++i) {
        std::string_view value;
        if (FindProfileValue(text, kSwitchSection, keys[i], &value) == 0)
            levels.levels[i] = static_cast<int>(ProfileInteger(value, 0));
    }
    return levels;
}

/// Sets the masks from the switch file. Switches of old programs are on or off, and neither they nor the second shared
/// log are turned off by a zero.
void ProcessLogLevel(LOGCTX* ctx)
{
    const auto [own, all, all2] = GetLogLevel(*ctx).levels;
    if (ctx->AppInfoVersion > 1) {
        StoreShared(ctx->IsNeedLog, own);
        StoreShared(ctx->IsNeedLog_All, all);
    } else {
        if (own != 0)
            StoreShared<int>(ctx->IsNeedLog, ZKQ_LOG_ALL);
        if (all != 0)
            StoreShared<int>(ctx->IsNeedLog_All, ZKQ_LOG_ALL);
    }
    if (all2 != 0)
        StoreShared(ctx->IsNeedLog_All2, LoadShared(ctx->IsNeedLog));
}

/// Creates a log file and opens it to programs of other users; never through a link, and never a file known by another
/// name.
void CreateLogFile(const char* path)
{
    const UniqueFd file(OpenNoWait(path, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW, 0666));
    struct stat status;
    if (file.IsOpen() && fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1)
        fchmod(file.Get(), 0666);
}

/// Creates the files that are switched on: the own log, and by `Flag` the shared log (1) and the second shared log (2).
void StartLogRecord(LOGCTX* ctx, int Flag)
{
    if (LoadShared(ctx->hWnd) != 0)
        return;
    const MutexLock lock(ctx->hMutex);
    for (const int logType : {kSharedLog, kSharedLog2, kOwnLog}) {
        const LogSink sink = SinkOf(ctx, logType);
        if ((logType == kOwnLog || (Flag & logType) != 0) && LoadShared(sink.mask) != 0)
            CreateLogFile(sink.fileName);
    }
}

/// Fills a new context from its description; 0 or an errno value.
int FillLogContext(LOGCTX* ctx, const APPLOGINFO& info)
{
    ctx->AppInfoVersion = info.Version;
    strncpy_WQX(ctx->ProjectName, info.ProjectName, sizeof ctx->ProjectName);
    ctx->RecordTime = info.RecordTime;
    ctx->MaxFileLength = info.MaxFileLength;
    ctx->hWnd = info.hWnd;
    ctx->Msg = info.Msg;
    ctx->MaxBinaryLength = ClampBinaryLength(info.MaxBinaryLength);
    if (const int error = ProcessTempPath(ctx, info.Version > 0 ? info.TempPath : nullptr))
        return error;
    char executable[kPathSize];
    const ssize_t length = ReadExecutablePath(executable, sizeof executable);
    General_MakeLogFileName(ctx, {executable, static_cast<size_t>(std::max<ssize_t>(length, 0))}, getpid());
    ctx->LastCheckTime = time(nullptr);
    ctx->CheckInterval = kCheckInterval;
    ProcessLogLevel(ctx);
    if (info.Version > 1) {
        ctx->RecordProcessID = info.RecordProcessID;
        ctx->RecordThreadID = info.RecordThreadID;
    }
    if (info.Version > 2) {
        ctx->bAlwaysLog = info.bAlwaysLog;
        if (info.bAlwaysLog != 0)
            ctx->IsNeedLog = info.bAlwaysLog;
        strncpy_WQX(ctx->SubName, info.SubName, sizeof ctx->SubName);
    }
    return 0;
}

} // namespace

int ProcessTempPath(LOGCTX* ctx, const char* tempPath)
{
    TextBuilder path(ctx->TempPath);
    const std::string_view given = OrEmpty(tempPath);
    if (!given.empty()) {
        path.Add(given).Add(given.ends_with('/') ? "" : "/");
        return path.WasCut() ? EINVAL : 0;
    }
    char working[kMaxWorkingDirectory + 1];
    if (getcwd(working, sizeof working) == nullptr)
        return errno;
    const std::string_view directory = strcmp(working, "/") == 0 ? "" : working;
    path.Add(directory.substr(0, directory.rfind('/') + 1));
    if (path.Text().empty())
        path.Add('/');
    path.Add("log/");
    return path.WasCut() ? EINVAL : 0;
}

void General_MakeLogFileName(LOGCTX* ctx, std::string_view executable, int processId)
{
    TextBuilder(ctx->LogFileName).Add(ctx->TempPath).Add(ctx->ProjectName).Add(".log");
    TextBuilder shared(ctx->LogFileName_All);
    TextBuilder shared2(ctx->LogFileName_All2);
    shared.Add(ctx->TempPath);
    shared2.Add(ctx->TempPath);
    if (executable.find('/') == std::string_view::npos) {
        shared.Add("AllApp.log").Add("AllApp_2.log"); // both in one name, and a directory for the other: kept as it is
        return;
    }
    const std::string_view program = WithoutExtension(BaseName(executable));
    shared.Add(program).Add('[').AddDecimal(processId).Add("].log");
    shared2.Add(program).Add('[').AddDecimal(processId).Add("]_2.log");
}

int MakeLogContext(const APPLOGINFO& info, LOGCTX** ctx)
{
    *ctx = nullptr;
    std::unique_ptr<LOGCTX, FreeLogContext> made(static_cast<LOGCTX*>(calloc(1, sizeof(LOGCTX))));
    if (made == nullptr)
        return errno;
    pthread_mutex_init(&made->hMutex, nullptr);
    if (const int error = FillLogContext(made.get(), info))
        return error;
    StartLogRecord(made.get(), kSharedLog | kSharedLog2);
    *ctx = made.release();
    return 0;
}

void ReadSwitchesAgain(LOGCTX* ctx, time_t last, time_t now)
{
    if (!std::atomic_ref(ctx->LastCheckTime).compare_exchange_strong(last, now, std::memory_order_relaxed))
        return;
    const ErrnoKeeper keeper;
    LogMasks old;
    for (int i = 0; i < kLogTypes; ++i)
        old.levels[i] = LoadShared(SinkOf(ctx, i).mask);
    ProcessLogLevel(ctx);
    for (int i = 0; i < kLogTypes; ++i)
        if (LoadShared(SinkOf(ctx, i).mask) != old.levels[i])
            StartLogRecord(ctx, i);
}

BOOL ZKQGeneral_IsNeedLogFile(APPLOGINFO* AppInfo, void** LogCtx)
{
    if (AppInfo == nullptr || LogCtx == nullptr || !IsValid(*AppInfo))
        return Fail(EINVAL);
    LOGCTX* ctx;
    const int error = MakeLogContext(*AppInfo, &ctx);
    *LogCtx = ctx;
    return Finish(error);
}

void ZKQGeneral_FreeLogCtx(void* LogCtx)
{
    if (LogCtx == nullptr)
        return;
    pthread_mutex_destroy(&static_cast<LOGCTX*>(LogCtx)->hMutex);
    free(LogCtx);
}

BOOL ZKQGeneral_GetAppLogFile(void* LogCtx, char* LogFileName)
{
    if (LogCtx == nullptr || LogFileName == nullptr)
        return Fail(EINVAL);
    LOGCTX* ctx = static_cast<LOGCTX*>(LogCtx);
    const MutexLock lock(ctx->hMutex);
    strncpy_WQX(LogFileName, ctx->LogFileName, kLogFileNameSize);
    return TRUE;
}

BOOL ZKQGeneral_SetAppLogFile(void* LogCtx, const char* LogFileName)
{
    if (LogCtx == nullptr || LogFileName == nullptr)
        return Fail(EINVAL);
    LOGCTX* ctx = static_cast<LOGCTX*>(LogCtx);
    char path[kLogFileNameSize];
    TextBuilder builder(path);
    builder.Add(strchr(LogFileName, '/') == nullptr ? ctx->TempPath : "").Add(LogFileName);
    if (builder.WasCut())
        return Fail(EINVAL);
    const MutexLock lock(ctx->hMutex);
    memcpy(ctx->LogFileName, path, sizeof path);
    return TRUE;
}

BOOL ZKQGeneral_SetLogWnd(void* LogCtx, HWND hWnd)
{
    if (LogCtx == nullptr)
        return Fail(EINVAL);
    StoreShared(static_cast<LOGCTX*>(LogCtx)->hWnd, hWnd);
    return TRUE;
}

BOOL ZKQGeneral_IsNeedRecordAppLog(LPCTSTR IniFileName, LPCTSTR Section, LPCTSTR AppName)
{
    return ZKQGeneral_IsNeedRecordAppLogEx(IniFileName, Section, AppName, nullptr);
}

BOOL ZKQGeneral_IsNeedRecordAppLogEx(LPCTSTR IniFileName, LPCTSTR Section, LPCTSTR AppName, const char* TempPath)
{
    if (IniFileName == nullptr || Section == nullptr || AppName == nullptr)
        return Fail(EINVAL);
    char directory[kPathSize];
    char path[kPathSize];
    ZKQGeneral_GetTempPath(sizeof directory, directory);
    TextBuilder builder(path);
    builder.Add(TempPath == nullptr ? directory : TempPath).Add(TempPath == nullptr ? "" : "/");
    const std::string_view name = IniFileName;
    builder.Add(name);
    if (name.size() <= kProfileExtension.size() ||
        !EqualNoCase(After(name, name.size() - kProfileExtension.size()), kProfileExtension))
        builder.Add(kProfileExtension);
    if (builder.WasCut())
        return Fail(ENAMETOOLONG);
    return ZKQGeneral_GetPrivateProfileInt(Section, AppName, 0, path) != 0 ? TRUE : FALSE;
}
