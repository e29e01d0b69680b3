#include "fault.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <iconv.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string_view>

namespace {

std::string armedFunction;
int armedCall;
int calls;
bool hit;
bool paused;
fault::Failure armedFailure;
/// How many places of operations have had their call fail. The process tells it when it ends.
class Points {
public:
    ~Points()
    {
        if (allocations_ + others_ > 0)
            printf("fault: %d allocations and %d other calls failed in turn\n", allocations_, others_);
    }
    void Count(const std::string& function)
    {
        constexpr std::string_view kAllocations = " malloc calloc realloc reallocarray strndup ";
        ++(kAllocations.find(" " + function + " ") != std::string_view::npos ? allocations_ : others_);
    }

private:
    int allocations_ = 0;
    int others_ = 0;
} points;

thread_local fault::Random* chance;    // makes the calls of this thread fail, if there is one
thread_local fault::Failure happening; // how the call that is being made fails

/// Counts a call of the armed function; true if it is the one to fail, with errno set.
bool Fails(const char* function)
{
    if (chance != nullptr) {
        if (!chance->Decide(function, &happening))
            return false;
    } else {
        if (paused || armedFunction.empty() || function != armedFunction || (++calls != armedCall && armedCall != 0))
            return false;
        hit = true;
        happening = armedFailure;
    }
    if (!happening.isShort)
        errno = happening.error;
    return true;
}

/// As Fails(), for calls that move bytes: a short one goes on with half of them.
bool FailsBytes(const char* function, size_t* size)
{
    if (!Fails(function))
        return false;
    if (happening.isShort)
        *size = (*size + 1) / 2;
    return !happening.isShort;
}

/// How calls of the system may fail. What a call never answers is not among it: a program may rely on that.
struct Manner {
    const char* functions; // with a blank around each
    std::initializer_list<int> errors;
    bool mayBeShort;
};
const Manner kManners[] = {
    {" malloc calloc realloc reallocarray strndup fdopen fdopendir ", {ENOMEM}, false},
    {" read pread recv ", {EINTR, EIO}, true},
    {" write writev send pwrite copy_file_range ", {EINTR, EIO, ENOSPC}, true},
    {" sendto recvfrom recvmsg ", {EINTR, ENOBUFS}, false},
    {" open openat opendir ", {EMFILE, EACCES, EINTR}, false},
    {" socket accept ", {EMFILE, ENOBUFS}, false},
    {" close ", {EINTR, EIO}, false},
    {" ppoll pselect ", {EINTR, ENOMEM}, false},
    {" connect ", {ECONNREFUSED, ENETUNREACH}, false},
    {" flock ", {EINTR, ENOLCK}, false},
    {" semget shmget ", {ENOSPC, EACCES}, false},
    {" fwrite ftruncate mkdir mkdirat symlink ", {ENOSPC, EACCES}, false},
};
const Manner kOtherwise = {"", {EIO, ENOMEM}, false};

const Manner& MannerOf(const char* function)
{
    const std::string name = " " + std::string(function) + " ";
    const Manner* const found = std::find_if(std::begin(kManners), std::end(kManners), [&](const Manner& manner) {
        return std::string_view(manner.functions).find(name) != std::string_view::npos;
    });
    return found == std::end(kManners) ? kOtherwise : *found;
}

} // namespace

const std::vector<std::string>& fault::Functions()
{
    static const std::vector<std::string> functions = {"malloc",
                                                       "calloc",
                                                       "realloc",
                                                       "strndup",
                                                       "open",
                                                       "openat",
                                                       "read",
                                                       "write",
                                                       "writev",
                                                       "lstat",
                                                       "fstat",
                                                       "stat",
                                                       "mkdir",
                                                       "copy_file_range",
                                                       "rmdir",
                                                       "unlinkat",
                                                       "fdopen",
                                                       "ftruncate",
                                                       "symlink",
                                                       "getcwd",
                                                       "fwrite",
                                                       "fdopendir",
                                                       "flock",
                                                       "readlink",
                                                       "close",
                                                       "fcntl",
                                                       "fchmod",
                                                       "unlink",
                                                       "statx",
                                                       "readdir",
                                                       "lseek",
                                                       "opendir",
                                                       "pread",
                                                       "pwrite",
                                                       "reallocarray",
                                                       "mkdirat",
                                                       "futimens",
                                                       "deflateInit_",
                                                       "deflate",
                                                       "inflateInit_",
                                                       "inflate",
                                                       "iconv_open",
                                                       "socket",
                                                       "setsockopt",
                                                       "getsockopt",
                                                       "connect",
                                                       "bind",
                                                       "listen",
                                                       "accept",
                                                       "ppoll",
                                                       "pselect",
                                                       "recv",
                                                       "send",
                                                       "sendto",
                                                       "recvfrom",
                                                       "getsockname",
                                                       "getpeername",
                                                       "gethostbyname_r",
                                                       "gethostbyaddr_r",
                                                       "getaddrinfo",
                                                       "getnameinfo",
                                                       "recvmsg",
                                                       "ioctl"};
    return functions;
}

const std::vector<std::string>& fault::NetworkFunctions()
{
    static const std::vector<std::string> functions = {"socket",       "bind",    "getsockname", "setsockopt", "sendto",
                                                       "recvmsg",      "ioctl",   "malloc",      "realloc",    "calloc",
                                                       "reallocarray", "opendir", "readdir",     "open"};
    return functions;
}

void fault::Arm(const std::string& function, int call, Failure failure)
{
    armedFunction = function;
    armedCall = call;
    armedFailure = failure;
    calls = 0;
    hit = false;
}

bool fault::Disarm()
{
    if (hit && !armedFunction.empty())
        points.Count(armedFunction);
    armedFunction.clear();
    return hit;
}

int fault::OpenDescriptors()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc/self/fd"), closedir);
    int count = 0;
    while (readdir(directory.get()) != nullptr)
        ++count;
    return count;
}

bool fault::Has(const std::vector<std::string>& list, const std::string& name)
{
    return std::find(list.begin(), list.end(), name) != list.end();
}

fault::Pause::Pause()
{
    paused = true;
}

fault::Pause::~Pause()
{
    paused = false;
}

fault::Random::Random(uint64_t seed, unsigned oneIn) : state_(seed), oneIn_(oneIn)
{
    chance = this;
}

fault::Random::~Random()
{
    chance = nullptr;
}

/// The numbers of SplitMix64.
uint64_t fault::Random::Next()
{
    state_ += 0x9E3779B97F4A7C15;
    uint64_t mixed = state_;
    mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
    return mixed ^ mixed >> 31;
}

bool fault::Random::Decide(const char* function, Failure* failure)
{
    if (Next() % oneIn_ != 0)
        return false;
    const Manner& manner = MannerOf(function);
    const size_t choice = Next() % (manner.errors.size() + (manner.mayBeShort ? 1 : 0));
    const bool isShort = choice == manner.errors.size();
    *failure = {isShort ? 0 : *(manner.errors.begin() + choice), isShort};
    ++hits_;
    return true;
}

fault::Calm::Calm() : before_(chance)
{
    chance = nullptr;
}

fault::Calm::~Calm()
{
    chance = before_;
}

// The replacements. A pointer result fails with null, one of zlib's with one of its codes, any other with -1.

#define WRAP(Type, failed, name, parameters, arguments)                                                                \
    extern "C" Type __real_##name parameters;                                                                          \
    extern "C" Type __wrap_##name parameters;                                                                          \
    Type __wrap_##name parameters                                                                                      \
    {                                                                                                                  \
        return Fails(#name) ? failed : __real_##name arguments;                                                        \
    }

#define WRAP_BYTES(name, chk_name, parameters, size, arguments)                                                        \
    extern "C" ssize_t __real_##chk_name parameters;                                                                   \
    extern "C" ssize_t __wrap_##chk_name parameters;                                                                   \
    ssize_t __wrap_##chk_name parameters                                                                               \
    {                                                                                                                  \
        return FailsBytes(#name, &size) ? -1 : __real_##chk_name arguments;                                            \
    }

WRAP(void*, nullptr, malloc, (size_t size), (size))
WRAP(void*, nullptr, calloc, (size_t count, size_t size), (count, size))
WRAP(void*, nullptr, realloc, (void* block, size_t size), (block, size))
WRAP(char*, nullptr, strndup, (const char* text, size_t size), (text, size))
WRAP(int, -1, lstat, (const char* path, struct stat* status), (path, status))
WRAP(int, -1, stat, (const char* path, struct stat* status), (path, status))
WRAP(int, -1, fstat, (int fd, struct stat* status), (fd, status))
WRAP(int, -1, mkdir, (const char* path, mode_t mode), (path, mode))
WRAP(int, -1, rmdir, (const char* path), (path))
WRAP(int, -1, unlink, (const char* path), (path))
WRAP(int, -1, unlinkat, (int fd, const char* path, int flags), (fd, path, flags))
WRAP(FILE*, nullptr, fdopen, (int fd, const char* mode), (fd, mode))
WRAP(DIR*, nullptr, fdopendir, (int fd), (fd))
WRAP(dirent*, nullptr, readdir, (DIR * directory), (directory))
WRAP(int, -1, ftruncate, (int fd, off_t length), (fd, length))
WRAP(int, -1, symlink, (const char* target, const char* path), (target, path))
WRAP(char*, nullptr, getcwd, (char* buffer, size_t size), (buffer, size))
WRAP(int, -1, flock, (int fd, int operation), (fd, operation))
WRAP(int, -1, fchmod, (int fd, mode_t mode), (fd, mode))
WRAP(off_t, -1, lseek, (int fd, off_t offset, int whence), (fd, offset, whence))
WRAP(ssize_t, -1, readlink, (const char* path, char* buffer, size_t size), (path, buffer, size))
WRAP(int, -1, statx, (int fd, const char* path, int flags, unsigned mask, struct statx* status),
     (fd, path, flags, mask, status))
WRAP(iconv_t, reinterpret_cast<iconv_t>(-1), iconv_open, (const char* to, const char* from), (to, from))
WRAP(size_t, 0, fwrite, (const void* data, size_t size, size_t count, FILE* file), (data, size, count, file))

WRAP(void*, nullptr, reallocarray, (void* block, size_t count, size_t size), (block, count, size))
WRAP(DIR*, nullptr, opendir, (const char* path), (path))
WRAP(ssize_t, -1, pwrite, (int fd, const void* data, size_t size, off_t at), (fd, data, size, at))
WRAP(int, -1, mkdirat, (int fd, const char* path, mode_t mode), (fd, path, mode))
WRAP(int, -1, futimens, (int fd, const timespec* times), (fd, times))
WRAP(int, Z_MEM_ERROR, deflateInit_, (z_stream * stream, int level, const char* version, int size),
     (stream, level, version, size))
WRAP(int, Z_STREAM_ERROR, deflate, (z_stream * stream, int flush), (stream, flush))
WRAP(int, Z_MEM_ERROR, inflateInit_, (z_stream * stream, const char* version, int size), (stream, version, size))
WRAP(int, Z_MEM_ERROR, inflate, (z_stream * stream, int flush), (stream, flush))

WRAP(int, -1, socket, (int family, int type, int protocol), (family, type, protocol))
WRAP(int, -1, setsockopt, (int fd, int level, int name, const void* value, socklen_t length),
     (fd, level, name, value, length))
WRAP(int, -1, getsockopt, (int fd, int level, int name, void* value, socklen_t* length),
     (fd, level, name, value, length))
WRAP(int, -1, connect, (int fd, const sockaddr* address, socklen_t length), (fd, address, length))
WRAP(int, -1, bind, (int fd, const sockaddr* address, socklen_t length), (fd, address, length))
WRAP(int, -1, listen, (int fd, int backlog), (fd, backlog))
WRAP(int, -1, accept, (int fd, sockaddr* address, socklen_t* length), (fd, address, length))
WRAP(int, -1, ppoll, (pollfd * entries, nfds_t count, const timespec* limit, const sigset_t* mask),
     (entries, count, limit, mask))
WRAP(int, -1, pselect,
     (int count, fd_set* reading, fd_set* writing, fd_set* other, const timespec* limit, const sigset_t* mask),
     (count, reading, writing, other, limit, mask))
WRAP(int, -1, getsockname, (int fd, sockaddr* address, socklen_t* length), (fd, address, length))
WRAP(int, -1, getpeername, (int fd, sockaddr* address, socklen_t* length), (fd, address, length))
WRAP(int, TRY_AGAIN, gethostbyname_r,
     (const char* name, hostent* entry, char* room, size_t size, hostent** answer, int* error),
     (name, entry, room, size, answer, error))
WRAP(int, TRY_AGAIN, gethostbyaddr_r,
     (const void* address, socklen_t length, int family, hostent* entry, char* room, size_t size, hostent** answer,
      int* error),
     (address, length, family, entry, room, size, answer, error))
WRAP(int, EAI_AGAIN, getaddrinfo, (const char* name, const char* service, const addrinfo* hints, addrinfo** answers),
     (name, service, hints, answers))
WRAP(int, EAI_AGAIN, getnameinfo,
     (const sockaddr* address, socklen_t length, char* name, socklen_t nameSize, char* service, socklen_t serviceSize,
      int flags),
     (address, length, name, nameSize, service, serviceSize, flags))
WRAP(ssize_t, -1, recvmsg, (int fd, msghdr* message, int flags), (fd, message, flags))
WRAP(int, -1, ioctl, (int fd, unsigned long request, void* argument), (fd, request, argument))
WRAP(int, -1, semget, (key_t key, int count, int flags), (key, count, flags))
WRAP(int, -1, shmget, (key_t key, size_t size, int flags), (key, size, flags))
WRAP(void*, reinterpret_cast<void*>(-1), shmat, (int id, const void* address, int flags), (id, address, flags))
WRAP(int, ENOMEM, posix_spawn,
     (pid_t * child, const char* path, const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes,
      char* const* arguments, char* const* environment),
     (child, path, actions, attributes, arguments, environment))
WRAP(int, EAGAIN, pthread_create,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
     (thread, attributes, body, argument))
WRAP(FILE*, nullptr, fopen, (const char* path, const char* mode), (path, mode))
WRAP_BYTES(recv, recv, (int fd, void* data, size_t size, int flags), size, (fd, data, size, flags))
WRAP_BYTES(send, send, (int fd, const void* data, size_t size, int flags), size, (fd, data, size, flags))
WRAP_BYTES(recvfrom, recvfrom, (int fd, void* data, size_t size, int flags, sockaddr* address, socklen_t* length), size,
           (fd, data, size, flags, address, length))
WRAP_BYTES(sendto, sendto,
           (int fd, const void* data, size_t size, int flags, const sockaddr* address, socklen_t length), size,
           (fd, data, size, flags, address, length))
WRAP_BYTES(pread, pread, (int fd, void* data, size_t size, off_t at), size, (fd, data, size, at))
WRAP_BYTES(read, read, (int fd, void* data, size_t size), size, (fd, data, size))
WRAP_BYTES(read, __read_chk, (int fd, void* data, size_t size, size_t room), size, (fd, data, size, room))
WRAP_BYTES(write, write, (int fd, const void* data, size_t size), size, (fd, data, size))
WRAP_BYTES(copy_file_range, copy_file_range,
           (int from, off_t* fromOffset, int to, off_t* toOffset, size_t size, unsigned flags), size,
           (from, fromOffset, to, toOffset, size, flags))

extern "C" ssize_t __real_writev(int fd, const iovec* vector, int count);
extern "C" ssize_t __wrap_writev(int fd, const iovec* vector, int count);
ssize_t __wrap_writev(int fd, const iovec* vector, int count)
{
    size_t first = vector[0].iov_len;
    if (!Fails("writev"))
        return __real_writev(fd, vector, count);
    if (!happening.isShort)
        return -1;
    first = (first + 1) / 2;
    return ::write(fd, vector[0].iov_base, first);
}

/// A failing close() closes all the same, as the system's does.
extern "C" int __real_close(int fd);
extern "C" int __wrap_close(int fd);
int __wrap_close(int fd)
{
    const bool fails = Fails("close");
    const int error = happening.error;
    const int result = __real_close(fd);
    return fails ? (errno = error, -1) : result;
}

extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, mode_t mode)
{
    return Fails("open") ? -1 : __real_open(path, flags, mode);
}

extern "C" int __real_openat(int fd, const char* path, int flags, ...);
extern "C" int __wrap_openat(int fd, const char* path, int flags, mode_t mode);
int __wrap_openat(int fd, const char* path, int flags, mode_t mode)
{
    return Fails("openat") ? -1 : __real_openat(fd, path, flags, mode);
}

extern "C" int __real_fcntl(int fd, int command, ...);
extern "C" int __wrap_fcntl(int fd, int command, long argument);
int __wrap_fcntl(int fd, int command, long argument)
{
    return Fails("fcntl") ? -1 : __real_fcntl(fd, command, argument);
}
