#include "internal/error.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>

constinit char g_General_ErrorInfo[kErrorTextSize] = "Function call successed!";

namespace {

constexpr size_t kChosenErrorSize = 128; // room for the text of a number that the library chose

/// Threads may store at the same time. Single bytes are stored atomically and the last one is always the NUL, so that
/// texts may mix but never lose their end.
void StoreErrorText(const char* text, size_t size)
{
    const size_t length = strnlen(text, std::min(size, kErrorTextSize) - 1);
    for (size_t i = 0; i < length; ++i)
        std::atomic_ref(g_General_ErrorInfo[i]).store(text[i], std::memory_order_relaxed);
    std::atomic_ref(g_General_ErrorInfo[length]).store('\0', std::memory_order_relaxed);
}

void StoreSystemError(int number, size_t size)
{
    char text[kErrorTextSize];
    ZKQGeneral_GetSystemErrorInfoString(number, text, size);
    StoreErrorText(text, size);
}

} // namespace

void GeneralMisc_SetErrorString(LPCTSTR ErrorString)
{
    StoreErrorText(ErrorString, kErrorTextSize);
}

void GeneralMisc_SetSystemError(int SysErrorNO)
{
    if (SysErrorNO < 0)
        GeneralMisc_SetErrorString("Error is unhandled.");
    else
        StoreSystemError(SysErrorNO, kChosenErrorSize);
}

void GetSystemLastErrorText()
{
    if (errno < 0)
        GeneralMisc_SetSystemError(errno);
    else
        StoreSystemError(errno, kErrorTextSize);
}

char* ZKQGeneral_GetGeneralErrorInfo(void)
{
    return g_General_ErrorInfo;
}

BOOL ZKQGeneral_GetSystemErrorInfoString(int SysErrorNO, LPTSTR lpszBuf, DWORD dwSize)
{
    if (lpszBuf == nullptr || dwSize == 0)
        return TRUE;
    char scratch[kErrorTextSize];
    const char* text = strerror_r(SysErrorNO, scratch, sizeof scratch);
    const size_t needed = strlen(text) + 1;
    if (needed <= dwSize)
        memcpy(lpszBuf, text, needed);
    else
        snprintf(lpszBuf, dwSize, "Unkown Error! ErrorCode = %d", SysErrorNO);
    return TRUE;
}

void ZKQGeneral_FreeMallocBuffer(void* Buffer)
{
    free(Buffer);
}
