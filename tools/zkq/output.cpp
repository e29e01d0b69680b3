#include "output.h"

#include <errno.h>
#include <stdio.h>

#include "failure.h"

namespace {

void RequireWritten(bool written)
{
    if (!written)
        throw SystemFailure("cannot write to standard output", errno);
}

} // namespace

void Print(std::string_view text)
{
    RequireWritten(fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

void PrintLine(std::string_view text)
{
    Print(text);
    Print("\n");
}

void FlushOutput()
{
    RequireWritten(fflush(stdout) == 0);
}
