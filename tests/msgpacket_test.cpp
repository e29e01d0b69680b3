// Message packets: their bytes, both ways to hold them, and packets that are none.
#include <ZKQ_general/msgpacket.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/mman.h>

#include <string>
#include <vector>

#include "support/buffer.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/packet.h"

namespace {

using namespace support::packet; // NOLINT: the tests are written in it

// --- making ---

TEST(MsgPacket, ANewPacketIsFourBytes)
{
    support::MarkErrorText();
    const Owner packet = Create();
    EXPECT_EQ(BytesOf(packet.get()), std::string("\0\0\0\4", 4));
    EXPECT_EQ(CountOf(packet.get()), 0);
    const MSGDATA& fields = Fields(packet);
    EXPECT_EQ(fields.Version, 0);
    EXPECT_EQ(fields.max, 1024);
    EXPECT_EQ(fields.size, 4);
    EXPECT_EQ(fields.StepSize, 1024);
    EXPECT_EQ(fields.TotalSize, 4);
    EXPECT_EQ(fields.TotalNums, 0);
    EXPECT_EQ(fields.NeedMalloc, 1);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(MsgPacket, StepsAreClamped)
{
    const std::pair<int, int> rows[] = {{INT_MIN, 1024}, {-1, 1024},     {0, 1024},      {1, 1},          {7, 7},
                                        {65535, 65535},  {65536, 65536}, {65537, 65536}, {INT_MAX, 65536}};
    for (const auto& [step, clamped] : rows) {
        SCOPED_TRACE(step);
        EXPECT_EQ(Fields(Create(step)).StepSize, clamped);
        EXPECT_EQ(Fields(Create(step)).max, (4 + clamped - 1) / clamped * clamped);
        EXPECT_EQ(Fields(Init(WithHeader(""), step)).StepSize, clamped);
    }
}

TEST(MsgPacket, RoomGrowsInTheStatedSteps)
{
    for (const int step : {1, 3, 8, 100, 1024, 65536}) {
        SCOPED_TRACE(step);
        const Owner packet = Create(step);
        int max = (4 + step - 1) / step * step;
        int size = 4;
        const auto write = [&](int length) {
            if (length > 0 && max - size <= length)
                max = (max + length + step - 1) / step * step;
            size += length;
        };
        std::string expected;
        for (int i = 0; i < 300; ++i) {
            const std::string bytes(static_cast<size_t>(i * 37 % 101), static_cast<char>(i));
            ASSERT_TRUE(Add(packet.get(), bytes));
            write(4);
            write(Length(bytes));
            expected += Item(bytes);
            ASSERT_EQ(Fields(packet).max, max) << i;
            ASSERT_EQ(Fields(packet).size, size) << i;
            for (int k = size; k < max; ++k)
                ASSERT_EQ(Fields(packet).buffer[k], 0) << "behind the bytes in use";
        }
        EXPECT_EQ(BytesOf(packet.get()), WithHeader(expected));
    }
}

TEST(MsgPacket, BytesOfIntegersAndItems)
{
    const Owner packet = Create();
    ASSERT_TRUE(ZKQGeneral_MsgPacket_AddInt(packet.get(), 0x01020304));
    EXPECT_EQ(BytesOf(packet.get()), std::string("\0\0\0\x0C\0\0\0\4\1\2\3\4", 12));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_AddInt(packet.get(), -2));
    ASSERT_TRUE(Add(packet.get(), "abc"));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_AddBuffer(packet.get(), nullptr, 0));
    EXPECT_EQ(BytesOf(packet.get()), WithHeader(Item("\1\2\3\4") + Item("\xFF\xFF\xFF\xFE") + Item("abc") + Item("")));
    EXPECT_EQ(CountOf(packet.get()), 4);
    EXPECT_EQ(Get(packet.get(), 2), "abc");
    EXPECT_EQ(Get(packet.get(), 3), "");
}

TEST(MsgPacket, BytesOfTaggedItems)
{
    const Owner packet = Create();
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddString(packet.get(), 7, "ab"));
    EXPECT_EQ(BytesOf(packet.get()), WithHeader(std::string("\0\0\0\4\0\0\0\7\0\0\0\3ab\0", 15)));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddString(packet.get(), 8, nullptr));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddInt(packet.get(), -1, INT_MIN));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddBuffer(packet.get(), 0, nullptr, 0));
    EXPECT_EQ(BytesOf(packet.get()),
              WithHeader(Item(Word(7)) + Item(std::string("ab\0", 3)) + Item(Word(8)) + Item(std::string(1, '\0')) +
                         Item(Word(-1)) + Item(Word(INT_MIN)) + Item(Word(0)) + Item("")));
    EXPECT_EQ(CountOf(packet.get()), 8);
}

// --- received bytes ---

TEST(MsgPacket, ReceivedBytesTable)
{
    struct Row {
        const char* name;
        std::string bytes;
        int count; // -1: refused
    };
    const Row rows[] = {
        {"nothing", "", -1},
        {"three bytes", std::string(3, '\0'), -1},
        {"empty packet", Word(4), 0},
        {"total 0", Word(0), -1},
        {"total 3", Word(3), -1},
        {"total of the sign bit", Word(INT_MIN), -1},
        {"total near 2^32", Word(-1), -1},
        {"one byte where a length is due", Word(5) + std::string(1, '\0'), -1},
        {"three bytes where a length is due", Word(7) + std::string(3, '\0'), -1},
        {"one empty item", Word(8) + Word(0), 1},
        {"two empty items", Word(12) + Word(0) + Word(0), 2},
        {"item of one", WithHeader(Item("x")), 1},
        {"item one too long", Word(9) + Word(2) + "x", -1},
        {"item length near 2^32", Word(9) + Word(-1) + "x", -1},
        {"item length that would wrap to the start", Word(8) + Word(-8), -1},
        {"item length that would wrap to the end", Word(8) + Word(-4), -1},
        {"item length of the sign bit", Word(9) + Word(INT_MIN) + "x", -1},
        {"second item too long", WithHeader(Item("abc") + Word(1)), -1},
        {"item and a lone byte", WithHeader(Item("abc") + "x"), -1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        support::MarkErrorText();
        const Owner packet = Init(row.bytes);
        EXPECT_EQ(packet != nullptr, row.count >= 0);
        std::string copy = row.bytes;
        copy.shrink_to_fit();
        MSGDATA data;
        memset(&data, 0x5A, sizeof data);
        const MSGDATA before = data;
        EXPECT_EQ(ZKQGeneral_InitMsgPacket2(Raw(copy), Length(copy), &data), row.count >= 0);
        EXPECT_EQ(copy, row.bytes);
        if (row.count < 0) {
            EXPECT_SYSTEM_ERROR(EBADMSG);
            EXPECT_EQ(memcmp(&data, &before, sizeof data), 0);
            continue;
        }
        EXPECT_TRUE(support::ErrorTextIsMarked());
        for (void* each : {packet.get(), static_cast<void*>(&data)}) {
            EXPECT_EQ(CountOf(each), row.count);
            EXPECT_EQ(BytesOf(each), row.bytes);
        }
    }
}

TEST(MsgPacket, TheLibrarysCopyHasExactlyTheLengthOfItsHeader)
{
    const std::string bytes = WithHeader(Item("abc"));
    EXPECT_NE(Init(bytes), nullptr);
    for (const std::string& wrong : {bytes + "x", bytes.substr(0, bytes.size() - 1), bytes + std::string(4, '\0'),
                                     Word(Length(bytes) + 4) + bytes.substr(4)}) {
        support::MarkErrorText();
        EXPECT_EQ(Init(wrong), nullptr);
        EXPECT_SYSTEM_ERROR(EBADMSG);
    }
    for (const int size : {0, 3, -1, -4, INT_MIN}) {
        void* packet = &packet;
        ExpectFails(EBADMSG, [&] { return ZKQGeneral_InitMsgPacket(bytes.data(), size, 0, &packet); });
        if (size < 4)
            ExpectFails(EBADMSG, [&] { return ZKQGeneral_InitMsgPacket(nullptr, size, 0, &packet); });
        EXPECT_EQ(packet, &packet) << "left alone";
    }
}

TEST(MsgPacket, TheLibrarysCopyGrows)
{
    const std::string received = WithHeader(Item(std::string(1016, 'r')));
    ASSERT_EQ(received.size(), 1024u);
    const Owner packet = Init(received);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(Fields(packet).max, 1024);
    EXPECT_EQ(Fields(packet).size, 1024);
    EXPECT_EQ(Fields(packet).NeedMalloc, 1);
    ASSERT_TRUE(ZKQGeneral_MsgPacket_AddInt(packet.get(), 5));
    EXPECT_EQ(Fields(packet).max, 2048);
    EXPECT_EQ(BytesOf(packet.get()), WithHeader(Item(std::string(1016, 'r')) + Item(Word(5))));
}

TEST(MsgPacket, ReceivedBytesInPlaceMayHaveATail)
{
    std::string bytes = WithHeader(Item("abc")) + "tail of more bytes";
    MSGDATA data;
    ASSERT_TRUE(ZKQGeneral_InitMsgPacket2(Raw(bytes), Length(bytes), &data));
    EXPECT_EQ(data.Version, 0);
    EXPECT_EQ(data.buffer, Raw(bytes));
    EXPECT_EQ(data.max, Length(bytes));
    EXPECT_EQ(data.size, 11);
    EXPECT_EQ(data.TotalSize, 11);
    EXPECT_EQ(data.TotalNums, 1);
    EXPECT_EQ(data.NeedMalloc, 0);
    EXPECT_EQ(Get(&data, 0), "abc");
    ASSERT_TRUE(Add(&data, "de"));
    EXPECT_EQ(bytes, WithHeader(Item("abc") + Item("de")) + "f more bytes");
    for (const int size : {10, 4, 3, 0, -1, INT_MIN})
        ExpectFails(EBADMSG, [&] { return ZKQGeneral_InitMsgPacket2(Raw(bytes), size, &data); });
}

// --- a caller's buffer ---

TEST(MsgPacket, AFixedBufferNeedsAByteToSpare)
{
    support::Buffer buffer(16);
    MSGDATA data;
    memset(&data, 0x5A, sizeof data);
    ASSERT_TRUE(ZKQGeneral_CreateMsgPacket2(reinterpret_cast<unsigned char*>(buffer.Data()), 16, &data));
    EXPECT_EQ(data.Version, 0);
    EXPECT_EQ(data.StepSize, 0);
    EXPECT_EQ(data.max, 16);
    EXPECT_EQ(data.size, 4);
    EXPECT_EQ(data.TotalSize, 4);
    EXPECT_EQ(data.TotalNums, 0);
    EXPECT_EQ(data.NeedMalloc, 0);
    EXPECT_EQ(BytesOf(&data), Word(4));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_AddInt(&data, 1));
    EXPECT_EQ(data.size, 12);
    const std::string before = buffer.Bytes();
    ExpectFails(ENOMEM, [&] { return ZKQGeneral_MsgPacket_AddInt(&data, 2); });
    EXPECT_EQ(buffer.Bytes(), before);
    EXPECT_TRUE(buffer.GuardIntact());
    EXPECT_EQ(data.size, 12);
    EXPECT_EQ(data.TotalSize, 20) << "counted first";
    EXPECT_EQ(data.TotalNums, 2);
}

TEST(MsgPacket, FixedBuffersOfEverySize)
{
    for (int size = 4; size < 64; ++size) {
        SCOPED_TRACE(size);
        support::Buffer buffer(static_cast<size_t>(size));
        MSGDATA data;
        ASSERT_TRUE(ZKQGeneral_CreateMsgPacket2(reinterpret_cast<unsigned char*>(buffer.Data()), size, &data));
        int used = 4;
        while (size - used > 4 && size - used - 4 > 3) {
            ASSERT_TRUE(Add(&data, "abc"));
            used += 7;
        }
        ExpectFails(ENOMEM, [&] { return Add(&data, "abc"); });
        EXPECT_TRUE(buffer.GuardIntact());
        EXPECT_LE(data.size, size);
    }
    unsigned char byte[4];
    MSGDATA data;
    for (const int size : {3, 0, -1, INT_MIN})
        ExpectFails(EBADMSG, [&] { return ZKQGeneral_CreateMsgPacket2(byte, size, &data); });
}

TEST(MsgPacket, AfterAFailedAddNothingIsReadBeyondTheBytesInUse)
{
    // 12 bytes for a value of 100: its length finds room, its bytes do not.
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[24]);
    MSGDATA data;
    ASSERT_TRUE(ZKQGeneral_CreateMsgPacket2(bytes.get(), 24, &data));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_AddInt(&data, 5));
    ExpectFails(ENOMEM, [&] { return Add(&data, std::string(100, 'x')); });
    EXPECT_EQ(data.size, 16);
    EXPECT_EQ(data.TotalSize, 116);
    EXPECT_EQ(CountOf(&data), 2);
    EXPECT_EQ(Get(&data, 0), Word(5));
    int value = 0;
    int size = 1000;
    char room[1000];
    void* place = nullptr;
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_GetData(&data, 1, room, &size); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_GetData(&data, 1, nullptr, &size); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_GetDataPtr(&data, 1, &place, &size); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_GetIntegerData(&data, 1, &value); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(&data, 5, room, &size, 1000); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(&data, 6, room, &size, 1000); });
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_GetBufferPtr(&data, 5, &place, &size); });
    int oids[1];
    int count = 1;
    ExpectFails(EBADMSG, [&] { return ZKQGeneral_MsgPacket_OID_EnumOID(&data, oids, &count); });
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_GetData(&data, 2, room, &size); });
}

TEST(MsgPacket, AFailedTaggedAddLeavesTheOid)
{
    unsigned char bytes[20];
    MSGDATA data;
    ASSERT_TRUE(ZKQGeneral_CreateMsgPacket2(bytes, sizeof bytes, &data));
    ExpectFails(ENOMEM, [&] { return AddTagged(&data, 9, "12345678"); });
    EXPECT_EQ(CountOf(&data), 2);
    EXPECT_EQ(Get(&data, 0), Word(9));
    MSGDATA other;
    ASSERT_TRUE(ZKQGeneral_CreateMsgPacket2(bytes, 13, &other));
    ExpectFails(ENOMEM, [&] { return ZKQGeneral_MsgPacket_OID_AddInt(&other, 9, 1); });
    EXPECT_EQ(CountOf(&other), 2);
    EXPECT_EQ(Get(&other, 0), Word(9));
    ASSERT_TRUE(ZKQGeneral_CreateMsgPacket2(bytes, 12, &other));
    ExpectFails(ENOMEM, [&] { return ZKQGeneral_MsgPacket_OID_AddString(&other, 9, "a"); });
    EXPECT_EQ(CountOf(&other), 1) << "the OID found no room";
}

// --- adding ---

TEST(MsgPacket, BadSizesAreRefusedBeforeAnythingIsCounted)
{
    const Owner packet = Create();
    const char byte = 'x';
    for (const int size : {-1, -4, INT_MIN}) {
        ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_AddBuffer(packet.get(), &byte, size); });
        ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_AddBuffer(packet.get(), nullptr, size); });
        ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_OID_AddBuffer(packet.get(), 1, &byte, size); });
    }
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_AddBuffer(packet.get(), nullptr, 1); });
    ExpectFails(EINVAL, [&] { return ZKQGeneral_MsgPacket_OID_AddBuffer(packet.get(), 1, nullptr, 1); });
    EXPECT_EQ(CountOf(packet.get()), 0);
    EXPECT_EQ(BytesOf(packet.get()), Word(4));
}

TEST(MsgPacket, ItemsOfThePacketItselfMayBeAddedWhileItMoves)
{
    const Owner packet = Create(1);
    std::string expected;
    ASSERT_TRUE(Add(packet.get(), "seed of some length"));
    expected += Item("seed of some length");
    for (int i = 0; i < 12; ++i) {
        unsigned char* all = nullptr;
        int size = 0;
        ASSERT_TRUE(ZKQGeneral_MsgPacket_GetBuffer(packet.get(), &all, &size));
        const std::string copy(reinterpret_cast<char*>(all), static_cast<size_t>(size));
        ASSERT_TRUE(i % 2 == 0 ? ZKQGeneral_MsgPacket_AddBuffer(packet.get(), all + 4, size - 4)
                               : ZKQGeneral_MsgPacket_OID_AddBuffer(packet.get(), i, all + 4, size - 4));
        expected += (i % 2 == 0 ? "" : Item(Word(i))) + Item(copy.substr(4));
        ASSERT_EQ(BytesOf(packet.get()), WithHeader(expected)) << i;
    }
    std::string text(300, '\0');
    MSGDATA data;
    ASSERT_TRUE(ZKQGeneral_CreateMsgPacket2(Raw(text), 300, &data));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddString(&data, 1, "text"));
    char* inside = nullptr;
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_GetStringPtr(&data, 1, &inside));
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddString(&data, 2, inside));
    EXPECT_EQ(Get(&data, 3), std::string("text\0", 5));
}

TEST(MsgPacket, APacketStaysBelowTwoGigabytes)
{
    constexpr size_t kBlock = size_t{1} << 30;
    void* block = mmap(nullptr, kBlock, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    const Owner packet = Create();
    // The sum would pass INT_MAX: nothing is touched, copied or counted.
    Fields(packet).TotalSize = INT_MAX - 100;
    const MSGDATA before = Fields(packet);
    ExpectFails(EMSGSIZE, [&] { return ZKQGeneral_MsgPacket_AddBuffer(packet.get(), block, 97); });
    ExpectFails(EMSGSIZE, [&] { return ZKQGeneral_MsgPacket_AddBuffer(packet.get(), block, 1 << 30); });
    ExpectFails(EMSGSIZE, [&] { return ZKQGeneral_MsgPacket_OID_AddBuffer(packet.get(), 1, block, 200); });
    EXPECT_EQ(Fields(packet).TotalNums, 1) << "the OID stays";
    Fields(packet).TotalSize = INT_MAX - 7;
    ExpectFails(EMSGSIZE, [&] { return ZKQGeneral_MsgPacket_AddInt(packet.get(), 1); });
    EXPECT_EQ(Fields(packet).max, before.max);
    // `max` may not pass INT_MAX either, but then the item is counted.
    Fields(packet).TotalSize = 12;
    Fields(packet).max = INT_MAX - 100;
    Fields(packet).size = INT_MAX - 101;
    ExpectFails(ENOMEM, [&] { return ZKQGeneral_MsgPacket_AddBuffer(packet.get(), block, 200); });
    munmap(block, kBlock);
}

// --- null arguments ---

TEST(MsgPacket, NullArguments)
{
    const Owner owner = Create();
    void* const packet = owner.get();
    ASSERT_TRUE(AddTagged(packet, 1, std::string("v\0", 2)));
    unsigned char bytes[8] = {0, 0, 0, 4};
    MSGDATA data;
    void* made = nullptr;
    unsigned char* place = nullptr;
    void* item = nullptr;
    char text[4];
    char* inside = nullptr;
    int number = 4;
    const std::function<BOOL()> calls[] = {
        [&] { return ZKQGeneral_CreateMsgPacket(0, nullptr); },
        [&] { return ZKQGeneral_InitMsgPacket(nullptr, 4, 0, &made); },
        [&] { return ZKQGeneral_InitMsgPacket(bytes, 4, 0, nullptr); },
        [&] { return ZKQGeneral_CreateMsgPacket2(nullptr, 8, &data); },
        [&] { return ZKQGeneral_CreateMsgPacket2(bytes, 8, nullptr); },
        [&] { return ZKQGeneral_InitMsgPacket2(nullptr, 8, &data); },
        [&] { return ZKQGeneral_InitMsgPacket2(bytes, 8, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_AddBuffer(nullptr, bytes, 1); },
        [&] { return ZKQGeneral_MsgPacket_AddInt(nullptr, 1); },
        [&] { return ZKQGeneral_MsgPacket_GetCount(nullptr, &number); },
        [&] { return ZKQGeneral_MsgPacket_GetCount(packet, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_GetBuffer(nullptr, &place, &number); },
        [&] { return ZKQGeneral_MsgPacket_GetBuffer(packet, nullptr, &number); },
        [&] { return ZKQGeneral_MsgPacket_GetBuffer(packet, &place, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_GetData(nullptr, 0, text, &number); },
        [&] { return ZKQGeneral_MsgPacket_GetData(packet, 0, text, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_GetDataPtr(nullptr, 0, &item, &number); },
        [&] { return ZKQGeneral_MsgPacket_GetDataPtr(packet, 0, nullptr, &number); },
        [&] { return ZKQGeneral_MsgPacket_GetDataPtr(packet, 0, &item, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_GetIntegerData(nullptr, 0, &number); },
        [&] { return ZKQGeneral_MsgPacket_GetIntegerData(packet, 0, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_OID_AddBuffer(nullptr, 1, bytes, 1); },
        [&] { return ZKQGeneral_MsgPacket_OID_AddString(nullptr, 1, "a"); },
        [&] { return ZKQGeneral_MsgPacket_OID_AddInt(nullptr, 1, 1); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(nullptr, 1, text, &number, 4); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetBuffer(packet, 1, text, nullptr, 4); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetString(nullptr, 1, text, 4); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetString(packet, 1, nullptr, 4); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetInt(nullptr, 1, &number); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetInt(packet, 1, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetBufferPtr(nullptr, 1, &item, &number); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetBufferPtr(packet, 1, &item, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetStringPtr(nullptr, 1, &inside); },
        [&] { return ZKQGeneral_MsgPacket_OID_GetStringPtr(packet, 1, nullptr); },
        [&] { return ZKQGeneral_MsgPacket_OID_EnumOID(nullptr, &number, &number); },
        [&] { return ZKQGeneral_MsgPacket_OID_EnumOID(packet, &number, nullptr); },
    };
    int i = 0;
    for (const auto& call : calls) {
        SCOPED_TRACE(i++);
        ExpectFails(EINVAL, call);
    }
    EXPECT_EQ(CountOf(packet), 2);
    ZKQGeneral_DestroyMsgPacket(nullptr);
}

TEST(MsgPacket, DestroyingReleasesWhatTheLibraryAllocatedAndNothingElse)
{
    support::ExpectNothingLeaks([] {
        const Owner packet = Create();
        ASSERT_TRUE(Add(packet.get(), std::string(5000, 'x')));
        EXPECT_EQ(Init("abcd"), nullptr);
        EXPECT_EQ(Init(Word(5) + "x"), nullptr);
    });
    unsigned char bytes[8];
    MSGDATA data;
    ASSERT_TRUE(ZKQGeneral_CreateMsgPacket2(bytes, 8, &data));
    ZKQGeneral_DestroyMsgPacket(&data);
    EXPECT_EQ(BytesOf(&data), Word(4));
}

TEST(MsgPacket, ManyItemsCostNoMoreThanTheirBytes)
{
    // A walk from the start for each of them, or a move of the block at each step, would take minutes.
    constexpr int kItems = 300000;
    const Owner packet = Create(1);
    for (int i = 0; i < kItems; ++i)
        ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_AddInt(packet.get(), i, -i));
    for (int i = 0; i < kItems; ++i) {
        int value = 7;
        ASSERT_TRUE(ZKQGeneral_MsgPacket_GetIntegerData(packet.get(), 2 * i + 1, &value));
        ASSERT_EQ(value, -i);
    }
    Integers oids(kItems);
    int count = kItems;
    ASSERT_TRUE(ZKQGeneral_MsgPacket_OID_EnumOID(packet.get(), oids.data(), &count));
    EXPECT_EQ(oids[kItems - 1], kItems - 1);
    EXPECT_EQ(Fields(packet).TotalSize, 4 + 16 * kItems);
}

} // namespace
