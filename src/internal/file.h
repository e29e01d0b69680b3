// File operations that other families build on. They return 0 or an errno value and leave the error text alone.
#pragma once

#include <ZKQ_general/file.h>
#include <stddef.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string_view>

#include "guards.h"

/// Opens a file without waiting for the other end of a FIFO. The descriptor, or -1 with errno.
int OpenNoWait(const char* path, int flags, mode_t mode = 0);
/// Kind, mode, place and size of an opened file; 0 or an errno value. Its times are not asked for: the kernel keeps them
/// more exactly once they have been, and the next write costs a third more.
int LookAt(int fd, struct statx* status);
/// As OpenNoWait(), for writing; what is written then waits for room as usual. `status` is what LookAt() sees.
int OpenForWriting(const char* path, int flags, struct statx* status);
/// Writes all bytes; 0 or an errno value.
int WriteAll(int fd, std::string_view bytes);

/// ZKQGeneral_GetFileContent() without the error text.
int FileContent(const char* FileName, unsigned char** Buffer, int* Size);
