// Log contexts as their own family sees them, and the library's own diagnostics.
#pragma once

#include <ZKQ_general/log.h>
#include <pthread.h>
#include <stddef.h>
#include <time.h>

#include <atomic>
#include <string_view>

inline constexpr size_t kLogFileNameSize = 128;

/// A log context. Callers hold it as void*.
struct LOGCTX {
    int IsNeedLog; ///< levels of the own log; 0 is off
    int RecordTime;
    char LogFileName[kLogFileNameSize];
    int MaxBinaryLength;
    int MaxFileLength;
    int hWnd;
    int Msg;
    time_t LastCheckTime;
    int CheckInterval; ///< seconds between reads of the switches
    char ProjectName[32];
    char TempPath[96]; ///< always ends in "/"
    int IsNeedLog_All;
    int IsNeedLog_All2;
    char LogFileName_All[kLogFileNameSize];
    char LogFileName_All2[kLogFileNameSize];
    int RecordThreadID;
    int RecordProcessID;
    char SubName[16];
    int bAlwaysLog;
    int AppInfoVersion;
    pthread_mutex_t hMutex;
    int fp; ///< descriptors while a record is written; 0 is not open
    int fp_All;
    int fp_All2;

    // Beyond the fields that others may know, and guarded by hMutex:
    time_t FormattedSecond; ///< the second whose text is FormattedTime
    char FormattedTime[32]; ///< "[YYYY-MM-DD hh:mm:ss", empty if there is none
};

static_assert(offsetof(LOGCTX, LogFileName) == 8 && offsetof(LOGCTX, MaxBinaryLength) == 136);
static_assert(offsetof(LOGCTX, LastCheckTime) == 152 && offsetof(LOGCTX, ProjectName) == 164);
static_assert(offsetof(LOGCTX, TempPath) == 196 && offsetof(LOGCTX, IsNeedLog_All) == 292);
static_assert(offsetof(LOGCTX, LogFileName_All) == 300 && offsetof(LOGCTX, RecordThreadID) == 556);
static_assert(offsetof(LOGCTX, SubName) == 564 && offsetof(LOGCTX, hMutex) == 592);
static_assert(offsetof(LOGCTX, fp) == 592 + sizeof(pthread_mutex_t));

static_assert(offsetof(APPLOGINFO, ProjectName) == 8 && offsetof(APPLOGINFO, RecordTime) == 16);
static_assert(offsetof(APPLOGINFO, MaxBinaryLength) == 20 && offsetof(APPLOGINFO, MaxFileLength) == 24);
static_assert(offsetof(APPLOGINFO, hWnd) == 28 && offsetof(APPLOGINFO, Msg) == 32);
static_assert(offsetof(APPLOGINFO, TempPath) == 40 && offsetof(APPLOGINFO, RecordProcessID) == 48);
static_assert(offsetof(APPLOGINFO, RecordThreadID) == 52 && offsetof(APPLOGINFO, SubName) == 56);
static_assert(offsetof(APPLOGINFO, bAlwaysLog) == 64 && sizeof(APPLOGINFO) == 72);

/// The three sinks of a context.
enum LogType { kOwnLog, kSharedLog, kSharedLog2 };
inline constexpr int kLogTypes = 3;

/// Set of sinks: one bit a LogType.
inline constexpr unsigned kAllLogTypes = (1u << kLogTypes) - 1;

/// Values of the three sinks side by side, by LogType.
struct LogMasks {
    int levels[kLogTypes];
};

/// One sink of a context.
struct LogSink {
    int& mask;
    int& fp;
    char (&fileName)[kLogFileNameSize];
};

inline LogSink SinkOf(LOGCTX* ctx, int logType)
{
    if (logType == kOwnLog)
        return {ctx->IsNeedLog, ctx->fp, ctx->LogFileName};
    if (logType == kSharedLog)
        return {ctx->IsNeedLog_All, ctx->fp_All, ctx->LogFileName_All};
    return {ctx->IsNeedLog_All2, ctx->fp_All2, ctx->LogFileName_All2};
}

/// Masks, window and time of the last check are read and changed by threads without the context's mutex.
template <class T>
T LoadShared(T& field)
{
    return std::atomic_ref(field).load(std::memory_order_relaxed);
}
template <class T>
void StoreShared(T& field, T newValue)
{
    std::atomic_ref(field).store(newValue, std::memory_order_relaxed);
}

/// Makes a context; 0 or an errno value, which then leaves *ctx null.
int MakeLogContext(const APPLOGINFO& info, LOGCTX** ctx);
/// Builds the names of the three log files from the log directory, the project and the executable's path.
void General_MakeLogFileName(LOGCTX* ctx, std::string_view executable, int processId);
/// The sibling directory "log" of a working directory, or `tempPath` with a "/" behind it; 0 or an errno value.
int ProcessTempPath(LOGCTX* ctx, const char* tempPath);
/// Reads the switches again; `last` is the time of the last read, and of several threads with the same one does it.
void ReadSwitchesAgain(LOGCTX* ctx, time_t last, time_t now);

/// Reads the switches again when the last read is more than CheckInterval seconds ago, or in the future.
inline void RefreshLogSwitch(LOGCTX* ctx)
{
    if (ctx->bAlwaysLog != 0)
        return;
    const time_t now = time(nullptr);
    const time_t last = LoadShared(ctx->LastCheckTime);
    if (now < last || now - last > ctx->CheckInterval)
        ReadSwitchesAgain(ctx, last, now);
}

/// Takes the context's mutex, deletes logs that have grown too large, then opens and locks every sink whose mask is not
/// zero; without a limit on their size only those in `types`. A sink that cannot be opened keeps the descriptor 0.
void LockLog(LOGCTX* ctx, const LogMasks& masks, unsigned types = kAllLogTypes);
/// Unlocks and closes the sinks and releases the mutex.
void UnLockLog(LOGCTX* ctx);

extern LOGCTX* g_General_LogCtx;        ///< the library's own context; null if it could not be made
extern pthread_mutex_t g_General_Mutex; ///< the library's one lock

/// Writes a diagnostic of the library's own, with the name of the source file (without .cpp or .h) and the line of the
/// caller. The text is in GBK.
void General_LibraryLog(int level, const char* text, const char* file = __builtin_FILE(), int line = __builtin_LINE());

/// A format of printf's with the place where it stands.
struct LogFormat {
    LogFormat(const char* format, const char* sourceFile = __builtin_FILE(), int sourceLine = __builtin_LINE())
        : text(format), file(sourceFile), line(sourceLine)
    {}
    const char* text;
    const char* file;
    int line;
};

/// As General_LibraryLog(), for a text with arguments in it; a long one is cut.
void General_LibraryLogF(int level, LogFormat format, ...);
