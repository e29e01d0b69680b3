// MD5 against OpenSSL's assembler.
#include <ZKQ_general/md5.h>
#include <benchmark/benchmark.h>
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>

#include <cstdint>
#include <vector>

namespace {

void Digest(benchmark::State& state)
{
    const std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)), 'x');
    unsigned char digest[16];
    for (auto _ : state) {
        ZKQGeneral_DigestBuffer(bytes.data(), static_cast<unsigned>(bytes.size()), digest);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

void DigestByMd5(benchmark::State& state)
{
    const std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)), 'x');
    unsigned char digest[16];
    for (auto _ : state) {
        MD5(bytes.data(), bytes.size(), digest);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

// What MD5() does inside, without the way there.
void DigestByUpdate(benchmark::State& state)
{
    const std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)), 'x');
    unsigned char digest[16];
    for (auto _ : state) {
        MD5_CTX context;
        MD5_Init(&context);
        MD5_Update(&context, bytes.data(), bytes.size());
        MD5_Final(digest, &context);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    for (const std::int64_t size : {64, 1 << 10, 64 << 10, 1 << 20, 100'000'000}) {
        bench->Arg(size);
    }
}

BENCHMARK(Digest)->Name("md5/ours")->Apply(Sizes);
BENCHMARK(DigestByMd5)->Name("md5/MD5")->Apply(Sizes);
BENCHMARK(DigestByUpdate)->Name("md5/MD5_Update")->Apply(Sizes);

} // namespace
