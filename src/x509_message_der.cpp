// Mode 0: tag, length, value.
#include <errno.h>

#include "internal/x509.h"
#include "internal/x509_message.h"
#include "messages_gbk.h"

namespace {

constexpr unsigned char kRecordTag = 0x30;
constexpr unsigned char kTagNumber = 0x1F; ///< the bits of a tag that are compared
constexpr unsigned char kLongForm = 0x80;
constexpr int kShortForm = 127; ///< the longest length of one byte
constexpr unsigned char kArrayTag = 0x40;
constexpr unsigned char kArrayLength = 4;
constexpr int kArrayHeader = 6;
constexpr int kSmallestElement = 2; ///< bytes of one with nothing in it
constexpr unsigned kLongestWidth = 4;
constexpr uint32_t kLongest = 0xFFFFFF;

/// Bytes that a length takes behind 0x80 | n.
constexpr int WidthOf(uint32_t length)
{
    return static_cast<int>(std::bit_width(length) + 7) / 8;
}

/// Bytes of a tag and a length.
constexpr int HeaderSize(int length)
{
    return length <= kShortForm ? 2 : 2 + WidthOf(static_cast<uint32_t>(length));
}

template <class T>
T BigEndian(T value)
{
    if constexpr (sizeof(T) == 4)
        return __builtin_bswap32(value);
    else
        return __builtin_bswap64(value);
}
static_assert(std::endian::native == std::endian::little);

/// Integers from one order of bytes into the other; bytes behind the last whole one as they are.
void CopyIntegers(unsigned char* to, const char* from, size_t size)
{
    const size_t whole = size - size % sizeof(uint32_t);
    for (size_t i = 0; i < whole; i += sizeof(uint32_t))
        Store(to + i, BigEndian(Load<uint32_t>(from + i)));
    memcpy(to + whole, from + whole, size - whole);
}

// Encoding

/// A record that is being encoded, and the array of records in it that is.
struct EncodeFrame {
    const char* record;
    const Item* item;
    int next; ///< the field after the present one
    int left; ///< elements of the array that are still to come
    size_t slot;
    const char* element;
    const Item* elementItem;
};

/// Adds up sizes. Those of the records are kept, in the order in which records begin, so that each is found once.
class Sizer {
public:
    int Simple(const Value& /*value*/, int length) { return Add(int64_t{length} + HeaderSize(length)); }
    int NullRecord() { return Add(2); }
    int ArrayHeader(int /*count*/) { return Add(kArrayHeader); }
    int BeginRecord(size_t* slot)
    {
        *slot = sizes_.Size();
        return sizes_.Push(total_) ? 0 : FailX509(ZKQ_MSG_NO_MEMORY, Message::XmlMallocFailed);
    }
    int EndRecord(size_t slot)
    {
        sizes_[slot] = total_ - sizes_[slot];
        return Add(HeaderSize(sizes_[slot]));
    }

    int Total() const { return total_; }
    int SizeOf(size_t record) const { return sizes_[record]; }

private:
    int Add(int64_t size)
    {
        if (size > INT_MAX - total_)
            return ZKQ_MSG_TOO_LONG;
        total_ += static_cast<int>(size);
        return 0;
    }

    GrowingStack<int, 64> sizes_;
    int total_ = 0;
};

/// Writes. Unless the room is known to do, every byte is taken from a budget; but the one that begins a long length.
template <bool kHasBudget>
class Writer {
public:
    Writer(const Sizer& sizes, unsigned char* to, int budget) : sizes_(sizes), to_(to), budget_(budget) {}

    int Simple(const Value& value, int length)
    {
        if (const int error = Header(static_cast<unsigned char>(value.item->DataType), length))
            return error;
        if (length == 0)
            return 0;
        if (!Take(length))
            return FailX509(ZKQ_MSG_TOO_SHORT, NoRoomFor(value.item->DataType));
        Content(value, static_cast<size_t>(length));
        to_ += length;
        return 0;
    }
    int NullRecord()
    {
        if (!Take(2))
            return ZKQ_MSG_TOO_SHORT;
        *to_++ = kRecordTag;
        *to_++ = 0;
        return 0;
    }
    /// Without room for it the array goes on without.
    int ArrayHeader(int count)
    {
        if (!Take(kArrayHeader))
            return FailX509(0, Message::MsgNoRoomForArray);
        *to_++ = kArrayTag;
        *to_++ = kArrayLength;
        Store(to_, BigEndian(static_cast<uint32_t>(count)));
        to_ += sizeof(uint32_t);
        return 0;
    }
    int BeginRecord(size_t* /*slot*/) { return Header(kRecordTag, sizes_.SizeOf(nextRecord_++)); }
    int EndRecord(size_t /*slot*/) { return 0; }

    unsigned char* End() const { return to_; }

private:
    bool Take(int count)
    {
        if constexpr (kHasBudget) {
            if (budget_ < count)
                return false;
            budget_ -= count;
        }
        return true;
    }
    int Header(unsigned char tag, int length)
    {
        if (!Take(1))
            return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgNoRoomForTag);
        *to_++ = tag;
        if (length > kShortForm)
            return LongLength(static_cast<uint32_t>(length));
        if (!Take(1))
            return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgNoRoomForLength);
        *to_++ = static_cast<unsigned char>(length);
        return 0;
    }
    int LongLength(uint32_t length)
    {
        int width = WidthOf(length);
        *to_++ = static_cast<unsigned char>(kLongForm | width); // of which the budget knows nothing
        while (width-- > 0) {
            if (!Take(1))
                return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgNoRoomForLength);
            *to_++ = static_cast<unsigned char>(length >> 8 * width);
        }
        return 0;
    }
    void Content(const Value& value, size_t length)
    {
        switch (value.item->DataType) {
        case ZKQ_MSG_KIND_INT32:
            return Store(to_, BigEndian(Load<uint32_t>(value.object)));
        case ZKQ_MSG_KIND_INT64:
        case ZKQ_MSG_KIND_PTR:
            return Store(to_, BigEndian(Load<uint64_t>(value.object)));
        case ZKQ_MSG_KIND_STRING:
        case ZKQ_MSG_KIND_STRINGPTR:
            memcpy(to_, value.object, length - 1);
            to_[length - 1] = '\0'; // a full buffer has none
            return;
        case ZKQ_MSG_KIND_INTARRAY:
        case ZKQ_MSG_KIND_INTARRAYPTR:
            return CopyIntegers(to_, value.object, length);
        default:
            memcpy(to_, value.object, length);
        }
    }
    static const char* NoRoomFor(int kind)
    {
        switch (kind) {
        case ZKQ_MSG_KIND_INT32:
            return Message::MsgNoRoomForInt32;
        case ZKQ_MSG_KIND_INT64:
        case ZKQ_MSG_KIND_PTR:
            return Message::MsgNoRoomForInt64;
        case ZKQ_MSG_KIND_INTARRAY:
        case ZKQ_MSG_KIND_INTARRAYPTR:
            return Message::MsgNoRoomForInts;
        default:
            return Message::MsgNoRoomForBytes;
        }
    }

    const Sizer& sizes_;
    size_t nextRecord_ = 0;
    unsigned char* to_;
    int budget_;
};

/// Bytes of a text with its NUL, also of one that fills its buffer without any.
int TextSize(const Value& value)
{
    const bool hasBuffer = value.item->DataType == ZKQ_MSG_KIND_STRING && value.capacity > 0;
    const size_t size =
        hasBuffer ? strnlen(value.object, static_cast<size_t>(value.capacity)) : strlen(value.object);
    return size < INT_MAX ? static_cast<int>(size) + 1 : ZKQ_MSG_TOO_LONG;
}

/// The length of a simple value's content, or a negative code.
int ContentLength(const Value& value)
{
    switch (value.item->DataType) {
    case ZKQ_MSG_KIND_INT32:
        return value.object == nullptr ? 0 : static_cast<int>(sizeof(uint32_t));
    case ZKQ_MSG_KIND_INT64:
    case ZKQ_MSG_KIND_PTR:
        return value.object == nullptr ? 0 : static_cast<int>(sizeof(uint64_t));
    case ZKQ_MSG_KIND_STRING:
    case ZKQ_MSG_KIND_STRINGPTR:
        return value.object == nullptr ? 0 : TextSize(value);
    case ZKQ_MSG_KIND_BYTEARRAY:
    case ZKQ_MSG_KIND_BYTEARRAYPTR:
    case ZKQ_MSG_KIND_INTARRAY:
    case ZKQ_MSG_KIND_INTARRAYPTR:
        return value.object == nullptr ? 0 : value.length;
    default:
        return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotEncode);
    }
}

/// Walks over a record and all below it, in the order of the encoding.
template <class Sink>
class Encoding {
public:
    explicit Encoding(Sink& sink) : sink_(sink) {}

    int Run(const Value& top)
    {
        int error = Encode(top);
        while (error == 0 && !open_.IsEmpty())
            error = Step(open_.Top());
        return error;
    }

private:
    int Step(EncodeFrame& frame)
    {
        if (frame.left > 0)
            return Element(frame);
        if (frame.next < frame.item->Count)
            return Next(frame, frame.item->Templates[frame.next++]);
        const size_t slot = frame.slot;
        open_.Pop();
        return sink_.EndRecord(slot);
    }
    int Next(EncodeFrame& frame, const Field& field)
    {
        const Item* const item = ItemOf(field);
        if (item == nullptr)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotEncode);
        if (IsRecordArray(field.Type))
            return BeginArray(frame, field, item);
        Value value;
        if (const int error = FieldValue(frame.record, field, item, &value))
            return error;
        return Encode(value);
    }
    int BeginArray(EncodeFrame& frame, const Field& field, const Item* item)
    {
        const int count = ArrayCount(frame.record, field);
        if (count < 0)
            return count;
        const char* const place = frame.record + field.Offset;
        frame.element = field.Type == ZKQ_MSG_KIND_RECORDS ? place : LoadPointer(place);
        frame.elementItem = item;
        frame.left = count;
        return sink_.ArrayHeader(count);
    }
    int Element(EncodeFrame& frame)
    {
        const Field& field = frame.item->Templates[frame.next - 1];
        const Value value = ElementValue(frame.element, field, frame.elementItem);
        frame.element += field.SizeofStruct;
        --frame.left;
        return Encode(value);
    }
    int Encode(const Value& value)
    {
        if (value.item->IsStruct == 0) {
            const int length = ContentLength(value);
            return length < 0 ? length : sink_.Simple(value, length);
        }
        if (value.item->IsStruct != 1)
            return 0;
        return value.object == nullptr ? sink_.NullRecord() : Enter(value);
    }
    int Enter(const Value& value)
    {
        if (ClosesLoop(open_, value.object, value.item))
            return FailX509(ZKQ_MSG_TOO_LONG, Message::MsgEndless);
        size_t slot = 0;
        if (const int error = sink_.BeginRecord(&slot))
            return error;
        return open_.Push({value.object, value.item, 0, 0, slot, nullptr, nullptr})
                   ? 0
                   : FailX509(ZKQ_MSG_NO_MEMORY, Message::XmlMallocFailed);
    }

    Sink& sink_;
    GrowingStack<EncodeFrame, 4> open_;
};

/// Writes an encoding whose sizes are known; 0 or a code.
template <bool kHasBudget>
int Write(const Value& top, const Sizer& sizes, unsigned char** to, int budget)
{
    Writer<kHasBudget> writer(sizes, *to, budget);
    const int error = Encoding(writer).Run(top);
    if (error == 0)
        *to = writer.End();
    return error;
}

// Decoding

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
int ReadLength(Bytes* at, Bytes end, uint32_t* length)
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
int ReadHeader(Bytes* at, Bytes end, int expected, Bytes* contentEnd)
{
    if (*at == end)
        return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgBeyondEnd);
    const int tag = *(*at)++ & kTagNumber;
    uint32_t length = 0;
    if (const int error = ReadLength(at, end, &length))
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
    const size_t capacity = CapacityOf(slot);
    if (length > capacity || (length > 0 && length == capacity && memchr(content, '\0', length) == nullptr))
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
    if (length > 0 && memchr(content, '\0', length) == nullptr)
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

int StoreSimple(const Slot& slot, int kind, Bytes content, size_t length)
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
        if (frame.next < frame.item->Count && at_ != frame.end)
            return Next(frame, frame.item->Templates[frame.next++]);
        at_ = frame.end;
        open_.Pop();
        return 0;
    }
    int Next(DecodeFrame& frame, const Field& field)
    {
        const Item* const item = ItemOf(field);
        if (item == nullptr)
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        if (IsRecordArray(field.Type))
            return BeginArray(frame, field, item);
        if (IsPointerKind(field.Type)) {
            if (frame.end - at_ < 2)
                return FailX509(ZKQ_MSG_TOO_SHORT, Message::MsgBadPointer);
            if (at_[1] == 0) {
                ClearPointer(frame.record + field.Offset);
                at_ += 2;
                return 0;
            }
        }
        if (field.Type == ZKQ_MSG_KIND_RECORDPTR)
            return Pointed(frame, field, item);
        if (field.Type == ZKQ_MSG_KIND_VALUESPTR && item->IsStruct == 1) // it would not fit into the pointer
            return FailX509(ZKQ_MSG_UNSUPPORTED, Message::MsgCannotDecode);
        const size_t rest = frame.size - std::min<size_t>(frame.size, field.Offset);
        const size_t size =
            field.SizeofStruct > 0 ? std::min(rest, static_cast<size_t>(field.SizeofStruct)) : rest;
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

int EncodeDer(const char* val, unsigned char** out, int max, const Item* it)
{
    const Value top = {val, it, it->Temp, it->BuffSize};
    Sizer sizes;
    if (const int error = Encoding(sizes).Run(top))
        return error;
    const int total = sizes.Total();
    if (out == nullptr)
        return total;
    if (*out != nullptr) {
        const int error = max >= total ? Write<false>(top, sizes, out, 0) : Write<true>(top, sizes, out, max);
        return error == 0 ? total : error;
    }
    MallocPtr<unsigned char> buffer(static_cast<unsigned char*>(malloc(static_cast<size_t>(std::max(total, 1)))));
    if (buffer == nullptr)
        return ZKQ_MSG_NO_MEMORY;
    unsigned char* end = buffer.get();
    if (const int error = Write<false>(top, sizes, &end, 0))
        return error;
    *out = buffer.release();
    return total;
}

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
