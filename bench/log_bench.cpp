// Log records against the system calls that no such record can do without, and against spdlog.
#include "support.h"

#include <ZKQ_general/log.h>
#include <benchmark/benchmark.h>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace {

// Every run starts with an empty log and writes the same number of records, some megabytes: no file grows without
// bound, and no truncation is timed or disturbs what is.
constexpr int kRecordsPerRun = 20000;

constexpr char kText[] = "connection from 192.0.2.17:51544 accepted, session 8c1f03aa, 3 of 64 slots in use";
constexpr int kLine = 120;

// The text of a log is the same for all, whatever was run before in this program: one directory each.
class LogDirectory {
public:
    explicit LogDirectory(const char* name) : path_(ScratchDirectory() + "/" + name)
    {
        std::filesystem::remove_all(path_);
        std::filesystem::create_directory(path_);
    }

    const std::string& Path() const { return path_; }
    std::string LogFile() const { return path_ + "/bench.log"; }

    void WriteSwitches(const char* entries) const { std::ofstream(path_ + "/tamor.ini") << "[applog]\n" << entries; }

private:
    std::string path_;
};

struct FreeContext {
    void operator()(void* context) const { ZKQGeneral_FreeLogCtx(context); }
};
using Context = std::unique_ptr<void, FreeContext>;

Context MakeContext(const LogDirectory& directory, int alwaysLog)
{
    std::string project = "bench";
    std::string path = directory.Path();
    APPLOGINFO info = {};
    info.Version = 3;
    info.ProjectName = project.data();
    info.RecordTime = 1;
    info.TempPath = path.data();
    info.bAlwaysLog = alwaysLog;
    void* context = nullptr;
    ZKQGeneral_IsNeedLogFile(&info, &context);
    return Context(context);
}

BOOL RecordText(void* context)
{
    return ZKQGeneral_RecordLogInfoEx(context, ZKQ_LOG_INFO, __FILE__, kLine, kText);
}

// The same text made by a format, as callers of the printf family write it.
BOOL RecordFormatted(void* context)
{
    static char format[] = "connection from %s:%d accepted, session %08x, %d of %d slots in use";
    return ZKQGeneral_RecordAppLogToFileEx2_V(context, ZKQ_LOG_INFO, __FILE__, kLine, format, "192.0.2.17", 51544,
                                              0x8c1f03aaU, 3, 64);
}

// What a record has to do at the least, if the file may vanish between two records and other processes write to it too:
// one open, one lock, one write of the finished line, and back again.
[[gnu::noinline]] bool WriteFloor(const char* fileName, const char* line, std::size_t length)
{
    const int descriptor = open(fileName, O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (descriptor < 0) {
        return false;
    }
    const bool bLocked = flock(descriptor, LOCK_EX) == 0;
    const bool bWritten = write(descriptor, line, length) == static_cast<ssize_t>(length);
    const bool bUnlocked = flock(descriptor, LOCK_UN) == 0;
    return close(descriptor) == 0 && bLocked && bWritten && bUnlocked;
}

// The line that a record of RecordText() leaves in the file, for the floor to write as many bytes.
std::string SampleLine()
{
    const LogDirectory directory("sample");
    const Context context = MakeContext(directory, ZKQ_LOG_ALL);
    RecordText(context.get());
    std::ifstream file(directory.LogFile(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A benchmark of several threads shares these: made by its first thread before the others pass the starting line.
struct Shared {
    std::unique_ptr<LogDirectory> directory;
    Context context;
    std::shared_ptr<spdlog::logger> logger;
    std::string line;
    std::string logFile;
    std::mutex mutex;
};

Shared& TheShared()
{
    static Shared shared;
    return shared;
}

// A run that wrote less than it claims measures nothing.
void CheckLogLength(benchmark::State& state)
{
    std::error_code error;
    const std::uintmax_t length = std::filesystem::file_size(TheShared().logFile, error);
    const std::uintmax_t records = static_cast<std::uintmax_t>(kRecordsPerRun) * static_cast<unsigned>(state.threads());
    // A record of spdlog has another prefix: half the line is enough to tell records from none.
    if (error || length < records * sizeof(kText)) {
        state.SkipWithError("records are missing in the log");
    }
    state.counters["bytes"] = static_cast<double>(length) / static_cast<double>(records);
}

template <class Record>
void RunRecords(benchmark::State& state, Record record)
{
    for (auto _ : state) {
        if (!record()) {
            state.SkipWithError("a record failed");
            break;
        }
    }
    if (state.thread_index() == 0) {
        CheckLogLength(state);
    }
}

void OpenShared(const benchmark::State& state, int alwaysLog, const char* switches)
{
    if (state.thread_index() != 0) {
        return;
    }
    Shared& shared = TheShared();
    shared.directory = std::make_unique<LogDirectory>("record");
    shared.directory->WriteSwitches(switches);
    shared.logFile = shared.directory->LogFile();
    shared.context = MakeContext(*shared.directory, alwaysLog);
}

void RecordAlways(benchmark::State& state)
{
    OpenShared(state, ZKQ_LOG_ALL, "");
    RunRecords(state, [] { return RecordText(TheShared().context.get()); });
}

void RecordSwitched(benchmark::State& state)
{
    OpenShared(state, 0, "bench = 15\n");
    RunRecords(state, [] { return RecordText(TheShared().context.get()); });
}

void RecordPrintf(benchmark::State& state)
{
    OpenShared(state, ZKQ_LOG_ALL, "");
    RunRecords(state, [] { return RecordFormatted(TheShared().context.get()); });
}

void RecordFloor(benchmark::State& state)
{
    if (state.thread_index() == 0) {
        TheShared().line = SampleLine();
    }
    OpenShared(state, ZKQ_LOG_ALL, "");
    RunRecords(state, [] {
        // Threads take turns as they do on a context. One thread alone pays next to nothing for it.
        const std::lock_guard<std::mutex> lock(TheShared().mutex);
        return WriteFloor(TheShared().logFile.c_str(), TheShared().line.data(), TheShared().line.size());
    });
}

void RecordSpdlog(benchmark::State& state)
{
    if (state.thread_index() == 0) {
        Shared& shared = TheShared();
        shared.directory = std::make_unique<LogDirectory>("record");
        shared.logFile = shared.directory->LogFile();
        shared.logger = std::make_shared<spdlog::logger>(
            "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(shared.logFile));
        shared.logger->set_pattern("[%Y-%m-%d %H:%M:%S.%e][%l] %v");
        shared.logger->flush_on(spdlog::level::trace);
    }
    RunRecords(state, [] {
        TheShared().logger->info("{} - {},{}", kText, "log_bench.cpp", kLine);
        return true;
    });
}

void Records(benchmark::internal::Benchmark* bench)
{
    bench->Threads(1)->Threads(2)->Threads(4)->Iterations(kRecordsPerRun)->UseRealTime();
}

BENCHMARK(RecordAlways)->Name("log/record/always")->Apply(Records);
BENCHMARK(RecordSwitched)->Name("log/record/switched")->Apply(Records);
BENCHMARK(RecordPrintf)->Name("log/record/printf")->Apply(Records);
BENCHMARK(RecordFloor)->Name("log/record/floor")->Apply(Records);
BENCHMARK(RecordSpdlog)->Name("log/record/spdlog")->Apply(Records);

// Records whose level is off: nobody needs to look at a clock but to read the switches again in time.
template <class Record>
void RunOff(benchmark::State& state, int alwaysLog, const char* switches, Record record)
{
    const LogDirectory directory("off");
    directory.WriteSwitches(switches);
    const Context context = MakeContext(directory, alwaysLog);
    for (auto _ : state) {
        benchmark::DoNotOptimize(record(context.get()));
    }
    std::error_code error;
    const std::uintmax_t length = std::filesystem::file_size(directory.LogFile(), error);
    if (!context || (!error && length > 0)) {
        state.SkipWithError("a level that is off was written");
    }
}

void OffSwitched(benchmark::State& state)
{
    RunOff(state, 0, "", RecordText);
}

void OffLevel(benchmark::State& state)
{
    RunOff(state, 0, "bench = 8\n", RecordText);
}

void OffFixed(benchmark::State& state)
{
    RunOff(state, ZKQ_LOG_ERROR, "", RecordText);
}

void OffPrintf(benchmark::State& state)
{
    RunOff(state, 0, "", RecordFormatted);
}

[[gnu::noinline]] time_t CallTime()
{
    const time_t now = time(nullptr);
    benchmark::ClobberMemory(); // keeps this a call that returns, not a jump
    return now;
}

void OffTime(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(CallTime());
    }
}

BENCHMARK(OffSwitched)->Name("log/off/switched");
BENCHMARK(OffLevel)->Name("log/off/level");
BENCHMARK(OffFixed)->Name("log/off/fixed");
BENCHMARK(OffPrintf)->Name("log/off/printf");
BENCHMARK(OffTime)->Name("log/off/time");

} // namespace
