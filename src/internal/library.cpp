// What the library does when it is loaded, and what it holds for the life of the process.
#include <ZKQ_general/socket.h>
#include <stdarg.h>
#include <stdio.h>

#include "error.h"
#include "log.h"
#include "text.h"
#include "xml.h"

LOGCTX* g_General_LogCtx;
pthread_mutex_t g_General_Mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

/// Runs before any caller's code. A failure leaves the library's own log off and the error text as it was.
__attribute__((constructor)) void InitLibrary()
{
    APPLOGINFO info = {};
    info.ProjectName = "general";
    info.RecordTime = 1;
    Network_init();
    General_Misc_XMLInit();
    MakeLogContext(info, &g_General_LogCtx);
}

/// The name of one of the library's own sources without its extension; a name that was given stays as it is.
std::string_view SourceName(std::string_view file)
{
    return file.ends_with(".cpp") || file.ends_with(".h") ? WithoutExtension(file) : file;
}

} // namespace

void General_LibraryLog(int level, const char* text, const char* file, int line)
{
    if (g_General_LogCtx == nullptr)
        return;
    char name[64];
    TextBuilder(name).Add(SourceName(BaseName(file)));
    ZKQGeneral_RecordLogInfoEx(g_General_LogCtx, level, name, line, text);
}

void General_LibraryLogF(int level, LogFormat format, ...)
{
    if (g_General_LogCtx == nullptr)
        return;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format.text, arguments);
    va_end(arguments);
    General_LibraryLog(level, text, format.file, format.line);
}
