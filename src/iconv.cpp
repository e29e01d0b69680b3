#include <ZKQ_general/iconv.h>
#include <errno.h>
#include <limits.h>
#include <string.h>

#include <bit>

#include "internal/charset.h"
#include "internal/charset_table.h"
#include "internal/converter.h"
#include "internal/error.h"
#include "internal/guards.h"

namespace {

// Everything that is not well-formed, and every character that the tables do not have, is left to the system's converter,
// from there to the end of the text: what it makes of that, or how it fails, is the result. No conversion depends on
// what stands before a character, so the result is that of the converter alone.

/// The part of a text that is still to be converted, and where the result goes on. There always is room for the longest
/// result that the rest can have.
struct Progress {
    const unsigned char* in;
    const unsigned char* end;
    unsigned char* out;

    size_t Left() const { return static_cast<size_t>(end - in); }
};

constexpr unsigned kUcs2Unit = 2;
constexpr unsigned kFirstTwoByteUtf8 = 0x80;
constexpr unsigned kFirstThreeByteUtf8 = 0x800;

// --- runs of ASCII, in blocks ---

constexpr size_t kBlock = 16; ///< bytes of text that are looked at together

struct Block {
    uint64_t words[kBlock / sizeof(uint64_t)];
};

Block LoadBlock(const unsigned char* bytes)
{
    Block block;
    memcpy(&block, bytes, sizeof block);
    return block;
}

/// No byte of two blocks has a bit of the mask.
bool AreWithout(const Block& a, const Block& b, uint64_t mask)
{
    return ((a.words[0] | a.words[1] | b.words[0] | b.words[1]) & mask) == 0;
}

/// The number of bytes before the first with a bit of the mask.
size_t BytesWithout(const Block& block, uint64_t mask)
{
    const uint64_t first = block.words[0] & mask;
    const uint64_t second = block.words[1] & mask;
    if (first != 0)
        return static_cast<size_t>(std::countr_zero(first)) / CHAR_BIT;
    return sizeof(uint64_t) + (second != 0 ? static_cast<size_t>(std::countr_zero(second)) / CHAR_BIT : 8);
}

constexpr uint64_t kHighBits = 0x8080808080808080;
constexpr uint64_t kNotAsciiUnits = 0xFF80FF80FF80FF80;

using Bytes8 = uint8_t __attribute__((vector_size(8)));
using Units8 = uint16_t __attribute__((vector_size(16)));

void WidenBytes(const unsigned char* in, unsigned char* out)
{
    for (size_t i = 0; i < kBlock; i += sizeof(Bytes8)) {
        Bytes8 bytes;
        memcpy(&bytes, in + i, sizeof bytes);
        const Units8 units = __builtin_convertvector(bytes, Units8);
        memcpy(out + i * kUcs2Unit, &units, sizeof units);
    }
}

void NarrowUnits(const unsigned char* in, unsigned char* out)
{
    Units8 units;
    memcpy(&units, in, sizeof units);
    const Bytes8 bytes = __builtin_convertvector(units, Bytes8);
    memcpy(out, &bytes, sizeof bytes);
}

// --- what is written, and how ---

struct ToUcs2 {
    static constexpr size_t kAsciiSize = kUcs2Unit;
    static void AsciiBlock(const unsigned char* in, unsigned char* out) { WidenBytes(in, out); }
    static unsigned char* Put(uint16_t unit, unsigned char* out)
    {
        memcpy(out, &unit, sizeof unit);
        return out + sizeof unit;
    }
    static unsigned char* PutAscii(unsigned char byte, unsigned char* out) { return Put(byte, out); }
};

struct ToUtf8 {
    static constexpr size_t kAsciiSize = 1;
    static void AsciiBlock(const unsigned char* in, unsigned char* out) { memcpy(out, in, kBlock); }
    static unsigned char* Put(uint16_t unit, unsigned char* out)
    {
        if (unit < kFirstThreeByteUtf8) {
            out[0] = static_cast<unsigned char>(0xC0 | unit >> 6);
            out[1] = static_cast<unsigned char>(0x80 | (unit & 0x3F));
            return out + 2;
        }
        out[0] = static_cast<unsigned char>(0xE0 | unit >> 12);
        out[1] = static_cast<unsigned char>(0x80 | (unit >> 6 & 0x3F));
        out[2] = static_cast<unsigned char>(0x80 | (unit & 0x3F));
        return out + 3;
    }
    static unsigned char* PutAscii(unsigned char byte, unsigned char* out)
    {
        *out = byte;
        return out + 1;
    }
};

/// Writes one or two bytes as Ucs2Table has them.
unsigned char* PutGbk(uint16_t bytes, unsigned char* out)
{
    memcpy(out, &bytes, sizeof bytes); // every character outside ASCII has two bytes of text, and so of room, at least
    return out + (bytes > UCHAR_MAX ? 2 : 1);
}

// --- the conversions, as far as the tables go ---

// Progress goes in and out by value, and what a loop calls is a part of it: kept in registers, the pointers cannot be
// among the bytes that are written.

/// Converts ASCII bytes.
template <class To>
[[gnu::always_inline]] inline Progress AsciiRun(Progress p)
{
    while (p.Left() >= 2 * kBlock && AreWithout(LoadBlock(p.in), LoadBlock(p.in + kBlock), kHighBits)) {
        To::AsciiBlock(p.in, p.out);
        To::AsciiBlock(p.in + kBlock, p.out + kBlock * To::kAsciiSize);
        p.in += 2 * kBlock;
        p.out += 2 * kBlock * To::kAsciiSize;
    }
    if (p.Left() >= kBlock) {
        const size_t length = BytesWithout(LoadBlock(p.in), kHighBits);
        To::AsciiBlock(p.in, p.out);
        p.in += length;
        p.out += length * To::kAsciiSize;
        return p;
    }
    for (; p.in != p.end && *p.in < kFirstHighByte; ++p.in)
        p.out = To::PutAscii(*p.in, p.out);
    return p;
}

template <class To>
Progress FromGbk(Progress p)
{
    while (p.in != p.end) {
        const unsigned lead = *p.in;
        if (lead < kFirstHighByte) {
            p = AsciiRun<To>(p);
            continue;
        }
        uint16_t unit = p.Left() >= 2 ? g_GbkTable.Pair(lead, p.in[1]) : uint16_t{0};
        size_t length = 2;
        if (unit == 0) {
            unit = g_GbkTable.Single(lead);
            length = 1;
        }
        if (unit < kFirstTwoByteUtf8)
            break;
        p.out = To::Put(unit, p.out);
        p.in += length;
    }
    return p;
}

unsigned UnitAt(const unsigned char* in)
{
    return in[0] | unsigned{in[1]} << 8;
}

[[gnu::always_inline]] inline Progress Ucs2AsciiRun(Progress p)
{
    while (p.Left() >= 2 * kBlock && AreWithout(LoadBlock(p.in), LoadBlock(p.in + kBlock), kNotAsciiUnits)) {
        NarrowUnits(p.in, p.out);
        NarrowUnits(p.in + kBlock, p.out + kBlock / kUcs2Unit);
        p.in += 2 * kBlock;
        p.out += 2 * kBlock / kUcs2Unit;
    }
    if (p.Left() >= kBlock) {
        const size_t units = BytesWithout(LoadBlock(p.in), kNotAsciiUnits) / kUcs2Unit;
        NarrowUnits(p.in, p.out);
        p.in += units * kUcs2Unit;
        p.out += units;
        return p;
    }
    for (; p.in != p.end && UnitAt(p.in) < kFirstHighByte; p.in += kUcs2Unit)
        *p.out++ = *p.in;
    return p;
}

Progress FromUcs2(Progress p)
{
    while (p.in != p.end) {
        const unsigned unit = UnitAt(p.in);
        if (unit < kFirstHighByte) {
            p = Ucs2AsciiRun(p);
            continue;
        }
        const uint16_t bytes = g_Ucs2Table.Gbk(unit);
        if (bytes == 0)
            break;
        p.out = PutGbk(bytes, p.out);
        p.in += kUcs2Unit;
    }
    return p;
}

/// A character outside ASCII, with its length in UTF-8.
struct Utf8Character {
    unsigned unit; ///< 0 for more than three bytes, and for what is no character
    unsigned length;
};

[[gnu::always_inline]] inline Utf8Character DecodeUtf8(const Progress& p)
{
    const auto isTrail = [](unsigned byte) { return (byte & 0xC0) == 0x80; };
    const unsigned lead = *p.in;
    if ((lead & 0xF0) == 0xE0 && p.Left() >= 3 && isTrail(p.in[1]) && isTrail(p.in[2])) {
        const unsigned unit = (lead & 0x0F) << 12 | (p.in[1] & 0x3Fu) << 6 | (p.in[2] & 0x3Fu);
        return {unit >= kFirstThreeByteUtf8 ? unit : 0, 3};
    }
    if ((lead & 0xE0) == 0xC0 && p.Left() >= 2 && isTrail(p.in[1])) {
        const unsigned unit = (lead & 0x1F) << 6 | (p.in[1] & 0x3Fu);
        return {unit >= kFirstTwoByteUtf8 ? unit : 0, 2};
    }
    return {0, 0};
}

Progress FromUtf8(Progress p)
{
    while (p.in != p.end) {
        if (*p.in < kFirstHighByte) {
            p = AsciiRun<ToUtf8>(p);
            continue;
        }
        const Utf8Character character = DecodeUtf8(p);
        const uint16_t bytes = g_Ucs2Table.Gbk(character.unit); // there is none for 0
        if (bytes == 0)
            break;
        p.out = PutGbk(bytes, p.out);
        p.in += character.length;
    }
    return p;
}

Progress ByTables(TextConversion conversion, const Progress& p)
{
    switch (conversion) {
    case kGbkToUcs2:
        return FromGbk<ToUcs2>(p);
    case kGbkToUtf8:
        return FromGbk<ToUtf8>(p);
    case kUcs2ToGbk:
        return FromUcs2(p);
    case kUtf8ToGbk:
        return FromUtf8(p);
    }
    return p;
}

/// Loads what the tables lack for the next character; false if there is nothing more to load for it.
bool LoadForNext(TextConversion conversion, const Progress& p)
{
    if (conversion == kGbkToUcs2 || conversion == kGbkToUtf8)
        return g_GbkTable.Load(*p.in);
    const unsigned unit = conversion == kUcs2ToGbk ? UnitAt(p.in) : DecodeUtf8(p).unit;
    return unit != 0 && g_Ucs2Table.Load(unit >> 8);
}

/// Converts the whole text; 0 or an errno value.
int Convert(TextConversion conversion, Progress* p, size_t room)
{
    const unsigned char* const limit = p->out + room;
    do {
        *p = ByTables(conversion, *p);
        if (p->in == p->end)
            return 0;
    } while (LoadForNext(conversion, *p));
    Converter converter(conversion);
    if (converter.Error() != 0)
        return converter.Error();
    return converter.Run(&p->in, p->Left(), &p->out, static_cast<size_t>(limit - p->out));
}

// --- the steps of every conversion ---

/// Bytes of result that a byte of text can have at most.
constexpr size_t kLargestGrowth[kTextConversions] = {2, 1, 3, 1};

/// Room for a result. A short one needs no block of the heap.
class WorkingBuffer {
public:
    // cppcheck-suppress uninitMemberVar ; room for a result, which is written before it is read
    explicit WorkingBuffer(size_t size)
        : large_(size > sizeof small_ ? static_cast<unsigned char*>(malloc(size)) : nullptr),
          start_(size > sizeof small_ ? large_.get() : small_)
    {}

    /// Null if there is no memory, with errno set.
    unsigned char* Start() { return start_; }

private:
    unsigned char small_[768];
    MallocPtr<unsigned char> large_;
    unsigned char* start_;
};

/// Hands over a result; 0, or EMSGSIZE for one that is too long.
int HandOver(const unsigned char* result, size_t size, void* Out, int* nMaxChar)
{
    if (size > INT_MAX)
        return EMSGSIZE;
    const int length = static_cast<int>(size);
    if (Out != nullptr && length > *nMaxChar)
        return EMSGSIZE;
    if (Out != nullptr)
        memcpy(Out, result, size);
    *nMaxChar = length;
    return 0;
}

} // namespace

int ConvertText(TextConversion conversion, const void* In, int InLength, void* Out, int* nMaxChar)
{
    if (nMaxChar == nullptr)
        return EINVAL;
    if (InLength == 0) {
        *nMaxChar = 0;
        return 0;
    }
    if (In == nullptr || InLength < 0 || (conversion == kUcs2ToGbk && InLength % 2 != 0))
        return EINVAL;
    const auto size = static_cast<size_t>(InLength);
    const size_t room = kLargestGrowth[conversion] * size;
    WorkingBuffer result(room);
    if (result.Start() == nullptr)
        return errno;
    if (const int error = RequireConverter(conversion); error != 0)
        return error;
    const auto* const text = static_cast<const unsigned char*>(In);
    Progress progress = {text, text + size, result.Start()};
    if (const int error = Convert(conversion, &progress, room); error != 0)
        return error;
    return HandOver(result.Start(), static_cast<size_t>(progress.out - result.Start()), Out, nMaxChar);
}

BOOL ZKQGeneral_AnsiToUnicode(const char* In, unsigned short* Out, int InLength, int* nMaxChar)
{
    return Finish(ConvertText(kGbkToUcs2, In, InLength, Out, nMaxChar));
}

BOOL ZKQGeneral_UnicodeToAnsi(const unsigned short* In, char* Out, int InLength, int* nMaxChar)
{
    return Finish(ConvertText(kUcs2ToGbk, In, InLength, Out, nMaxChar));
}

BOOL ZKQGeneral_AnsiToUTF8(const char* In, LPTSTR Out, int InLength, int* nMaxChar)
{
    return Finish(ConvertText(kGbkToUtf8, In, InLength, Out, nMaxChar));
}

BOOL ZKQGeneral_UTF8ToAnsi(const char* In, LPTSTR Out, int InLength, int* nMaxChar)
{
    return Finish(ConvertText(kUtf8ToGbk, In, InLength, Out, nMaxChar));
}
