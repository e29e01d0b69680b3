#include "internal/base64_codec.h"

#include <atomic>

namespace {

constinit std::atomic<const Base64Codec*> chosen{nullptr};

bool Always()
{
    return true;
}

void EncodeLinesPlain(const unsigned char* in, size_t lines, size_t groups, char* out)
{
    for (; lines > 0; --lines) {
        EncodeBase64Plain(in, groups, out);
        in += groups * 3;
        out += groups * 4;
        *out++ = '\r';
        *out++ = '\n';
    }
}

/// Decodes the next group of the alphabet; false if there is none.
bool DecodeGroup(Base64Position* at, const char* end)
{
    if (end - at->text < 4)
        return false;
    const unsigned a = Base64Value(at->text[0]);
    const unsigned b = Base64Value(at->text[1]);
    const unsigned c = Base64Value(at->text[2]);
    const unsigned d = Base64Value(at->text[3]);
    if ((a | b | c | d) > 63)
        return false;
    at->out[0] = static_cast<unsigned char>(a << 2 | b >> 4);
    at->out[1] = static_cast<unsigned char>(b << 4 | c >> 2);
    at->out[2] = static_cast<unsigned char>(c << 6 | d);
    at->text += 4;
    at->out += 3;
    return true;
}

} // namespace

void EncodeBase64Plain(const unsigned char* in, size_t groups, char* out)
{
    for (; groups > 0; --groups, in += 3, out += 4) {
        const unsigned bits = unsigned{in[0]} << 16 | unsigned{in[1]} << 8 | in[2];
        out[0] = kBase64Alphabet[bits >> 18];
        out[1] = kBase64Alphabet[bits >> 12 & 63];
        out[2] = kBase64Alphabet[bits >> 6 & 63];
        out[3] = kBase64Alphabet[bits & 63];
    }
}

Base64Position DecodeBase64Plain(Base64Position at, const char* end)
{
    while (DecodeGroup(&at, end) || PassBase64Breaks(&at, end)) {
    }
    return at;
}

constexpr Base64Codec kBase64Plain = {"plain", Always, EncodeLinesPlain, EncodeBase64Plain, DecodeBase64Plain};

const Base64Codec& ChooseBase64Codec()
{
    if (const Base64Codec* const known = chosen.load(std::memory_order_relaxed))
        return *known;
    const Base64Codec* best = &kBase64Plain;
    for (const Base64Codec* const codec : kBase64Codecs)
        if (codec->IsSupported())
            best = codec;
    chosen.store(best, std::memory_order_relaxed);
    return *best;
}
