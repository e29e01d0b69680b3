#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "internal/base64.h"
#include "internal/error.h"
#include "internal/guards.h"
#include "internal/json.h"
#include "internal/log.h"
#include "internal/text.h"
#include "internal/tokenizer.h"
#include "messages_gbk.h"

namespace {

/// Logs why a function fails, and returns its result.
int FailWith(int result, const char* message, int line = __builtin_LINE())
{
    General_LibraryLog(ZKQ_LOG_ERROR, message, kJsonSource, line);
    return result;
}

/// Logs that an argument is bad.
int RefuseArgument(int line = __builtin_LINE())
{
    return FailWith(EINVAL, strerror(EINVAL), line);
}

cJSON* AsNode(void* Ctx)
{
    return static_cast<cJSON*>(Ctx);
}

/// A copy on the C heap, or null.
MallocPtr<char> Copy(std::string_view text)
{
    MallocPtr<char> copy(static_cast<char*>(malloc(text.size() + 1)));
    if (copy != nullptr)
        copy.get()[text.copy(copy.get(), text.size())] = '\0';
    return copy;
}

/// Gives a node another text in one of its fields. The new one may have been made of the old one.
void Replace(cJSON* node, char** field, MallocPtr<char> text)
{
    NoteForeign(node, node->place);
    ReleaseText(node, node->place, std::exchange(*field, text.release()));
}

/// Makes a node a string.
void SetText(cJSON* node, MallocPtr<char> text)
{
    node->type = kJsonString;
    Replace(node, &node->valuestring, std::move(text));
}

/// Adds a new node behind what another has below it; 0 or kJsonNoMemory, which is logged. A null name leaves it without.
int JSON_Misc_AddNode(cJSON* ParentNode, const std::string_view* Name, int Type, cJSON** ChildNode)
{
    MallocPtr<char> name(Name == nullptr ? nullptr : Copy(*Name));
    if (Name != nullptr && name == nullptr)
        return FailWith(kJsonNoMemory, Message::JsonNoName);
    if (cJSON_Misc_CreateNode(Type, ChildNode) != 0)
        return FailWith(kJsonNoMemory, Message::JsonNoNode);
    (*ChildNode)->string = name.release();
    NoteForeign(ParentNode, ParentNode->place);
    LinkLast(ParentNode, *ChildNode);
    return 0;
}

cJSON* FindMember(const cJSON* node, std::string_view name)
{
    cJSON* member = node->child;
    while (member != nullptr && (member->string == nullptr || member->string != name))
        member = member->next;
    return member;
}

/// Follows a path. Names that are not there are passed over, or with `bAutoAdd` made; 0 or kJsonNoMemory.
int JSON_Misc_SearchNode(cJSON* node, const char* Path, cJSON** Result, bool bAutoAdd)
{
    Tokenizer names(OrEmpty(Path), "/");
    for (std::string_view name = names.Next(); !name.empty(); name = names.Next()) {
        cJSON* member = FindMember(node, name);
        if (member == nullptr && bAutoAdd)
            if (const int error = JSON_Misc_AddNode(node, &name, kJsonObject, &member))
                return error;
        if (member != nullptr)
            node = member;
    }
    *Result = node;
    return 0;
}

/// As JSON_Misc_SearchNode(), for an exported function: 0, EINVAL for null, or kJsonNoMemory; all failures are logged.
int Find(void* Ctx, const char* Path, bool bAutoAdd, cJSON** node)
{
    if (Ctx == nullptr)
        return FailWith(EINVAL, Message::JsonNull);
    return JSON_Misc_SearchNode(AsNode(Ctx), Path, node, bAutoAdd);
}

/// The bytes that a caller hands over; 0 or EINVAL, which is logged.
int CheckBytes(const unsigned char* Value, int Length)
{
    if (Length < 0)
        return FailWith(EINVAL, Message::JsonNegativeLength);
    return Value == nullptr && Length > 0 ? RefuseArgument() : 0;
}

/// Bytes as text; 0 or kJsonNoMemory, which is logged.
using Encode = int(const unsigned char* Value, int Length, MallocPtr<char>* text);

int JSON_Misc_Bytes2Hex(const unsigned char* Value, int Length, MallocPtr<char>* text)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto length = static_cast<size_t>(Length);
    text->reset(static_cast<char*>(malloc(2 * length + 1)));
    if (*text == nullptr)
        return FailWith(kJsonNoMemory, Message::JsonHexNoMemory);
    char* to = text->get();
    for (size_t i = 0; i < length; ++i) {
        *to++ = kDigits[Value[i] >> 4];
        *to++ = kDigits[Value[i] & 15];
    }
    *to = '\0';
    return 0;
}

int JSON_Misc_Bytes2Base(const unsigned char* Value, int Length, MallocPtr<char>* text)
{
    text->reset(static_cast<char*>(malloc(Base64Length(static_cast<size_t>(Length)) + 1)));
    if (*text == nullptr)
        return FailWith(kJsonNoMemory, Message::JsonEncodeNoMemory);
    General_Misc_ConvertToBase64(Value, static_cast<unsigned>(Length), text->get());
    return 0;
}

/// Text as bytes, in a new block; 0 or a code, which is logged.
using Decode = int(std::string_view text, MallocPtr<unsigned char>* bytes, size_t* length);

/// The value of a digit; of other bytes, whatever the same difference makes of them.
int JSON_Misc_GetOffset(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return digit - ('a' - 10);
}

int JSON_Misc_Hex2Bytes(std::string_view text, MallocPtr<unsigned char>* bytes, size_t* length)
{
    if (text.size() % 2 != 0)
        return FailWith(EINVAL, Message::JsonOddHex);
    *length = text.size() / 2;
    if (text.empty())
        return 0;
    bytes->reset(static_cast<unsigned char*>(malloc(*length)));
    if (*bytes == nullptr)
        return FailWith(kJsonNoMemory, Message::JsonUnhexNoMemory);
    for (size_t i = 0; i < *length; ++i)
        bytes->get()[i] =
            static_cast<unsigned char>(JSON_Misc_GetOffset(text[2 * i]) * 16 + JSON_Misc_GetOffset(text[2 * i + 1]));
    return 0;
}

int JSON_Misc_Base2Bytes(std::string_view text, MallocPtr<unsigned char>* bytes, size_t* length)
{
    bytes->reset(static_cast<unsigned char*>(malloc(text.size() + 1)));
    if (*bytes == nullptr)
        return FailWith(kJsonNoMemory, Message::JsonDecodeNoMemory);
    if (ConvertFromBase64_R(text, bytes->get(), length) == 0)
        return 0;
    GeneralMisc_SetErrorString(Message::Base64BadText);
    return FailWith(EINVAL, Message::JsonDecodeFailed);
}

/// Decodes the text of a node for the caller. A node without a text is empty.
int DecodeNode(const cJSON* node, Decode decode, unsigned char** Value, int* Length)
{
    if (Value == nullptr || Length == nullptr)
        return RefuseArgument();
    MallocPtr<unsigned char> bytes;
    size_t length = 0;
    if (node->valuestring != nullptr)
        if (const int error = decode(node->valuestring, &bytes, &length))
            return error;
    if (length > INT_MAX)
        return RefuseArgument();
    *Value = bytes.release();
    *Length = static_cast<int>(length);
    return 0;
}

int SetBytes(void* Ctx, const char* Path, const unsigned char* Value, int Length, Encode encode)
{
    if (const int error = CheckBytes(Value, Length))
        return error;
    cJSON* node = nullptr;
    if (const int error = Find(Ctx, Path, true, &node))
        return error;
    MallocPtr<char> text;
    if (const int error = encode(Value, Length, &text))
        return error;
    SetText(node, std::move(text));
    return 0;
}

/// The member of a node that holds its value.
template <typename T>
int GetMember(void* Ctx, const char* Path, T cJSON::*member, T* Value)
{
    cJSON* node = nullptr;
    if (const int error = Find(Ctx, Path, false, &node))
        return error;
    if (Value == nullptr)
        return RefuseArgument();
    *Value = node->*member;
    return 0;
}

int GetBytes(void* Ctx, const char* Path, Decode decode, unsigned char** Value, int* Length)
{
    cJSON* node = nullptr;
    if (const int error = Find(Ctx, Path, false, &node))
        return error;
    return DecodeNode(node, decode, Value, Length);
}

/// Adds a string to an array.
int AddElement(void* Ctx, MallocPtr<char> text)
{
    constexpr std::string_view kNoName = "";
    cJSON* node = nullptr;
    if (const int error = JSON_Misc_AddNode(AsNode(Ctx), &kNoName, kJsonString, &node))
        return error;
    node->valuestring = text.release();
    return 0;
}

int AddBytes(void* Ctx, const unsigned char* Value, int Length, Encode encode)
{
    if (Ctx == nullptr)
        return FailWith(EINVAL, Message::JsonNull);
    if (const int error = CheckBytes(Value, Length))
        return error;
    MallocPtr<char> text;
    if (const int error = encode(Value, Length, &text))
        return error;
    return AddElement(Ctx, std::move(text));
}

} // namespace

int JSON_Misc_InitJSON(const char* JSON, void** Ctx)
{
    if (Ctx == nullptr)
        return RefuseArgument();
    cJSON* root = nullptr;
    if (JSON == nullptr) {
        if (const int error = cJSON_Misc_CreateNode(kJsonObject, &root))
            return FailWith(error, Message::JsonCreateFailed);
    } else if (const int error = cJSON_Misc_Parse(JSON, &root)) {
        return FailWith(error, Message::JsonParseFailed);
    }
    *Ctx = root;
    return 0;
}

int JSON_Misc_FiniJSON(void* Ctx, char** JSON)
{
    if (Ctx == nullptr)
        return FailWith(EINVAL, Message::JsonNull);
    if (JSON != nullptr)
        *JSON = cJSON_Misc_Print(AsNode(Ctx));
    cJSON_Misc_Delete(AsNode(Ctx));
    return 0;
}

int JSON_Misc_GetChildNode(void* RootCtx, const char* Path, void** ChildCtx)
{
    cJSON* node = nullptr;
    if (const int error = Find(RootCtx, Path, false, &node))
        return error;
    if (ChildCtx == nullptr)
        return RefuseArgument();
    *ChildCtx = node;
    return 0;
}

int JSON_Misc_GetChildNode_AutoAdd(void* RootCtx, const char* Path, void** ChildCtx)
{
    if (ChildCtx == nullptr)
        return RefuseArgument();
    cJSON* node = nullptr;
    if (const int error = Find(RootCtx, Path, true, &node))
        return error;
    *ChildCtx = node;
    return 0;
}

int JSON_Misc_SetString(void* Ctx, const char* Path, const char* Value)
{
    cJSON* node = nullptr;
    if (const int error = Find(Ctx, Path, true, &node))
        return error;
    MallocPtr<char> text = Copy(OrEmpty(Value));
    if (text == nullptr)
        return FailWith(kJsonNoMemory, Message::JsonNoValue);
    SetText(node, std::move(text));
    return 0;
}

int JSON_Misc_SetInt(void* Ctx, const char* Path, int Value)
{
    cJSON* node = nullptr;
    if (const int error = Find(Ctx, Path, true, &node))
        return error;
    node->type = kJsonNumber;
    node->valueint = Value;
    node->valuedouble = Value;
    return 0;
}

int JSON_Misc_GetString(void* Ctx, const char* Path, char** Value)
{
    return GetMember(Ctx, Path, &cJSON::valuestring, Value);
}

int JSON_Misc_GetInt(void* Ctx, const char* Path, int* Value)
{
    return GetMember(Ctx, Path, &cJSON::valueint, Value);
}

int JSON_Misc_SetHexData(void* Ctx, const char* Path, const unsigned char* Value, int Length)
{
    return SetBytes(Ctx, Path, Value, Length, JSON_Misc_Bytes2Hex);
}

int JSON_Misc_GetHexData(void* Ctx, const char* Path, unsigned char** Value, int* Length)
{
    return GetBytes(Ctx, Path, JSON_Misc_Hex2Bytes, Value, Length);
}

int JSON_Misc_SetB64Data(void* Ctx, const char* Path, const unsigned char* Value, int Length)
{
    return SetBytes(Ctx, Path, Value, Length, JSON_Misc_Bytes2Base);
}

int JSON_Misc_GetB64Data(void* Ctx, const char* Path, unsigned char** Value, int* Length)
{
    return GetBytes(Ctx, Path, JSON_Misc_Base2Bytes, Value, Length);
}

int JSON_Misc_SetNodeArrayType(void* Ctx)
{
    if (Ctx == nullptr)
        return FailWith(EINVAL, Message::JsonNull);
    AsNode(Ctx)->type = kJsonArray;
    return 0;
}

int JSON_Misc_IsNodeArrayType(void* Ctx)
{
    const cJSON* const node = AsNode(Ctx);
    if (node == nullptr)
        return 0;
    const int type = TypeOf(node);
    return type == kJsonArray || (node->bArray != 0 && type != kJsonObject) ? 1 : 0;
}

int JSON_Misc_CreateObjectNode(void* Ctx, void** NewNode)
{
    if (Ctx == nullptr)
        return FailWith(EINVAL, Message::JsonNull);
    if (NewNode == nullptr)
        return RefuseArgument();
    cJSON* node = nullptr;
    if (const int error = JSON_Misc_AddNode(AsNode(Ctx), nullptr, kJsonObject, &node))
        return error;
    *NewNode = node;
    return 0;
}

int JSON_Misc_SetStringArray(void* Ctx, const unsigned char* Value)
{
    if (Ctx == nullptr)
        return FailWith(EINVAL, Message::JsonNull);
    MallocPtr<char> text = Copy(OrEmpty(reinterpret_cast<const char*>(Value)));
    if (text == nullptr)
        return FailWith(kJsonNoMemory, Message::JsonNoValue);
    return AddElement(Ctx, std::move(text));
}

int JSON_Misc_SetHexArray(void* Ctx, const unsigned char* Value, int Length)
{
    return AddBytes(Ctx, Value, Length, JSON_Misc_Bytes2Hex);
}

int JSON_Misc_SetB64Array(void* Ctx, const unsigned char* Value, int Length)
{
    return AddBytes(Ctx, Value, Length, JSON_Misc_Bytes2Base);
}

int JSON_Misc_GetArrayInfo(void* Ctx, const char* Path, int* Count, size_t** NodeList)
{
    cJSON* array = nullptr;
    if (const int error = Find(Ctx, Path, false, &array))
        return error;
    if (Count == nullptr || NodeList == nullptr)
        return RefuseArgument();
    if (TypeOf(array) != kJsonArray)
        return FailWith(EINVAL, Message::JsonNoArray);
    size_t count = 0;
    for (const cJSON* node = array->child; node != nullptr; node = node->next)
        ++count;
    if (count > INT_MAX)
        return RefuseArgument();
    MallocPtr<size_t> list(count == 0 ? nullptr : static_cast<size_t*>(reallocarray(nullptr, count, sizeof(size_t))));
    if (list == nullptr && count > 0)
        return FailWith(kJsonNoMemory, Message::JsonListNoMemory);
    size_t* next = list.get();
    for (cJSON* node = array->child; node != nullptr; node = node->next) {
        node->bArray = 1;
        *next++ = reinterpret_cast<size_t>(node);
    }
    *Count = static_cast<int>(count);
    *NodeList = list.release();
    return 0;
}

int JSON_Misc_GetHexArray(void* Ctx, unsigned char** Value, int* Length)
{
    if (Ctx == nullptr)
        return FailWith(EINVAL, Message::JsonNull);
    return DecodeNode(AsNode(Ctx), JSON_Misc_Hex2Bytes, Value, Length);
}

int JSON_Misc_GetB64Array(void* Ctx, unsigned char** Value, int* Length)
{
    if (Ctx == nullptr)
        return FailWith(EINVAL, Message::JsonNull);
    return DecodeNode(AsNode(Ctx), JSON_Misc_Base2Bytes, Value, Length);
}
