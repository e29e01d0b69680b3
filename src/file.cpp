#include "internal/file.h"

#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>

#include "internal/error.h"
#include "internal/text.h"

namespace {

enum FileKind { kOther = 0, kRegular = 1, kLink = 2, kDirectory = 3 };

constexpr std::string_view kNameLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr size_t kNamePlaces = 6;
constexpr int kNameAttempts = 238328; // the letters to the third power
constexpr uint64_t kNameStep = 7777;

constexpr size_t kContentMargin = 100;   // zero bytes behind a whole file in memory
constexpr size_t kCopyBlock = 32 * 1024; // on the stack
constexpr size_t kSmallCopy = 16 * 1024; // up to here a copy inside the kernel costs more than it saves
constexpr size_t kCopyRange = 1ul << 30; // most that one request copies inside the kernel
constexpr int kMaxDirectoryDepth = 1024; // bounds the recursion; descriptors run out at about that depth, too

constinit std::atomic<uint64_t> value{0}; // seeds the temporary names

/// `*Flag` becomes the kind of the path itself, links not followed; 0 or an errno value.
int GetFileType(const char* FileName, int* Flag, DWORD* Length)
{
    *Flag = kOther;
    struct stat status;
    if (lstat(FileName, &status) != 0)
        return errno;
    if (S_ISREG(status.st_mode))
        *Flag = kRegular;
    else if (S_ISLNK(status.st_mode))
        *Flag = kLink;
    else if (S_ISDIR(status.st_mode))
        *Flag = kDirectory;
    *Length = static_cast<DWORD>(status.st_size);
    return 0;
}

/// Length of anything but a directory; 0 or an errno value.
int FileLengthOf(const char* FileName, DWORD* Length)
{
    int kind = kOther;
    if (const int error = GetFileType(FileName, &kind, Length))
        return error;
    return kind == kDirectory ? EISDIR : 0;
}

/// 0 if there is something of this name, ENOENT if there is not, or the errno value of why that cannot be told.
int FindPath(const char* path)
{
    struct stat status;
    if (lstat(path, &status) == 0)
        return 0;
    return errno == ENOTDIR || errno == ENAMETOOLONG ? ENOENT : errno; // there can be nothing of such a name
}

/// Reads exactly `length` bytes; 0 or an errno value.
int ReadExactly(int fd, unsigned char* buffer, size_t length)
{
    while (length > 0) {
        const ssize_t count = read(fd, buffer, length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return errno;
        if (count == 0)
            return EIO; // the file claims more than it gives
        buffer += count;
        length -= static_cast<size_t>(count);
    }
    return 0;
}

/// Reads the first `FileLength` bytes of a file, which is not opened for none; 0 or an errno value.
int ReadFileContent(const char* FileName, unsigned char* Buffer, size_t FileLength)
{
    if (FileLength == 0)
        return 0;
    const UniqueFd file(OpenNoWait(FileName, O_RDONLY));
    if (!file.IsOpen())
        return errno;
    return ReadExactly(file.Get(), Buffer, FileLength);
}

/// Fills the last six places of `tmpl` and creates that file: 0, or -1.
int gen_tempname(char* tmpl)
{
    char* const places = tmpl + strlen(tmpl) - kNamePlaces;
    timeval now;
    gettimeofday(&now, nullptr);
    const uint64_t randomTimeBits = (static_cast<uint64_t>(now.tv_usec) << 16) ^ static_cast<uint64_t>(now.tv_sec);
    uint64_t step = randomTimeBits ^ static_cast<uint64_t>(getpid());
    for (int attempt = 0; attempt < kNameAttempts; ++attempt, step = kNameStep) {
        uint64_t v = value.fetch_add(step, std::memory_order_relaxed) + step;
        for (size_t i = 0; i < kNamePlaces; ++i, v /= kNameLetters.size())
            places[i] = kNameLetters[v % kNameLetters.size()];
        const UniqueFd file(open(tmpl, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (file.IsOpen())
            return 0;
        if (errno != EEXIST)
            return -1;
    }
    return -1;
}

/// Creates `path` cut at `length`, unless it exists; 0 or an errno value.
int CreateDirectoryPrefix(std::string_view path, size_t length)
{
    char prefix[kPathSize];
    TextBuilder(prefix).Add(path.substr(0, length));
    if (length == 0 || ZKQGeneral_IsFileExist(prefix))
        return 0;
    return mkdir(prefix, 0777) == 0 ? 0 : errno;
}

/// Opens a directory without following a link in its place.
UniqueFd OpenDirectory(int parent, const char* name)
{
    return UniqueFd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

int RemoveEntries(UniqueFd directory, int depth);

/// Removes the directory `name` of an opened directory with all it holds; 0 or an errno value.
int RemoveSubdirectory(int parent, const char* name, int depth)
{
    if (depth > kMaxDirectoryDepth)
        return ENAMETOOLONG;
    UniqueFd directory = OpenDirectory(parent, name);
    if (!directory.IsOpen())
        return errno == ENOENT ? 0 : errno;
    if (const int error = RemoveEntries(std::move(directory), depth))
        return error;
    return unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : errno;
}

/// Removes all that an opened directory holds; 0 or an errno value.
int RemoveEntries(UniqueFd directory, int depth)
{
    const UniqueDir listing(fdopendir(directory.Get()));
    if (listing == nullptr)
        return errno;
    const int fd = directory.Release(); // the listing closes it
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(listing.get());
        if (entry == nullptr)
            return errno;
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (entry->d_type == DT_DIR) {
            if (const int error = RemoveSubdirectory(fd, entry->d_name, depth + 1))
                return error;
        } else if (unlinkat(fd, entry->d_name, 0) != 0) {
            return errno;
        }
    }
}

bool SameFile(const struct statx& a, const struct statx& b)
{
    return a.stx_dev_major == b.stx_dev_major && a.stx_dev_minor == b.stx_dev_minor && a.stx_ino == b.stx_ino;
}

/// EBUSY if an opened directory is the root, 0 if it is not, or another errno value if that cannot be told.
int RefuseRoot(int directory)
{
    const UniqueFd root = OpenDirectory(AT_FDCWD, "/");
    struct statx status;
    struct statx rootStatus;
    if (!root.IsOpen())
        return errno;
    if (const int error = LookAt(directory, &status))
        return error;
    if (const int error = LookAt(root.Get(), &rootStatus))
        return error;
    return SameFile(status, rootStatus) ? EBUSY : 0;
}

/// Copies in blocks what the kernel did not copy by itself; false if either side ends early.
bool CopyBlocks(int from, int to, size_t length)
{
    unsigned char block[kCopyBlock];
    while (length > 0) {
        const size_t piece = std::min(length, sizeof block);
        if (ReadExactly(from, block, piece) != 0)
            return false;
        if (WriteAll(to, {reinterpret_cast<char*>(block), piece}) != 0)
            return false;
        length -= piece;
    }
    return true;
}

bool CopyBytes(int from, int to, size_t length)
{
    while (length > kSmallCopy) {
        const ssize_t count = copy_file_range(from, nullptr, to, nullptr, std::min(length, kCopyRange), 0);
        if (count <= 0)
            break;
        length -= static_cast<size_t>(count);
    }
    return CopyBlocks(from, to, length);
}

} // namespace

int OpenNoWait(const char* path, int flags, mode_t mode)
{
    int fd;
    do
        fd = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode);
    while (fd < 0 && errno == EINTR);
    return fd;
}

int LookAt(int fd, struct statx* status)
{
    return statx(fd, "", AT_EMPTY_PATH, STATX_TYPE | STATX_MODE | STATX_INO | STATX_SIZE, status) == 0 ? 0 : errno;
}

int OpenForWriting(const char* path, int flags, struct statx* status)
{
    UniqueFd file(OpenNoWait(path, flags | O_WRONLY | O_CREAT, 0666));
    if (!file.IsOpen())
        return -1;
    if (LookAt(file.Get(), status) != 0)
        return -1;
    if (!S_ISREG(status->stx_mode))
        fcntl(file.Get(), F_SETFL, flags & O_APPEND);
    return file.Release();
}

int WriteAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return errno;
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return 0;
}

int FileContent(const char* FileName, unsigned char** Buffer, int* Size)
{
    DWORD length = 0;
    if (const int error = FileLengthOf(FileName, &length))
        return error;
    if (length > INT_MAX)
        return EFBIG;
    if (Size != nullptr)
        *Size = static_cast<int>(length);
    if (Buffer == nullptr)
        return 0;
    *Buffer = nullptr;
    MallocPtr<unsigned char> content(static_cast<unsigned char*>(malloc(length + kContentMargin)));
    if (content == nullptr)
        return errno;
    if (const int error = ReadFileContent(FileName, content.get(), length))
        return error;
    memset(content.get() + length, 0, kContentMargin);
    *Buffer = content.release();
    return 0;
}

BOOL ZKQGeneral_IsFileExist(LPCTSTR FileName)
{
    if (FileName == nullptr)
        return Fail(EINVAL);
    struct stat status;
    return lstat(FileName, &status) == 0 ? TRUE : FailWithErrno();
}

BOOL ZKQGeneral_GetFileLength(LPCTSTR FileName, DWORD* FileLength)
{
    if (FileName == nullptr)
        return Fail(EINVAL);
    DWORD length = 0;
    if (const int error = FileLengthOf(FileName, &length))
        return Fail(error);
    if (FileLength != nullptr)
        *FileLength = length;
    return TRUE;
}

BOOL ZKQGeneral_IsDirectoryName(LPCTSTR Name, BOOL* bDir)
{
    if (bDir == nullptr)
        return Fail(EINVAL);
    *bDir = FALSE;
    if (Name == nullptr)
        return Fail(EINVAL);
    int kind = kOther;
    DWORD length = 0;
    if (const int error = GetFileType(Name, &kind, &length))
        return Fail(error);
    *bDir = kind == kDirectory ? TRUE : FALSE;
    return TRUE;
}

BOOL ZKQGeneral_MyCreateTempFile(LPTSTR FileName, LPCTSTR prefix, int BuffLength)
{
    if (FileName == nullptr || prefix == nullptr)
        return Fail(EINVAL);
    char name[kPathSize];
    TextBuilder builder(name);
    builder.Add("/tmp/").Add(prefix).Add("XXXXXX");
    if (builder.WasCut())
        return Fail(ENAMETOOLONG);
    if (gen_tempname(name) != 0) {
        GeneralMisc_SetErrorString("Cann't create a unique tmpfile!");
        return FALSE;
    }
    const size_t needed = builder.Text().size() + 1;
    if (BuffLength < 0 || needed > static_cast<size_t>(BuffLength))
        return Fail(ENOBUFS);
    memcpy(FileName, name, needed);
    return TRUE;
}

BOOL ZKQGeneral_CreateMultiLevelDirectory(LPCTSTR FullPathFolder)
{
    const std::string_view path = OrEmpty(FullPathFolder);
    size_t position = path.find('/');
    if (position == std::string_view::npos || path.find("//") != std::string_view::npos)
        return Fail(EINVAL);
    if (path.size() >= kPathSize)
        return Fail(ENAMETOOLONG);
    while (position <= path.size()) {
        if (const int error = CreateDirectoryPrefix(path, position))
            return Fail(error);
        if (position + 1 > path.size())
            break;
        position = std::min(path.find('/', position + 1), path.size());
    }
    return TRUE;
}

BOOL ZKQGeneral_CreateShortCut(LPCTSTR ExefullPath, LPCTSTR /*filedescription*/, LPCTSTR shortcutfullpath)
{
    if (ExefullPath == nullptr || shortcutfullpath == nullptr)
        return Fail(EINVAL);
    unlink(shortcutfullpath);
    return symlink(ExefullPath, shortcutfullpath) == 0 ? TRUE : FailWithErrno();
}

BOOL ZKQGeneral_MyDeleteDirectory(const char* DirectoryName)
{
    if (DirectoryName == nullptr)
        return Fail(EINVAL);
    std::string_view name(DirectoryName, strnlen(DirectoryName, kPathSize));
    if (name.size() >= kPathSize)
        return Fail(ENAMETOOLONG);
    char path[kPathSize];
    if (name.ends_with('/'))
        name.remove_suffix(1);
    TextBuilder(path).Add(name);
    if (const int error = FindPath(path))
        return Finish(error == ENOENT ? 0 : error);
    // Behind a "/" even a link would be followed, so none is left but that of the root.
    while (name.size() > 1 && name.ends_with('/'))
        name.remove_suffix(1);
    path[name.size()] = '\0';
    UniqueFd directory = OpenDirectory(AT_FDCWD, path);
    if (!directory.IsOpen())
        return FailWithErrno();
    if (const int error = RefuseRoot(directory.Get()))
        return Fail(error);
    if (const int error = RemoveEntries(std::move(directory), 0))
        return Fail(error);
    return rmdir(path) == 0 ? TRUE : FailWithErrno();
}

BOOL ZKQGeneral_CopyFile(LPCTSTR lpExistingFileName, LPCTSTR lpNewFileName, BOOL bFailIfExists)
{
    if (lpExistingFileName == nullptr || lpNewFileName == nullptr)
        return Fail(EINVAL);
    if (bFailIfExists)
        if (const int error = FindPath(lpNewFileName); error != ENOENT)
            return Fail(error == 0 ? EEXIST : error);
    DWORD length = 0;
    if (const int error = FileLengthOf(lpExistingFileName, &length))
        return Fail(error);
    const UniqueFd source(OpenNoWait(lpExistingFileName, O_RDONLY));
    if (!source.IsOpen())
        return FailWithErrno();
    // Not truncated yet: a file copied onto itself must not lose its content.
    struct statx from;
    struct statx to;
    const UniqueFd target(OpenForWriting(lpNewFileName, 0, &to));
    if (!target.IsOpen() || LookAt(source.Get(), &from) != 0)
        return FailWithErrno();
    if (SameFile(from, to))
        return Fail(EINVAL);
    // An empty file is left alone: file systems write out at once what replaces truncated content.
    if (S_ISREG(to.stx_mode) && to.stx_size > 0 && ftruncate(target.Get(), 0) != 0)
        return FailWithErrno();
    if (!CopyBytes(source.Get(), target.Get(), length))
        return FALSE;
    if (S_ISREG(to.stx_mode))
        fchmod(target.Get(), from.stx_mode & 07777);
    return TRUE;
}

BOOL ZKQGeneral_GetFileContent(const char* FileName, unsigned char** Buffer, int* Size)
{
    return Finish(FileName == nullptr ? EINVAL : FileContent(FileName, Buffer, Size));
}

BOOL ZKQGeneral_SetFileContent(const char* FileName, const unsigned char* Buffer, int Size)
{
    if (FileName == nullptr || Size < 0 || (Buffer == nullptr && Size > 0))
        return Fail(EINVAL);
    struct statx status;
    UniqueFd descriptor(OpenForWriting(FileName, O_TRUNC, &status));
    if (!descriptor.IsOpen())
        return FailWithErrno();
    if (Size == 0)
        return Fail(EINVAL);
    const UniqueFile file(fdopen(descriptor.Get(), "wb"));
    if (file == nullptr)
        return FailWithErrno();
    descriptor.Release(); // the stream closes it
    return fwrite(Buffer, static_cast<size_t>(Size), 1, file.get()) == 1 ? TRUE : FailWithErrno();
}
