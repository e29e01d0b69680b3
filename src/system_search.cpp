// Processes by their command lines, instance locks, start at boot.
#include <ZKQ_general/system.h>
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "internal/error.h"
#include "internal/file.h"
#include "internal/guards.h"
#include "internal/log.h"
#include "internal/system.h"
#include "internal/text.h"

namespace {

constexpr size_t kCommandLineSize = 2047;
constexpr size_t kLineSize = 300;
constexpr char kBootFile[] = "/etc/rc.d/rc.local";
constexpr std::string_view kLockDirectory = "/tmp/";

/// The process whose directory in /proc has this name; 0 for none.
pid_t ProcessOf(std::string_view name)
{
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    const bool isNumber = error == std::errc() && end == name.data() + name.size() && isdigit(name.front()) != 0;
    return isNumber && pid > 0 ? pid : 0;
}

bool IsDirectory(DIR* parent, const dirent& entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
    struct stat status;
    return fstatat(dirfd(parent), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

UniqueFd OpenCommandLine(DIR* proc, std::string_view process)
{
    char path[32];
    TextBuilder(path).Add(process).Add("/cmdline");
    return UniqueFd(openat(dirfd(proc), path, O_RDONLY | O_CLOEXEC));
}

/// Reads up to `size` bytes; as many as there are.
size_t ReadBytes(int fd, char* bytes, size_t size)
{
    size_t used = 0;
    while (used < size) {
        const ssize_t count = read(fd, bytes + used, size - used);
        if (count == 0 || (count < 0 && errno != EINTR))
            break;
        used += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    return used;
}

bool HasCommandLine(const UniqueFd& file, std::string_view wanted)
{
    char bytes[kCommandLineSize];
    const size_t size = ReadBytes(file.Get(), bytes, sizeof bytes);
    return JoinArguments(bytes, size) == wanted;
}

/// Calls `visit` with the number and the opened (or not) command line of each process until it returns false; 0 or an
/// errno value.
template <class Visit>
int ForEachProcess(Visit visit)
{
    const UniqueDir proc(opendir("/proc"));
    if (proc == nullptr)
        return errno;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(proc.get());
        if (entry == nullptr)
            return errno;
        const pid_t pid = ProcessOf(entry->d_name);
        if (pid != 0 && IsDirectory(proc.get(), *entry) && !visit(pid, OpenCommandLine(proc.get(), entry->d_name)))
            return 0;
    }
}

/// Opens and locks an instance file; 0 with the descriptor, EWOULDBLOCK if it is locked, or another errno value.
int LockAndDetect(const char* Name, const char* Path, UniqueFd* lock)
{
    if (Name == nullptr)
        return EINVAL;
    char name[kPathSize];
    TextBuilder path(name);
    const std::string_view directory = OrEmpty(Path).empty() ? kLockDirectory : std::string_view(Path);
    path.Add(directory).Add(directory.ends_with('/') ? "" : "/").Add(Name);
    if (path.WasCut())
        return ENAMETOOLONG;
    lock->Reset(OpenNoWait(name, O_RDONLY));
    if (!lock->IsOpen())
        return errno;
    while (flock(lock->Get(), LOCK_EX | LOCK_NB) != 0)
        if (errno != EINTR)
            return errno;
    return 0;
}

/// A lock that somebody holds is an answer, not an error.
BOOL FinishLock(int error)
{
    return error == EWOULDBLOCK ? FALSE : Finish(error);
}

/// Whether a line of the file that is no comment holds the text. Lines are taken in pieces of 299 bytes.
bool HoldsLine(FILE* file, const char* text)
{
    char line[kLineSize];
    while (fgets(line, sizeof line, file) != nullptr) {
        const char* begin = line;
        while (isspace(static_cast<unsigned char>(*begin)))
            ++begin;
        if (*begin != '#' && strstr(begin, text) != nullptr)
            return true;
    }
    return false;
}

/// Whether the boot file runs the text already; 0 or an errno value.
int LookIntoBootFile(const char* text, bool* found)
{
    *found = false;
    struct stat status;
    if (stat(kBootFile, &status) != 0 || status.st_size == 0)
        return 0;
    UniqueFd descriptor(OpenNoWait(kBootFile, O_RDONLY));
    const UniqueFile file(descriptor.IsOpen() ? fdopen(descriptor.Get(), "rb") : nullptr);
    if (file == nullptr)
        return errno;
    static_cast<void>(descriptor.Release());
    *found = HoldsLine(file.get(), text);
    return 0;
}

/// Appends a line in one piece.
int AppendToBootFile(std::string_view text)
{
    const MallocPtr<char> line(static_cast<char*>(malloc(text.size() + 1)));
    if (line == nullptr)
        return ENOMEM;
    line.get()[text.copy(line.get(), text.size())] = '\n';
    struct statx status;
    const UniqueFd file(OpenForWriting(kBootFile, O_APPEND, &status));
    return file.IsOpen() ? WriteAll(file.Get(), {line.get(), text.size() + 1}) : errno;
}

} // namespace

std::string_view JoinArguments(char* bytes, size_t size)
{
    for (size_t i = 0; i + 1 < size; ++i)
        if (bytes[i] == '\0' && bytes[i + 1] != '\0')
            bytes[i] = ' ';
    while (size > 0 && bytes[size - 1] == '\0')
        --size;
    return {bytes, size};
}

BOOL ZKQGeneral_IsApplicationRunning(LPCTSTR ProcessName, int* bRunning)
{
    if (bRunning != nullptr)
        *bRunning = 0;
    if (ProcessName == nullptr || bRunning == nullptr)
        return Fail(EINVAL);
    return Finish(ForEachProcess([&](pid_t, const UniqueFd& commandLine) {
        if (commandLine.IsOpen() && HasCommandLine(commandLine, ProcessName))
            *bRunning = 1;
        return *bRunning == 0;
    }));
}

BOOL ZKQGeneral_TerminateApplication(LPCTSTR ProcessName)
{
    if (ProcessName == nullptr)
        return Fail(EINVAL);
    bool seenAll = true;
    int failed = 0;
    const int error = ForEachProcess([&](pid_t pid, const UniqueFd& commandLine) {
        if (!commandLine.IsOpen())
            seenAll = false;
        else if (HasCommandLine(commandLine, ProcessName) && kill(pid, SIGKILL) != 0)
            failed = errno;
        return true;
    });
    if (error != 0 || failed != 0)
        return Fail(error != 0 ? error : failed);
    return seenAll ? TRUE : FALSE;
}

BOOL ZKQGeneral_SingleInstance(const char* Name, const char* Path)
{
    UniqueFd lock;
    const int error = LockAndDetect(Name, Path, &lock);
    if (error == 0)
        static_cast<void>(lock.Release()); // held until the process ends
    return FinishLock(error);
}

BOOL ZKQGeneral_DetectApplication(const char* Name, const char* Path)
{
    const MutexLock turn(g_General_Mutex);
    UniqueFd lock;
    if (!FinishLock(LockAndDetect(Name, Path, &lock)))
        return TRUE;
    flock(lock.Get(), LOCK_UN); // closing is not enough where another thread has forked meanwhile
    return FALSE;
}

BOOL ZKQGeneral_AutoStartProc(const char*, const char* FileName)
{
    if (FileName == nullptr)
        return Fail(EINVAL);
    bool found;
    int error = LookIntoBootFile(FileName, &found);
    if (error == 0 && !found)
        error = AppendToBootFile(FileName);
    return Finish(error);
}
