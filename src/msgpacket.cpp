#include <ZKQ_general/msgpacket.h>
#include <errno.h>
#include <limits.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <span>
#include <utility>

#include "internal/error.h"
#include "internal/guards.h"

static_assert(offsetof(MSGDATA, Version) == 0 && offsetof(MSGDATA, buffer) == 8 && offsetof(MSGDATA, max) == 16);
static_assert(offsetof(MSGDATA, size) == 20 && offsetof(MSGDATA, StepSize) == 24 && offsetof(MSGDATA, TotalSize) == 28);
static_assert(offsetof(MSGDATA, TotalNums) == 32 && offsetof(MSGDATA, NeedMalloc) == 36 && sizeof(MSGDATA) == 40);

namespace {

constexpr int kWordSize = 4; ///< bytes of a length, an integer and the header
constexpr int kDefaultStep = 1024;
constexpr int kLargestStep = 65536;

using Bytes = std::span<const unsigned char>;

/// A packet that the library allocated. `max` grows in the steps that callers may rely on, with zeros behind the bytes in
/// use; the block behind it grows faster, so that appending stays linear. Items are only ever added behind the others, so what was found stays there.
struct GrowingPacket {
    MSGDATA data;
    size_t Capacity; ///< bytes really allocated at data.buffer, at least data.max
    int LastIndex;   ///< the item that was read last
    size_t LastPosition;
};

/// Null for a packet in a caller's buffer, whose record has no place for more than its fields.
GrowingPacket* Growing(MSGDATA* a)
{
    return a->NeedMalloc != 0 ? reinterpret_cast<GrowingPacket*>(a) : nullptr;
}

uint32_t ReadWord(const unsigned char* bytes)
{
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]};
}

void StoreWord(unsigned char* bytes, int integer)
{
    const auto word = static_cast<uint32_t>(integer);
    bytes[0] = static_cast<unsigned char>(word >> 24);
    bytes[1] = static_cast<unsigned char>(word >> 16);
    bytes[2] = static_cast<unsigned char>(word >> 8);
    bytes[3] = static_cast<unsigned char>(word);
}

/// Walks over the items of a packet, however wrong their lengths are.
class ItemReader {
public:
    explicit ItemReader(Bytes packet, size_t position = kWordSize) : packet_(packet), position_(position) {}

    /// Where the next item's length stands.
    size_t Position() const { return position_; }
    bool IsAtEnd() const { return position_ == packet_.size(); }

    /// The next item; 0, or EBADMSG if there is no whole one.
    int Next(Bytes* item)
    {
        if (position_ > packet_.size() || packet_.size() - position_ < kWordSize)
            return EBADMSG;
        const size_t length = ReadWord(&packet_[position_]);
        const size_t start = position_ + kWordSize;
        if (length > packet_.size() - start)
            return EBADMSG;
        *item = packet_.subspan(start, length);
        position_ = start + length;
        return 0;
    }

    /// As Next(), for an item that is to be an OID.
    int NextOid(int* oid)
    {
        Bytes item;
        if (Next(&item) != 0 || item.size() != kWordSize)
            return EBADMSG;
        *oid = static_cast<int>(ReadWord(item.data()));
        return 0;
    }

private:
    Bytes packet_;
    size_t position_;
};

/// The bytes in use. After an add that failed they are fewer than TotalSize says.
Bytes BytesInUse(const MSGDATA* a)
{
    if (a->buffer == nullptr || a->size < 0)
        return {};
    return {a->buffer, static_cast<size_t>(a->size)};
}

// --- making and releasing ---

int ClampedStep(int StepSize)
{
    return StepSize < 1 ? kDefaultStep : std::min(StepSize, kLargestStep);
}

void MSGDATA_free(MSGDATA* a)
{
    free(a->buffer);
    free(a);
}

struct PacketFreer {
    void operator()(GrowingPacket* packet) const { MSGDATA_free(&packet->data); }
};
using PacketPtr = std::unique_ptr<GrowingPacket, PacketFreer>;

PacketPtr MSGDATA_new(int StepSize)
{
    PacketPtr packet(static_cast<GrowingPacket*>(calloc(1, sizeof(GrowingPacket))));
    if (packet == nullptr)
        return packet;
    packet->data.StepSize = StepSize;
    packet->data.NeedMalloc = 1;
    packet->LastPosition = kWordSize;
    return packet;
}

/// Bytes to be added. They may lie in the packet itself, which moves as it grows.
class Source {
public:
    Source(const MSGDATA* a, const void* Buffer, int Size)
        : bytes_(static_cast<const unsigned char*>(Buffer), static_cast<size_t>(Size))
    {
        const auto start = reinterpret_cast<uintptr_t>(a->buffer);
        const auto place = reinterpret_cast<uintptr_t>(Buffer);
        isInside_ = place >= start && place - start < static_cast<size_t>(a->max);
        offset_ = isInside_ ? place - start : 0;
    }

    Bytes Where(const MSGDATA* a) const { return isInside_ ? Bytes(a->buffer + offset_, bytes_.size()) : bytes_; }
    int Size() const { return static_cast<int>(bytes_.size()); }

private:
    Bytes bytes_;
    bool isInside_;
    size_t offset_;
};

bool Reallocate(GrowingPacket* packet, size_t capacity)
{
    auto* const block = static_cast<unsigned char*>(realloc(packet->data.buffer, capacity));
    if (block == nullptr)
        return false;
    packet->data.buffer = block;
    packet->Capacity = capacity;
    return true;
}

/// Gives a packet room for more bytes; 0, ENOMEM, or what the allocation left in errno.
int Grow(GrowingPacket* packet, int length)
{
    MSGDATA& data = packet->data;
    const int64_t step = data.StepSize;
    const int64_t max = (int64_t{data.max} + length + step - 1) / step * step;
    if (max > INT_MAX)
        return ENOMEM;
    const auto needed = static_cast<size_t>(max);
    if (needed > packet->Capacity && !Reallocate(packet, std::max(needed, 2 * packet->Capacity)) &&
        !Reallocate(packet, needed))
        return errno;
    const int old = std::exchange(data.max, static_cast<int>(max));
    std::fill(data.buffer + old, data.buffer + data.max, static_cast<unsigned char>(0));
    return 0;
}

/// Makes sure of the room for a write; 0 or an errno value. There must be one byte more than is needed, or the packet
/// grows.
int Reserve(MSGDATA* a, int length)
{
    if (a->max - a->size > length)
        return 0;
    GrowingPacket* const packet = Growing(a);
    return packet != nullptr ? Grow(packet, length) : ENOMEM;
}

/// Appends raw bytes; 0, or an errno value with the packet unchanged.
int MSGDATA_write(MSGDATA* a, const Source& source)
{
    if (source.Size() == 0)
        return 0;
    if (const int error = Reserve(a, source.Size()); error != 0)
        return error;
    memmove(a->buffer + a->size, source.Where(a).data(), source.Where(a).size());
    a->size += source.Size();
    return 0;
}

int WriteWord(MSGDATA* a, int integer)
{
    if (const int error = Reserve(a, kWordSize); error != 0)
        return error;
    StoreWord(a->buffer + a->size, integer);
    a->size += kWordSize;
    return 0;
}

int NewPacket(int StepSize, void** Packet)
{
    PacketPtr packet = MSGDATA_new(ClampedStep(StepSize));
    if (packet == nullptr)
        return errno;
    packet->data.TotalSize = kWordSize;
    if (const int error = WriteWord(&packet->data, kWordSize); error != 0)
        return error;
    *Packet = packet.release();
    return 0;
}

/// Checks the header and every item and fills in what they say; 0 or EBADMSG. `size` bytes must be there, and the packet
/// may be shorter.
int Parse(const unsigned char* bytes, int size, MSGDATA* a)
{
    if (size < kWordSize)
        return EBADMSG;
    const size_t total = ReadWord(bytes);
    if (total < kWordSize || total > static_cast<size_t>(size))
        return EBADMSG;
    int count = 0;
    Bytes item;
    for (ItemReader reader({bytes, total}); !reader.IsAtEnd(); ++count) {
        if (const int error = reader.Next(&item); error != 0)
            return error;
    }
    a->TotalSize = static_cast<int>(total);
    a->TotalNums = count;
    return 0;
}

int NewPacketFrom(const void* Buffer, int Size, int StepSize, void** Packet)
{
    if (Size < kWordSize)
        return EBADMSG;
    PacketPtr packet = MSGDATA_new(ClampedStep(StepSize));
    if (packet == nullptr)
        return errno;
    MSGDATA* const data = &packet->data;
    if (const int error = MSGDATA_write(data, Source(data, Buffer, Size)); error != 0)
        return error;
    // The copy is what is checked: nobody changes it meanwhile.
    if (Parse(data->buffer, data->size, data) != 0 || data->TotalSize != data->size)
        return EBADMSG;
    *Packet = packet.release();
    return 0;
}

// --- adding ---

/// A packet stays below 2 GB; 0 or EMSGSIZE.
int RequireTotal(const MSGDATA* a, int64_t added)
{
    return a->TotalSize + added > INT_MAX ? EMSGSIZE : 0;
}

void CountItem(MSGDATA* a, int length)
{
    a->TotalNums += 1;
    a->TotalSize += kWordSize + length;
}

/// Appends an item; 0, EMSGSIZE, or another errno value with the item counted all the same.
int AddItem(MSGDATA* a, const Source& item)
{
    if (const int error = RequireTotal(a, int64_t{kWordSize} + item.Size()); error != 0)
        return error;
    CountItem(a, item.Size());
    if (const int error = WriteWord(a, item.Size()); error != 0)
        return error;
    if (const int error = MSGDATA_write(a, item); error != 0)
        return error;
    StoreWord(a->buffer, a->TotalSize);
    return 0;
}

/// As AddItem(), for an integer.
int AddInteger(MSGDATA* a, int Integer)
{
    if (const int error = RequireTotal(a, 2 * kWordSize); error != 0)
        return error;
    CountItem(a, kWordSize);
    if (const int error = WriteWord(a, kWordSize); error != 0)
        return error;
    if (const int error = WriteWord(a, Integer); error != 0)
        return error;
    StoreWord(a->buffer, a->TotalSize);
    return 0;
}

bool IsAddable(const void* Packet, const void* Buffer, int Size)
{
    return Packet != nullptr && Size >= 0 && (Buffer != nullptr || Size == 0);
}

int AddTagged(MSGDATA* a, int Oid, const Source& item)
{
    const int error = AddInteger(a, Oid);
    return error != 0 ? error : AddItem(a, item);
}

// --- reading ---

/// Finds an item, which must be counted; 0 or EBADMSG.
int FindItem(MSGDATA* a, int index, Bytes* item)
{
    GrowingPacket* const memory = Growing(a);
    const bool isAhead = memory != nullptr && memory->LastIndex <= index;
    int i = isAhead ? memory->LastIndex : 0;
    ItemReader reader(BytesInUse(a), isAhead ? memory->LastPosition : kWordSize);
    for (; i < index; ++i) {
        if (const int error = reader.Next(item); error != 0)
            return error;
    }
    const size_t position = reader.Position();
    if (const int error = reader.Next(item); error != 0)
        return error;
    if (memory != nullptr) {
        memory->LastIndex = index;
        memory->LastPosition = position;
    }
    return 0;
}

/// Copies an item; 0 or an errno value.
int CopyItem(MSGDATA* a, int index, void* Buffer, int* Size)
{
    if (index < 0 || index >= a->TotalNums)
        return EINVAL;
    Bytes item;
    if (const int error = FindItem(a, index, &item); error != 0)
        return error;
    const int room = *Size;
    *Size = static_cast<int>(item.size());
    if (Buffer == nullptr)
        return 0;
    if (room < *Size)
        return ERANGE;
    std::copy_n(item.data(), item.size(), static_cast<unsigned char*>(Buffer));
    return 0;
}

/// Finds the value of an OID; 0 or an errno value.
int FindValue(const MSGDATA* a, int Oid, Bytes* value)
{
    ItemReader reader(BytesInUse(a));
    for (int i = 0; i < a->TotalNums; i += 2) {
        int oid = 0;
        if (const int error = reader.NextOid(&oid); error != 0)
            return error;
        const bool hasValue = i + 1 < a->TotalNums;
        if (!hasValue && oid == Oid)
            return EINVAL;
        if (const int error = hasValue ? reader.Next(value) : 0; error != 0)
            return error;
        if (hasValue && oid == Oid)
            return 0;
    }
    return ENOMEDIUM;
}

/// Copies the value of an OID; 0 or an errno value.
int CopyValue(const MSGDATA* a, int Oid, void* Buffer, int* Size, int MaxSize)
{
    Bytes value;
    if (const int error = FindValue(a, Oid, &value); error != 0)
        return error;
    const int length = static_cast<int>(value.size());
    if (Buffer != nullptr && MaxSize < length)
        return ERANGE;
    if (Buffer != nullptr)
        std::copy_n(value.data(), value.size(), static_cast<unsigned char*>(Buffer));
    *Size = length;
    return 0;
}

int RequireNul(Bytes value)
{
    return std::ranges::find(value, 0) != value.end() ? 0 : EBADMSG;
}

/// Lists the OIDs of a packet with an even number of items; 0 or EBADMSG.
int ListOids(const MSGDATA* a, int* OidList)
{
    ItemReader reader(BytesInUse(a));
    for (int i = 0; i < a->TotalNums / 2; ++i) {
        Bytes value;
        if (reader.NextOid(&OidList[i]) != 0 || reader.Next(&value) != 0)
            return EBADMSG;
    }
    return 0;
}

MSGDATA* AsPacket(void* Packet)
{
    return static_cast<MSGDATA*>(Packet);
}

/// Whether a packet may be put into a buffer, or found there; 0 or an errno value.
int CheckBuffer(const void* buffer, int size, const void* packet)
{
    if (packet == nullptr)
        return EINVAL;
    if (size < kWordSize)
        return EBADMSG;
    return buffer == nullptr ? EINVAL : 0;
}

/// A pointer into the packet as the functions hand it out.
template <class T>
T* Handed(Bytes bytes)
{
    return reinterpret_cast<T*>(const_cast<unsigned char*>(bytes.data()));
}

} // namespace

BOOL ZKQGeneral_CreateMsgPacket(int StepSize, void** Packet)
{
    if (Packet == nullptr)
        return Fail(EINVAL);
    return Finish(NewPacket(StepSize, Packet));
}

BOOL ZKQGeneral_InitMsgPacket(const void* Buffer, int Size, int StepSize, void** Packet)
{
    if (const int error = CheckBuffer(Buffer, Size, Packet))
        return Fail(error);
    return Finish(NewPacketFrom(Buffer, Size, StepSize, Packet));
}

BOOL ZKQGeneral_CreateMsgPacket2(unsigned char* Buffer, int BufferSize, MSGDATA* Packet)
{
    if (const int error = CheckBuffer(Buffer, BufferSize, Packet))
        return Fail(error);
    *Packet = {};
    Packet->buffer = Buffer;
    Packet->max = BufferSize;
    StoreWord(Buffer, kWordSize);
    Packet->size = Packet->TotalSize = kWordSize;
    return TRUE;
}

BOOL ZKQGeneral_InitMsgPacket2(unsigned char* Buffer, int BufferSize, MSGDATA* Packet)
{
    if (const int error = CheckBuffer(Buffer, BufferSize, Packet))
        return Fail(error);
    MSGDATA data = {};
    if (const int error = Parse(Buffer, BufferSize, &data); error != 0)
        return Fail(error);
    data.buffer = Buffer;
    data.size = data.TotalSize;
    data.max = BufferSize;
    *Packet = data;
    return TRUE;
}

void ZKQGeneral_DestroyMsgPacket(void* Packet)
{
    if (Packet != nullptr && AsPacket(Packet)->NeedMalloc != 0)
        MSGDATA_free(AsPacket(Packet));
}

BOOL ZKQGeneral_MsgPacket_AddBuffer(void* Packet, const void* Buffer, int Size)
{
    if (!IsAddable(Packet, Buffer, Size))
        return Fail(EINVAL);
    MSGDATA* const a = AsPacket(Packet);
    return Finish(AddItem(a, Source(a, Buffer, Size)));
}

BOOL ZKQGeneral_MsgPacket_AddInt(void* Packet, int Integer)
{
    if (Packet == nullptr)
        return Fail(EINVAL);
    return Finish(AddInteger(AsPacket(Packet), Integer));
}

BOOL ZKQGeneral_MsgPacket_GetCount(void* Packet, int* Count)
{
    if (Packet == nullptr || Count == nullptr)
        return Fail(EINVAL);
    *Count = AsPacket(Packet)->TotalNums;
    return TRUE;
}

BOOL ZKQGeneral_MsgPacket_GetBuffer(void* Packet, unsigned char** Buffer, int* Size)
{
    if (Packet == nullptr || Buffer == nullptr || Size == nullptr)
        return Fail(EINVAL);
    *Buffer = AsPacket(Packet)->buffer;
    *Size = AsPacket(Packet)->TotalSize;
    return TRUE;
}

BOOL ZKQGeneral_MsgPacket_GetData(void* Packet, int index, void* Buffer, int* Size)
{
    if (Packet == nullptr || Size == nullptr)
        return Fail(EINVAL);
    return Finish(CopyItem(AsPacket(Packet), index, Buffer, Size));
}

BOOL ZKQGeneral_MsgPacket_GetDataPtr(void* Packet, int index, void** Buffer, int* Size)
{
    if (Packet == nullptr || index < 0 || Buffer == nullptr || Size == nullptr)
        return Fail(EINVAL);
    MSGDATA* const a = AsPacket(Packet);
    Bytes item;
    if (index >= a->TotalNums || FindItem(a, index, &item) != 0)
        return Fail(EBADMSG);
    *Buffer = Handed<void>(item);
    *Size = static_cast<int>(item.size());
    return TRUE;
}

BOOL ZKQGeneral_MsgPacket_GetIntegerData(void* Packet, int index, int* Data)
{
    if (Packet == nullptr || Data == nullptr)
        return Fail(EINVAL);
    unsigned char word[kWordSize] = {};
    int size = kWordSize;
    if (const int error = CopyItem(AsPacket(Packet), index, word, &size); error != 0)
        return Fail(error);
    if (size != kWordSize)
        return Fail(EBADMSG);
    *Data = static_cast<int>(ReadWord(word));
    return TRUE;
}

BOOL ZKQGeneral_MsgPacket_OID_AddBuffer(void* Packet, int Oid, const void* Buffer, int Size)
{
    if (!IsAddable(Packet, Buffer, Size))
        return Fail(EINVAL);
    MSGDATA* const a = AsPacket(Packet);
    return Finish(AddTagged(a, Oid, Source(a, Buffer, Size)));
}

BOOL ZKQGeneral_MsgPacket_OID_AddString(void* Packet, int Oid, const char* Buffer)
{
    const char* const text = Buffer == nullptr ? "" : Buffer;
    const size_t size = strlen(text) + 1;
    if (Packet == nullptr)
        return Fail(EINVAL);
    if (size > INT_MAX)
        return Fail(EMSGSIZE);
    return ZKQGeneral_MsgPacket_OID_AddBuffer(Packet, Oid, text, static_cast<int>(size));
}

BOOL ZKQGeneral_MsgPacket_OID_AddInt(void* Packet, int Oid, int Integer)
{
    if (Packet == nullptr)
        return Fail(EINVAL);
    MSGDATA* const a = AsPacket(Packet);
    const int error = AddInteger(a, Oid);
    return Finish(error != 0 ? error : AddInteger(a, Integer));
}

BOOL ZKQGeneral_MsgPacket_OID_GetBuffer(void* Packet, int Oid, void* Buffer, int* Size, int MaxSize)
{
    if (Packet == nullptr || Size == nullptr)
        return Fail(EINVAL);
    return Finish(CopyValue(AsPacket(Packet), Oid, Buffer, Size, MaxSize));
}

BOOL ZKQGeneral_MsgPacket_OID_GetString(void* Packet, int Oid, char* Buffer, int MaxSize)
{
    if (Packet == nullptr || Buffer == nullptr)
        return Fail(EINVAL);
    int size = 0;
    const int error = CopyValue(AsPacket(Packet), Oid, Buffer, &size, MaxSize);
    if (error != 0)
        return Fail(error);
    return Finish(RequireNul({reinterpret_cast<unsigned char*>(Buffer), static_cast<size_t>(size)}));
}

BOOL ZKQGeneral_MsgPacket_OID_GetInt(void* Packet, int Oid, int* Integer)
{
    if (Packet == nullptr || Integer == nullptr)
        return Fail(EINVAL);
    unsigned char word[kWordSize] = {};
    int size = 0;
    if (const int error = CopyValue(AsPacket(Packet), Oid, word, &size, kWordSize); error != 0)
        return Fail(error);
    *Integer = static_cast<int>(ReadWord(word));
    return TRUE;
}

BOOL ZKQGeneral_MsgPacket_OID_GetBufferPtr(void* Packet, int Oid, void** Buffer, int* Size)
{
    if (Packet == nullptr || Size == nullptr)
        return Fail(EINVAL);
    Bytes value;
    if (const int error = FindValue(AsPacket(Packet), Oid, &value); error != 0)
        return Fail(error);
    if (Buffer != nullptr)
        *Buffer = Handed<void>(value);
    *Size = static_cast<int>(value.size());
    return TRUE;
}

BOOL ZKQGeneral_MsgPacket_OID_GetStringPtr(void* Packet, int Oid, char** Buffer)
{
    if (Packet == nullptr || Buffer == nullptr)
        return Fail(EINVAL);
    Bytes value;
    int error = FindValue(AsPacket(Packet), Oid, &value);
    if (error == 0)
        error = RequireNul(value);
    if (error != 0)
        return Fail(error);
    *Buffer = Handed<char>(value);
    return TRUE;
}

BOOL ZKQGeneral_MsgPacket_OID_EnumOID(void* Packet, int* OidList, int* OidCount)
{
    if (Packet == nullptr || OidCount == nullptr)
        return Fail(EINVAL);
    const MSGDATA* const a = AsPacket(Packet);
    if (a->TotalNums % 2 != 0)
        return Fail(EBADMSG);
    const int count = a->TotalNums / 2;
    if (OidList != nullptr && *OidCount < count)
        return Fail(ENOMEM);
    *OidCount = count;
    return OidList == nullptr ? TRUE : Finish(ListOids(a, OidList));
}
