#include "log_tail.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "failure.h"
#include "output.h"
#include "paths.h"

namespace {

constexpr size_t kBlockSize = 65536;
constexpr timespec kPause = {0, 200'000'000}; // between two looks at a log that is followed

volatile sig_atomic_t interrupted = 0;

/// An interrupt is the way to end following, so it must not look like a failure to the shell.
void CatchInterrupt()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    // A second interrupt ends the program even if whoever reads our output has stalled.
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
}

} // namespace

LogTail::LogTail(const std::string& file, bool gbk) : file_(file)
{
    if (gbk)
        reader_.emplace();
    RequireRegular(file);
    Open();
    if (descriptor_ < 0)
        throw SystemFailure("cannot read " + file, errno);
}

LogTail::~LogTail()
{
    if (descriptor_ >= 0)
        close(descriptor_);
}

void LogTail::Open()
{
    descriptor_ = open(file_.c_str(), O_RDONLY | O_CLOEXEC);
    position_ = 0;
}

void LogTail::Show(const char* bytes, size_t size)
{
    if (reader_)
        Print(reader_->Convert({bytes, size}));
    else
        Print({bytes, size});
}

void LogTail::ShowRest()
{
    char block[kBlockSize];
    ssize_t size = 0;
    while (!interrupted && (size = pread(descriptor_, block, sizeof(block), position_)) > 0) {
        Show(block, static_cast<size_t>(size));
        position_ += size;
    }
    if (size < 0)
        throw SystemFailure("cannot read " + file_, errno);
    FlushOutput();
}

off_t LogTail::Size() const
{
    struct stat status;
    if (fstat(descriptor_, &status) != 0)
        throw SystemFailure("cannot read " + file_, errno);
    return status.st_size;
}

/// Reads backwards, so that the cost is that of the lines shown and not of the log.
off_t LogTail::StartOfLast(size_t lines) const
{
    char block[kBlockSize];
    const off_t end = Size();
    off_t start = end;
    if (lines == 0)
        return end;
    while (start > 0) {
        const size_t size = static_cast<size_t>(std::min<off_t>(start, sizeof(block)));
        start -= static_cast<off_t>(size);
        if (pread(descriptor_, block, size, start) != static_cast<ssize_t>(size))
            return 0; // it shrinks under our hands
        for (size_t at = size; at-- > 0;) {
            const off_t next = start + static_cast<off_t>(at) + 1;
            // The line feed at the very end ends the last line and starts no other.
            if (block[at] == '\n' && next != end && --lines == 0)
                return next;
        }
    }
    return 0;
}

void LogTail::ShowLast(size_t lines)
{
    position_ = StartOfLast(lines);
    ShowRest();
}

/// The open file keeps its inode number busy, so an equal number is the same file. A log that is gone has not been
/// replaced yet.
bool LogTail::IsReplaced() const
{
    struct stat ours;
    struct stat named;
    return fstat(descriptor_, &ours) == 0 && stat(file_.c_str(), &named) == 0 &&
           (ours.st_ino != named.st_ino || ours.st_dev != named.st_dev);
}

void LogTail::Reopen()
{
    const int old = descriptor_;
    const off_t old_position = position_;
    Open();
    if (descriptor_ < 0) { // gone again, or not readable yet
        descriptor_ = old;
        position_ = old_position;
        return;
    }
    close(old);
    if (reader_)
        Print(reader_->Finish());
}

void LogTail::Follow()
{
    CatchInterrupt();
    while (!interrupted) {
        const bool replaced = IsReplaced();
        if (Size() < position_)
            position_ = 0;
        ShowRest(); // also of the old file, which may have got its last records after we looked
        if (replaced)
            Reopen();
        else
            nanosleep(&kPause, nullptr);
    }
}
