// JSON texts against other readers and writers; growing arrays through paths.
#include <ZKQ_general/error.h>
#include <ZKQ_general/json.h>
#include <benchmark/benchmark.h>
#include <jansson.h>
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <simdjson.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "json_c_peer.h"

namespace {

constexpr std::size_t kGenerated = 10'000'000;
constexpr char kReal[] = "/usr/share/iso-codes/json/iso_639-3.json";

std::string RealText()
{
    std::ifstream file(kReal, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Elements in brackets until the text is long enough.
std::string Generated(const std::function<std::string(unsigned)>& element)
{
    std::string text = "[";
    for (unsigned i = 0; text.size() < kGenerated; ++i)
        text.append(i == 0 ? "" : ",").append(element(i * 2654435761u));
    return text + "]";
}

std::string Number(unsigned noise)
{
    std::string text(noise % 2, '-');
    text.append(std::to_string(noise % 1000000));
    return noise % 3 == 0 ? text : text.append(".").append(std::to_string(noise % 9973));
}

std::string String(unsigned noise)
{
    std::string text = "\"";
    for (unsigned i = 0; i < 10 + noise % 150; ++i)
        text += static_cast<char>('a' + (noise >> i % 16) % 26);
    return text.append(noise % 4 == 0 ? "\\n\\u00e9 and more\"" : "\"");
}

std::string Nested(unsigned noise)
{
    constexpr std::size_t kDeepest = 500; // some peers have a limit near a thousand
    const std::size_t depth = 1 + noise % kDeepest;
    return std::string(depth, '[').append("1").append(depth, ']');
}

const std::string& Text(const std::string& name)
{
    static const std::map<std::string, std::string> texts = {{"real", RealText()},
                                                             {"numbers", Generated(Number)},
                                                             {"strings", Generated(String)},
                                                             {"nested", Generated(Nested)}};
    return texts.at(name);
}

struct Ours {
    explicit Ours(const std::string& text) { is_good = JSON_Misc_InitJSON(text.c_str(), &document) == 0; }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    ~Ours()
    {
        if (document != nullptr)
            JSON_Misc_FiniJSON(document, nullptr);
    }
    std::size_t Write()
    {
        char* text = nullptr;
        JSON_Misc_FiniJSON(std::exchange(document, nullptr), &text); // there is no writing without releasing
        const std::size_t size = text == nullptr ? 0 : static_cast<unsigned char>(*text);
        ZKQGeneral_FreeMallocBuffer(text);
        return size;
    }
    void* document = nullptr;
    bool is_good = false;
};

struct Rapid {
    explicit Rapid(const std::string& text) { is_good = !document.Parse(text.c_str()).HasParseError(); }
    std::size_t Write() const
    {
        rapidjson::StringBuffer buffer;
        rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
        writer.SetIndent('\t', 1);
        writer.SetFormatOptions(rapidjson::kFormatSingleLineArray);
        document.Accept(writer);
        return buffer.GetSize();
    }
    rapidjson::Document document;
    bool is_good = false;
};

struct Nlohmann {
    explicit Nlohmann(const std::string& text) : document(nlohmann::json::parse(text, nullptr, false)) {}
    std::size_t Write() const { return document.dump(1, '\t', false, nlohmann::json::error_handler_t::ignore).size(); }
    nlohmann::json document;
    bool is_good = !document.is_discarded();
};

struct Jansson {
    explicit Jansson(const std::string& text) : document(json_loads(text.c_str(), 0, nullptr)) {}
    Jansson(const Jansson&) = delete;
    Jansson& operator=(const Jansson&) = delete;
    ~Jansson() { json_decref(document); }
    std::size_t Write() const
    {
        char* text = json_dumps(document, JSON_INDENT(1));
        const std::size_t size = text == nullptr ? 0 : static_cast<unsigned char>(*text);
        std::free(text);
        return size;
    }
    json_t* document;
    bool is_good = document != nullptr;
};

struct JsonC {
    explicit JsonC(const std::string& text) : document(JsonCRead(text.c_str(), static_cast<int>(text.size()))) {}
    JsonC(const JsonC&) = delete;
    JsonC& operator=(const JsonC&) = delete;
    ~JsonC() { JsonCRelease(document); }
    std::size_t Write() const { return JsonCWrite(document); }
    void* document;
    bool is_good = document != nullptr;
};

struct Simd {
    explicit Simd(const std::string& text)
    {
        simdjson::dom::element root;
        is_good = parser.parse(text).get(root) == simdjson::SUCCESS;
    }
    simdjson::dom::parser parser;
    bool is_good = false;
};

/// A text into a tree, and the tree released.
template <class Peer>
void Read(benchmark::State& state, const std::string& name)
{
    const std::string& text = Text(name);
    for (auto _ : state) {
        Peer peer(text);
        if (!peer.is_good)
            state.SkipWithError("not read");
        benchmark::DoNotOptimize(&peer);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

/// A tree into a text, and both released.
template <class Peer>
void Write(benchmark::State& state, const std::string& name)
{
    using Clock = std::chrono::steady_clock;
    for (auto _ : state) {
        auto peer = std::make_unique<Peer>(Text(name));
        const Clock::time_point start = Clock::now();
        if (!peer->is_good || peer->Write() == 0)
            state.SkipWithError("not written");
        peer.reset();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
}

/// Records added to an array, as callers make them, then written.
void GrowOurs(benchmark::State& state)
{
    for (auto _ : state) {
        void* document = nullptr;
        void* list = nullptr;
        JSON_Misc_InitJSON(nullptr, &document);
        JSON_Misc_GetChildNode_AutoAdd(document, "list", &list);
        JSON_Misc_SetNodeArrayType(list);
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            void* record = nullptr;
            JSON_Misc_CreateObjectNode(list, &record);
            JSON_Misc_SetInt(record, "id", static_cast<int>(i));
            JSON_Misc_SetString(record, "name", "a name");
        }
        char* text = nullptr;
        JSON_Misc_FiniJSON(document, &text);
        benchmark::DoNotOptimize(text);
        ZKQGeneral_FreeMallocBuffer(text);
    }
}

void GrowNlohmann(benchmark::State& state)
{
    for (auto _ : state) {
        nlohmann::json document;
        nlohmann::json& list = document["list"] = nlohmann::json::array();
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            nlohmann::json& record = list.emplace_back(nlohmann::json::object());
            record["id"] = i;
            record["name"] = "a name";
        }
        benchmark::DoNotOptimize(document.dump(1, '\t'));
    }
}

BENCHMARK(GrowOurs)->Name("json/grow/ours")->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK(GrowNlohmann)->Name("json/grow/nlohmann")->RangeMultiplier(10)->Range(1000, 1000000);

template <class Peer>
void RegisterRead(const std::string& peer, const std::string& text)
{
    benchmark::RegisterBenchmark(("json/read/" + peer + "/" + text).c_str(), Read<Peer>, text);
}

template <class Peer>
void Register(const std::string& peer, const std::string& text)
{
    RegisterRead<Peer>(peer, text);
    benchmark::RegisterBenchmark(("json/write/" + peer + "/" + text).c_str(), Write<Peer>, text)->UseManualTime();
}

const bool g_registered = [] {
    for (const char* text : {"real", "numbers", "strings", "nested"}) {
        if (Text(text).empty())
            continue; // the system has no such document
        Register<Ours>("ours", text);
        Register<Rapid>("rapidjson", text);
        Register<Nlohmann>("nlohmann", text);
        Register<Jansson>("jansson", text);
        Register<JsonC>("json-c", text);
        RegisterRead<Simd>("simdjson", text);
    }
    return true;
}();

} // namespace
