// What messages and certificates share.
#pragma once

#include "log.h"

/// Their records in the library's own log have one source, whichever file they come from.
inline constexpr char kX509Source[] = "x509";

/// Tells of a failure; the line is the caller's.
[[gnu::cold, gnu::noinline]] inline void LogX509(const char* text, int line = __builtin_LINE())
{
    General_LibraryLog(ZKQ_LOG_ERROR, text, kX509Source, line);
}

/// Tells of a failure, and returns its code.
[[gnu::cold, gnu::noinline]] inline int FailX509(int code, const char* text, int line = __builtin_LINE())
{
    LogX509(text, line);
    return code;
}
