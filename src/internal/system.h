// Computations of the system family, apart from the running system so that tests can reach them.
#pragma once

#include <stddef.h>
#include <sys/types.h>

#include <string_view>

/// Reads the path of the running program into a buffer, without a NUL; its length, or -1 with errno.
ssize_t ReadExecutablePath(char* buffer, size_t size);

/// Makes the name of a loaded module absolute against a working directory (without a trailing "/"). Leading "./" are
/// dropped, and each leading "../" takes a component off the directory. 0, EINVAL if there is none left to take, or
/// ENAMETOOLONG.
int ComputeFullPathName(std::string_view name, std::string_view directory, char* fullPath, size_t size);

/// Finds the path that holds `FileName` in the text of a memory map; 0, ENOENT, or ENAMETOOLONG for one of 300 bytes or
/// more.
int FindMappedPath(std::string_view map, std::string_view FileName, std::string_view* path);

/// Milliseconds from the content of /proc/uptime; 0 unless it begins with two numbers.
long MillisecondsOfUptime(const char* text);

/// The command line that the bytes of /proc/PID/cmdline hold: a NUL becomes a blank where something follows it, and those
/// at the end are dropped.
std::string_view JoinArguments(char* bytes, size_t size);
