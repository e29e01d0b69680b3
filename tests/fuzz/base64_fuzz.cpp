// Base64 against an obvious model of its rules, on every codec that the processor has. Input: the line length in four
// bytes, then bytes that are encoded, and decoded as they are.
#include <ZKQ_general.h>
#include <errno.h>
#include <string.h>

#include <algorithm>

#include "../../src/internal/base64.h"
#include "../../src/internal/base64_codec.h"
#include "../support/base64_model.h"
#include "fuzz.h"

namespace {

namespace model = support::model;

bool Holds(const unsigned char* block, const std::string& bytes)
{
    return memcmp(block, bytes.data(), bytes.size()) == 0;
}

/// `bytes` become exactly what the model says, in exactly that much room, and come back from it.
void RoundTrip(const Base64Codec& codec, const std::string& bytes, int perLine)
{
    const std::string expected = model::Encode(bytes, perLine);
    REQUIRE(Base64LengthWithBreaks(bytes.size(), perLine) == expected.size());
    const Exact<unsigned char> in(bytes.size());
    std::copy(bytes.begin(), bytes.end(), in.Get());
    const Exact<char> text(expected.size() + 1);
    const char* const end = EncodeBase64With(codec, in.Get(), bytes.size(), text.Get(), perLine);
    REQUIRE(end == text.Get() + expected.size() && *end == '\0' && expected == text.Get());

    const Exact<unsigned char> back(bytes.size());
    size_t length = 0;
    REQUIRE(DecodeBase64With(codec, expected, back.Get(), &length) == 0);
    REQUIRE(length == bytes.size() && Holds(back.Get(), bytes));
}

/// Anything is decoded as the model does, into exactly as much room as that takes.
void DecodeAnything(const Base64Codec& codec, const std::string& text, const model::Decoded& expected)
{
    const Exact<char> in(text.size());
    std::copy(text.begin(), text.end(), in.Get());
    const Exact<unsigned char> out(expected.bytes.size());
    size_t length = 0;
    const int error = DecodeBase64With(codec, {in.Get(), text.size()}, out.Get(), &length);
    REQUIRE(error == (expected.good ? 0 : EBADMSG));
    REQUIRE(length == expected.bytes.size() && Holds(out.Get(), expected.bytes));
}

void DecodeByCaller(const std::string& text, const model::Decoded& expected)
{
    const Exact<char> in(text.size() + 1);
    std::copy_n(text.c_str(), text.size() + 1, in.Get());
    const Exact<unsigned char> out(expected.bytes.size());
    unsigned length = 0;
    REQUIRE(ZKQGeneral_ConvertFromBase64(in.Get(), out.Get(), &length) == (expected.good ? TRUE : FALSE));
    REQUIRE(length == expected.bytes.size() && Holds(out.Get(), expected.bytes));
    unsigned char* buffer = nullptr;
    int size = 0;
    REQUIRE(ZKQGeneral_ConvertFromBase64Ex(in.Get(), &buffer, &size) == (expected.good ? TRUE : FALSE));
    REQUIRE(static_cast<size_t>(size) == expected.bytes.size());
    REQUIRE(Holds(buffer, expected.bytes));
    ZKQGeneral_FreeMallocBuffer(buffer);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    int perLine = 0;
    const size_t head = std::min(size, sizeof perLine);
    std::copy_n(data, head, reinterpret_cast<uint8_t*>(&perLine));
    const std::string bytes(reinterpret_cast<const char*>(data) + head, size - head);
    const std::string text = bytes.substr(0, bytes.find('\0'));
    const model::Decoded expected = model::Decode(text);
    for (const Base64Codec* codec : kBase64Codecs) {
        if (!codec->IsSupported())
            continue;
        RoundTrip(*codec, bytes, perLine);
        RoundTrip(*codec, bytes, perLine % 128);
        DecodeAnything(*codec, text, expected);
    }
    DecodeByCaller(text, expected);
    return 0;
}
