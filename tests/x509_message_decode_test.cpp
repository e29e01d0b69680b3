// Messages in mode 0 from strangers: what each kind takes, arrays, depth, and what a failure leaves behind.
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <limits.h>

#include <functional>

#include "support/heap.h"
#include "support/message.h"
#include "support/sanitizer.h"

namespace {

using namespace support;

struct Integers {
    int64_t i64;
    void* ptr;
};
const GENERAL_MSG_TEMPLATE kIntegers[] = {ZKQ_MSG_INT64(Integers, i64, "", ""), ZKQ_MSG_PTR(Integers, ptr, "", "")};
ZKQ_MSG_RECORD_ITEM(Integers_it, kIntegers)

TEST(MessageDecode, IntegersAreOfTheirSize)
{
    CheckFields<Integers>(
        Integers_it(),
        {{"02 08 01 02 03 04 05 06 07 08", 0, [](const Integers& r) { return r.i64 == 0x0102030405060708; }},
         {"02 07 01 02 03 04 05 06 07", -8, nullptr},
         {"02 09 01 02 03 04 05 06 07 08 09", -8, nullptr},
         {"02 00", -8, nullptr},
         {"02 08 00 00 00 00 00 00 00 00 03 08 00 00 00 00 00 00 00 ff", 0,
          [](const Integers& r) { return r.ptr == reinterpret_cast<void*>(255); }},
         {"02 08 00 00 00 00 00 00 00 00 03 04 00 00 00 01", -8, nullptr},
         {"02 08 00 00 00 00 00 00 00 00 02 08 00 00 00 00 00 00 00 01", -6, nullptr}});
}

struct Texts {
    char text[4];
    char* pointer;
};
const GENERAL_MSG_TEMPLATE kTexts[] = {ZKQ_MSG_STRING(Texts, text, "", ""), ZKQ_MSG_STRINGPTR(Texts, pointer, "", "")};
ZKQ_MSG_RECORD_ITEM(Texts_it, kTexts)

TEST(MessageDecode, TextsFitAndEnd)
{
    CheckFields<Texts>(
        Texts_it(),
        {{"04 04 61 62 63 00", 0, [](const Texts& r) { return strcmp(r.text, "abc") == 0; }},
         {"04 02 61 62", 0, [](const Texts& r) { return strcmp(r.text, "ab") == 0; }}, // the buffer was zeroed
         {"04 00", 0, [](const Texts& r) { return r.text[0] == '\0'; }},
         {"04 05 61 62 63 64 00", -3, nullptr},
         {"04 04 61 62 63 64", 0, [](const Texts& r) { return memcmp(r.text, "abcd", 4) == 0; }}, // its end has no room
         {"04 00 05 03 61 62 00", 0, [](const Texts& r) { return strcmp(r.pointer, "ab") == 0; }},
         {"04 00 05 00", 0, [](const Texts& r) { return r.pointer == nullptr; }},
         {"04 00 ff 00", 0, [](const Texts& r) { return r.pointer == nullptr; }}, // only the length is looked at
         {"04 00 05 80", 0, [](const Texts& r) { return r.pointer == nullptr; }},
         {"04 00 05 81 00", 0, [](const Texts& r) { return r.pointer == nullptr; }},
         {"04 00 05 02 61 62", -8, [](const Texts& r) { return r.pointer == nullptr; }}, // no end at all
         {"04 00 05", -3, nullptr},
         {"04 00 06 02 61 00", -6, nullptr}});
}

struct Buffers {
    unsigned char bytes[4];
    int byteCount;
    int ints[2];
    int intCount;
};
const GENERAL_MSG_TEMPLATE kBuffers[] = {ZKQ_MSG_BYTEARRAY(Buffers, bytes, byteCount, "", ""),
                                         ZKQ_MSG_INTARRAY(Buffers, ints, intCount, "", "")};
ZKQ_MSG_RECORD_ITEM(Buffers_it, kBuffers)

TEST(MessageDecode, BuffersHoldWhatFits)
{
    CheckFields<Buffers>(
        Buffers_it(), {{"06 04 01 02 03 04", 0, [](const Buffers& r) { return r.byteCount == 4 && r.bytes[3] == 4; }},
                       {"06 00", 0, [](const Buffers& r) { return r.byteCount == 0; }},
                       {"06 05 01 02 03 04 05", -3, [](const Buffers& r) { return r.byteCount == 0; }},
                       {"06 00 08 08 00 00 00 01 ff ff ff ff", 0,
                        [](const Buffers& r) { return r.intCount == 2 && r.ints[0] == 1 && r.ints[1] == -1; }},
                       {"06 00 08 0c 00 00 00 01 00 00 00 02 00 00 00 03", -3, nullptr},
                       {"06 00 08 07 00 00 00 01 aa bb cc", 0,
                        [](const Buffers& r) { return r.intCount == 1 && r.ints[0] == 1; }}, // whole ones count
                       {"06 00 08 03 01 02 03", 0, [](const Buffers& r) { return r.intCount == 0; }}});
}

struct Pointers {
    unsigned char* bytes;
    int byteCount;
    int* ints;
    int intCount;
};
const GENERAL_MSG_TEMPLATE kPointers[] = {ZKQ_MSG_BYTEARRAYPTR(Pointers, bytes, byteCount, "", ""),
                                          ZKQ_MSG_INTARRAYPTR(Pointers, ints, intCount, "", "")};
ZKQ_MSG_RECORD_ITEM(Pointers_it, kPointers)

/// They are where the sender put them, which may be at any address.
int First(const int* ints)
{
    int value = 0;
    memcpy(&value, static_cast<const void*>(ints), sizeof value);
    return value;
}

TEST(MessageDecode, PointersLeadIntoTheInput)
{
    CheckFields<Pointers>(
        Pointers_it(),
        {{"07 02 01 02", 0, [](const Pointers& r) { return r.byteCount == 2 && r.bytes[1] == 2; }},
         {"07 00 09 04 00 00 00 05", 0,
          [](const Pointers& r) { return r.bytes == nullptr && r.intCount == 1 && First(r.ints) == 5; }},
         {"07 00 09 80", 0, [](const Pointers& r) { return r.ints == nullptr && r.intCount == 0; }},
         {"07 80", 0, [](const Pointers& r) { return r.byteCount == 0; }},
         {"07 00 09 03 01 02 03", 0, [](const Pointers& r) { return r.intCount == 0 && r.ints != nullptr; }},
         {"07 05 01 02", -3, [](const Pointers& r) { return r.bytes == nullptr; }},
         {"07 02 01 02 09", -3, [](const Pointers& r) { return r.bytes == nullptr; }}});
}

TEST(MessageDecode, IntegersOfTheInputAreTurnedWhereTheyAre)
{
    const ExactBytes input(FromHex("30 0a 07 00 09 06 00 00 00 05 aa bb"));
    const Zeroed<Pointers> record;
    EXPECT_EQ(ZKQGeneral_MSG_d2i(record.Get(), sizeof(Pointers), input.Data(), input.Size(), Pointers_it(), 0), 0);
    EXPECT_EQ(static_cast<void*>(record->ints), input.Data() + 6);
    EXPECT_EQ(ToHex({reinterpret_cast<char*>(input.Data()), 12}), "30 0a 07 00 09 06 05 00 00 00 aa bb");
}

struct Embedded {
    Leaf leaf;
    int after;
};
const GENERAL_MSG_TEMPLATE kEmbedded[] = {ZKQ_MSG_RECORD(Embedded, leaf, Leaf_it, "", ""),
                                          ZKQ_MSG_INT32(Embedded, after, "", "")};
ZKQ_MSG_RECORD_ITEM(Embedded_it, kEmbedded)

TEST(MessageDecode, RecordsEndWhereTheySay)
{
    const auto is = [](int value, int after) {
        return [=](const Embedded& r) { return r.leaf.value == value && r.after == after; };
    };
    CheckFields<Embedded>(
        Embedded_it(), {{"30 06 01 04 00 00 00 01 01 04 00 00 00 02", 0, is(1, 2)},
                        {"30 08 01 04 00 00 00 01 ee ee 01 04 00 00 00 02", 0, is(1, 2)}, // the rest of it is skipped
                        {"30 00 01 04 00 00 00 02", 0, is(0, 2)},
                        {"30 03 01 04 00 00 00 01 01 04 00 00 00 02", -3, nullptr}, // its field goes beyond it
                        {"30 01 01 01 04 00 00 00 02", -3, nullptr},
                        {"30 0e 01 04 00 00 00 01 01 04 00 00 00 02", -3, nullptr}});
}

struct Lists {
    Leaf inside[2];
    int insideCount;
    Leaf* pointed;
    int pointedCount;
};
const GENERAL_MSG_TEMPLATE kLists[] = {ZKQ_MSG_RECORDS(Lists, inside, insideCount, Leaf_it, "", ""),
                                       ZKQ_MSG_RECORDSPTR(Lists, pointed, pointedCount, Leaf_it, "", "")};
ZKQ_MSG_RECORD_ITEM(Lists_it, kLists)

TEST(MessageDecode, ArraysAreCounted)
{
    const auto isNone = [](const Lists& r) { return r.pointed == nullptr; };
    CheckFields<Lists>(
        Lists_it(),
        {{"40 04 00 00 00 00 40 04 00 00 00 01 30 06 01 04 00 00 00 05", 0,
          [](const Lists& r) { return r.insideCount == 0 && r.pointedCount == 1 && r.pointed[0].value == 5; }},
         {"40 04 00 00 00 02 30 06 01 04 00 00 00 05 30 00", 0,
          [](const Lists& r) { return r.insideCount == 2 && r.inside[0].value == 5 && r.inside[1].value == 0; }},
         {"40 04 00 00 00", -3, isNone},
         {"41 04 00 00 00 00", -6, isNone},
         {"60 04 00 00 00 00", -6, isNone}, // the whole byte is compared
         {"41 05 00 00 00 00", -6, isNone},
         {"40 05 00 00 00 00", -8, isNone},
         {"40 84 00 00 00 00", -8, isNone},
         {"40 04 00 00 00 01", -3, isNone},
         {"40 04 00 00 00 01 30", -3, isNone},
         {"40 04 00 00 00 03 30 00 30 00 30 00", -3, isNone}, // the record holds two
         {"40 04 ff ff ff ff 30 00", -3, isNone},
         {"40 04 00 00 00 00 40 04 80 00 00 00 30 00", -3, isNone},
         {"40 04 00 00 00 00 40 04 7f ff ff ff 30 00", -3, isNone},
         {"40 04 00 00 00 00 40 04 00 00 00 02 30 00", -3, isNone},
         {"40 04 00 00 00 00 40 04 00 00 00 02 30 00 30", -3, isNone},
         {"40 04 00 00 00 00 40 04 00 00 00 02 30 00 31 00", -6, isNone},
         {"40 04 00 00 00 00 40 04 00 00 00 02 30 00 30 00 30 00", 0,
          [](const Lists& r) { return r.pointedCount == 2 && r.pointed != nullptr; }}});
}

TEST(MessageDecode, AnArrayInsideStaysInTheRecordThatWasGiven)
{
    const ExactBytes input(FromHex("30 0a 40 04 00 00 00 02 30 00 30 00"));
    const ExactBytes record(std::string(sizeof(Leaf), '\0')); // one element, where the type has two
    EXPECT_EQ(ZKQGeneral_MSG_d2i(record.Data(), record.Size(), input.Data(), input.Size(), Lists_it(), 0), -3);
}

TEST(MessageDecode, TakesNoMemoryForACountThatTheInputCannotHold)
{
    std::string bytes = FromHex("40 04 00 00 00 00 40 04 00 01 00 00");
    bytes += std::string(2 * 0xFFFF, '\x30');
    const ExactBytes input(Tlv(0x30, bytes));
    const Zeroed<Lists> record;
    const size_t before = HeapInUse();
    EXPECT_EQ(ZKQGeneral_MSG_d2i(record.Get(), sizeof(Lists), input.Data(), input.Size(), Lists_it(), 0), -3);
    EXPECT_EQ(HeapInUse(), before);
    EXPECT_EQ(record->pointedCount, 0);
}

TEST(MessageDecode, RefusesNoInputAtAll)
{
    Leaf leaf = {5};
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&leaf, sizeof leaf, nullptr, 8, Leaf_it(), 0), EINVAL);
    EXPECT_EQ(leaf.value, 0) << "zeroed first";
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&leaf, sizeof leaf, nullptr, 0, Leaf_it(), 0), -3);
    const unsigned char byte = 0x30;
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&leaf, sizeof leaf, &byte, -1, Leaf_it(), 0), -3);
}

TEST(MessageDecode, RefusesTemplatesThatCannotBe)
{
    GENERAL_MSG_ITEM item = *ZKQGeneral_INT32_it();
    ExactBytes input(FromHex("0a 00"));
    int64_t value = 0;
    item.DataType = 10;
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&value, 8, input.Data(), 2, &item, 0), -4);
    item.IsStruct = 2;
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&value, 8, input.Data(), 2, &item, 0), -4);

    ExactBytes record(FromHex("30 08 40 04 00 00 00 01 30 00"));
    for (const int size : {0, -4}) {
        GENERAL_MSG_TEMPLATE field = kLists[1];
        field.SizeofStruct = size;
        const GENERAL_MSG_ITEM it = {1, 0, &field, 1, 0, "", nullptr, nullptr, 0};
        Lists lists;
        EXPECT_EQ(ZKQGeneral_MSG_d2i(&lists, sizeof lists, record.Data(), record.Size(), &it, 0), -4);
        field.Type = 11;
        ExactBytes pointer(FromHex("30 08 30 06 01 04 00 00 00 01"));
        EXPECT_EQ(ZKQGeneral_MSG_d2i(&lists, sizeof lists, pointer.Data(), pointer.Size(), &it, 0), -4);
    }
}

/// Kind 14 is for JSON; here its item is written once, into the pointer itself.
struct Values {
    int* values;
    int count;
};

TEST(MessageDecode, ValuesAreOneValueInThePointer)
{
    static const GENERAL_MSG_TEMPLATE fields[] = {
        ZKQ_MSG_VALUESPTR(Values, values, count, ZKQGeneral_INT32_it, "", "")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    int numbers[] = {7, 8};
    Values values = {numbers, 2};
    EXPECT_EQ(EncodedHex(&values, &it), "30 06 01 04 00 00 00 07");
    values.values = nullptr;
    EXPECT_EQ(EncodedHex(&values, &it), "30 02 01 00");
    ExactBytes input(FromHex("30 06 01 04 00 00 00 07"));
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&values, sizeof values, input.Data(), 8, &it, 0), 0);
    EXPECT_EQ(values.values, reinterpret_cast<int*>(7));
    ZKQGeneral_MSG_free(&values, &it, 0, 0);
    EXPECT_EQ(values.values, reinterpret_cast<int*>(7)) << "left as it is";
    ExactBytes null(FromHex("30 02 01 00"));
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&values, sizeof values, null.Data(), 4, &it, 0), 0);
    EXPECT_EQ(values.values, nullptr);
}

TEST(MessageDecode, ValuesStayInsideOfThePointer)
{
    GENERAL_MSG_TEMPLATE field = {14, 0, "", ZKQGeneral_STRING_it, 8, 32, ""};
    const GENERAL_MSG_ITEM it = {1, 0, &field, 1, 0, "", nullptr, nullptr, 0};
    const Zeroed<Values> values;
    ExactBytes longText(Tlv(0x30, Tlv(4, std::string(20, 'x') + '\0')));
    EXPECT_EQ(ZKQGeneral_MSG_d2i(values.Get(), sizeof(Values), longText.Data(), longText.Size(), &it, 0), -3);
    field.item = Lists_it;
    ExactBytes record(Tlv(0x30, FromHex("30 06 40 04 00 00 00 00")));
    EXPECT_EQ(ZKQGeneral_MSG_d2i(values.Get(), sizeof(Values), record.Data(), record.Size(), &it, 0), -4);
}

TEST(MessageDecode, SimpleItemsBehindPointersAndInArrays)
{
    struct Simple {
        int* one;
        int64_t* many;
        int count;
    };
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORDPTR(Simple, one, ZKQGeneral_INT32_it, "", ""),
                                                  ZKQ_MSG_RECORDSPTR(Simple, many, count, ZKQGeneral_INT64_it, "", "")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 2, 0, "", nullptr, nullptr, 0};
    int one = 5;
    int64_t many[] = {1, -1};
    Simple simple = {&one, many, 2};
    const std::string encoded = Encoded(&simple, &it);
    EXPECT_EQ(ToHex(encoded), "30 20 01 04 00 00 00 05 40 04 00 00 00 02 02 08 00 00 00 00 00 00 00 01"
                              " 02 08 ff ff ff ff ff ff ff ff");
    ExactBytes input(encoded);
    Simple copy;
    ASSERT_EQ(ZKQGeneral_MSG_d2i(&copy, sizeof copy, input.Data(), input.Size(), &it, 0), 0);
    EXPECT_EQ(*copy.one, 5);
    EXPECT_EQ(copy.many[1], -1);
    ZKQGeneral_MSG_free(&copy, &it, 0, 0);
    EXPECT_EQ(copy.one, nullptr);
    EXPECT_EQ(copy.many, nullptr);

    struct Short {
        short* many;
        int count;
    };
    static const GENERAL_MSG_TEMPLATE tooSmall[] = {
        ZKQ_MSG_RECORDSPTR(Short, many, count, ZKQGeneral_INT64_it, "", "")};
    const GENERAL_MSG_ITEM shortIt = {1, 0, tooSmall, 1, 0, "", nullptr, nullptr, 0};
    ExactBytes shortInput(FromHex("30 10 40 04 00 00 00 01 02 08 00 00 00 00 00 00 00 01"));
    Short target;
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&target, sizeof target, shortInput.Data(), shortInput.Size(), &shortIt, 0), -4)
        << "an element of two bytes takes no eight";
}

/// The encoding of a chain that is so deep, built from its end.
std::string DeepChain(int depth, const std::string& innermost)
{
    std::string reversed(innermost.rbegin(), innermost.rend());
    size_t size = innermost.size();
    for (int i = 0; i < depth; ++i) {
        const std::string value = FromHex("01 04 00 00 00 01");
        reversed.append(value.rbegin(), value.rend());
        size += value.size();
        const std::string header =
            Tlv(0x30, std::string(size, 'x')).substr(0, Tlv(0x30, std::string(size, 'x')).size() - size);
        reversed.append(header.rbegin(), header.rend());
        size += header.size();
    }
    return {reversed.rbegin(), reversed.rend()};
}

TEST(MessageDepth, CostsNoStack)
{
    const int depth = IsInstrumented() ? 20000 : 500000;
    std::vector<Chain> chain(static_cast<size_t>(depth));
    for (size_t i = 0; i < chain.size(); ++i)
        chain[i] = {static_cast<int>(i), i + 1 < chain.size() ? &chain[i + 1] : nullptr};
    const std::string encoded = Encoded(chain.data(), Chain_it());
    ASSERT_GT(encoded.size(), chain.size());
    const ExactBytes input(encoded);
    Chain copy;
    ASSERT_EQ(ZKQGeneral_MSG_d2i(&copy, sizeof copy, input.Data(), input.Size(), Chain_it(), 0), 0);
    int count = 0;
    for (const Chain* link = &copy; link != nullptr; link = link->next)
        EXPECT_EQ(link->value, count++);
    EXPECT_EQ(count, depth);
    EXPECT_TRUE(Encoded(&copy, Chain_it()) == encoded);
    ZKQGeneral_MSG_free(&copy, Chain_it(), 0, 0);
    EXPECT_EQ(copy.next, nullptr);
}

TEST(MessageDepth, AFailureAtTheBottomReleasesAll)
{
    const std::string bad = DeepChain(500, FromHex("01 03 00 00 00"));
    const ExactBytes input(bad);
    Chain copy;
    const auto decode = [&] {
        EXPECT_EQ(ZKQGeneral_MSG_d2i(&copy, sizeof copy, input.Data(), input.Size(), Chain_it(), 0), -6);
        EXPECT_EQ(copy.next, nullptr);
        EXPECT_EQ(copy.value, 1) << "what is no pointer stays";
    };
    decode();
    if (!IsInstrumented())
        ExpectNothingLeaks(decode);
}

TEST(MessageRelease, WorksThroughAWideTree)
{
    std::vector<Tree> leaves(1000);
    Tree middle[3] = {{1, 1000, leaves.data()}, {2, 0, nullptr}, {3, 500, leaves.data()}};
    Tree root = {0, 3, middle};
    const ExactBytes input(Encoded(&root, Tree_it()));
    // In mode 0 only the first element of each array has its members released; the rest is the caller's.
    Tree copy;
    ASSERT_EQ(ZKQGeneral_MSG_d2i(&copy, sizeof copy, input.Data(), input.Size(), Tree_it(), 0), 0);
    Tree* const third = copy.below[2].below;
    ASSERT_NE(third, nullptr);
    ZKQGeneral_MSG_free(&copy, Tree_it(), 0, 0);
    EXPECT_EQ(copy.below, nullptr);
    free(third);
}

TEST(MessageRelease, LeavesRecordsInsideAlone)
{
    struct Holder {
        Chain chains[2];
        int count;
    };
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORDS(Holder, chains, count, Chain_it, "", "")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    Chain end = {9, nullptr};
    Holder holder = {{{1, &end}, {2, nullptr}}, 2};
    const ExactBytes input(Encoded(&holder, &it));
    Holder copy;
    ASSERT_EQ(ZKQGeneral_MSG_d2i(&copy, sizeof copy, input.Data(), input.Size(), &it, 0), 0);
    ZKQGeneral_MSG_free(&copy, &it, 0, 0);
    ASSERT_NE(copy.chains[0].next, nullptr);
    EXPECT_EQ(copy.chains[0].next->value, 9);
    free(copy.chains[0].next);

    std::string cut = Encoded(&holder, &it);
    cut[cut.size() - 3] = '\x03'; // the tag of the last pointer's field
    const ExactBytes bad(Tlv(0x30, cut.substr(2, cut.size() - 4) + '\x30'));
    EXPECT_NE(ZKQGeneral_MSG_d2i(&copy, sizeof copy, bad.Data(), bad.Size(), &it, 0), 0);
    EXPECT_EQ(copy.chains[0].next, nullptr) << "a failure releases them all the same";
}

TEST(MessageRelease, TakesTheRecordAlongWhenAsked)
{
    auto* const chain = static_cast<Chain*>(calloc(1, sizeof(Chain)));
    chain->next = static_cast<Chain*>(calloc(1, sizeof(Chain)));
    ZKQGeneral_MSG_free(chain, Chain_it(), 1, 0); // a leak checker sees whether it did
    int value = 5;
    ZKQGeneral_MSG_free(&value, ZKQGeneral_INT32_it(), 1, 0); // a simple item does nothing, or this would abort
}

/// Every cut and every changed byte of an encoding: no crash, nothing left behind.
TEST(MessageDecode, SurvivesEveryChangeOfAByte)
{
    int ints[] = {1, 2};
    unsigned char bytes[] = {1, 2};
    char text[] = "t";
    Named pointed = {"p", text};
    Named items[] = {{"a", text}, {"b", nullptr}};
    const All all = {1, 2,    nullptr, "x",          text,     {1},        1, bytes, 2, {3},
                     1, ints, 2,       {"in", text}, &pointed, {{1}, {2}}, 2, items, 2};
    const std::string encoded = Encoded(&all, All_it());
    const Zeroed<All> copy;
    const auto decode = [&](const std::string& changed) {
        const ExactBytes input(changed);
        const int result = ZKQGeneral_MSG_d2i(copy.Get(), sizeof(All), input.Data(), input.Size(), All_it(), 0);
        EXPECT_LE(result, 0);
        if (result == 0)
            Encoded(copy.Get(), All_it());
        ZKQGeneral_MSG_free(copy.Get(), All_it(), 0, 0);
        EXPECT_EQ(copy->recordPtr, nullptr);
    };
    for (size_t size = 0; size < encoded.size(); ++size)
        decode(encoded.substr(0, size));
    for (size_t at = 0; at < encoded.size(); ++at)
        for (const int change : {1, 2, 0x20, 0x40, 0x80, 0x7F, 0xFF}) {
            std::string changed = encoded;
            changed[at] = static_cast<char>(changed[at] ^ change);
            decode(changed);
        }
}

} // namespace
