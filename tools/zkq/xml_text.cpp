#include "xml_text.h"

#include <stdint.h>
#include <strings.h>

#include <algorithm>
#include <charconv>

#include "failure.h"

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr size_t kLongestReference = 16; // without "&"
constexpr std::pair<std::string_view, const char*> kNames[] = {
    {"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}, {"apos", "'"}};
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool IsBlank(char c)
{
    return kBlanks.find(c) != std::string_view::npos;
}

/// As the library sees names.
bool IsNameStart(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte == '_' || byte > 127;
}

bool IsNameByte(char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':';
}

/// An element that has begun.
struct OpenElement {
    std::string_view name;
    size_t line;
    bool has_text = false;
    bool has_nodes = false; // elements or comments
};

class Reader {
public:
    Reader(const std::string& file, std::string_view text) : file_(file), text_(text) {}

    XmlText Read()
    {
        for (const char c : text_)
            if (static_cast<unsigned char>(c) < ' ' && !IsBlank(c))
                throw Failure(file_, "It holds control bytes, and is no text that the library reads");
        Skip(kByteOrderMark);
        SkipMisc(true);
        result_.head = text_.substr(0, at_);
        if (at_ == text_.size())
            return std::move(result_);
        ReadElements();
        result_.tail = text_.substr(at_);
        SkipMisc(false);
        if (at_ < text_.size())
            Fail("something stands behind the root element");
        return std::move(result_);
    }

    XmlAttributes ReadStartTag()
    {
        ++at_;
        ReadName();
        XmlAttributes attributes;
        while (SkipBlanks(), at_ < text_.size() && text_[at_] != '>' && text_[at_] != '/')
            attributes.push_back(ReadAttribute());
        return attributes;
    }

private:
    [[noreturn]] void Fail(const std::string& why) const
    {
        throw Failure(file_, "line " + std::to_string(Line()) + ": " + why);
    }

    size_t Line() const
    {
        counted_lines_ += static_cast<size_t>(std::count(text_.begin() + static_cast<ptrdiff_t>(counted_),
                                                         text_.begin() + static_cast<ptrdiff_t>(at_), '\n'));
        counted_ = at_;
        return counted_lines_;
    }

    bool Sees(std::string_view word) const { return text_.substr(at_).starts_with(word); }

    bool Skip(std::string_view word)
    {
        const bool sees = Sees(word);
        if (sees)
            at_ += word.size();
        return sees;
    }

    void SkipBlanks() { at_ = std::min(text_.find_first_not_of(kBlanks, at_), text_.size()); }

    /// The text up to a word, which is passed as well.
    std::string_view ReadTo(std::string_view word, const char* what)
    {
        const size_t end = text_.find(word, at_);
        if (end == std::string_view::npos)
            Fail(std::string(what) + " does not end");
        const std::string_view read = text_.substr(at_, end - at_);
        at_ = end + word.size();
        return read;
    }

    /// What may stand around the root element.
    void SkipMisc(bool is_head)
    {
        for (SkipBlanks(); at_ < text_.size(); SkipBlanks()) {
            if (Sees("<?"))
                ReadInstruction();
            else if (Skip("<!--"))
                ReadTo("-->", "a comment");
            else if (is_head && Skip("<!DOCTYPE"))
                SkipDocumentType();
            else
                return;
        }
    }

    void ReadInstruction()
    {
        const bool is_declaration = Sees("<?xml ");
        at_ += 2;
        const std::string_view text = ReadTo("?>", "a processing instruction");
        const size_t encoding = text.find("encoding");
        if (!is_declaration || encoding == std::string_view::npos)
            return;
        const size_t name = text.find_first_of("\"'", encoding);
        result_.is_utf8 = name != std::string_view::npos && text.size() - name > 5 &&
                          (strncasecmp(text.data() + name + 1, "utf-8", 5) == 0 ||
                           strncasecmp(text.data() + name + 1, "us-ascii", 5) == 0);
    }

    void SkipDocumentType()
    {
        for (int depth = 0; at_ < text_.size();) {
            const char c = text_[at_];
            if (Skip("<!--")) {
                ReadTo("-->", "a comment");
            } else if (Skip("<?")) {
                ReadTo("?>", "a processing instruction");
            } else {
                ++at_;
                if (c == '"' || c == '\'')
                    ReadTo({&c, 1}, "a value");
                depth += (c == '[') - (c == ']');
                if (c == '>' && depth == 0)
                    return;
            }
        }
        Fail("the document type does not end");
    }

    std::string_view ReadName()
    {
        const size_t start = at_;
        if (at_ < text_.size() && IsNameStart(text_[at_]))
            while (at_ < text_.size() && IsNameByte(text_[at_]))
                ++at_;
        if (at_ == start)
            Fail("a name is expected");
        return text_.substr(start, at_ - start);
    }

    std::pair<std::string, std::string> ReadAttribute()
    {
        const std::string_view name = ReadName();
        SkipBlanks();
        if (!Skip("="))
            Fail("\"=\" is expected");
        SkipBlanks();
        if (!Sees("\"") && !Sees("'"))
            Fail("a value in quotation marks is expected");
        const char quote = text_[at_++];
        const std::string_view value = ReadTo({&quote, 1}, "a value");
        if (value.find('<') != std::string_view::npos)
            Fail("\"<\" stands in a value");
        return {std::string(name), std::string(value)};
    }

    /// The root element, written to `result_.root` as the library takes it.
    void ReadElements()
    {
        if (!Skip("<"))
            Fail("there is text before the root element");
        BeginElement();
        while (!open_.empty()) {
            if (Skip("<!--"))
                ReadComment();
            else if (Skip("<![CDATA["))
                run_ += EscapedText(ReadTo("]]>", "a CDATA section"));
            else if (Skip("</"))
                ReadEndTag();
            else if (Skip("<?"))
                DropInstruction();
            else if (Skip("<"))
                BeginElement();
            else
                ReadText();
        }
    }

    void ReadText()
    {
        if (at_ == text_.size())
            Fail("<" + std::string(open_.back().name) + "> of line " + std::to_string(open_.back().line) +
                 " does not end");
        const size_t end = std::min(text_.find('<', at_), text_.size());
        run_ += text_.substr(at_, end - at_);
        at_ = end;
    }

    void DropInstruction()
    {
        Lose("a processing instruction is dropped");
        ReadTo("?>", "a processing instruction");
    }

    void ReadComment()
    {
        FlushText(false);
        open_.back().has_nodes = true;
        (result_.root += "<!--").append(ReadTo("-->", "a comment")).append("-->");
    }

    void BeginElement()
    {
        if (!open_.empty()) {
            FlushText(false);
            open_.back().has_nodes = true;
        }
        const size_t line = Line();
        const std::string_view name = ReadName();
        if (open_.empty())
            result_.root_name = name;
        (result_.root += '<').append(name);
        ReadAttributes();
        if (Skip("/>")) {
            result_.root += "/>";
        } else if (Skip(">")) {
            result_.root += '>';
            open_.push_back({name, line});
        } else {
            Fail("\">\" is expected");
        }
    }

    /// The library decodes values as it reads them; what it must hold as it is written is encoded once more.
    void ReadAttributes()
    {
        XmlAttributes attributes;
        while (SkipBlanks(), at_ < text_.size() && text_[at_] != '>' && text_[at_] != '/') {
            attributes.push_back(ReadAttribute());
            const auto& [name, value] = attributes.back();
            for (size_t i = 0; i + 1 < attributes.size(); ++i)
                if (strcasecmp(attributes[i].first.c_str(), name.c_str()) == 0)
                    Lose("the attributes " + attributes[i].first + " and " + name + " become one");
            (result_.root += ' ').append(name).append("=\"");
            for (const char c : value)
                result_.root += c == '&' ? "&amp;" : c == '"' ? "&amp;quot;" : std::string(1, c);
            result_.root += '"';
        }
    }

    void ReadEndTag()
    {
        const std::string_view name = ReadName();
        SkipBlanks();
        if (open_.empty() || name != open_.back().name)
            Fail("</" + std::string(name) + "> ends " +
                 (open_.empty() ? std::string("nothing") : "<" + std::string(open_.back().name) + ">"));
        if (!Skip(">"))
            Fail("\">\" is expected");
        FlushText(!open_.back().has_nodes);
        if (open_.back().has_text && open_.back().has_nodes)
            Lose("<" + std::string(name) + "> of line " + std::to_string(open_.back().line) +
                 " has text beside elements, and blanks around them change");
        (result_.root += "</").append(name).append(">");
        open_.pop_back();
    }

    /// Ends a text. Blanks between elements are only the file's layout, those of an element without any its text.
    void FlushText(bool is_whole)
    {
        const bool is_blank = std::all_of(run_.begin(), run_.end(), IsBlank);
        if (!is_blank)
            open_.back().has_text = true;
        if (!run_.empty() && (!is_blank || is_whole))
            (result_.root += IsBlank(run_[0]) ? std::string(1, kKeepBlanks) : "").append(run_);
        run_.clear();
    }

    void Lose(const std::string& what) { result_.losses.push_back("line " + std::to_string(Line()) + ": " + what); }

    const std::string& file_;
    std::string_view text_;
    size_t at_ = 0;
    mutable size_t counted_ = 0;
    mutable size_t counted_lines_ = 1;
    XmlText result_;
    std::string run_; // text since the last tag
    std::vector<OpenElement> open_;
};

std::string Utf8(uint32_t point)
{
    const auto last = [point](int shift) { return static_cast<char>(0x80 | (point >> shift & 0x3F)); };
    if (point < 0x80)
        return {static_cast<char>(point)};
    if (point < 0x800)
        return {static_cast<char>(0xC0 | point >> 6), last(0)};
    if (point < 0x10000)
        return {static_cast<char>(0xE0 | point >> 12), last(6), last(0)};
    return {static_cast<char>(0xF0 | point >> 18), last(12), last(6), last(0)};
}

/// What a reference such as "#65" or "lt" stands for; empty if that cannot be told.
std::string Referred(std::string_view name, bool is_utf8)
{
    for (const auto& [known, text] : kNames)
        if (name == known)
            return text;
    if (!name.starts_with('#'))
        return {};
    const bool is_hex = name.starts_with("#x");
    uint32_t point = 0;
    const char* const end = name.data() + name.size();
    const auto [read, error] = std::from_chars(name.data() + (is_hex ? 2 : 1), end, point, is_hex ? 16 : 10);
    const bool is_known = read == end && error == std::errc() && point > 0 && point < 0x110000;
    return is_known && (point < 0x80 || is_utf8) ? Utf8(point) : std::string();
}

std::string Reference(char c)
{
    for (const auto& [name, text] : kNames)
        if (*text == c)
            return "&" + std::string(name) + ";";
    return "&#" + std::to_string(c) + ";";
}

std::string Escaped(std::string_view text, std::string_view bytes)
{
    std::string escaped;
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < ' ' && !IsBlank(c))
            throw Failure("control byte " + std::to_string(static_cast<int>(c)), "XML has no way to hold this");
        if (bytes.find(c) != std::string_view::npos)
            escaped += Reference(c);
        else
            escaped += c;
    }
    return escaped;
}

} // namespace

XmlText ReadXmlText(const std::string& file, std::string_view text)
{
    return Reader(file, text).Read();
}

XmlAttributes StartTagAttributes(std::string_view text)
{
    const std::string nowhere;
    return Reader(nowhere, text).ReadStartTag();
}

bool IsXmlName(std::string_view name)
{
    return !name.empty() && IsNameStart(name[0]) && std::all_of(name.begin(), name.end(), IsNameByte);
}

std::string EscapedText(std::string_view text)
{
    return Escaped(text, "&<>\r");
}

std::string EscapedValue(std::string_view text)
{
    return Escaped(text, "&<>\"\r\n\t");
}

std::string UnescapedText(std::string_view text, bool is_utf8)
{
    std::string result;
    for (size_t at = 0; at < text.size();) {
        const std::string_view ahead = text[at] == '&' ? text.substr(at + 1, kLongestReference) : std::string_view();
        const size_t end = ahead.find(';');
        const std::string referred = end == std::string_view::npos ? "" : Referred(ahead.substr(0, end), is_utf8);
        result += referred.empty() ? text.substr(at, 1) : referred;
        at += referred.empty() ? 1 : end + 2;
    }
    return result;
}

std::string WithoutMarks(std::string text)
{
    std::erase(text, kKeepBlanks);
    return text;
}
