/**
 * @file error.h
 * @brief The text of the last failure, and the release of buffers that the library handed out.
 */
#ifndef ZKQ_GENERAL_ERROR_H
#define ZKQ_GENERAL_ERROR_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Returns the text of the last failure in this process.
 *
 * Before any failure the text is "Function call successed!". Success never clears it, so it is meaningful only right
 * after a call that failed. There is one text for the whole process, without a lock: a thread may see another
 * thread's reason.
 *
 * @return The text itself, at most 255 bytes and a NUL: never null, neither to be freed nor written, and changed by
 *         the next failing call.
 */
ZKQ_API char* ZKQGeneral_GetGeneralErrorInfo(void);

/**
 * @brief Writes the system's text for an errno value.
 *
 * A text that does not fit with its NUL is replaced by "Unkown Error! ErrorCode = N", cut to the buffer.
 *
 * @param SysErrorNO  The errno value; one unknown to the system gets the system's own text for unknown numbers.
 * @param lpszBuf     Receives the text; may be null if `dwSize` is 0.
 * @param dwSize      Size of `lpszBuf` in bytes; 0 writes nothing.
 * @return Always `TRUE`.
 */
ZKQ_API BOOL ZKQGeneral_GetSystemErrorInfoString(int SysErrorNO, LPTSTR lpszBuf, DWORD dwSize);

/**
 * @brief Releases a buffer that a function of this library allocated for its caller.
 * @param Buffer  The buffer; null is ignored.
 */
ZKQ_API void ZKQGeneral_FreeMallocBuffer(void* Buffer);

#ifdef __cplusplus
}
#endif

#endif
