// A second, slow and obvious reader of XML texts. It knows nothing of the library's and shares no code with it.
#pragma once

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <optional>
#include <string>

#include "xml.h"

namespace support::model {

class XmlReader {
public:
    XmlReader(std::string text, bool plain) : text_(std::move(text)), plain_(plain) {}

    XmlChain Read()
    {
        XmlChain chain;
        if (Begins(0, "\xEF\xBB\xBF"))
            mode_ = 1;
        Position p = Skip(0);
        while (p && At(*p) != 0) {
            std::optional<XmlTree> node = Identify(*p);
            if (!node)
                break;
            p = Parse(&*node, *p);
            chain.push_back(*node);
            if (!node->value.value_or("").empty())
                break;
            if (mode_ == 0 && node->type == kDeclaration)
                mode_ = ModeOf(*node);
            if (p)
                p = Skip(*p);
        }
        return chain;
    }

private:
    /// Nothing after a failure.
    using Position = std::optional<size_t>;

    /// The byte at a position, 0 at the end.
    int At(size_t p) const { return p < text_.size() ? static_cast<unsigned char>(text_[p]) : 0; }
    static bool IsSpace(int c) { return (c >= 9 && c <= 13) || c == ' '; }
    static int Lower(int c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; }
    static bool IsLetter(int c) { return c > 126 || (Lower(c) >= 'a' && Lower(c) <= 'z'); }
    static bool IsDigit(int c) { return c >= '0' && c <= '9'; }

    bool Begins(size_t p, const std::string& tag, bool ignoreCase = false) const
    {
        for (size_t i = 0; i < tag.size(); ++i) {
            const int mine = At(p + i);
            const int wanted = static_cast<unsigned char>(tag[i]);
            if (p + i >= text_.size() || (ignoreCase ? Lower(mine) != Lower(wanted) : mine != wanted))
                return false;
        }
        return true;
    }
    static bool SameName(const std::string& a, const std::string& b)
    {
        if (a.size() != b.size())
            return false;
        for (size_t i = 0; i < a.size(); ++i)
            if (Lower(static_cast<unsigned char>(a[i])) != Lower(static_cast<unsigned char>(b[i])))
                return false;
        return true;
    }

    Position Skip(size_t p) const
    {
        if (p >= text_.size())
            return {};
        for (;;) {
            if (IsSpace(At(p)))
                ++p;
            else if (mode_ == 1 &&
                     (Begins(p, "\xEF\xBB\xBF") || Begins(p, "\xEF\xBF\xBE") || Begins(p, "\xEF\xBF\xBF")))
                p += 3;
            else
                return p;
        }
    }

    std::optional<XmlTree> Identify(size_t at) const
    {
        const Position p = Skip(at);
        if (!p || At(*p) != '<')
            return {};
        XmlTree node;
        if (Begins(*p, "<?xml", true))
            node.type = kDeclaration;
        else if (Begins(*p, "<!--"))
            node.type = kComment;
        else if (Begins(*p, "<![CDATA["))
            node.type = kText;
        else if (Begins(*p, "<!"))
            node.type = kUnknown;
        else
            node.type = IsLetter(At(*p + 1)) || At(*p + 1) == '_' ? kElement : kUnknown;
        return node;
    }

    Position Parse(XmlTree* node, size_t p)
    {
        switch (node->type) {
        case kElement:
            return Element(node, p);
        case kComment:
            return UpTo(node, p, "<!--", "-->");
        case kText:
            return CharacterData(node, p);
        case kDeclaration:
            return Declaration(node, p);
        default:
            return {};
        }
    }

    Position Name(size_t p, std::string* name) const
    {
        if (!IsLetter(At(p)) && At(p) != '_')
            return {};
        for (; At(p) != 0 && (IsLetter(At(p)) || IsDigit(At(p)) || strchr("_-.:", At(p)) != nullptr); ++p)
            *name += text_[p];
        return p;
    }

    void PutCodePoint(uint64_t value, std::string* out) const
    {
        const auto put = [&](unsigned byte) {
            if (byte != 0)
                *out += static_cast<char>(byte);
        };
        if (mode_ != 1)
            return put(static_cast<unsigned>(value & 0xFF));
        if (value > 0x1FFFFF)
            return;
        const auto v = static_cast<unsigned>(value);
        if (v < 0x80) {
            put(v);
        } else if (v < 0x800) {
            put(0xC0 | v >> 6);
            put(0x80 | (v & 0x3F));
        } else if (v <= 0xFFFF) {
            put(0xE0 | v >> 12);
            put(0x80 | (v >> 6 & 0x3F));
            put(0x80 | (v & 0x3F));
        } else {
            put(0xF0 | v >> 18);
            put(0x80 | (v >> 12 & 0x3F));
            put(0x80 | (v >> 6 & 0x3F));
            put(0x80 | (v & 0x3F));
        }
    }

    Position Number(size_t mark, unsigned base, std::string* out) const
    {
        const size_t end = text_.find(';', mark);
        if (end == std::string::npos)
            return {};
        std::string digits;
        for (size_t p = end - 1; At(p) != At(mark); --p) {
            const int c = Lower(At(p));
            if (!IsDigit(c) && !(base == 16 && c >= 'a' && c <= 'f'))
                return {};
            digits.insert(digits.begin(), static_cast<char>(c));
        }
        uint64_t value = 0;
        unsigned low = 0;
        for (const char c : digits) {
            const auto digit = static_cast<unsigned>(IsDigit(c) ? c - '0' : c - 'a' + 10);
            value = std::min<uint64_t>(value * base + digit, 0x100000000);
            low = (low * base + digit) & 0xFF;
        }
        PutCodePoint(mode_ == 1 ? value : low, out);
        return end + 1;
    }

    Position Entity(size_t p, std::string* out) const
    {
        if (Begins(p, "&#x") && At(p + 3) != 0)
            return Number(p + 2, 16, out);
        if (Begins(p, "&#"))
            return Number(p + 1, 10, out);
        constexpr std::pair<const char*, char> entities[] = {
            {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
        for (const auto& [name, c] : entities) {
            if (Begins(p, name)) {
                *out += c;
                return p + strlen(name);
            }
        }
        *out += '&';
        return p + 1;
    }

    Position Char(size_t p, std::string* out) const
    {
        const int c = At(p);
        size_t length = 1;
        if (mode_ == 1)
            length = c < 0xC2 || c > 0xF4 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
        if (c == '&')
            return Entity(p, out);
        for (; length > 0 && At(p) != 0; --length)
            *out += text_[p++];
        return p;
    }

    Position Attribute(size_t at, std::string* name, std::string* value) const
    {
        Position p = Skip(at);
        p = p ? Name(*p, name) : p;
        p = p ? Skip(*p) : p;
        if (!p || At(*p) != '=')
            return {};
        p = Skip(*p + 1);
        if (!p || At(*p) == 0)
            return {};
        const int quote = At(*p);
        if (quote == '"' || quote == '\'') {
            ++*p;
            while (p && At(*p) != quote) {
                if (At(*p) == 0)
                    return {};
                p = Char(*p, value);
            }
            return p ? *p + 1 : p;
        }
        for (; At(*p) != 0 && !IsSpace(At(*p)) && At(*p) != '/' && At(*p) != '>'; ++*p) {
            if (At(*p) == '"' || At(*p) == '\'')
                return {};
            *value += text_[*p];
        }
        return p;
    }

    static void Add(XmlTree* node, const std::string& name, const std::string& value)
    {
        for (auto& attribute : node->attributes) {
            if (SameName(attribute.first, name)) {
                attribute.second = value;
                return;
            }
        }
        node->attributes.emplace_back(name, value);
    }

    Position AddAttribute(XmlTree* node, size_t at) const
    {
        std::string name;
        std::string value;
        const Position p = Attribute(at, &name, &value);
        if (p)
            Add(node, name, value);
        return p;
    }

    static void AddEmptyText(XmlTree* node)
    {
        XmlTree text;
        text.type = kText;
        text.value = "";
        node->children.push_back(text);
    }

    Position Element(XmlTree* node, size_t at)
    {
        Position p = Skip(at);
        p = Skip(*p + 1);
        std::string name;
        p = p ? Name(*p, &name) : p;
        if (!p)
            return {};
        node->value = name;
        for (;;) {
            p = Skip(*p);
            if (!p || At(*p) == 0)
                return {};
            if (At(*p) == '/') {
                if (At(*p + 1) != '>')
                    return {};
                AddEmptyText(node);
                return *p + 2;
            }
            if (At(*p) == '>') {
                p = Content(node, *p + 1);
                const std::string endTag = "</" + name + ">";
                return p && Begins(*p, endTag) ? *p + endTag.size() : Position();
            }
            p = AddAttribute(node, *p);
            if (!p)
                return {};
        }
    }

    Position Content(XmlTree* node, size_t at)
    {
        Position p = Skip(at);
        while (p && At(*p) != 0 && !Begins(*p, "</")) {
            XmlTree child;
            child.type = kText;
            if (At(*p) == '<')
                child = *Identify(*p);
            p = Parse(&child, *p);
            node->children.push_back(child);
            if (!p)
                return {};
            p = Skip(*p);
        }
        if (node->children.empty())
            AddEmptyText(node);
        return p;
    }

    Position UpTo(XmlTree* node, size_t at, const std::string& start, const std::string& end) const
    {
        const Position skipped = Skip(at);
        const size_t begin = *skipped + start.size();
        const size_t found = text_.find(end, begin);
        node->value = text_.substr(begin, found == std::string::npos ? found : found - begin);
        return found == std::string::npos ? text_.size() : found + end.size();
    }

    Position CharacterData(XmlTree* node, size_t at) const
    {
        const std::string start = "<![CDATA[";
        if (Begins(at, start))
            return UpTo(node, at, start, "]]>");
        node->value = "";
        if (plain_) {
            const size_t found = text_.find('<', at);
            node->value = text_.substr(at, found == std::string::npos ? found : found - at);
            return found == std::string::npos ? text_.size() : found;
        }
        Position p = Skip(at);
        bool blank = false;
        while (p && At(*p) != 0 && At(*p) != '<') {
            if (IsSpace(At(*p))) {
                blank = true;
                ++*p;
                continue;
            }
            if (blank)
                *node->value += ' ';
            blank = false;
            p = Char(*p, &*node->value);
        }
        return p;
    }

    Position Declaration(XmlTree* node, size_t at) const
    {
        Position p = Skip(at);
        p = *p + 5;
        for (;;) {
            p = Skip(*p);
            if (!p || At(*p) == 0)
                return {};
            if (At(*p) == '>')
                return *p + 1;
            if (Begins(*p, "version", true) || Begins(*p, "encoding", true) || Begins(*p, "standalone", true)) {
                p = AddAttribute(node, *p);
                if (!p)
                    return {};
            } else {
                while (At(*p) != 0 && !IsSpace(At(*p)) && At(*p) != '>')
                    ++*p;
            }
        }
    }

    static int ModeOf(const XmlTree& declaration)
    {
        for (const auto& [name, value] : declaration.attributes)
            if (SameName(name, "encoding"))
                return SameName(value.substr(0, 5), "UTF-8") || SameName(value.substr(0, 4), "UTF8") ? 1 : 2;
        return 1;
    }

    std::string text_;
    bool plain_;
    int mode_ = 0;
};

inline XmlChain ReadXml(const std::string& text, bool plain)
{
    return XmlReader(text, plain).Read();
}

} // namespace support::model
