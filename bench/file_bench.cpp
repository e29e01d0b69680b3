// Copying and reading whole files against the plain loops, and against the cp program.
#include "support.h"

#include <ZKQ_general/error.h>
#include <ZKQ_general/file.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::size_t kBlock = 128 * 1024;
constexpr std::int64_t kSmall = 4096;
constexpr std::int64_t kMiddle = 1 << 20;
constexpr std::int64_t kLarge = 100 << 20;

// Runs are short and repeated often: the disk has moods that last for seconds, which then hit all benchmarks alike, and
// medians are taken over runs.
std::int64_t RoundsOf(std::int64_t size)
{
    return size == kLarge ? 2 : size == kMiddle ? 5 : 50;
}

std::string SourceOf(const benchmark::State& state)
{
    const std::string path = ScratchDirectory() + "/source-" + std::to_string(state.range(0));
    if (!std::filesystem::exists(path)) {
        std::ofstream(path, std::ios::binary) << MakeNoise(static_cast<std::size_t>(state.range(0)));
    }
    return path;
}

class Descriptor {
public:
    Descriptor(const char* path, int flags, mode_t mode = 0) : value_(open(path, flags, mode)) {}
    ~Descriptor()
    {
        if (value_ >= 0) {
            close(value_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Value() const { return value_; }

private:
    int value_;
};

bool WriteAll(int descriptor, const char* bytes, std::size_t length)
{
    while (length > 0) {
        const ssize_t written = write(descriptor, bytes, length);
        if (written <= 0) {
            return false;
        }
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

// What a copy with its mode bits costs when it is written down plainly.
bool CopyByLoop(const char* from, const char* to)
{
    static char block[kBlock];
    struct stat status;
    const Descriptor source(from, O_RDONLY | O_CLOEXEC);
    const Descriptor target(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (source.Value() < 0 || target.Value() < 0 || fstat(source.Value(), &status) != 0) {
        return false;
    }
    for (;;) {
        const ssize_t count = read(source.Value(), block, sizeof(block));
        if (count <= 0) {
            return count == 0 && fchmod(target.Value(), status.st_mode & 07777) == 0;
        }
        if (!WriteAll(target.Value(), block, static_cast<std::size_t>(count))) {
            return false;
        }
    }
}

bool CopyByProgram(const char* from, const char* to)
{
    std::string program = "cp";
    std::string source = from;
    std::string target = to;
    char* arguments[] = {program.data(), source.data(), target.data(), nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, "cp", nullptr, nullptr, arguments, environ) != 0) {
        return false;
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

bool CopyByLibrary(const char* from, const char* to)
{
    return ZKQGeneral_CopyFile(from, to, FALSE) == TRUE;
}

// Every copy makes a new file, which is removed outside the measured time: to empty an old one costs more than a small
// copy does, and the file system writes a file out at once when it replaces one that was emptied.
template <bool (*CopyFile)(const char*, const char*)>
void Copy(benchmark::State& state)
{
    using Clock = std::chrono::steady_clock;
    const std::string source = SourceOf(state);
    const std::string target = ScratchDirectory() + "/target";
    for (auto _ : state) {
        unlink(target.c_str());
        const Clock::time_point start = Clock::now();
        const bool bDone = CopyFile(source.c_str(), target.c_str());
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        if (!bDone) {
            state.SkipWithError("the copy failed");
            break;
        }
    }
    std::error_code error;
    if (std::filesystem::file_size(target, error) != static_cast<std::uintmax_t>(state.range(0))) {
        state.SkipWithError("the copy is not whole");
    }
    unlink(target.c_str());
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

struct FreeBytes {
    void operator()(void* bytes) const { std::free(bytes); }
};

// With a look at the path first it keeps the library's promise that a link is not followed for its length and a device
// is not opened. Without, it is the least that reading a file takes.
template <bool kLookFirst>
void ReadByLoop(benchmark::State& state)
{
    const std::string source = SourceOf(state);
    for (auto _ : state) {
        struct stat status;
        if (kLookFirst && (lstat(source.c_str(), &status) != 0 || !S_ISREG(status.st_mode))) {
            state.SkipWithError("the file cannot be examined");
            break;
        }
        const Descriptor file(source.c_str(), O_RDONLY | O_CLOEXEC);
        if (file.Value() < 0 || (!kLookFirst && fstat(file.Value(), &status) != 0)) {
            state.SkipWithError("the file cannot be opened");
            break;
        }
        const std::size_t size = static_cast<std::size_t>(status.st_size);
        const std::unique_ptr<char, FreeBytes> bytes(static_cast<char*>(std::malloc(size + 1)));
        std::size_t length = 0;
        while (bytes && length < size) {
            const ssize_t count = read(file.Value(), bytes.get() + length, size - length);
            if (count <= 0) {
                break;
            }
            length += static_cast<std::size_t>(count);
        }
        benchmark::DoNotOptimize(bytes.get());
        if (length != size) {
            state.SkipWithError("the read failed");
            break;
        }
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

void ReadByLibrary(benchmark::State& state)
{
    const std::string source = SourceOf(state);
    for (auto _ : state) {
        unsigned char* bytes = nullptr;
        int size = 0;
        const BOOL bDone = ZKQGeneral_GetFileContent(source.c_str(), &bytes, &size);
        benchmark::DoNotOptimize(bytes);
        if (bDone != TRUE || size != state.range(0)) {
            state.SkipWithError("the read failed");
            break;
        }
        ZKQGeneral_FreeMallocBuffer(bytes);
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

int RegisterAll()
{
    const auto add = [](const char* name, void (*function)(benchmark::State&), std::int64_t size) {
        return benchmark::RegisterBenchmark(name, function)->Arg(size)->Iterations(RoundsOf(size));
    };
    for (const std::int64_t size : {kSmall, kMiddle, kLarge}) {
        add("file/copy/ours", Copy<CopyByLibrary>, size)->UseManualTime();
        add("file/copy/loop", Copy<CopyByLoop>, size)->UseManualTime();
        add("file/read/ours", ReadByLibrary, size)->UseRealTime();
        add("file/read/loop", ReadByLoop<false>, size)->UseRealTime();
        add("file/read/lstat", ReadByLoop<true>, size)->UseRealTime();
    }
    add("file/copy/cp", Copy<CopyByProgram>, kLarge)->UseManualTime();
    return 0;
}

const int registered = RegisterAll();

} // namespace
