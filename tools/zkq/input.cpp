#include "input.h"

#include <ZKQ_general/error.h>
#include <ZKQ_general/file.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>

#include <memory>

#include "failure.h"
#include "paths.h"

std::string InputName(const std::string& file)
{
    return file.empty() ? "standard input" : file;
}

std::string ReadInput(const std::string& file)
{
    const std::string what = "cannot read " + InputName(file);
    const std::unique_ptr<FILE, int (*)(FILE*)> opened(file.empty() ? nullptr : fopen(file.c_str(), "rbe"), fclose);
    FILE* const stream = file.empty() ? stdin : opened.get();
    if (stream == nullptr)
        throw SystemFailure(what, errno);
    std::string bytes;
    char block[65536];
    while (const size_t size = fread(block, 1, sizeof block, stream)) {
        bytes.append(block, size);
        if (bytes.size() > INT_MAX)
            throw SystemFailure(what, EFBIG);
    }
    if (ferror(stream))
        throw SystemFailure(what, errno);
    return bytes;
}

std::string ReadRegularFile(const std::string& file)
{
    RequireRegular(file);
    RequireLength(file);
    unsigned char* content = nullptr;
    int size = 0;
    if (!ZKQGeneral_GetFileContent(Resolved(file).c_str(), &content, &size))
        throw LibraryFailure("cannot read " + file);
    const std::unique_ptr<unsigned char, decltype(&ZKQGeneral_FreeMallocBuffer)> owner(content,
                                                                                       &ZKQGeneral_FreeMallocBuffer);
    return {reinterpret_cast<char*>(content), static_cast<size_t>(size)};
}
