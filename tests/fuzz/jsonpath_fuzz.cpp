// The functions for JSON paths as a sequence of commands, against a plain tree. Input: a text to begin with, up to its
// NUL (an empty one: no text), then commands of a byte each with the arguments that follow.
#include <string.h>

#include <memory>

#include "../../src/internal/json.h"
#include "../support/base64_model.h"
#include "../support/json_model.h"
#include "fuzz.h"

namespace {

using support::json::Kind;

/// A node of the plain tree, beside the library's.
struct Node {
    Kind kind = Kind::kObject;
    int integer = 0;
    double number = 0;
    std::optional<std::string> text = {};
    std::optional<std::string> name = {};
    std::vector<std::unique_ptr<Node>> below = {};

    Node* Add(Kind its_kind, std::optional<std::string> its_name)
    {
        below.push_back(std::make_unique<Node>());
        below.back()->kind = its_kind;
        below.back()->name = std::move(its_name);
        return below.back().get();
    }
};

void Fill(Node* node, const support::json::Value& value)
{
    node->kind = value.kind;
    node->number = value.number;
    node->integer = value.Integer();
    node->text = value.text;
    node->name = value.name;
    for (const support::json::Value& below : value.below)
        Fill(node->Add(Kind::kFalse, {}), below);
}

Node* Find(Node* node, const std::string& path, bool adds)
{
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        const std::string name = path.substr(at, end - at);
        at = end + 1;
        if (name.empty())
            continue;
        Node* found = nullptr;
        for (const auto& below : node->below)
            if (found == nullptr && below->name == name)
                found = below.get();
        if (found == nullptr && adds)
            found = node->Add(Kind::kObject, name);
        node = found == nullptr ? node : found;
    }
    return node;
}

/// As support::json::Write(), of this tree: children of what is no container are not written.
std::string Write(const Node& node, size_t depth = 0)
{
    if (node.kind == Kind::kNumber)
        return support::json::WriteNumber(node.integer, node.number);
    if (node.kind != Kind::kObject && node.kind != Kind::kArray)
        return support::json::Write({node.kind, node.number, node.text, {}, {}});
    const bool is_object = node.kind == Kind::kObject;
    if (node.below.empty())
        return is_object ? "{}" : "[]";
    std::string text;
    for (const auto& below : node.below) {
        text += text.empty() ? "" : is_object ? ",\n" : ", ";
        if (is_object)
            text += std::string(depth + 1, '\t') + support::json::WriteString(below->name) + ":";
        text += Write(*below, depth + 1);
    }
    return is_object ? "{\n" + text + "\n" + std::string(depth, '\t') + "}" : "[" + text + "]";
}

std::string Hex(const std::string& bytes)
{
    std::string text;
    for (const char c : bytes)
        for (const int shift : {4, 0})
            text += "0123456789ABCDEF"[static_cast<unsigned char>(c) >> shift & 15];
    return text;
}

std::optional<std::string> Unhex(const std::string& text)
{
    const auto digit = [](char c) {
        return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : c - 87;
    };
    std::string bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes += static_cast<char>(digit(text[i]) * 16 + digit(text[i + 1]));
    return text.size() % 2 == 0 ? std::optional(bytes) : std::nullopt;
}

class Session {
public:
    Session(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

    void Run()
    {
        const std::string text = Take();
        const auto value = support::json::Read(text);
        REQUIRE(JSON_Misc_InitJSON(text.empty() ? nullptr : text.c_str(), &ctx_) == (text.empty() || value ? 0 : -8));
        if (ctx_ == nullptr)
            return;
        if (value && !text.empty())
            Fill(&root_, *value);
        here_ = ctx_;
        model_ = &root_;
        while (next_ != end_)
            Command();
        char* written = nullptr;
        REQUIRE(JSON_Misc_FiniJSON(ctx_, &written) == 0);
        REQUIRE(written != nullptr && written == Write(root_));
        free(written);
    }

private:
    std::string Take()
    {
        std::string text;
        while (next_ != end_ && *next_ != 0)
            text += static_cast<char>(*next_++);
        next_ += next_ != end_;
        return text;
    }

    void Command()
    {
        switch (*next_++ % 12) {
        case 0:
            return Go(false);
        case 1:
            return Go(true);
        case 2:
            return SetText();
        case 3:
            return SetInteger();
        case 4:
            return SetBytes();
        case 5:
            return Get();
        case 6:
            REQUIRE(JSON_Misc_SetNodeArrayType(here_) == 0);
            model_->kind = Kind::kArray;
            return;
        case 7:
            REQUIRE(JSON_Misc_CreateObjectNode(here_, &here_) == 0);
            model_ = model_->Add(Kind::kObject, {});
            return;
        case 8:
            return AddElement();
        case 9:
            return GetArray();
        case 10:
            return SetOwnText();
        default:
            here_ = ctx_;
            model_ = &root_;
        }
    }

    void Go(bool adds)
    {
        const std::string path = Take();
        REQUIRE((adds ? JSON_Misc_GetChildNode_AutoAdd : JSON_Misc_GetChildNode)(here_, path.c_str(), &here_) == 0);
        model_ = Find(model_, path, adds);
    }

    void SetText()
    {
        const std::string path = Take();
        const std::string text = Take();
        REQUIRE(JSON_Misc_SetString(here_, path.c_str(), text.c_str()) == 0);
        BecomeText(Find(model_, path, true), text);
    }

    static void BecomeText(Node* node, const std::string& text)
    {
        node->kind = Kind::kString;
        node->text = text;
    }

    void SetInteger()
    {
        const std::string path = Take();
        const int value = static_cast<int>(Take().size()) - 5;
        REQUIRE(JSON_Misc_SetInt(here_, path.c_str(), value) == 0);
        Node* const node = Find(model_, path, true);
        node->kind = Kind::kNumber;
        node->integer = value;
        node->number = value;
    }

    void SetBytes()
    {
        const std::string path = Take();
        const std::string bytes = Take();
        const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
        const bool is_hex = bytes.size() % 2 == 0;
        REQUIRE((is_hex ? JSON_Misc_SetHexData : JSON_Misc_SetB64Data)(here_, path.c_str(), data,
                                                                       static_cast<int>(bytes.size())) == 0);
        BecomeText(Find(model_, path, true), is_hex ? Hex(bytes) : support::model::Encode(bytes, 0));
    }

    /// The text, when it is a part of what it replaces.
    void SetOwnText()
    {
        char* text = nullptr;
        REQUIRE(JSON_Misc_GetString(here_, nullptr, &text) == 0);
        if (text == nullptr)
            return;
        const char* const part = text + strlen(text) / 2;
        const std::string copy = part;
        REQUIRE(JSON_Misc_SetString(here_, nullptr, part) == 0);
        BecomeText(model_, copy);
    }

    void Get()
    {
        const std::string path = Take();
        const Node& node = *Find(model_, path, false);
        char* text = nullptr;
        int integer = 0;
        REQUIRE(JSON_Misc_GetString(here_, path.c_str(), &text) == 0);
        REQUIRE(JSON_Misc_GetInt(here_, path.c_str(), &integer) == 0);
        REQUIRE((text == nullptr) == !node.text.has_value() && (text == nullptr || text == *node.text));
        REQUIRE(integer == node.integer);
        const std::string stored = node.text.value_or("");
        const support::model::Decoded decoded = support::model::Decode(stored);
        RequireBytes(JSON_Misc_GetHexData, path, Unhex(stored));
        RequireBytes(JSON_Misc_GetB64Data, path, decoded.good ? std::optional(decoded.bytes) : std::nullopt);
    }

    template <class Function>
    void RequireBytes(Function function, const std::string& path, const std::optional<std::string>& expected)
    {
        unsigned char* bytes = nullptr;
        int length = 0;
        REQUIRE(function(here_, path.c_str(), &bytes, &length) == (expected ? 0 : 22));
        REQUIRE(static_cast<size_t>(length) == expected.value_or("").size());
        REQUIRE(length == 0 || memcmp(bytes, expected->data(), expected->size()) == 0);
        free(bytes);
    }

    void AddElement()
    {
        const std::string bytes = Take();
        const auto* const data = reinterpret_cast<const unsigned char*>(bytes.c_str());
        const int length = static_cast<int>(bytes.size());
        Node* const node = model_->Add(Kind::kString, "");
        switch (length % 3) {
        case 0:
            REQUIRE(JSON_Misc_SetStringArray(here_, data) == 0);
            return BecomeText(node, bytes);
        case 1:
            REQUIRE(JSON_Misc_SetHexArray(here_, data, length) == 0);
            return BecomeText(node, Hex(bytes));
        default:
            REQUIRE(JSON_Misc_SetB64Array(here_, data, length) == 0);
            return BecomeText(node, support::model::Encode(bytes, 0));
        }
    }

    void GetArray()
    {
        const std::string path = Take();
        Node* const node = Find(model_, path, false);
        int count = -1;
        size_t* list = nullptr;
        const bool is_array = node->kind == Kind::kArray;
        REQUIRE(JSON_Misc_GetArrayInfo(here_, path.c_str(), &count, &list) == (is_array ? 0 : 22));
        if (!is_array)
            return;
        REQUIRE(static_cast<size_t>(count) == node->below.size());
        for (const auto& below : node->below) {
            here_ = reinterpret_cast<void*>(list[&below - node->below.data()]);
            model_ = below.get();
            const bool is_marked = below->kind != Kind::kObject;
            REQUIRE(JSON_Misc_IsNodeArrayType(here_) == (is_marked ? 1 : 0));
        }
        free(list);
    }

    const uint8_t* next_;
    const uint8_t* end_;
    void* ctx_ = nullptr;
    void* here_ = nullptr;
    Node root_;
    Node* model_ = nullptr;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Session(data, size).Run();
    return 0;
}
