// Message packets as bytes, and packets of the library's that are released at the end.
#pragma once

#include <ZKQ_general/msgpacket.h>
#include <gtest/gtest.h>
#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "buffer.h"
#include "error_text.h"

namespace support::packet {

using Integers = std::vector<int>;

inline unsigned char* Raw(std::string& bytes)
{
    return reinterpret_cast<unsigned char*>(bytes.data());
}

inline int Length(const std::string& bytes)
{
    return static_cast<int>(bytes.size());
}

inline std::string Word(int64_t value)
{
    const auto word = static_cast<uint32_t>(value);
    return {static_cast<char>(word >> 24), static_cast<char>(word >> 16), static_cast<char>(word >> 8),
            static_cast<char>(word)};
}

inline std::string Item(const std::string& bytes)
{
    return Word(Length(bytes)) + bytes;
}

inline std::string WithHeader(const std::string& items)
{
    return Word(Length(items) + 4) + items;
}

struct Destroy {
    void operator()(void* packet) const { ZKQGeneral_DestroyMsgPacket(packet); }
};
using Owner = std::unique_ptr<void, Destroy>;

inline Owner Create(int step = 0)
{
    void* packet = nullptr;
    EXPECT_EQ(ZKQGeneral_CreateMsgPacket(step, &packet), TRUE);
    return Owner(packet);
}

// A packet of the library's from a copy of exactly these bytes; null if they are refused.
inline Owner Init(const std::string& bytes, int step = 0)
{
    const std::vector<char> exact(bytes.begin(), bytes.end());
    void* packet = nullptr;
    const char none = 0;
    const BOOL made = ZKQGeneral_InitMsgPacket(exact.empty() ? &none : exact.data(), Length(bytes), step, &packet);
    EXPECT_EQ(made == TRUE, packet != nullptr);
    return Owner(packet);
}

inline MSGDATA& Fields(const Owner& packet)
{
    return *static_cast<MSGDATA*>(packet.get());
}

inline std::string BytesOf(void* packet)
{
    unsigned char* buffer = nullptr;
    int size = -1;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetBuffer(packet, &buffer, &size));
    return {reinterpret_cast<char*>(buffer), static_cast<size_t>(size)};
}

inline int CountOf(void* packet)
{
    int count = -1;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetCount(packet, &count));
    return count;
}

// Item `index` as GetData() and GetDataPtr() give it, which must agree.
inline std::string Get(void* packet, int index)
{
    int size = -1;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetData(packet, index, nullptr, &size)) << ErrorText();
    Buffer buffer(static_cast<size_t>(size));
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetData(packet, index, buffer.Data(), &size));
    EXPECT_TRUE(buffer.GuardIntact());
    EXPECT_EQ(static_cast<size_t>(size), buffer.Size());
    void* place = nullptr;
    int length = -1;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetDataPtr(packet, index, &place, &length));
    EXPECT_EQ(std::string(static_cast<char*>(place), static_cast<size_t>(length)), buffer.Bytes());
    return buffer.Bytes();
}

inline BOOL Add(void* packet, const std::string& bytes)
{
    return ZKQGeneral_MsgPacket_AddBuffer(packet, bytes.data(), Length(bytes));
}

inline BOOL AddTagged(void* packet, int oid, const std::string& bytes)
{
    return ZKQGeneral_MsgPacket_OID_AddBuffer(packet, oid, bytes.data(), Length(bytes));
}

inline void ExpectFails(int error, const std::function<BOOL()>& call)
{
    MarkErrorText();
    EXPECT_EQ(call(), FALSE);
    EXPECT_SYSTEM_ERROR(error);
}

} // namespace support::packet
