#include "paths.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>

#include "failure.h"

std::string Resolved(const std::string& path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
        return path;
    const std::unique_ptr<char, decltype(&free)> target(realpath(path.c_str(), nullptr), &free);
    return target ? target.get() : path;
}

void RequireRegular(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode))
        return;
    if (S_ISDIR(status.st_mode))
        throw SystemFailure("cannot read " + path, EISDIR);
    throw Failure("cannot read " + path, "Not a regular file");
}

void RequireLength(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && status.st_size == 0 && std::ifstream(path).get() != EOF)
        throw Failure("cannot read " + path, "The file does not tell its length");
}

void RequireDirectory(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        throw SystemFailure(path, errno);
    if (!S_ISDIR(status.st_mode))
        throw SystemFailure(path, ENOTDIR);
}
