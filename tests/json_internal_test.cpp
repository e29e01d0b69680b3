// What of JSON cannot be reached from outside: the nodes, the powers of ten, and what is told in the library's log.
#include <errno.h>
#include <iconv.h>
#include <math.h>
#include <stdlib.h>

#include <functional>

#include "../src/internal/json.h"
#include "../src/internal/log.h"
#include "messages_gbk.h"
#include "powers_of_ten.h"
#include "support/bare_iconv.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/log_context.h"

namespace {

using support::LogDir;
using support::ReadFile;

cJSON* Parsed(const char* text)
{
    cJSON* root = nullptr;
    EXPECT_EQ(cJSON_Misc_Parse(text, &root), 0) << text;
    return root;
}

cJSON* Created(int type)
{
    cJSON* node = nullptr;
    EXPECT_EQ(cJSON_Misc_CreateNode(type, &node), 0);
    return node;
}

std::string Printed(const cJSON* node)
{
    char* const text = cJSON_Misc_Print(node);
    const std::string printed = text == nullptr ? "(null)" : text;
    free(text);
    return printed;
}

TEST(JsonPowers, AreThoseOfTheCLibrary)
{
    const int count = static_cast<int>(std::size(kPowersOfTen));
    for (int i = 0; i < count; ++i) {
        volatile double exponent = kLowestPower + i; // so that the compiler does not answer
        EXPECT_EQ(kPowersOfTen[i], pow(10.0, exponent)) << exponent;
    }
    volatile double below = kLowestPower - 1;
    volatile double above = kLowestPower + count;
    EXPECT_EQ(kPowersOfTen[0], 0) << "and all below";
    EXPECT_EQ(pow(10.0, below), 0);
    EXPECT_EQ(kPowersOfTen[count - 1], INFINITY) << "and all above";
    EXPECT_EQ(pow(10.0, above), INFINITY);
}

TEST(JsonNode, FieldsOfEveryKind)
{
    cJSON* const root = Parsed(R"({"a":null,"b":false,"c":true,"d":-1.5,"e":"t\n","f":[1,2],"g":{"h":3e9}})");
    const struct {
        const char* name;
        int type;
        int integer;
        double number;
        const char* text;
        int children;
    } rows[] = {{"a", 2, 0, 0, nullptr, 0},     {"b", 0, 0, 0, nullptr, 0}, {"c", 1, 1, 0, nullptr, 0},
                {"d", 3, -1, -1.5, nullptr, 0}, {"e", 4, 0, 0, "t\n", 0},   {"f", 5, 0, 0, nullptr, 2},
                {"g", 6, 0, 0, nullptr, 1}};
    EXPECT_EQ(root->type, 6);
    EXPECT_EQ(root->next, nullptr);
    EXPECT_EQ(root->prev, nullptr);
    EXPECT_EQ(root->string, nullptr);
    const cJSON* node = root->child;
    const cJSON* before = nullptr;
    for (const auto& row : rows) {
        ASSERT_NE(node, nullptr);
        EXPECT_STREQ(node->string, row.name);
        EXPECT_EQ(node->type, row.type);
        EXPECT_EQ(node->valueint, row.integer);
        EXPECT_EQ(node->valuedouble, row.number);
        EXPECT_STREQ(node->valuestring, row.text);
        EXPECT_EQ(node->prev, before);
        EXPECT_EQ(node->bArray, 0);
        int children = 0;
        for (const cJSON* child = node->child; child != nullptr; child = child->next)
            ++children;
        EXPECT_EQ(children, row.children);
        before = node;
        node = node->next;
    }
    EXPECT_EQ(node, nullptr);
    const cJSON* const element = root->child->next->next->next->next->next->child;
    EXPECT_EQ(element->string, nullptr) << "an element has no name";
    EXPECT_EQ(element->next->prev, element);
    EXPECT_EQ(before->child->valueint, INT_MIN);
    EXPECT_EQ(before->child->valuedouble, 3e9);
    cJSON_Misc_Delete(root);
}

TEST(JsonNode, IsCreatedEmpty)
{
    for (const int type : {0, 1, 2, 3, 4, 5, 6}) {
        cJSON* const node = Created(type);
        const cJSON expected = {.next = nullptr,
                                .prev = nullptr,
                                .child = nullptr,
                                .type = type,
                                .place = 0,
                                .valuestring = nullptr,
                                .valueint = 0,
                                .valuedouble = 0,
                                .string = nullptr,
                                .bArray = 0,
                                .last = nullptr};
        EXPECT_EQ(memcmp(&node->next, &expected.next, offsetof(cJSON, bArray) + sizeof(int)), 0) << type;
        cJSON_Misc_Delete(node);
    }
}

TEST(JsonNode, RecordsMadeByPaths)
{
    void* ctx = nullptr;
    ASSERT_EQ(JSON_Misc_InitJSON(nullptr, &ctx), 0);
    auto* const root = static_cast<cJSON*>(ctx);
    EXPECT_EQ(JSON_Misc_SetInt(ctx, "list/n", -3), 0);
    cJSON* const list = root->child;
    EXPECT_STREQ(list->string, "list");
    EXPECT_EQ(list->type, 6);
    EXPECT_EQ(list->child->valueint, -3);
    EXPECT_EQ(list->child->valuedouble, -3.0);
    EXPECT_EQ(list->child->type, 3);
    EXPECT_EQ(JSON_Misc_SetNodeArrayType(list), 0);
    void* record = nullptr;
    EXPECT_EQ(JSON_Misc_CreateObjectNode(list, &record), 0);
    EXPECT_EQ(static_cast<cJSON*>(record)->string, nullptr) << "a record has no name";
    EXPECT_EQ(list->child->next, record);
    EXPECT_EQ(static_cast<cJSON*>(record)->prev, list->child);
    EXPECT_EQ(JSON_Misc_SetStringArray(list, reinterpret_cast<const unsigned char*>("x")), 0);
    const cJSON* const value = static_cast<cJSON*>(record)->next;
    EXPECT_STREQ(value->string, "") << "a value has an empty one";
    EXPECT_STREQ(value->valuestring, "x");
    EXPECT_EQ(value->type, 4);
    int count = 0;
    size_t* nodes = nullptr;
    EXPECT_EQ(JSON_Misc_GetArrayInfo(ctx, "list", &count, &nodes), 0);
    free(nodes);
    EXPECT_EQ(list->bArray, 0);
    for (const cJSON* node = list->child; node != nullptr; node = node->next)
        EXPECT_EQ(node->bArray, 1);
    cJSON_Misc_Delete(root);
}

TEST(JsonNode, TheTypeIsTheLowEightBits)
{
    cJSON* const root = Parsed(R"([1,"t",[2],{"a":3},true])");
    for (cJSON* node = root->child; node != nullptr; node = node->next)
        node->type |= 0x7FFFF00 & ~256;
    root->type |= 0x200;
    EXPECT_EQ(Printed(root), "[1, \"t\", [2], {\n\t\t\"a\":3\n\t}, true]");
    EXPECT_EQ(JSON_Misc_IsNodeArrayType(root), 1);
    cJSON_Misc_Delete(root);
}

TEST(JsonNode, OfAnUnknownTypeHasNoText)
{
    for (const int type : {7, 8, 128, 255, 256 + 7, -1}) {
        cJSON* const root = Parsed(R"({"a":[1,{"b":2}],"c":"text"})");
        cJSON* const inner = root->child->child->next->child;
        inner->type = type & ~256;
        EXPECT_EQ(cJSON_Misc_Print(root), nullptr) << type;
        EXPECT_EQ(cJSON_Misc_Print(inner), nullptr) << type;
        EXPECT_EQ(Printed(root->child->next), "\"text\"") << "only the node and what is below it";
        cJSON_Misc_Delete(root);
    }
}

TEST(JsonNode, ATextThatIsNotThereIsWrittenAsNothing)
{
    cJSON* const node = Created(kJsonString);
    EXPECT_EQ(Printed(node), "");
    cJSON_Misc_Delete(node);
}

TEST(JsonNode, NumbersThatDisagree)
{
    cJSON* const node = Created(kJsonNumber);
    node->valueint = 5;
    node->valuedouble = 7;
    EXPECT_EQ(Printed(node), "7") << "%.0f";
    node->valuedouble = 5.5;
    EXPECT_EQ(Printed(node), "5.500000");
    node->valueint = INT_MIN;
    node->valuedouble = 2147483648.0;
    EXPECT_EQ(Printed(node), "2147483648");
    node->valueint = 0;
    for (const double value : {1e59, 9.9e59, 1e60, -1e60, 1e300, 1e-6, 9.9999e-7, 1e9, 1000000000.5, -1e-300, 5e-324}) {
        node->valuedouble = value;
        node->valueint = JsonInteger(value);
        char expected[512];
        const char* const format = std::abs(node->valueint - value) <= 2.220446049250313e-16 ? nullptr
                                   : floor(value) == value && std::abs(value) < 1e60         ? "%.0f"
                                   : std::abs(value) < 1e-6 || std::abs(value) > 1e9         ? "%e"
                                                                                             : "%f";
        snprintf(expected, sizeof expected, format == nullptr ? "%.0f" : format, // NOLINT
                 format == nullptr ? node->valueint : value);
        EXPECT_EQ(Printed(node), expected) << value;
    }
    cJSON_Misc_Delete(node);
}

TEST(JsonInteger, IsCutTowardZeroWhateverTheValue)
{
    EXPECT_EQ(JsonInteger(NAN), INT_MIN);
    EXPECT_EQ(JsonInteger(-NAN), INT_MIN);
    EXPECT_EQ(JsonInteger(INFINITY), INT_MIN);
    EXPECT_EQ(JsonInteger(-INFINITY), INT_MIN);
    EXPECT_EQ(JsonInteger(1e300), INT_MIN);
    EXPECT_EQ(JsonInteger(2147483647.999), INT_MAX);
    EXPECT_EQ(JsonInteger(2147483648.0), INT_MIN);
    EXPECT_EQ(JsonInteger(-2147483648.999), INT_MIN);
    EXPECT_EQ(JsonInteger(-2147483647.999), -INT_MAX);
    EXPECT_EQ(JsonInteger(-0.999), 0);
}

// Deleting

char* Text(const char* text)
{
    return strdup(text);
}

TEST(JsonDelete, Null)
{
    cJSON_Misc_Delete(nullptr);
}

TEST(JsonDelete, TakesTheSiblingsBehindANodeAndNotThoseBefore)
{
    support::ExpectNothingLeaks([] {
        cJSON* const parent = Created(kJsonArray);
        for (int i = 0; i < 5; ++i) {
            cJSON* const node = Created(kJsonString);
            node->valuestring = Text("a text");
            node->string = Text("a name");
            LinkLast(parent, node);
        }
        cJSON* const second = parent->child->next;
        parent->last = parent->child;
        parent->child->next = nullptr;
        cJSON_Misc_Delete(second);
        EXPECT_EQ(Printed(parent), "[\"a text\"]");
        cJSON_Misc_Delete(parent);
    });
}

TEST(JsonDelete, LeavesWhatANodeDoesNotOwn)
{
    support::ExpectNothingLeaks([] {
        cJSON* const shared = Created(kJsonString);
        shared->valuestring = Text("shared");
        cJSON* const root = Created(kJsonArray);
        for (int i = 0; i < 3; ++i) {
            cJSON* const node = Created(kJsonArray | kJsonNotOwned);
            node->child = node->last = shared;
            node->string = Text("always its own");
            LinkLast(root, node);
        }
        cJSON* const text = Created(kJsonString | kJsonNotOwned);
        text->valuestring = shared->valuestring;
        LinkLast(root, text);
        EXPECT_EQ(Printed(root), "[[\"shared\"], [\"shared\"], [\"shared\"], \"shared\"]");
        cJSON_Misc_Delete(root);
        EXPECT_EQ(Printed(shared), "\"shared\"");
        cJSON_Misc_Delete(shared);
    });
}

TEST(JsonDelete, LeavesWhatAReadNodeDoesNotOwn)
{
    support::ExpectNothingLeaks([] {
        cJSON* const shared = Created(kJsonString);
        shared->valuestring = Text("shared");
        cJSON* const root = Parsed("{\"a\":[],\"b\":{\"c\":\"d\"}}");
        root->child->child = root->child->last = shared;
        root->child->type |= kJsonNotOwned;
        EXPECT_EQ(Printed(root), "{\n\t\"a\":[\"shared\"],\n\t\"b\":{\n\t\t\"c\":\"d\"\n\t}\n}");
        cJSON_Misc_Delete(root);
        EXPECT_EQ(Printed(shared), "\"shared\"");
        cJSON_Misc_Delete(shared);
    });
}

TEST(JsonDelete, ARootThatDoesNotOwnWhatWasReadBelowIt)
{
    support::ExpectNothingLeaks([] {
        cJSON* const root = Parsed("[[1,\"text\"],2]");
        cJSON* const below = root->child;
        root->type |= kJsonNotOwned;
        cJSON_Misc_Delete(root);
        EXPECT_EQ(below->child->valueint, 1);
        EXPECT_STREQ(below->child->next->valuestring, "text");
        EXPECT_EQ(below->next->valueint, 2);
        cJSON_Misc_Delete(below);
    });
}

TEST(JsonDelete, SiblingsOfARootThatWasRead)
{
    support::ExpectNothingLeaks([] {
        cJSON* const first = Parsed("[1]");
        cJSON* const second = Parsed("{\"a\":\"b\"}");
        first->next = second;
        second->prev = first;
        cJSON_Misc_Delete(first);
    });
}

TEST(JsonDelete, AMillionLevelsOfNodesOnTheHeap)
{
    cJSON* const root = Created(kJsonArray);
    cJSON* node = root;
    for (int i = 0; i < 1'000'000; ++i) {
        cJSON* const below = Created(kJsonObject);
        LinkLast(node, below);
        if (i % 2 == 0)
            LinkLast(node, Created(kJsonNull));
        node = below;
    }
    cJSON_Misc_Delete(root);
}

// The log

class JsonLog : public testing::Test {
protected:
    JsonLog() : info_(dir_)
    {
        info_.bAlwaysLog = ZKQ_LOG_ALL;
        ctx_.emplace(info_);
        saved_ = std::exchange(g_General_LogCtx, static_cast<LOGCTX*>(ctx_->Get()));
        support::MarkErrorText();
        EXPECT_EQ(JSON_Misc_InitJSON(R"({"a":{"b":"x"},"odd":"123","bad":"A","l":[1]})", &doc_), 0);
    }
    ~JsonLog() override
    {
        JSON_Misc_FiniJSON(doc_, nullptr);
        g_General_LogCtx = saved_;
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }

    /// What a call writes, as UTF-8, without sources and lines.
    std::vector<std::string> Logged(const std::function<void()>& call)
    {
        const size_t before = std::filesystem::exists(dir_.OwnLog()) ? ReadFile(dir_.OwnLog()).size() : 0;
        call();
        const std::string text = std::filesystem::exists(dir_.OwnLog()) ? ReadFile(dir_.OwnLog()).substr(before) : "";
        const support::Converted utf8 = support::BareIconv("UTF-8", "GBK")(text);
        EXPECT_EQ(utf8.error, 0) << "in GBK";
        std::vector<std::string> lines;
        for (size_t at = 0; at < utf8.bytes.size();) {
            const size_t end = utf8.bytes.find('\n', at);
            const std::string line = utf8.bytes.substr(at, end - at);
            EXPECT_EQ(line.substr(0, 8), "[Error] ");
            const size_t source = line.find(" - json,");
            EXPECT_NE(source, std::string::npos) << line;
            lines.push_back(line.substr(8, source - 8));
            at = end + 1;
        }
        return lines;
    }

    LogDir dir_;
    support::AppInfo info_;
    std::optional<support::LogContext> ctx_;
    LOGCTX* saved_ = nullptr;
    void* doc_ = nullptr;
};

using Lines = std::vector<std::string>;

TEST_F(JsonLog, SuccessIsSilent)
{
    EXPECT_EQ(Logged([this] {
                  void* node = nullptr;
                  EXPECT_EQ(JSON_Misc_GetChildNode(doc_, "none/a", &node), 0);
                  EXPECT_EQ(JSON_Misc_SetInt(doc_, "new/n", 1), 0);
              }),
              Lines{});
}

TEST_F(JsonLog, NullContexts)
{
    char* text = nullptr;
    int number = 0;
    size_t* list = nullptr;
    void* node = nullptr;
    unsigned char* bytes = nullptr;
    const unsigned char byte = 0;
    const std::function<int()> calls[] = {[&] { return JSON_Misc_FiniJSON(nullptr, &text); },
                                          [&] { return JSON_Misc_GetChildNode(nullptr, "a", &node); },
                                          [&] { return JSON_Misc_GetChildNode_AutoAdd(nullptr, "a", &node); },
                                          [&] { return JSON_Misc_SetString(nullptr, "a", "b"); },
                                          [&] { return JSON_Misc_SetInt(nullptr, "a", 1); },
                                          [&] { return JSON_Misc_GetString(nullptr, "a", &text); },
                                          [&] { return JSON_Misc_GetInt(nullptr, "a", &number); },
                                          [&] { return JSON_Misc_SetHexData(nullptr, "a", &byte, 1); },
                                          [&] { return JSON_Misc_GetHexData(nullptr, "a", &bytes, &number); },
                                          [&] { return JSON_Misc_SetB64Data(nullptr, "a", &byte, 1); },
                                          [&] { return JSON_Misc_GetB64Data(nullptr, "a", &bytes, &number); },
                                          [&] { return JSON_Misc_SetNodeArrayType(nullptr); },
                                          [&] { return JSON_Misc_CreateObjectNode(nullptr, &node); },
                                          [&] { return JSON_Misc_SetStringArray(nullptr, &byte); },
                                          [&] { return JSON_Misc_SetHexArray(nullptr, &byte, 1); },
                                          [&] { return JSON_Misc_SetB64Array(nullptr, &byte, 1); },
                                          [&] { return JSON_Misc_GetArrayInfo(nullptr, "a", &number, &list); },
                                          [&] { return JSON_Misc_GetHexArray(nullptr, &bytes, &number); },
                                          [&] { return JSON_Misc_GetB64Array(nullptr, &bytes, &number); }};
    for (const auto& call : calls)
        EXPECT_EQ(Logged([&] { EXPECT_EQ(call(), EINVAL); }), Lines{"JSon对象不能为NULL！"});
    EXPECT_EQ(Logged([] { EXPECT_EQ(JSON_Misc_IsNodeArrayType(nullptr), 0); }), Lines{});
}

TEST_F(JsonLog, EveryOtherFailure)
{
    const unsigned char byte = 0;
    unsigned char* bytes = nullptr;
    int number = 0;
    size_t* list = nullptr;
    void* ctx = nullptr;
    const auto node = [this](const char* path) {
        void* found = nullptr;
        EXPECT_EQ(JSON_Misc_GetChildNode(doc_, path, &found), 0);
        return found;
    };
    const struct {
        std::function<int()> call;
        int code;
        const char* text;
    } rows[] = {
        {[&] { return JSON_Misc_InitJSON("{\"a\":}", &ctx); }, -8, "JSon解析失败！"},
        {[&] { return JSON_Misc_InitJSON("", &ctx); }, -8, "JSon解析失败！"},
        {[&] { return JSON_Misc_SetHexData(doc_, "a", &byte, -1); }, EINVAL, "字节数组长度不能小于0！"},
        {[&] { return JSON_Misc_SetB64Data(doc_, "a", &byte, -1); }, EINVAL, "字节数组长度不能小于0！"},
        {[&] { return JSON_Misc_SetHexArray(doc_, &byte, -1); }, EINVAL, "字节数组长度不能小于0！"},
        {[&] { return JSON_Misc_SetB64Array(doc_, &byte, -1); }, EINVAL, "字节数组长度不能小于0！"},
        {[&] { return JSON_Misc_GetArrayInfo(doc_, "a", &number, &list); }, EINVAL, "指定的路径节点不是Array类型！"},
        {[&] { return JSON_Misc_GetArrayInfo(doc_, "none", &number, &list); }, EINVAL, "指定的路径节点不是Array类型！"},
        {[&] { return JSON_Misc_GetHexData(doc_, "odd", &bytes, &number); }, EINVAL,
         "Hex数据长度必须是2的倍数，否则无法转换！"},
        {[&] { return JSON_Misc_GetHexArray(node("odd"), &bytes, &number); }, EINVAL,
         "Hex数据长度必须是2的倍数，否则无法转换！"},
        {[&] { return JSON_Misc_GetB64Data(doc_, "bad", &bytes, &number); }, EINVAL, "为字节数组做Base64解码时失败！"},
        {[&] { return JSON_Misc_GetB64Array(node("bad"), &bytes, &number); }, EINVAL, "为字节数组做Base64解码时失败！"},
        {[&] { return JSON_Misc_GetString(doc_, "a", nullptr); }, EINVAL, "Invalid argument"},
        {[&] { return JSON_Misc_SetHexData(doc_, "a", nullptr, 1); }, EINVAL, "Invalid argument"}};
    for (const auto& row : rows)
        EXPECT_EQ(Logged([&] { EXPECT_EQ(row.call(), row.code); }), Lines{row.text});
    EXPECT_EQ(support::ErrorText(), Message::Base64BadText) << "as the decoder leaves it; nothing else here sets it";
    support::MarkErrorText();
}

} // namespace
