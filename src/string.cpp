#include <ZKQ_general/string.h>
#include <errno.h>
#include <limits.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "internal/error.h"
#include "internal/guards.h"
#include "internal/log.h"
#include "internal/memory_object.h"
#include "internal/tokenizer.h"
#include "messages_gbk.h"

namespace {

constexpr int kMemoryMark = 0x12345678;
constexpr int kDefaultRoom = 4096;
constexpr int64_t kPage = 4096;

/// What MEM_malloc hands out when an object's room could not be had: never valid, never freed.
constinit GMEM g_DeadObject = {};

bool GMEM_IsValid(const GMEM* object)
{
    int mark = 0;
    if (object != nullptr)
        memcpy(&mark, object, sizeof mark); // whatever the pointer is, it need not be aligned
    return mark == kMemoryMark;
}

/// Moves the data of an object to a larger block, zero behind the data; false if there is none.
bool GMEM_Move(GMEM* object, size_t capacity)
{
    auto* const block = static_cast<unsigned char*>(calloc(1, capacity));
    if (block == nullptr)
        return false;
    std::copy_n(object->Buf, object->Size, block);
    free(object->Buf);
    object->Buf = block;
    object->Capacity = capacity;
    return true;
}

/// Gives an object room for `Length` more bytes; 0 or ENOMEM.
int GMEM_Grow(GMEM* object, int Length)
{
    const int64_t newMax = (int64_t{object->Max} + Length + kPage - 1) / kPage * kPage;
    if (newMax > INT_MAX)
        return ENOMEM;
    const auto needed = static_cast<size_t>(newMax);
    if (needed > object->Capacity && !GMEM_Move(object, std::max(needed, 2 * object->Capacity)) &&
        !GMEM_Move(object, needed))
        return ENOMEM;
    object->Max = static_cast<int>(newMax);
    return 0;
}

/// Splits a text; null with the error text set. A token that cannot be copied is left null.
char** ZKQGeneral_ParseLineInfo_R(std::string_view text, std::string_view separators, int* Count)
{
    size_t count = 0;
    for (Tokenizer counter(text, separators); !counter.Next().empty();)
        ++count;
    if (count >= INT_MAX) {
        GeneralMisc_SetSystemError(ENOMEM);
        return nullptr;
    }
    char** const tokens = static_cast<char**>(malloc((count + 1) * sizeof(char*)));
    if (tokens == nullptr) {
        GetSystemLastErrorText();
        return nullptr;
    }
    Tokenizer tokenizer(text, separators);
    for (size_t i = 0; i < count; ++i) {
        const std::string_view token = tokenizer.Next();
        tokens[i] = strndup(token.data(), token.size());
    }
    tokens[count] = nullptr;
    *Count = static_cast<int>(count);
    return tokens;
}

} // namespace

int GMEM_Append(GMEM* object, const unsigned char* Buffer, int Length)
{
    if (!GMEM_IsValid(object)) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::MemBadPointer);
        return EINVAL;
    }
    if (Length <= 0)
        return 0;
    if (object->Max - object->Size < Length && GMEM_Grow(object, Length) != 0) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::MemCannotGrow);
        return ENOMEM;
    }
    memcpy(object->Buf + object->Size, Buffer, static_cast<size_t>(Length));
    object->Size += Length;
    object->WritePos = object->Size;
    return 0;
}

char** ZKQGeneral_ParseLineInfo(const char* pszString, const char* pszTokenizer, int* Count)
{
    const MutexLock lock(g_General_Mutex);
    if (pszString == nullptr || pszTokenizer == nullptr || Count == nullptr) {
        GeneralMisc_SetSystemError(EINVAL);
        return nullptr;
    }
    *Count = 0;
    return ZKQGeneral_ParseLineInfo_R(pszString, pszTokenizer, Count);
}

void ZKQGeneral_FreeParseLineInfoBuffer(char** ptr, int Count)
{
    if (ptr == nullptr)
        return;
    for (int i = 0; i < Count; ++i)
        free(ptr[i]);
    free(ptr);
}

void* ZKQGeneral_MEM_malloc(int InitSize)
{
    auto* object = static_cast<GMEM*>(calloc(1, sizeof(GMEM)));
    if (object == nullptr)
        return nullptr;
    object->Magic = kMemoryMark;
    object->Max = InitSize > 0 ? InitSize : kDefaultRoom;
    object->Capacity = static_cast<size_t>(object->Max);
    object->Buf = static_cast<unsigned char*>(malloc(object->Capacity));
    if (object->Buf != nullptr)
        return object;
    free(object);
    return &g_DeadObject;
}

void ZKQGeneral_MEM_free(void* Ptr)
{
    auto* object = static_cast<GMEM*>(Ptr);
    if (!GMEM_IsValid(object))
        return;
    explicit_bzero(&object->Magic, sizeof object->Magic); // not to be optimised away
    free(object->Buf);
    free(object);
}

int ZKQGeneral_MEM_Write(void* Ptr, const unsigned char* Buf, int Size)
{
    auto* object = static_cast<GMEM*>(Ptr);
    int overwritten = 0;
    if (GMEM_IsValid(object) && Buf == nullptr && Size > 0)
        return 0;
    if (GMEM_IsValid(object) && Size > 0 && object->WritePos < object->Size) {
        overwritten = std::min(Size, object->Size - object->WritePos);
        memcpy(object->Buf + object->WritePos, Buf, static_cast<size_t>(overwritten));
        object->WritePos += overwritten;
    }
    return GMEM_Append(object, Buf + overwritten, Size - overwritten) == 0 ? Size : 0;
}

int ZKQGeneral_MEM_Read(void* Ptr, unsigned char* Buf, int Size)
{
    auto* object = static_cast<GMEM*>(Ptr);
    if (!GMEM_IsValid(object) || Buf == nullptr || Size <= 0)
        return 0;
    const int count = std::min(Size, object->Size - object->ReadPos);
    std::copy_n(object->Buf + object->ReadPos, count, Buf);
    object->ReadPos += count;
    return count;
}

int ZKQGeneral_MEM_Detach(void* Ptr, unsigned char** Buf, int* Size)
{
    auto* object = static_cast<GMEM*>(Ptr);
    if (!GMEM_IsValid(object) || Buf == nullptr || Size == nullptr)
        return 0;
    *Buf = object->Buf;
    *Size = object->Size;
    *object = {};
    object->Magic = kMemoryMark;
    return 0;
}
