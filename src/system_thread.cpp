// Threads.
#include <ZKQ_general/system.h>
#include <errno.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "internal/error.h"

static_assert(offsetof(THREADINFOA, ThreadID) == 8 && sizeof(THREADINFOA) == 16);
static_assert(sizeof(pthread_t) == sizeof(size_t));
static_assert(offsetof(_TIMESTRUCT, wDayOfWeek) == 4 && offsetof(_TIMESTRUCT, wMilliseconds) == 14);

BOOL ZKQGeneral_CreateWorkingThread(THREADPROC_C pThreadProc, void* pThreadData, THREADINFOA* ThreadInfo)
{
    if (pThreadProc == nullptr)
        return Fail(EINVAL);
    pthread_t thread;
    if (const int error = pthread_create(&thread, nullptr, pThreadProc, pThreadData))
        return Fail(error);
    if (ThreadInfo != nullptr)
        *ThreadInfo = {thread, 0};
    return TRUE;
}

BOOL ZKQGeneral_WaitThreadExit(THREADINFOA* ThreadInfo, unsigned int* ExitCode, int)
{
    if (ThreadInfo == nullptr || ThreadInfo->ThreadHandle == 0)
        return Fail(EINVAL);
    void* result;
    if (pthread_join(ThreadInfo->ThreadHandle, &result) != 0)
        return FALSE;
    ThreadInfo->ThreadHandle = 0;
    if (ExitCode != nullptr)
        *ExitCode = static_cast<unsigned>(reinterpret_cast<uintptr_t>(result));
    return TRUE;
}

void ZKQGeneral_CloseThreadHandle(THREADINFOA* ThreadInfo)
{
    if (ThreadInfo == nullptr || ThreadInfo->ThreadHandle == 0)
        return;
    pthread_detach(ThreadInfo->ThreadHandle);
    ThreadInfo->ThreadHandle = 0;
}

BOOL ZKQGeneral_TerminateThread(THREADINFOA*, unsigned int)
{
    return Fail(ENOSYS);
}
