#include "internal/md5.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <bit>
#include <utility>

#include "internal/error.h"
#include "internal/file.h"
#include "internal/guards.h"

static_assert(std::endian::native == std::endian::little, "words are read as they lie in memory");

namespace {

constexpr size_t kSteps = 64;
constexpr size_t kLengthSize = 8; // of the message's length in bits, at the end of the last block

constexpr std::array<uint32_t, 4> kInitialState = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};

/// The first 32 bits behind the point of the sine of 1, 2, 3, ...
constexpr std::array<uint32_t, kSteps> kSines = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391};

constexpr int kRotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

/// The words of the block in the order in which the steps take them.
constexpr size_t WordOf(size_t step)
{
    constexpr size_t factors[] = {1, 5, 3, 7};
    constexpr size_t offsets[] = {0, 1, 5, 0};
    return (step * factors[step / 16] + offsets[step / 16]) % 16;
}

using State = std::array<uint32_t, 4>;

/// A sum that the compiler may not take apart again: left to itself it puts what comes late in the chain first.
[[gnu::always_inline]] inline uint32_t EarlySum(uint32_t a, uint32_t b)
{
    uint32_t sum = a + b;
    asm("" : "+r"(sum));
    return sum;
}

/// One of the 64 steps. Each waits for the one before, which has made `b`; so whatever does not need `b` is added first.
template <size_t kStep>
[[gnu::always_inline]] inline uint32_t DoStep(uint32_t a, uint32_t b, uint32_t c, uint32_t d,
                                              const unsigned char* block)
{
    uint32_t word;
    memcpy(&word, block + WordOf(kStep) * sizeof word, sizeof word);
    uint32_t sum = EarlySum(a, word + kSines[kStep]);
    if constexpr (kStep < 16) {
        sum += d ^ (b & (c ^ d));
    } else if constexpr (kStep < 32) {
        // No bit is set in both halves of the choice, so they may be added one by one.
        sum = EarlySum(sum, c & ~d) + (b & d);
    } else if constexpr (kStep < 48) {
        sum += b ^ (c ^ d);
    } else {
        sum += c ^ (b | ~d);
    }
    return b + std::rotl(sum, kRotations[kStep / 16][kStep % 4]);
}

/// The four words of the state; named, since the compilers do not keep an array in registers.
struct Words {
    uint32_t a;
    uint32_t b;
    uint32_t c;
    uint32_t d;
};

template <size_t kStep>
[[gnu::always_inline]] inline void DoFourSteps(Words& w, const unsigned char* block)
{
    w.a = DoStep<kStep>(w.a, w.b, w.c, w.d, block);
    w.d = DoStep<kStep + 1>(w.d, w.a, w.b, w.c, block);
    w.c = DoStep<kStep + 2>(w.c, w.d, w.a, w.b, block);
    w.b = DoStep<kStep + 3>(w.b, w.c, w.d, w.a, block);
}

template <size_t... kFours>
[[gnu::always_inline]] inline void DoSteps(Words& words, const unsigned char* block, std::index_sequence<kFours...>)
{
    (DoFourSteps<4 * kFours>(words, block), ...);
}

void MD5Transform(State& state, const unsigned char* bytes, size_t blocks)
{
    Words words = {state[0], state[1], state[2], state[3]};
    for (; blocks > 0; --blocks, bytes += kMd5BlockSize) {
        const Words before = words;
        DoSteps(words, bytes, std::make_index_sequence<kSteps / 4>());
        words = {words.a + before.a, words.b + before.b, words.c + before.c, words.d + before.d};
    }
    state = {words.a, words.b, words.c, words.d};
}

/// Digests the last bytes, less than a block of them, with the padding and the length behind them.
void DoLastBlocks(State& state, const unsigned char* bytes, uint64_t length)
{
    unsigned char block[kMd5BlockSize] = {};
    const size_t count = length % kMd5BlockSize;
    if (count > 0)
        memcpy(block, bytes, count);
    block[count] = 0x80;
    if (count + 1 > kMd5BlockSize - kLengthSize) {
        MD5Transform(state, block, 1);
        memset(block, 0, sizeof block);
    }
    const uint64_t bits = length * 8;
    memcpy(block + kMd5BlockSize - kLengthSize, &bits, kLengthSize);
    MD5Transform(state, block, 1);
}

} // namespace

void MD5Init(Md5Context* context)
{
    context->state = kInitialState;
    context->length = 0;
}

void MD5Update(Md5Context* context, const void* bytes, size_t length)
{
    if (length == 0)
        return;
    const auto* next = static_cast<const unsigned char*>(bytes);
    const size_t held = context->length % kMd5BlockSize;
    context->length += length;
    if (held > 0) {
        const size_t count = std::min(length, kMd5BlockSize - held);
        memcpy(context->block + held, next, count);
        if (held + count < kMd5BlockSize)
            return;
        MD5Transform(context->state, context->block, 1);
        next += count;
        length -= count;
    }
    MD5Transform(context->state, next, length / kMd5BlockSize);
    memcpy(context->block, next + length / kMd5BlockSize * kMd5BlockSize, length % kMd5BlockSize);
}

void MD5Final(unsigned char* digest, Md5Context* context)
{
    DoLastBlocks(context->state, context->block, context->length);
    memcpy(digest, context->state.data(), kMd5DigestSize);
}

void Md5Digest(const void* bytes, size_t length, unsigned char* digest)
{
    const auto* const begin = static_cast<const unsigned char*>(bytes);
    State state = kInitialState;
    const size_t blocks = length / kMd5BlockSize;
    MD5Transform(state, begin, blocks);
    DoLastBlocks(state, begin + blocks * kMd5BlockSize, length);
    memcpy(digest, state.data(), kMd5DigestSize);
}

void ZKQGeneral_DigestBuffer(const void* string, unsigned int len, unsigned char* digest)
{
    if (digest != nullptr && (string != nullptr || len == 0))
        Md5Digest(string, len, digest);
}

BOOL ZKQGeneral_DigestFile(const char* filename, unsigned char* digest)
{
    if (filename == nullptr || digest == nullptr)
        return Fail(EINVAL);
    unsigned char* bytes = nullptr;
    int length = 0;
    if (const int error = FileContent(filename, &bytes, &length))
        return Fail(error);
    const MallocPtr<unsigned char> content(bytes);
    Md5Digest(content.get(), static_cast<size_t>(length), digest);
    return TRUE;
}
