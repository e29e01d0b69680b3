// Messages in mode 0: templates, encoding, budgets, decoding, releasing.
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <limits.h>

#include <functional>

#include "support/heap.h"
#include "support/message.h"
#include "support/sanitizer.h"

namespace {

using namespace support;

std::string FakeAddress(const void* pointer)
{
    const auto value = reinterpret_cast<uint64_t>(pointer);
    return BigEndian32(static_cast<unsigned>(value >> 32)) + BigEndian32(static_cast<unsigned>(value));
}

TEST(MessageItems, AreTheNineSimpleKinds)
{
    const struct {
        const GENERAL_MSG_ITEM* (*item)();
        const char* name;
    } rows[] = {{ZKQGeneral_INT32_it, "INT32"},
                {ZKQGeneral_INT64_it, "INT64"},
                {ZKQGeneral_PTR_it, "PTR"},
                {ZKQGeneral_STRING_it, "STRING"},
                {ZKQGeneral_STRINGPTR_it, "STRINGPTR"},
                {ZKQGeneral_BYTEARRAY_it, "BYTEARRAY"},
                {ZKQGeneral_BYTEARRAYPTR_it, "BYTEARRAYPTR"},
                {ZKQGeneral_INTARRAY_it, "INTARRAY"},
                {ZKQGeneral_INTARRAYPTR_it, "INTARRAYPTR"}};
    int kind = 0;
    for (const auto& row : rows) {
        const GENERAL_MSG_ITEM* const item = row.item();
        EXPECT_EQ(item, row.item());
        EXPECT_EQ(item->IsStruct, 0);
        EXPECT_EQ(item->DataType, ++kind);
        EXPECT_STREQ(item->Name, row.name);
        EXPECT_EQ(item->Templates, nullptr);
        EXPECT_EQ(item->XPath, nullptr);
        EXPECT_EQ(item->NodeName, nullptr);
        EXPECT_EQ(item->Count | item->Temp | item->BuffSize, 0);
    }
}

TEST(MessageTemplates, AreFilledByTheMacros)
{
    const GENERAL_MSG_TEMPLATE& bytes = kAll[5];
    EXPECT_EQ(bytes.Type, 6);
    EXPECT_EQ(bytes.Offset, offsetof(All, bytes));
    EXPECT_EQ(bytes.ArraySizeOffset, static_cast<int>(offsetof(All, byteCount)));
    EXPECT_EQ(bytes.SizeofStruct, 8);
    EXPECT_STREQ(bytes.FieldName, "bytes");
    EXPECT_STREQ(bytes.XPath, "/all");
    EXPECT_EQ(bytes.item(), ZKQGeneral_BYTEARRAY_it());
    int kind = 0;
    for (const GENERAL_MSG_TEMPLATE& field : kAll)
        EXPECT_EQ(field.Type, ++kind);
    EXPECT_EQ(kAll[7].SizeofStruct, 16) << "bytes of an inline array of integers";
    EXPECT_EQ(kAll[9].SizeofStruct, static_cast<int>(sizeof(Named))) << "an embedded record";
    EXPECT_EQ(kAll[10].SizeofStruct, static_cast<int>(sizeof(Named))) << "a record pointed to";
    EXPECT_EQ(kAll[11].SizeofStruct, static_cast<int>(sizeof(Leaf))) << "an element";
    EXPECT_EQ(kAll[12].SizeofStruct, static_cast<int>(sizeof(Named))) << "an element pointed to";
    EXPECT_EQ(All_it()->IsStruct, 1);
    EXPECT_EQ(All_it()->Count, 13);
    EXPECT_EQ(All_it(), All_it());
}

TEST(MessageModes, MustBeKnown)
{
    const Leaf leaf = {1};
    unsigned char* out = nullptr;
    for (const int mode : {-1, 3, INT_MAX}) {
        EXPECT_EQ(ZKQGeneral_MSG_i2d(&leaf, &out, 0, Leaf_it(), mode), -22);
        Leaf target = {7};
        EXPECT_EQ(ZKQGeneral_MSG_d2i(&target, sizeof target, nullptr, 0, Leaf_it(), mode), EINVAL);
        EXPECT_EQ(target.value, 0) << "the record is empty whatever the mode";
        target.value = 7;
        ZKQGeneral_MSG_free(&target, Leaf_it(), 1, mode); // would abort if it did anything
    }
    for (const int mode : {0, 1, 2}) {
        EXPECT_EQ(ZKQGeneral_MSG_i2d(&leaf, &out, 0, nullptr, mode), -22);
        EXPECT_EQ(ZKQGeneral_MSG_d2i(nullptr, 4, nullptr, 0, Leaf_it(), mode), EINVAL);
        Leaf target = {7};
        EXPECT_EQ(ZKQGeneral_MSG_d2i(&target, -1, nullptr, 0, Leaf_it(), mode), EINVAL);
        EXPECT_EQ(target.value, 7);
        EXPECT_EQ(ZKQGeneral_MSG_d2i(&target, 4, nullptr, 0, nullptr, mode), EINVAL);
        EXPECT_EQ(target.value, 0);
        ZKQGeneral_MSG_free(nullptr, Leaf_it(), 1, mode);
        ZKQGeneral_MSG_free(&target, nullptr, 1, mode);
    }
    EXPECT_EQ(out, nullptr);
}

TEST(MessageDer, EncodesEachKind)
{
    Leaf leaf = {1};
    EXPECT_EQ(EncodedHex(&leaf, Leaf_it()), "30 06 01 04 00 00 00 01");
    EXPECT_EQ(ZKQGeneral_MSG_i2d(&leaf, nullptr, 0, Leaf_it(), 0), 8);

    int ints[] = {-1, 0x01020304};
    unsigned char bytes[] = {9, 8, 7};
    char text[] = "xy";
    Named pointed = {"p", nullptr};
    Named items[] = {{"a", text}, {"", nullptr}};
    All all = {};
    all.i32 = -2;
    all.i64 = 0x0102030405060708;
    all.ptr = &leaf;
    strcpy(all.text, "ab");
    all.textPtr = text;
    memcpy(all.bytes, bytes, 3);
    all.byteCount = 3;
    all.bytePtr = bytes;
    all.bytePtrCount = 2;
    all.ints[0] = 5;
    all.intCount = 1;
    all.intPtr = ints;
    all.intPtrCount = 2;
    strcpy(all.inside.name, "in");
    all.record = &pointed;
    all.records[0].value = 1;
    all.records[1].value = 2;
    all.recordCount = 2;
    all.recordPtr = items;
    all.recordPtrCount = 2;
    const std::string content = FromHex("01 04 ff ff ff fe  02 08 01 02 03 04 05 06 07 08") +
                                Tlv(3, FakeAddress(&leaf)) +
                                FromHex("04 03 61 62 00  05 03 78 79 00  06 03 09 08 07  07 02 09 08  08 04 00 00 00 05"
                                        "09 08 ff ff ff ff 01 02 03 04"
                                        "30 07 04 03 69 6e 00 05 00"
                                        "30 06 04 02 70 00 05 00"
                                        "40 04 00 00 00 02  30 06 01 04 00 00 00 01  30 06 01 04 00 00 00 02"
                                        "40 04 00 00 00 02  30 09 04 02 61 00 05 03 78 79 00  30 05 04 01 00 05 00");
    EXPECT_EQ(EncodedHex(&all, All_it()), ToHex(Tlv(0x30, content)));
}

TEST(MessageDer, EncodesNullPointersAsNothing)
{
    All all = {};
    all.bytePtrCount = 5; // whatever the count says
    all.intPtrCount = -1;
    all.recordPtrCount = 3;
    EXPECT_EQ(EncodedHex(&all, All_it()),
              ToHex(Tlv(0x30, FromHex("01 04 00 00 00 00  02 08 00 00 00 00 00 00 00 00 03 08 00 00 00 00 00 00 00 00"
                                      "04 01 00  05 00  06 00  07 00  08 00  09 00  30 05 04 01 00 05 00  30 00"
                                      "40 04 00 00 00 00  40 04 00 00 00 00"))));
    EXPECT_EQ(EncodedHex(nullptr, All_it()), "30 00");
    EXPECT_EQ(EncodedHex(nullptr, ZKQGeneral_INT32_it()), "01 00");
    EXPECT_EQ(EncodedHex("ab", ZKQGeneral_STRINGPTR_it()), "05 03 61 62 00");
}

/// A record with one buffer, to be given a content of any size.
struct Blob {
    unsigned char* data;
    int size;
};
const GENERAL_MSG_TEMPLATE kBlob[] = {ZKQ_MSG_BYTEARRAYPTR(Blob, data, size, "data", "")};
ZKQ_MSG_RECORD_ITEM(Blob_it, kBlob)

TEST(MessageDer, LengthsHaveAsManyBytesAsTheyNeed)
{
    for (const size_t size : {0u, 1u, 127u, 128u, 200u, 255u, 256u, 65535u, 65536u, 0xFFFFF0u, 0x1000000u}) {
        std::string data(size, 'd');
        const Blob blob = {reinterpret_cast<unsigned char*>(data.data()), static_cast<int>(size)};
        const std::string expected = Tlv(0x30, Tlv(7, data));
        EXPECT_EQ(ZKQGeneral_MSG_i2d(&blob, nullptr, 0, Blob_it(), 0), static_cast<int>(expected.size()));
        EXPECT_TRUE(Encoded(&blob, Blob_it()) == expected) << size;
    }
    std::string data(200, 'd');
    const Blob blob = {reinterpret_cast<unsigned char*>(data.data()), 200};
    EXPECT_EQ(ToHex(Encoded(&blob, Blob_it()).substr(0, 6)), "30 81 cb 07 81 c8") << "203 bytes with a content of 200";
}

TEST(MessageDer, EndsATextThatFillsItsBuffer)
{
    struct Full {
        char text[4];
    };
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_STRING(Full, text, "", "")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    const Zeroed<Full> full; // of exactly its size
    memcpy(full->text, "full", 4);
    EXPECT_EQ(EncodedHex(full.Get(), &it), "30 07 04 05 66 75 6c 6c 00");
    unsigned char buffer[9];
    unsigned char* out = buffer;
    EXPECT_EQ(ZKQGeneral_MSG_i2d(full.Get(), &out, 9, &it, 0), 9);
}

TEST(MessageDer, ManySmallFieldsAreAsOneByOne)
{
    struct Wide {
        char text[120];
    };
    std::vector<GENERAL_MSG_TEMPLATE> fields;
    for (unsigned i = 0; i < 20; ++i)
        fields.push_back({ZKQ_MSG_KIND_STRING, 0, "", ZKQGeneral_STRING_it, 0, 120, ""});
    Wide wide = {};
    for (size_t length : {10u, 50u, 119u}) {
        memset(wide.text, 'w', length);
        std::string content;
        for (int count = 0; count <= 20; ++count) { // over the end of any fixed room
            const GENERAL_MSG_ITEM it = {1, 0, fields.data(), count, 0, "", nullptr, nullptr, 0};
            EXPECT_EQ(ToHex(Encoded(&wide, &it)), ToHex(Tlv(0x30, content))) << count;
            content += Tlv(4, std::string(length, 'w') + '\0');
        }
    }
}

TEST(MessageDer, RefusesWhatCannotBeEncoded)
{
    unsigned char byte = 0;
    Blob blob = {&byte, -1};
    EXPECT_EQ(Encoded(&blob, Blob_it()), "(-5)");

    int ints = 0;
    All all = {};
    all.intPtr = &ints;
    all.intPtrCount = INT_MAX;
    EXPECT_EQ(Encoded(&all, All_it()), "(-5)");
    all.intPtrCount = 0;
    all.recordCount = -1;
    EXPECT_EQ(Encoded(&all, All_it()), "(-5)");

    GENERAL_MSG_ITEM item = *ZKQGeneral_INT32_it();
    item.DataType = 10;
    EXPECT_EQ(Encoded(&ints, &item), "(-4)");
    item.DataType = 0;
    EXPECT_EQ(Encoded(&ints, &item), "(-4)");
    item.IsStruct = 2;
    EXPECT_EQ(Encoded(&ints, &item), "") << "nothing, and no failure";
    EXPECT_EQ(Encoded(nullptr, &item), "");

    static const GENERAL_MSG_TEMPLATE noItem[] = {{1, 0, "x", nullptr, 0, 0, ""}};
    const GENERAL_MSG_ITEM record = {1, 0, noItem, 1, 0, "", nullptr, nullptr, 0};
    EXPECT_EQ(Encoded(&ints, &record), "(-4)");
}

TEST(MessageDer, RefusesARecordThatContainsItself)
{
    Chain ring[3] = {{1, &ring[1]}, {2, &ring[2]}, {3, &ring[0]}};
    for (const int mode : {0, 2})
        EXPECT_EQ(Encoded(ring, Chain_it(), mode), "(-5)");
    Chain self = {1, &self};
    EXPECT_EQ(Encoded(&self, Chain_it()), "(-5)");
    Chain tail[] = {{0, &tail[1]}, {0, &tail[2]}, {0, ring}};
    EXPECT_EQ(Encoded(tail, Chain_it()), "(-5)");
}

/// A budget for a caller's buffer: what comes of it, and how many bytes are written.
struct Spent {
    int result;
    int written; ///< how far *out was moved
};
Spent Spend(const void* record, const GENERAL_MSG_ITEM* it, int max, size_t room)
{
    const std::unique_ptr<unsigned char[]> buffer(new unsigned char[room]);
    unsigned char* out = buffer.get();
    const int result = ZKQGeneral_MSG_i2d(record, &out, max, it, 0);
    const auto written = static_cast<int>(out - buffer.get());
    if (result >= 0) {
        EXPECT_EQ(std::string(buffer.get(), out), Encoded(record, it).substr(0, static_cast<size_t>(written)));
    }
    return {result, written};
}

TEST(MessageBudget, IsTheSizeWhereLengthsAreShort)
{
    Named named = {"abc", nullptr};
    const int total = ZKQGeneral_MSG_i2d(&named, nullptr, -5, Named_it(), 0);
    EXPECT_EQ(total, 10);
    for (int max = -1; max < total; ++max) {
        const Spent spent = Spend(&named, Named_it(), max, static_cast<size_t>(std::max(max, 0)));
        EXPECT_EQ(spent.result, -3) << max;
        EXPECT_EQ(spent.written, 0) << "the pointer is moved by success only";
    }
    for (const int max : {total, total + 1, INT_MAX}) {
        const Spent spent = Spend(&named, Named_it(), max, static_cast<size_t>(total));
        EXPECT_EQ(spent.result, total);
        EXPECT_EQ(spent.written, total);
    }
}

TEST(MessageBudget, DoesNotKnowOfTheByteBeforeALongLength)
{
    std::string data(200, 'd');
    const Blob blob = {reinterpret_cast<unsigned char*>(data.data()), 200};
    const int total = ZKQGeneral_MSG_i2d(&blob, nullptr, 0, Blob_it(), 0);
    constexpr int kLongHeaders = 2;
    for (int max = 0; max < total - kLongHeaders; ++max)
        EXPECT_EQ(Spend(&blob, Blob_it(), max, static_cast<size_t>(max + kLongHeaders)).result, -3) << max;
    for (int max = total - kLongHeaders; max <= total; ++max) {
        const Spent spent = Spend(&blob, Blob_it(), max, static_cast<size_t>(total));
        EXPECT_EQ(spent.result, total) << max;
        EXPECT_EQ(spent.written, total) << max;
    }
}

struct Arrays {
    int count;
    Leaf* leaves;
};
const GENERAL_MSG_TEMPLATE kArrays[] = {ZKQ_MSG_RECORDSPTR(Arrays, leaves, count, Leaf_it, "", "")};
ZKQ_MSG_RECORD_ITEM(Arrays_it, kArrays)

TEST(MessageBudget, GoesOnWithoutTheHeaderOfAnArray)
{
    const Arrays none = {0, nullptr};
    EXPECT_EQ(EncodedHex(&none, Arrays_it()), "30 06 40 04 00 00 00 00");
    EXPECT_EQ(Spend(&none, Arrays_it(), 1, 1).result, -3);
    for (int max = 2; max < 8; ++max) {
        const Spent spent = Spend(&none, Arrays_it(), max, 2);
        EXPECT_EQ(spent.result, 8) << "the header is not missed";
        EXPECT_EQ(spent.written, 2);
    }
    EXPECT_EQ(Spend(&none, Arrays_it(), 8, 8).written, 8);
    Leaf leaf = {1};
    const Arrays one = {1, &leaf};
    for (int max = 2; max < 8; ++max)
        EXPECT_EQ(Spend(&one, Arrays_it(), max, 7).result, -3) << "nor is there room for the element";
}

TEST(MessageBudget, LeavesTheNullRecordSilent)
{
    unsigned char buffer[2] = {};
    unsigned char* out = buffer;
    EXPECT_EQ(ZKQGeneral_MSG_i2d(nullptr, &out, 1, Leaf_it(), 0), -3);
    EXPECT_EQ(ZKQGeneral_MSG_i2d(nullptr, &out, 2, Leaf_it(), 0), 2);
    EXPECT_EQ(out, buffer + 2);
}

TEST(MessageDer, ComesBackAsItWas)
{
    int ints[] = {-1, 0x01020304};
    unsigned char bytes[] = {9, 8, 7};
    char text[] = "some text";
    Named pointed = {"p", text};
    Named items[] = {{"a", text}, {"", nullptr}, {"1234567", text}};
    All all = {-7, INT64_MIN, text, "hello world", text,     {1, 2},          2, bytes, 3, {4, -5},
               2,  ints,      2,    {"in", text},  &pointed, {{1}, {2}, {3}}, 3, items, 3};
    const std::string encoded = Encoded(&all, All_it());
    const ExactBytes input(encoded + "what follows is ignored");
    const Zeroed<All> copy;
    memset(copy.Get(), 0x55, sizeof(All));
    ASSERT_EQ(ZKQGeneral_MSG_d2i(copy.Get(), sizeof(All), input.Data(), input.Size(), All_it(), 0), 0);
    const auto isInInput = [&](const void* p) {
        return p >= static_cast<void*>(input.Data()) && p < static_cast<const void*>(input.End());
    };
    EXPECT_EQ(copy->i32, -7);
    EXPECT_EQ(copy->i64, INT64_MIN);
    EXPECT_EQ(copy->ptr, text);
    EXPECT_STREQ(copy->text, "hello world");
    EXPECT_STREQ(copy->textPtr, text);
    EXPECT_TRUE(isInInput(copy->textPtr));
    EXPECT_EQ(copy->byteCount, 2);
    EXPECT_EQ(memcmp(copy->bytes, all.bytes, sizeof all.bytes), 0);
    EXPECT_EQ(copy->bytePtrCount, 3);
    EXPECT_TRUE(isInInput(copy->bytePtr));
    EXPECT_EQ(memcmp(copy->bytePtr, bytes, 3), 0);
    EXPECT_EQ(copy->intCount, 2);
    EXPECT_EQ(memcmp(copy->ints, all.ints, sizeof all.ints), 0);
    EXPECT_EQ(copy->intPtrCount, 2);
    EXPECT_TRUE(isInInput(copy->intPtr));
    EXPECT_EQ(memcmp(copy->intPtr, ints, sizeof ints), 0) << "turned where they are";
    EXPECT_STREQ(copy->inside.name, "in");
    EXPECT_STREQ(copy->inside.note, text);
    EXPECT_STREQ(copy->record->name, "p");
    EXPECT_EQ(copy->recordCount, 3);
    EXPECT_EQ(copy->records[2].value, 3);
    EXPECT_EQ(copy->recordPtrCount, 3);
    EXPECT_STREQ(copy->recordPtr[2].name, "1234567");
    EXPECT_EQ(copy->recordPtr[1].note, nullptr);
    EXPECT_EQ(ToHex(Encoded(copy.Get(), All_it())), ToHex(encoded));
    ZKQGeneral_MSG_free(copy.Get(), All_it(), 0, 0);
    EXPECT_EQ(copy->textPtr, nullptr);
    EXPECT_EQ(copy->bytePtr, nullptr);
    EXPECT_EQ(copy->intPtr, nullptr);
    EXPECT_EQ(copy->inside.note, nullptr);
    EXPECT_EQ(copy->record, nullptr);
    EXPECT_EQ(copy->recordPtr, nullptr);
    EXPECT_EQ(copy->i32, -7) << "the rest stays";
    EXPECT_EQ(copy->recordPtrCount, 3);
    ZKQGeneral_MSG_free(copy.Get(), All_it(), 0, 0); // twice is once
}

TEST(MessageDer, TrailingFieldsMayBeMissing)
{
    const Zeroed<All> all;
    ExactBytes nothing(FromHex("30 00"));
    memset(all.Get(), 1, sizeof(All));
    EXPECT_EQ(ZKQGeneral_MSG_d2i(all.Get(), sizeof(All), nothing.Data(), 2, All_it(), 0), 0);
    EXPECT_TRUE(IsZero(*all.Get()));
    ExactBytes one(FromHex("30 06 01 04 00 00 00 01"));
    EXPECT_EQ(ZKQGeneral_MSG_d2i(all.Get(), sizeof(All), one.Data(), 8, All_it(), 0), 0);
    EXPECT_EQ(all->i32, 1);
    EXPECT_EQ(all->i64, 0);
}

TEST(MessageDer, ChecksHeadersInTheirOrder)
{
    const auto isOne = [](const Leaf& leaf) { return leaf.value == 1; };
    const auto isNone = [](const Leaf& leaf) { return leaf.value == 0; };
    CheckRecords<Leaf>(Leaf_it(), {
                                      {"", -3, isNone},
                                      {"30", -3, isNone},
                                      {"30 06 01 04 00 00 00", -3, isNone},  // the record is longer than the input
                                      {"10 06 01 04 00 00 00 01", 0, isOne}, // five bits of the tag count
                                      {"31 06 01 04 00 00 00 01", -6, isNone},
                                      {"31 07 01 04 00 00 00 01", -3, isNone}, // length before tag
                                      {"31 85 01 04 00 00 00 01", -5, isNone}, // and the length's own form before that
                                      {"30 81 06 01 04 00 00 00 01", 0, isOne},
                                      {"30 84 00 00 00 06 01 04 00 00 00 01", 0, isOne},
                                      {"30 85 00 00 00 00 06 01 04 00 00 00 01", -5, isNone},
                                      {"30 ff 00 00 00 00 06", -5, isNone},
                                      {"30 80 01 04 00 00 00 01", 0, isNone}, // no bytes of length: nothing in it
                                      {"30 82 01", -3, isNone},
                                      {"30 84 ff ff ff ff", -5, isNone},
                                      {"30 84 01 00 00 00", -5, isNone},
                                      {"30 83 ff ff ff", -3, isNone},
                                      {"30 02 01 00", -8, isNone},
                                      {"30 05 01 03 00 00 00", -8, isNone},
                                      {"30 07 01 05 00 00 00 00 01", -8, isNone},
                                      {"30 06 02 04 00 00 00 01", -6, isNone},
                                      {"30 06 01 05 00 00 00 01", -3, isNone}, // longer than the record it is in
                                      {"30 01 01", -3, isNone},
                                      {"30 09 01 04 00 00 00 01 99 99 99", 0, isOne}, // more than the template has
                                  });
}

TEST(MessageDer, ComparesFiveBitsOfATag)
{
    // 0x81 & 0x1F is 1, so it is an INT32 as well.
    CheckRecords<Leaf>(Leaf_it(), {{"f0 06 e1 04 00 00 00 01", 0, [](const Leaf& leaf) { return leaf.value == 1; }}});
}

} // namespace
