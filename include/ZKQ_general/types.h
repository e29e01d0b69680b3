/**
 * @file types.h
 * @brief Shared types and the conventions that every family of the library follows.
 *
 * 1. Results. A `BOOL` function returns `TRUE` (1) or `FALSE` (0). When it fails, the reason is left as a text that
 *    ZKQGeneral_GetGeneralErrorInfo() returns; success never clears that text. Functions that return a count or a
 * length say in their own comment what failure looks like; functions that return a pointer return null.
 * 2. Strings are 8-bit and NUL-terminated, and their encoding is not interpreted. The library's own Chinese texts are
 * GBK.
 * 3. Caller buffers come with their size in bytes, the NUL counted. Nothing is ever written past that size.
 * 4. Buffers that the library hands out belong to the caller and are released with ZKQGeneral_FreeMallocBuffer(), or
 * with the release function that the family names.
 * 5. A null pointer where one is not allowed fails with the text of `EINVAL`; it never crashes.
 * 6. Paths and what a function appends to them stay below 300 bytes; longer ones are refused, never cut.
 * 7. Any function may be called from any thread unless its comment says otherwise. The error text is one for the whole
 *    process, so two threads that fail at the same moment may mix their texts.
 */
#ifndef ZKQ_GENERAL_TYPES_H
#define ZKQ_GENERAL_TYPES_H

#include <stdint.h>

/** Marks a function that the shared object exports. */
#define ZKQ_API __attribute__((visibility("default")))
/** The compiler checks the arguments from parameter `first` on (counted from 1) against the printf format `text`. */
#define ZKQ_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))

#ifndef TRUE
#define TRUE 1 /**< Success, or yes. */
#endif
#ifndef FALSE
#define FALSE 0 /**< Failure, or no. */
#endif

typedef int BOOL;            /**< Truth value: `TRUE` or `FALSE`. */
typedef int INT;             /**< Signed 32-bit integer. */
typedef unsigned int UINT;   /**< Unsigned 32-bit integer. */
typedef uint16_t WORD;       /**< Unsigned 16-bit integer. */
typedef unsigned long DWORD; /**< Unsigned long: 64 bits on the supported targets. */
typedef int HWND;            /**< Window handle; a plain number on this platform. */
typedef const char* LPCTSTR; /**< Read-only NUL-terminated text. */
typedef char* LPTSTR;        /**< Writable text or text buffer. */

/** What a thread runs, and what is told of progress: takes one argument of the size of a pointer and returns another. */
typedef void* (*THREADPROC_C)(void*);

#endif
