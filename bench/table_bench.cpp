// Tables from texts to values against two hash tables that grow without a limit.
#include <ZKQ_general/table.h>
#include <benchmark/benchmark.h>

#include <glib.h>

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

const std::vector<std::string>& Keys(const benchmark::State& state)
{
    static std::map<std::int64_t, std::vector<std::string>> keys;
    std::vector<std::string>& made = keys[state.range(0)];
    for (std::int64_t i = static_cast<std::int64_t>(made.size()); i < state.range(0); ++i)
        made.push_back("session/" + std::to_string(i * 7919));
    return made;
}

// Looked for in another order than they were added in.
std::size_t Scattered(std::size_t i, std::size_t count)
{
    return i * 7919 % count;
}

void* Fill(const std::vector<std::string>& keys)
{
    void* table = nullptr;
    General_Table_Create(&table, 1024, 0);
    for (const std::string& key : keys)
        General_Table_String_AddNode(table, key.c_str(), nullptr, 0);
    return table;
}

void Insert(benchmark::State& state)
{
    const std::vector<std::string>& keys = Keys(state);
    for (auto _ : state)
        General_Table_Destroy(Fill(keys));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Find(benchmark::State& state)
{
    const std::vector<std::string>& keys = Keys(state);
    void* const table = Fill(keys);
    for (auto _ : state)
        for (std::size_t i = 0; i < keys.size(); ++i)
            if (General_Table_String_GetNode(table, keys[Scattered(i, keys.size())].c_str(), nullptr, nullptr) != 0)
                state.SkipWithError("not found");
    General_Table_Destroy(table);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

GHashTable* FillGlib(const std::vector<std::string>& keys)
{
    GHashTable* const table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
    for (const std::string& key : keys)
        g_hash_table_insert(table, g_strdup(key.c_str()), nullptr);
    return table;
}

void InsertGlib(benchmark::State& state)
{
    const std::vector<std::string>& keys = Keys(state);
    for (auto _ : state)
        g_hash_table_destroy(FillGlib(keys));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void FindGlib(benchmark::State& state)
{
    const std::vector<std::string>& keys = Keys(state);
    GHashTable* const table = FillGlib(keys);
    for (auto _ : state)
        for (std::size_t i = 0; i < keys.size(); ++i)
            if (!g_hash_table_contains(table, keys[Scattered(i, keys.size())].c_str()))
                state.SkipWithError("not found");
    g_hash_table_destroy(table);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

using Map = std::unordered_map<std::string, void*>;

void InsertMap(benchmark::State& state)
{
    const std::vector<std::string>& keys = Keys(state);
    for (auto _ : state) {
        Map map;
        for (const std::string& key : keys)
            map.emplace(key.c_str(), nullptr);
        benchmark::DoNotOptimize(map);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void FindMap(benchmark::State& state)
{
    const std::vector<std::string>& keys = Keys(state);
    Map map;
    for (const std::string& key : keys)
        map.emplace(key, nullptr);
    for (auto _ : state)
        for (std::size_t i = 0; i < keys.size(); ++i)
            if (map.find(keys[Scattered(i, keys.size())].c_str()) == map.end()) // a caller's text, as with the others
                state.SkipWithError("not found");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    bench->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
}

BENCHMARK(Insert)->Name("table/insert/ours")->Apply(Sizes);
BENCHMARK(InsertGlib)->Name("table/insert/GHashTable")->Apply(Sizes);
BENCHMARK(InsertMap)->Name("table/insert/unordered_map")->Apply(Sizes);
BENCHMARK(Find)->Name("table/find/ours")->Apply(Sizes);
BENCHMARK(FindGlib)->Name("table/find/GHashTable")->Apply(Sizes);
BENCHMARK(FindMap)->Name("table/find/unordered_map")->Apply(Sizes);

} // namespace
