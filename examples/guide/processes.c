/* A program that is waited for, an instance lock, a thread. */
#include <ZKQ_general.h>
#include <stdio.h>

static int RunProgram(void)
{
    /* [run] */
    DWORD code;
    if (ZKQGeneral_WinExecFileAndGetRetCode("sh", "-c 'exit 3'", TRUE, &code))
        printf("exit status %lu\n", code);
    else
        printf("not run: %s\n", ZKQGeneral_GetGeneralErrorInfo());
    /* [run end] */
    return 0;
}

static int OneInstance(void)
{
    static const unsigned char nothing[] = "";
    ZKQGeneral_SetFileContent("agent.lock", nothing, 0); /* FALSE, but the file is there */
    /* [lock] */
    if (!ZKQGeneral_SingleInstance("agent.lock", "."))
        return 1; /* another one is there already, or the file is missing */
    /* [lock end] */
    printf("locked; a second time: %s\n", ZKQGeneral_SingleInstance("agent.lock", ".") ? "yes" : "no");
    return 0;
}

/* [work] */
static void* Work(void* argument)
{
    *(int*)argument *= 2;
    return argument;
}
/* [work end] */

static int RunThread(void)
{
    int number = 21;
    /* [thread] */
    THREADINFOA thread;
    if (!ZKQGeneral_CreateWorkingThread(Work, &number, &thread))
        return 1;
    ZKQGeneral_WaitThreadExit(&thread, NULL, 0); /* no limit, whatever the last argument says */
    printf("the thread has made it %d\n", number);
    /* [thread end] */
    return 0;
}

int main(void)
{
    return RunProgram() || OneInstance() || RunThread();
}
