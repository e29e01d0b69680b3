#include <float.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <array>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "internal/growing_stack.h"
#include "internal/growing_text.h"
#include "internal/json.h"
#include "internal/text.h"

namespace {

using namespace std::string_view_literals;

constexpr std::string_view kTabs = "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";

/// The letter behind the backslash for a byte that is escaped, "u" for those without one of their own, or 0.
constexpr std::array<char, 256> kEscapes = [] {
    std::array<char, 256> escapes = {};
    for (size_t c = 0; c < 32; ++c)
        escapes[c] = 'u';
    escapes['"'] = '"';
    escapes['\\'] = '\\';
    escapes['\b'] = 'b';
    escapes['\f'] = 'f';
    escapes['\n'] = 'n';
    escapes['\r'] = 'r';
    escapes['\t'] = 't';
    return escapes;
}();

char* PutEscape(unsigned char byte, char* to)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    *to++ = '\\';
    *to++ = kEscapes[byte];
    if (kEscapes[byte] != 'u')
        return to;
    to = CopyShort(to, "00"sv);
    *to++ = kDigits[byte >> 4];
    *to++ = kDigits[byte & 15];
    return to;
}

/// Copies bytes up to the next one that is escaped, or to the end.
inline void CopyPlain(const char** next, const char* end, char** to)
{
    const char* from = *next;
    char* place = *to;
#ifdef __SSE2__
    for (; end - from >= static_cast<ptrdiff_t>(sizeof(__m128i)); from += sizeof(__m128i), place += sizeof(__m128i)) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        const __m128i controls = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(31)), bytes);
        const __m128i marks =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
        if (_mm_movemask_epi8(_mm_or_si128(controls, marks)) != 0)
            break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(place), bytes);
    }
#endif
    while (from != end && kEscapes[static_cast<unsigned char>(*from)] == 0)
        *place++ = *from++;
    *next = from;
    *to = place;
}

/// How long a text can become with its escapes: exactly, if guessing would take much memory.
size_t MostWritten(std::string_view text)
{
    constexpr size_t kLongestEscape = 6;
    constexpr size_t kShort = 4096;
    if (text.size() <= kShort)
        return kLongestEscape * text.size();
    size_t length = text.size();
    for (const char c : text) {
        const char escape = kEscapes[static_cast<unsigned char>(c)];
        length += escape == 0 ? 0 : escape == 'u' ? kLongestEscape - 1 : 1;
    }
    return length;
}

/// Writes a string in quotation marks; null is written as nothing.
bool cJSON_Misc_Print_String_Ptr(const char* str, GrowingText* output)
{
    if (str == nullptr)
        return true;
    const std::string_view text = ShortText(str);
    char* to = output->Reserve(MostWritten(text) + 2);
    if (to == nullptr)
        return false;
    *to++ = '"';
    const char* const end = text.data() + text.size();
    for (const char* from = text.data();;) {
        CopyPlain(&from, end, &to);
        if (from == end)
            break;
        to = PutEscape(static_cast<unsigned char>(*from++), to);
    }
    *to++ = '"';
    output->Advance(to);
    return true;
}

/// The largest whole number that is not larger.
double Floor(double value)
{
    constexpr double kAllWhole = 4503599627370496.0; // from here on no double has a fraction
    if (!(value < kAllWhole && value > -kAllWhole))
        return value;
    const auto whole = static_cast<double>(static_cast<int64_t>(value));
    return whole > value ? whole - 1 : whole;
}

bool IsNothing(double difference)
{
    return difference <= DBL_EPSILON && difference >= -DBL_EPSILON;
}

bool PutInteger(uint64_t magnitude, bool isNegative, GrowingText* output)
{
    char digits[24];
    const char* const end = std::to_chars(digits, std::end(digits), magnitude).ptr;
    return output->Put(isNegative ? "-"sv : ""sv, std::string_view(digits, static_cast<size_t>(end - digits)));
}

/// Writes "%f" of a number from 0.000001 to 1000000000. It is mantissa / 2^shift, so its six digits behind the point are
/// a whole number's division, rounded to even as the C library does.
bool PutFixed(double magnitude, bool isNegative, GrowingText* output)
{
    constexpr uint64_t kMillion = 1'000'000;
    constexpr int kMantissaBits = 52;
    constexpr int kBias = 1023;
    uint64_t bits;
    memcpy(&bits, &magnitude, sizeof bits);
    const uint64_t mantissa = (bits & ((uint64_t{1} << kMantissaBits) - 1)) | uint64_t{1} << kMantissaBits;
    const int shift = kBias + kMantissaBits - static_cast<int>(bits >> kMantissaBits);
    __extension__ typedef unsigned __int128 Wide;
    const Wide product = Wide{mantissa} * kMillion;
    const Wide half = Wide{1} << (shift - 1);
    const Wide rest = product & ((half << 1) - 1);
    auto millionths = static_cast<uint64_t>(product >> shift);
    millionths += rest > half || (rest == half && millionths % 2 == 1);
    char digits[8] = ".000000";
    for (size_t i = 6, value = millionths % kMillion; i > 0; --i, value /= 10)
        digits[i] = static_cast<char>('0' + value % 10);
    return PutInteger(millionths / kMillion, isNegative, output) && output->Put(std::string_view(digits, 7));
}

/// Writes a number with a format of printf's, and with a point whatever the locale has for it.
bool PutFormatted(const char* format, double value, GrowingText* output)
{
    char text[512];
    const auto length = static_cast<size_t>(snprintf(text, sizeof text, format, value));
    char* to = output->Reserve(length);
    if (to == nullptr)
        return false;
    for (size_t i = 0; i < length;) {
        const auto isPlain = [](char c) {
            return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '-' || c == '+';
        };
        if (isPlain(text[i])) {
            *to++ = text[i++];
            continue;
        }
        *to++ = '.';
        while (i < length && !isPlain(text[i]))
            ++i;
    }
    output->Advance(to);
    return true;
}

bool cJSON_Misc_Print_Number(const cJSON* item, GrowingText* output)
{
    constexpr double kLongestWhole = 1e60;
    constexpr double kSmallest = 1e-6;
    constexpr double kLargest = 1e9;
    constexpr double kFitsInteger = 1e18;
    const double value = item->valuedouble;
    const double magnitude = value < 0 ? -value : value;
    if (IsNothing(item->valueint - value) && value >= INT_MIN && value <= INT_MAX) {
        const auto number = static_cast<int64_t>(item->valueint);
        return PutInteger(static_cast<uint64_t>(number < 0 ? -number : number), number < 0, output);
    }
    const double floor = Floor(value);
    if (IsNothing(floor - value) && magnitude < kLongestWhole) {
        const bool isShort = floor == value && magnitude < kFitsInteger;
        return isShort ? PutInteger(static_cast<uint64_t>(magnitude), value < 0, output)
                       : PutFormatted("%.0f", value, output);
    }
    if (magnitude < kSmallest || magnitude > kLargest)
        return PutFormatted("%e", value, output);
    return magnitude <= kLargest ? PutFixed(magnitude, value < 0, output) : PutFormatted("%f", value, output);
}

bool PutTabs(size_t count, GrowingText* output)
{
    for (; count > kTabs.size(); count -= kTabs.size())
        if (!output->Put(kTabs))
            return false;
    return output->Put(kTabs.substr(0, count));
}

/// Writes a value that is no container with something in it; false also for a type that has no form.
bool PutScalar(const cJSON* item, GrowingText* output)
{
    switch (TypeOf(item)) {
    case kJsonFalse:
        return output->Put("false"sv);
    case kJsonTrue:
        return output->Put("true"sv);
    case kJsonNull:
        return output->Put("null"sv);
    case kJsonNumber:
        return cJSON_Misc_Print_Number(item, output);
    case kJsonString:
        return cJSON_Misc_Print_String_Ptr(item->valuestring, output);
    case kJsonArray:
        return output->Put("[]"sv);
    case kJsonObject:
        return output->Put("{}"sv);
    default:
        return false;
    }
}

bool IsObject(const cJSON* node)
{
    return TypeOf(node) == kJsonObject;
}

bool IsContainer(const cJSON* node)
{
    return (IsObject(node) || TypeOf(node) == kJsonArray) && node->child != nullptr;
}

/// Writes what stands before a value in its container, whose `first` one it may be.
bool PutBefore(const cJSON* item, const cJSON* container, bool isFirst, size_t depth, GrowingText* output)
{
    if (!IsObject(container))
        return isFirst || output->Put(", "sv);
    return output->Put(isFirst ? "\n"sv : ",\n"sv) && PutTabs(depth, output) &&
           cJSON_Misc_Print_String_Ptr(item->string, output) && output->Put(":"sv);
}

bool PutClosing(const cJSON* container, size_t depth, GrowingText* output)
{
    if (!IsObject(container))
        return output->Put("]"sv);
    return output->Put("\n"sv) && PutTabs(depth, output) && output->Put("}"sv);
}

/// Writes a node and all below it; false without memory, or if some node has no form.
bool PutTree(const cJSON* item, GrowingText* output)
{
    GrowingStack<const cJSON*, 32> path; // the containers around the value
    for (;;) {
        while (IsContainer(item)) { // down to the first value
            if (!path.Push(item) || !output->Put(IsObject(item) ? "{"sv : "["sv) ||
                !PutBefore(item->child, item, true, path.Size(), output))
                return false;
            item = item->child;
        }
        if (!PutScalar(item, output))
            return false;
        while (!path.IsEmpty() && item->next == nullptr) { // up to a container that goes on
            item = path.Top();
            path.Pop();
            if (!PutClosing(item, path.Size(), output))
                return false;
        }
        if (path.IsEmpty())
            return true;
        item = item->next;
        if (!PutBefore(item, path.Top(), false, path.Size(), output))
            return false;
    }
}

} // namespace

char* cJSON_Misc_Print(const cJSON* item)
{
    GrowingText output;
    return output.Put(""sv) && PutTree(item, &output) ? output.Release() : nullptr;
}
