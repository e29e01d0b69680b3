/**
 * @file system.h
 * @brief Paths of the running program, of loaded modules, and of the temporary directory; programs, processes, threads and
 *        times.
 */
#ifndef ZKQ_GENERAL_SYSTEM_H
#define ZKQ_GENERAL_SYSTEM_H

#include <ZKQ_general/types.h>
#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Returns the full path of the running program or of a loaded module.
 * @param hModule     Null for the program; otherwise a handle from dlopen(). Modules that do not export "_init" fail
 *                    with the loader's text.
 * @param lpFilename  Receives the path. The buffer is filled with zeros first; a path as long as the buffer or longer
 *                    is cut, and for the program itself then has no NUL.
 * @param nSize       Size of `lpFilename` in bytes.
 * @return The length of the path placed in the buffer, or 0 with the reason.
 */
ZKQ_API DWORD ZKQGeneral_GetModuleFileName(void* hModule, LPTSTR lpFilename, DWORD nSize);

/**
 * @brief Finds a loaded file in this process's memory map by a part of its path.
 *
 * Only the first 64 KiB of the map are searched, and a path that holds a blank is returned from behind its last blank
 * before the match.
 *
 * @param FileName      The text to look for, a file name as a rule.
 * @param FullPathName  Receives the path; a buffer of 300 bytes.
 * @return `TRUE` if found. `FALSE` without a new error text if not; `FALSE` with the reason if the map cannot be
 *         read, or with `ENAMETOOLONG` for a path of 300 bytes and more.
 */
ZKQ_API BOOL ZKQGeneral_GetModuleFileName2(const char* FileName, char* FullPathName);

/**
 * @brief Returns the directory for temporary files, always "/tmp/".
 * @param nBufferLength  Size of `lpBuffer` in bytes; 0 writes nothing.
 * @param lpBuffer       Receives the path, cut to the buffer.
 * @return The number of bytes placed in the buffer, the NUL not counted.
 */
ZKQ_API DWORD ZKQGeneral_GetTempPath(DWORD nBufferLength, LPTSTR lpBuffer);

/** A thread that was started here. */
typedef struct {
    size_t ThreadHandle;   /**< identifier of the thread; 0 for none */
    unsigned int ThreadID; /**< always 0 */
} THREADINFOA;

/** A date and a time of day. */
typedef struct {
    WORD wYear;         /**< such as 2026 */
    WORD wMonth;        /**< 1 to 12 */
    WORD wDayOfWeek;    /**< 0 is Sunday */
    WORD wDay;          /**< 1 to 31 */
    WORD wHour;         /**< 0 to 23 */
    WORD wMinute;       /**< 0 to 59 */
    WORD wSecond;       /**< 0 to 60 */
    WORD wMilliseconds; /**< 0 to 999 */
} _TIMESTRUCT;
typedef _TIMESTRUCT* PTIMESTRUCT; /**< Date and time of the caller's. */

/**
 * @brief Tells how long the system has been running.
 *
 * The file "/proc/uptime" is opened with the first call and stays open.
 *
 * @return Milliseconds, in steps of 10; 0 if the file cannot be opened or read.
 */
ZKQ_API long int ZKQGeneral_GetTickCount(void);

/**
 * @brief A stopwatch by the time of day; the process has one.
 * @param bStop 0 starts it.
 * @return 0 when started, otherwise the milliseconds since the last start.
 */
ZKQ_API int ZKQGeneral_GetTickCountEx(int bStop);

/**
 * @brief Sleeps, whatever signals come meanwhile.
 * @param Milliseconds How long; a negative time leaves the text of `EINVAL`.
 */
ZKQ_API void ZKQGeneral_Sleep(int Milliseconds);

/**
 * @brief Runs a program through the shell, as ZKQGeneral_WinExecFileAndGetRetCodeEx() does, without a limit of time.
 * @param FullPathExeFile The program.
 * @param Parameter       Its arguments, or null.
 * @param bWaitEnd        0 does not wait for its end.
 * @return TRUE if the program was started and, when waited for, has ended.
 */
ZKQ_API BOOL ZKQGeneral_WinExecFile(LPCTSTR FullPathExeFile, LPCTSTR Parameter, BOOL bWaitEnd);

/**
 * @brief As ZKQGeneral_WinExecFileAndGetRetCodeEx(), without a limit of time.
 * @param FullPathExeFile The program.
 * @param Parameter       Its arguments, or null.
 * @param bWaitEnd        0 does not wait for its end.
 * @param RetCode         Receives the exit status; may be null.
 * @return TRUE if the program was started and, when waited for, has ended.
 */
ZKQ_API BOOL ZKQGeneral_WinExecFileAndGetRetCode(LPCTSTR FullPathExeFile, LPCTSTR Parameter, BOOL bWaitEnd,
                                                 DWORD* RetCode);

/**
 * @brief Runs a program through the shell: "/bin/sh -c" with its path, a blank and the arguments.
 *
 * Neither is quoted, so that the shell takes both apart: never put into them what comes from outside. A name without "/"
 * is searched in the directories of `PATH`, then in the working directory, by existence alone.
 *
 * Without waiting, a handler for `SIGCHLD` is installed that takes the status of every child that ends, those that the
 * caller has started by other means included. It never takes that of a program that is waited for here.
 *
 * @param FullPathExeFile The program.
 * @param Parameter       Its arguments; null or empty for none.
 * @param bWaitEnd        0 does not wait for its end.
 * @param RetCode         Receives the exit status, if waited for; 127 where the shell could not be run. Of a program that
 *                        a signal has ended it is 0 if the shell made way for it, else what the shell makes of that, 128
 *                        and the signal's number as a rule. May be null.
 * @param Timeout         Seconds to wait, looking once a second; 0 and less wait without limit. A program that has not
 *                        ended by then goes on.
 * @return TRUE if the program was started and, when waited for, has ended. Otherwise `FALSE` with the reason: the text of
 *         `ENOENT` for no such program, of `ETIME` (62) after the time-out.
 */
ZKQ_API BOOL ZKQGeneral_WinExecFileAndGetRetCodeEx(LPCTSTR FullPathExeFile, LPCTSTR Parameter, BOOL bWaitEnd,
                                                   DWORD* RetCode, int Timeout);

/**
 * @brief Starts a thread.
 * @param pThreadProc What it runs.
 * @param pThreadData Argument of that; the caller's.
 * @param ThreadInfo  Receives the thread, to be given to ZKQGeneral_WaitThreadExit() or ZKQGeneral_CloseThreadHandle()
 *                    once. With null nobody can wait for the thread, and what it leaves stays until the process ends.
 * @return TRUE on success.
 */
ZKQ_API BOOL ZKQGeneral_CreateWorkingThread(THREADPROC_C pThreadProc, void* pThreadData, THREADINFOA* ThreadInfo);

/**
 * @brief Waits for the end of a thread.
 * @param ThreadInfo The thread; its handle is cleared.
 * @param ExitCode   Receives the lower 32 bits of what the thread has returned; may be null.
 * @param Timeout    Not used: the wait has no limit.
 * @return TRUE on success. `FALSE` with the text of `EINVAL` for no thread; without a new text if the thread cannot be
 *         waited for, as by itself.
 */
ZKQ_API BOOL ZKQGeneral_WaitThreadExit(THREADINFOA* ThreadInfo, unsigned int* ExitCode, int Timeout);

/**
 * @brief Lets a thread go on by itself; nobody waits for it any more.
 * @param ThreadInfo The thread; its handle is cleared. Null and no thread are ignored.
 */
ZKQ_API void ZKQGeneral_CloseThreadHandle(THREADINFOA* ThreadInfo);

/**
 * @brief Not supported.
 * @param ThreadInfo Not used.
 * @param ExitCode   Not used.
 * @return FALSE with the text of `ENOSYS` (38).
 */
ZKQ_API BOOL ZKQGeneral_TerminateThread(THREADINFOA* ThreadInfo, unsigned int ExitCode);

/**
 * @brief Tells a time of a file, in local time.
 * @param FileName The file; links are followed.
 * @param pts      Receives the time, its milliseconds as 0. With null nothing is done, which succeeds.
 * @param Flag     0 for the last change of the file's status, 1 for the last access, anything else for the last change of
 *                 its content.
 * @return TRUE, or FALSE with the reason.
 */
ZKQ_API BOOL ZKQGeneral_GetFileTimeInfo(LPCTSTR FileName, PTIMESTRUCT pts, int Flag);

/**
 * @brief Reads a password from a terminal that does not show it.
 *
 * Reading ends with a line feed, a carriage return, the end of the input, or when the buffer is full. The terminal's
 * settings are put back on standard input, whatever `infp` is.
 *
 * @param Prompt   Written first; null for none.
 * @param infp     The terminal; null for standard input.
 * @param outfp    Where the prompt, the stars and a final line feed go; null for standard output.
 * @param Buffer   Receives the password with a NUL; `Size` + 1 bytes.
 * @param Size     The most bytes to read.
 * @param bDisplay Other than 0 writes "*" for each byte.
 * @return TRUE, or FALSE with the reason if `infp` is no terminal or its settings cannot be changed.
 */
ZKQ_API BOOL ZKQGeneral_ReadPasswordString(const char* Prompt, FILE* infp, FILE* outfp, char* Buffer, int Size,
                                           int bDisplay);

/**
 * @brief Looks for a process by its command line.
 * @param ProcessName The program as it was called and all its arguments, each after a blank; of a longer command line the
 *                    first 2047 bytes.
 * @param bRunning    Receives 1 if there is one, otherwise 0.
 * @return TRUE, or FALSE with the reason if "/proc" cannot be listed.
 */
ZKQ_API BOOL ZKQGeneral_IsApplicationRunning(LPCTSTR ProcessName, int* bRunning);

/**
 * @brief Kills every process with a command line, by `SIGKILL`.
 * @param ProcessName As for ZKQGeneral_IsApplicationRunning().
 * @return TRUE, also if there is none. FALSE with the reason if one could not be killed or "/proc" cannot be listed; FALSE
 *         without a new text if the command line of some process could not be read, be it that the process has just ended.
 */
ZKQ_API BOOL ZKQGeneral_TerminateApplication(LPCTSTR ProcessName);

/**
 * @brief Takes an instance lock, which lasts until the process ends.
 * @param Name The name of the lock file, which must exist.
 * @param Path Its directory; null or empty for "/tmp".
 * @return TRUE if the lock was free. FALSE without a new text if it is held, by this process or another; otherwise with the
 *         reason, such as that of `ENOENT`.
 */
ZKQ_API BOOL ZKQGeneral_SingleInstance(const char* Name, const char* Path);

/**
 * @brief Looks whether an instance lock is held. Calls take turns on the library's lock.
 * @param Name As for ZKQGeneral_SingleInstance().
 * @param Path Alike.
 * @return FALSE if the lock is free. TRUE if it is held, or cannot be looked at, which leaves the reason.
 */
ZKQ_API BOOL ZKQGeneral_DetectApplication(const char* Name, const char* Path);

/**
 * @brief Has a command line run when the system starts: a line of "/etc/rc.d/rc.local", appended unless one of its lines,
 *        other than comments, holds the text already.
 * @param ItemName Not used.
 * @param FileName The command line.
 * @return TRUE, or FALSE with the reason.
 */
ZKQ_API BOOL ZKQGeneral_AutoStartProc(const char* ItemName, const char* FileName);

#ifdef __cplusplus
}
#endif

#endif
