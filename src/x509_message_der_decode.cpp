// Mode 0: tag, length, value. Decoding.
#include <errno.h>

#include <utility>

#include "internal/x509.h"
#include "internal/x509_message_der.h"
#include "messages_gbk.h"

using namespace der;

namespace {

using Bytes = const unsigned char*;

/// A record that is being decoded, and the array of records in it that is.
struct DecodeFrame {
    char* record;
    const Item* item;
    size_t size; ///< of the record
    Bytes end;   ///< of its content
    int next;
    int left;
    char* element;
    const Item* elementItem;
};

/// Reads the length at `*at`; 0 or a code.
[[gnu::noinline]] int ReadLength(Bytes* at, Bytes end, uint32_t* length)
{
    if (*at == end)
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgLengthBeyondEnd);
    const unsigned first = *(*at)++;
    *length = first;
    if (first <= kShortForm)
        return 0;
    const unsigned width = first & ~unsigned{kLongForm};
    if (width > kLongestWidth)
        return FailX509(ZKQ_MSG_TOO_LONG, Message::MsgLengthTooWide);
    if (static_cast<size_t>(end - *at) < width)
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgLengthBeyondEnd);
    *length = 0;
    for (unsigned i = 0; i < width; ++i)
        *length = *length << 8 | *(*at)++;
    return *length <= kLongest ? 0 : FailX509(ZKQ_MSG_TOO_LONG, Message::MsgLengthTooLarge);
}

/// Goes behind a header; 0, with where the content ends, or a code.
inline int ReadHeader(Bytes* at, Bytes end, int expected, Bytes* contentEnd)
{
    if (*at == end)
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgBeyondEnd);
    const int tag = *(*at)++ & kTagNumber;
    uint32_t length = 0;
    if (*at != end && **at <= kShortForm)
        length = *(*at)++;
    else if (const int error = ReadLength(at, end, &length))
        return error;
    if (length > static_cast<size_t>(end - *at))
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgBeyondEnd);
    if (tag != expected)
        return FailX509(ZKQ_MSG_WRONG_TAG, Message::MsgWrongTag);
    *contentEnd = *at + length;
    return 0;
}

template <class T>
int StoreInteger(const Slot& slot, Bytes content, size_t length, const char* message)
{
    if (length != sizeof(T))
        return FailX509(ZKQ_MSG_BAD_LENGTH, message);
    if (slot.room < sizeof(T))
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    Store(slot.target, BigEndian(Load<T>(content)));
    return 0;
}

/// The part of a buffer that may be written.
size_t CapacityOf(const Slot& slot)
{
    return std::min(slot.room, static_cast<size_t>(std::max(slot.capacity, 0)));
}

void StoreCount(const Slot& slot, size_t count)
{
    if (slot.count != nullptr)
        Store(slot.count, static_cast<int32_t>(count));
}

int StoreText(const Slot& slot, Bytes content, size_t length)
{
    if (length > CapacityOf(slot))
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgBytesTooLong);
    memcpy(slot.target, content, length);
    return 0;
}

int StoreBytes(const Slot& slot, Bytes content, size_t length)
{
    if (length > CapacityOf(slot))
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgBytesTooLong);
    memcpy(slot.target, content, length);
    StoreCount(slot, length);
    return 0;
}

int StoreIntegers(const Slot& slot, Bytes content, size_t length)
{
    if (length > CapacityOf(slot))
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgIntsTooLong);
    CopyIntegers(reinterpret_cast<unsigned char*>(slot.target), reinterpret_cast<const char*>(content), length);
    StoreCount(slot, length / sizeof(uint32_t));
    return 0;
}

/// Makes a field point into the input.
int StorePointer(const Slot& slot, Bytes content, bool isNull)
{
    if (slot.room < sizeof(void*))
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    Store(slot.target, isNull ? nullptr : content);
    return 0;
}

int PointToText(const Slot& slot, Bytes content, size_t length)
{
    if (length > 0 && content[length - 1] != '\0' && memchr(content, '\0', length) == nullptr)
        return FailX509(ZKQ_MSG_BAD_LENGTH, Message::MsgTextNotEnded);
    return StorePointer(slot, content, length == 0);
}

int PointToBytes(const Slot& slot, Bytes content, size_t length)
{
    StoreCount(slot, length);
    return StorePointer(slot, content, false);
}

/// The input is turned into the machine's order where it is.
int PointToIntegers(const Slot& slot, Bytes content, size_t length)
{
    auto* const integers = const_cast<unsigned char*>(content);
    CopyIntegers(integers, reinterpret_cast<const char*>(content), length);
    StoreCount(slot, length / sizeof(uint32_t));
    return StorePointer(slot, content, length == 0);
}

[[gnu::always_inline]] inline int StoreSimple(const Slot& slot, int kind, Bytes content, size_t length)
{
    switch (kind) {
    case ZKQ_MSG_KIND_INT32:
        return StoreInteger<uint32_t>(slot, content, length, Message::MsgBadInt32);
    case ZKQ_MSG_KIND_INT64:
    case ZKQ_MSG_KIND_PTR:
        return StoreInteger<uint64_t>(slot, content, length, Message::MsgBadInt64);
    case ZKQ_MSG_KIND_STRING:
        return StoreText(slot, content, length);
    case ZKQ_MSG_KIND_STRINGPTR:
        return PointToText(slot, content, length);
    case ZKQ_MSG_KIND_BYTEARRAY:
        return StoreBytes(slot, content, length);
    case ZKQ_MSG_KIND_BYTEARRAYPTR:
        return PointToBytes(slot, content, length);
    case ZKQ_MSG_KIND_INTARRAY:
        return StoreIntegers(slot, content, length);
    case ZKQ_MSG_KIND_INTARRAYPTR:
        return PointToIntegers(slot, content, length);
    default:
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
    }
}

class Decoding {
public:
    Decoding(Bytes in, size_t length) : at_(in), end_(in + length) {}

    int Run(const Slot& top, const Item* item, size_t size)
    {
        int error = Decode(top, item, size, end_);
        while (error == 0 && !open_.IsEmpty())
            error = Step(open_.Top());
        if (error == 0)
            allocations_.HandOver();
        return error;
    }

private:
    int Step(DecodeFrame& frame)
    {
        if (frame.left > 0)
            return Element(frame);
        while (frame.next < frame.item->Count && at_ != frame.end) {
            const Field& field = frame.item->Templates[frame.next++];
            const Item* const item = ItemOf(field);
            if (item == nullptr)
                return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
            if (item->IsStruct != 0 || field.Type >= ZKQ_MSG_KIND_RECORD)
                return Next(frame, field, item);
            const bool isNull = IsPointerKind(field.Type) && frame.end - at_ >= 2 && at_[1] == 0;
            if (const int error = isNull ? Null(frame, field) : Simple(frame, field, item))
                return error;
        }
        at_ = frame.end;
        open_.Pop();
        return 0;
    }
    int Null(const DecodeFrame& frame, const Field& field)
    {
        ClearPointer(frame.record + field.Offset);
        at_ += 2;
        return 0;
    }
    int Simple(const DecodeFrame& frame, const Field& field, const Item* item)
    {
        if (IsPointerKind(field.Type) && frame.end - at_ < 2)
            return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgBadPointer);
        Bytes contentEnd = nullptr;
        if (const int error = ReadHeader(&at_, frame.end, item->DataType, &contentEnd))
            return error;
        const Bytes content = std::exchange(at_, contentEnd);
        return StoreSimple(FieldSlot(frame.record, field), item->DataType, content,
                           static_cast<size_t>(contentEnd - content));
    }
    /// A field that is an array of records, or holds or points to one.
    int Next(DecodeFrame& frame, const Field& field, const Item* item)
    {
        if (IsRecordArray(field.Type))
            return BeginArray(frame, field, item);
        if (IsPointerKind(field.Type)) {
            if (frame.end - at_ < 2)
                return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgBadPointer);
            if (at_[1] == 0)
                return Null(frame, field);
        }
        if (field.Type == ZKQ_MSG_KIND_RECORDPTR)
            return Pointed(frame, field, item);
        if (field.Type == ZKQ_MSG_KIND_VALUESPTR && item->IsStruct == 1) // it would not fit into the pointer
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        const size_t rest = frame.size - std::min<size_t>(frame.size, field.Offset);
        const size_t size = field.SizeofStruct > 0 ? std::min(rest, static_cast<size_t>(field.SizeofStruct)) : rest;
        return Decode(FieldSlot(frame.record, field), item, size, frame.end);
    }
    int Pointed(const DecodeFrame& frame, const Field& field, const Item* item)
    {
        if (field.SizeofStruct <= 0)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        const auto size = static_cast<size_t>(field.SizeofStruct);
        auto* const block = static_cast<char*>(allocations_.Zeros(1, size));
        if (block == nullptr)
            return FailX509(ZKQ_MSG_NO_MEMORY, Message::MsgNoRecord);
        Store(frame.record + field.Offset, block);
        return Decode(ElementSlot(block, field), item, size, frame.end);
    }
    int BeginArray(DecodeFrame& frame, const Field& field, const Item* item)
    {
        uint32_t count = 0;
        if (const int error = ReadArrayHeader(frame, &count))
            return error;
        if (field.SizeofStruct <= 0)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        char* const place = frame.record + field.Offset;
        char* elements = place;
        if (field.Type == ZKQ_MSG_KIND_RECORDS) {
            if (size_t{count} * static_cast<size_t>(field.SizeofStruct) > InlineRoom(frame.item, frame.size, field))
                return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgArrayBeyondEnd);
        } else if (count > 0) {
            if (LoadPointer(place) != nullptr) // another field's: nobody knows how much there is
                return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
            elements = static_cast<char*>(allocations_.Zeros(count, static_cast<size_t>(field.SizeofStruct)));
            if (elements == nullptr)
                return FailX509(ZKQ_MSG_NO_MEMORY, Message::MsgNoRecord);
            Store(place, elements);
        }
        Store(frame.record + field.ArraySizeOffset, count);
        frame.element = elements;
        frame.elementItem = item;
        frame.left = static_cast<int>(count);
        return 0;
    }
    /// Goes behind the header of an array that can have as many elements as it says.
    int ReadArrayHeader(const DecodeFrame& frame, uint32_t* count)
    {
        if (frame.end - at_ < kArrayHeader)
            return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgArrayBeyondEnd);
        if (at_[0] != kArrayTag)
            return FailX509(ZKQ_MSG_WRONG_TAG, Message::MsgArrayWrongTag);
        if (at_[1] != kArrayLength)
            return FailX509(ZKQ_MSG_BAD_LENGTH, Message::MsgArrayBadLength);
        *count = BigEndian(Load<uint32_t>(at_ + 2));
        at_ += kArrayHeader;
        if (*count > static_cast<size_t>(frame.end - at_) / kSmallestElement)
            return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgArrayBeyondEnd);
        return 0;
    }
    int Element(DecodeFrame& frame)
    {
        const Field& field = frame.item->Templates[frame.next - 1];
        char* const element = frame.element;
        frame.element += field.SizeofStruct;
        --frame.left;
        return Decode(ElementSlot(element, field), frame.elementItem, static_cast<size_t>(field.SizeofStruct),
                      frame.end);
    }
    int Decode(const Slot& slot, const Item* item, size_t size, Bytes end)
    {
        Bytes contentEnd = nullptr;
        if (item->IsStruct == 0) {
            if (const int error = ReadHeader(&at_, end, item->DataType, &contentEnd))
                return error;
            const Bytes content = at_;
            at_ = contentEnd;
            return StoreSimple(slot, item->DataType, content, static_cast<size_t>(contentEnd - content));
        }
        if (item->IsStruct != 1)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgBadIsStruct);
        if (const int error = ReadHeader(&at_, end, kRecordTag & kTagNumber, &contentEnd))
            return error;
        return open_.Push({slot.target, item, size, contentEnd, 0, 0, nullptr, nullptr})
                   ? 0
                   : FailX509(ZKQ_MSG_NO_MEMORY, Message::XmlMallocFailed);
    }

    Bytes at_;
    Bytes end_;
    GrowingStack<DecodeFrame, 4> open_;
    Allocations allocations_;
};

} // namespace

int DecodeDer(char* val, size_t Size, const unsigned char* in, int len, const Item* it)
{
    if (in == nullptr && len > 0)
        return EINVAL;
    const Slot top = {val, it->Temp == 0 ? nullptr : val + it->Temp, it->BuffSize, Size};
    const int error = Decoding(in, static_cast<size_t>(std::max(len, 0))).Run(top, it, Size);
    if (error != 0 && it->IsStruct == 1)
        Detach(val, Size, it);
    return error;
}
