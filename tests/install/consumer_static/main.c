/* A program with the library inside of it, which has names of its own that the library's inside has, too. */
#include <ZKQ_general.h>
#include <signal.h>
#include <stdio.h>

int g_General_Mutex = 7;
int g_General_LogCtx = 8;

void General_LibraryLog(void)
{
    g_General_Mutex = g_General_LogCtx = 0;
}

int main(void)
{
    struct sigaction action;
    if (sigaction(SIGPIPE, NULL, &action) != 0 || action.sa_handler != SIG_IGN) {
        puts("the library has not been initialised");
        return 1;
    }
    if (ZKQGeneral_IsFileExist("/none")) /* fails, and records in the library's own log */
        return 1;
    if (ZKQGeneral_GetFileContent("/none", NULL, NULL))
        return 1;
    printf("%d %d %s\n", g_General_Mutex, g_General_LogCtx, ZKQGeneral_GetGeneralErrorInfo());
    return 0;
}
