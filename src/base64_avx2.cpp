// Base64 with AVX2: 8 groups at a time.
#include "internal/base64_codec.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <algorithm>
#include <bit>

// A function that uses the instructions says so; there is no other way to call them in a program for any processor.
#define ZKQ_AVX2 [[gnu::target("avx2,bmi,bmi2")]]

namespace {

constexpr size_t kBlockGroups = 8;
constexpr size_t kBlockBytes = 24;
constexpr size_t kBlockChars = 32;

using Half = std::array<uint8_t, 16>;

/// A table of 16 bytes in both halves of a register.
ZKQ_AVX2 inline __m256i Twice(const Half& table)
{
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table.data())));
}

// --- encoding ---

/// Makes of each group b0 b1 b2 the word b1 b0 b2 b1. The lower half of a block starts with its first byte; the upper
/// half ends with its last, so that nothing beyond is read.
constexpr std::array<uint8_t, kBlockChars> MakeSpread()
{
    std::array<uint8_t, kBlockChars> order{};
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = static_cast<uint8_t>(i % 16 / 4 * 3 + std::array<size_t, 4>{1, 0, 2, 1}[i % 4] + (i < 16 ? 0u : 4u));
    return order;
}
alignas(32) constexpr std::array<uint8_t, kBlockChars> kSpread = MakeSpread();

/// What is added to a place in the alphabet, by its range: lower case (0), digits (1 to 10), "+" and "/", upper case.
constexpr Half MakeOffsets()
{
    Half offsets{};
    offsets[0] = 'a' - 26;
    for (size_t i = 1; i <= 10; ++i)
        offsets[i] = static_cast<uint8_t>('0' - 52);
    offsets[11] = static_cast<uint8_t>('+' - 62);
    offsets[12] = static_cast<uint8_t>('/' - 63);
    offsets[13] = 'A';
    return offsets;
}
constexpr Half kOffsets = MakeOffsets();

ZKQ_AVX2 inline __m256i Spread(const unsigned char* in)
{
    const __m128i lower = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i upper = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + kBlockBytes - 16));
    const __m256i order = _mm256_load_si256(reinterpret_cast<const __m256i*>(kSpread.data()));
    return _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(lower), upper, 1), order);
}

ZKQ_AVX2 inline void EncodeBlock(const unsigned char* in, char* out)
{
    const __m256i words = Spread(in);
    // Multiplications move the first and third place of each group down, and the second and fourth up.
    const __m256i odd =
        _mm256_mulhi_epu16(_mm256_and_si256(words, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
    const __m256i even =
        _mm256_mullo_epi16(_mm256_and_si256(words, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    const __m256i places = _mm256_or_si256(odd, even);
    // 0 for all places below 52, then 1 to 12; the upper case is told apart by a comparison.
    const __m256i ranges = _mm256_subs_epu8(places, _mm256_set1_epi8(51));
    const __m256i isUpper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), places);
    const __m256i offsets = _mm256_or_si256(ranges, _mm256_and_si256(isUpper, _mm256_set1_epi8(13)));
    const __m256i chars = _mm256_add_epi8(places, _mm256_shuffle_epi8(Twice(kOffsets), offsets));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), chars);
}

ZKQ_AVX2 inline void EncodeRun(const unsigned char* in, size_t groups, char* out)
{
    if (groups < kBlockGroups) {
        EncodeBase64Plain(in, groups, out);
        return;
    }
    for (; groups >= kBlockGroups; groups -= kBlockGroups, in += kBlockBytes, out += kBlockChars)
        EncodeBlock(in, out);
    // The last block covers what is left, and some of the one before once more.
    if (groups > 0)
        EncodeBlock(in + 3 * groups - kBlockBytes, out + 4 * groups - kBlockChars);
}

ZKQ_AVX2 void EncodeGroups(const unsigned char* in, size_t groups, char* out)
{
    EncodeRun(in, groups, out);
}

ZKQ_AVX2 void EncodeLines(const unsigned char* in, size_t lines, size_t groups, char* out)
{
    for (; lines > 0; --lines) {
        EncodeRun(in, groups, out);
        in += 3 * groups;
        out += 4 * groups;
        *out++ = '\r';
        *out++ = '\n';
    }
}

// --- decoding ---

/// The row of a character is its upper four bits. Each row has a bit, and each column the bits of all rows in which it
/// holds no character of the alphabet.
constexpr uint8_t RowBit(size_t row)
{
    return static_cast<uint8_t>(row >= 2 && row <= 7 ? 1u << row : 1u);
}

constexpr Half MakeRowBits()
{
    Half bits{};
    for (size_t row = 0; row < bits.size(); ++row)
        bits[row] = RowBit(row);
    return bits;
}
constexpr Half kRowBits = MakeRowBits();

constexpr Half MakeOthersInColumn()
{
    Half others{};
    for (size_t byte = 0; byte < 256; ++byte)
        if (kBase64Values[byte] > 63)
            others[byte % 16] = static_cast<uint8_t>(others[byte % 16] | RowBit(byte / 16));
    return others;
}
constexpr Half kOthersInColumn = MakeOthersInColumn();

/// What is added to a character for its place in the alphabet, by row. "/" uses the entry of the row before its own.
constexpr size_t kSlashEntry = '/' / 16 - 1;
constexpr Half MakeRolls()
{
    Half rolls{};
    for (const char first : {'+', '0', 'A', 'P', 'a', 'p'})
        rolls[static_cast<size_t>(first) / 16] = static_cast<uint8_t>(Base64Value(first) - first);
    rolls[kSlashEntry] = static_cast<uint8_t>(Base64Value('/') - '/');
    return rolls;
}
constexpr Half kRolls = MakeRolls();

/// Takes the three bytes of each group out of a word, the highest first.
constexpr Half kGather = {2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, 0x80, 0x80, 0x80, 0x80};

/// The places of 32 characters in the alphabet, and a bit for each that is not in it.
struct Looked {
    __m256i places;
    uint32_t others;
};

ZKQ_AVX2 inline Looked LookUp(const char* text)
{
    const __m256i chars = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
    const __m256i rows = _mm256_and_si256(_mm256_srli_epi32(chars, 4), _mm256_set1_epi8(15));
    const __m256i columns = _mm256_and_si256(chars, _mm256_set1_epi8(15));
    const __m256i found = _mm256_and_si256(_mm256_shuffle_epi8(Twice(kRowBits), rows),
                                           _mm256_shuffle_epi8(Twice(kOthersInColumn), columns));
    const __m256i isAlphabet = _mm256_cmpeq_epi8(found, _mm256_setzero_si256());
    const __m256i isSlash = _mm256_cmpeq_epi8(chars, _mm256_set1_epi8('/'));
    const __m256i rolls = _mm256_shuffle_epi8(Twice(kRolls), _mm256_add_epi8(rows, isSlash));
    return {_mm256_add_epi8(chars, rolls), ~static_cast<uint32_t>(_mm256_movemask_epi8(isAlphabet))};
}

ZKQ_AVX2 inline void StoreBlock(__m256i places, unsigned char* out)
{
    const __m256i pairs = _mm256_maddubs_epi16(places, _mm256_set1_epi32(0x01400140));
    const __m256i words = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const __m256i halves = _mm256_shuffle_epi8(words, Twice(kGather));
    const __m256i bytes = _mm256_permutevar8x32_epi32(halves, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm256_extracti128_si256(bytes, 1));
}

/// Decodes the characters of a line, a block at least, if all are in the alphabet; false, perhaps with some decoded, if
/// not. The last block ends with the line, and covers some of the one before once more.
ZKQ_AVX2 inline bool DecodeLine(Base64Position at, size_t chars)
{
    for (size_t done = 0; done < chars; done += kBlockChars) {
        const size_t begin = std::min(done, chars - kBlockChars);
        const Looked block = LookUp(at.text + begin);
        if (block.others != 0)
            return false;
        StoreBlock(block.places, at.out + begin / 4 * 3);
    }
    return true;
}

/// Decodes lines like the one before, which had `chars` characters and `breaks` breaks. Since each is taken for such a
/// line until it proves to be another, the processor need not wait for the end of one to begin with the next.
ZKQ_AVX2 Base64Position DecodeLines(Base64Position at, const char* end, size_t chars, size_t breaks)
{
    constexpr size_t kMostBreaks = 2;
    if (chars < kBlockChars || breaks > kMostBreaks)
        return at;
    while (static_cast<size_t>(end - at.text) >= chars + breaks && IsBase64Break(at.text[chars]) &&
           IsBase64Break(at.text[chars + breaks - 1]) && DecodeLine(at, chars)) {
        at.text += chars + breaks;
        at.out += chars / 4 * 3;
    }
    return at;
}

ZKQ_AVX2 Base64Position DecodeGroups(Base64Position at, const char* end)
{
    const char* line = at.text;
    while (static_cast<size_t>(end - at.text) >= kBlockChars) {
        const Looked block = LookUp(at.text);
        if (block.others == 0) {
            StoreBlock(block.places, at.out);
            at.text += kBlockChars;
            at.out += kBlockBytes;
            continue;
        }
        // The groups before the first other character, and the breaks if it is one.
        at = DecodeBase64Plain(at, at.text + std::countr_zero(block.others) / 4 * 4);
        const char* const lineEnd = at.text;
        if (!PassBase64Breaks(&at, end))
            return at;
        at = DecodeLines(at, end, static_cast<size_t>(lineEnd - line), static_cast<size_t>(at.text - lineEnd));
        line = at.text;
    }
    return DecodeBase64Plain(at, end);
}

bool IsSupported()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2");
}

} // namespace

constexpr Base64Codec kBase64Avx2 = {"AVX2", IsSupported, EncodeLines, EncodeGroups, DecodeGroups};
#endif
