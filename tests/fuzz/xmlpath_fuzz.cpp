// Paths into XML documents against a slow reading of their rules that knows nothing of the library's own. Input: a byte
// that says what to do, then a path, a document (empty: a fixed one) and a path from the element that was found,
// separated by NULs.
#include <ZKQ_general.h>
#include <errno.h>
#include <string.h>
#include <strings.h>

#include <memory>
#include <utility>

#include "../../src/internal/xmlh.h"
#include "fuzz.h"

namespace {

constexpr char kFixed[] =
    "<?xml version='1.0'?><r>t<a id='1' k='x'>1</a><a id='2'/><A/><b><c p=''/><c p='q'>2<d/></c></b>"
    "<!--a--><a k='y' id='2'><e/></a></r>";

struct Node {
    const XMLNODE* real; ///< null for one that the model has added
    int type;
    std::string value;
    bool hasValue;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<std::unique_ptr<Node>> children;
};
using Nodes = std::vector<std::unique_ptr<Node>>;

Nodes ModelOf(const XMLNODE* first)
{
    Nodes nodes;
    for (; first != nullptr; first = first->Next) {
        nodes.push_back(std::make_unique<Node>(
            Node{first, first->Type, first->Value == nullptr ? "" : first->Value, first->Value != nullptr, {}, {}}));
        for (const EXTENSION* e = first->Extension; e != nullptr; e = e->Next)
            nodes.back()->attributes.emplace_back(e->Name, e->Value);
        nodes.back()->children = ModelOf(first->Child);
    }
    return nodes;
}

void Dump(const Nodes& nodes, std::string* text)
{
    for (const auto& node : nodes) {
        *text += "(" + std::to_string(node->type) + (node->hasValue ? "=" + node->value : "");
        for (const auto& [name, value] : node->attributes)
            *text += "," + name + "=" + value;
        Dump(node->children, text);
        *text += ")";
    }
}

std::string Dumped(const Nodes& nodes)
{
    std::string text;
    Dump(nodes, &text);
    return text;
}

std::vector<std::string> Split(std::string text, const char* separators)
{
    std::vector<std::string> tokens;
    char* state = nullptr;
    for (char* t = strtok_r(text.data(), separators, &state); t != nullptr; t = strtok_r(nullptr, separators, &state))
        tokens.emplace_back(t);
    return tokens;
}

std::string Trimmed(std::string text)
{
    while (!text.empty() && strchr(" \t\"", text.back()) != nullptr)
        text.pop_back();
    while (!text.empty() && strchr(" \t\"", text.front()) != nullptr)
        text.erase(0, 1);
    return text;
}

std::string Converted(const std::string& segment)
{
    std::string result;
    for (size_t i = 0; i < segment.size(); ++i) {
        if (segment.compare(i, 4, "\\x2f") == 0) {
            result += '/';
            i += 3;
        } else {
            result += segment[i];
        }
    }
    return result;
}

struct Segment {
    std::string name;
    std::vector<std::pair<std::string, std::string>> conditions;
};

bool Parse(const std::string& text, Segment* segment)
{
    const std::vector<std::string> pieces = Split(text, "[]");
    if (pieces.empty() || pieces.size() > 2)
        return false;
    segment->name = pieces[0];
    if (pieces.size() == 1)
        return true;
    for (const std::string& condition : Split(pieces[1], "&")) {
        const std::vector<std::string> sides = Split(condition, "=");
        if (sides.size() != 2)
            return false;
        segment->conditions.emplace_back(Trimmed(sides[0]), Trimmed(sides[1]));
    }
    return !segment->conditions.empty();
}

std::string* Attribute(Node& node, const std::string& name)
{
    for (auto& [key, value] : node.attributes)
        if (strcasecmp(key.c_str(), name.c_str()) == 0)
            return &value;
    return nullptr;
}

/// The model's document, or the tree below an element.
struct Model {
    Nodes* top; ///< of a document, else null
    Node* node;
    bool hasAdded = false;
    Nodes* chain = nullptr; ///< which the node that was found is in
};

int Make(const Segment& segment, Nodes* chain, Model* model)
{
    chain->push_back(std::make_unique<Node>(Node{nullptr, ELEMENT, segment.name, true, {}, {}}));
    model->node = chain->back().get();
    model->chain = chain;
    model->hasAdded = true;
    for (const auto& [name, value] : segment.conditions) {
        if (name.find_first_of(" <>@") != std::string::npos)
            return EINVAL;
        if (std::string* old = Attribute(*model->node, name))
            *old = value;
        else
            model->node->attributes.emplace_back(name, value);
    }
    return 0;
}

int First(const std::string& text, bool adds, Model* model)
{
    if (model->top != nullptr)
        for (const auto& node : *model->top)
            if (node->type == ELEMENT && model->node == nullptr)
                model->node = node.get();
    if (model->top != nullptr)
        model->chain = model->top;
    if (model->node != nullptr)
        return strcasecmp(model->node->value.c_str(), text.c_str()) == 0 ? 0 : kXmlBadPath;
    Segment segment;
    if (!adds)
        return ENOENT;
    return Parse(text, &segment) ? Make(segment, model->top, model) : kXmlBadPath;
}

int Further(const std::string& text, bool adds, Model* model)
{
    Segment segment;
    if (!Parse(text, &segment))
        return kXmlBadPath;
    std::string compared;
    bool hasCandidate = false;
    for (const auto& child : model->node->children) {
        if (child->type != ELEMENT || !child->hasValue || child->value != segment.name)
            continue;
        hasCandidate = true;
        bool meetsAll = true;
        for (size_t i = 0; i < segment.conditions.size() && meetsAll; ++i) {
            if (const std::string* value = Attribute(*child, segment.conditions[i].first))
                compared = *value;
            meetsAll = compared == segment.conditions[i].second;
        }
        if (meetsAll) {
            model->chain = &model->node->children;
            model->node = child.get();
            return 0;
        }
    }
    if (adds)
        return Make(segment, &model->node->children, model);
    return hasCandidate ? ENOENT : kXmlBadPath;
}

int Resolve(const std::string& path, bool adds, Model* model)
{
    if (path.size() < 2 || path[0] != '/')
        return kXmlBadPath;
    const std::vector<std::string> segments = Split(path, "/");
    if (segments.empty())
        return kXmlBadPath;
    int error = First(Converted(segments[0]), adds, model);
    for (size_t i = 1; i < segments.size() && error == 0; ++i)
        error = Further(Converted(segments[i]), adds, model);
    return error;
}

/// The value that writing to an element replaces: its first child's, if that is a text.
Node* FirstText(Node& node)
{
    return node.children.empty() || node.children[0]->type != TEXT ? nullptr : node.children[0].get();
}

enum Action { kFind, kAdd, kDelete, kChange, kAddValue, kActionCount };

/// Does the same to the document and to the model, and compares results.
void Act(Action action, void* handle, const std::string& path, Model* model)
{
    const bool adds = action == kAdd || action == kAddValue;
    int expected = Resolve(path, adds, model);
    void* node = nullptr;
    switch (action) {
    case kDelete:
        REQUIRE(WQXXMLH_DeleteElement(handle, path.c_str()) == expected);
        if (expected == 0)
            std::erase_if(*model->chain, [&](const auto& n) { return n.get() == model->node; });
        break;
    case kChange: {
        if (expected == 0 && path.find_first_of(" <>@") != std::string::npos)
            expected = EINVAL;
        Node* const text = expected == 0 ? FirstText(*model->node) : nullptr;
        if (expected == 0 && text == nullptr)
            expected = EINVAL;
        REQUIRE(WQXXMLH_ChangeElementValue(handle, path.c_str(), "new") == expected);
        if (text != nullptr)
            text->value = "new";
        break;
    }
    case kAddValue:
        REQUIRE(WQXXMLH_AddElementValue(handle, path.c_str(), "new", "text") == expected);
        if (expected == 0) {
            Segment segment = {"new", {}};
            Make(segment, &model->node->children, model);
            model->node->children.push_back(std::make_unique<Node>(Node{nullptr, TEXT, "text", true, {}, {}}));
        }
        break;
    default:
        REQUIRE((adds ? WQXXMLH_Misc_GetNodeFromPath_AutoAdd : WQXXMLH_GetNodeFromPath)(handle, path.c_str(), &node) ==
                expected);
        REQUIRE((node != nullptr) == (expected == 0));
        if (expected == 0 && model->node->real != nullptr)
            REQUIRE(node == model->node->real);
    }
    if (model->top != nullptr) {
        const bool hasChanged = model->hasAdded || (expected == 0 && (action == kDelete || action == kChange));
        REQUIRE((static_cast<WQXXMLH*>(handle)->Modified != FALSE) == hasChanged);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const auto action = static_cast<Action>(data[0] % kActionCount);
    const std::vector<std::string> texts = Texts(data + 1, size - 1, 3);
    void* handle = nullptr;
    REQUIRE(WQXXMLH_Open2(texts[1].empty() ? kFixed : texts[1].c_str(), 0, &handle) == 0);
    auto* const document = static_cast<WQXXMLH*>(handle);
    Nodes nodes = ModelOf(static_cast<XMLNODE*>(document->xml));

    Model model = {&nodes, nullptr};
    Act(action, handle, texts[0], &model);
    REQUIRE(Dumped(nodes) == Dumped(ModelOf(static_cast<XMLNODE*>(document->xml))));

    // From the element that the path still leads to.
    nodes = ModelOf(static_cast<XMLNODE*>(document->xml));
    void* start = nullptr;
    model = {&nodes, nullptr};
    if (Resolve(texts[0], false, &model) == 0 && WQXXMLH_GetNodeFromPath(handle, texts[0].c_str(), &start) == 0) {
        Model below = {nullptr, model.node, false, model.chain};
        // What a document begins with is not deleted from itself.
        if (action == kDelete && model.chain == &nodes)
            REQUIRE(WQXXMLH_DeleteElement(start, "/") == kXmlBadPath);
        else
            Act(action, start, texts[2], &below);
        REQUIRE(Dumped(nodes) == Dumped(ModelOf(static_cast<XMLNODE*>(document->xml))));
    }
    char* xml = nullptr;
    WQXXMLH_Close2(handle, &xml);
    REQUIRE(xml != nullptr);
    WQXXMLH_FreeString(xml);
    return 0;
}
