// XML texts: whatever the bytes, the tree is the one a second reader makes, every text ends in its memory, nodes can be
// released in any order, and what is written can be read again. Input: one byte that chooses, then the text.
#include <ZKQ_general.h>
#include <string.h>

#include <algorithm>
#include <random>

#include "../support/xml_model.h"
#include "fuzz.h"

namespace {

using support::AsNode;
using support::XmlChain;
using support::XmlDocument;
using support::XmlNode;

constexpr size_t kMaxForModel = 3000;

void TouchTexts(const XmlNode* node)
{
    for (; node != nullptr; node = node->next) {
        REQUIRE(node->type > support::kDocument && node->type <= support::kDeclaration);
        REQUIRE(node->value == nullptr || strlen(node->value) < SIZE_MAX);
        REQUIRE((node->value == nullptr) == (node->type == support::kUnknown || node->type == support::kDeclaration) ||
                node->type == support::kElement);
        for (const support::XmlAttribute* a = node->attributes; a != nullptr; a = a->next)
            REQUIRE(strlen(a->name) > 0 && strlen(a->value) < SIZE_MAX);
        TouchTexts(node->child);
    }
}

void CollectElements(XmlNode* node, std::vector<XmlNode*>* all)
{
    for (; node != nullptr; node = node->next) {
        if (node->type == support::kElement)
            all->push_back(node);
        CollectElements(node->child, all);
    }
}

/// Deletes an element and forgets those that went with it.
void DeleteOne(void** xml, std::vector<XmlNode*>* all, size_t which)
{
    XmlNode* const node = (*all)[which];
    std::vector<XmlNode*> gone{node};
    CollectElements(node->child, &gone);
    std::erase_if(*all, [&](XmlNode* other) { return std::find(gone.begin(), gone.end(), other) != gone.end(); });
    REQUIRE(WQXXML_DelNode(xml, node) == 0);
}

void ReleaseInAnyOrder(const std::string& text, unsigned seed)
{
    XmlDocument document(text);
    std::mt19937 random(seed);
    std::vector<XmlNode*> all;
    CollectElements(AsNode(document.xml), &all);
    for (XmlNode* const node : all) { // some texts become texts of their own
        if (random() % 3 == 0)
            WQXXML_ChangeNodeValue(node, "renamed");
        if (random() % 3 == 0)
            WQXXML_AddNodeAttribute(node, "added", "value");
    }
    while (!all.empty() && random() % 16 != 0)
        DeleteOne(&document.xml, &all, random() % all.size());
    TouchTexts(AsNode(document.xml));
}

bool IsAscii(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 127; });
}

/// Texts that stand for themselves: nothing that reading would take for something else.
bool IsPlain(const XmlChain& chain)
{
    return std::all_of(chain.begin(), chain.end(), [](const support::XmlTree& tree) {
        const std::string value = tree.value.value_or("<");
        const bool isOnlyText = tree.children.size() == 1 && tree.children[0].type == support::kText;
        return tree.type == support::kElement && !tree.children.empty() && IsAscii(value) && value != "<" &&
               std::all_of(tree.attributes.begin(), tree.attributes.end(),
                           [](const auto& a) {
                               return IsAscii(a.first + a.second) && a.second.find_first_of("\"&") == std::string::npos;
                           }) &&
               (isOnlyText ? tree.children[0].value->find('<') == std::string::npos &&
                                 tree.children[0].value->find_first_of(" \t\n\v\f\r") != 0
                           : IsPlain(tree.children));
    });
}

void CheckWriting(const XmlDocument& document, bool plain)
{
    const std::string output = document.Output();
    const XmlDocument again(output.empty() ? " " : output);
    REQUIRE(again.result == 0);
    const XmlNode* const root = document.Root();
    if (root == nullptr) {
        REQUIRE(output.empty());
        return;
    }
    REQUIRE(output.ends_with(">\n") && output.starts_with("<"));
    XmlChain first = document.Chain();
    std::erase_if(first, [](const support::XmlTree& tree) { return tree.type != support::kElement; });
    if (plain && IsPlain(first)) {
        REQUIRE(first == again.Chain());
        REQUIRE(again.Output() == output);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1,
                           strnlen(reinterpret_cast<const char*>(data) + 1, size - 1));
    const Exact<char> exact(text.size() + 1);
    memcpy(exact.Get(), text.c_str(), text.size() + 1);
    for (const bool plain : {true, false}) {
        const support::PlainText option(plain ? 1 : 0);
        XmlDocument document;
        REQUIRE(WQXXML_LoadFromString(exact.Get(), &document.xml) == (text.empty() ? EINVAL : 0));
        TouchTexts(AsNode(document.xml));
        if (text.size() <= kMaxForModel)
            REQUIRE(document.Chain() == support::model::ReadXml(text, plain));
        CheckWriting(document, plain);
        ReleaseInAnyOrder(text, data[0]);
    }
    return 0;
}
