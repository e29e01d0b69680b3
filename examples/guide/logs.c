/* A log whose levels an operator sets in tamor.ini. */
#include <ZKQ_general.h>
#include <stdio.h>

#define HERE __FILE__, __LINE__

int main(void)
{
    static const unsigned char bytes[] = "GET / HTTP/1.1";
    APPLOGINFO info = {.Version = 3, .ProjectName = "server", .TempPath = ".", .SubName = "main"};
    unsigned char* content;
    void* log;

    /* As the operator would: warnings (4) and errors (8) of the project "server". */
    ZKQGeneral_WritePrivateProfileString("applog", "server", "12", "./tamor.ini");

    if (!ZKQGeneral_IsNeedLogFile(&info, &log)) {
        puts(ZKQGeneral_GetGeneralErrorInfo());
        return 1;
    }
    ZKQGeneral_RecordLogInfoEx(log, ZKQ_LOG_INFO, HERE, "nobody wants this one");
    ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_WARN, HERE, "%d of %d places are taken", 9, 10);
    ZKQGeneral_RecordBinaryLogInfoEx2(log, ZKQ_LOG_WARN, bytes, sizeof bytes - 1, HERE, "from %s", "127.0.0.1");
    if (!ZKQGeneral_GetFileContent("missing.txt", NULL, NULL))
        ZKQGeneral_RecordLogInfoEx(log, ZKQ_LOG_ERROR, HERE, ZKQGeneral_GetGeneralErrorInfo());
    ZKQGeneral_FreeLogCtx(log);

    if (ZKQGeneral_GetFileContent("server.log", &content, NULL)) {
        fputs((char*)content, stdout);
        ZKQGeneral_FreeMallocBuffer(content);
    }
    return 0;
}
