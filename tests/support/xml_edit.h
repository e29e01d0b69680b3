// Editing a document by a sequence of commands, beside a simple model of it; used by a test and by a fuzz target.
#pragma once

#include <ZKQ_general/TamorXml.h>
#include <errno.h>

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "xml.h"

namespace support::model {

/// A node of the model, tied to the node it stands for.
struct Node {
    int type = kElement;
    std::optional<std::string> value;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<std::unique_ptr<Node>> children;
    Node* parent = nullptr;
    void* real = nullptr;
};
using Chain = std::vector<std::unique_ptr<Node>>;

inline bool SameName(const std::string& a, const std::string& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return (x >= 'A' && x <= 'Z' ? x + 32 : x) == (y >= 'A' && y <= 'Z' ? y + 32 : y);
    });
}

/// Takes the next choice: a number below `end`.
class Choices {
public:
    virtual unsigned Below(unsigned end) = 0;

protected:
    ~Choices() = default;
};

class XmlEditor {
public:
    XmlEditor(const std::string& text, Choices* choices) : choices_(choices)
    {
        WQXXML_LoadFromString(text.c_str(), &xml_);
        Adopt(xml_, nullptr, &chain_);
    }
    XmlEditor(const XmlEditor&) = delete;
    XmlEditor& operator=(const XmlEditor&) = delete;
    ~XmlEditor() { WQXXML_ReleaseObject(xml_); }

    /// Does one thing to both; what differs then, or "".
    std::string Step()
    {
        error_.clear();
        switch (choices_->Below(14)) {
        case 0:
        case 1:
            AddChild(false);
            break;
        case 2:
            AddChild(true);
            break;
        case 3:
            AddByName();
            break;
        case 4:
        case 5:
            Delete();
            break;
        case 6:
            Rename();
            break;
        case 7:
            ChangeText();
            break;
        case 8:
            SetAttribute();
            break;
        case 9:
            ChangeAttribute();
            break;
        case 10:
        case 11:
            WalkChildren();
            break;
        case 12:
            WalkFollowers();
            break;
        default:
            WalkNamed();
        }
        return error_;
    }
    /// What differs between the two, or "".
    std::string Compare() const { return CompareChain(xml_, chain_); }
    size_t Size() const { return Count(chain_); }

private:
    void Expect(bool holds, const char* what)
    {
        if (!holds && error_.empty())
            error_ = what;
    }
    static void Adopt(void* real, Node* parent, Chain* chain)
    {
        for (XmlNode* node = AsNode(real); node != nullptr; node = node->next)
            chain->push_back(AdoptOne(node, parent));
    }
    static std::unique_ptr<Node> AdoptOne(XmlNode* node, Node* parent)
    {
        auto copy = std::make_unique<Node>();
        copy->type = node->type;
        if (node->value != nullptr)
            copy->value = node->value;
        for (const XmlAttribute* attribute = node->attributes; attribute != nullptr; attribute = attribute->next)
            copy->attributes.emplace_back(attribute->name, attribute->value);
        copy->parent = parent;
        copy->real = node;
        Adopt(node->child, copy.get(), &copy->children);
        return copy;
    }
    static std::string CompareChain(void* real, const Chain& chain)
    {
        const XmlNode* node = AsNode(real);
        for (const auto& model : chain) {
            if (node == nullptr)
                return "a node is missing";
            if (node != model->real)
                return "a node is another";
            if (node->type != model->type)
                return "a type differs";
            if ((node->value != nullptr) != model->value.has_value() || (model->value && *model->value != node->value))
                return "a value differs";
            const XmlAttribute* attribute = node->attributes;
            for (const auto& [name, value] : model->attributes) {
                if (attribute == nullptr || name != attribute->name || value != attribute->value)
                    return "an attribute differs";
                attribute = attribute->next;
            }
            if (attribute != nullptr)
                return "an attribute too many";
            std::string below = CompareChain(node->child, model->children);
            if (!below.empty())
                return below;
            node = node->next;
        }
        return node == nullptr ? "" : "a node too many";
    }
    static size_t Count(const Chain& chain)
    {
        size_t count = chain.size();
        for (const auto& node : chain)
            count += Count(node->children);
        return count;
    }
    static void Collect(const Chain& chain, std::vector<Node*>* all)
    {
        for (const auto& node : chain) {
            all->push_back(node.get());
            Collect(node->children, all);
        }
    }

    Node* PickNode()
    {
        std::vector<Node*> all;
        Collect(chain_, &all);
        return all.empty() ? nullptr : all[choices_->Below(static_cast<unsigned>(all.size()))];
    }
    /// Often the same one, so that its children become many.
    Node* PickParent()
    {
        Node* node = choices_->Below(3) == 0 ? PickNode() : chain_.empty() ? nullptr : chain_.back().get();
        while (node != nullptr && node->type != kElement)
            node = node->parent;
        return node;
    }
    std::string PickName() { return std::string(1, "abcABx"[choices_->Below(6)]); }
    std::string PickText()
    {
        const char* const texts[] = {"", "x", "text", "a longer text that fits no small block of any kind", "<&>"};
        return texts[choices_->Below(5)];
    }
    static Node* FindElement(const Chain& chain, const std::string& name)
    {
        for (const auto& node : chain) {
            if (node->type != kElement)
                continue;
            if (SameName(node->value.value_or(""), name))
                return node.get();
            if (Node* const below = FindElement(node->children, name))
                return below;
        }
        return nullptr;
    }
    static std::unique_ptr<Node> NewElement(void* real, Node* parent, const std::string& name,
                                            const std::optional<std::string>& text)
    {
        auto node = std::make_unique<Node>();
        node->value = name;
        node->parent = parent;
        node->real = real;
        if (text) {
            auto child = std::make_unique<Node>();
            child->type = kText;
            child->value = *text;
            child->parent = node.get();
            child->real = AsNode(real)->child;
            node->children.push_back(std::move(child));
        }
        return node;
    }

    void AddChild(bool isFirst)
    {
        Node* const parent = PickParent();
        const std::string name = PickName();
        std::optional<std::string> text;
        if (choices_->Below(3) != 0)
            text = PickText();
        const char* const value = text ? text->c_str() : nullptr;
        void* real = nullptr;
        if (parent == nullptr) {
            Expect(WQXXML_AddNodeChildItem(nullptr, name.c_str(), value, &real) == EINVAL, "added to nothing");
            return;
        }
        const int result = isFirst ? WQXXML_AddNodeChildItem_Reverse(parent->real, name.c_str(), value, &real)
                                   : WQXXML_AddNodeChildItem(parent->real, name.c_str(), value, &real);
        Expect(result == 0 && real != nullptr, "not added");
        parent->children.insert(isFirst ? parent->children.begin() : parent->children.end(),
                                NewElement(real, parent, name, text));
    }
    void AddByName()
    {
        const std::string parentName = choices_->Below(4) == 0 ? "" : PickName();
        const std::string name = PickName();
        std::optional<std::string> text = PickText();
        const bool isTopLevel = chain_.empty() || parentName.empty();
        void* real = nullptr;
        const int result = WQXXML_AddChildItemAndGetNode(&xml_, parentName.c_str(), name.c_str(), text->c_str(), &real);
        if (isTopLevel) {
            const bool hasRoot =
                std::any_of(chain_.begin(), chain_.end(), [](const auto& node) { return node->type == kElement; });
            Expect(result == (chain_.empty() || hasRoot ? 0 : ENOENT), "top level");
            if (result == 0)
                chain_.push_back(NewElement(real, nullptr, name, {}));
            return;
        }
        Node* const parent = FindElement(chain_, parentName);
        Expect(result == (parent == nullptr ? ENOENT : 0), "by name");
        if (parent != nullptr && result == 0)
            parent->children.push_back(NewElement(real, parent, name, text));
    }
    void Delete()
    {
        Node* const node = PickNode();
        if (node == nullptr)
            return;
        const bool isFirst = node == chain_.front().get();
        bool isFound = node->type == kElement;
        for (const Node* above = node->parent; above != nullptr; above = above->parent)
            isFound = isFound && above->type == kElement;
        const int result = WQXXML_DelNode(&xml_, node->real);
        Expect(result == (isFirst || isFound ? 0 : EINVAL), "deleted");
        if (result != 0)
            return;
        Chain& chain = node->parent == nullptr ? chain_ : node->parent->children;
        chain.erase(std::find_if(chain.begin(), chain.end(), [&](const auto& other) { return other.get() == node; }));
    }
    void Rename()
    {
        Node* const node = PickNode();
        if (node == nullptr)
            return;
        if (node->value && choices_->Below(4) == 0) { // to its own end
            const char* own = nullptr;
            Expect(WQXXML_GetNodeValue(node->real, &own) == 0 && *node->value == own, "own value");
            const size_t from = node->value->size() / 2;
            Expect(WQXXML_ChangeNodeValue(node->real, own + from) == 0, "changed to a part");
            node->value = node->value->substr(from);
            return;
        }
        const std::string name = PickName();
        Expect(WQXXML_ChangeNodeValue(node->real, name.c_str()) == 0, "renamed");
        node->value = name;
    }
    void ChangeText()
    {
        Node* const node = PickNode();
        if (node == nullptr)
            return;
        std::string text = PickText();
        const bool isText = !node->children.empty() && node->children.front()->type == kText;
        Expect(WQXXML_ChangeElementValue(node->real, text.c_str()) == (isText ? 0 : EINVAL), "text changed");
        if (isText)
            node->children.front()->value = text;
    }
    void SetAttribute()
    {
        Node* const node = PickNode();
        if (node == nullptr)
            return;
        const std::string name = PickName();
        const std::string value = PickText();
        const int result = WQXXML_AddNodeAttribute(node->real, name.c_str(), value.c_str());
        Expect(result == (node->type == kElement ? 0 : EINVAL), "attribute added");
        if (result != 0)
            return;
        for (auto& attribute : node->attributes) {
            if (SameName(attribute.first, name)) {
                attribute.second = value;
                return;
            }
        }
        node->attributes.emplace_back(name, value);
    }
    void ChangeAttribute()
    {
        Node* const node = PickNode();
        if (node == nullptr)
            return;
        const std::string name = PickName();
        auto attribute = std::find_if(node->attributes.begin(), node->attributes.end(),
                                      [&](const auto& other) { return SameName(other.first, name); });
        const bool isThere = attribute != node->attributes.end();
        char* old = nullptr;
        Expect(WQXXML_GetAttribute(node->real, name.c_str(), &old) == (isThere ? 0 : ENOENT), "attribute found");
        if (!isThere) {
            Expect(WQXXML_ChangeAttribute(node->real, name.c_str(), "x") == ENOENT, "attribute not there");
            return;
        }
        Expect(attribute->second == old, "attribute value");
        const size_t from = attribute->second.size() / 2;
        Expect(WQXXML_ChangeAttribute(node->real, name.c_str(), old + from) == 0, "attribute changed to a part");
        attribute->second = attribute->second.substr(from);
    }

    static std::vector<Node*> Elements(const Chain& chain)
    {
        std::vector<Node*> elements;
        for (const auto& node : chain)
            if (node->type == kElement)
                elements.push_back(node.get());
        return elements;
    }
    /// A short walk from anywhere, so that the library has a place to remember before the next change.
    template <class Get>
    void Walk(const std::vector<Node*>& expected, Get get)
    {
        const auto size = static_cast<int>(expected.size());
        int index = static_cast<int>(choices_->Below(static_cast<unsigned>(size) + 2));
        const int last = index + static_cast<int>(choices_->Below(4));
        for (; index <= last; ++index) {
            void* const found = get(index);
            Expect(found == (index < size ? expected[static_cast<size_t>(index)]->real : nullptr), "a walk");
        }
    }
    void WalkChildren()
    {
        Node* const node = PickParent();
        if (node == nullptr)
            return;
        const std::vector<Node*> expected = Elements(node->children);
        int count = -1;
        Expect(WQXXML_GetChildNode(node->real, &count, nullptr) == 0 && count == static_cast<int>(expected.size()),
               "number of children");
        Walk(expected, [&](int index) {
            void* found = nullptr;
            const int result = WQXXML_GetChildNode(node->real, &index, &found);
            return result == 0 ? found : nullptr;
        });
    }
    void WalkFollowers()
    {
        Node* const node = PickNode();
        if (node == nullptr)
            return;
        const Chain& chain = node->parent == nullptr ? chain_ : node->parent->children;
        std::vector<Node*> expected;
        bool isBehind = false;
        for (const auto& other : chain) {
            if (isBehind && other->type == kElement)
                expected.push_back(other.get());
            isBehind = isBehind || other.get() == node;
        }
        int count = -1;
        Expect(WQXXML_GetNextNode(node->real, &count, nullptr) == 0 && count == static_cast<int>(expected.size()),
               "number of followers");
        Walk(expected, [&](int index) {
            void* found = nullptr;
            const int result = WQXXML_GetNextNode(node->real, &index, &found);
            return result == 0 ? found : nullptr;
        });
    }
    void WalkNamed()
    {
        Node* const node = PickParent();
        if (node == nullptr)
            return;
        const std::string name = PickName();
        std::vector<Node*> expected = Elements(node->children);
        std::erase_if(expected, [&](const Node* child) { return child->value != name; });
        int count = -1;
        Expect(WQXXML_GetSpecifiedChildNode(node->real, &count, name.c_str(), nullptr) == 0 &&
                   count == static_cast<int>(expected.size()),
               "number of a name");
        Walk(expected, [&](int index) {
            void* found = xml_;
            const int result = WQXXML_GetSpecifiedChildNode(node->real, &index, name.c_str(), &found);
            return result == 0 ? found : xml_;
        });
    }

    Choices* choices_;
    void* xml_ = nullptr;
    Chain chain_;
    std::string error_;
};

} // namespace support::model
