// The memory object against the standard containers, and the line splitter against the plain way in C.
#include <ZKQ_general/string.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kPiece = 16;
constexpr char kSeparators[] = ",;";

void Append(benchmark::State& state)
{
    unsigned char piece[kPiece] = "piece of 16 byt";
    for (auto _ : state) {
        void* object = ZKQGeneral_MEM_malloc(0);
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            if (ZKQGeneral_MEM_Write(object, piece, kPiece) != kPiece) {
                state.SkipWithError("not written");
            }
        }
        benchmark::ClobberMemory();
        ZKQGeneral_MEM_free(object);
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

void AppendToString(benchmark::State& state)
{
    const char piece[kPiece] = "piece of 16 byt";
    for (auto _ : state) {
        std::string text;
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            text.append(piece, kPiece);
        }
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

void AppendToVector(benchmark::State& state)
{
    const unsigned char piece[kPiece] = "piece of 16 byt";
    for (auto _ : state) {
        std::vector<unsigned char> bytes;
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            bytes.insert(bytes.end(), piece, piece + kPiece);
        }
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

// Tokens of 1 to 15 bytes, separated now by a comma, now by a semicolon.
std::string MakeLine(std::int64_t tokens)
{
    std::string line;
    for (std::int64_t i = 0; i < tokens; ++i) {
        line.append(static_cast<std::size_t>(i * 7 % 15 + 1), static_cast<char>('a' + i % 26));
        line += kSeparators[i % 2];
    }
    return line;
}

void Split(benchmark::State& state)
{
    const std::string line = MakeLine(state.range(0));
    for (auto _ : state) {
        int count = 0;
        char** tokens = ZKQGeneral_ParseLineInfo(line.c_str(), kSeparators, &count);
        benchmark::DoNotOptimize(tokens);
        if (count != state.range(0)) {
            state.SkipWithError("wrong number of tokens");
        }
        ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

void SplitByStrtok(benchmark::State& state)
{
    const std::string line = MakeLine(state.range(0));
    for (auto _ : state) {
        std::vector<char*> tokens;
        char* copy = strdup(line.c_str());
        char* rest = nullptr;
        for (char* token = strtok_r(copy, kSeparators, &rest); token != nullptr;
             token = strtok_r(nullptr, kSeparators, &rest)) {
            tokens.push_back(strdup(token));
        }
        tokens.push_back(nullptr);
        std::free(copy);
        benchmark::DoNotOptimize(tokens.data());
        if (static_cast<std::int64_t>(tokens.size()) != state.range(0) + 1) {
            state.SkipWithError("wrong number of tokens");
        }
        for (char* token : tokens) {
            std::free(token);
        }
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

void Pieces(benchmark::internal::Benchmark* bench)
{
    bench->RangeMultiplier(10)->Range(1'000, 1'000'000);
}

void Tokens(benchmark::internal::Benchmark* bench)
{
    bench->RangeMultiplier(10)->Range(10, 1'000'000);
}

BENCHMARK(Append)->Name("string/append/ours")->Apply(Pieces);
BENCHMARK(AppendToString)->Name("string/append/string")->Apply(Pieces);
BENCHMARK(AppendToVector)->Name("string/append/vector")->Apply(Pieces);
BENCHMARK(Split)->Name("string/split/ours")->Apply(Tokens);
BENCHMARK(SplitByStrtok)->Name("string/split/strtok_r")->Apply(Tokens);

} // namespace
