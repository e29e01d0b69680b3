// Base64 with AVX-512: 16 groups at a time.
#include "internal/base64_codec.h"

#if defined(__x86_64__)
#ifndef __clang__
// Some of gcc's own intrinsics begin with a register of any value, and it warns about them.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <algorithm>
#include <bit>

// A function that uses the instructions says so; there is no other way to call them in a program for any processor.
#define ZKQ_AVX512 [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,bmi,bmi2")]]

namespace {

constexpr size_t kBlockGroups = 16;
constexpr size_t kBlockBytes = 48;
constexpr size_t kBlockChars = 64;

using Bytes = std::array<uint8_t, kBlockChars>;

/// Makes of each group b0 b1 b2 the word b1 b0 b2 b1, from which four shifts get the four places in the alphabet.
constexpr Bytes MakeSpread()
{
    Bytes order{};
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = static_cast<uint8_t>(i / 4 * 3 + std::array<size_t, 4>{1, 0, 2, 1}[i % 4]);
    return order;
}
alignas(64) constexpr Bytes kSpread = MakeSpread();

constexpr Bytes MakeShifts()
{
    Bytes shifts{};
    for (size_t i = 0; i < shifts.size(); ++i)
        shifts[i] = static_cast<uint8_t>(i % 8 / 4 * 32 + std::array<size_t, 4>{10, 4, 22, 16}[i % 4]);
    return shifts;
}
alignas(64) constexpr Bytes kShifts = MakeShifts();

constexpr Bytes MakeAlphabetTable()
{
    Bytes table{};
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<uint8_t>(kBase64Alphabet[i]);
    return table;
}
alignas(64) constexpr Bytes kAlphabetTable = MakeAlphabetTable();

/// The values of the characters 0 to 127; whatever is not in the alphabet has the highest bit.
constexpr char kNoValue = '\x80';
constexpr std::array<uint8_t, 2 * kBlockChars> MakeValueTable()
{
    std::array<uint8_t, 2 * kBlockChars> table{};
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = kBase64Values[i] < 64 ? kBase64Values[i] : static_cast<uint8_t>(kNoValue);
    return table;
}
alignas(64) constexpr std::array<uint8_t, 2 * kBlockChars> kValueTable = MakeValueTable();

/// Takes the three bytes of each group out of a word, the highest first.
constexpr Bytes MakeGather()
{
    Bytes order{};
    for (size_t i = 0; i < kBlockBytes; ++i)
        order[i] = static_cast<uint8_t>(i / 3 * 4 + 2 - i % 3);
    return order;
}
alignas(64) constexpr Bytes kGather = MakeGather();

ZKQ_AVX512 inline __m512i Load(const Bytes& table)
{
    return _mm512_load_si512(table.data());
}

constexpr uint64_t LowBits(size_t count)
{
    return count < 64 ? (uint64_t{1} << count) - 1 : ~uint64_t{0};
}

/// Encodes up to 16 groups; nothing else is read.
ZKQ_AVX512 inline __m512i Encode(const unsigned char* in, size_t groups)
{
    const __m512i bytes = _mm512_maskz_loadu_epi8(LowBits(3 * groups), in);
    const __m512i words = _mm512_permutexvar_epi8(Load(kSpread), bytes);
    return _mm512_permutexvar_epi8(_mm512_multishift_epi64_epi8(Load(kShifts), words), Load(kAlphabetTable));
}

ZKQ_AVX512 inline void EncodeBlock(const unsigned char* in, char* out)
{
    _mm512_storeu_si512(out, Encode(in, kBlockGroups));
}

ZKQ_AVX512 inline void EncodeRun(const unsigned char* in, size_t groups, char* out)
{
    if (groups < kBlockGroups) {
        _mm512_mask_storeu_epi8(out, LowBits(4 * groups), Encode(in, groups));
        return;
    }
    for (; groups >= kBlockGroups; groups -= kBlockGroups, in += kBlockBytes, out += kBlockChars)
        EncodeBlock(in, out);
    // The last block covers what is left, and some of the one before once more.
    if (groups > 0)
        EncodeBlock(in + 3 * groups - kBlockBytes, out + 4 * groups - kBlockChars);
}

ZKQ_AVX512 void EncodeGroups(const unsigned char* in, size_t groups, char* out)
{
    EncodeRun(in, groups, out);
}

ZKQ_AVX512 void EncodeLines(const unsigned char* in, size_t lines, size_t groups, char* out)
{
    for (; lines > 0; --lines) {
        EncodeRun(in, groups, out);
        in += 3 * groups;
        out += 4 * groups;
        *out++ = '\r';
        *out++ = '\n';
    }
}

/// The values of 64 characters; the highest bit is set in those that are not in the alphabet.
ZKQ_AVX512 inline __m512i LookUp(__m512i chars)
{
    const __m512i low = _mm512_load_si512(kValueTable.data());
    const __m512i high = _mm512_load_si512(kValueTable.data() + kBlockChars);
    return _mm512_or_si512(_mm512_permutex2var_epi8(low, chars, high),
                           _mm512_and_si512(chars, _mm512_set1_epi8(kNoValue)));
}

/// Puts the 6 bits of each character together to 3 bytes a group.
ZKQ_AVX512 inline __m512i Pack(__m512i values)
{
    const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
    const __m512i words = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
    return _mm512_permutexvar_epi8(Load(kGather), words);
}

ZKQ_AVX512 inline void StoreBlock(__m512i values, unsigned char* out)
{
    const __m512i bytes = Pack(values);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm512_castsi512_si256(bytes));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 32), _mm512_extracti32x4_epi32(bytes, 2));
}

/// Decodes blocks while all of their characters are in the alphabet, several at a time.
ZKQ_AVX512 inline Base64Position DecodeBlocks(Base64Position at, const char* end)
{
    constexpr size_t kAtOnce = 4;
    while (static_cast<size_t>(end - at.text) >= kAtOnce * kBlockChars) {
        __m512i values[kAtOnce];
        for (size_t i = 0; i < kAtOnce; ++i)
            values[i] = LookUp(_mm512_loadu_si512(at.text + i * kBlockChars));
        const __m512i all =
            _mm512_or_si512(_mm512_or_si512(values[0], values[1]), _mm512_or_si512(values[2], values[3]));
        if (_mm512_movepi8_mask(all) != 0)
            break;
        // What the others write too much the next one overwrites.
        for (size_t i = 0; i + 1 < kAtOnce; ++i)
            _mm512_storeu_si512(at.out + i * kBlockBytes, Pack(values[i]));
        StoreBlock(values[kAtOnce - 1], at.out + (kAtOnce - 1) * kBlockBytes);
        at.text += kAtOnce * kBlockChars;
        at.out += kAtOnce * kBlockBytes;
    }
    return at;
}

/// Decodes the characters of a line if all are in the alphabet; false, perhaps with some decoded, if not.
ZKQ_AVX512 inline bool DecodeLine(Base64Position at, size_t chars)
{
    if (chars < kBlockChars) {
        const __m512i values = LookUp(_mm512_maskz_loadu_epi8(LowBits(chars), at.text));
        if ((_mm512_movepi8_mask(values) & LowBits(chars)) != 0)
            return false;
        _mm512_mask_storeu_epi8(at.out, LowBits(chars / 4 * 3), Pack(values));
        return true;
    }
    // The last block ends with the line, and covers some of the one before once more.
    for (size_t done = 0; done < chars; done += kBlockChars) {
        const size_t begin = std::min(done, chars - kBlockChars);
        const __m512i values = LookUp(_mm512_loadu_si512(at.text + begin));
        if (_mm512_movepi8_mask(values) != 0)
            return false;
        StoreBlock(values, at.out + begin / 4 * 3);
    }
    return true;
}

/// Decodes lines like the one before, which had `chars` characters and `breaks` breaks. Since each is taken for such a
/// line until it proves to be another, the processor need not wait for the end of one to begin with the next.
ZKQ_AVX512 Base64Position DecodeLines(Base64Position at, const char* end, size_t chars, size_t breaks)
{
    constexpr size_t kMostBreaks = 2;
    if (chars == 0 || breaks > kMostBreaks)
        return at;
    while (static_cast<size_t>(end - at.text) >= chars + breaks && IsBase64Break(at.text[chars]) &&
           IsBase64Break(at.text[chars + breaks - 1]) && DecodeLine(at, chars)) {
        at.text += chars + breaks;
        at.out += chars / 4 * 3;
    }
    return at;
}

ZKQ_AVX512 Base64Position DecodeGroups(Base64Position at, const char* end)
{
    const char* line = at.text;
    at = DecodeBlocks(at, end);
    for (;;) {
        const uint64_t present = LowBits(static_cast<size_t>(end - at.text));
        const __m512i values = LookUp(_mm512_maskz_loadu_epi8(present, at.text));
        const uint64_t others = _mm512_movepi8_mask(values) | ~present;
        if (others == 0) {
            StoreBlock(values, at.out);
            at.text += kBlockChars;
            at.out += kBlockBytes;
            continue;
        }
        const auto groups = static_cast<size_t>(std::countr_zero(others)) / 4;
        _mm512_mask_storeu_epi8(at.out, LowBits(3 * groups), Pack(values));
        at.text += 4 * groups;
        at.out += 3 * groups;
        const char* const lineEnd = at.text;
        if (!PassBase64Breaks(&at, end))
            return at;
        at = DecodeLines(at, end, static_cast<size_t>(lineEnd - line), static_cast<size_t>(at.text - lineEnd));
        line = at.text;
    }
}

bool IsSupported()
{
    return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("bmi2");
}

} // namespace

constexpr Base64Codec kBase64Avx512 = {"AVX-512", IsSupported, EncodeLines, EncodeGroups, DecodeGroups};
#endif
