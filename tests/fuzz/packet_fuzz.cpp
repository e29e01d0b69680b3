// Message packets. The first byte chooses: received bytes against a slow second reading of the format, or a sequence of
// adds against a list of items.
#include <ZKQ_general/msgpacket.h>
#include <errno.h>
#include <string.h>

#include <algorithm>

#include "fuzz.h"

namespace {

using Items = std::vector<std::string>;

/// The items of a packet of exactly `bytes`; false if it is none.
bool Model(const std::string& bytes, Items* items)
{
    const auto word = [&bytes](size_t at) {
        uint64_t value = 0;
        for (size_t i = 0; i < 4; ++i)
            value = value * 256 + static_cast<unsigned char>(bytes[at + i]);
        return value;
    };
    if (bytes.size() < 4 || word(0) != bytes.size())
        return false;
    for (size_t at = 4; at < bytes.size();) {
        if (bytes.size() - at < 4 || word(at) > bytes.size() - at - 4)
            return false;
        items->push_back(bytes.substr(at + 4, static_cast<size_t>(word(at))));
        at += 4 + items->back().size();
    }
    return true;
}

int AsInteger(const std::string& bytes)
{
    uint32_t value = 0;
    for (const char byte : bytes)
        value = value << 8 | static_cast<unsigned char>(byte);
    return static_cast<int>(value);
}

std::string Word(size_t value)
{
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

void CheckItem(void* packet, const Items& items, size_t index)
{
    const int i = static_cast<int>(index);
    const std::string& item = items[index];
    const int length = static_cast<int>(item.size());
    int size = length;
    const Exact<char> room(item.size());
    REQUIRE(ZKQGeneral_MsgPacket_GetData(packet, i, room.Get(), &size) && size == length);
    REQUIRE(std::equal(item.begin(), item.end(), room.Get()));
    size = length - 1;
    REQUIRE(!ZKQGeneral_MsgPacket_GetData(packet, i, room.Get(), &size) && size == length);
    void* place = nullptr;
    size = -1;
    REQUIRE(ZKQGeneral_MsgPacket_GetDataPtr(packet, i, &place, &size) && size == length);
    REQUIRE(std::equal(item.begin(), item.end(), static_cast<char*>(place)));
    int value = 0;
    REQUIRE(ZKQGeneral_MsgPacket_GetIntegerData(packet, i, &value) == (length == 4));
    REQUIRE(length != 4 || value == AsInteger(item));
}

/// What a look-up must give: 0 and the value, or an errno value.
int Find(const Items& items, int oid, std::string* value)
{
    for (size_t i = 0; i < items.size(); i += 2) {
        if (items[i].size() != 4)
            return EBADMSG;
        if (AsInteger(items[i]) != oid)
            continue;
        if (i + 1 == items.size())
            return EINVAL;
        *value = items[i + 1];
        return 0;
    }
    return ENOMEDIUM;
}

void CheckLookUp(void* packet, const Items& items, int oid)
{
    std::string value;
    const bool found = Find(items, oid, &value) == 0;
    const bool isText = found && value.find('\0') != std::string::npos;
    const int length = static_cast<int>(value.size());
    const Exact<char> room(value.size());
    int size = -1;
    REQUIRE(ZKQGeneral_MsgPacket_OID_GetBuffer(packet, oid, room.Get(), &size, length) == found);
    REQUIRE(!found || (size == length && std::equal(value.begin(), value.end(), room.Get())));
    REQUIRE(!ZKQGeneral_MsgPacket_OID_GetBuffer(packet, oid, room.Get(), &size, length - 1));
    void* place = nullptr;
    REQUIRE(ZKQGeneral_MsgPacket_OID_GetBufferPtr(packet, oid, &place, &size) == found);
    REQUIRE(!found || std::equal(value.begin(), value.end(), static_cast<char*>(place)));
    char* text = nullptr;
    REQUIRE(ZKQGeneral_MsgPacket_OID_GetStringPtr(packet, oid, &text) == isText);
    REQUIRE(ZKQGeneral_MsgPacket_OID_GetString(packet, oid, room.Get(), length) == isText);
    int integer = 0;
    REQUIRE(ZKQGeneral_MsgPacket_OID_GetInt(packet, oid, &integer) == (found && length <= 4));
    REQUIRE(!found || length > 4 || integer == AsInteger((value + std::string(4, '\0')).substr(0, 4)));
}

void CheckList(void* packet, const Items& items)
{
    const size_t half = items.size() / 2;
    bool isGood = items.size() % 2 == 0;
    int count = -1;
    REQUIRE(ZKQGeneral_MsgPacket_OID_EnumOID(packet, nullptr, &count) == isGood);
    for (size_t i = 0; i < items.size(); i += 2)
        isGood = isGood && items[i].size() == 4;
    const Exact<int> oids(half * sizeof(int));
    count = static_cast<int>(half);
    REQUIRE(ZKQGeneral_MsgPacket_OID_EnumOID(packet, oids.Get(), &count) == isGood);
    for (size_t i = 0; isGood && i < half; ++i)
        REQUIRE(oids.Get()[i] == AsInteger(items[2 * i]));
}

void CheckAll(void* packet, const Items& items)
{
    int count = -1;
    REQUIRE(ZKQGeneral_MsgPacket_GetCount(packet, &count) && count == static_cast<int>(items.size()));
    for (size_t i = 0; i < items.size(); ++i)
        CheckItem(packet, items, i);
    for (size_t i = items.size(); i-- > 0;)
        CheckItem(packet, items, i * 7 % items.size());
    for (const std::string& item : items) {
        if (item.size() == 4)
            CheckLookUp(packet, items, AsInteger(item));
    }
    CheckLookUp(packet, items, 12345);
    CheckList(packet, items);
}

void Received(const std::string& bytes)
{
    const Exact<unsigned char> copy(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.Get());
    const int size = static_cast<int>(bytes.size());
    Items items;
    const bool isPacket = Model(bytes, &items);
    void* packet = nullptr;
    REQUIRE(ZKQGeneral_InitMsgPacket(copy.Get(), size, size % 5, &packet) == isPacket);
    if (isPacket)
        CheckAll(packet, items);
    ZKQGeneral_DestroyMsgPacket(packet);

    // In place, a tail is allowed.
    items.clear();
    const size_t total = bytes.size() < 4 ? 0 : static_cast<uint32_t>(AsInteger(bytes.substr(0, 4)));
    const bool isThere = total >= 4 && total <= bytes.size() && Model(bytes.substr(0, total), &items);
    MSGDATA data;
    REQUIRE(ZKQGeneral_InitMsgPacket2(copy.Get(), size, &data) == isThere);
    if (isThere)
        CheckAll(&data, items);
}

/// Reads everything of a packet that may be inconsistent; the sanitizer watches.
void ReadOn(void* packet, int count)
{
    char room[300];
    for (int i = 0; i < count; ++i) {
        int size = sizeof room;
        void* place = nullptr;
        ZKQGeneral_MsgPacket_GetData(packet, i, room, &size);
        ZKQGeneral_MsgPacket_GetDataPtr(packet, i, &place, &size);
        ZKQGeneral_MsgPacket_OID_GetBuffer(packet, i, room, &size, sizeof room);
    }
    std::vector<int> oids(static_cast<size_t>(count));
    ZKQGeneral_MsgPacket_OID_EnumOID(packet, oids.data(), &count);
}

void Adds(const uint8_t* data, size_t size)
{
    const int room = 4 + data[0];
    const Exact<unsigned char> buffer(static_cast<size_t>(room));
    MSGDATA fixed;
    void* packet = nullptr;
    REQUIRE(ZKQGeneral_CreateMsgPacket(data[0], &packet));
    REQUIRE(ZKQGeneral_CreateMsgPacket2(buffer.Get(), room, &fixed));
    std::string bytes;
    Items items;
    int attempts = 0;
    bool isFull = false;
    const auto add = [&](const std::string& item) {
        items.push_back(item);
        bytes += Word(item.size()) + item;
    };
    for (size_t i = 1; i + 1 < size; i += 2) {
        const int amount = data[i + 1];
        const std::string item(static_cast<size_t>(amount), static_cast<char>(i));
        const std::string& again = items.empty() ? item : items[static_cast<size_t>(amount) % items.size()];
        switch (data[i] % 4) {
        case 0:
            REQUIRE(ZKQGeneral_MsgPacket_AddBuffer(packet, item.data(), amount));
            isFull |= !ZKQGeneral_MsgPacket_AddBuffer(&fixed, item.data(), amount);
            add(item);
            break;
        case 1:
            REQUIRE(ZKQGeneral_MsgPacket_AddInt(packet, -amount));
            isFull |= !ZKQGeneral_MsgPacket_AddInt(&fixed, -amount);
            add(Word(static_cast<uint32_t>(-amount)));
            break;
        case 2:
            REQUIRE(ZKQGeneral_MsgPacket_OID_AddString(packet, amount, item.c_str()));
            isFull |= !ZKQGeneral_MsgPacket_OID_AddString(&fixed, amount, item.c_str());
            add(Word(static_cast<size_t>(amount)));
            add(item + '\0');
            break;
        default: { // bytes of the packet itself
            const std::string copy = again;
            void* place = nullptr;
            int length = 0;
            if (items.empty())
                break;
            REQUIRE(ZKQGeneral_MsgPacket_GetDataPtr(packet, amount % static_cast<int>(items.size()), &place, &length));
            REQUIRE(ZKQGeneral_MsgPacket_OID_AddBuffer(packet, amount, place, length));
            isFull |= !ZKQGeneral_MsgPacket_OID_AddBuffer(&fixed, amount, copy.data(), length);
            add(Word(static_cast<size_t>(amount)));
            add(copy);
        }
        }
        if (++attempts > 64)
            break;
        REQUIRE(isFull == (static_cast<int>(bytes.size()) + 4 >= room && !bytes.empty()));
        REQUIRE(fixed.size <= room);
        if (isFull)
            break;
        if (!items.empty())
            CheckItem(packet, items, items.size() / 2);
    }
    if (isFull)
        ReadOn(&fixed, fixed.TotalNums + 1);
    else
        CheckAll(&fixed, items);
    CheckAll(packet, items);
    unsigned char* all = nullptr;
    int length = 0;
    REQUIRE(ZKQGeneral_MsgPacket_GetBuffer(packet, &all, &length));
    REQUIRE(std::string(reinterpret_cast<char*>(all), static_cast<size_t>(length)) == Word(bytes.size() + 4) + bytes);
    ZKQGeneral_DestroyMsgPacket(packet);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    if (data[0] % 2 == 0)
        Received({reinterpret_cast<const char*>(data + 1), size - 1});
    else
        Adds(data + 1, size - 1);
    return 0;
}
