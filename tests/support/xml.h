// XML trees as tests see them: the nodes as they lie in memory, and a copy that can be compared and printed.
#pragma once

#include <ZKQ_general/TamorXml.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace support {

enum XmlType { kDocument, kElement, kComment, kUnknown, kText, kDeclaration };

/// An attribute as it begins in memory.
struct XmlAttribute {
    char* name;
    char* value;
    XmlAttribute* next;
};

/// A node as it begins in memory.
struct XmlNode {
    int type;
    XmlNode* child;
    char* value;
    XmlAttribute* attributes;
    XmlNode* next;
};

inline XmlNode* AsNode(void* xml)
{
    return static_cast<XmlNode*>(xml);
}

/// A node by value.
struct XmlTree {
    int type = kElement;
    std::optional<std::string> value; ///< nothing for a null
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<XmlTree> children;

    friend bool operator==(const XmlTree&, const XmlTree&) = default;
};
using XmlChain = std::vector<XmlTree>;

inline std::string OrNone(const char* text)
{
    return text == nullptr ? "(null)" : text;
}

inline XmlChain CopyChain(void* first)
{
    XmlChain chain;
    for (const XmlNode* node = AsNode(first); node != nullptr; node = node->next) {
        XmlTree copy;
        copy.type = node->type;
        if (node->value != nullptr)
            copy.value = node->value;
        for (const XmlAttribute* attribute = node->attributes; attribute != nullptr; attribute = attribute->next)
            copy.attributes.emplace_back(OrNone(attribute->name), OrNone(attribute->value));
        copy.children = CopyChain(node->child);
        chain.push_back(std::move(copy));
    }
    return chain;
}

inline std::string ToText(const XmlChain& chain);

/// Elements as a[b="1"]('text' <!comment> c()), declarations as ?xml[...], an unknown node as ?!, a null as ~.
inline std::string ToText(const XmlTree& tree)
{
    std::string text = tree.value.value_or("~");
    if (tree.type == kText)
        text = "'" + text + "'";
    else if (tree.type == kComment)
        text = "<!" + text + ">";
    else if (tree.type == kUnknown)
        text = tree.value ? "?!" + text : "?!";
    else if (tree.type == kDeclaration)
        text = tree.value ? "?xml" + text : "?xml";
    if (!tree.attributes.empty()) {
        text += "[";
        for (const auto& [name, value] : tree.attributes)
            text += (text.back() == '[' ? "" : " ") + name + "=\"" + value + "\"";
        text += "]";
    }
    if (tree.type == kElement || !tree.children.empty())
        text += "(" + ToText(tree.children) + ")";
    return text;
}

inline std::string ToText(const XmlChain& chain)
{
    std::string text;
    for (const XmlTree& tree : chain)
        text += (text.empty() ? "" : " ") + ToText(tree);
    return text;
}

inline std::ostream& operator<<(std::ostream& out, const XmlTree& tree)
{
    return out << ToText(tree);
}

/// Sets whether character data is taken as it is written, and puts it back as after loading.
class PlainText {
public:
    explicit PlainText(int plain) { Set(plain); }
    PlainText(const PlainText&) = delete;
    PlainText& operator=(const PlainText&) = delete;
    ~PlainText() { Set(1); }

private:
    static void Set(int plain) { WQXXML_SetOption(1, &plain, sizeof plain); }
};

/// A document that is released with its owner.
class XmlDocument {
public:
    XmlDocument() = default;
    explicit XmlDocument(const std::string& text) : result(WQXXML_LoadFromString(text.c_str(), &xml)) {}
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    ~XmlDocument() { WQXXML_ReleaseObject(xml); }

    XmlChain Chain() const { return CopyChain(xml); }
    std::string Text() const { return ToText(Chain()); }
    /// The first element.
    XmlNode* Root() const
    {
        XmlNode* node = AsNode(xml);
        while (node != nullptr && node->type != kElement)
            node = node->next;
        return node;
    }
    /// What the writer makes of it.
    std::string Output() const
    {
        char* text = nullptr;
        if (WQXXML_OutputString(xml, &text) != 0)
            return "(failed)";
        std::string copy = text;
        WQXXML_FreeString(text);
        return copy;
    }

    void* xml = nullptr;
    int result = 0;
};

/// The tree that a text is read into, with character data taken as it is written or not.
inline std::string Read(const std::string& text, int plain = 1)
{
    const PlainText option(plain);
    const XmlDocument document(text);
    return document.result == 0 ? document.Text() : "(failed)";
}

} // namespace support
