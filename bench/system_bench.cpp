// Running programs against posix_spawn() and fork() of the same shell line, and the tick count against a plain read.
#include <ZKQ_general/system.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr char kProgram[] = "/bin/true";
constexpr char kParameter[] = "x";
constexpr char kLine[] = "/bin/true x";

bool RunOurs()
{
    DWORD code = 1;
    return ZKQGeneral_WinExecFileAndGetRetCode(kProgram, kParameter, TRUE, &code) && code == 0;
}

bool Await(pid_t pid)
{
    int status = 1;
    return waitpid(pid, &status, 0) == pid && status == 0;
}

char* const* Arguments()
{
    static char name[] = "sh";
    static char option[] = "-c";
    static char line[sizeof kLine];
    static char* const arguments[] = {name, option, line, nullptr};
    snprintf(line, sizeof line, "%s", kLine);
    return arguments;
}

bool RunSpawn()
{
    pid_t pid;
    return posix_spawn(&pid, "/bin/sh", nullptr, nullptr, Arguments(), environ) == 0 && Await(pid);
}

bool RunFork()
{
    char* const* const arguments = Arguments();
    const pid_t pid = fork();
    if (pid == 0) {
        execv("/bin/sh", arguments);
        _exit(127);
    }
    return Await(pid);
}

void Run(benchmark::State& state, bool (*run)())
{
    for (auto _ : state)
        if (!run())
            state.SkipWithError("the program was not run");
}

/// The same from a process that has so many megabytes in use, in small pages.
void RunLarge(benchmark::State& state, bool (*run)())
{
    const size_t size = static_cast<size_t>(state.range(0)) << 20;
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        state.SkipWithError("no memory");
        return;
    }
    madvise(memory, size, MADV_NOHUGEPAGE);
    for (size_t at = 0; at < size; at += 4096)
        static_cast<volatile char*>(memory)[at] = 1;
    Run(state, run);
    munmap(memory, size);
}

void Ticks(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(ZKQGeneral_GetTickCount());
}

template <class Parse>
void PlainTicks(benchmark::State& state, Parse parse)
{
    const int file = open("/proc/uptime", O_RDONLY | O_CLOEXEC);
    for (auto _ : state) {
        char text[1024];
        const ssize_t length = pread(file, text, sizeof text - 1, 0);
        if (length <= 0) {
            state.SkipWithError("not read");
            break;
        }
        text[length] = '\0';
        benchmark::DoNotOptimize(parse(text));
    }
    close(file);
}

long ParseScan(const char* text)
{
    double running = 0;
    double idle = 0;
    return sscanf(text, "%lf %lf", &running, &idle) == 2 ? static_cast<long>(running * 1000.0) : 0;
}

long ParseNumbers(const char* text)
{
    char* end;
    const double running = strtod(text, &end);
    const double idle = strtod(end, &end);
    return idle >= 0 ? static_cast<long>(running * 1000.0) : 0;
}

void PlainTicksScan(benchmark::State& state)
{
    PlainTicks(state, ParseScan);
}

void PlainTicksNumbers(benchmark::State& state)
{
    PlainTicks(state, ParseNumbers);
}

// Elapsed time: the work is in other processes.
BENCHMARK_CAPTURE(Run, ours, RunOurs)->Name("system/run/ours")->UseRealTime();
BENCHMARK_CAPTURE(Run, spawn, RunSpawn)->Name("system/run/spawn")->UseRealTime();
BENCHMARK_CAPTURE(RunLarge, ours, RunOurs)->Name("system/run-large/ours")->Arg(512)->UseRealTime();
BENCHMARK_CAPTURE(RunLarge, spawn, RunSpawn)->Name("system/run-large/spawn")->Arg(512)->UseRealTime();
BENCHMARK_CAPTURE(RunLarge, fork, RunFork)->Name("system/run-large/fork")->Arg(512)->UseRealTime();
BENCHMARK(Ticks)->Name("system/ticks/ours");
BENCHMARK(PlainTicksScan)->Name("system/ticks/sscanf");
BENCHMARK(PlainTicksNumbers)->Name("system/ticks/strtod");

} // namespace
