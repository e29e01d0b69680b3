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

void StoreErrorText(const char* text, size_t size)
{
    StoreSharedText(g_General_ErrorInfo, text, size);
}

void StoreSystemError(int number, size_t size)
{
    char text[kErrorTextSize];
    ZKQGeneral_GetSystemErrorInfoString(number, text, size);
    StoreErrorText(text, size);
}

} // namespace

void StoreSharedText(char (&shared)[kErrorTextSize], const char* text, size_t size)
{
    const size_t length = strnlen(text, std::min(size, kErrorTextSize) - 1);
    for (size_t i = 0; i < length; ++i)
        std::atomic_ref(shared[i]).store(text[i], std::memory_order_relaxed);
    std::atomic_ref(shared[length]).store('\0', std::memory_order_relaxed);
}

void LoadSharedText(const char (&shared)[kErrorTextSize], char (&copy)[kErrorTextSize])
{
    size_t i = 0;
    // Of a byte that may be written: an atomic reference wants it so, and the buffers are no constants.
    do
        copy[i] = std::atomic_ref(const_cast<char&>(shared[i])).load(std::memory_order_relaxed);
    while (copy[i] != '\0' && ++i < kErrorTextSize - 1);
    copy[i] = '\0';
}

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
