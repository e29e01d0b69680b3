// Message packets against the same bytes written and read by hand.
#include <ZKQ_general/msgpacket.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

constexpr int kItem = 16;
constexpr int kWord = 4;

void Add(benchmark::State& state)
{
    const unsigned char item[kItem] = "item of 16 byte";
    for (auto _ : state) {
        void* packet = nullptr;
        ZKQGeneral_CreateMsgPacket(0, &packet);
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            if (!ZKQGeneral_MsgPacket_AddBuffer(packet, item, kItem))
                state.SkipWithError("not added");
        }
        benchmark::ClobberMemory();
        ZKQGeneral_DestroyMsgPacket(packet);
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

void StoreWord(unsigned char* bytes, std::uint32_t word)
{
    for (int i = 0; i < kWord; ++i)
        bytes[i] = static_cast<unsigned char>(word >> (24 - 8 * i));
}

std::uint32_t ReadWord(const unsigned char* bytes)
{
    std::uint32_t word = 0;
    for (int i = 0; i < kWord; ++i)
        word = word << 8 | bytes[i];
    return word;
}

// A packet built by hand: the header last, as nobody looks at it before.
std::vector<std::uint8_t> Build(std::int64_t items)
{
    const unsigned char item[kItem] = "item of 16 byte";
    std::vector<std::uint8_t> bytes(kWord);
    for (std::int64_t i = 0; i < items; ++i) {
        unsigned char length[kWord];
        StoreWord(length, kItem);
        bytes.insert(bytes.end(), length, length + kWord);
        bytes.insert(bytes.end(), item, item + kItem);
    }
    StoreWord(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    return bytes;
}

void AddToVector(benchmark::State& state)
{
    for (auto _ : state) {
        const std::vector<std::uint8_t> bytes = Build(state.range(0));
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

// Items one by one, by index, into a buffer.
void Read(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes = Build(state.range(0));
    void* packet = nullptr;
    ZKQGeneral_InitMsgPacket(bytes.data(), static_cast<int>(bytes.size()), 0, &packet);
    for (auto _ : state) {
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            unsigned char item[kItem];
            int size = kItem;
            if (!ZKQGeneral_MsgPacket_GetData(packet, static_cast<int>(i), item, &size))
                state.SkipWithError("not read");
            benchmark::DoNotOptimize(item);
        }
    }
    ZKQGeneral_DestroyMsgPacket(packet);
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

void ReadByHand(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes = Build(state.range(0));
    for (auto _ : state) {
        for (std::size_t at = kWord; at != bytes.size();) {
            unsigned char item[kItem];
            if (bytes.size() - at < kWord || ReadWord(&bytes[at]) > bytes.size() - at - kWord) {
                state.SkipWithError("not read");
                break;
            }
            const std::size_t size = ReadWord(&bytes[at]);
            if (size > kItem)
                break;
            std::memcpy(item, &bytes[at] + kWord, size);
            at += kWord + size;
            benchmark::DoNotOptimize(item);
        }
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}

void Items(benchmark::internal::Benchmark* bench)
{
    bench->RangeMultiplier(10)->Range(1'000, 1'000'000);
}

BENCHMARK(Add)->Name("msgpacket/add/ours")->Apply(Items);
BENCHMARK(AddToVector)->Name("msgpacket/add/vector")->Apply(Items);
BENCHMARK(Read)->Name("msgpacket/read/ours")->Apply(Items);
BENCHMARK(ReadByHand)->Name("msgpacket/read/by-hand")->Apply(Items);

} // namespace
