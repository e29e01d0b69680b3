#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <array>
#include <atomic>
#include <new>
#include <utility>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "internal/guards.h"
#include "internal/text.h"
#include "internal/xml.h"

namespace {

constexpr int kPlainTextOption = 1;
constexpr uint64_t kLargestCodePoint = 0x1FFFFF;
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

constexpr bool IsDigit(char c, unsigned base)
{
    const char lower = ToLowerAscii(c);
    return (c >= '0' && c <= '9') || (base == 16 && lower >= 'a' && lower <= 'f');
}

struct ENTITY {
    const char* str;
    unsigned int strLength;
    char chr;
};
constexpr ENTITY kEntities[] = {
    {"&amp;", 5, '&'}, {"&lt;", 4, '<'}, {"&gt;", 4, '>'}, {"&quot;", 6, '"'}, {"&apos;", 6, '\''}};

/// The attributes of the element that is being read, found by name without regard to case.
class AttributeSet {
public:
    void Clear()
    {
        count_ = 0;
        seen_ = 0;
    }
    /// The attribute of a name; null if there is none yet, and then it is Add()ed next.
    EXTENSION* Find(std::string_view name)
    {
        if (count_ > kFew)
            return FindHashed(name);
        sketch_ = Sketch(name);
        return (seen_ & Bit(sketch_)) == 0 ? nullptr : FindFew(name);
    }
    bool Add(EXTENSION* attribute, std::string_view name)
    {
        if (count_ >= kFew)
            return AddHashed(attribute, name);
        seen_ |= Bit(sketch_);
        few_[count_++] = {attribute, sketch_};
        return true;
    }

private:
    struct Entry {
        EXTENSION* attribute;
        uint32_t key;
    };
    static constexpr size_t kFew = 16;

    /// Tells most names apart at a glance.
    static uint32_t Sketch(std::string_view name)
    {
        const auto low = [](char c) { return static_cast<uint32_t>(static_cast<unsigned char>(c) | 0x20); };
        return static_cast<uint32_t>(name.size()) << 16 | low(name.front()) << 8 | low(name.back());
    }
    static uint64_t Bit(uint32_t sketch) { return uint64_t{1} << (sketch * 0x9E3779B1u >> 26); }
    static uint32_t Hash(std::string_view name)
    {
        uint32_t hash = 2166136261u;
        for (const char c : name)
            hash = (hash ^ static_cast<unsigned char>(ToLowerAscii(c))) * 16777619u;
        return hash;
    }
    EXTENSION* FindFew(std::string_view name) const
    {
        for (size_t i = 0; i < count_; ++i)
            if (few_[i].key == sketch_ && EqualNoCase(few_[i].attribute->Name, name))
                return few_[i].attribute;
        return nullptr;
    }
    EXTENSION* FindHashed(std::string_view name) const
    {
        const uint32_t hash = Hash(name);
        for (size_t i = hash & mask_; table_.get()[i].attribute != nullptr; i = (i + 1) & mask_)
            if (table_.get()[i].key == hash && EqualNoCase(table_.get()[i].attribute->Name, name))
                return table_.get()[i].attribute;
        return nullptr;
    }
    bool AddHashed(EXTENSION* attribute, std::string_view name)
    {
        if (count_ == kFew) {
            if (!NewTable(4 * kFew))
                return false;
            for (const Entry& entry : few_)
                Insert({entry.attribute, Hash(entry.attribute->Name)});
        } else if (2 * count_ > mask_) {
            const MallocPtr<Entry> old(table_.release());
            const size_t oldSize = mask_ + 1;
            if (!NewTable(2 * oldSize))
                return false;
            for (size_t i = 0; i < oldSize; ++i)
                if (old.get()[i].attribute != nullptr)
                    Insert(old.get()[i]);
        }
        Insert({attribute, Hash(name)});
        ++count_;
        return true;
    }
    bool NewTable(size_t size)
    {
        table_.reset(static_cast<Entry*>(calloc(size, sizeof(Entry))));
        mask_ = size - 1;
        return table_ != nullptr;
    }
    void Insert(const Entry& entry)
    {
        size_t i = entry.key & mask_;
        while (table_.get()[i].attribute != nullptr)
            i = (i + 1) & mask_;
        table_.get()[i] = entry;
    }

    Entry few_[kFew];
    size_t count_ = 0;
    uint32_t sketch_ = 0;    ///< of the name that was looked for last
    uint64_t seen_ = 0;      ///< the bits of all in few_: most new names are seen to be new by this
    MallocPtr<Entry> table_; ///< instead of few_, when there are more
    size_t mask_ = 0;
};

/// The first byte that may end an attribute value or needs to be decoded; looks at most at kPoolSourcePadding bytes behind
/// the NUL.
inline char* FindStop(char* p, bool isUtf8)
{
#ifdef __SSE2__
    for (;; p += sizeof(__m128i)) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const auto equals = [&](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
        const __m128i stops =
            _mm_or_si128(_mm_or_si128(equals('"'), equals('\'')), _mm_or_si128(equals('&'), equals(0)));
        const int mask =
            _mm_movemask_epi8(isUtf8 ? _mm_or_si128(stops, bytes) : stops); // beyond ASCII the top bit is set
        if (mask != 0)
            return p + __builtin_ctz(static_cast<unsigned>(mask));
    }
#else
    while (!Is(*p, isUtf8 ? kStop | kLead : kStop))
        ++p;
    return p;
#endif
}

/// Reads one text in a copy of it, in which texts are ended and decoded where they stand: they never grow. A step that
/// fails returns false and the reading ends; what has been made until then stays.
class Parser {
public:
    XMLNODE* Parse(const char* text, size_t length);

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
    void SkipChar()
    {
        const size_t length = encoding_ == kUtf8 ? CharLength(static_cast<unsigned char>(*next_)) : 1;
        next_ += std::min(length, static_cast<size_t>(end_ - next_));
    }
    char* Find(char* from, char c) const
    {
        void* const found = memchr(from, c, static_cast<size_t>(end_ - from));
        return found == nullptr ? end_ : static_cast<char*>(found);
    }
    char* Find(char* from, std::string_view tag) const
    {
        void* const found = memmem(from, static_cast<size_t>(end_ - from), tag.data(), tag.size());
        return found == nullptr ? end_ : static_cast<char*>(found);
    }
    /// Ends a text. The byte there is yet to be read; it goes when the next text ends.
    void EndText(char* end)
    {
        *textEnd_ = '\0';
        textEnd_ = end;
    }
    void EndTexts() { EndText(end_); }

    int Identify() const;
    XMLNODE* NewNode(XMLNODE* parent, int type, char* value);
    void Link(XMLNODE* parent, XMLNODE* node);
    std::string_view ReadName();
    bool GetEntity(char** to);
    bool GetNumber(const char* mark, unsigned base, char** to);
    char* PutCodePoint(uint64_t value, char* to) const;
    bool GetChar(char** to);
    bool ReadQuoted(char quote, char** value);
    bool ReadQuotedRest(char quote);
    bool ReadBare(char** value);
    bool ReadTrimmed(char** to);
    bool Parse_Attributes(XMLNODE* node);
    bool AddAttribute(XMLNODE* node, std::string_view name, char* value);
    bool Parse_Declaration(XMLNODE* node);
    bool ParseUpTo(XMLNODE* parent, int type, std::string_view start, std::string_view end);
    bool Parse_Text(XMLNODE* parent);
    bool ParseLeaf(XMLNODE* parent, int type);
    TagEnd Parse_StartTag(XMLNODE* parent, XMLNODE** node);
    bool Parse_EndTag(const XMLNODE* node);
    bool Parse_Content(XMLNODE** parent);
    bool Parse_Element();
    void FindEncoding(const XMLNODE* declaration);

    char* next_ = nullptr;
    char* end_ = nullptr;     ///< the NUL, which also is the text of what is empty
    char* textEnd_ = nullptr; ///< where the last text is to end
    const bool isPlain_ = IsPlainText();
    int encoding_ = kNotKnown;
    XMLNODE* first_ = nullptr; ///< of the document
    PoolBuilder pool_;
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
    do {
        char* p = next_; // kept in a register, which a member that chars are read through would not be
        while (Is(*p, kSpace))
            ++p;
        next_ = p;
    } while (*next_ == '\xEF' && encoding_ == kUtf8 && SkipMark());
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
inline XMLNODE* Parser::NewNode(XMLNODE* parent, int type, char* value)
{
    PoolPlace place;
    void* const room = pool_.Allocate<XMLNODE>(&place);
    if (room == nullptr)
        return nullptr;
    auto* const node = new (room) XMLNODE{type, place, {}, value, {}, {}, parent, {}, {}};
    Link(parent, node);
    return node;
}

/// The name at the reading position, empty if there is none.
inline std::string_view Parser::ReadName()
{
    char* const begin = next_;
    if (!Is(*begin, kNameStart))
        return {};
    char* p = begin + 1;
    while (Is(*p, kNamePart))
        ++p;
    next_ = p;
    EndText(p);
    return {begin, static_cast<size_t>(p - begin)};
}

/// Puts what a character reference stands for; returns where it ends.
char* Parser::PutCodePoint(uint64_t value, char* to) const
{
    constexpr unsigned char kLeadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    if (encoding_ != kUtf8) {
        *to = static_cast<char>(value & 0xFF);
        return to + (*to != '\0');
    }
    if (value == 0 || value > kLargestCodePoint)
        return to;
    const size_t length = value < 0x80 ? 1 : value < 0x800 ? 2 : value <= 0xFFFF ? 3 : 4;
    for (size_t i = length; i-- > 1; value >>= 6)
        to[i] = static_cast<char>(0x80 | (value & 0x3F));
    *to = static_cast<char>(kLeadMarks[length] | value);
    return to + length;
}

/// Reads the number of a character reference: the digits before the next ";", back to a byte as the one at `mark`, which
/// need not be that one.
bool Parser::GetNumber(const char* mark, unsigned base, char** to)
{
    char* const semicolon = Find(next_, ';');
    if (semicolon == end_)
        return false;
    const char* digit = semicolon;
    while (IsDigit(digit[-1], base))
        --digit;
    if (digit[-1] != *mark)
        return false;
    uint64_t value = 0; // its low bits stay right when it overflows
    bool isLarge = false;
    for (; digit != semicolon; ++digit) {
        const char lower = ToLowerAscii(*digit);
        value = value * base + static_cast<unsigned>(lower >= 'a' ? lower - 'a' + 10 : lower - '0');
        isLarge |= value > kLargestCodePoint;
    }
    next_ = semicolon + 1;
    if (!isLarge || encoding_ != kUtf8)
        *to = PutCodePoint(value, *to);
    return true;
}

/// Reads what begins with "&".
bool Parser::GetEntity(char** to)
{
    if (next_[1] == '#')
        return next_[2] == 'x' && next_[3] != '\0' ? GetNumber(next_ + 2, 16, to) : GetNumber(next_ + 1, 10, to);
    for (const ENTITY& entity : kEntities) {
        if (StartsWith({entity.str, entity.strLength})) {
            next_ += entity.strLength;
            *(*to)++ = entity.chr;
            return true;
        }
    }
    *(*to)++ = *next_++;
    return true;
}

bool Parser::GetChar(char** to)
{
    if (*next_ == '&')
        return GetEntity(to);
    const char* from = next_;
    SkipChar();
    while (from != next_)
        *(*to)++ = *from++;
    return true;
}

/// Reads an attribute value up to its closing quote.
inline bool Parser::ReadQuoted(char quote, char** value)
{
    char* const begin = next_;
    *value = begin;
    char* const stop = FindStop(begin, encoding_ == kUtf8);
    if (*stop == quote) {
        next_ = stop + 1;
        *stop = '\0';
        return true;
    }
    next_ = stop;
    return ReadQuotedRest(quote);
}

/// Goes on with a value from the first byte that is not just one of it; one that never closes is none.
bool Parser::ReadQuotedRest(char quote)
{
    while (next_ < end_ && *next_ != quote && *next_ != '&') {
        SkipChar();
        next_ = FindStop(next_, encoding_ == kUtf8);
    }
    char* to = next_;
    while (next_ < end_ && *next_ != quote)
        if (!GetChar(&to))
            return false;
    if (next_ == end_)
        return false;
    ++next_;
    *to = '\0';
    return true;
}

/// Adds an attribute, or replaces the value of one that has the name.
inline bool Parser::AddAttribute(XMLNODE* node, std::string_view name, char* value)
{
    if (EXTENSION* const existing = attributes_.Find(name)) {
        existing->Value = value;
        return true;
    }
    PoolPlace place;
    void* const room = pool_.Allocate<EXTENSION>(&place);
    if (room == nullptr)
        return false;
    auto* const attribute = new (room) EXTENSION{const_cast<char*>(name.data()), value, nullptr, place};
    (node->Extension == nullptr ? node->Extension : lastAttribute_->Next) = attribute;
    lastAttribute_ = attribute;
    return attributes_.Add(attribute, name);
}

/// Reads an attribute value without quotes.
bool Parser::ReadBare(char** value)
{
    *value = next_;
    for (; !Is(*next_, kValueEnd); ++next_)
        if (*next_ == '"' || *next_ == '\'')
            return false;
    EndText(next_);
    return true;
}

/// Reads "name = value" and adds it to a node.
inline bool Parser::Parse_Attributes(XMLNODE* node)
{
    const std::string_view name = ReadName();
    if (*next_ != '=')
        SkipWhiteSpace();
    if (name.empty() || *next_ != '=')
        return false;
    ++next_;
    if (*next_ != '"')
        SkipWhiteSpace();
    if (next_ == end_)
        return false;
    char* value;
    const char quote = *next_;
    if (quote == '"' || quote == '\'') {
        ++next_;
        if (!ReadQuoted(quote, &value))
            return false;
    } else if (!ReadBare(&value)) {
        return false;
    }
    return AddAttribute(node, name, value);
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
    char* const begin = next_ + start.size();
    next_ = Find(begin, end);
    EndText(next_);
    if (next_ < end_)
        next_ += end.size();
    return NewNode(parent, type, begin) != nullptr;
}

/// Reads character data up to the next "<", with one blank for each run of white space inside and none around.
bool Parser::ReadTrimmed(char** to)
{
    SkipWhiteSpace();
    bool blankIsDue = false;
    while (next_ < end_ && *next_ != '<') {
        if (Is(*next_, kSpace)) {
            blankIsDue = true;
            ++next_;
            continue;
        }
        if (blankIsDue)
            *(*to)++ = ' ';
        blankIsDue = false;
        if (!GetChar(to))
            return false;
    }
    return true;
}

/// Reads character data.
inline bool Parser::Parse_Text(XMLNODE* parent)
{
    char* const begin = next_;
    char* end = begin;
    bool isRead = true;
    if (isPlain_)
        end = next_ = Find(begin, '<');
    else
        isRead = ReadTrimmed(&end);
    EndText(end);
    return NewNode(parent, TEXT, begin) != nullptr && isRead;
}

/// Reads a node other than an element at a "<".
bool Parser::ParseLeaf(XMLNODE* parent, int type)
{
    if (type == COMMENT)
        return ParseUpTo(parent, COMMENT, "<!--", "-->");
    if (type == TEXT)
        return ParseUpTo(parent, TEXT, "<![CDATA[", "]]>");
    XMLNODE* const node = NewNode(parent, type, nullptr);
    return type == DECLARATION && node != nullptr && Parse_Declaration(node);
}

inline Parser::TagEnd Parser::Parse_StartTag(XMLNODE* parent, XMLNODE** node)
{
    ++next_;
    SkipWhiteSpace(); // a mark counts as a letter when it follows "<", and as white space now
    const std::string_view name = ReadName();
    *node = NewNode(parent, ELEMENT, const_cast<char*>(name.data()));
    if (*node == nullptr || name.empty())
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
            return NewNode(*node, TEXT, end_) != nullptr ? kEmpty : kFailed;
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
    EndTexts();
    const char* name = node->Value;
    char* p = next_ + strlen("</");
    while (*name != '\0' && *p == *name) {
        ++p;
        ++name;
    }
    if (*name != '\0' || *p != '>')
        return false;
    next_ = p + 1;
    return true;
}

/// Reads on in an element: texts, and the end tags of it and of those around it, which become `*parent`, up to the next
/// node.
inline bool Parser::Parse_Content(XMLNODE** parent)
{
    while (*parent != nullptr) {
        SkipWhiteSpace();
        if (next_ < end_ && *next_ != '<') {
            if (!Parse_Text(*parent))
                return false;
            continue;
        }
        if (next_ < end_ && next_[1] != '/')
            return true;
        if ((*parent)->Child == nullptr && NewNode(*parent, TEXT, end_) == nullptr)
            return false;
        if (!Parse_EndTag(*parent))
            return false;
        *parent = (*parent)->parent;
    }
    return true;
}

/// Reads an element at a "<" and all it holds.
bool Parser::Parse_Element()
{
    XMLNODE* parent = nullptr;
    do {
        const int type = Identify();
        XMLNODE* node = nullptr;
        TagEnd tagEnd = kEmpty;
        if (type == ELEMENT)
            tagEnd = Parse_StartTag(parent, &node);
        else if (!ParseLeaf(parent, type))
            return false;
        if (tagEnd == kFailed)
            return false;
        if (tagEnd == kOpen)
            parent = node;
        if (!Parse_Content(&parent))
            return false;
    } while (parent != nullptr);
    return true;
}

/// A declaration tells how the rest is encoded.
void Parser::FindEncoding(const XMLNODE* declaration)
{
    const EXTENSION* const attribute = FindExtension(declaration, "encoding");
    const std::string_view name = attribute == nullptr ? "UTF-8" : attribute->Value;
    const bool isUtf8 = EqualNoCase(name.substr(0, 5), "UTF-8") || EqualNoCase(name.substr(0, 4), "UTF8");
    encoding_ = isUtf8 ? kUtf8 : kOther;
}

XMLNODE* Parser::Parse(const char* text, size_t length)
{
    next_ = pool_.CopySource(text, length);
    if (next_ == nullptr)
        return nullptr;
    end_ = next_ + length;
    textEnd_ = end_;
    if (StartsWith("\xEF\xBB\xBF"))
        encoding_ = kUtf8;
    for (;;) {
        SkipWhiteSpace();
        if (*next_ != '<')
            break;
        const int type = Identify();
        const bool isRead = type == ELEMENT ? Parse_Element() : ParseLeaf(nullptr, type);
        EndTexts();
        if (!isRead)
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
    Parser parser;
    *xml = parser.Parse(String, strlen(String));
    return 0;
}
