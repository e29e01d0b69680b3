// Bytes in and out: files of any kind, "-" for standard input, standard output unless a file is named.
#pragma once

#include <stdio.h>

#include <memory>
#include <string>
#include <string_view>

struct StreamCloser {
    void operator()(FILE* stream) const
    {
        if (stream != stdin)
            fclose(stream);
    }
};

/// Reads whatever has content: regular files, pipes, files in /proc.
class ByteSource {
public:
    explicit ByteSource(const std::string& path);

    /// The next bytes, `size` of them unless the end comes first.
    std::string Read(size_t size);
    /// All bytes, of which there must be less than 4 GiB.
    std::string ReadAll();
    /// Fails if `path` is the file that is read, which writing would destroy.
    void RequireOtherThan(const std::string& path) const;

private:
    std::string name_;
    std::unique_ptr<FILE, StreamCloser> stream_;
};

/// Writes to a file, or to standard output for an empty name.
class ByteSink {
public:
    explicit ByteSink(const std::string& path);

    void Write(std::string_view bytes);
    /// Call it last: only then it is certain that all was written.
    void Finish();

private:
    std::string name_;
    std::unique_ptr<FILE, StreamCloser> stream_;
};
