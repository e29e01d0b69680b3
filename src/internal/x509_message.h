// Messages as their encoders and decoders share them.
#pragma once

#include <ZKQ_general/x509.h>
#include <limits.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <bit>

#include "growing_stack.h"
#include "guards.h"

using Item = GENERAL_MSG_ITEM;
using Field = GENERAL_MSG_TEMPLATE;

static_assert(offsetof(Item, DataType) == 4 && offsetof(Item, Templates) == 8 && offsetof(Item, Count) == 16);
static_assert(offsetof(Item, Temp) == 20 && offsetof(Item, Name) == 24 && offsetof(Item, XPath) == 32);
static_assert(offsetof(Item, NodeName) == 40 && offsetof(Item, BuffSize) == 48 && sizeof(Item) == 56);
static_assert(offsetof(Field, Offset) == 4 && offsetof(Field, FieldName) == 8 && offsetof(Field, item) == 16);
static_assert(offsetof(Field, ArraySizeOffset) == 24 && offsetof(Field, SizeofStruct) == 28);
static_assert(offsetof(Field, XPath) == 32 && sizeof(Field) == 40);

constexpr bool IsOneOf(int kind, unsigned kinds)
{
    return kind >= 0 && kind <= ZKQ_MSG_KIND_VALUESPTR && (kinds >> kind & 1) != 0;
}
constexpr bool IsArrayKind(int kind)
{
    return IsOneOf(kind, 1u << 6 | 1u << 7 | 1u << 8 | 1u << 9 | 1u << 12 | 1u << 13 | 1u << 14);
}
constexpr bool IsPointerKind(int kind)
{
    return IsOneOf(kind, 1u << 5 | 1u << 7 | 1u << 9 | 1u << 11 | 1u << 13 | 1u << 14);
}
constexpr bool IsRecordArray(int kind)
{
    return kind == ZKQ_MSG_KIND_RECORDS || kind == ZKQ_MSG_KIND_RECORDSPTR;
}

/// Fields are where the template says, which need not be where the machine likes them.
template <class T>
T Load(const void* from)
{
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}
template <class T>
void Store(void* to, T value)
{
    memcpy(to, &value, sizeof value);
}
inline char* LoadPointer(const void* from)
{
    return Load<char*>(from);
}
inline void ClearPointer(void* to)
{
    Store<void*>(to, nullptr);
}

/// The built-in items by their kinds, and the functions that return them.
using ItemFunction = const Item* (*)();
inline constexpr int kSimpleKinds = ZKQ_MSG_KIND_INTARRAYPTR;
extern const Item kSimpleItems[kSimpleKinds + 1];
extern const ItemFunction kSimpleItemFunctions[kSimpleKinds + 1];

/// The item of a field; null if the template names none. Most are built in, and need no call.
inline const Item* ItemOf(const Field& field)
{
    const auto kind = static_cast<unsigned>(field.Type);
    if (kind <= unsigned{kSimpleKinds} && field.item == kSimpleItemFunctions[kind] && kind != 0)
        return &kSimpleItems[kind];
    return field.item == nullptr ? nullptr : field.item();
}

/// A record about to be entered is one of those that are open, so that entering would never end. Looked for by Brent's
/// method: a turn or two later, and without a look at all of them.
template <class Stack>
bool ClosesLoop(const Stack& open, const char* record, const Item* item)
{
    if (open.IsEmpty())
        return false;
    const auto& met = open[std::bit_floor(open.Size()) - 1];
    return met.record == record && met.item == item;
}

/// A value about to be encoded.
struct Value {
    const char* object; ///< null: there is none
    const Item* item;
    int length;   ///< of an array: bytes of its content
    int capacity; ///< of a buffer: its size; 0 if nobody has told
};

/// The count of an array field, which is 0 behind a null pointer; negative: ZKQ_MSG_TOO_LONG.
inline int ArrayCount(const char* record, const Field& field)
{
    if (IsPointerKind(field.Type) && LoadPointer(record + field.Offset) == nullptr)
        return 0;
    const int count = Load<int32_t>(record + field.ArraySizeOffset);
    return count < 0 ? ZKQ_MSG_TOO_LONG : count;
}

/// The value of a field that is no array of records; 0 or a code.
inline int FieldValue(const char* record, const Field& field, const Item* item, Value* value)
{
    const char* const place = record + field.Offset;
    *value = {IsPointerKind(field.Type) ? LoadPointer(place) : place, item, 0, field.SizeofStruct};
    if (!IsArrayKind(field.Type))
        return 0;
    const int count = ArrayCount(record, field);
    if (count < 0)
        return count;
    const bool isOfIntegers = field.Type == ZKQ_MSG_KIND_INTARRAY || field.Type == ZKQ_MSG_KIND_INTARRAYPTR;
    return __builtin_mul_overflow(count, isOfIntegers ? 4 : 1, &value->length) ? ZKQ_MSG_TOO_LONG : 0;
}

/// An element of an array.
inline Value ElementValue(const char* element, const Field& field, const Item* item)
{
    const bool isPointer = item->IsStruct == 0 && item->DataType == ZKQ_MSG_KIND_STRINGPTR;
    return {isPointer ? LoadPointer(element) : element, item, 0, field.SizeofStruct};
}

/// What a decoding has allocated so far. If it fails all of it is released here, exactly, whatever the record says.
class Allocations {
public:
    Allocations() = default;
    Allocations(const Allocations&) = delete;
    Allocations& operator=(const Allocations&) = delete;
    ~Allocations()
    {
        for (; !blocks_.IsEmpty(); blocks_.Pop())
            free(blocks_.Top());
    }

    /// Takes over a block; null, with the block released, without memory.
    void* Keep(void* block)
    {
        if (block != nullptr && blocks_.Push(block))
            return block;
        free(block);
        return nullptr;
    }
    /// Zeros, as calloc() gives them, or null.
    void* Zeros(size_t count, size_t size) { return Keep(calloc(count, size)); }
    /// The decoding has succeeded: the record owns them.
    void HandOver()
    {
        while (!blocks_.IsEmpty())
            blocks_.Pop();
    }

private:
    GrowingStack<void*, 16> blocks_;
};

/// Sets all pointers of a record null whose targets are gone after a failed decoding.
void Detach(char* record, size_t size, const Item* item);

/// Where a simple value is to be stored.
struct Slot {
    char* target;
    char* count;  ///< where the count of an array goes; null: it is an element, and has none
    int capacity; ///< of a buffer
    size_t room;  ///< bytes that may be written at `target`
};
inline constexpr size_t kAnyRoom = SIZE_MAX;

/// Bytes for the elements of an inline array, of which templates do not tell: up to the next field that the record's
/// templates know, or its end.
size_t InlineRoom(const Item* record, size_t size, const Field& field);
/// The slot of a field that is no array of records.
inline Slot FieldSlot(char* record, const Field& field)
{
    char* const place = record + field.Offset;
    char* const count = IsArrayKind(field.Type) ? record + field.ArraySizeOffset : nullptr;
    return {place, count, field.SizeofStruct, field.Type == ZKQ_MSG_KIND_VALUESPTR ? sizeof(void*) : kAnyRoom};
}

/// The slot of an element.
inline Slot ElementSlot(char* element, const Field& field)
{
    return {element, nullptr, field.SizeofStruct, static_cast<size_t>(std::max(field.SizeofStruct, 0))};
}

/// Mode 0.
int EncodeDer(const char* val, unsigned char** out, int max, const Item* it);
int DecodeDer(char* val, size_t Size, const unsigned char* in, int len, const Item* it);
/// Any mode.
void Release(char* val, const Item* it, bool ownsRecord, int mode);
