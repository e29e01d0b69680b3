// Base64 against OpenSSL, which takes one group at a time, and against memcpy() of as many bytes as come out.
#include <ZKQ_general/base64.h>
#include <ZKQ_general/error.h>
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kLine = 72;
constexpr int kLineBytes = kLine / 4 * 3;

using Bytes = std::vector<unsigned char>;

Bytes MakeBytes(std::int64_t size)
{
    Bytes bytes(static_cast<std::size_t>(size));
    std::uint32_t state = 4711;
    for (unsigned char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<unsigned char>(state >> 24);
    }
    return bytes;
}

// Room for the text of so many bytes, with line breaks of OpenSSL or of ours.
std::vector<char> RoomFor(const Bytes& bytes)
{
    return std::vector<char>(bytes.size() * 2 + 100);
}

std::string Text(const Bytes& bytes, int line)
{
    char* text = nullptr;
    ZKQGeneral_ConvertToBase64Ex(bytes.data(), static_cast<int>(bytes.size()), &text, line);
    std::string result = text;
    ZKQGeneral_FreeMallocBuffer(text);
    return result;
}

void CountBytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

void Encode(benchmark::State& state, int line)
{
    const Bytes bytes = MakeBytes(state.range(0));
    std::vector<char> text = RoomFor(bytes);
    ZKQGeneral_SetBase64LineFeed(line);
    for (auto _ : state) {
        ZKQGeneral_ConvertToBase64(bytes.data(), static_cast<unsigned>(bytes.size()), text.data());
        benchmark::ClobberMemory();
    }
    ZKQGeneral_SetBase64LineFeed(kLine);
    CountBytes(state);
}

void EncodeByBlock(benchmark::State& state)
{
    const Bytes bytes = MakeBytes(state.range(0));
    std::vector<char> text = RoomFor(bytes);
    for (auto _ : state) {
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

// The same text with line breaks, a line at a time: OpenSSL's own lines have 64 characters and a line feed.
void EncodeLinesByBlock(benchmark::State& state)
{
    const Bytes bytes = MakeBytes(state.range(0));
    std::vector<char> text = RoomFor(bytes);
    for (auto _ : state) {
        char* out = text.data();
        for (std::size_t at = 0; at < bytes.size(); at += kLineBytes) {
            const auto count = static_cast<int>(std::min<std::size_t>(kLineBytes, bytes.size() - at));
            out += EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out), bytes.data() + at, count);
            if (count > kLineBytes - 3) {
                *out++ = '\r';
                *out++ = '\n';
            }
        }
        *out = '\0';
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

struct ContextFreer {
    void operator()(EVP_ENCODE_CTX* context) const { EVP_ENCODE_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_ENCODE_CTX, ContextFreer>;

void EncodeByUpdate(benchmark::State& state)
{
    const Bytes bytes = MakeBytes(state.range(0));
    std::vector<char> text = RoomFor(bytes);
    const Context context(EVP_ENCODE_CTX_new());
    for (auto _ : state) {
        auto* const out = reinterpret_cast<unsigned char*>(text.data());
        int length = 0;
        int rest = 0;
        EVP_EncodeInit(context.get());
        EVP_EncodeUpdate(context.get(), out, &length, bytes.data(), static_cast<int>(bytes.size()));
        EVP_EncodeFinal(context.get(), out + length, &rest);
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

void Decode(benchmark::State& state, int line)
{
    const Bytes bytes = MakeBytes(state.range(0));
    const std::string text = Text(bytes, line);
    Bytes out(bytes.size());
    for (auto _ : state) {
        unsigned length = 0;
        if (!ZKQGeneral_ConvertFromBase64(text.c_str(), out.data(), &length) || length != bytes.size()) {
            state.SkipWithError("not decoded");
        }
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

void DecodeByBlock(benchmark::State& state)
{
    const Bytes bytes = MakeBytes(state.range(0));
    const std::string text = Text(bytes, 0);
    Bytes out(bytes.size() + 3);
    for (auto _ : state) {
        if (EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(text.size())) < 0) {
            state.SkipWithError("not decoded");
        }
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

void DecodeByUpdate(benchmark::State& state)
{
    const Bytes bytes = MakeBytes(state.range(0));
    const std::string text = Text(bytes, kLine);
    Bytes out(bytes.size() + 100);
    const Context context(EVP_ENCODE_CTX_new());
    for (auto _ : state) {
        int length = 0;
        int rest = 0;
        EVP_DecodeInit(context.get());
        if (EVP_DecodeUpdate(context.get(), out.data(), &length, reinterpret_cast<const unsigned char*>(text.data()),
                             static_cast<int>(text.size())) < 0 ||
            EVP_DecodeFinal(context.get(), out.data() + length, &rest) < 0) {
            state.SkipWithError("not decoded");
        }
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

// As many bytes as come out, copied.
void Copy(benchmark::State& state, std::size_t length)
{
    const Bytes bytes(length, 'x');
    Bytes out(length);
    for (auto _ : state) {
        std::memcpy(out.data(), bytes.data(), length);
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

void CopyText(benchmark::State& state)
{
    Copy(state, static_cast<std::size_t>((state.range(0) + 2) / 3 * 4));
}

void CopyBytes(benchmark::State& state)
{
    Copy(state, static_cast<std::size_t>(state.range(0)));
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    for (const std::int64_t size : {64, 1 << 10, 64 << 10, 1 << 20, 100'000'000}) {
        bench->Arg(size);
    }
}

BENCHMARK_CAPTURE(Encode, plain, 0)->Name("base64/encode/ours")->Apply(Sizes);
BENCHMARK(EncodeByBlock)->Name("base64/encode/EVP_EncodeBlock")->Apply(Sizes);
BENCHMARK(CopyText)->Name("base64/encode/memcpy")->Apply(Sizes);
BENCHMARK_CAPTURE(Encode, lines, kLine)->Name("base64/encode_lines/ours")->Apply(Sizes);
BENCHMARK(EncodeLinesByBlock)->Name("base64/encode_lines/EVP_EncodeBlock")->Apply(Sizes);
BENCHMARK(EncodeByUpdate)->Name("base64/encode_lines/EVP_EncodeUpdate")->Apply(Sizes);
BENCHMARK_CAPTURE(Decode, plain, 0)->Name("base64/decode/ours")->Apply(Sizes);
BENCHMARK(DecodeByBlock)->Name("base64/decode/EVP_DecodeBlock")->Apply(Sizes);
BENCHMARK(CopyBytes)->Name("base64/decode/memcpy")->Apply(Sizes);
BENCHMARK_CAPTURE(Decode, lines, kLine)->Name("base64/decode_lines/ours")->Apply(Sizes);
BENCHMARK(DecodeByUpdate)->Name("base64/decode_lines/EVP_DecodeUpdate")->Apply(Sizes);

} // namespace
