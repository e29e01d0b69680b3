// The memory object as families that collect output in it see it.
#pragma once

#include <ZKQ_general/string.h>
#include <stddef.h>

#include <memory>

/// A memory object. `Max` grows in the steps that callers may rely on; the block behind it grows faster, so that
/// appending stays linear.
struct GMEM {
    int Magic;
    int Max;
    int Size;
    int ReadPos;
    int WritePos;
    unsigned char* Buf;
    size_t Capacity; ///< bytes really allocated at Buf, at least Max
};
static_assert(offsetof(GMEM, WritePos) == 16 && offsetof(GMEM, Buf) == 24);

/// Appends bytes; 0, EINVAL for an invalid object, or ENOMEM with the object unchanged. Both failures are logged.
int GMEM_Append(GMEM* object, const unsigned char* Buffer, int Length);

struct FreeMemoryObject {
    void operator()(GMEM* object) const { ZKQGeneral_MEM_free(object); }
};
using MemoryObject = std::unique_ptr<GMEM, FreeMemoryObject>;

/// A new object with room to begin with, or null.
inline MemoryObject MakeMemoryObject(int InitSize)
{
    return MemoryObject(static_cast<GMEM*>(ZKQGeneral_MEM_malloc(InitSize)));
}
