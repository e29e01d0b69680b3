// Mode 1: XML.
#include <ZKQ_general/WQXXMLH.h>
#include <errno.h>

#include "internal/tokenizer.h"
#include "internal/x509.h"
#include "internal/x509_message_tree.h"
#include "internal/xml.h"
#include "internal/xmlh.h"
#include "messages_gbk.h"

namespace {

int Find(void* node, const char* path, bool canAdd, void** found)
{
    return (canAdd ? WQXXMLH_Misc_GetNodeFromPath_AutoAdd : WQXXMLH_GetNodeFromPath)(node, path, found);
}

/// The element that a node stands for, a document's being its root; null if there is none.
XMLNODE* ElementOf(void* node)
{
    WQXXMLH* const document = AsDocument(node);
    if (document != nullptr)
        return ElementFrom(static_cast<XMLNODE*>(document->xml));
    auto* const element = static_cast<XMLNODE*>(node);
    return IsElement(element) ? element : nullptr;
}

int PutText(void* node, const char* text, const TreeValue& place)
{
    XMLNODE* const element = ElementOf(node);
    if (place.isMarked)
        return WQXXML_AddNodeAttribute(element, place.name, text);
    return WQXXML_AddNodeChildItem(element, place.name, text, nullptr);
}

int Put(void* node, const Value& value, const TreeValue& place)
{
    switch (value.item->DataType) {
    case ZKQ_MSG_KIND_INT32: {
        if (value.object == nullptr)
            return 0;
        char digits[16];
        TextBuilder(digits).AddDecimal(Load<uint32_t>(value.object));
        return PutText(node, digits, place);
    }
    case ZKQ_MSG_KIND_STRING:
    case ZKQ_MSG_KIND_STRINGPTR: {
        MallocPtr<char> copy;
        const char* const text = EndedText(value, &copy);
        return text == nullptr ? FailX509(ZKQ_MSG_NO_MEMORY, Message::XmlMallocFailed) : PutText(node, text, place);
    }
    default:
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotEncode);
    }
}

/// The text of a value; null if there is none.
int GetText(void* node, const TreeValue& place, const char** text)
{
    *text = nullptr;
    XMLNODE* const element = ElementOf(node);
    if (!place.isMarked)
        return WQXXML_GetChildKeyValue(element, place.name, text);
    char* value = nullptr;
    const int error = WQXXML_GetAttribute(element, place.name, &value);
    *text = value;
    return error == ENOENT ? 0 : error;
}

int Get(void* node, const Slot& slot, const Item* item, const TreeValue& place, Allocations* allocations)
{
    const int kind = item->DataType;
    if (kind != ZKQ_MSG_KIND_INT32 && kind != ZKQ_MSG_KIND_STRING && kind != ZKQ_MSG_KIND_STRINGPTR)
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    const char* text = nullptr;
    if (const int error = GetText(node, place, &text))
        return error;
    if (kind != ZKQ_MSG_KIND_INT32)
        return StoreText(slot, item, text, allocations);
    return StoreInt32(slot, text == nullptr ? 0 : static_cast<int32_t>(strtol(text, nullptr, 10)));
}

/// Takes the path of an array apart.
struct ArrayPath {
    MallocPtr<char> parent;
    std::string_view element;
    std::string_view count;
    bool isAttribute; ///< the count
};

/// What is logged about the path of an array, and so differs between the directions.
struct ArrayTexts {
    const char* noPath;
    const char* badPath;
    const char* noMemory;
};
constexpr ArrayTexts kPutTexts = {Message::MsgEncodeNoPath, Message::MsgEncodeBadPath, Message::MsgEncodeNoPathMemory};
constexpr ArrayTexts kGetTexts = {Message::MsgDecodeNoPath, Message::MsgDecodeBadPath, Message::MsgDecodeNoPathMemory};

/// The part of a path before its last two segments; null without memory.
MallocPtr<char> ParentPath(std::string_view path, size_t segments)
{
    MallocPtr<char> parent(static_cast<char*>(malloc(path.size() + 2)));
    if (parent == nullptr)
        return parent;
    char* end = parent.get();
    Tokenizer tokens(path, "/");
    for (size_t i = 0; i < segments; ++i) {
        const std::string_view segment = tokens.Next();
        *end++ = '/';
        end += segment.copy(end, segment.size());
    }
    *end = '\0';
    return parent;
}

int SplitArrayPath(const char* text, const ArrayTexts& texts, ArrayPath* path)
{
    if (text == nullptr)
        return FailX509(EINVAL, texts.noPath);
    Tokenizer tokens(text, "/");
    size_t segments = 0;
    for (std::string_view token = tokens.Next(); !token.empty(); token = tokens.Next(), ++segments) {
        path->element = path->count;
        path->count = token;
    }
    if (segments < 3)
        return FailX509(ZKQ_MSG_BAD_LENGTH, texts.badPath);
    path->isAttribute = path->count.ends_with('@');
    if (path->isAttribute)
        path->count.remove_suffix(1);
    path->parent = ParentPath(text, segments - 2);
    return path->parent == nullptr ? FailX509(ZKQ_MSG_NO_MEMORY, texts.noMemory) : 0;
}

/// A child with a text, or without one; 0 or an errno value.
int AddChild(XMLNODE* parent, std::string_view name, const char* text, XMLNODE** child)
{
    if (name.empty())
        return EINVAL;
    *child = NewElement(name, text);
    if (*child == nullptr)
        return ENOMEM;
    LinkNodeChild(parent, *child);
    return 0;
}

int AddCount(XMLNODE* parent, const ArrayPath& path, int count)
{
    char digits[16];
    TextBuilder(digits).AddDecimal(count);
    XMLNODE* child = nullptr;
    if (!path.isAttribute)
        return AddChild(parent, path.count, digits, &child);
    return path.count.empty() ? EINVAL : AddExtensionToNode(parent, path.count, digits);
}

int BeginPut(void* node, const char* text, int count, ArrayTarget* array)
{
    ArrayPath path = {};
    if (const int error = SplitArrayPath(text, kPutTexts, &path))
        return error;
    if (const int error = Find(node, path.parent.get(), true, &array->node))
        return FailX509(error, Message::MsgEncodeNoParent);
    if (const int error = AddCount(static_cast<XMLNODE*>(array->node), path, count))
        return FailX509(error, Message::MsgEncodeNoCount);
    array->name = path.element;
    return 0;
}

int AddElement(const ArrayTarget& array, void** element)
{
    XMLNODE* child = nullptr;
    const int error = AddChild(static_cast<XMLNODE*>(array.node), array.name, nullptr, &child);
    *element = child;
    return error == 0 ? 0 : FailX509(error, Message::MsgEncodeNoElement);
}

/// The text of the first child of a name, or of an attribute; null if there is none.
const char* CountText(const XMLNODE* parent, const ArrayPath& path)
{
    if (path.isAttribute) {
        const EXTENSION* const attribute = FindExtension(parent, path.count);
        return attribute == nullptr ? nullptr : attribute->Value;
    }
    for (const XMLNODE* node = ElementFrom(parent->Child); node != nullptr; node = ElementFrom(node->Next))
        if (EqualNoCase(TextOf(node->Value), path.count))
            return node->Child == nullptr ? nullptr : node->Child->Value;
    return nullptr;
}

/// Calls `found` with each child of a name, until it returns false.
template <class Found>
void ForEachNamed(XMLNODE* parent, std::string_view name, Found found)
{
    for (XMLNODE* node = parent->Child; node != nullptr; node = node->Next)
        if (TextOf(node->Value) == name && !found(node))
            return;
}

int CollectElements(XMLNODE* parent, std::string_view name, long count, STRUCTARRAYCTX* array)
{
    long present = 0;
    if (count > 0)
        ForEachNamed(parent, name, [&](XMLNODE*) { return ++present < count; });
    if (present != count || count > INT_MAX)
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::XmlOutOfRange);
    if (count == 0)
        return 0;
    array->NodeList = static_cast<void**>(reallocarray(nullptr, static_cast<size_t>(count), sizeof(void*)));
    if (array->NodeList == nullptr)
        return FailX509(ZKQ_MSG_NO_MEMORY, Message::MsgDecodeNoList);
    ForEachNamed(parent, name, [&](XMLNODE* node) {
        array->NodeList[array->Count++] = node;
        return array->Count < count;
    });
    return 0;
}

int BeginGet(void* node, const char* text, STRUCTARRAYCTX* array)
{
    *array = {};
    ArrayPath path = {};
    if (const int error = SplitArrayPath(text, kGetTexts, &path))
        return error;
    if (const int error = Find(node, path.parent.get(), true, &array->ParentNode))
        return error;
    auto* const parent = static_cast<XMLNODE*>(array->ParentNode);
    const char* const count = CountText(parent, path);
    return CollectElements(parent, path.element, count == nullptr ? 0 : strtol(count, nullptr, 10), array);
}

} // namespace

const TreeFormat kXmlFormat = {false, Find, Put, Get, BeginPut, AddElement, BeginGet};
