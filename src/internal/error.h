// The process-wide error text and its setters.
#pragma once

#include <ZKQ_general/error.h>
#include <stddef.h>

inline constexpr size_t kErrorTextSize = 256;
extern char g_General_ErrorInfo[kErrorTextSize];

/// Stores a text in a buffer of that size which all threads share, cut to it. Threads may store and load at the same time:
/// single bytes are atomic and the last one is always the NUL, so that texts may mix but never lose their end.
void StoreSharedText(char (&shared)[kErrorTextSize], const char* text, size_t size = kErrorTextSize);
/// Copies a text out of such a buffer.
void LoadSharedText(const char (&shared)[kErrorTextSize], char (&copy)[kErrorTextSize]);

/// Stores a message of the library's own, cut to 255 bytes.
void GeneralMisc_SetErrorString(LPCTSTR ErrorString);
/// Stores the system's text for an errno value that the library chose; a negative number has no text.
void GeneralMisc_SetSystemError(int SysErrorNO);
/// Stores the system's text for the current errno, as a failed system call has left it.
void GetSystemLastErrorText();

/// Ends an exported function that failed with an errno value.
inline BOOL Fail(int SysErrorNO)
{
    GeneralMisc_SetSystemError(SysErrorNO);
    return FALSE;
}

/// As Fail(), for functions that return a length.
inline DWORD FailWithZero(int SysErrorNO)
{
    GeneralMisc_SetSystemError(SysErrorNO);
    return 0;
}

/// Ends an exported function after a failed system call.
inline BOOL FailWithErrno()
{
    GetSystemLastErrorText();
    return FALSE;
}

/// Ends an exported function with what an internal one returned: 0 or an errno value.
inline BOOL Finish(int error)
{
    return error == 0 ? TRUE : Fail(error);
}
