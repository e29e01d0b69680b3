// What the library does when it is loaded, and what it holds for the life of the process.
#include "error.h"
#include "log.h"
#include "text.h"

LOGCTX* g_General_LogCtx;
pthread_mutex_t g_General_Mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

/// Runs before any caller's code. A failure leaves the library's own log off and the error text as it was.
__attribute__((constructor)) void InitLibrary()
{
    APPLOGINFO info = {};
    info.ProjectName = "general";
    info.RecordTime = 1;
    MakeLogContext(info, &g_General_LogCtx);
}

} // namespace

void General_LibraryLog(int level, const char* text, const char* file, int line)
{
    if (g_General_LogCtx == nullptr)
        return;
    char name[64];
    TextBuilder(name).Add(WithoutExtension(BaseName(file)));
    ZKQGeneral_RecordLogInfoEx(g_General_LogCtx, level, name, line, text);
}
