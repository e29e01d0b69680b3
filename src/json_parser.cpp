#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "internal/json.h"
#include "internal/log.h"
#include "messages_gbk.h"
#include "powers_of_ten.h"

namespace {

constexpr int kHighestPower = kLowestPower + static_cast<int>(std::size(kPowersOfTen)) - 1; // which is infinite
constexpr int64_t kLargestExponent = 1'000'000'000;
constexpr uint64_t kExactMantissa = 100'000'000'000'000; // below, one more digit is exact in a double

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

double PowerOfTen(int64_t exponent)
{
    return kPowersOfTen[std::clamp<int64_t>(exponent, kLowestPower, kHighestPower) - kLowestPower];
}

/// The first quotation mark, backslash or NUL; looks at most at kPoolSourcePadding bytes behind the NUL.
inline char* FindStringStop(char* p)
{
#ifdef __SSE2__
    for (;; p += sizeof(__m128i)) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const auto equals = [&](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
        const int mask = _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(equals('"'), equals('\\')), equals(0)));
        if (mask != 0)
            return p + __builtin_ctz(static_cast<unsigned>(mask));
    }
#else
    while (*p != '"' && *p != '\\' && *p != '\0')
        ++p;
    return p;
#endif
}

/// The value of a hexadecimal digit, or -1.
int HexDigit(char c)
{
    if (IsDigit(c))
        return c - '0';
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/// Four hexadecimal digits; 0 if another byte is among them.
unsigned cJSON_Misc_Parse_Hex4(const char* text)
{
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = HexDigit(text[i]);
        if (digit < 0)
            return 0;
        value = value << 4 | static_cast<unsigned>(digit);
    }
    return value;
}

constexpr bool IsHighSurrogate(unsigned code)
{
    return code >= 0xD800 && code <= 0xDBFF;
}

constexpr bool IsLowSurrogate(unsigned code)
{
    return code >= 0xDC00 && code <= 0xDFFF;
}

/// Puts a character as UTF-8; returns where it ends.
char* PutUtf8(unsigned code, char* to)
{
    constexpr unsigned char kLeadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    const size_t length = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
    for (size_t i = length; i-- > 1; code >>= 6)
        to[i] = static_cast<char>(0x80 | (code & 0x3F));
    *to = static_cast<char>(kLeadMarks[length] | code);
    return to + length;
}

/// Reads one text in a copy of it, in which strings are decoded where they stand: they never grow. No level of nesting
/// needs a place of its own: while a container is open, `next` leads to the one around it.
class Parser {
public:
    int Parse(const char* text, cJSON** root);

private:
    void Skip()
    {
        const char* p = next_;
        while (*p > 0 && *p <= ' ')
            ++p;
        next_ += p - next_;
    }
    bool TakeWord(std::string_view word);
    cJSON* NewNode();
    bool ParseScalar(cJSON* item);
    void ParseNumber(cJSON* item);
    bool ParseString(char** text);
    char* DecodeRest(char* to);
    char* DecodeEscape(char** to);
    char* DecodeCharacter(char* escape, char** to);
    cJSON* ParseMember(cJSON* container);
    cJSON* Open(cJSON* item, int type, cJSON** container);
    cJSON* AfterValue(cJSON** container);

    char* next_ = nullptr;
    char* end_ = nullptr; ///< the NUL
    bool hasFailed_ = false;
    PoolBuilder pool_;
};

inline cJSON* Parser::NewNode()
{
    PoolPlace place;
    void* const room = pool_.Allocate<cJSON>(&place);
    if (room == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::JsonNoItem, kJsonSource);
        return nullptr;
    }
    auto* const node = new (room) cJSON{}; // cppcheck-suppress legacyUninitvar ; it is being declared
    node->place = place;
    return node;
}

bool Parser::TakeWord(std::string_view word)
{
    if (strncmp(next_, word.data(), word.size()) != 0)
        return false;
    next_ += word.size();
    return true;
}

/// Reads a number as sign, mantissa and power of ten, in this order of operations.
void Parser::ParseNumber(cJSON* item)
{
    const char* p = next_;
    const double sign = *p == '-' ? -1 : 1;
    p += *p == '-';
    p += *p == '0';
    uint64_t exact = 0;
    double mantissa = 0; // of which `exact` is the value while it can be
    bool isExact = true;
    const auto take = [&](char digit) {
        if (isExact && exact < kExactMantissa) {
            exact = exact * 10 + static_cast<unsigned>(digit - '0');
            return;
        }
        if (isExact)
            mantissa = static_cast<double>(exact);
        isExact = false;
        mantissa = mantissa * 10.0 + (digit - '0');
    };
    if (*p >= '1' && *p <= '9')
        for (; IsDigit(*p); ++p)
            take(*p);
    int64_t scale = 0;
    if (*p == '.' && IsDigit(p[1]))
        for (++p; IsDigit(*p); ++p, --scale)
            take(*p);
    int64_t exponent = 0;
    if (*p == 'e' || *p == 'E') {
        ++p;
        const bool isNegative = *p == '-';
        p += *p == '-' || *p == '+';
        for (; IsDigit(*p); ++p)
            exponent = std::min(exponent * 10 + (*p - '0'), kLargestExponent);
        exponent = isNegative ? -exponent : exponent;
    }
    next_ += p - next_;
    if (isExact)
        mantissa = static_cast<double>(exact);
    item->type = kJsonNumber;
    item->valuedouble = exponent + scale == 0 ? sign * mantissa : sign * mantissa * PowerOfTen(exponent + scale);
    item->valueint = JsonInteger(item->valuedouble);
}

/// Decodes "\u" and what belongs to it; returns what follows, or null at the end of the text.
char* Parser::DecodeCharacter(char* escape, char** to)
{
    constexpr ptrdiff_t kEscapeLength = 6;
    if (end_ - escape < kEscapeLength)
        return nullptr;
    unsigned code = cJSON_Misc_Parse_Hex4(escape + 2);
    escape += kEscapeLength;
    if (code == 0 || IsLowSurrogate(code))
        return escape;
    if (IsHighSurrogate(code)) {
        if (escape[0] != '\\' || escape[1] != 'u')
            return escape;
        if (end_ - escape < kEscapeLength)
            return nullptr;
        const unsigned low = cJSON_Misc_Parse_Hex4(escape + 2);
        escape += kEscapeLength;
        if (!IsLowSurrogate(low))
            return escape;
        code = 0x10000 + ((code & 0x3FF) << 10 | (low & 0x3FF));
    }
    *to = PutUtf8(code, *to);
    return escape;
}

/// Decodes what begins with the backslash at next_; returns what follows, or null at the end of the text.
char* Parser::DecodeEscape(char** to)
{
    constexpr std::string_view kLetters = "bfnrt";
    constexpr std::string_view kMeanings = "\b\f\n\r\t";
    const char letter = next_[1];
    if (letter == '\0')
        return nullptr;
    if (letter == 'u')
        return DecodeCharacter(next_, to);
    const size_t place = kLetters.find(letter);
    *(*to)++ = place == std::string_view::npos ? letter : kMeanings[place];
    return next_ + 2;
}

/// Goes on with a string from its first backslash; returns where its text ends.
char* Parser::DecodeRest(char* to)
{
    while (*next_ == '\\') {
        char* const behind = DecodeEscape(&to);
        if (behind == nullptr) {
            next_ = end_;
            break;
        }
        next_ = FindStringStop(behind);
        const auto length = static_cast<size_t>(next_ - behind);
        memmove(to, behind, length);
        to += length;
    }
    return to;
}

/// Reads a string at its quotation mark. Without another it is the rest.
inline bool Parser::ParseString(char** text)
{
    if (*next_ != '"')
        return false;
    *text = next_ + 1;
    next_ = FindStringStop(*text);
    char* const textEnd = *next_ == '\\' ? DecodeRest(next_) : next_;
    next_ += *next_ == '"';
    *textEnd = '\0';
    return true;
}

/// Reads what is no container.
inline bool Parser::ParseScalar(cJSON* item)
{
    if (*next_ == '"') {
        item->type = kJsonString;
        return ParseString(&item->valuestring);
    }
    if (*next_ == '-' || IsDigit(*next_)) {
        ParseNumber(item);
        return true;
    }
    if (TakeWord("null"))
        item->type = kJsonNull;
    else if (TakeWord("true"))
        item->valueint = item->type = kJsonTrue;
    else
        return TakeWord("false"); // the type that a node begins with
    return true;
}

/// Reads up to the value of the next member or element, whose node is returned; null after a failure.
inline cJSON* Parser::ParseMember(cJSON* container)
{
    cJSON* const item = NewNode();
    if (item == nullptr)
        return nullptr;
    LinkLast(container, item);
    Skip();
    if (container->type == kJsonArray)
        return item;
    if (!ParseString(&item->string))
        return nullptr;
    Skip();
    if (*next_ != ':')
        return nullptr;
    ++next_;
    Skip();
    return item;
}

/// Opens a container. The node of its first value; null if it is empty, or after a failure.
inline cJSON* Parser::Open(cJSON* item, int type, cJSON** container)
{
    item->type = type;
    ++next_;
    Skip();
    if (*next_ == (type == kJsonArray ? ']' : '}')) {
        ++next_;
        return AfterValue(container);
    }
    item->next = *container;
    *container = item;
    cJSON* const first = ParseMember(item);
    hasFailed_ = first == nullptr;
    return first;
}

/// Closes the containers that end behind a value. The node of the next value; null at the end, or after a failure.
inline cJSON* Parser::AfterValue(cJSON** container)
{
    while (*container != nullptr) {
        Skip();
        if (*next_ == ',') {
            ++next_;
            cJSON* const item = ParseMember(*container);
            hasFailed_ = item == nullptr;
            return item;
        }
        hasFailed_ = *next_ != ((*container)->type == kJsonArray ? ']' : '}');
        if (hasFailed_)
            return nullptr;
        ++next_;
        *container = std::exchange((*container)->next, nullptr);
    }
    return nullptr;
}

int Parser::Parse(const char* text, cJSON** root)
{
    const size_t length = strlen(text);
    next_ = pool_.CopySource(text, length);
    if (next_ == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::JsonNoItem, kJsonSource);
        return kJsonNoMemory;
    }
    cJSON* const first = NewNode();
    if (first == nullptr)
        return kJsonNoMemory;
    end_ = next_ + length;
    Skip();
    cJSON* container = nullptr;
    for (cJSON* item = first; item != nullptr;) {
        if (*next_ == '{') {
            item = Open(item, kJsonObject, &container);
        } else if (*next_ == '[') {
            item = Open(item, kJsonArray, &container);
        } else {
            hasFailed_ = !ParseScalar(item);
            item = hasFailed_ ? nullptr : AfterValue(&container);
        }
    }
    if (hasFailed_)
        return kJsonBadData;
    pool_.Finish(first);
    *root = first;
    return 0;
}

} // namespace

int JsonInteger(double value)
{
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int>(value) : INT_MIN;
}

int cJSON_Misc_Parse(const char* value, cJSON** JSon)
{
    Parser parser;
    return parser.Parse(value, JSon);
}

int cJSON_Misc_CreateNode(int Type, cJSON** Node)
{
    auto* const node = static_cast<cJSON*>(calloc(1, sizeof(cJSON)));
    if (node == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::JsonNoItem, kJsonSource);
        return kJsonNoMemory;
    }
    node->type = Type;
    *Node = node;
    return 0;
}

void cJSON_Misc_Delete(cJSON* c)
{
    NodePool* const pool = c == nullptr || c->place == 0 ? nullptr : BlockOf(c, c->place)->pool;
    if (pool != nullptr && pool->isPure && pool->root == c && c->next == nullptr && (c->type & kJsonNotOwned) == 0)
        return DestroyPool(pool);
    while (c != nullptr) {
        cJSON* next = c->next;
        if ((c->type & kJsonNotOwned) == 0) {
            if (c->child != nullptr) { // children are put in front of what follows, so that no depth is too deep
                c->last->next = next;
                next = c->child;
            }
            ReleaseText(c, c->place, c->valuestring);
        }
        ReleaseText(c, c->place, c->string);
        ReleasePoolObject(c, c->place);
        c = next;
    }
}
