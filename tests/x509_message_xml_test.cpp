// Messages in mode 1.
#include <ZKQ_general/x509.h>
#include <errno.h>

#include "support/heap.h"
#include "support/message.h"
#include "support/sanitizer.h"
#include "support/xml_handle.h"

namespace {

using namespace support;

constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>";

/// The kinds that XML carries.
struct Doc {
    int id;
    int flag;
    char text[8];
    char* pointer;
    Named inside;
    Named* record;
    Leaf leaves[2];
    int leafCount;
    Named* items;
    int itemCount;
};
const GENERAL_MSG_TEMPLATE kElementNamed[] = {ZKQ_MSG_STRING(Named, name, "name", ""),
                                              ZKQ_MSG_STRINGPTR(Named, note, "note", "@")};
ZKQ_MSG_RECORD_ITEM(ElementNamed_it, kElementNamed)
const GENERAL_MSG_TEMPLATE kDoc[] = {
    ZKQ_MSG_INT32(Doc, id, "id", "/doc"),
    ZKQ_MSG_INT32(Doc, flag, "flag", "/doc/@"),
    ZKQ_MSG_STRING(Doc, text, "text", "/doc/head/"),
    ZKQ_MSG_STRINGPTR(Doc, pointer, "pointer", "/doc/head@"),
    ZKQ_MSG_RECORD(Doc, inside, ElementNamed_it, "", "/doc/inside"),
    ZKQ_MSG_RECORDPTR(Doc, record, ElementNamed_it, "", "/doc/record"),
    ZKQ_MSG_RECORDS(Doc, leaves, leafCount, Leaf_it, "", "/doc/List/Item/Count@"),
    ZKQ_MSG_RECORDSPTR(Doc, items, itemCount, ElementNamed_it, "", "doc/deep/er/item/number"),
};
ZKQ_MSG_RECORD_ITEM(Doc_it, kDoc)

char g_text[] = "some text";
char g_note[] = "a note";

Doc Sample(Named* record, Named* items)
{
    strcpy(record->name, "r");
    strcpy(items[0].name, "i0");
    items[0].note = g_note;
    Doc doc = {};
    doc.id = -1;
    doc.flag = 7;
    strcpy(doc.text, "1234567");
    doc.pointer = g_text;
    strcpy(doc.inside.name, "in");
    doc.inside.note = g_note;
    doc.record = record;
    doc.leaves[0].value = 10;
    doc.leaves[1].value = 20;
    doc.leafCount = 2;
    doc.items = items;
    doc.itemCount = 2;
    return doc;
}

constexpr char kSample[] = "<doc flag=\"7\"><id>4294967295</id><head pointer=\"some text\"><text>1234567</text></head>"
                           "<inside note=\"a note\"><name>in</name></inside><record note=\"\"><name>r</name></record>"
                           "<List Count=\"2\"><Item><value>10</value></Item><Item><value>20</value></Item></List>"
                           "<deep><er><number>2</number><item note=\"a note\"><name>i0</name></item>"
                           "<item note=\"\"><name></name></item></er></deep></doc>";

TEST(MessageXml, WritesEachKindWhereItsPathSays)
{
    Named record = {};
    Named items[2] = {};
    const Doc doc = Sample(&record, items);
    EXPECT_EQ(Flat(Encoded(&doc, Doc_it(), 1)), std::string(kDeclaration) + kSample);
}

TEST(MessageXml, ComesBackAsItWas)
{
    Named record = {};
    Named items[2] = {};
    const Doc doc = Sample(&record, items);
    const Zeroed<Doc> copy;
    memset(copy.Get(), 0x55, sizeof(Doc));
    ASSERT_EQ(DecodeText(copy.Get(), kSample, Doc_it(), 1), 0);
    EXPECT_EQ(copy->id, -1);
    EXPECT_EQ(copy->flag, 7);
    EXPECT_STREQ(copy->text, "1234567");
    EXPECT_STREQ(copy->pointer, g_text);
    EXPECT_STREQ(copy->inside.note, g_note);
    EXPECT_STREQ(copy->record->name, "r");
    EXPECT_STREQ(copy->record->note, "");
    EXPECT_EQ(copy->leafCount, 2);
    EXPECT_EQ(copy->leaves[1].value, 20);
    EXPECT_EQ(copy->itemCount, 2);
    EXPECT_STREQ(copy->items[0].note, g_note);
    EXPECT_EQ(Encoded(copy.Get(), Doc_it(), 1), Encoded(&doc, Doc_it(), 1));
    for (int times = 0; times < 2; ++times) { // twice is once
        ZKQGeneral_MSG_free(copy.Get(), Doc_it(), 0, 1);
        EXPECT_EQ(copy->pointer, nullptr);
        EXPECT_EQ(copy->inside.note, nullptr);
        EXPECT_EQ(copy->record, nullptr);
        EXPECT_EQ(copy->items, nullptr);
        EXPECT_EQ(copy->id, -1);
    }
}

TEST(MessageXml, HandsTheTextOut)
{
    const Leaf leaf = {5};
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_INT32(Leaf, value, "v", "/r")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    EXPECT_EQ(ZKQGeneral_MSG_i2d(&leaf, nullptr, 0, &it, 1), 0);
    unsigned char caller[] = "the caller's";
    unsigned char* out = caller; // is no buffer here
    EXPECT_EQ(ZKQGeneral_MSG_i2d(&leaf, &out, 3, &it, 1), 0);
    EXPECT_NE(out, caller);
    EXPECT_STREQ(reinterpret_cast<char*>(caller), "the caller's");
    EXPECT_EQ(Flat(reinterpret_cast<char*>(out)), std::string(kDeclaration) + "<r><v>5</v></r>");
    ZKQGeneral_FreeMallocBuffer(out);
    EXPECT_EQ(Flat(Encoded(nullptr, &it, 1)), kDeclaration) << "a null record writes nothing";
}

/// One field of a record, with a path.
template <class T>
std::string WithField(GENERAL_MSG_TEMPLATE field, const T& record)
{
    const GENERAL_MSG_ITEM it = {1, 0, &field, 1, 0, "", nullptr, nullptr, 0};
    const std::string text = Flat(Encoded(&record, &it, 1));
    return text.starts_with("(") ? text : text.substr(strlen(kDeclaration));
}

TEST(MessageXml, Paths)
{
    const Leaf leaf = {1};
    const struct {
        const char* path;
        const char* text;
    } rows[] = {{"/a", "<a><Id>1</Id></a>"},
                {"/a/", "<a><Id>1</Id></a>"},
                {"/a@", "<a Id=\"1\"></a>"},
                {"/a/@", "<a Id=\"1\"></a>"},
                {"/a/b", "<a><b><Id>1</Id></b></a>"},
                {"/a/b[k=v]/c", "<a><b k=\"v\"><c><Id>1</Id></c></b></a>"},
                {"a", "(20)"},
                {"/", "(20)"},
                {"//", "(20)"}, // without its last "/" it is the one above
                {"", "(22)"},   // an empty document has no element to stand for it
                {"@", "(22)"},
                {nullptr, "(22)"}};
    for (const auto& row : rows)
        EXPECT_EQ(WithField(ZKQ_MSG_INT32(Leaf, value, "Id", row.path), leaf), row.text)
            << (row.path == nullptr ? "null" : row.path);
    EXPECT_EQ(WithField(ZKQ_MSG_INT32(Leaf, value, "", "/a"), leaf), "(22)") << "no name";
    EXPECT_EQ(WithField(ZKQ_MSG_INT32(Leaf, value, nullptr, "/a"), leaf), "(22)");
}

TEST(MessageXml, TheCurrentElementHasFieldsOfItsOwn)
{
    struct Inner {
        int attribute;
        int child;
        int below;
    };
    struct Outer {
        Inner inner;
    };
    static const GENERAL_MSG_TEMPLATE inner[] = {ZKQ_MSG_INT32(Inner, attribute, "Id", "@"),
                                                 ZKQ_MSG_INT32(Inner, child, "Id", ""),
                                                 ZKQ_MSG_INT32(Inner, below, "x", "/in/sub")};
    static const GENERAL_MSG_ITEM innerIt = {1, 0, inner, 3, 0, "", nullptr, nullptr, 0};
    static const GENERAL_MSG_TEMPLATE outer[] = {ZKQ_MSG_RECORD(
        Outer, inner, [] { return &innerIt; }, "", "/out/in")};
    const GENERAL_MSG_ITEM it = {1, 0, outer, 1, 0, "", nullptr, nullptr, 0};
    const Outer record = {{1, 2, 3}};
    const std::string text = Flat(Encoded(&record, &it, 1));
    EXPECT_EQ(text.substr(strlen(kDeclaration)), "<out><in Id=\"1\"><Id>2</Id><sub><x>3</x></sub></in></out>");
    Outer copy;
    EXPECT_EQ(DecodeText(&copy, text, &it, 1), 0);
    EXPECT_EQ(copy.inner.attribute, 1);
    EXPECT_EQ(copy.inner.child, 2);
    EXPECT_EQ(copy.inner.below, 3);
}

TEST(MessageXml, CarriesFiveKindsOnly)
{
    All all = {};
    for (const size_t unsupported : {1u, 2u, 5u, 6u, 7u, 8u}) {
        GENERAL_MSG_TEMPLATE field = kAll[unsupported];
        EXPECT_EQ(WithField(field, all), "(-4)") << unsupported;
        const GENERAL_MSG_ITEM it = {1, 0, &field, 1, 0, "", nullptr, nullptr, 0};
        EXPECT_EQ(DecodeText(&all, "<all></all>", &it, 1), -4) << unsupported;
    }
}

TEST(MessageXml, NullPointersLeaveTheirElement)
{
    struct Pointers {
        Leaf* record;
        char* text;
        Leaf* many;
        int count;
        int* number;
    };
    static const GENERAL_MSG_TEMPLATE fields[] = {
        ZKQ_MSG_RECORDPTR(Pointers, record, Leaf_it, "", "/r/record"), ZKQ_MSG_STRINGPTR(Pointers, text, "text", "/r"),
        ZKQ_MSG_RECORDSPTR(Pointers, many, count, Leaf_it, "", "/r/l/i/c"),
        ZKQ_MSG_RECORDPTR(Pointers, number, ZKQGeneral_INT32_it, "number", "/r")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 4, 0, "", nullptr, nullptr, 0};
    Pointers pointers = {nullptr, nullptr, nullptr, 99, nullptr};
    const std::string text = Flat(Encoded(&pointers, &it, 1));
    EXPECT_EQ(text.substr(strlen(kDeclaration)), "<r><record></record><text></text><l><c>0</c></l></r>");
    ASSERT_EQ(DecodeText(&pointers, text, &it, 1), 0);
    ASSERT_NE(pointers.record, nullptr) << "the element is there, so is the record";
    EXPECT_EQ(pointers.record->value, 0);
    EXPECT_STREQ(pointers.text, "");
    EXPECT_EQ(pointers.many, nullptr);
    EXPECT_EQ(pointers.count, 0);
    EXPECT_EQ(*pointers.number, 0);
    ZKQGeneral_MSG_free(&pointers, &it, 0, 1);
    EXPECT_EQ(pointers.number, nullptr);
}

TEST(MessageXml, AbsentValuesAreZeroAndAbsentElementsAreNot)
{
    Named named = {};
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_STRING(Named, name, "name", "/r"),
                                                  ZKQ_MSG_STRINGPTR(Named, note, "note", "/r@")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 2, 0, "", nullptr, nullptr, 0};
    EXPECT_EQ(DecodeText(&named, "<r></r>", &it, 1), 0);
    EXPECT_TRUE(IsZero(named));
    EXPECT_EQ(DecodeText(&named, "<other></other>", &it, 1), 20);
    static const GENERAL_MSG_TEMPLATE deep[] = {ZKQ_MSG_STRING(Named, name, "name", "/r/a")};
    const GENERAL_MSG_ITEM deepIt = {1, 0, deep, 1, 0, "", nullptr, nullptr, 0};
    EXPECT_EQ(DecodeText(&named, "<r></r>", &deepIt, 1), 20);
    EXPECT_EQ(DecodeText(&named, "<r><\xEF\xBB\xBF<+a", &deepIt, 1), 20) << "an element without a name";
    EXPECT_EQ(DecodeText(&named, "", &it, 1), EINVAL);
    EXPECT_EQ(ZKQGeneral_MSG_d2i(&named, sizeof named, nullptr, 0, &it, 1), EINVAL);
    EXPECT_EQ(DecodeText(&named, "no element", &it, 1), ENOENT);
}

TEST(MessageXml, IntegersAreCutToTheirSize)
{
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_INT32(Leaf, value, "v", "/r")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    const struct {
        const char* text;
        int value;
    } rows[] = {{"4294967295", -1}, {"-1", -1}, {" 12x", 12}, {"x", 0}, {"4294967298", 2}, {"010", 10}, {"", 0}};
    for (const auto& row : rows) {
        Leaf leaf;
        EXPECT_EQ(DecodeText(&leaf, std::string("<r><v>") + row.text + "</v></r>", &it, 1), 0);
        EXPECT_EQ(leaf.value, row.value) << row.text;
    }
}

TEST(MessageXml, TextsFitOrFail)
{
    const std::string head = "<doc><head pointer=\"p\"><text>";
    const std::string tail = "</text></head><inside></inside><record></record></doc>";
    Doc doc;
    EXPECT_EQ(DecodeText(&doc, head + "1234567" + tail, Doc_it(), 1), 0);
    ZKQGeneral_MSG_free(&doc, Doc_it(), 0, 1);
    EXPECT_EQ(DecodeText(&doc, head + "12345678" + tail, Doc_it(), 1), -3);
    EXPECT_EQ(doc.pointer, nullptr);
}

TEST(MessageXml, ArraysNeedThreeSegments)
{
    Leaf leaf = {1};
    struct One {
        Leaf* leaves;
        int count;
    };
    const One one = {&leaf, 1};
    const struct {
        const char* path;
        const char* text; ///< encoded
        int decoded;
    } rows[] = {{nullptr, "(22)", 22},
                {"", "(-8)", -8},
                {"/", "(-8)", -8},
                {"/a/b", "(-8)", -8},
                {"@", "(-8)", -8},
                {"/a/b/c", "<a><c>1</c><b><value>1</value></b></a>", 0},
                {"a//b/c/", "<a><c>1</c><b><value>1</value></b></a>", 0},
                {"/a/b/c@", "<a c=\"1\"><b><value>1</value></b></a>", 0},
                {"/a/b/c/d@", "<a><b d=\"1\"><c><value>1</value></c></b></a>", 0},
                {"/a/b/@", "(22)", 0}}; // a count without a name cannot be written, and is absent when read
    for (const auto& row : rows) {
        GENERAL_MSG_TEMPLATE field = ZKQ_MSG_RECORDSPTR(One, leaves, count, Leaf_it, "", row.path);
        const GENERAL_MSG_ITEM it = {1, 0, &field, 1, 0, "", nullptr, nullptr, 0};
        const std::string what = row.path == nullptr ? "null" : row.path;
        const std::string text = WithField(field, one);
        EXPECT_EQ(text, row.text) << what;
        One copy;
        EXPECT_EQ(DecodeText(&copy, text.starts_with("<") ? text : "<a></a>", &it, 1), row.decoded) << what;
        EXPECT_EQ(copy.count, text.starts_with("<") ? 1 : 0) << what;
        ZKQGeneral_MSG_free(&copy, &it, 0, 1);
    }
}

TEST(MessageXml, ArraysHaveTheElementsThatTheyCount)
{
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORDSPTR(Tree, below, count, Leaf_it, "", "/r/i/n@"),
                                                  ZKQ_MSG_INT32(Tree, value, "v", "/r")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 2, 0, "", nullptr, nullptr, 0};
    const struct {
        const char* text;
        int result;
        int count;
    } rows[] = {{"<r></r>", 0, 0},
                {"<r n=\"1\"><i></i></r>", 0, 1},
                {"<r n=\"1\"><i></i><i></i></r>", 0, 1}, // as many as counted
                {"<r n=\"2\"><i></i><x></x><I></I><i></i></r>", 0, 2},
                {"<r n=\"2\"><i></i><I></I></r>", -3, 0},
                {"<r n=\"2147483647\"><i></i></r>", -3, 0},
                {"<r n=\"99999999999999999999\"><i></i></r>", -3, 0},
                {"<r n=\"-1\"><i></i></r>", -3, 0},
                {"<r n=\"x\"><i></i></r>", 0, 0}};
    for (const auto& row : rows) {
        Tree tree;
        EXPECT_EQ(DecodeText(&tree, row.text, &it, 1), row.result) << row.text;
        EXPECT_EQ(tree.count, row.count) << row.text;
        EXPECT_EQ(tree.below != nullptr, row.count > 0) << row.text;
        ZKQGeneral_MSG_free(&tree, &it, 0, 1);
        EXPECT_EQ(tree.below, nullptr);
    }
}

TEST(MessageXml, AnInlineArrayHoldsWhatFits)
{
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORDS(Doc, leaves, leafCount, Leaf_it, "", "/r/i/n@")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    Doc doc;
    EXPECT_EQ(DecodeText(&doc, "<r n=\"2\"><i></i><i></i></r>", &it, 1), 0);
    EXPECT_EQ(doc.leafCount, 2);
    EXPECT_EQ(DecodeText(&doc, "<r n=\"3\"><i></i><i></i><i></i></r>", &it, 1), -3);
}

TEST(MessageXml, ParentsOfArraysAreMadeEvenToDecode)
{
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORDSPTR(Tree, below, count, Leaf_it, "", "/r/made/i/n@"),
                                                  ZKQ_MSG_INT32(Tree, value, "v", "/r/made")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 2, 0, "", nullptr, nullptr, 0};
    Tree tree;
    EXPECT_EQ(DecodeText(&tree, "<r></r>", &it, 1), 0) << "so the field behind it finds one";
    EXPECT_EQ(DecodeText(&tree, "<q></q>", &it, 1), 20);
}

/// Trees of records that hold records of their own kind.
const GENERAL_MSG_ITEM* XmlTree_it();
const GENERAL_MSG_TEMPLATE kXmlTree[] = {ZKQ_MSG_INT32(Tree, value, "value", "@"),
                                         ZKQ_MSG_RECORDSPTR(Tree, below, count, XmlTree_it, "", "/t/list/t/n@")};
const GENERAL_MSG_ITEM* XmlTree_it()
{
    static const GENERAL_MSG_ITEM item = {1, 0, kXmlTree, 2, 0, "", nullptr, nullptr, 0};
    return &item;
}

TEST(MessageXml, TreesAndAllTheirElementsAreReleased)
{
    struct Root {
        Tree tree;
    };
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_RECORD(Root, tree, XmlTree_it, "", "/t")};
    const GENERAL_MSG_ITEM it = {1, 0, fields, 1, 0, "", nullptr, nullptr, 0};
    Tree leaves[3] = {{5, 0, nullptr}, {6, 0, nullptr}, {7, 0, nullptr}};
    Tree middle[2] = {{2, 1, leaves}, {3, 2, leaves + 1}};
    const Root root = {{1, 2, middle}};
    const std::string text = Encoded(&root, &it, 1);
    Root copy;
    const auto decode = [&] {
        ASSERT_EQ(DecodeText(&copy, text, &it, 1), 0);
        EXPECT_EQ(copy.tree.below[1].below[1].value, 7);
        ZKQGeneral_MSG_free(&copy, &it, 0, 1);
        EXPECT_EQ(copy.tree.below, nullptr);
    };
    decode();
    if (!IsInstrumented())
        ExpectNothingLeaks(decode);
    const std::string bad =
        std::string(text).replace(text.rfind("value=\"7\""), 9, "value=\"7\"><list n=\"9\"></list").insert(0, "");
    EXPECT_NE(DecodeText(&copy, bad, &it, 1), 0);
    EXPECT_EQ(copy.tree.below, nullptr);
}

TEST(MessageXml, ATemplateMetAgainOnItsElementEnds)
{
    static const GENERAL_MSG_ITEM* (*itself)() = nullptr;
    static const GENERAL_MSG_TEMPLATE fields[] = {ZKQ_MSG_INT32(Chain, value, "v", ""),
                                                  ZKQ_MSG_RECORDPTR(
                                                      Chain, next, [] { return itself(); }, "", "")};
    static const GENERAL_MSG_ITEM it = {1, 0, fields, 2, 0, "", nullptr, nullptr, 0};
    itself = [] { return &it; };
    Chain chain;
    EXPECT_EQ(DecodeText(&chain, "<r><v>5</v></r>", &it, 1), 0) << "a document stands for its root";
    EXPECT_EQ(chain.value, 5);
    EXPECT_EQ(chain.next, nullptr);
}

TEST(MessageXml, SimpleItemsOnTheirOwn)
{
    GENERAL_MSG_ITEM item = *ZKQGeneral_STRINGPTR_it();
    item.NodeName = "v";
    char* text = nullptr;
    ASSERT_EQ(DecodeText(&text, "<r><v>abc</v></r>", &item, 1), 0);
    EXPECT_STREQ(text, "abc");
    ZKQGeneral_MSG_free(text, &item, 0, 1); // the value itself
    EXPECT_EQ(Encoded("x", &item, 1), "(22)") << "there is no element for it";
    auto* const number = static_cast<int*>(malloc(sizeof(int)));
    ZKQGeneral_MSG_free(number, ZKQGeneral_INT32_it(), 1, 1);
    item.IsStruct = 3;
    EXPECT_EQ(DecodeText(&text, "<r><v>abc</v></r>", &item, 1), -4);
    EXPECT_EQ(Flat(Encoded("x", &item, 1)), kDeclaration);
}

} // namespace
