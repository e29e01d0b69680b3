// Reading message packets by index and by OID.
#include <ZKQ_general/msgpacket.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/buffer.h"
#include "support/packet.h"

namespace {

using namespace support::packet; // NOLINT: the tests are written in it

// --- reading by index ---

TEST(MsgPacket, ReadingByIndexInAnyOrder)
{
    const Owner packet = Create(64);
    std::vector<std::string> items;
    for (size_t i = 0; i < 50; ++i) {
        items.push_back(std::string(i * 7 % 23, static_cast<char>('a' + i % 26)));
        ASSERT_TRUE(Add(packet.get(), items.back()));
        ASSERT_EQ(Get(packet.get(), static_cast<int>(i)), items.back()) << "while it grows";
        ASSERT_EQ(Get(packet.get(), static_cast<int>(i / 2)), items[i / 2]);
    }
    std::string bytes = BytesOf(packet.get());
    MSGDATA fixed;
    ASSERT_TRUE(ZKQGeneral_InitMsgPacket2(Raw(bytes), Length(bytes), &fixed));
    const Owner received = Init(bytes);
    for (void* each : {packet.get(), static_cast<void*>(&fixed), received.get()}) {
        for (int i = 49; i >= 0; --i)
            ASSERT_EQ(Get(each, i), items[static_cast<size_t>(i)]);
        for (int i = 0; i < 200; ++i)
            ASSERT_EQ(Get(each, i * 31 % 50), items[static_cast<size_t>(i * 31 % 50)]);
    }
}

TEST(MsgPacket, GetDataTable)
{
    std::string bytes = WithHeader(Item("abc") + Item(""));
    const Owner packet = Init(bytes);
    support::Buffer buffer(3);
    int size = 3;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetData(packet.get(), 0, buffer.Data(), &size));
    EXPECT_EQ(buffer.Bytes(), "abc");
    for (const int room : {2, 0, -1, INT_MIN}) {
        support::Buffer small(3);
        size = room;
        ExpectFails(ERANGE, [&] { return ZKQGeneral_MsgPacket_GetData(packet.get(), 0, small.Data(), &size); });
        EXPECT_EQ(size, 3) << "tells the length all the same";
        EXPECT_TRUE(small.Untouched());
        size = room;
        EXPECT_TRUE(ZKQGeneral_MsgPacket_GetData(packet.get(), 0, nullptr, &size)) << "asks for the length";
        EXPECT_EQ(size, 3);
    }
    size = 100;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetData(packet.get(), 1, nullptr, &size));
    EXPECT_EQ(size, 0);
    for (const int index : {2, 3, INT_MAX, -1, -2, INT_MIN}) {
        SCOPED_TRACE(index);
        size = 100;
        void* place = nullptr;
        int value = 0;
        ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_GetData(packet.get(), index, buffer.Data(), &size); });
        ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_GetIntegerData(packet.get(), index, &value); });
        ExpectFails(index < 0 ? EINVAL : EBADMSG,
                    [&] { return ZKQGeneral_MsgPacket_GetDataPtr(packet.get(), index, &place, &size); });
        EXPECT_EQ(size, 100);
        EXPECT_EQ(place, nullptr);
    }
}

TEST(MsgPacket, IntegersByIndex)
{
    const Owner packet = Create();
    for (const int value : {0, 1, -1, 0x01020304, INT_MAX, INT_MIN})
        ASSERT_TRUE(ZKQGeneral_MsgPacket_AddInt(packet.get(), value));
    ASSERT_TRUE(Add(packet.get(), "abc"));
    ASSERT_TRUE(Add(packet.get(), "abcde"));
    ASSERT_TRUE(Add(packet.get(), ""));
    Integers read;
    for (int i = 0; i < 6; ++i) {
        read.push_back(7);
        EXPECT_TRUE(ZKQGeneral_MsgPacket_GetIntegerData(packet.get(), i, &read.back()));
    }
    EXPECT_EQ(read, (Integers{0, 1, -1, 0x01020304, INT_MAX, INT_MIN}));
    int value = 7;
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_GetIntegerData(packet.get(), 6, &value); });
    ExpectFails(ERANGE, [&] { return ZKQGeneral_MsgPacket_GetIntegerData(packet.get(), 7, &value); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_GetIntegerData(packet.get(), 8, &value); });
    EXPECT_EQ(value, 7);
}

// --- reading by OID ---

TEST(MsgPacket, TheFirstOfEqualOidsIsFound)
{
    const Owner packet = Create();
    ASSERT_TRUE(AddTagged(packet.get(), 7, "first"));
    ASSERT_TRUE(AddTagged(packet.get(), -7, ""));
    ASSERT_TRUE(AddTagged(packet.get(), 7, "second"));
    support::Buffer buffer(5);
    int size = -1;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 7, buffer.Data(), &size, 5));
    EXPECT_EQ(size, 5);
    EXPECT_EQ(buffer.Bytes(), "first");
    void* place = nullptr;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetBufferPtr(packet.get(), 7, &place, &size));
    EXPECT_EQ(std::string(static_cast<char*>(place), 5), "first");
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), -7, nullptr, &size, 0));
    EXPECT_EQ(size, 0);
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetBufferPtr(packet.get(), 7, nullptr, &size));
    EXPECT_EQ(size, 5);
    for (const int room : {4, 0, -1, INT_MIN}) {
        support::Buffer small(5);
        size = 42;
        ExpectFails(ERANGE,
                    [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 7, small.Data(), &size, room); });
        EXPECT_EQ(size, 42);
        EXPECT_TRUE(small.Untouched());
    }
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 7, nullptr, &size, -5)) << "asks for the length";
    size = 42;
    ExpectFails(ENOMEDIUM,
                [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 8, buffer.Data(), &size, 5); });
    ExpectFails(ENOMEDIUM, [&] { return ZKQGeneral_MsgPacket_OID_GetBufferPtr(packet.get(), 8, &place, &size); });
    EXPECT_EQ(size, 42);
    const Owner empty = Create();
    ExpectFails(ENOMEDIUM, [&] { return ZKQGeneral_MsgPacket_OID_GetBufferPtr(empty.get(), 0, &place, &size); });
}

TEST(MsgPacket, ALastOidWithoutAValue)
{
    const Owner packet = Create();
    ASSERT_TRUE(AddTagged(packet.get(), 1, "one"));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_AddInt(packet.get(), 2));
    int size = 42;
    char text[8];
    char* inside = nullptr;
    void* place = nullptr;
    int value = 0;
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 2, text, &size, 8); });
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 2, nullptr, &size, 8); });
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_OID_GetBufferPtr(packet.get(), 2, &place, &size); });
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_OID_GetString(packet.get(), 2, text, 8); });
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_OID_GetStringPtr(packet.get(), 2, &inside); });
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_OID_GetInt(packet.get(), 2, &value); });
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 1, text, &size, 8));
    ExpectFails(ENOMEDIUM, [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 3, text, &size, 8); });
    int oids[4];
    int count = 4;
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), oids, &count); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), nullptr, &count); });
    EXPECT_EQ(count, 4);
}

TEST(MsgPacket, AnOidHasFourBytes)
{
    for (const std::string& oid : {std::string("abc"), std::string("abcde"), std::string()}) {
        const Owner packet = Create();
        ASSERT_TRUE(AddTagged(packet.get(), 1, "one"));
        ASSERT_TRUE(Add(packet.get(), oid));
        ASSERT_TRUE(Add(packet.get(), "value"));
        ASSERT_TRUE(AddTagged(packet.get(), 3, "three"));
        int size = 0;
        char text[8];
        void* place = nullptr;
        EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 1, text, &size, 8)) << "found before it";
        ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(packet.get(), 3, text, &size, 8); });
        ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_GetBufferPtr(packet.get(), 3, &place, &size); });
        int oids[3] = {};
        int count = 2;
        ExpectFails(ENOMEM, [&] { return ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), oids, &count); });
        EXPECT_EQ(count, 2);
        count = 3;
        ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), oids, &count); });
        EXPECT_EQ(oids[0], 1);
        EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), nullptr, &count)) << "only counts";
        EXPECT_EQ(count, 3);
    }
}

TEST(MsgPacket, Strings)
{
    const Owner packet = Create();
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddString(packet.get(), 1, "text"));
    ASSERT_TRUE(AddTagged(packet.get(), 2, "open"));
    ASSERT_TRUE(AddTagged(packet.get(), 3, std::string("a\0b", 3)));
    ASSERT_TRUE(AddTagged(packet.get(), 4, ""));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddString(packet.get(), 5, nullptr));
    support::Buffer buffer(5);
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetString(packet.get(), 1, buffer.Data(), 5));
    EXPECT_STREQ(buffer.Data(), "text");
    ExpectFails(ERANGE, [&] { return ZKQGeneral_MsgPacket_OID_GetString(packet.get(), 1, buffer.Data(), 4); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_GetString(packet.get(), 2, buffer.Data(), 5); });
    EXPECT_EQ(buffer.Bytes(), std::string("open\0", 5)) << "copied all the same";
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetString(packet.get(), 3, buffer.Data(), 5));
    EXPECT_EQ(buffer.Bytes(), std::string("a\0bn\0", 5));
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_GetString(packet.get(), 4, buffer.Data(), 5); });
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetString(packet.get(), 5, buffer.Data(), 1));
    EXPECT_STREQ(buffer.Data(), "");
    ExpectFails(ENOMEDIUM, [&] { return ZKQGeneral_MsgPacket_OID_GetString(packet.get(), 6, buffer.Data(), 5); });
    EXPECT_TRUE(buffer.GuardIntact());

    char* inside = nullptr;
    for (const int oid : {2, 4})
        ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_GetStringPtr(packet.get(), oid, &inside); });
    ExpectFails(ENOMEDIUM, [&] { return ZKQGeneral_MsgPacket_OID_GetStringPtr(packet.get(), 6, &inside); });
    EXPECT_EQ(inside, nullptr);
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetStringPtr(packet.get(), 1, &inside));
    EXPECT_STREQ(inside, "text");
    EXPECT_EQ(reinterpret_cast<unsigned char*>(inside), Fields(packet).buffer + 4 + 8 + 4);
}

TEST(MsgPacket, IntegersByOid)
{
    const Owner packet = Create();
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddInt(packet.get(), 1, -5));
    ASSERT_TRUE(AddTagged(packet.get(), 2, "\x01"));
    ASSERT_TRUE(AddTagged(packet.get(), 3, ""));
    ASSERT_TRUE(AddTagged(packet.get(), 4, "12345"));
    int value = 7;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetInt(packet.get(), 1, &value));
    EXPECT_EQ(value, -5);
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetInt(packet.get(), 2, &value));
    EXPECT_EQ(value, 0x01000000);
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_GetInt(packet.get(), 3, &value));
    EXPECT_EQ(value, 0);
    value = 7;
    ExpectFails(ERANGE, [&] { return ZKQGeneral_MsgPacket_OID_GetInt(packet.get(), 4, &value); });
    ExpectFails(ENOMEDIUM, [&] { return ZKQGeneral_MsgPacket_OID_GetInt(packet.get(), 5, &value); });
    EXPECT_EQ(value, 7);
}

TEST(MsgPacket, ListOfOids)
{
    const Owner packet = Create();
    int count = 42;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), nullptr, &count));
    EXPECT_EQ(count, 0);
    for (const int oid : {3, -1, 3, INT_MIN})
        ASSERT_TRUE(AddTagged(packet.get(), oid, "v"));
    count = INT_MIN;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), nullptr, &count));
    EXPECT_EQ(count, 4);
    for (const int room : {3, 0, -1, INT_MIN}) {
        Integers oids(4, 9);
        count = room;
        ExpectFails(ENOMEM, [&] { return ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), oids.data(), &count); });
        EXPECT_EQ(count, room);
        EXPECT_EQ(oids, Integers(4, 9));
    }
    for (const int room : {4, 5}) {
        Integers oids(5, 9);
        count = room;
        EXPECT_TRUE(ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), oids.data(), &count));
        EXPECT_EQ(count, 4);
        EXPECT_EQ(oids, (Integers{3, -1, 3, INT_MIN, 9}));
    }
}

} // namespace
