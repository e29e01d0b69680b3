// Opening, locking and closing of a context's files around one record.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <compare>
#include <utility>

#include "file.h"
#include "guards.h"
#include "log.h"

namespace {

constexpr off_t kMaxSharedLength = 104857600; // 100 MiB
constexpr int kMaxAttempts = 16;              // then a log that others keep removing is written as it is
constexpr int kFirstLogDescriptor = 3;        // leaves a closed standard stream closed

/// A file's place, in an order that is the same for all processes.
struct FileId {
    unsigned device[2];
    uint64_t inode;

    friend auto operator<=>(const FileId&, const FileId&) = default;
};

FileId Identify(int fd)
{
    struct statx status;
    if (LookAt(fd, &status) != 0)
        return {};
    return {{status.stx_dev_major, status.stx_dev_minor}, status.stx_ino};
}

bool IsDeleted(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 && status.st_nlink == 0;
}

bool Contains(unsigned types, int logType)
{
    return (types >> logType & 1) != 0;
}

bool IsOn(const LogMasks& masks, int logType)
{
    return masks.levels[logType] != 0;
}

/// The files that one record goes to, in the one order in which they are locked everywhere.
class OpenSinks {
public:
    struct Entry {
        int logType;
        FileId id;
    };

    void Insert(const Entry& entry)
    {
        Entry* place = entries_ + count_;
        for (; place != entries_ && entry.id < place[-1].id; --place)
            *place = place[-1];
        *place = entry;
        ++count_;
    }
    const Entry* begin() const { return entries_; }
    const Entry* end() const { return entries_ + count_; }

private:
    Entry entries_[kLogTypes];
    int count_ = 0;
};

/// Opens a log for appending; 0 if it cannot be.
int OpenSink(const char* path)
{
    const int fd = OpenNoWait(path, O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (fd >= kFirstLogDescriptor)
        return fd;
    const UniqueFd low(fd);
    const int moved = low.IsOpen() ? fcntl(fd, F_DUPFD_CLOEXEC, kFirstLogDescriptor) : -1;
    return moved < 0 ? 0 : moved;
}

bool IsLimited(LOGCTX* ctx)
{
    return ctx->MaxFileLength != 0 && LoadShared(ctx->hWnd) == 0;
}

bool IsTooLarge(const LOGCTX* ctx, int logType, off_t length)
{
    if (logType == kOwnLog)
        return ctx->MaxFileLength > 0 && length > ctx->MaxFileLength;
    return length > kMaxSharedLength;
}

/// Deletes a log that has grown past its limit; true if it did. A link or a directory in its place is left alone.
bool DetectLogFile(LOGCTX* ctx, int logType)
{
    const char* path = SinkOf(ctx, logType).fileName;
    struct stat status;
    return lstat(path, &status) == 0 && S_ISREG(status.st_mode) && IsTooLarge(ctx, logType, status.st_size) &&
           unlink(path) == 0;
}

/// Opens the sinks that are on. Where there are several their files are looked at, to lock them in order and once.
OpenSinks OpenAll(LOGCTX* ctx, const LogMasks& masks, unsigned types)
{
    int opened = 0;
    for (int i = 0; i < kLogTypes; ++i) {
        const LogSink sink = SinkOf(ctx, i);
        sink.fp = IsOn(masks, i) && Contains(types, i) ? OpenSink(sink.fileName) : 0;
        opened += sink.fp > 0;
    }
    OpenSinks sinks;
    for (int i = 0; i < kLogTypes; ++i)
        if (const int fd = SinkOf(ctx, i).fp; fd > 0)
            sinks.Insert({i, opened > 1 ? Identify(fd) : FileId{}});
    return sinks; // cppcheck-suppress uninitvar ; its constructor leaves it empty
}

/// Locks a file; true if another process had it.
bool LockFile(int fd)
{
    if (flock(fd, LOCK_EX | LOCK_NB) == 0)
        return false;
    while (flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
    return true;
}

/// Locks the opened files, each once although two sinks may share it; true if another process had one of them.
bool LockAll(LOGCTX* ctx, const OpenSinks& sinks)
{
    bool waited = false;
    const OpenSinks::Entry* locked = nullptr;
    for (const auto& entry : sinks) {
        if (locked == nullptr || locked->id != entry.id)
            waited |= LockFile(SinkOf(ctx, entry.logType).fp);
        locked = &entry;
    }
    return waited;
}

/// The locked file has been deleted, by another process or for its size just now: it must be opened again. Who deletes
/// a log holds its lock and does it for its size, so a small file for which nobody had to wait needs no second look.
bool IsStale(LOGCTX* ctx, int logType, bool waited)
{
    const int fd = SinkOf(ctx, logType).fp;
    const bool tooLarge = IsLimited(ctx) && IsTooLarge(ctx, logType, lseek(fd, 0, SEEK_END));
    if ((waited || tooLarge) && IsDeleted(fd))
        return true;
    return tooLarge && DetectLogFile(ctx, logType);
}

bool IsAnyStale(LOGCTX* ctx, const OpenSinks& sinks, bool waited)
{
    return std::any_of(sinks.begin(), sinks.end(),
                       [&](const auto& entry) { return IsStale(ctx, entry.logType, waited); });
}

void CloseAll(LOGCTX* ctx)
{
    for (int i = 0; i < kLogTypes; ++i) {
        const int fd = std::exchange(SinkOf(ctx, i).fp, 0);
        if (fd > 0) {
            flock(fd, LOCK_UN);
            close(fd);
        }
    }
}

} // namespace

void LockLog(LOGCTX* ctx, const LogMasks& masks, unsigned types)
{
    pthread_mutex_lock(&ctx->hMutex);
    if (IsLimited(ctx)) {
        types = kAllLogTypes; // each pass of a record deletes what the one before has made too large
        for (int i = 0; i < kLogTypes; ++i)
            if (!IsOn(masks, i))
                DetectLogFile(ctx, i);
    }
    for (int attempt = 1;; ++attempt) {
        const OpenSinks sinks = OpenAll(ctx, masks, types);
        const bool waited = LockAll(ctx, sinks);
        if (attempt == kMaxAttempts || !IsAnyStale(ctx, sinks, waited))
            return;
        CloseAll(ctx);
    }
}

void UnLockLog(LOGCTX* ctx)
{
    CloseAll(ctx);
    pthread_mutex_unlock(&ctx->hMutex);
}
