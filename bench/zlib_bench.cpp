// Compression in the caller's buffers against zlib's own calls for whole buffers, and in buffers that grow.
#include <ZKQ_general/error.h>
#include <ZKQ_general/zlib.h>
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <random>
#include <string>
#include <vector>

#include "support.h"

namespace {

constexpr std::size_t kLength = 3'000'000;

// Records as programs log them: words that come back, numbers that do not.
std::string MakeText(std::size_t length)
{
    const char* const words[] = {"connection", "from", "accepted", "closed", "request", "for",    "took",    "bytes",
                                 "cache",      "miss", "user",     "logged", "in",      "worker", "started", "retry"};
    std::mt19937 random(11);
    std::string text;
    while (text.size() < length) {
        text += "2026-03-14 09:" + std::to_string(random() % 60) + ":" + std::to_string(random() % 60) + " [" +
                std::to_string(random() % 30000) + "]";
        for (unsigned i = 0; i < 4 + random() % 8; ++i) {
            text += ' ';
            text += random() % 4 == 0 ? std::to_string(random() % 100000) : words[random() % std::size(words)];
        }
        text += '\n';
    }
    text.resize(length);
    return text;
}

const std::string& Sample(bool isText)
{
    static const std::string text = MakeText(kLength);
    static const std::string noise = MakeNoise(kLength);
    return isText ? text : noise;
}

const unsigned char* Bytes(const std::string& bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

unsigned char* Room(std::string& bytes)
{
    return reinterpret_cast<unsigned char*>(bytes.data());
}

std::string StreamOf(const std::string& plain)
{
    uLongf length = compressBound(plain.size());
    std::string stream(length, '\0');
    compress2(Room(stream), &length, Bytes(plain), plain.size(), Z_DEFAULT_COMPRESSION);
    stream.resize(length);
    return stream;
}

template <bool kText>
void Compress(benchmark::State& state)
{
    const std::string& plain = Sample(kText);
    long room = 0;
    ZKQGeneral_Zlib_CompressBuffer(nullptr, static_cast<long>(plain.size()), nullptr, &room);
    std::string stream(static_cast<std::size_t>(room), '\0');
    long length = 0;
    for (auto _ : state) {
        if (!ZKQGeneral_Zlib_CompressBuffer(Bytes(plain), static_cast<long>(plain.size()), Room(stream), &length)) {
            state.SkipWithError("not compressed");
        }
    }
    state.counters["part"] = static_cast<double>(length) / static_cast<double>(plain.size());
    state.SetBytesProcessed(static_cast<std::int64_t>(plain.size()) * state.iterations());
}

template <bool kText>
void CompressByZlib(benchmark::State& state)
{
    const std::string& plain = Sample(kText);
    std::string stream(compressBound(plain.size()), '\0');
    uLongf length = 0;
    for (auto _ : state) {
        length = stream.size();
        if (compress2(Room(stream), &length, Bytes(plain), plain.size(), Z_DEFAULT_COMPRESSION) != Z_OK) {
            state.SkipWithError("not compressed");
        }
    }
    state.counters["part"] = static_cast<double>(length) / static_cast<double>(plain.size());
    state.SetBytesProcessed(static_cast<std::int64_t>(plain.size()) * state.iterations());
}

template <bool kText>
void Decompress(benchmark::State& state)
{
    const std::string& plain = Sample(kText);
    const std::string stream = StreamOf(plain);
    std::string room(plain.size(), '\0');
    for (auto _ : state) {
        if (!ZKQGeneral_Zlib_UnCompressBuffer(Bytes(stream), static_cast<long>(stream.size()), Room(room),
                                              static_cast<long>(room.size()))) {
            state.SkipWithError("not decompressed");
        }
    }
    if (room != plain) {
        state.SkipWithError("something else came out");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(plain.size()) * state.iterations());
}

template <bool kText>
void DecompressByZlib(benchmark::State& state)
{
    const std::string& plain = Sample(kText);
    const std::string stream = StreamOf(plain);
    std::string room(plain.size(), '\0');
    for (auto _ : state) {
        uLongf length = room.size();
        if (uncompress(Room(room), &length, Bytes(stream), stream.size()) != Z_OK || length != room.size()) {
            state.SkipWithError("not decompressed");
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(plain.size()) * state.iterations());
}

using Function = int (*)(const unsigned char*, long, unsigned char**, long*);

void Allocating(benchmark::State& state, Function function, const std::string& source)
{
    for (auto _ : state) {
        unsigned char* out = nullptr;
        long length = 0;
        if (function(Bytes(source), static_cast<long>(source.size()), &out, &length) != 0) {
            state.SkipWithError("failed");
        }
        benchmark::DoNotOptimize(out);
        ZKQGeneral_FreeMallocBuffer(out);
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

void CompressGrowing(benchmark::State& state)
{
    Allocating(state, ZKQGeneral_Zlib_CompressBufferEx, MakeText(static_cast<std::size_t>(state.range(0))));
}

void DecompressGrowing(benchmark::State& state)
{
    Allocating(state, ZKQGeneral_Zlib_UnCompressBufferEx, StreamOf(MakeText(static_cast<std::size_t>(state.range(0)))));
}

// The peers of those that grow know the length and take one block, touched anew each time.
void CompressAtOnce(benchmark::State& state)
{
    const std::string plain = MakeText(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::string stream = StreamOf(plain);
        benchmark::DoNotOptimize(stream.data());
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

void DecompressAtOnce(benchmark::State& state)
{
    const std::string stream = StreamOf(MakeText(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        auto* plain = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(state.range(0))));
        uLongf length = static_cast<uLongf>(state.range(0));
        if (uncompress(plain, &length, Bytes(stream), stream.size()) != Z_OK) {
            state.SkipWithError("not decompressed");
        }
        benchmark::DoNotOptimize(plain);
        std::free(plain);
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    bench->RangeMultiplier(10)->Range(100'000, 10'000'000);
}

BENCHMARK(Compress<true>)->Name("zlib/compress/ours/text");
BENCHMARK(CompressByZlib<true>)->Name("zlib/compress/zlib/text");
BENCHMARK(Compress<false>)->Name("zlib/compress/ours/noise");
BENCHMARK(CompressByZlib<false>)->Name("zlib/compress/zlib/noise");
BENCHMARK(Decompress<true>)->Name("zlib/decompress/ours/text");
BENCHMARK(DecompressByZlib<true>)->Name("zlib/decompress/zlib/text");
BENCHMARK(Decompress<false>)->Name("zlib/decompress/ours/noise");
BENCHMARK(DecompressByZlib<false>)->Name("zlib/decompress/zlib/noise");
BENCHMARK(CompressGrowing)->Name("zlib/compress-growing/ours")->Apply(Sizes);
BENCHMARK(CompressAtOnce)->Name("zlib/compress-growing/zlib")->Apply(Sizes);
BENCHMARK(DecompressGrowing)->Name("zlib/decompress-growing/ours")->Apply(Sizes);
BENCHMARK(DecompressAtOnce)->Name("zlib/decompress-growing/zlib")->Apply(Sizes);

} // namespace
