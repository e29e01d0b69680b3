#include <ZKQ_general/inifile.h>
#include <ZKQ_general/system.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "internal/error.h"
#include "internal/guards.h"
#include "internal/system.h"
#include "internal/text.h"

namespace {

constexpr size_t kMapSize = 65536; // as much of the memory map as is searched
constexpr size_t kMapRead = 1024;
constexpr std::string_view kTempPath = "/tmp/";

/// "/proc/<own process>/<entry>"
class ProcPath {
public:
    explicit ProcPath(std::string_view entry)
    {
        TextBuilder(path_).Add("/proc/").AddDecimal(getpid()).Add("/").Add(entry);
    }
    const char* Get() const { return path_; }

private:
    char path_[64];
};

/// Makes the name of a loaded module absolute; 0 or an errno value.
int MakeAbsoluteFileName(std::string_view name, char (&fullPath)[kPathSize])
{
    char directory[kPathSize];
    const ssize_t length = readlink(ProcPath("cwd").Get(), directory, sizeof directory);
    if (length < 0)
        return errno;
    std::string_view working(directory, static_cast<size_t>(length));
    if (working.size() == sizeof directory)
        return ENAMETOOLONG;
    if (working.ends_with('/'))
        working.remove_suffix(1);
    return ComputeFullPathName(name, working, fullPath, sizeof fullPath);
}

/// Ends a search in the loader with the loader's reason.
DWORD FailWithLoaderText()
{
    const char* text = dlerror();
    GeneralMisc_SetErrorString(text == nullptr ? "" : text);
    return 0;
}

DWORD NameOfModule(void* hModule, LPTSTR lpFilename, DWORD nSize)
{
    dlerror();
    const void* symbol = dlsym(hModule, "_init");
    if (symbol == nullptr)
        return FailWithLoaderText();
    Dl_info info;
    if (dladdr(symbol, &info) == 0 || info.dli_fname == nullptr)
        return FailWithLoaderText();
    char fullPath[kPathSize];
    if (const int error = MakeAbsoluteFileName(info.dli_fname, fullPath))
        return FailWithZero(error);
    return static_cast<DWORD>(GeneralMisc_OutputString(fullPath, lpFilename, nSize, 1));
}

/// Reads the start of this process's memory map; the bytes read, or -1 with errno.
ssize_t ReadMemoryMap(char (&map)[kMapSize])
{
    const UniqueFd file(open(ProcPath("maps").Get(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen())
        return -1;
    ssize_t used = 0;
    for (size_t reads = 0; reads < kMapSize / kMapRead; ++reads) {
        const ssize_t count = read(file.Get(), map + used, kMapRead);
        if (count < 0 && errno != EINTR)
            return -1;
        if (count == 0)
            break;
        used += std::max<ssize_t>(count, 0);
    }
    return used;
}

} // namespace

ssize_t ReadExecutablePath(char* buffer, size_t size)
{
    return readlink(ProcPath("exe").Get(), buffer, std::min<size_t>(size, PATH_MAX));
}

int ComputeFullPathName(std::string_view name, std::string_view directory, char* fullPath, size_t size)
{
    const bool absolute = name.starts_with('/');
    if (absolute)
        directory = {};
    while (name.starts_with('.')) {
        if (name.starts_with("./")) {
            name.remove_prefix(2);
        } else if (name.starts_with("../")) {
            const size_t slash = directory.rfind('/');
            if (slash == std::string_view::npos)
                return EINVAL;
            directory = directory.substr(0, slash);
            name.remove_prefix(3);
        } else {
            break;
        }
    }
    if (directory.size() + !absolute + name.size() >= size)
        return ENAMETOOLONG;
    char* next = std::copy(directory.begin(), directory.end(), fullPath);
    if (!absolute)
        *next++ = '/';
    *std::copy(name.begin(), name.end(), next) = '\0';
    return 0;
}

int FindMappedPath(std::string_view map, std::string_view FileName, std::string_view* path)
{
    const size_t match = map.find(FileName);
    if (match == std::string_view::npos)
        return ENOENT;
    const std::string_view line = map.substr(0, map.find('\n', match));
    const size_t before = line.substr(0, match).find_last_of(" \n");
    *path = After(line, before + 1);
    return path->size() < kPathSize ? 0 : ENAMETOOLONG;
}

DWORD ZKQGeneral_GetModuleFileName(void* hModule, LPTSTR lpFilename, DWORD nSize)
{
    if (lpFilename == nullptr)
        return FailWithZero(EINVAL);
    memset(lpFilename, 0, nSize);
    if (hModule != nullptr)
        return NameOfModule(hModule, lpFilename, nSize);
    const ssize_t length = ReadExecutablePath(lpFilename, nSize);
    if (length >= 0)
        return static_cast<DWORD>(length);
    GetSystemLastErrorText();
    return 0;
}

BOOL ZKQGeneral_GetModuleFileName2(const char* FileName, char* FullPathName)
{
    if (FileName == nullptr || FullPathName == nullptr)
        return Fail(EINVAL);
    char map[kMapSize];
    const ssize_t used = ReadMemoryMap(map);
    if (used < 0)
        return FailWithErrno();
    std::string_view path;
    const int error = FindMappedPath({map, static_cast<size_t>(used)}, FileName, &path);
    if (error == ENOENT)
        return FALSE;
    if (error != 0)
        return Fail(error);
    return GeneralMisc_OutputString(path, FullPathName, kPathSize, 1) >= 0 ? TRUE : FALSE;
}

DWORD ZKQGeneral_GetTempPath(DWORD nBufferLength, LPTSTR lpBuffer)
{
    if (lpBuffer == nullptr)
        return FailWithZero(EINVAL);
    return static_cast<DWORD>(GeneralMisc_OutputString(kTempPath, lpBuffer, nBufferLength, 1));
}
