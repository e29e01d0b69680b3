// Messages in mode 2.
#include <ZKQ_general/x509.h>
#include <errno.h>

#include <algorithm>

#include "support/heap.h"
#include "support/message.h"
#include "support/sanitizer.h"

namespace {

using namespace support;

/// A text without the writer's indentation.
std::string Plain(std::string text)
{
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\t'; }), text.end());
    return text;
}

template <class T>
std::string Json(const T& record, const GENERAL_MSG_ITEM* it)
{
    return Plain(Encoded(&record, it, 2));
}

/// The kinds that JSON carries.
struct Doc {
    int id;
    char text[8];
    char* pointer;
    unsigned char hex[4];
    int hexCount;
    unsigned char* b64;
    int b64Count;
    Named inside;
    Named* record;
    Leaf leaves[2];
    int leafCount;
    Named* items;
    int itemCount;
    int* numbers;
    int numberCount;
    char** texts;
    int textCount;
};
const GENERAL_MSG_TEMPLATE kDoc[] = {
    ZKQ_MSG_INT32(Doc, id, "id", ""),
    ZKQ_MSG_STRING(Doc, text, "text", "head"),
    ZKQ_MSG_STRINGPTR(Doc, pointer, "pointer", "head/"),
    ZKQ_MSG_BYTEARRAY(Doc, hex, hexCount, "hex", "bytes"),
    ZKQ_MSG_BYTEARRAYPTR(Doc, b64, b64Count, "b64", "bytes@"),
    ZKQ_MSG_RECORD(Doc, inside, Named_it, "", "inside"),
    ZKQ_MSG_RECORDPTR(Doc, record, Named_it, "", "deep/record"),
    ZKQ_MSG_RECORDS(Doc, leaves, leafCount, Leaf_it, "", "leaves"),
    ZKQ_MSG_RECORDSPTR(Doc, items, itemCount, Named_it, "", "deep/items"),
    ZKQ_MSG_VALUESPTR(Doc, numbers, numberCount, ZKQGeneral_INT32_it, "", "numbers"),
    ZKQ_MSG_VALUESPTR(Doc, texts, textCount, ZKQGeneral_STRINGPTR_it, "", "texts"),
};
ZKQ_MSG_RECORD_ITEM(Doc_it, kDoc)

constexpr char kSample[] =
    R"({"id":-1,"head":{"text":"1234567","pointer":"some \"text\""},"bytes":{"hex":"01AB","b64":"AQID"},)"
    R"("inside":{"name":"in","note":"a note"},"deep":{"record":{"name":"r"},"items":[{"name":"i0","note":"a note"}, )"
    R"({"name":""}]},"leaves":[{"value":10}, {"value":20}],"numbers":[7, -8, 9],"texts":["a", "bc"]})";

TEST(MessageJson, WritesEachKindAndReadsItBack)
{
    char text[] = "some \"text\"";
    char note[] = "a note";
    char a[] = "a";
    char bc[] = "bc";
    unsigned char bytes[] = {1, 2, 3};
    int numbers[] = {7, -8, 9};
    char* texts[] = {a, bc};
    Named record = {"r", nullptr};
    Named items[] = {{"i0", note}, {"", nullptr}};
    const Doc doc = {-1, "1234567", text, {0x01, 0xAB}, 2, bytes, 3, {"in", note}, &record, {{10}, {20}},
                     2,  items,     2,    numbers,      3, texts, 2};
    EXPECT_EQ(Json(doc, Doc_it()), kSample);
    const Zeroed<Doc> copy;
    const auto decode = [&] {
        memset(copy.Get(), 0x55, sizeof(Doc));
        ASSERT_EQ(DecodeText(copy.Get(), kSample, Doc_it(), 2), 0);
        EXPECT_STREQ(copy->pointer, text);
        EXPECT_EQ(copy->hexCount, 2);
        EXPECT_EQ(copy->hex[1], 0xAB);
        EXPECT_EQ(copy->b64Count, 3);
        EXPECT_EQ(memcmp(copy->b64, bytes, 3), 0);
        EXPECT_EQ(copy->record->note, nullptr);
        EXPECT_EQ(copy->leaves[1].value, 20);
        EXPECT_STREQ(copy->items[0].note, note);
        EXPECT_EQ(copy->numberCount, 3);
        EXPECT_EQ(copy->numbers[1], -8);
        EXPECT_STREQ(copy->texts[1], "bc");
        EXPECT_EQ(Json(*copy.Get(), Doc_it()), kSample);
        for (int times = 0; times < 2; ++times) {
            ZKQGeneral_MSG_free(copy.Get(), Doc_it(), 0, 2);
            EXPECT_EQ(copy->pointer, nullptr);
            EXPECT_EQ(copy->b64, nullptr);
            EXPECT_EQ(copy->record, nullptr);
            EXPECT_EQ(copy->items, nullptr);
            EXPECT_EQ(copy->numbers, nullptr);
            EXPECT_EQ(copy->texts, nullptr);
        }
    };
    decode();
    if (!IsInstrumented())
        ExpectNothingLeaks(decode);
}

TEST(MessageJson, HandsTheTextOut)
{
    const Leaf leaf = {5};
    EXPECT_EQ(ZKQGeneral_MSG_i2d(&leaf, nullptr, 0, Leaf_it(), 2), 0);
    EXPECT_EQ(Json(leaf, Leaf_it()), "{\"value\":5}");
    EXPECT_EQ(Encoded(nullptr, Leaf_it(), 2), "{}");
    Leaf target;
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&target, sizeof target, nullptr, 0, Leaf_it(), 2), EINVAL);
    EXPECT_EQ(DecodeText(&target, "{", Leaf_it(), 2), -8);
    EXPECT_EQ(DecodeText(&target, "", Leaf_it(), 2), -8);
}

TEST(MessageJson, NullObjectsAreLeftOutAndArraysAreNot)
{
    const Doc doc = {};
    EXPECT_EQ(Json(doc, Doc_it()), R"({"id":0,"head":{"text":""},"bytes":{"hex":""},"inside":{"name":""},)"
                                   R"("leaves":[],"deep":{"items":[]},"numbers":[],"texts":[]})");
}

TEST(MessageJson, CarriesSomeKindsOnly)
{
    int64_t wide = 0;
    All all = {};
    int number = 0;
    all.intPtr = &number;
    for (const size_t unsupported : {1u, 2u, 7u, 8u}) {
        GENERAL_MSG_TEMPLATE field = kAll[unsupported];
        const GENERAL_MSG_ITEM it = {1, 0, &field, 1, 0, "", nullptr, nullptr, 0};
        EXPECT_EQ(Encoded(&all, &it, 2), "(-4)") << unsupported;
        All copy;
        EXPECT_EQ(DecodeText(&copy, "{}", &it, 2), -4) << unsupported;
    }
    struct Values {
        unsigned char** values;
        int count;
    };
    unsigned char* value = reinterpret_cast<unsigned char*>(&wide);
    const Values values = {&value, 1};
    for (const auto item : {ZKQGeneral_BYTEARRAYPTR_it, ZKQGeneral_INT64_it, Leaf_it}) {
        GENERAL_MSG_TEMPLATE field = ZKQ_MSG_VALUESPTR(Values, values, count, item, "", "v");
        const GENERAL_MSG_ITEM it = {1, 0, &field, 1, 0, "", nullptr, nullptr, 0};
        EXPECT_EQ(Encoded(&values, &it, 2), "(-4)");
        Values copy;
        EXPECT_EQ(DecodeText(&copy, "{\"v\":[\"00\"]}", &it, 2), -4);
        EXPECT_EQ(copy.values, nullptr);
    }
}

TEST(MessageJson, ReadsTheDeepestNodeThatIsThere)
{
    Named named = {};
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_STRING(Named, name, "name", "a/b"),
                                                  ZKQ_MSG_STRINGPTR(Named, note, "note", "a/zz/b")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 2, 0, "", nullptr, nullptr, 0};
    EXPECT_EQ(DecodeText(&named, R"({"a":{"b":{"name":"x","note":"y"}}})", &it, 2), 0);
    EXPECT_STREQ(named.name, "x");
    EXPECT_STREQ(named.note, "y");
    ZKQGeneral_MSG_free(&named, &it, 0, 2);
    EXPECT_EQ(DecodeText(&named, "{}", &it, 2), 0);
    EXPECT_TRUE(IsZero(named));
}

TEST(MessageJson, MissingArraysFail)
{
    Tree tree;
    EXPECT_EQ(DecodeText(&tree, "{}", Tree_it(), 2), EINVAL);
    EXPECT_EQ(DecodeText(&tree, R"({"below":{}})", Tree_it(), 2), EINVAL);
    EXPECT_EQ(DecodeText(&tree, R"({"below":[]})", Tree_it(), 2), 0);
    EXPECT_EQ(tree.count, 0);
    EXPECT_EQ(DecodeText(&tree, R"({"value":3,"below":[{"value":4,"below":[]},{"value":5}]})", Tree_it(), 2), EINVAL);
    EXPECT_EQ(tree.below, nullptr);
    EXPECT_EQ(tree.value, 3);
}

TEST(MessageJson, BytesFitOrFail)
{
    struct Bytes {
        unsigned char hex[2];
        int count;
        char guard[4];
    };
    static const GENERAL_MSG_TEMPLATE hex[] = {ZKQ_MSG_BYTEARRAY(Bytes, hex, count, "v", "")};
    static const GENERAL_MSG_TEMPLATE b64[] = {ZKQ_MSG_BYTEARRAY(Bytes, hex, count, "v", "@")};
    const struct {
        const GENERAL_MSG_TEMPLATE* field;
        const char* text;
        int result;
        int count;
    } rows[] = {{hex, R"({"v":"01ab"})", 0, 2},
                {hex, R"({"v":"01ab02"})", -3, 0},
                {hex, R"({"v":"0"})", 22, 0},
                {hex, R"({"v":5})", 0, 0},
                {hex, "{}", 0, 0},
                {b64, R"({"v":"Aas="})", 0, 2},
                {b64, R"({"v":"AQID"})", -3, 0},
                {b64, R"({"v":"*"})", 22, 0}};
    for (const auto& row : rows) {
        const GENERAL_MSG_ITEM it = {1, 0, row.field, 1, 0, "", nullptr, nullptr, 0};
        Bytes bytes;
        EXPECT_EQ(DecodeText(&bytes, row.text, &it, 2), row.result) << row.text;
        EXPECT_EQ(bytes.count, row.count) << row.text;
        EXPECT_EQ(memcmp(bytes.guard, "\0\0\0\0", 4), 0);
    }
}

TEST(MessageJson, ArraysOfBytesHaveElementsOfOneSize)
{
    struct Hash {
        unsigned char bytes[4];
    };
    struct Hashes {
        Hash* hashes;
        int count;
    };
    static const GENERAL_MSG_TEMPLATE hex[] = {
        ZKQ_MSG_VALUESPTR(Hashes, hashes, count, ZKQGeneral_BYTEARRAY_it, "", "h")};
    static const GENERAL_MSG_TEMPLATE b64[] = {
        ZKQ_MSG_VALUESPTR(Hashes, hashes, count, ZKQGeneral_BYTEARRAY_it, "", "h@")};
    Hash both[] = {{{1, 2, 3, 4}}, {{5, 6, 7, 8}}};
    const Hashes hashes = {both, 2};
    const std::string texts[] = {R"({"h":["01020304", "05060708"]})", R"({"h":["AQIDBA==", "BQYHCA=="]})"};
    for (const GENERAL_MSG_TEMPLATE* const field : {hex, b64}) {
        const GENERAL_MSG_ITEM it = {1, 0, field, 1, 0, "", nullptr, nullptr, 0};
        const std::string& text = texts[field == hex ? 0 : 1];
        EXPECT_EQ(Json(hashes, &it), text);
        Hashes copy;
        ASSERT_EQ(DecodeText(&copy, text, &it, 2), 0);
        EXPECT_EQ(copy.count, 2) << "the count of elements, not of an element's bytes";
        EXPECT_EQ(memcmp(copy.hashes, both, sizeof both), 0);
        ZKQGeneral_MSG_free(&copy, &it, 0, 2);
    }
    const GENERAL_MSG_ITEM it = {1, 0, hex, 1, 0, "", nullptr, nullptr, 0};
    Hashes copy;
    EXPECT_EQ(DecodeText(&copy, R"({"h":["01", "0102030405"]})", &it, 2), -3);
    EXPECT_EQ(copy.hashes, nullptr);
}

TEST(MessageJson, TextsInAnArrayOfBuffers)
{
    struct Buffers {
        char (*texts)[4];
        int count;
    };
    static const GENERAL_MSG_TEMPLATE fields[] = {
        ZKQ_MSG_VALUESPTR(Buffers, texts, count, ZKQGeneral_STRING_it, "", "t")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    char texts[][4] = {"abc", "", {'f', 'u', 'l', 'l'}};
    const Buffers buffers = {texts, 3};
    EXPECT_EQ(Json(buffers, &it), R"({"t":["abc", "", "full"]})");
    Buffers copy;
    ASSERT_EQ(DecodeText(&copy, R"({"t":["abc", ""]})", &it, 2), 0);
    EXPECT_STREQ(copy.texts[0], "abc");
    ZKQGeneral_MSG_free(&copy, &it, 0, 2);
    EXPECT_EQ(DecodeText(&copy, R"({"t":["abc", "full"]})", &it, 2), -3);
}

TEST(MessageJson, ANumberBehindAPointerIsNeverThere)
{
    struct Marked {
        int* never;
        int value;
    };
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORDPTR(Marked, never, ZKQGeneral_INT32_it, "never", "x"),
                                                  ZKQ_MSG_INT32(Marked, value, "value", "")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 2, 0, "", nullptr, nullptr, 0};
    int number = 5;
    const Marked marked = {&number, 1};
    EXPECT_EQ(Json(marked, &it), R"({"value":1})");
    Marked copy;
    EXPECT_EQ(DecodeText(&copy, R"({"x":{"never":5},"never":6,"value":7})", &it, 2), 0);
    EXPECT_EQ(copy.never, nullptr);
    EXPECT_EQ(copy.value, 7);
}

TEST(MessageJson, AMissingRecordReadsFromAbove)
{
    struct Outer {
        Leaf* leaf;
    };
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORDPTR(Outer, leaf, Leaf_it, "", "leaf")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    Outer outer;
    ASSERT_EQ(DecodeText(&outer, R"({"value":5})", &it, 2), 0);
    ASSERT_NE(outer.leaf, nullptr);
    EXPECT_EQ(outer.leaf->value, 5);
    ZKQGeneral_MSG_free(&outer, &it, 0, 2);
}

TEST(MessageJson, ChainsEndWhereTheirNodesEnd)
{
    Chain third = {3, nullptr};
    Chain second = {2, &third};
    const Chain first = {1, &second};
    const std::string text = Json(first, Chain_it());
    EXPECT_EQ(text, R"({"value":1,"next":{"value":2,"next":{"value":3}}})");
    Chain copy;
    ASSERT_EQ(DecodeText(&copy, text, Chain_it(), 2), 0);
    EXPECT_EQ(copy.next->next->value, 3);
    EXPECT_EQ(copy.next->next->next, nullptr);
    ZKQGeneral_MSG_free(&copy, Chain_it(), 0, 2);
}

TEST(MessageJson, DepthCostsNoStack)
{
    const int depth = IsInstrumented() ? 3000 : 100000;
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += R"({"value":1,"next":)";
    text += R"({"value":2})" + std::string(static_cast<size_t>(depth), '}');
    Chain chain;
    ASSERT_EQ(DecodeText(&chain, text, Chain_it(), 2), 0);
    int count = 0;
    for (const Chain* link = &chain; link->next != nullptr; link = link->next)
        ++count;
    EXPECT_EQ(count, depth);
    ZKQGeneral_MSG_free(&chain, Chain_it(), 0, 2);
}

/// Two arrays that are not there are found in the array they lie in: each level would double the records.
TEST(MessageJson, ADocumentCannotSendTheReaderInCircles)
{
    struct Twin {
        Twin* left;
        int leftCount;
        Twin* right;
        int rightCount;
    };
    static const GENERAL_MSG_ITEM* (*itself)() = nullptr;
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORDSPTR(
                                                      Twin, left, leftCount, [] { return itself(); }, "", "left"),
                                                  ZKQ_MSG_RECORDSPTR(
                                                      Twin, right, rightCount, [] { return itself(); }, "", "right")};
    static const GENERAL_MSG_ITEM it = {1, 0, fields, 2, 0, "", nullptr, nullptr, 0};
    itself = [] { return &it; };
    Twin twin;
    EXPECT_EQ(DecodeText(&twin, std::string(60, '[') + std::string(60, ']'), &it, 2), -5);
    EXPECT_EQ(twin.left, nullptr);
    ASSERT_EQ(DecodeText(&twin, "[[[]]]", &it, 2), 0);
    EXPECT_EQ(twin.leftCount, 1);
    ZKQGeneral_MSG_free(&twin, &it, 0, 2);
}

TEST(MessageJson, FailuresReleaseEveryElement)
{
    char note[] = "a note that is long enough for a block of its own";
    std::vector<Named> items(50, Named{"n", note});
    Doc doc = {};
    doc.items = items.data();
    doc.itemCount = 50;
    std::string text = Json(doc, Doc_it());
    text.replace(text.find("\"texts\":[]"), 10, "\"texts\":0 ");
    Doc copy;
    const auto decode = [&] {
        EXPECT_EQ(DecodeText(&copy, text, Doc_it(), 2), EINVAL);
        EXPECT_EQ(copy.items, nullptr);
    };
    decode();
    if (!IsInstrumented())
        ExpectNothingLeaks(decode);
    ZKQGeneral_MSG_free(&copy, Doc_it(), 0, 2);
}

TEST(MessageJson, SurvivesEveryChangeOfAByte)
{
    const std::string text = kSample;
    const Zeroed<Doc> copy;
    for (size_t at = 0; at < text.size(); ++at)
        for (const char change : {'\0', '"', '}', ']', ',', 'x', '9'}) {
            std::string changed = text;
            changed[at] = change;
            if (DecodeText(copy.Get(), changed, Doc_it(), 2) == 0)
                Encoded(copy.Get(), Doc_it(), 2);
            ZKQGeneral_MSG_free(copy.Get(), Doc_it(), 0, 2);
        }
}

TEST(MessageJson, SimpleItemsOnTheirOwn)
{
    const int number = 5;
    EXPECT_EQ(Encoded(&number, ZKQGeneral_INT32_it(), 2), "5");
    int copy = 0;
    EXPECT_EQ(DecodeText(&copy, "7", ZKQGeneral_INT32_it(), 2), 0);
    EXPECT_EQ(copy, 7);
    char* text = nullptr;
    EXPECT_EQ(DecodeText(&text, "\"abc\"", ZKQGeneral_STRINGPTR_it(), 2), 0);
    EXPECT_STREQ(text, "abc");
    ZKQGeneral_MSG_free(text, ZKQGeneral_STRINGPTR_it(), 1, 2);
}

} // namespace
