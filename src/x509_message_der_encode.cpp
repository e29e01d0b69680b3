// Mode 0: tag, length, value. Encoding.
#include <span>

#include "internal/text.h"
#include "internal/x509.h"
#include "internal/x509_message_der.h"
#include "messages_gbk.h"

using namespace der;

namespace {

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
    const size_t size = hasBuffer ? strnlen(value.object, static_cast<size_t>(value.capacity)) : strlen(value.object);
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

// A record without others in it, as most are, is encoded in one pass.

constexpr size_t kFlatRoom = 1024;
constexpr size_t kLongestHeader = 2 + kLongestWidth;

/// Copies a few bytes. Where the compiler knows that they are few it writes "rep movs", which takes longer than a call.
inline void CopyFew(unsigned char* to, const char* from, size_t size)
{
    asm("" : "+r"(size)); // now it does not
    CopyShort(reinterpret_cast<char*>(to), {from, size});
}

/// Writes one simple value; where it ends, or null if that takes a closer look.
unsigned char* FlatValue(const Value& value, unsigned char* to, const unsigned char* end)
{
    constexpr ptrdiff_t kHeader = 2;
    const int kind = value.item->DataType;
    const ptrdiff_t room = end - to - kHeader;
    if (value.object == nullptr || room < static_cast<ptrdiff_t>(sizeof(uint64_t)))
        return nullptr;
    ptrdiff_t length = value.length;
    to[0] = static_cast<unsigned char>(kind);
    switch (kind) {
    case ZKQ_MSG_KIND_INT32:
        length = sizeof(uint32_t);
        Store(to + kHeader, BigEndian(Load<uint32_t>(value.object)));
        break;
    case ZKQ_MSG_KIND_INT64:
    case ZKQ_MSG_KIND_PTR:
        length = sizeof(uint64_t);
        Store(to + kHeader, BigEndian(Load<uint64_t>(value.object)));
        break;
    case ZKQ_MSG_KIND_STRING:
    case ZKQ_MSG_KIND_STRINGPTR:
        length = TextSize(value);
        if (length < 0 || length > kShortForm || length > room)
            return nullptr;
        CopyFew(to + kHeader, value.object, static_cast<size_t>(length) - 1);
        to[kHeader + length - 1] = '\0'; // a full buffer has none
        break;
    case ZKQ_MSG_KIND_BYTEARRAY:
    case ZKQ_MSG_KIND_BYTEARRAYPTR:
        if (length < 0 || length > kShortForm || length > room)
            return nullptr;
        CopyFew(to + kHeader, value.object, static_cast<size_t>(length));
        break;
    default:
        return nullptr;
    }
    to[1] = static_cast<unsigned char>(length);
    return to + kHeader + length;
}

/// Encodes a record into a room of kFlatRoom bytes; what was written, or nothing if that takes a closer look.
std::span<const unsigned char> EncodeFlat(const char* record, const Item* it, unsigned char* room)
{
    unsigned char* const content = room + kLongestHeader;
    unsigned char* to = content;
    for (int i = 0; i < it->Count; ++i) {
        const Field& field = it->Templates[i];
        const Item* const item = ItemOf(field);
        Value value;
        if (item == nullptr || item->IsStruct != 0 || IsRecordArray(field.Type) ||
            FieldValue(record, field, item, &value) != 0)
            return {};
        to = FlatValue(value, to, room + kFlatRoom);
        if (to == nullptr)
            return {};
    }
    const auto length = static_cast<uint32_t>(to - content);
    const int header = HeaderSize(static_cast<int>(length));
    unsigned char* const begin = content - header;
    begin[0] = kRecordTag;
    begin[1] = static_cast<unsigned char>(header == 2 ? length : kLongForm | static_cast<unsigned>(header - 2));
    for (int i = 2; i < header; ++i)
        begin[i] = static_cast<unsigned char>(length >> 8 * (header - 1 - i));
    return {begin, to};
}

/// Hands an encoding to the caller; its length, 0 if his buffer does not do, or a code.
int HandOut(std::span<const unsigned char> encoded, unsigned char** out, int max)
{
    const int length = static_cast<int>(encoded.size());
    if (out == nullptr || encoded.empty())
        return length;
    if (*out != nullptr) {
        if (max < length)
            return 0;
        memcpy(*out, encoded.data(), encoded.size());
        *out += length;
        return length;
    }
    auto* const buffer = static_cast<unsigned char*>(malloc(encoded.size()));
    if (buffer == nullptr)
        return ZKQ_MSG_NO_MEMORY;
    memcpy(buffer, encoded.data(), encoded.size());
    *out = buffer;
    return length;
}

/// Encodes anything, in two passes.
int EncodeAny(const Value& top, unsigned char** out, int max)
{
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

} // namespace

int EncodeDer(const char* val, unsigned char** out, int max, const Item* it)
{
    if (val != nullptr && it->IsStruct == 1) {
        unsigned char room[kFlatRoom];
        if (const int result = HandOut(EncodeFlat(val, it, room), out, max))
            return result;
    }
    return EncodeAny({val, it, it->Temp, it->BuffSize}, out, max);
}
