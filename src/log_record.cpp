#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <span>

#include "internal/error.h"
#include "internal/file.h"
#include "internal/guards.h"
#include "internal/log.h"
#include "internal/text.h"

namespace {

constexpr size_t kFormattedSize = 10240; // a formatted text; longer ones are written piecemeal, or cut where said so
constexpr size_t kHeaderSize = 1024;     // a dump's formatted header, cut
constexpr size_t kDumpSize = 20480;
constexpr size_t kErrorSize = 300;
constexpr int kDumpColumns = 16;
constexpr size_t kMaxPieces = 8;
constexpr size_t kGatherSize = 1024; // records up to here are written from one buffer

using Pieces = std::span<const std::string_view>;

/// A decimal number as text.
class Decimal {
public:
    explicit Decimal(int number) { TextBuilder(digits_).AddDecimal(number); }
    std::string_view Text() const { return digits_; }

private:
    char digits_[16];
};

std::string_view LevelTag(int level)
{
    switch (level) {
    case ZKQ_LOG_DEBUG:
        return "[Debug] ";
    case ZKQ_LOG_INFO:
        return "[Info ] ";
    case ZKQ_LOG_WARN:
        return "[Warn ] ";
    case ZKQ_LOG_ERROR:
        return "[Error] ";
    case ZKQ_LOG_ALL:
        return " ";
    default:
        return "[Unkow] ";
    }
}

/// The start of a time stamp, made anew for each second; empty if the local time cannot be computed.
const char* FormatSecond(LOGCTX* ctx, time_t second)
{
    if (second == ctx->FormattedSecond && *ctx->FormattedTime != '\0')
        return ctx->FormattedTime;
    ctx->FormattedSecond = second;
    TextBuilder text(ctx->FormattedTime);
    tm local;
    tzset(); // localtime_r() alone would miss that the program has changed its zone
    if (localtime_r(&second, &local) == nullptr)
        return ctx->FormattedTime;
    text.Add('[').AddDecimal(local.tm_year + 1900L, 4).Add('-').AddDecimal(local.tm_mon + 1, 2);
    text.Add('-').AddDecimal(local.tm_mday, 2).Add(' ').AddDecimal(local.tm_hour, 2);
    text.Add(':').AddDecimal(local.tm_min, 2).Add(':').AddDecimal(local.tm_sec, 2);
    return ctx->FormattedTime;
}

void AddTime(LOGCTX* ctx, TextBuilder& prefix)
{
    timeval now;
    gettimeofday(&now, nullptr);
    const std::string_view second = FormatSecond(ctx, now.tv_sec);
    if (second.empty())
        prefix.Add("[Unkown Time]");
    else
        prefix.Add(second).Add('.').AddDecimal(now.tv_usec / 1000, 3).Add(']');
}

/// The calling thread's id, cut to 32 bits, in upper-case hexadecimal.
void AddThread(TextBuilder& prefix)
{
    char digits[2 * sizeof(unsigned)];
    const auto id = static_cast<unsigned>(pthread_self());
    char* const end = std::to_chars(digits, std::end(digits), id, 16).ptr;
    std::transform(digits, end, digits, [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
    prefix.Add("[TID: ").Add({digits, static_cast<size_t>(end - digits)}).Add(']');
}

/// What stands in front of a record's text: `bAll` for the shared logs.
void RecordLog_Misc(LOGCTX* ctx, bool bAll, TextBuilder& prefix, int level)
{
    if (bAll || ctx->RecordTime != 0)
        AddTime(ctx, prefix);
    if (!bAll && ctx->RecordProcessID != 0)
        prefix.Add("[PID: ").AddDecimal(getpid()).Add(']');
    if (bAll || ctx->RecordThreadID != 0)
        AddThread(prefix);
    const std::string_view name = bAll && *ctx->SubName == '\0' ? ctx->ProjectName : ctx->SubName;
    if (bAll || !name.empty())
        prefix.Add('[').Add(name).Add(']');
    prefix.Add(LevelTag(level));
}

/// Writes pieces in one request where the system takes them at once; false if it does not take them all.
bool WriteVector(int fd, std::span<iovec> vector)
{
    while (!vector.empty()) {
        const ssize_t count = writev(fd, vector.data(), static_cast<int>(vector.size()));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        size_t written = static_cast<size_t>(count);
        while (!vector.empty() && written >= vector.front().iov_len) {
            written -= vector.front().iov_len;
            vector = vector.subspan(1);
        }
        if (!vector.empty()) {
            vector.front().iov_base = static_cast<char*>(vector.front().iov_base) + written;
            vector.front().iov_len -= written;
        }
    }
    return true;
}

iovec ToVector(std::string_view text)
{
    return {const_cast<char*>(text.data()), text.size()};
}

/// The first step of every record, short because most records are switched off: TRUE if somebody wants it. Otherwise
/// `*result` is what the operation returns. A level that only the second shared log has on is not wanted.
inline bool IsWanted(void* LogCtx, int Level, BOOL* result)
{
    auto* ctx = static_cast<LOGCTX*>(LogCtx);
    if (ctx == nullptr) {
        *result = Fail(EINVAL);
        return false;
    }
    *result = TRUE;
    RefreshLogSwitch(ctx);
    return ((LoadShared(ctx->IsNeedLog) | LoadShared(ctx->IsNeedLog_All)) & Level) != 0;
}

/// A wanted record on its way: where it goes, and at which level. It leaves errno to the caller.
struct Record {
    LOGCTX* ctx;
    int level;
    LogMasks masks;
    ErrnoKeeper keeper;

    Record(void* LogCtx, int Level) : ctx(static_cast<LOGCTX*>(LogCtx)), level(Level)
    {
        for (int i = 0; i < kLogTypes; ++i)
            masks.levels[i] = LoadShared(SinkOf(ctx, i).mask);
    }
    /// It goes to a window, which shows nothing here and never fails.
    bool HasWindow() const { return LoadShared(ctx->hWnd) != 0; }
};

/// Tells whether a locked sink takes the record: 1 yes, 0 no, -1 it should but is not open.
int SinkTakes(const Record& record, int logType)
{
    const int mask = record.masks.levels[logType];
    if (mask == 0)
        return 0;
    if (SinkOf(record.ctx, logType).fp < 1)
        return -1;
    return (mask & record.level) != 0 ? 1 : 0;
}

/// Writes pieces to one locked sink, with the prefix and a line feed if asked for; false if that sink fails.
bool General_RecordLog_V_R(const Record& record, bool bAddMisc, Pieces pieces, bool bAddLineFeed, int logType)
{
    const int takes = SinkTakes(record, logType);
    if (takes <= 0)
        return takes == 0;
    char buffer[kGatherSize];
    TextBuilder text(buffer);
    if (bAddMisc)
        RecordLog_Misc(record.ctx, logType != kOwnLog, text, record.level);
    const std::string_view prefix = text.Text();
    for (const std::string_view piece : pieces)
        text.Add(piece);
    if (bAddLineFeed)
        text.Add('\n');
    const int fd = SinkOf(record.ctx, logType).fp;
    if (!text.WasCut())
        return WriteAll(fd, text.Text()) == 0;
    iovec vector[kMaxPieces + 2] = {ToVector(prefix)};
    iovec* end = std::transform(pieces.begin(), pieces.end(), vector + 1, ToVector);
    *end++ = ToVector(bAddLineFeed ? "\n" : "");
    return WriteVector(fd, {vector, end});
}

/// Writes the same pieces to the three locked sinks; the result is that of the last.
bool WriteToAll(const Record& record, bool bAddMisc, Pieces pieces)
{
    bool result = true;
    for (int i = 0; i < kLogTypes; ++i)
        result = General_RecordLog_V_R(record, bAddMisc, pieces, true, i);
    return result;
}

/// Writes the record "<kind><text> - <file>,<line>".
[[gnu::noinline]] BOOL RecordText(void* LogCtx, int Level, const char* FileName, int Line, std::string_view kind,
                                  const char* text)
{
    const Record record(LogCtx, Level);
    if (record.HasWindow())
        return TRUE;
    const Decimal line(Line);
    const std::string_view pieces[] = {kind, OrEmpty(text), " - ", BaseName(OrEmpty(FileName)), ",", line.Text()};
    LockLog(record.ctx, record.masks);
    const bool result = WriteToAll(record, true, pieces);
    UnLockLog(record.ctx);
    return result ? TRUE : FALSE;
}

[[gnu::noinline]] BOOL RecordErrorText(void* LogCtx, int Level, const char* FileName, int Line, int ErrorCode)
{
    char text[kErrorSize];
    ZKQGeneral_GetSystemErrorInfoString(ErrorCode, text, sizeof text);
    return RecordText(LogCtx, Level, FileName, Line, "System Call Error: ", text);
}

/// Builds the lines of a dump: offset, hex columns, characters.
std::string_view BuildDump(char (&buffer)[kDumpSize], std::span<const unsigned char> data)
{
    constexpr std::string_view kHex = "0123456789abcdef";
    char* next = buffer;
    for (size_t offset = 0; offset < data.size(); offset += kDumpColumns) {
        const auto row = data.subspan(offset, std::min<size_t>(kDumpColumns, data.size() - offset));
        for (const int shift : {8, 4, 0})
            *next++ = kHex[(offset >> shift) & 15];
        *next++ = ':';
        *next++ = ' ';
        char* const characters = std::fill_n(next, 3 * kDumpColumns, ' ');
        for (const unsigned char byte : row) {
            *next++ = kHex[byte >> 4];
            *next++ = kHex[byte & 15];
            ++next;
        }
        next = std::transform(row.begin(), row.end(), characters, [](unsigned char byte) {
            return byte >= 32 && byte <= 126 ? static_cast<char>(byte) : '.';
        });
        *next++ = '\n';
    }
    return {buffer, static_cast<size_t>(next - buffer)};
}

/// vsnprintf() that takes null for the empty format, and leaves the empty text when it fails.
int FormatText(char* buffer, size_t size, const char* format, va_list arguments)
{
    const int length = format == nullptr ? 0 : vsnprintf(buffer, size, format, arguments);
    if (length <= 0)
        *buffer = '\0';
    return length;
}

struct Dump {
    const unsigned char* data;
    int length;
    const char* fileName; ///< null leaves file and line out
    int line;
};

/// Writes the header "<info>[Length: <n>]", with " <file> -<line>" if there is one, and the dump under one lock.
[[gnu::noinline]] BOOL RecordDump(void* LogCtx, int Level, const Dump& dump, const char* extraInfo)
{
    const Record record(LogCtx, Level);
    if (record.HasWindow())
        return TRUE;
    const Decimal length(dump.length);
    const Decimal line(dump.line);
    const std::string_view header[] = {
        OrEmpty(extraInfo), "[Length: ", length.Text(), "]", " ", BaseName(OrEmpty(dump.fileName)), " -", line.Text()};
    const int shown = dump.data == nullptr ? 0 : std::clamp(dump.length, 0, record.ctx->MaxBinaryLength);
    char buffer[kDumpSize];
    const std::string_view body[] = {BuildDump(buffer, {dump.data, static_cast<size_t>(shown)})};
    LockLog(record.ctx, record.masks);
    WriteToAll(record, true, Pieces(header).first(dump.fileName == nullptr ? 4 : 8));
    const bool result = WriteToAll(record, false, body);
    UnLockLog(record.ctx);
    return result ? TRUE : FALSE;
}

[[gnu::noinline]] BOOL RecordFormattedDump(void* LogCtx, int Level, const Dump& dump, const char* format,
                                           va_list arguments)
{
    char extraInfo[kHeaderSize];
    FormatText(extraInfo, sizeof extraInfo, format, arguments);
    return RecordDump(LogCtx, Level, dump, extraInfo);
}

/// A caller's format with its arguments, formatted once for all sinks. A text that does not fit the buffer is formatted
/// into each file.
class Formatted {
public:
    Formatted(const char* format, va_list arguments) : format_(format)
    {
        va_copy(arguments_, arguments);
        va_list copy;
        va_copy(copy, arguments);
        length_ = FormatText(text_, sizeof text_, format_, copy);
        va_end(copy);
    }
    Formatted(const Formatted&) = delete;
    Formatted& operator=(const Formatted&) = delete;
    ~Formatted() { va_end(arguments_); }

    bool Fits() const { return length_ < static_cast<int>(sizeof text_); }
    std::string_view Text() const { return {text_, length_ < 0 ? 0 : static_cast<size_t>(length_)}; }
    bool WriteTo(int fd)
    {
        va_list copy;
        va_copy(copy, arguments_);
        const int written = vdprintf(fd, format_, copy);
        va_end(copy);
        return written >= 0;
    }

private:
    const char* format_;
    va_list arguments_;
    char text_[kFormattedSize];
    int length_;
};

/// Writes a formatted record and its trailer to one sink, which is locked for it. A window takes the text, and the file
/// still gets the trailer.
bool RecordFormattedTo(const Record& record, Formatted& text, Pieces trailer, int logType)
{
    LockLog(record.ctx, record.masks, 1u << logType);
    bool result;
    if (record.HasWindow()) {
        result = General_RecordLog_V_R(record, false, trailer, true, logType);
    } else if (text.Fits()) {
        std::string_view pieces[kMaxPieces] = {text.Text()};
        const auto end = std::copy(trailer.begin(), trailer.end(), pieces + 1);
        result = General_RecordLog_V_R(record, true, {pieces, end}, true, logType);
    } else {
        result = General_RecordLog_V_R(record, true, {}, false, logType) &&
                 (SinkTakes(record, logType) <= 0 || text.WriteTo(SinkOf(record.ctx, logType).fp)) &&
                 General_RecordLog_V_R(record, false, trailer, true, logType);
    }
    UnLockLog(record.ctx);
    return result;
}

[[gnu::noinline]] BOOL RecordFormatted(void* LogCtx, int Level, const char* FileName, int Line, const char* Format,
                                       va_list arguments)
{
    const Record record(LogCtx, Level);
    Formatted text(Format, arguments);
    const Decimal line(Line);
    const std::string_view trailer[] = {" ", BaseName(OrEmpty(FileName)), " -", line.Text()};
    bool result = true;
    for (int i = 0; i < kLogTypes; ++i)
        result = RecordFormattedTo(record, text, Pieces(trailer).first(FileName == nullptr ? 1 : 4), i);
    return result ? TRUE : FALSE;
}

/// Appends a text and a line feed to a file.
BOOL AppendLine(LPCTSTR FileName, std::string_view text)
{
    struct statx status;
    UniqueFd file(OpenForWriting(FileName, O_APPEND, &status));
    if (!file.IsOpen())
        return FailWithErrno();
    iovec line[] = {ToVector(text), ToVector("\n")};
    if (!WriteVector(file.Get(), line))
        return FailWithErrno();
    return close(file.Release()) == 0 ? TRUE : FailWithErrno();
}

} // namespace

BOOL ZKQGeneral_RecordLogInfo(void* LogCtx, const char* FileName, int Line, const char* LogInfo)
{
    return ZKQGeneral_RecordLogInfoEx(LogCtx, ZKQ_LOG_ALL, FileName, Line, LogInfo);
}

BOOL ZKQGeneral_RecordLogInfoEx(void* LogCtx, int Level, const char* FileName, int Line, const char* LogInfo)
{
    BOOL result;
    if (!IsWanted(LogCtx, Level, &result))
        return result;
    return RecordText(LogCtx, Level, FileName, Line, "", LogInfo);
}

BOOL ZKQGeneral_RecordSystemError(void* LogCtx, const char* FileName, int Line, int ErrorCode)
{
    return ZKQGeneral_RecordSystemErrorEx(LogCtx, ZKQ_LOG_ALL, FileName, Line, ErrorCode);
}

BOOL ZKQGeneral_RecordSystemErrorEx(void* LogCtx, int Level, const char* FileName, int Line, int ErrorCode)
{
    BOOL result;
    if (!IsWanted(LogCtx, Level, &result))
        return result;
    return RecordErrorText(LogCtx, Level, FileName, Line, ErrorCode);
}

BOOL ZKQGeneral_RecordBinaryLogInfo(void* LogCtx, const unsigned char* inData, int inLen, const char* ExtraInfo)
{
    return ZKQGeneral_RecordBinaryLogInfoEx(LogCtx, ZKQ_LOG_ALL, inData, inLen, ExtraInfo);
}

BOOL ZKQGeneral_RecordBinaryLogInfoEx(void* LogCtx, int Level, const unsigned char* inData, int inLen,
                                      const char* ExtraInfo)
{
    BOOL result;
    if (!IsWanted(LogCtx, Level, &result))
        return result;
    return RecordDump(LogCtx, Level, {inData, inLen, nullptr, 0}, ExtraInfo);
}

BOOL ZKQGeneral_RecordBinaryLogInfoEx2(void* LogCtx, int Level, const unsigned char* inData, int inLen,
                                       const char* FileName, int Line, const char* Format, ...)
{
    BOOL result;
    if (!IsWanted(LogCtx, Level, &result))
        return result;
    va_list arguments;
    va_start(arguments, Format);
    result = RecordFormattedDump(LogCtx, Level, {inData, inLen, FileName, Line}, Format, arguments);
    va_end(arguments);
    return result;
}

BOOL ZKQGeneral_RecordAppLogToFile_V(void* LogCtx, const char* Format, ...)
{
    BOOL result;
    if (!IsWanted(LogCtx, ZKQ_LOG_ALL, &result))
        return result;
    va_list arguments;
    va_start(arguments, Format);
    result = RecordFormatted(LogCtx, ZKQ_LOG_ALL, nullptr, 0, Format, arguments);
    va_end(arguments);
    return result;
}

BOOL ZKQGeneral_RecordAppLogToFileEx_V(void* LogCtx, int Level, const char* Format, ...)
{
    BOOL result;
    if (!IsWanted(LogCtx, Level, &result))
        return result;
    va_list arguments;
    va_start(arguments, Format);
    result = RecordFormatted(LogCtx, Level, nullptr, 0, Format, arguments);
    va_end(arguments);
    return result;
}

BOOL ZKQGeneral_RecordAppLogToFileEx2_V(void* LogCtx, int Level, const char* FileName, int Line, const char* Format,
                                        ...)
{
    BOOL result;
    if (!IsWanted(LogCtx, Level, &result))
        return result;
    va_list arguments;
    va_start(arguments, Format);
    result = RecordFormatted(LogCtx, Level, FileName, Line, Format, arguments);
    va_end(arguments);
    return result;
}

BOOL ZKQGeneral_RecordLogToFile_V(LPCTSTR FileName, const char* Format, ...)
{
    if (FileName == nullptr)
        return Fail(EINVAL);
    char text[kFormattedSize];
    va_list arguments;
    va_start(arguments, Format);
    const int length = FormatText(text, sizeof text, Format, arguments);
    va_end(arguments);
    return length < 0 ? FailWithErrno() : AppendLine(FileName, text);
}
