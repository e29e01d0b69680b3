// The process-wide error text and its setters.
#pragma once

#include <ZKQ_general/error.h>
#include <stddef.h>

inline constexpr size_t kErrorTextSize = 256;
extern char g_General_ErrorInfo[kErrorTextSize];

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
