// Mode 2: JSON.
#include <ZKQ_general/json.h>

#include "internal/x509.h"
#include "internal/x509_message_tree.h"
#include "messages_gbk.h"

namespace {

int Find(void* node, const char* path, bool canAdd, void** found)
{
    return (canAdd ? JSON_Misc_GetChildNode_AutoAdd : JSON_Misc_GetChildNode)(node, path, found);
}

/// An integer as a member, or as another element of an array.
int PutInt(void* node, int32_t value, const TreeValue& place, bool isElement)
{
    if (!isElement)
        return JSON_Misc_SetInt(node, place.name, value);
    void* element = nullptr;
    if (const int error = JSON_Misc_CreateObjectNode(node, &element))
        return error;
    return JSON_Misc_SetInt(element, nullptr, value);
}

int PutText(void* node, const Value& value, const TreeValue& place, bool isElement)
{
    MallocPtr<char> copy;
    const char* const text = EndedText(value, &copy);
    if (text == nullptr)
        return FailX509(ZKQ_MSG_NO_MEMORY, Message::XmlMallocFailed);
    if (isElement)
        return JSON_Misc_SetStringArray(node, reinterpret_cast<const unsigned char*>(text));
    return JSON_Misc_SetString(node, place.name, text);
}

int PutBytes(void* node, const Value& value, const TreeValue& place, bool isElement)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(value.object);
    if (isElement)
        return (place.isMarked ? JSON_Misc_SetB64Array : JSON_Misc_SetHexArray)(node, bytes, value.length);
    return (place.isMarked ? JSON_Misc_SetB64Data : JSON_Misc_SetHexData)(node, place.name, bytes, value.length);
}

int Put(void* node, const Value& value, const TreeValue& place)
{
    const bool isElement = JSON_Misc_IsNodeArrayType(node) != 0;
    switch (value.item->DataType) {
    case ZKQ_MSG_KIND_INT32:
        return value.object == nullptr ? 0 : PutInt(node, Load<int32_t>(value.object), place, isElement);
    case ZKQ_MSG_KIND_STRING:
    case ZKQ_MSG_KIND_STRINGPTR:
        return PutText(node, value, place, isElement);
    case ZKQ_MSG_KIND_BYTEARRAY:
    case ZKQ_MSG_KIND_BYTEARRAYPTR:
        return PutBytes(node, value, place, isElement);
    default:
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotEncode);
    }
}

int GetInt(void* node, const Slot& slot, const TreeValue& place)
{
    int value = 0;
    if (const int error = JSON_Misc_GetInt(node, place.name, &value))
        return error;
    return StoreInt32(slot, value);
}

int GetText(void* node, const Slot& slot, const Item* item, const TreeValue& place, Allocations* allocations)
{
    char* text = nullptr;
    if (const int error = JSON_Misc_GetString(node, place.name, &text))
        return error;
    return StoreText(slot, item, text, allocations);
}

/// Puts decoded bytes into a buffer, or into a block that the field points to.
int StoreBytes(const Slot& slot, const Item* item, const unsigned char* bytes, size_t length, Allocations* allocations)
{
    char* target = slot.target;
    if (item->DataType == ZKQ_MSG_KIND_BYTEARRAY) {
        if (length > std::min(slot.room, static_cast<size_t>(std::max(slot.capacity, 0))))
            return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgHexTooLong);
    } else if (slot.room < sizeof(char*)) {
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    } else if (length > 0) {
        target = static_cast<char*>(allocations->Keep(malloc(length)));
        if (target == nullptr)
            return FailX509(ZKQ_MSG_NO_MEMORY, Message::MsgNoBytes);
        Store(slot.target, target);
    }
    if (length > 0)
        memcpy(target, bytes, length);
    if (slot.count != nullptr)
        Store(slot.count, static_cast<int32_t>(length));
    return 0;
}

int GetBytes(void* node, const Slot& slot, const Item* item, const TreeValue& place, Allocations* allocations)
{
    if (item->DataType == ZKQ_MSG_KIND_BYTEARRAYPTR && slot.count == nullptr)
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    unsigned char* bytes = nullptr;
    int length = 0;
    const int error =
        JSON_Misc_IsNodeArrayType(node) != 0
            ? (place.isMarked ? JSON_Misc_GetB64Array : JSON_Misc_GetHexArray)(node, &bytes, &length)
            : (place.isMarked ? JSON_Misc_GetB64Data : JSON_Misc_GetHexData)(node, place.name, &bytes, &length);
    const MallocPtr<unsigned char> owner(bytes);
    return error != 0 ? error : StoreBytes(slot, item, bytes, static_cast<size_t>(length), allocations);
}

int Get(void* node, const Slot& slot, const Item* item, const TreeValue& place, Allocations* allocations)
{
    switch (item->DataType) {
    case ZKQ_MSG_KIND_INT32:
        return GetInt(node, slot, place);
    case ZKQ_MSG_KIND_STRING:
    case ZKQ_MSG_KIND_STRINGPTR:
        return GetText(node, slot, item, place, allocations);
    case ZKQ_MSG_KIND_BYTEARRAY:
    case ZKQ_MSG_KIND_BYTEARRAYPTR:
        return GetBytes(node, slot, item, place, allocations);
    default:
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    }
}

int BeginPut(void* node, const char* path, int /*count*/, ArrayTarget* array)
{
    if (const int error = FindNode(kJsonFormat, node, path, true, &array->node))
        return error;
    return JSON_Misc_SetNodeArrayType(array->node);
}

int AddElement(const ArrayTarget& array, void** element)
{
    return JSON_Misc_CreateObjectNode(array.node, element);
}

int BeginGet(void* node, const char* path, STRUCTARRAYCTX* array)
{
    *array = {};
    if (const int error = FindNode(kJsonFormat, node, path, false, &array->ParentNode))
        return error;
    size_t* list = nullptr;
    const int error = JSON_Misc_GetArrayInfo(array->ParentNode, nullptr, &array->Count, &list);
    array->NodeList = reinterpret_cast<void**>(list);
    return error;
}

} // namespace

const TreeFormat kJsonFormat = {true, Find, Put, Get, BeginPut, AddElement, BeginGet};
