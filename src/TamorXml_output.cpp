#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "internal/file.h"
#include "internal/growing_text.h"
#include "internal/guards.h"
#include "internal/text.h"
#include "internal/xml.h"

namespace {

using namespace std::string_view_literals;

constexpr size_t kTooDeep = 32768; // the blanks around an element on that level alone are more than a text may be
static_assert(2 * kTooDeep * kTooDeep > GrowingText::kMaxSize);
constexpr std::string_view kBlanks = "                                                                ";

/// The text of the string writers.
class BIOBUFFER : public GrowingText {
public:
    static constexpr bool kWithComments = false;
    static constexpr size_t kMaxLevel = kTooDeep - 1;

    int Error() const { return ENOMEM; }
};

/// The text of the file writer.
class FileWriter {
public:
    static constexpr bool kWithComments = true;
    static constexpr size_t kMaxLevel = SIZE_MAX;

    /// 0 or an errno value.
    int Open(const char* name)
    {
        struct statx status;
        file_.Reset(OpenForWriting(name, O_TRUNC, &status));
        return file_.IsOpen() ? 0 : errno;
    }
    template <class... Texts>
    bool Put(const Texts&... texts)
    {
        const size_t count = (texts.size() + ...);
        if (count > sizeof block_ - size_)
            return Flush() && (PutLong(texts) && ...);
        char* end = block_ + size_;
        ((end = CopyShort(end, texts)), ...);
        size_ += count;
        return true;
    }
    int Error() const { return error_; }
    int Close()
    {
        if (Flush() && close(file_.Release()) != 0)
            error_ = errno;
        return error_;
    }

private:
    bool PutLong(std::string_view text)
    {
        if (text.size() > sizeof block_ - size_)
            return Flush() && Write(text);
        size_ += text.copy(block_ + size_, text.size());
        return true;
    }
    bool Flush() { return Write({block_, std::exchange(size_, 0)}); }
    bool Write(std::string_view text)
    {
        error_ = WriteAll(file_.Get(), text);
        return error_ == 0;
    }

    UniqueFd file_;
    char block_[32 * 1024];
    size_t size_ = 0;
    int error_ = 0;
};

template <class Sink>
bool PutIndent(size_t level, Sink* sink)
{
    for (size_t rest = 2 * level; rest > 0;) {
        const size_t count = std::min(rest, kBlanks.size());
        if (!sink->Put(kBlanks.substr(0, count)))
            return false;
        rest -= count;
    }
    return true;
}

template <class Sink>
bool PutStartTag(const XMLNODE* node, bool isOneLevel, size_t level, Sink* sink)
{
    if (level > Sink::kMaxLevel || !PutIndent(level, sink) || !sink->Put("<"sv, TextOf(node->Value)))
        return false;
    for (const EXTENSION* attribute = node->Extension; attribute != nullptr; attribute = attribute->Next)
        if (!sink->Put(" "sv, ShortText(attribute->Name), "=\""sv, ShortText(attribute->Value), "\""sv))
            return false;
    return isOneLevel ? sink->Put(">"sv) : sink->Put(">\n"sv);
}

template <class Sink>
bool PutEndTag(const XMLNODE* node, bool isOneLevel, size_t level, Sink* sink)
{
    return (isOneLevel || PutIndent(level, sink)) && sink->Put("</"sv, TextOf(node->Value), ">\n"sv);
}

/// Writes a child that is no element, on the level below its parent's.
template <class Sink>
bool PutLeaf(const XMLNODE* node, size_t level, Sink* sink)
{
    const std::string_view text = TextOf(node->Value);
    if (node->Type == TEXT)
        return sink->Put(text);
    if (node->Type != COMMENT || !Sink::kWithComments)
        return true;
    return PutIndent(level, sink) && (text.empty() || sink->Put("<!--"sv, text, "-->\n"sv));
}

/// Writes an element with all below it.
template <class Sink>
bool PutElement(const XMLNODE* top, Sink* sink)
{
    size_t level = 0;
    const XMLNODE* node = top;
    for (;;) {
        // At a node. Then on to its first child, to what follows, or up.
        if (!IsElement(node)) {
            if (!PutLeaf(node, level, sink))
                return false;
        } else {
            if (!PutStartTag(node, IsOneLevelElement(node) != 0, level, sink))
                return false;
            ++level;
            if (node->Child != nullptr) {
                node = node->Child;
                continue;
            }
            --level;
            if (!PutEndTag(node, true, level, sink))
                return false;
        }
        while (node != top && node->Next == nullptr) {
            node = node->parent;
            --level;
            if (!PutEndTag(node, IsOneLevelElement(node) != 0, level, sink))
                return false;
        }
        if (node == top)
            return true;
        node = node->Next;
    }
}

struct XmlDeclaration {
    const char* version;
    const char* encoding;
    const char* standalone;
};

template <class Sink>
bool MakeXMLDeclaration(const XmlDeclaration& declaration, Sink* sink)
{
    const std::pair<std::string_view, std::string_view> parts[] = {{" version=\"", TextOf(declaration.version)},
                                                                   {" encoding=\"", TextOf(declaration.encoding)},
                                                                   {" standalone=\"", TextOf(declaration.standalone)}};
    if (std::ranges::all_of(parts, [](const auto& part) { return part.second.empty(); }))
        return sink->Put(""sv);
    if (!sink->Put("<?xml"sv))
        return false;
    for (const auto& [name, value] : parts)
        if (!value.empty() && !sink->Put(name, value, "\""sv))
            return false;
    return sink->Put("?>\n"sv);
}

/// Writes a document; 0 or an errno value.
template <class Sink>
int PutDocument(void* xml, const XmlDeclaration& declaration, Sink* sink)
{
    const XMLNODE* const root = ElementFrom(static_cast<XMLNODE*>(xml));
    const bool isDone = MakeXMLDeclaration(declaration, sink) && (root == nullptr || PutElement(root, sink));
    return isDone ? 0 : sink->Error();
}

} // namespace

int WQXXML_OutputFile(void* xml, const char* Version, const char* Encodeing, const char* Standalone,
                      const char* FileName)
{
    if (FileName == nullptr)
        return EINVAL;
    FileWriter file;
    if (const int error = file.Open(FileName))
        return error;
    if (const int error = PutDocument(xml, {Version, Encodeing, Standalone}, &file))
        return error;
    return file.Close();
}

int WQXXML_OutputString(void* xml, char** String)
{
    return WQXXML_OutputStringEx(xml, nullptr, nullptr, nullptr, String);
}

int WQXXML_OutputStringEx(void* xml, const char* Version, const char* Encodeing, const char* Standalone, char** String)
{
    if (String == nullptr)
        return EINVAL;
    BIOBUFFER text;
    if (const int error = PutDocument(xml, {Version, Encodeing, Standalone}, &text))
        return error;
    *String = text.Release();
    return 0;
}

void WQXXML_FreeString(char* String)
{
    free(String);
}
