#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <array>
#include <atomic>
#include <new>
#include <utility>

#include "internal/guards.h"
#include "internal/text.h"
#include "internal/xml.h"

namespace {

constexpr int kPlainTextOption = 1;
constinit std::atomic<int> g_plainText{1};

enum Encoding { kNotKnown = 0, kUtf8 = 1, kOther = 2 };

enum CharClass : unsigned char {
    kSpace = 1,
    kNameStart = 2,
    kNamePart = 4,
    kValueEnd = 8, ///< of a value without quotes
    kStop = 16,    ///< a quote, "&", or the end
    kLead = 32     ///< the first byte of several in UTF-8
};

constexpr bool IsLetter(int c)
{
    return c > 126 || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Bytes of the character that begins with a byte, in UTF-8.
constexpr size_t CharLength(int byte)
{
    if (byte < 0xC2 || byte > 0xF4)
        return 1;
    return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

constexpr std::array<unsigned char, 256> MakeClasses()
{
    std::array<unsigned char, 256> classes = {};
    for (int c = 0; c < 256; ++c) {
        int bits = 0;
        if ((c >= 9 && c <= 13) || c == ' ')
            bits |= kSpace | kValueEnd;
        if (IsLetter(c) || c == '_')
            bits |= kNameStart | kNamePart;
        if ((c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':')
            bits |= kNamePart;
        if (c == 0 || c == '/' || c == '>')
            bits |= kValueEnd;
        if (c == 0 || c == '"' || c == '\'' || c == '&')
            bits |= kStop;
        if (CharLength(c) > 1)
            bits |= kLead;
        classes[static_cast<size_t>(c)] = static_cast<unsigned char>(bits);
    }
    return classes;
}
constexpr std::array<unsigned char, 256> kClasses = MakeClasses();

constexpr bool Is(char c, int classes)
{
    return (kClasses[static_cast<unsigned char>(c)] & classes) != 0;
}

struct ENTITY {
    const char* str;
    unsigned int strLength;
    char chr;
};
constexpr ENTITY kEntities[] = {
    {"&amp;", 5, '&'}, {"&lt;", 4, '<'}, {"&gt;", 4, '>'}, {"&quot;", 6, '"'}, {"&apos;", 6, '\''}};

/// A text that grows in memory of its own; what it holds is copied out.
class TextBuffer {
public:
    bool Append(const char* bytes, size_t count)
    {
        if (count > capacity_ - size_ && !Grow(count))
            return false;
        memcpy(text_.get() + size_, bytes, count);
        size_ += count;
        return true;
    }
    bool Append(char c) { return Append(&c, 1); }
    void Clear() { size_ = 0; }
    std::string_view Text() const { return {text_.get(), size_}; }

private:
    bool Grow(size_t count)
    {
        const size_t capacity = 2 * (size_ + count) + 64;
        char* const grown = static_cast<char*>(realloc(text_.get(), capacity));
        if (grown == nullptr)
            return false;
        static_cast<void>(text_.release()); // realloc() has taken it
        text_.reset(grown);
        capacity_ = capacity;
        return true;
    }

    MallocPtr<char> text_;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

/// The attributes of the element that is being read, found by name without regard to case.
class AttributeSet {
public:
    void Clear()
    {
        count_ = 0;
        hashed_ = 0;
    }
    EXTENSION* Find(std::string_view name)
    {
        const uint32_t key = Key(name);
        if (count_ <= kFew) {
            for (size_t i = 0; i < count_; ++i)
                if (few_[i].key == key && EqualNoCase(few_[i].attribute->Name, name))
                    return few_[i].attribute;
            return nullptr;
        }
        for (size_t i = key & mask_; table_.get()[i].attribute != nullptr; i = (i + 1) & mask_)
            if (table_.get()[i].key == key && EqualNoCase(table_.get()[i].attribute->Name, name))
                return table_.get()[i].attribute;
        return nullptr;
    }
    bool Add(EXTENSION* attribute, std::string_view name)
    {
        const Entry entry = {attribute, Key(name)};
        if (count_ < kFew) {
            few_[count_++] = entry;
            return true;
        }
        if ((count_ == kFew || 2 * hashed_ > mask_) && !Rehash())
            return false;
        Insert(entry);
        ++count_;
        return true;
    }

private:
    struct Entry {
        EXTENSION* attribute;
        uint32_t key;
    };
    static constexpr size_t kFew = 16;

    static uint32_t Key(std::string_view name)
    {
        uint32_t key = 2166136261u;
        for (const char c : name)
            key = (key ^ static_cast<unsigned char>(ToLowerAscii(c))) * 16777619u;
        return key;
    }
    void Insert(const Entry& entry)
    {
        size_t i = entry.key & mask_;
        while (table_.get()[i].attribute != nullptr)
            i = (i + 1) & mask_;
        table_.get()[i] = entry;
        ++hashed_;
    }
    /// Makes a table of twice the size, at first of what was found by looking at each.
    bool Rehash()
    {
        const size_t size = hashed_ == 0 ? 4 * kFew : 2 * (mask_ + 1);
        MallocPtr<Entry> old(static_cast<Entry*>(calloc(size, sizeof(Entry))));
        if (old == nullptr)
            return false;
        std::swap(table_, old);
        const size_t oldSize = hashed_ == 0 ? 0 : mask_ + 1;
        mask_ = size - 1;
        hashed_ = 0;
        if (oldSize == 0)
            for (const Entry& entry : few_)
                Insert(entry);
        for (size_t i = 0; i < oldSize; ++i)
            if (old.get()[i].attribute != nullptr)
                Insert(old.get()[i]);
        return true;
    }

    Entry few_[kFew];
    size_t count_ = 0;
    MallocPtr<Entry> table_;
    size_t mask_ = 0;
    size_t hashed_ = 0;
};

/// Reads one text. A step that fails returns false and the reading ends; what has been made until then stays.
class Parser {
public:
    Parser(const char* text, size_t length) : next_(text), end_(text + length), isPlain_(IsPlainText())
    {
        if (StartsWith("\xEF\xBB\xBF"))
            encoding_ = kUtf8;
    }
    XMLNODE* Parse();

private:
    enum TagEnd { kOpen, kEmpty, kFailed };

    bool StartsWith(std::string_view tag) const
    {
        return static_cast<size_t>(end_ - next_) >= tag.size() && memcmp(next_, tag.data(), tag.size()) == 0;
    }
    bool StartsWithNoCase(std::string_view tag) const
    {
        return static_cast<size_t>(end_ - next_) >= tag.size() && EqualNoCase({next_, tag.size()}, tag);
    }
    void SkipWhiteSpace();
    bool SkipMark();
    const char* Find(const char* from, char c) const
    {
        const void* found = memchr(from, c, static_cast<size_t>(end_ - from));
        return found == nullptr ? end_ : static_cast<const char*>(found);
    }
    const char* Find(const char* from, std::string_view tag) const
    {
        const void* found = memmem(from, static_cast<size_t>(end_ - from), tag.data(), tag.size());
        return found == nullptr ? end_ : static_cast<const char*>(found);
    }

    int Identify() const;
    XMLNODE* NewNode(XMLNODE* parent, int type);
    XMLNODE* NewNode(XMLNODE* parent, int type, std::string_view value);
    void Link(XMLNODE* parent, XMLNODE* node);
    std::string_view ReadName();
    bool GetEntity(TextBuffer* text);
    bool GetNumber(const char* digits, unsigned base, TextBuffer* text);
    bool AppendCodePoint(uint64_t value, TextBuffer* text) const;
    bool GetChar(TextBuffer* text);
    void SkipChar()
    {
        const size_t length = encoding_ == kUtf8 ? CharLength(static_cast<unsigned char>(*next_)) : 1;
        next_ += std::min(length, static_cast<size_t>(end_ - next_));
    }
    bool ReadQuoted(char quote, std::string_view* value);
    bool ReadQuotedRest(char quote, std::string_view* value);
    bool ReadTrimmed(TextBuffer* text);
    bool Parse_Attributes(XMLNODE* node);
    bool AddAttribute(XMLNODE* node, std::string_view name, std::string_view value);
    bool Parse_Declaration(XMLNODE* node);
    bool ParseUpTo(XMLNODE* parent, int type, std::string_view start, std::string_view end);
    bool Parse_Text(XMLNODE* parent);
    bool ParseLeaf(XMLNODE* parent, int type);
    TagEnd Parse_StartTag(XMLNODE* parent, XMLNODE** node);
    bool Parse_EndTag(const XMLNODE* node);
    bool Parse_Element();
    void FindEncoding(const XMLNODE* declaration);

    const char* next_;
    const char* const end_;
    const bool isPlain_;
    int encoding_ = kNotKnown;
    XMLNODE* first_ = nullptr; ///< of the document
    PoolBuilder pool_;
    TextBuffer buffer_;
    AttributeSet attributes_;
    EXTENSION* lastAttribute_ = nullptr;
};

/// Skips a byte-order mark or one of two characters that are none.
bool Parser::SkipMark()
{
    if (!StartsWith("\xEF\xBB\xBF") && !StartsWith("\xEF\xBF\xBE") && !StartsWith("\xEF\xBF\xBF"))
        return false;
    next_ += 3;
    return true;
}

inline void Parser::SkipWhiteSpace()
{
    do
        while (Is(*next_, kSpace))
            ++next_;
    while (encoding_ == kUtf8 && *next_ == '\xEF' && SkipMark());
}

/// The type of the node at a "<".
int Parser::Identify() const
{
    if (Is(next_[1], kNameStart))
        return ELEMENT;
    if (StartsWithNoCase("<?xml"))
        return DECLARATION;
    if (StartsWith("<!--"))
        return COMMENT;
    return StartsWith("<![CDATA[") ? TEXT : UNKNOWN;
}

inline void Parser::Link(XMLNODE* parent, XMLNODE* node)
{
    XMLNODE*& first = parent == nullptr ? first_ : parent->Child;
    if (first == nullptr) {
        first = node;
    } else {
        node->previous = first->previous;
        first->previous->Next = node;
    }
    first->previous = node;
}

/// Makes a node and links it as the last below its parent, or of the document; null without memory.
XMLNODE* Parser::NewNode(XMLNODE* parent, int type)
{
    PoolPlace place;
    void* const room = pool_.Allocate(sizeof(XMLNODE), &place);
    if (room == nullptr)
        return nullptr;
    auto* const node = new (room) XMLNODE{type, place, {}, {}, {}, {}, parent, {}, {}};
    Link(parent, node);
    return node;
}

inline XMLNODE* Parser::NewNode(XMLNODE* parent, int type, std::string_view value)
{
    PoolPlace place;
    char* const room = pool_.Allocate(sizeof(XMLNODE) + value.size() + 1, &place);
    if (room == nullptr)
        return nullptr;
    char* const text = room + sizeof(XMLNODE);
    text[value.copy(text, value.size())] = '\0';
    auto* const node = new (room) XMLNODE{type, place, {}, text, {}, {}, parent, {}, {}};
    Link(parent, node);
    return node;
}

/// The name at the reading position, empty if there is none.
inline std::string_view Parser::ReadName()
{
    const char* const begin = next_;
    if (Is(*next_, kNameStart))
        while (Is(*next_, kNamePart))
            ++next_;
    return {begin, static_cast<size_t>(next_ - begin)};
}

/// Appends what a character reference stands for.
bool Parser::AppendCodePoint(uint64_t value, TextBuffer* text) const
{
    constexpr unsigned char kLeadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    if (encoding_ != kUtf8)
        return (value & 0xFF) == 0 || text->Append(static_cast<char>(value & 0xFF));
    if (value == 0 || value > 0x1FFFFF)
        return true;
    const size_t length = value < 0x80 ? 1 : value < 0x800 ? 2 : value <= 0xFFFF ? 3 : 4;
    char bytes[4];
    for (size_t i = length; i-- > 1; value >>= 6)
        bytes[i] = static_cast<char>(0x80 | (value & 0x3F));
    bytes[0] = static_cast<char>(kLeadMarks[length] | value);
    return text->Append(bytes, length);
}

/// Reads a character reference whose digits begin at `digits` and go up to the next ";".
bool Parser::GetNumber(const char* digits, unsigned base, TextBuffer* text)
{
    const char* const semicolon = Find(digits, ';');
    if (semicolon == end_)
        return false;
    uint64_t value = 0; // its low bits stay right when it overflows
    bool isLarge = false;
    for (const char* digit = digits; digit != semicolon; ++digit) {
        const char lower = ToLowerAscii(*digit);
        const bool isLetter = base == 16 && lower >= 'a' && lower <= 'f';
        if (!isLetter && (lower < '0' || lower > '9'))
            return false;
        value = value * base + static_cast<unsigned>(isLetter ? lower - 'a' + 10 : lower - '0');
        isLarge |= value > 0x1FFFFF;
    }
    next_ = semicolon + 1;
    return (isLarge && encoding_ == kUtf8) || AppendCodePoint(value, text);
}

/// Reads what begins with "&".
bool Parser::GetEntity(TextBuffer* text)
{
    if (next_[1] == '#' && next_[2] != '\0')
        return next_[2] == 'x' && next_[3] != '\0' ? GetNumber(next_ + 3, 16, text) : GetNumber(next_ + 2, 10, text);
    for (const ENTITY& entity : kEntities) {
        if (StartsWith({entity.str, entity.strLength})) {
            next_ += entity.strLength;
            return text->Append(entity.chr);
        }
    }
    return text->Append(*next_++);
}

bool Parser::GetChar(TextBuffer* text)
{
    if (*next_ == '&')
        return GetEntity(text);
    const char* const begin = next_;
    SkipChar();
    return text->Append(begin, static_cast<size_t>(next_ - begin));
}

/// Reads an attribute value up to its closing quote, or to the end. The value lies in the source or in buffer_.
bool Parser::ReadQuoted(char quote, std::string_view* value)
{
    const char* const begin = next_;
    const int stops = encoding_ == kUtf8 ? kStop | kLead : kStop;
    for (;;) {
        while (!Is(*next_, stops))
            ++next_;
        if (next_ == end_ || *next_ == quote || *next_ == '&')
            break;
        SkipChar();
    }
    *value = {begin, static_cast<size_t>(next_ - begin)};
    if (*next_ == '&' && !ReadQuotedRest(quote, value))
        return false;
    if (next_ < end_)
        ++next_;
    return true;
}

/// Goes on with a value from its first "&", in buffer_.
bool Parser::ReadQuotedRest(char quote, std::string_view* value)
{
    buffer_.Clear();
    if (!buffer_.Append(value->data(), value->size()))
        return false;
    while (next_ < end_ && *next_ != quote)
        if (!GetChar(&buffer_))
            return false;
    *value = buffer_.Text();
    return true;
}

/// Adds an attribute, or replaces the value of one that has the name.
inline bool Parser::AddAttribute(XMLNODE* node, std::string_view name, std::string_view value)
{
    if (EXTENSION* const existing = attributes_.Find(name))
        return ReplaceText(existing, existing->place, &existing->Value, value) == 0;
    PoolPlace place;
    char* const room = pool_.Allocate(sizeof(EXTENSION) + name.size() + value.size() + 2, &place);
    if (room == nullptr)
        return false;
    char* const nameText = room + sizeof(EXTENSION);
    char* const valueText = nameText + name.size() + 1;
    nameText[name.copy(nameText, name.size())] = '\0';
    valueText[value.copy(valueText, value.size())] = '\0';
    auto* const attribute = new (room) EXTENSION{nameText, valueText, nullptr, place};
    (node->Extension == nullptr ? node->Extension : lastAttribute_->Next) = attribute;
    lastAttribute_ = attribute;
    return attributes_.Add(attribute, name);
}

/// Reads "name = value" and adds it to a node.
bool Parser::Parse_Attributes(XMLNODE* node)
{
    const std::string_view name = ReadName();
    SkipWhiteSpace();
    if (name.empty() || *next_ != '=')
        return false;
    ++next_;
    SkipWhiteSpace();
    std::string_view value;
    if (*next_ == '"' || *next_ == '\'') {
        const char quote = *next_++;
        return ReadQuoted(quote, &value) && AddAttribute(node, name, value);
    }
    const char* const begin = next_;
    for (; !Is(*next_, kValueEnd); ++next_)
        if (*next_ == '"' || *next_ == '\'')
            return false;
    return AddAttribute(node, name, {begin, static_cast<size_t>(next_ - begin)});
}

bool Parser::Parse_Declaration(XMLNODE* node)
{
    next_ += strlen("<?xml");
    attributes_.Clear();
    for (;;) {
        SkipWhiteSpace();
        if (next_ == end_)
            return false;
        if (*next_ == '>')
            break;
        if (StartsWithNoCase("version") || StartsWithNoCase("encoding") || StartsWithNoCase("standalone")) {
            if (!Parse_Attributes(node))
                return false;
        } else {
            while (next_ < end_ && !Is(*next_, kSpace) && *next_ != '>')
                ++next_;
        }
    }
    ++next_;
    return true;
}

/// Reads a node that is the bytes between two marks. Without the second one it is the rest.
bool Parser::ParseUpTo(XMLNODE* parent, int type, std::string_view start, std::string_view end)
{
    const char* const begin = next_ + start.size();
    next_ = Find(begin, end);
    if (NewNode(parent, type, {begin, static_cast<size_t>(next_ - begin)}) == nullptr)
        return false;
    if (next_ < end_)
        next_ += end.size();
    return true;
}

/// Appends character data up to the next "<", with one blank for each run of white space inside and none around.
bool Parser::ReadTrimmed(TextBuffer* text)
{
    SkipWhiteSpace();
    bool blankIsDue = false;
    while (next_ < end_ && *next_ != '<') {
        if (Is(*next_, kSpace)) {
            blankIsDue = true;
            ++next_;
            continue;
        }
        if (blankIsDue && !text->Append(' '))
            return false;
        blankIsDue = false;
        if (!GetChar(text))
            return false;
    }
    return true;
}

/// Reads character data.
inline bool Parser::Parse_Text(XMLNODE* parent)
{
    if (isPlain_) {
        const char* const begin = next_;
        next_ = Find(begin, '<');
        return NewNode(parent, TEXT, {begin, static_cast<size_t>(next_ - begin)}) != nullptr;
    }
    buffer_.Clear();
    const bool isRead = ReadTrimmed(&buffer_);
    return NewNode(parent, TEXT, buffer_.Text()) != nullptr && isRead;
}

/// Reads a node other than an element at a "<".
bool Parser::ParseLeaf(XMLNODE* parent, int type)
{
    if (type == COMMENT)
        return ParseUpTo(parent, COMMENT, "<!--", "-->");
    if (type == TEXT)
        return ParseUpTo(parent, TEXT, "<![CDATA[", "]]>");
    XMLNODE* const node = NewNode(parent, type);
    return type == DECLARATION && node != nullptr && Parse_Declaration(node);
}

inline Parser::TagEnd Parser::Parse_StartTag(XMLNODE* parent, XMLNODE** node)
{
    ++next_;
    *node = NewNode(parent, ELEMENT, ReadName());
    if (*node == nullptr)
        return kFailed;
    attributes_.Clear();
    for (;;) {
        SkipWhiteSpace();
        switch (*next_) {
        case '>':
            ++next_;
            return kOpen;
        case '/':
            if (next_[1] != '>')
                return kFailed;
            next_ += 2;
            return NewNode(*node, TEXT, {}) != nullptr ? kEmpty : kFailed;
        default:
            if (!Parse_Attributes(*node))
                return kFailed;
        }
    }
}

/// The end tag has exactly the name of the start tag.
inline bool Parser::Parse_EndTag(const XMLNODE* node)
{
    if (next_ == end_)
        return false;
    const char* p = next_ + strlen("</");
    const char* name = node->Value;
    while (*name != '\0' && *p == *name) {
        ++p;
        ++name;
    }
    if (*name != '\0' || *p != '>')
        return false;
    next_ = p + 1;
    return true;
}

/// Reads an element at a "<" and all it holds.
bool Parser::Parse_Element()
{
    XMLNODE* parent = nullptr;
    int type = ELEMENT;
    for (;;) {
        // At a node. Afterwards, what has been opened is the parent of what follows.
        if (type == ELEMENT) {
            XMLNODE* node;
            const TagEnd tagEnd = Parse_StartTag(parent, &node);
            if (tagEnd == kFailed)
                return false;
            if (tagEnd == kOpen)
                parent = node;
        } else if (!ParseLeaf(parent, type)) {
            return false;
        }
        for (;;) {
            if (parent == nullptr)
                return true;
            SkipWhiteSpace();
            if (next_ < end_ && *next_ != '<') {
                if (!Parse_Text(parent))
                    return false;
                continue;
            }
            if (next_ < end_ && next_[1] != '/')
                break;
            if (parent->Child == nullptr && NewNode(parent, TEXT, {}) == nullptr)
                return false;
            if (!Parse_EndTag(parent))
                return false;
            parent = parent->parent;
        }
        type = Identify();
    }
}

/// A declaration tells how the rest is encoded.
void Parser::FindEncoding(const XMLNODE* declaration)
{
    const EXTENSION* const attribute = FindExtension(declaration, "encoding");
    const std::string_view name = attribute == nullptr ? "UTF-8" : attribute->Value;
    const bool isUtf8 = EqualNoCase(name.substr(0, 5), "UTF-8") || EqualNoCase(name.substr(0, 4), "UTF8");
    encoding_ = isUtf8 ? kUtf8 : kOther;
}

XMLNODE* Parser::Parse()
{
    for (;;) {
        SkipWhiteSpace();
        if (next_ == end_ || *next_ != '<')
            break;
        const int type = Identify();
        if (!(type == ELEMENT ? Parse_Element() : ParseLeaf(nullptr, type)))
            break;
        const XMLNODE* const node = first_->previous;
        if (!TextOf(node->Value).empty())
            break;
        if (encoding_ == kNotKnown && node->Type == DECLARATION)
            FindEncoding(node);
    }
    pool_.Finish(first_);
    return first_;
}

} // namespace

bool IsPlainText()
{
    return g_plainText.load(std::memory_order_relaxed) != 0;
}

void General_Misc_XMLInit()
{
    int plain = 1;
    WQXXML_SetOption(kPlainTextOption, &plain, sizeof plain);
}

int WQXXML_SetOption(int index, const void* Value, int /*Size*/)
{
    if (index != kPlainTextOption || Value == nullptr)
        return EINVAL;
    int plain;
    memcpy(&plain, Value, sizeof plain);
    g_plainText.store(plain, std::memory_order_relaxed);
    return 0;
}

int WQXXML_LoadFromString(const char* String, void** xml)
{
    if (xml == nullptr)
        return EINVAL;
    if (String == nullptr || *String == '\0')
        return EINVAL;
    *xml = Parser(String, strlen(String)).Parse();
    return 0;
}
