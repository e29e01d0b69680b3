#include "bytes.h"

#include <errno.h>
#include <limits.h>
#include <sys/stat.h>

#include "failure.h"
#include "output.h"

namespace {

constexpr size_t kPiece = 1 << 20;
constexpr size_t kMost = UINT_MAX; // what the library takes at once

} // namespace

ByteSource::ByteSource(const std::string& path)
    : name_(path == "-" ? "standard input" : path), stream_(path == "-" ? stdin : fopen(path.c_str(), "re"))
{
    if (stream_ == nullptr)
        throw SystemFailure("cannot read " + name_, errno);
    struct stat status;
    if (fstat(fileno(stream_.get()), &status) == 0 && S_ISDIR(status.st_mode))
        throw SystemFailure("cannot read " + name_, EISDIR);
}

std::string ByteSource::Read(size_t size)
{
    std::string bytes(size, '\0');
    bytes.resize(fread(bytes.data(), 1, size, stream_.get()));
    if (ferror(stream_.get()))
        throw SystemFailure("cannot read " + name_, errno);
    return bytes;
}

std::string ByteSource::ReadAll()
{
    std::string bytes;
    for (std::string piece = Read(kPiece); !piece.empty(); piece = Read(kPiece))
        if (bytes.append(piece).size() > kMost)
            throw SystemFailure("cannot read " + name_, EFBIG);
    return bytes;
}

void ByteSource::RequireOtherThan(const std::string& path) const
{
    struct stat source;
    struct stat target;
    if (fstat(fileno(stream_.get()), &source) == 0 && stat(path.c_str(), &target) == 0 && S_ISREG(source.st_mode) &&
        source.st_dev == target.st_dev && source.st_ino == target.st_ino)
        throw Failure("cannot write " + path, "It is the file that is read");
}

ByteSink::ByteSink(const std::string& path) : name_(path), stream_(path.empty() ? nullptr : fopen(path.c_str(), "we"))
{
    if (!path.empty() && stream_ == nullptr)
        throw SystemFailure("cannot write " + path, errno);
}

void ByteSink::Write(std::string_view bytes)
{
    if (stream_ == nullptr)
        Print(bytes);
    else if (fwrite(bytes.data(), 1, bytes.size(), stream_.get()) != bytes.size())
        throw SystemFailure("cannot write " + name_, errno);
}

void ByteSink::Finish()
{
    if (stream_ != nullptr && fclose(stream_.release()) != 0)
        throw SystemFailure("cannot write " + name_, errno);
}
