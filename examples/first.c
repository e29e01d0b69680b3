/* The first program: settings, a log, an error. */
#include <ZKQ_general.h>
#include <stdio.h>

int main(void)
{
    char name[64];

    /* Settings live in profile files: sections of "key = value". */
    if (!ZKQGeneral_WritePrivateProfileString("server", "name", "Alpha", "first.ini"))
        return 1;
    ZKQGeneral_GetPrivateProfileString("server", "name", "unnamed", name, sizeof name, "first.ini");
    printf("name is %s\n", name);

    /* A log context. This one is always on; others obey the switches in tamor.ini. */
    APPLOGINFO info = {.Version = 3, .ProjectName = "first", .TempPath = ".", .bAlwaysLog = ZKQ_LOG_ALL};
    void* log;
    if (!ZKQGeneral_IsNeedLogFile(&info, &log))
        return 1;
    ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_INFO, __FILE__, __LINE__, "%s is up", name);

    /* A call that fails leaves its reason. */
    if (!ZKQGeneral_GetFileContent("missing.txt", NULL, NULL))
        ZKQGeneral_RecordLogInfoEx(log, ZKQ_LOG_ERROR, __FILE__, __LINE__, ZKQGeneral_GetGeneralErrorInfo());

    ZKQGeneral_FreeLogCtx(log);
    return 0;
}
