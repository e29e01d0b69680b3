// Cabinets against the zip and unzip programs on the same files: a tree of this machine, and many small files.
#include <ZKQ_general/error.h>
#include <ZKQ_general/mycab.h>
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kPathSize = 300; // of the library's names, the NUL counted
constexpr int kFilesOfADirectory = 100;

std::string Tree(const std::string& name)
{
    return ScratchDirectory() + "/" + name;
}

// A copy of real files, but for those that a cabinet does not hold: empty ones and links.
void CopyTree(const std::string& target)
{
    const char* named = std::getenv("ZKQ_BENCH_TREE");
    const fs::path source = named != nullptr ? named : "/usr/share/doc";
    for (const auto& entry : fs::recursive_directory_iterator(source)) {
        const std::string copy = target / entry.path().lexically_relative(source);
        if (entry.is_symlink() || !entry.is_regular_file() || entry.file_size() == 0 || copy.size() >= kPathSize) {
            continue;
        }
        fs::create_directories(fs::path(copy).parent_path());
        fs::copy_file(entry.path(), copy);
    }
}

void MakeSmallFiles(const std::string& target, int count)
{
    for (int i = 0; i < count; ++i) {
        const std::string directory = target + "/" + std::to_string(i / kFilesOfADirectory);
        if (i % kFilesOfADirectory == 0) {
            fs::create_directories(directory);
        }
        std::ofstream(directory + "/file" + std::to_string(i)) << "content of file " << i << '\n';
    }
}

// The tree of a benchmark, made when it is first needed.
std::string SourceOf(const benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    const std::string tree = Tree(std::to_string(count));
    if (!fs::exists(tree)) {
        count == 0 ? CopyTree(tree) : MakeSmallFiles(tree, count);
    }
    return tree;
}

bool Run(std::vector<std::string> words)
{
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) {
        return false;
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

bool Pack(const std::string& tree, const std::string& archive)
{
    const std::string list = tree + std::string(2, '\0');
    return ZKQGeneral_MakeMyCabFile(archive.c_str(), list.c_str(), 1) == TRUE;
}

bool Unpack(const std::string& archive, const std::string& directory)
{
    return ZKQGeneral_ExtractMyCabAllFile(archive.c_str(), directory.c_str()) == TRUE;
}

// zip stores the paths that it is given.
bool Zip(const std::string& tree, const std::string& archive)
{
    const fs::path before = fs::current_path();
    fs::current_path(tree);
    const bool bDone = Run({"zip", "-q", "-r", archive, "."});
    fs::current_path(before);
    return bDone;
}

bool Unzip(const std::string& archive, const std::string& directory)
{
    return Run({"unzip", "-q", archive, "-d", directory});
}

std::string Extension(bool (*pack)(const std::string&, const std::string&))
{
    return pack == Zip ? ".zip" : ".cab";
}

template <bool (*kPack)(const std::string&, const std::string&)>
void Make(benchmark::State& state)
{
    const std::string tree = SourceOf(state);
    const std::string archive = Tree("new" + Extension(kPack));
    for (auto _ : state) {
        unlink(archive.c_str());
        const Clock::time_point start = Clock::now();
        const bool bDone = kPack(tree, archive);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        if (!bDone) {
            state.SkipWithError(ZKQGeneral_GetGeneralErrorInfo());
            break;
        }
    }
    std::error_code error;
    state.counters["bytes"] = static_cast<double>(fs::file_size(archive, error));
    unlink(archive.c_str());
}

template <bool (*kPack)(const std::string&, const std::string&),
          bool (*kUnpack)(const std::string&, const std::string&)>
void Extract(benchmark::State& state)
{
    const std::string tree = SourceOf(state);
    const std::string archive = tree + Extension(kPack);
    const std::string target = Tree("out");
    if (!fs::exists(archive) && !kPack(tree, archive)) {
        state.SkipWithError("nothing to extract");
        return;
    }
    for (auto _ : state) {
        fs::remove_all(target);
        const Clock::time_point start = Clock::now();
        const bool bDone = kUnpack(archive, target);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        if (!bDone) {
            state.SkipWithError(ZKQGeneral_GetGeneralErrorInfo());
            break;
        }
    }
    if (!Run({"diff", "-r", tree, target})) {
        state.SkipWithError("something else came out");
    }
    fs::remove_all(target);
}

int RegisterAll()
{
    const auto add = [](const char* name, void (*function)(benchmark::State&)) {
        auto* bench = benchmark::RegisterBenchmark(name, function);
        bench->Arg(0)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Iterations(1)->UseManualTime();
    };
    add("mycab/make/ours", Make<Pack>);
    add("mycab/make/zip", Make<Zip>);
    add("mycab/extract/ours", Extract<Pack, Unpack>);
    add("mycab/extract/unzip", Extract<Zip, Unzip>);
    return 0;
}

const int registered = RegisterAll();

} // namespace
