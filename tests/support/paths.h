// What is at a path: the tests' own view of the file system, independent of the library.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

namespace support {

/// Something is there, be it a dangling link.
inline bool Exists(const std::string& path)
{
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0;
}

inline bool IsDirectory(const std::string& path)
{
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

/// The permission bits with set-id and sticky bits; a link is followed.
inline mode_t Mode(const std::string& path)
{
    struct stat info = {};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : ~mode_t{0};
}

inline ino_t Inode(const std::string& path)
{
    struct stat info = {};
    return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

/// The names of all files of a directory that begin with `prefix`.
inline std::vector<std::string> FilesWithPrefix(const std::string& directory, const std::string& prefix)
{
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        if (entry.path().filename().string().starts_with(prefix))
            found.push_back(entry.path().string());
    return found;
}

/// A text of `length` bytes that differs from piece to piece.
inline std::string Pattern(size_t length)
{
    std::string text(length, '\0');
    for (size_t i = 0; i < length; ++i)
        text[i] = static_cast<char>((i * 131 + i / 4096 * 7 + i / 251) & 0xFF);
    return text;
}

/// A path of exactly `length` bytes made of directories "d/d/d/..." and a last part "d" or "dd".
inline std::string NestedPath(size_t length)
{
    std::string path;
    while (path.size() + 2 < length)
        path += "d/";
    return path + std::string(length - path.size(), 'd');
}

} // namespace support
