// The charset wrappers against the system's converter: on a descriptor that is ready, and with opening and closing.
#include <ZKQ_general/iconv.h>
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Wrapper = BOOL (*)(const char* In, char* Out, int InLength, int* nMaxChar);

struct Direction {
    const char* name;
    const char* to;
    const char* from;
    Wrapper convert;
};

const Direction kDirections[] = {
    {"gbk-ucs2", "UNICODELITTLE", "GBK",
     [](const char* In, char* Out, int InLength, int* nMaxChar) {
         return ZKQGeneral_AnsiToUnicode(In, reinterpret_cast<unsigned short*>(Out), InLength, nMaxChar);
     }},
    {"ucs2-gbk", "GBK", "UNICODELITTLE",
     [](const char* In, char* Out, int InLength, int* nMaxChar) {
         return ZKQGeneral_UnicodeToAnsi(reinterpret_cast<const unsigned short*>(In), Out, InLength, nMaxChar);
     }},
    {"gbk-utf8", "UTF-8", "GBK",
     [](const char* In, char* Out, int InLength, int* nMaxChar) {
         return ZKQGeneral_AnsiToUTF8(In, Out, InLength, nMaxChar);
     }},
    {"utf8-gbk", "GBK", "UTF-8",
     [](const char* In, char* Out, int InLength, int* nMaxChar) {
         return ZKQGeneral_UTF8ToAnsi(In, Out, InLength, nMaxChar);
     }},
};

// One call of the system's converter; the length of the result.
std::size_t ConvertBare(iconv_t descriptor, const std::string& text, std::vector<char>& room)
{
    char* in = const_cast<char*>(text.data());
    char* out = room.data();
    std::size_t left = text.size();
    std::size_t space = room.size();
    if (iconv(descriptor, &in, &left, &out, &space) == static_cast<std::size_t>(-1))
        throw std::runtime_error("not converted");
    return room.size() - space;
}

std::string Converted(const char* to, const char* from, const std::string& text)
{
    const iconv_t descriptor = iconv_open(to, from);
    std::vector<char> room(4 * text.size());
    const std::size_t size = ConvertBare(descriptor, text, room);
    iconv_close(descriptor);
    return {room.data(), size};
}

// GBK: runs of `chinese` common characters and of `ascii` bytes of ASCII, about `size` bytes.
std::string MakeText(std::size_t size, std::size_t chinese, std::size_t ascii)
{
    std::string text;
    unsigned value = 12345;
    const auto next = [&value](unsigned below) {
        value = value * 1664525 + 1013904223;
        return (value >> 16) % below;
    };
    while (text.size() < size) {
        for (std::size_t i = 0; i < chinese && text.size() < size; ++i) {
            text += static_cast<char>(0xB0 + next(0xD7 - 0xB0));
            text += static_cast<char>(0xA1 + next(0xFE - 0xA1));
        }
        for (std::size_t i = 0; i < ascii && text.size() < size; ++i)
            text += static_cast<char>(' ' + next(0x7F - ' '));
    }
    return text;
}

struct Kind {
    const char* name;
    std::size_t chinese;
    std::size_t ascii;
};
constexpr Kind kKinds[] = {{"ascii", 0, 64}, {"chinese", 64, 0}, {"mixed", 7, 9}};

// A text of about `size` bytes in the charset that a direction takes.
std::string MakeInput(const Direction& direction, const Kind& kind, std::size_t size)
{
    const bool wide = std::strcmp(direction.from, "UNICODELITTLE") == 0;
    const std::string text = MakeText(wide && kind.chinese == 0 ? size / 2 : size, kind.chinese, kind.ascii);
    if (std::strcmp(direction.from, "GBK") == 0)
        return text;
    return Converted(direction.from, "GBK", text);
}

void Ours(benchmark::State& state, const Direction& direction, const std::string& text)
{
    std::vector<char> room(4 * text.size());
    for (auto _ : state) {
        int length = static_cast<int>(room.size());
        if (!direction.convert(text.data(), room.data(), static_cast<int>(text.size()), &length))
            state.SkipWithError("not converted");
        benchmark::DoNotOptimize(room.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void Bare(benchmark::State& state, const Direction& direction, const std::string& text)
{
    std::vector<char> room(4 * text.size());
    const iconv_t descriptor = iconv_open(direction.to, direction.from);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ConvertBare(descriptor, text, room));
        benchmark::ClobberMemory();
    }
    iconv_close(descriptor);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void Opening(benchmark::State& state, const Direction& direction, const std::string& text)
{
    std::vector<char> room(4 * text.size());
    for (auto _ : state) {
        const iconv_t descriptor = iconv_open(direction.to, direction.from);
        benchmark::DoNotOptimize(ConvertBare(descriptor, text, room));
        iconv_close(descriptor);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

const int registered = [] {
    for (const Direction& direction : kDirections) {
        for (const Kind& kind : kKinds) {
            for (const std::size_t size : {16, 1024, 65536, 1048576}) {
                const std::string text = MakeInput(direction, kind, size);
                const std::string place =
                    std::string("/") + direction.name + "/" + kind.name + "/" + std::to_string(size);
                const auto add = [&](const char* who,
                                     void (*run)(benchmark::State&, const Direction&, const std::string&)) {
                    benchmark::RegisterBenchmark(
                        ("iconv/" + std::string(who) + place).c_str(),
                        [run, &direction, text](benchmark::State& state) { run(state, direction, text); });
                };
                add("ours", Ours);
                add("bare", Bare);
                add("opening", Opening);
            }
        }
    }
    return 0;
}();

} // namespace
