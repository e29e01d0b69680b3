/**
 * @file system.h
 * @brief Paths of the running program, of loaded modules, and of the temporary directory.
 */
#ifndef ZKQ_GENERAL_SYSTEM_H
#define ZKQ_GENERAL_SYSTEM_H

#include <ZKQ_general/types.h>

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

#ifdef __cplusplus
}
#endif

#endif
