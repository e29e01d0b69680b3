// The walks over a record and a document that XML and JSON share.
#include "internal/x509_message_tree.h"

#include <errno.h>

#include "internal/x509.h"
#include "messages_gbk.h"

namespace {

// A document can send a template that refers to itself round its nodes; so the records that come of a text are counted.
constexpr size_t kRecordsAtLeast = 65536;
constexpr size_t kRecordsPerByte = 16;

/// No path, "" and "@" are the node itself.
bool IsNodeItself(const char* path)
{
    return path == nullptr || *path == '\0' || strcmp(path, "@") == 0;
}

/// A path as it is looked up: without one "/" at its end, and then without one "@". Null without memory.
MallocPtr<char> NormalisedPath(const char* path)
{
    size_t length = strlen(path);
    if (length > 1 && path[length - 1] == '/')
        --length;
    if (length > 0 && path[length - 1] == '@')
        --length;
    return MallocPtr<char>(strndup(path, length));
}

TreeValue PlaceOf(const char* name, const char* path)
{
    return {name, path != nullptr && strchr(path, '@') != nullptr};
}

/// An INT32 behind a pointer to a record stands for a record that is never there.
bool IsNullMarker(const TreeFormat& format, const Field& field, const Item* item)
{
    return format.isJson && field.Type == ZKQ_MSG_KIND_RECORDPTR && item == ZKQGeneral_INT32_it();
}

bool IsArray(const TreeFormat& format, const Field& field)
{
    return IsRecordArray(field.Type) || (format.isJson && field.Type == ZKQ_MSG_KIND_VALUESPTR);
}

/// A record that is being encoded, and the array in it that is.
struct PutFrame {
    const char* record;
    const Item* item;
    void* node;
    int next;
    int left;
    const char* element;
    const Item* elementItem;
    ArrayTarget array;
};

class TreeWriter {
public:
    explicit TreeWriter(const TreeFormat& format) : format_(format) {}

    int Run(const Value& top, void* document)
    {
        int error = Put(document, top, PlaceOf(top.item->NodeName, top.item->XPath));
        while (error == 0 && !open_.IsEmpty())
            error = Step(open_.Top());
        return error;
    }

private:
    int Step(PutFrame& frame)
    {
        if (frame.left > 0)
            return Element(frame);
        if (frame.next < frame.item->Count)
            return Next(frame, frame.item->Templates[frame.next++]);
        open_.Pop();
        return 0;
    }
    int Next(PutFrame& frame, const Field& field)
    {
        const Item* const item = ItemOf(field);
        if (item == nullptr)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotEncode);
        if (IsArray(format_, field))
            return BeginArray(frame, field, item);
        Value value;
        if (const int error = FieldValue(frame.record, field, item, &value))
            return error;
        if (format_.isJson && (value.object == nullptr || IsNullMarker(format_, field, item)))
            return 0;
        void* node = nullptr;
        if (const int error = FindNode(format_, frame.node, field.XPath, true, &node))
            return error;
        return Put(node, value, PlaceOf(field.FieldName, field.XPath));
    }
    int BeginArray(PutFrame& frame, const Field& field, const Item* item)
    {
        const int count = ArrayCount(frame.record, field);
        if (count < 0)
            return count;
        if (const int error = format_.beginPut(frame.node, field.XPath, count, &frame.array))
            return error;
        const char* const place = frame.record + field.Offset;
        frame.element = IsPointerKind(field.Type) ? LoadPointer(place) : place;
        frame.elementItem = item;
        frame.left = count;
        return 0;
    }
    int Element(PutFrame& frame)
    {
        const Field& field = frame.item->Templates[frame.next - 1];
        Value value = ElementValue(frame.element, field, frame.elementItem);
        frame.element += field.SizeofStruct;
        --frame.left;
        const TreeValue place = PlaceOf(field.FieldName, field.XPath);
        if (value.item->IsStruct == 0 && value.item->DataType == ZKQ_MSG_KIND_BYTEARRAYPTR) // of which number?
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotEncode);
        value.length = field.SizeofStruct; // elements that are bytes have all as many
        if (field.Type == ZKQ_MSG_KIND_VALUESPTR) {
            if (value.item->IsStruct != 0) // which would be an array and an object at once
                return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotEncode);
            return format_.put(frame.array.node, value, place);
        }
        void* node = nullptr;
        if (const int error = format_.addElement(frame.array, &node))
            return error;
        return Put(node, value, place);
    }
    int Put(void* node, const Value& value, const TreeValue& place)
    {
        if (value.item->IsStruct == 0)
            return format_.put(node, value, place);
        if (value.item->IsStruct != 1 || value.object == nullptr)
            return 0;
        if (ClosesLoop(open_, value.object, value.item))
            return FailX509(ZKQ_MSG_TOO_LONG, Message::MsgEndless);
        return open_.Push({value.object, value.item, node, 0, 0, nullptr, nullptr, {}})
                   ? 0
                   : FailX509(ZKQ_MSG_NO_MEMORY, Message::XmlMallocFailed);
    }

    const TreeFormat& format_;
    GrowingStack<PutFrame, 4> open_;
};

/// A record that is being decoded, and the array in it that is.
struct GetFrame {
    char* record;
    const Item* item;
    size_t size;
    void* node;
    int next;
    int done; ///< elements of the array
    char* element;
    const Item* elementItem;
    STRUCTARRAYCTX array;
};

class TreeReader {
public:
    TreeReader(const TreeFormat& format, size_t length)
        : format_(format), recordsLeft_(kRecordsAtLeast + kRecordsPerByte * length)
    {}
    TreeReader(const TreeReader&) = delete;
    TreeReader& operator=(const TreeReader&) = delete;
    ~TreeReader()
    {
        for (; !open_.IsEmpty(); open_.Pop())
            free(open_.Top().array.NodeList);
    }

    int Run(const Slot& top, const Item* item, void* document)
    {
        int error = Get(document, top, item, top.room, PlaceOf(item->NodeName, item->XPath));
        while (error == 0 && !open_.IsEmpty())
            error = Step(open_.Top());
        if (error == 0)
            allocations_.HandOver();
        return error;
    }

private:
    int Step(GetFrame& frame)
    {
        if (frame.done < frame.array.Count)
            return Element(frame);
        free(frame.array.NodeList);
        frame.array = {};
        frame.done = 0;
        if (frame.next < frame.item->Count)
            return Next(frame, frame.item->Templates[frame.next++]);
        open_.Pop();
        return 0;
    }
    int Next(GetFrame& frame, const Field& field)
    {
        const Item* const item = ItemOf(field);
        if (item == nullptr)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        if (IsArray(format_, field))
            return BeginArray(frame, field, item);
        if (IsNullMarker(format_, field, item))
            return 0;
        void* node = nullptr;
        if (const int error = FindNode(format_, frame.node, field.XPath, false, &node))
            return error;
        if (item->IsStruct == 1 && IsOpen(item, node)) // the end of a template that refers to itself
            return 0;
        if (field.Type == ZKQ_MSG_KIND_RECORDPTR)
            return Pointed(frame, field, item, node);
        if (field.Type == ZKQ_MSG_KIND_VALUESPTR && item->IsStruct == 1) // it would not fit into the pointer
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        const size_t rest = frame.size - std::min<size_t>(frame.size, field.Offset);
        const size_t size = field.SizeofStruct > 0 ? std::min(rest, static_cast<size_t>(field.SizeofStruct)) : rest;
        return Get(node, FieldSlot(frame.record, field), item, size, PlaceOf(field.FieldName, field.XPath));
    }
    int Pointed(const GetFrame& frame, const Field& field, const Item* item, void* node)
    {
        if (field.SizeofStruct <= 0)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        const auto size = static_cast<size_t>(field.SizeofStruct);
        auto* const block = static_cast<char*>(allocations_.Zeros(1, size));
        if (block == nullptr)
            return FailX509(ZKQ_MSG_NO_MEMORY, Message::MsgNoRecord);
        Store(frame.record + field.Offset, block);
        return Get(node, ElementSlot(block, field), item, size, PlaceOf(field.FieldName, field.XPath));
    }
    int BeginArray(GetFrame& frame, const Field& field, const Item* item)
    {
        char* const place = frame.record + field.Offset;
        char* const countPlace = frame.record + field.ArraySizeOffset;
        Store<int32_t>(countPlace, 0);
        if (const int error = format_.beginGet(frame.node, field.XPath, &frame.array))
            return error;
        if (field.SizeofStruct <= 0 || (field.Type == ZKQ_MSG_KIND_VALUESPTR && item->IsStruct != 0))
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        const auto count = static_cast<size_t>(frame.array.Count);
        const auto step = static_cast<size_t>(field.SizeofStruct);
        char* elements = place;
        if (field.Type == ZKQ_MSG_KIND_RECORDS) {
            if (count * step > InlineRoom(frame.item, frame.size, field))
                return FailX509(ZKQ_MSG_TOO_SHORT, Message::XmlOutOfRange);
        } else if (count > 0) {
            if (LoadPointer(place) != nullptr) // another field's: nobody knows how much there is
                return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
            elements = static_cast<char*>(allocations_.Zeros(count, step));
            if (elements == nullptr)
                return FailX509(ZKQ_MSG_NO_MEMORY, Message::MsgNoRecord);
            Store(place, elements);
        }
        Store(countPlace, static_cast<int32_t>(count));
        frame.element = elements;
        frame.elementItem = item;
        return 0;
    }
    int Element(GetFrame& frame)
    {
        const Field& field = frame.item->Templates[frame.next - 1];
        char* const element = frame.element;
        void* const node = frame.array.NodeList[frame.done++];
        frame.element += field.SizeofStruct;
        return Get(node, ElementSlot(element, field), frame.elementItem, static_cast<size_t>(field.SizeofStruct),
                   PlaceOf(field.FieldName, field.XPath));
    }
    int Get(void* node, const Slot& slot, const Item* item, size_t size, const TreeValue& place)
    {
        if (item->IsStruct == 0)
            return format_.get(node, slot, item, place, &allocations_);
        if (item->IsStruct != 1)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgBadIsStruct);
        if (recordsLeft_-- == 0)
            return FailX509(ZKQ_MSG_TOO_LONG, Message::XmlTooLarge);
        return open_.Push({slot.target, item, size, node, 0, 0, nullptr, nullptr, {}})
                   ? 0
                   : FailX509(ZKQ_MSG_NO_MEMORY, Message::XmlMallocFailed);
    }
    /// A record of this item is being read from the same node. Those of one node follow each other.
    bool IsOpen(const Item* item, const void* node) const
    {
        for (size_t i = open_.Size(); i > 0 && open_[i - 1].node == node; --i)
            if (open_[i - 1].item == item)
                return true;
        return false;
    }

    const TreeFormat& format_;
    size_t recordsLeft_;
    GrowingStack<GetFrame, 4> open_;
    Allocations allocations_;
};

} // namespace

int FindNode(const TreeFormat& format, void* node, const char* path, bool canAdd, void** found)
{
    *found = node;
    if (IsNodeItself(path))
        return 0;
    const MallocPtr<char> copy = NormalisedPath(path);
    if (copy == nullptr)
        return FailX509(ZKQ_MSG_NO_MEMORY, Message::MsgNoPathCopy);
    return format.find(node, copy.get(), canAdd, found);
}

int StoreText(const Slot& slot, const Item* item, const char* text, Allocations* allocations)
{
    if (text == nullptr)
        return 0;
    const size_t size = strlen(text) + 1;
    if (item->DataType == ZKQ_MSG_KIND_STRING) {
        if (size > std::min(slot.room, static_cast<size_t>(std::max(slot.capacity, 0))))
            return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgTextTooLong);
        memcpy(slot.target, text, size);
        return 0;
    }
    if (slot.room < sizeof(char*))
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    void* const copy = allocations->Keep(malloc(size));
    if (copy == nullptr)
        return FailX509(ZKQ_MSG_NO_MEMORY, Message::MsgNoText);
    memcpy(copy, text, size);
    Store(slot.target, copy);
    return 0;
}

int StoreInt32(const Slot& slot, int32_t value)
{
    if (slot.room < sizeof value)
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    Store(slot.target, value);
    return 0;
}

const char* EndedText(const Value& value, MallocPtr<char>* copy)
{
    if (value.object == nullptr)
        return "";
    const auto capacity = static_cast<size_t>(std::max(value.capacity, 0));
    const bool mayBeFull = value.item->DataType == ZKQ_MSG_KIND_STRING && capacity > 0;
    if (!mayBeFull || memchr(value.object, '\0', capacity) != nullptr)
        return value.object;
    copy->reset(strndup(value.object, capacity));
    return copy->get();
}

int EncodeTree(const char* val, const Item* it, void* document, const TreeFormat& format)
{
    return TreeWriter(format).Run({val, it, it->Temp, it->BuffSize}, document);
}

int DecodeTree(char* val, size_t Size, const Item* it, void* document, size_t length, const TreeFormat& format)
{
    const Slot top = {val, it->Temp == 0 ? nullptr : val + it->Temp, it->BuffSize, Size};
    const int error = TreeReader(format, length).Run(top, it, document);
    if (error != 0 && it->IsStruct == 1)
        Detach(val, Size, it);
    return error;
}
