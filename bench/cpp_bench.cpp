// The C++ layer against the bare C calls that it is made of. Where the layer gives a std::string, the peer makes one, too.
#include <ZKQ_general.hpp>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "support.h"

namespace {

constexpr const char* kDocument = R"({"server":{"name":"Alpha","port":8080,"tags":["a","b"]}})";
constexpr const char* kPath = "server/port";
constexpr const char* kName = "server/name";
constexpr int kItems = 1000;

void Base64Layer(benchmark::State& state)
{
    const std::string bytes = MakeNoise(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        const auto text = zkq::Base64Encode<zkq::Buffer>(bytes);
        benchmark::DoNotOptimize(text->data());
    }
}

void Base64Bare(benchmark::State& state)
{
    const std::string bytes = MakeNoise(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        char* text = nullptr;
        ZKQGeneral_ConvertToBase64Ex(reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()), &text, 0);
        benchmark::DoNotOptimize(text);
        ZKQGeneral_FreeMallocBuffer(text);
    }
}

void Base64StringLayer(benchmark::State& state)
{
    const std::string bytes = MakeNoise(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        const auto text = zkq::Base64Encode(bytes);
        benchmark::DoNotOptimize(text->data());
    }
}

void Base64StringBare(benchmark::State& state)
{
    const std::string bytes = MakeNoise(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        char* text = nullptr;
        ZKQGeneral_ConvertToBase64Ex(reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()), &text, 0);
        const std::string copy = text;
        ZKQGeneral_FreeMallocBuffer(text);
        benchmark::DoNotOptimize(copy.data());
    }
}

void PacketLayer(benchmark::State& state)
{
    for (auto _ : state) {
        zkq::Packet packet = *zkq::Packet::Make();
        for (int i = 0; i < kItems; ++i) {
            if (!packet.AddInt(i))
                state.SkipWithError("not added");
        }
        long sum = 0;
        for (int i = 0; i < kItems; ++i)
            sum += *packet.IntAt(i);
        benchmark::DoNotOptimize(sum);
    }
}

void PacketBare(benchmark::State& state)
{
    for (auto _ : state) {
        void* packet = nullptr;
        ZKQGeneral_CreateMsgPacket(0, &packet);
        for (int i = 0; i < kItems; ++i) {
            if (!ZKQGeneral_MsgPacket_AddInt(packet, i))
                state.SkipWithError("not added");
        }
        long sum = 0;
        for (int i = 0; i < kItems; ++i) {
            int number = 0;
            ZKQGeneral_MsgPacket_GetIntegerData(packet, i, &number);
            sum += number;
        }
        benchmark::DoNotOptimize(sum);
        ZKQGeneral_DestroyMsgPacket(packet);
    }
}

void JsonIntLayer(benchmark::State& state)
{
    const zkq::Json json = *zkq::Json::Parse(kDocument);
    for (auto _ : state)
        benchmark::DoNotOptimize(*json.GetInt(kPath));
}

void JsonIntBare(benchmark::State& state)
{
    void* json = nullptr;
    JSON_Misc_InitJSON(kDocument, &json);
    for (auto _ : state) {
        int value = 0;
        JSON_Misc_GetInt(json, kPath, &value);
        benchmark::DoNotOptimize(value);
    }
    JSON_Misc_FiniJSON(json, nullptr);
}

void JsonStringLayer(benchmark::State& state)
{
    const zkq::Json json = *zkq::Json::Parse(kDocument);
    for (auto _ : state)
        benchmark::DoNotOptimize(json.GetString(kName)->size());
}

void JsonStringBare(benchmark::State& state)
{
    void* json = nullptr;
    JSON_Misc_InitJSON(kDocument, &json);
    for (auto _ : state) {
        char* value = nullptr;
        JSON_Misc_GetString(json, kName, &value);
        benchmark::DoNotOptimize(std::string_view(value).size());
    }
    JSON_Misc_FiniJSON(json, nullptr);
}

void MemoryLayer(benchmark::State& state)
{
    const std::string piece(16, 'p');
    for (auto _ : state) {
        zkq::Memory memory = *zkq::Memory::Make();
        for (int i = 0; i < kItems; ++i) {
            if (!memory.Write(piece))
                state.SkipWithError("not written");
        }
        const zkq::Buffer taken = memory.Take();
        benchmark::DoNotOptimize(taken.data());
    }
}

void MemoryBare(benchmark::State& state)
{
    const std::string piece(16, 'p');
    for (auto _ : state) {
        void* const memory = ZKQGeneral_MEM_malloc(0);
        for (int i = 0; i < kItems; ++i) {
            if (ZKQGeneral_MEM_Write(memory, reinterpret_cast<const unsigned char*>(piece.data()),
                                     static_cast<int>(piece.size())) == 0)
                state.SkipWithError("not written");
        }
        unsigned char* data = nullptr;
        int size = 0;
        ZKQGeneral_MEM_Detach(memory, &data, &size);
        benchmark::DoNotOptimize(data);
        ZKQGeneral_FreeMallocBuffer(data);
        ZKQGeneral_MEM_free(memory);
    }
}

// A record whose level is off is where a layer would show; one that is written takes microseconds.
void RecordLayer(benchmark::State& state, int level)
{
    const zkq::Log log = *zkq::Log::Always("layer", ScratchDirectory(), ZKQ_LOG_ERROR);
    const std::string text = "a text of some length";
    for (auto _ : state)
        benchmark::DoNotOptimize(log.Record(level, __FILE__, __LINE__, text));
}

void RecordBare(benchmark::State& state, int level)
{
    APPLOGINFO info = {};
    info.Version = 3;
    info.ProjectName = "bare";
    info.TempPath = ScratchDirectory().c_str();
    info.bAlwaysLog = ZKQ_LOG_ERROR;
    void* log = nullptr;
    ZKQGeneral_IsNeedLogFile(&info, &log);
    const std::string text = "a text of some length";
    for (auto _ : state)
        benchmark::DoNotOptimize(ZKQGeneral_RecordLogInfoEx(log, level, __FILE__, __LINE__, text.c_str()));
    ZKQGeneral_FreeLogCtx(log);
}

BENCHMARK(Base64Layer)->Name("cpp/base64/layer")->Arg(64)->Arg(1 << 10)->Arg(64 << 10);
BENCHMARK(Base64Bare)->Name("cpp/base64/bare")->Arg(64)->Arg(1 << 10)->Arg(64 << 10);
BENCHMARK(Base64StringLayer)->Name("cpp/base64-string/layer")->Arg(64)->Arg(1 << 10)->Arg(64 << 10);
BENCHMARK(Base64StringBare)->Name("cpp/base64-string/bare")->Arg(64)->Arg(1 << 10)->Arg(64 << 10);
BENCHMARK(PacketLayer)->Name("cpp/packet/layer");
BENCHMARK(PacketBare)->Name("cpp/packet/bare");
BENCHMARK(JsonIntLayer)->Name("cpp/json-int/layer");
BENCHMARK(JsonIntBare)->Name("cpp/json-int/bare");
BENCHMARK(JsonStringLayer)->Name("cpp/json-string/layer");
BENCHMARK(JsonStringBare)->Name("cpp/json-string/bare");
BENCHMARK(MemoryLayer)->Name("cpp/memory/layer");
BENCHMARK(MemoryBare)->Name("cpp/memory/bare");
BENCHMARK_CAPTURE(RecordLayer, off, ZKQ_LOG_INFO)->Name("cpp/record-off/layer");
BENCHMARK_CAPTURE(RecordBare, off, ZKQ_LOG_INFO)->Name("cpp/record-off/bare");
BENCHMARK_CAPTURE(RecordLayer, on, ZKQ_LOG_ERROR)->Name("cpp/record-on/layer")->UseRealTime();
BENCHMARK_CAPTURE(RecordBare, on, ZKQ_LOG_ERROR)->Name("cpp/record-on/bare")->UseRealTime();

} // namespace
