// JSON documents by paths: members, integers and texts, binary fields, arrays of values and of records.
#include <ZKQ_general/base64.h>
#include <ZKQ_general/json.h>
#include <ZKQ_general/string.h>
#include <ZKQ_general/system.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <random>

#include "support/base64_model.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/sanitizer.h"

namespace {

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// A document, closed at the end if it was not before.
class Document {
public:
    explicit Document(const char* text = nullptr) { EXPECT_EQ(JSON_Misc_InitJSON(text, &ctx_), 0); }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;
    ~Document()
    {
        if (ctx_ != nullptr)
            JSON_Misc_FiniJSON(ctx_, nullptr);
    }
    operator void*() const { return ctx_; } // NOLINT: stands for its handle
    std::string Close()
    {
        char* text = nullptr;
        EXPECT_EQ(JSON_Misc_FiniJSON(std::exchange(ctx_, nullptr), &text), 0);
        const std::string written = text == nullptr ? "(null)" : text;
        ZKQGeneral_FreeMallocBuffer(text);
        return written;
    }

private:
    void* ctx_ = nullptr;
};

void* Node(void* from, const char* path)
{
    void* node = nullptr;
    EXPECT_EQ(JSON_Misc_GetChildNode(from, path, &node), 0);
    return node;
}

void* Added(void* from, const char* path)
{
    void* node = nullptr;
    EXPECT_EQ(JSON_Misc_GetChildNode_AutoAdd(from, path, &node), 0);
    return node;
}

std::string String(void* from, const char* path)
{
    char* value = nullptr;
    EXPECT_EQ(JSON_Misc_GetString(from, path, &value), 0);
    return value == nullptr ? "(null)" : value;
}

int Int(void* from, const char* path)
{
    int value = 4711;
    EXPECT_EQ(JSON_Misc_GetInt(from, path, &value), 0);
    return value;
}

/// Calls one of the functions that decode; the code of a failure, in brackets, instead of the bytes.
template <class Function, class... Arguments>
std::string Decoded(Function function, Arguments... arguments)
{
    unsigned char mark = 0;
    unsigned char* value = &mark;
    int length = 4711;
    if (const int code = function(arguments..., &value, &length)) {
        EXPECT_EQ(value, &mark) << "left alone";
        EXPECT_EQ(length, 4711);
        return "(" + std::to_string(code) + ")";
    }
    const std::string bytes =
        value == nullptr ? "" : std::string(reinterpret_cast<char*>(value), static_cast<size_t>(length));
    EXPECT_TRUE(value != nullptr || length == 0);
    ZKQGeneral_FreeMallocBuffer(value);
    return bytes;
}

std::string Hex(void* from, const char* path)
{
    return Decoded(JSON_Misc_GetHexData, from, path);
}

std::string Base64(void* from, const char* path)
{
    return Decoded(JSON_Misc_GetB64Data, from, path);
}

struct Elements {
    int count = -1;
    std::unique_ptr<size_t, void (*)(void*)> list{nullptr, ZKQGeneral_FreeMallocBuffer};

    void* operator[](int i) const { return reinterpret_cast<void*>(list.get()[i]); }
};

Elements Array(void* from, const char* path)
{
    Elements elements;
    size_t* list = nullptr;
    EXPECT_EQ(JSON_Misc_GetArrayInfo(from, path, &elements.count, &list), 0);
    elements.list.reset(list);
    return elements;
}

// Searching

TEST(JsonSearch, FollowsMembersByTheirExactNames)
{
    const Document doc(R"({"Cert":{"Subject":{"CN":"name","cn":"other"},"n":7},"a b":{"":"x"},"é":"y"})");
    EXPECT_EQ(String(doc, "Cert/Subject/CN"), "name");
    EXPECT_EQ(String(doc, "Cert/Subject/cn"), "other");
    EXPECT_EQ(Int(doc, "Cert/n"), 7);
    EXPECT_EQ(String(doc, "é"), "y");
    EXPECT_EQ(Node(doc, "a b"), Node(Node(doc, "a b"), "")) << "a name cannot be empty";
    EXPECT_EQ(String(Node(doc, "Cert"), "Subject/CN"), "name") << "from any node";
    EXPECT_EQ(String(Node(doc, "Cert/Subject/CN"), nullptr), "name");
}

TEST(JsonSearch, NullEmptyAndBarePathsAreTheNodeItself)
{
    const Document doc(R"({"":{"a":1},"a":2})");
    for (const char* path : {static_cast<const char*>(nullptr), "", "/", "///"}) {
        EXPECT_EQ(Node(doc, path), static_cast<void*>(doc));
        EXPECT_EQ(Added(doc, path), static_cast<void*>(doc));
        EXPECT_EQ(Int(Node(doc, "a"), path), 2);
    }
    for (const char* path : {"/a", "a/", "//a//"})
        EXPECT_EQ(Node(doc, path), Node(doc, "a")) << path;
}

TEST(JsonSearch, TheFirstOfSeveralMembersOfAName)
{
    const Document doc(R"({"a":1,"b":{"a":5},"a":2,"b":{"a":6}})");
    EXPECT_EQ(Int(doc, "a"), 1);
    EXPECT_EQ(Int(doc, "b/a"), 5);
}

TEST(JsonSearch, NamesThatAreNotThereArePassedOver)
{
    const Document doc(R"({"a":{"c":{"d":"deep","n":3}},"s":"text","c":"root's"})");
    EXPECT_EQ(Node(doc, "a/b/c"), Node(doc, "a/c"));
    EXPECT_EQ(Node(doc, "x"), static_cast<void*>(doc));
    EXPECT_EQ(Node(doc, "x/y/z"), static_cast<void*>(doc));
    EXPECT_EQ(Node(doc, "x/a/y/c/z/d/w"), Node(doc, "a/c/d"));
    EXPECT_EQ(String(doc, "x/c"), "root's");
    EXPECT_EQ(String(doc, "none"), "(null)") << "an object's text";
    EXPECT_EQ(Int(doc, "none"), 0) << "an object's integer";
    EXPECT_EQ(String(doc, "s/none"), "text");
    EXPECT_EQ(Hex(doc, "none"), "");
    EXPECT_EQ(Node(doc, "A"), static_cast<void*>(doc)) << "with case";
}

TEST(JsonSearch, ArraysAreNotIndexed)
{
    const Document doc(R"({"a":[{"b":1},{"0":2}]})");
    EXPECT_EQ(Node(doc, "a/0"), Node(doc, "a"));
    EXPECT_EQ(Node(doc, "a/b"), Node(doc, "a"));
}

TEST(JsonSearch, AddsWhatIsMissingAsEmptyObjects)
{
    Document doc;
    void* const node = Added(doc, "a/b/c");
    EXPECT_EQ(Added(doc, "a/b/c"), node);
    EXPECT_EQ(Node(doc, "a/b/c"), node);
    Added(doc, "a/d");
    Added(doc, "//e//f//");
    EXPECT_EQ(doc.Close(),
              "{\n\t\"a\":{\n\t\t\"b\":{\n\t\t\t\"c\":{}\n\t\t},\n\t\t\"d\":{}\n\t},\n\t\"e\":{\n\t\t\"f\":{}\n\t}\n}");
}

TEST(JsonSearch, AddsBehindWhatWasRead)
{
    Document doc(R"({"a":1,"b":{"c":2}})");
    Added(doc, "b/d");
    Added(doc, "e");
    EXPECT_EQ(doc.Close(), "{\n\t\"a\":1,\n\t\"b\":{\n\t\t\"c\":2,\n\t\t\"d\":{}\n\t},\n\t\"e\":{}\n}");
}

TEST(JsonSearch, BelowATextNothingThatIsAddedIsWritten)
{
    Document doc(R"({"s":"text","n":5,"t":true})");
    EXPECT_EQ(JSON_Misc_SetInt(doc, "s/below", 1), 0);
    EXPECT_EQ(JSON_Misc_SetInt(doc, "n/below", 2), 0);
    EXPECT_EQ(JSON_Misc_SetInt(doc, "t/below", 3), 0);
    EXPECT_EQ(Int(doc, "s/below"), 1);
    EXPECT_EQ(doc.Close(), "{\n\t\"s\":\"text\",\n\t\"n\":5,\n\t\"t\":true\n}");
}

// Texts and integers

TEST(JsonSet, TextsAndIntegers)
{
    Document doc;
    EXPECT_EQ(JSON_Misc_SetString(doc, "a/s", "te\"xt"), 0);
    EXPECT_EQ(JSON_Misc_SetInt(doc, "a/n", -5), 0);
    EXPECT_EQ(JSON_Misc_SetInt(doc, "min", INT_MIN), 0);
    EXPECT_EQ(JSON_Misc_SetInt(doc, "max", INT_MAX), 0);
    EXPECT_EQ(JSON_Misc_SetString(doc, "null", nullptr), 0);
    EXPECT_EQ(String(doc, "a/s"), "te\"xt");
    EXPECT_EQ(Int(doc, "a/n"), -5);
    EXPECT_EQ(String(doc, "null"), "");
    EXPECT_EQ(doc.Close(), "{\n\t\"a\":{\n\t\t\"s\":\"te\\\"xt\",\n\t\t\"n\":-5\n\t},\n\t\"min\":-2147483648,\n"
                           "\t\"max\":2147483647,\n\t\"null\":\"\"\n}");
}

TEST(JsonSet, TheTextIsACopy)
{
    Document doc;
    std::string text = "before";
    EXPECT_EQ(JSON_Misc_SetString(doc, "a", text.c_str()), 0);
    text = "after!";
    EXPECT_EQ(String(doc, "a"), "before");
}

TEST(JsonSet, ReplacesWhatANodeWas)
{
    Document doc(R"({"a":"old","b":7,"c":[1],"d":{"e":1},"f":true,"g":null})");
    for (const char* path : {"a", "b", "c", "d", "f", "g"})
        EXPECT_EQ(JSON_Misc_SetString(doc, path, path), 0);
    EXPECT_EQ(Int(doc, "d/e"), 1) << "what was below it is still there";
    EXPECT_EQ(Int(doc, "b"), 7) << "a text leaves the integer";
    EXPECT_EQ(JSON_Misc_SetInt(doc, "a", 1), 0);
    EXPECT_EQ(JSON_Misc_SetInt(doc, "d", 2), 0);
    EXPECT_EQ(String(doc, "a"), "a") << "an integer leaves the text";
    EXPECT_EQ(doc.Close(),
              "{\n\t\"a\":1,\n\t\"b\":\"b\",\n\t\"c\":\"c\",\n\t\"d\":2,\n\t\"f\":\"f\",\n\t\"g\":\"g\"\n}");
}

TEST(JsonSet, TheDocumentItself)
{
    Document text;
    EXPECT_EQ(JSON_Misc_SetString(text, nullptr, "all"), 0);
    EXPECT_EQ(text.Close(), "\"all\"");
    Document number("{\"a\":1}");
    EXPECT_EQ(JSON_Misc_SetInt(number, "", 3), 0);
    EXPECT_EQ(number.Close(), "3");
}

TEST(JsonSet, WhatIsBelowATextComesBackWithTheType)
{
    Document doc;
    EXPECT_EQ(JSON_Misc_SetInt(doc, "a/b", 1), 0);
    EXPECT_EQ(JSON_Misc_SetString(doc, "a", "text"), 0);
    EXPECT_EQ(JSON_Misc_SetNodeArrayType(Node(doc, "a")), 0);
    EXPECT_EQ(doc.Close(), "{\n\t\"a\":[1]\n}");
}

TEST(JsonSet, ATextThatIsAPartOfTheOldOne)
{
    const char* const texts[] = {R"({"a":"one two"})", nullptr};
    for (const char* text : texts) { // one that was read, one that was set
        Document doc(text);
        EXPECT_TRUE(text != nullptr || JSON_Misc_SetString(doc, "a", "one two") == 0);
        char* own = nullptr;
        EXPECT_EQ(JSON_Misc_GetString(doc, "a", &own), 0);
        EXPECT_EQ(JSON_Misc_SetString(doc, "a", own), 0);
        EXPECT_EQ(String(doc, "a"), "one two");
        EXPECT_EQ(JSON_Misc_GetString(doc, "a", &own), 0);
        EXPECT_EQ(JSON_Misc_SetString(doc, "a", own + 4), 0);
        EXPECT_EQ(String(doc, "a"), "two");
        EXPECT_EQ(JSON_Misc_GetString(doc, "a", &own), 0);
        EXPECT_EQ(JSON_Misc_SetHexData(doc, "a", reinterpret_cast<unsigned char*>(own), 3), 0);
        EXPECT_EQ(String(doc, "a"), "74776F");
        EXPECT_EQ(JSON_Misc_GetString(doc, "a", &own), 0);
        EXPECT_EQ(JSON_Misc_SetB64Data(doc, "a", reinterpret_cast<unsigned char*>(own) + 1, 3), 0);
        EXPECT_EQ(String(doc, "a"), support::model::Encode("477", 0));
        EXPECT_EQ(JSON_Misc_GetString(doc, "a", &own), 0);
        EXPECT_EQ(JSON_Misc_SetString(doc, own, own), 0) << "a path that is the text of another";
        EXPECT_EQ(JSON_Misc_SetStringArray(doc, reinterpret_cast<unsigned char*>(own)), 0);
    }
}

TEST(JsonGet, IsTheTreesOwnText)
{
    const Document doc(R"({"a":"text"})");
    char* first = nullptr;
    char* second = nullptr;
    EXPECT_EQ(JSON_Misc_GetString(doc, "a", &first), 0);
    EXPECT_EQ(JSON_Misc_GetString(doc, "a", &second), 0);
    EXPECT_EQ(first, second);
}

TEST(JsonGet, OfEveryKind)
{
    const Document doc(R"({"s":"5","n":5.9,"big":1e10,"t":true,"f":false,"z":null,"a":[1],"o":{"x":1}})");
    const struct {
        const char* path;
        int integer;
        const char* text;
    } rows[] = {{"s", 0, "5"},      {"n", 5, "(null)"}, {"big", INT_MIN, "(null)"}, {"t", 1, "(null)"},
                {"f", 0, "(null)"}, {"z", 0, "(null)"}, {"a", 0, "(null)"},         {"o", 0, "(null)"}};
    for (const auto& row : rows) {
        EXPECT_EQ(Int(doc, row.path), row.integer) << row.path;
        EXPECT_EQ(String(doc, row.path), row.text) << row.path;
    }
}

// Binary fields

std::string AllBytes()
{
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    return bytes;
}

std::string HexText(const std::string& bytes)
{
    std::string text;
    for (const char c : bytes) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
        text += digits;
    }
    return text;
}

TEST(JsonBinary, EveryLength)
{
    std::string bytes;
    for (int length = 0; length <= 256; ++length, bytes += static_cast<char>(length * 7)) {
        const Document doc;
        EXPECT_EQ(JSON_Misc_SetHexData(doc, "h", Bytes(bytes), length), 0);
        EXPECT_EQ(JSON_Misc_SetB64Data(doc, "b", Bytes(bytes), length), 0);
        EXPECT_EQ(String(doc, "h"), HexText(bytes));
        EXPECT_EQ(String(doc, "b"), support::model::Encode(bytes, 0));
        EXPECT_EQ(Hex(doc, "h"), bytes);
        EXPECT_EQ(Base64(doc, "b"), bytes);
        EXPECT_EQ(Decoded(JSON_Misc_GetHexArray, Node(doc, "h")), bytes);
        EXPECT_EQ(Decoded(JSON_Misc_GetB64Array, Node(doc, "b")), bytes);
    }
    const Document doc;
    EXPECT_EQ(JSON_Misc_SetHexData(doc, "h", Bytes(AllBytes()), 256), 0);
    EXPECT_EQ(Hex(doc, "h"), AllBytes());
}

TEST(JsonBinary, NoBytesAreAnEmptyText)
{
    Document doc(R"({"h":"old","b":5})");
    EXPECT_EQ(JSON_Misc_SetHexData(doc, "h", nullptr, 0), 0);
    EXPECT_EQ(JSON_Misc_SetB64Data(doc, "b", nullptr, 0), 0);
    unsigned char* value = nullptr;
    int length = -1;
    EXPECT_EQ(JSON_Misc_GetHexData(doc, "h", &value, &length), 0);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(Base64(doc, "b"), "");
    EXPECT_EQ(doc.Close(), "{\n\t\"h\":\"\",\n\t\"b\":\"\"\n}");
}

TEST(JsonBinary, ANodeWithoutATextIsEmpty)
{
    const Document doc(R"({"o":{},"n":5,"a":[1]})");
    for (const char* path : {"o", "n", "a", "none", ""})
        for (const auto get : {JSON_Misc_GetHexData, JSON_Misc_GetB64Data}) {
            unsigned char mark = 0;
            unsigned char* value = &mark;
            int length = -1;
            EXPECT_EQ(get(doc, path, &value, &length), 0);
            EXPECT_EQ(value, nullptr) << path;
            EXPECT_EQ(length, 0);
        }
    EXPECT_EQ(Decoded(JSON_Misc_GetHexArray, Node(doc, "o")), "");
    EXPECT_EQ(Decoded(JSON_Misc_GetB64Array, Node(doc, "o")), "");
}

int Digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return c - 87;
}

TEST(JsonBinary, HexadecimalOfAnyBytes)
{
    const Document doc;
    const auto decode = [&](const std::string& text) {
        EXPECT_EQ(JSON_Misc_SetString(doc, "h", text.c_str()), 0);
        return Hex(doc, "h");
    };
    EXPECT_EQ(decode("00ff7FaBcDeF"), std::string("\0\xff\x7f\xab\xcd\xef", 6));
    for (const char* odd : {"0", "123", "abcde"})
        EXPECT_EQ(decode(odd), "(22)");
    for (int first = 1; first < 256; ++first)
        for (int second = 1; second < 256; ++second) {
            const std::string text = {static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(decode(text), std::string(1, static_cast<char>(Digit(text[0]) * 16 + Digit(text[1]))));
        }
}

TEST(JsonBinary, Base64OfAnyText)
{
    std::mt19937 random(1);
    const Document doc;
    for (int i = 0; i < (support::IsInstrumented() ? 3000 : 50000); ++i) {
        const std::string alphabet = "ABCDabcd0123+/==== \r\n-\xC3";
        std::string text;
        for (size_t left = random() % 24; left > 0; --left)
            text += alphabet[random() % (random() % 4 == 0 ? alphabet.size() : 14)];
        EXPECT_EQ(JSON_Misc_SetString(doc, "b", text.c_str()), 0);
        const support::model::Decoded model = support::model::Decode(text);
        ASSERT_EQ(Base64(doc, "b"), model.good ? model.bytes : "(22)") << testing::PrintToString(text);
    }
}

TEST(JsonBinary, Base64HasNoLineBreaksWhateverTheSetting)
{
    EXPECT_TRUE(ZKQGeneral_SetBase64LineFeed(8));
    const Document doc;
    const std::string bytes = AllBytes();
    EXPECT_EQ(JSON_Misc_SetB64Data(doc, "b", Bytes(bytes), 256), 0);
    EXPECT_EQ(String(doc, "b"), support::model::Encode(bytes, 0));
    EXPECT_TRUE(ZKQGeneral_SetBase64LineFeed(0));
}

// Arrays

TEST(JsonArray, OfValues)
{
    Document doc;
    void* const array = Added(doc, "list");
    EXPECT_EQ(JSON_Misc_SetNodeArrayType(array), 0);
    EXPECT_EQ(JSON_Misc_SetStringArray(array, Bytes("text")), 0);
    EXPECT_EQ(JSON_Misc_SetStringArray(array, nullptr), 0);
    EXPECT_EQ(JSON_Misc_SetHexArray(array, Bytes("\xAB\x0C"), 2), 0);
    EXPECT_EQ(JSON_Misc_SetHexArray(array, nullptr, 0), 0);
    EXPECT_EQ(JSON_Misc_SetB64Array(array, Bytes("abc"), 3), 0);
    EXPECT_EQ(JSON_Misc_SetB64Array(array, nullptr, 0), 0);
    const Elements elements = Array(doc, "list");
    ASSERT_EQ(elements.count, 6);
    EXPECT_EQ(String(elements[0], nullptr), "text");
    EXPECT_EQ(String(elements[1], ""), "");
    EXPECT_EQ(Decoded(JSON_Misc_GetHexArray, elements[2]), "\xAB\x0C");
    EXPECT_EQ(Decoded(JSON_Misc_GetHexArray, elements[3]), "");
    EXPECT_EQ(Decoded(JSON_Misc_GetB64Array, elements[4]), "abc");
    EXPECT_EQ(Decoded(JSON_Misc_GetB64Array, elements[5]), "");
    EXPECT_EQ(doc.Close(), "{\n\t\"list\":[\"text\", \"\", \"AB0C\", \"\", \"YWJj\", \"\"]\n}");
}

TEST(JsonArray, ElementsInAnObjectHaveTheEmptyNameAndRecordsNone)
{
    Document doc;
    EXPECT_EQ(JSON_Misc_SetStringArray(doc, Bytes("text")), 0);
    void* record = nullptr;
    EXPECT_EQ(JSON_Misc_CreateObjectNode(doc, &record), 0);
    EXPECT_EQ(doc.Close(), "{\n\t\"\":\"text\",\n\t:{}\n}");
}

TEST(JsonArray, OfRecords)
{
    Document doc;
    void* const array = Added(doc, "a/records");
    EXPECT_EQ(JSON_Misc_SetNodeArrayType(array), 0);
    for (int i = 0; i < 3; ++i) {
        void* record = nullptr;
        EXPECT_EQ(JSON_Misc_CreateObjectNode(array, &record), 0);
        EXPECT_EQ(JSON_Misc_SetInt(record, "id", i), 0);
        EXPECT_EQ(JSON_Misc_SetString(record, "sub/name", std::to_string(i).c_str()), 0);
    }
    const Elements elements = Array(doc, "a/records");
    ASSERT_EQ(elements.count, 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Int(elements[i], "id"), i);
        EXPECT_EQ(String(elements[i], "sub/name"), std::to_string(i));
        EXPECT_EQ(JSON_Misc_IsNodeArrayType(elements[i]), 0) << "an object";
    }
    const std::string text = doc.Close();
    const Document again(text.c_str());
    EXPECT_EQ(Array(again, "a/records").count, 3);
    EXPECT_EQ(Int(Array(again, "a/records")[2], "id"), 2);
}

TEST(JsonArray, AnObjectsMembersBecomeElements)
{
    Document doc(R"({"o":{"x":1,"y":"z"},"n":5,"s":"t"})");
    for (const char* path : {"o", "n", "s"})
        EXPECT_EQ(JSON_Misc_SetNodeArrayType(Node(doc, path)), 0);
    EXPECT_EQ(Int(doc, "o/x"), 1) << "and keep their names";
    EXPECT_EQ(Array(doc, "o").count, 2);
    EXPECT_EQ(Array(doc, "n").count, 0);
    EXPECT_EQ(doc.Close(), "{\n\t\"o\":[1, \"z\"],\n\t\"n\":[],\n\t\"s\":[]\n}");
}

TEST(JsonArray, TypesOfNodes)
{
    const Document doc(R"({"a":[1,"t",{"x":1},[2],null,true],"o":{},"n":1,"s":"t"})");
    EXPECT_EQ(JSON_Misc_IsNodeArrayType(nullptr), 0);
    EXPECT_EQ(JSON_Misc_IsNodeArrayType(Node(doc, "a")), 1);
    for (const char* path : {"o", "n", "s", ""})
        EXPECT_EQ(JSON_Misc_IsNodeArrayType(Node(doc, path)), 0) << path;
    const Elements elements = Array(doc, "a");
    ASSERT_EQ(elements.count, 6);
    const int expected[] = {1, 1, 0, 1, 1, 1}; // all that were handed out, but no object
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(JSON_Misc_IsNodeArrayType(elements[i]), expected[i]) << i;
    EXPECT_EQ(JSON_Misc_SetInt(elements[2], nullptr, 1), 0);
    EXPECT_EQ(JSON_Misc_IsNodeArrayType(elements[2]), 1) << "no object any more";
}

TEST(JsonArray, InfoOfWhatIsNoArray)
{
    const Document doc(R"({"o":{"x":[]},"n":1,"e":[]})");
    for (const char* path : {"", "o", "n", "none", "o/none"}) {
        int count = 4711;
        size_t mark = 0;
        size_t* list = &mark;
        EXPECT_EQ(JSON_Misc_GetArrayInfo(doc, path, &count, &list), EINVAL) << path;
        EXPECT_EQ(count, 4711);
        EXPECT_EQ(list, &mark);
    }
    const Elements empty = Array(doc, "e");
    EXPECT_EQ(empty.count, 0);
    EXPECT_EQ(empty.list, nullptr);
    EXPECT_EQ(Array(doc, "none/o/none/x").count, 0) << "names that are not there are passed over";
}

TEST(JsonArray, TensOfThousandsOfRecords)
{
    const int count = support::IsInstrumented() ? 20'000 : 100'000;
    Document doc;
    void* const array = Added(doc, "list");
    EXPECT_EQ(JSON_Misc_SetNodeArrayType(array), 0);
    std::string expected = "{\n\t\"list\":[";
    for (int i = 0; i < count; ++i) {
        void* record = nullptr;
        ASSERT_EQ(JSON_Misc_CreateObjectNode(array, &record), 0);
        ASSERT_EQ(JSON_Misc_SetInt(record, "id", i), 0);
        ASSERT_EQ(JSON_Misc_SetStringArray(array, Bytes(std::to_string(i))), 0);
        expected += (i == 0 ? "" : ", ") + std::string("{\n\t\t\t\"id\":") + std::to_string(i) + "\n\t\t}, \"" +
                    std::to_string(i) + "\"";
    }
    const Elements elements = Array(doc, "list");
    ASSERT_EQ(elements.count, 2 * count);
    for (int i = 0; i < count; i += 997)
        EXPECT_EQ(Int(elements[2 * i], "id"), i);
    EXPECT_TRUE(doc.Close() == expected + "]\n}");
}

TEST(JsonArray, GrowsBehindWhatWasRead)
{
    Document doc("[1,{\"a\":2}]");
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(JSON_Misc_SetStringArray(doc, Bytes("x")), 0);
    EXPECT_EQ(JSON_Misc_SetString(Array(doc, nullptr)[1], "a", "changed"), 0);
    EXPECT_EQ(Array(doc, nullptr).count, 1002);
    EXPECT_EQ(doc.Close().substr(0, 35), "[1, {\n\t\t\"a\":\"changed\"\n\t}, \"x\", \"x\",");
}

// Failures

TEST(JsonFailure, NullContexts)
{
    support::MarkErrorText();
    char* text = nullptr;
    int number = 5;
    size_t* list = nullptr;
    void* node = nullptr;
    unsigned char* bytes = nullptr;
    const unsigned char byte = 0;
    EXPECT_EQ(JSON_Misc_FiniJSON(nullptr, &text), EINVAL);
    EXPECT_EQ(JSON_Misc_GetChildNode(nullptr, "a", &node), EINVAL);
    EXPECT_EQ(JSON_Misc_GetChildNode_AutoAdd(nullptr, "a", &node), EINVAL);
    EXPECT_EQ(JSON_Misc_SetString(nullptr, "a", "b"), EINVAL);
    EXPECT_EQ(JSON_Misc_SetInt(nullptr, "a", 1), EINVAL);
    EXPECT_EQ(JSON_Misc_GetString(nullptr, "a", &text), EINVAL);
    EXPECT_EQ(JSON_Misc_GetInt(nullptr, "a", &number), EINVAL);
    EXPECT_EQ(JSON_Misc_SetHexData(nullptr, "a", &byte, 1), EINVAL);
    EXPECT_EQ(JSON_Misc_GetHexData(nullptr, "a", &bytes, &number), EINVAL);
    EXPECT_EQ(JSON_Misc_SetB64Data(nullptr, "a", &byte, 1), EINVAL);
    EXPECT_EQ(JSON_Misc_GetB64Data(nullptr, "a", &bytes, &number), EINVAL);
    EXPECT_EQ(JSON_Misc_SetNodeArrayType(nullptr), EINVAL);
    EXPECT_EQ(JSON_Misc_CreateObjectNode(nullptr, &node), EINVAL);
    EXPECT_EQ(JSON_Misc_SetStringArray(nullptr, &byte), EINVAL);
    EXPECT_EQ(JSON_Misc_SetHexArray(nullptr, &byte, 1), EINVAL);
    EXPECT_EQ(JSON_Misc_SetB64Array(nullptr, &byte, 1), EINVAL);
    EXPECT_EQ(JSON_Misc_GetArrayInfo(nullptr, "a", &number, &list), EINVAL);
    EXPECT_EQ(JSON_Misc_GetHexArray(nullptr, &bytes, &number), EINVAL);
    EXPECT_EQ(JSON_Misc_GetB64Array(nullptr, &bytes, &number), EINVAL);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(number, 5);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(JsonFailure, NullResults)
{
    Document doc(R"({"a":"00","l":[]})");
    unsigned char* bytes = nullptr;
    int number = 5;
    size_t* list = nullptr;
    EXPECT_EQ(JSON_Misc_InitJSON("{}", nullptr), EINVAL);
    EXPECT_EQ(JSON_Misc_InitJSON(nullptr, nullptr), EINVAL);
    EXPECT_EQ(JSON_Misc_GetChildNode(doc, "a", nullptr), EINVAL);
    EXPECT_EQ(JSON_Misc_GetChildNode_AutoAdd(doc, "x", nullptr), EINVAL);
    EXPECT_EQ(JSON_Misc_GetString(doc, "a", nullptr), EINVAL);
    EXPECT_EQ(JSON_Misc_GetInt(doc, "a", nullptr), EINVAL);
    for (const auto get : {JSON_Misc_GetHexData, JSON_Misc_GetB64Data}) {
        EXPECT_EQ(get(doc, "a", nullptr, &number), EINVAL);
        EXPECT_EQ(get(doc, "a", &bytes, nullptr), EINVAL);
    }
    for (const auto get : {JSON_Misc_GetHexArray, JSON_Misc_GetB64Array}) {
        EXPECT_EQ(get(Node(doc, "a"), nullptr, &number), EINVAL);
        EXPECT_EQ(get(Node(doc, "a"), &bytes, nullptr), EINVAL);
    }
    EXPECT_EQ(JSON_Misc_CreateObjectNode(doc, nullptr), EINVAL);
    EXPECT_EQ(JSON_Misc_GetArrayInfo(doc, "l", nullptr, &list), EINVAL);
    EXPECT_EQ(JSON_Misc_GetArrayInfo(doc, "l", &number, nullptr), EINVAL);
    EXPECT_EQ(doc.Close(), "{\n\t\"a\":\"00\",\n\t\"l\":[]\n}") << "nothing was added";
}

TEST(JsonFailure, Lengths)
{
    Document doc;
    const unsigned char byte = 0;
    for (const auto set : {JSON_Misc_SetHexData, JSON_Misc_SetB64Data}) {
        EXPECT_EQ(set(doc, "a", &byte, -1), EINVAL);
        EXPECT_EQ(set(doc, "a", &byte, INT_MIN), EINVAL);
        EXPECT_EQ(set(doc, "a", nullptr, -1), EINVAL);
        EXPECT_EQ(set(doc, "a", nullptr, 1), EINVAL);
    }
    for (const auto set : {JSON_Misc_SetHexArray, JSON_Misc_SetB64Array}) {
        EXPECT_EQ(set(doc, &byte, -1), EINVAL);
        EXPECT_EQ(set(doc, &byte, INT_MIN), EINVAL);
        EXPECT_EQ(set(doc, nullptr, 1), EINVAL);
    }
    EXPECT_EQ(doc.Close(), "{}");
}

TEST(JsonFailure, NothingLeaks)
{
    support::ExpectNothingLeaks([] {
        const Document doc(R"({"a":{"b":"x"},"l":[1,2]})");
        EXPECT_EQ(JSON_Misc_SetString(doc, "a/b", "longer than before, on the heap"), 0);
        EXPECT_EQ(JSON_Misc_SetString(doc, "a/b/c/d", "below a text"), 0);
        EXPECT_EQ(JSON_Misc_SetString(doc, "odd", "123"), 0);
        EXPECT_EQ(Hex(doc, "odd"), "(22)");
        EXPECT_EQ(Base64(doc, "odd"), "(22)");
        EXPECT_EQ(Array(doc, "l").count, 2);
        EXPECT_EQ(JSON_Misc_SetB64Array(Node(doc, "l"), Bytes("abc"), 3), 0);
    });
}

} // namespace
