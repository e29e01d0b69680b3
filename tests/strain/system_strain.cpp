// Programs, processes, threads, times.
#include <ZKQ_general/system.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include "../fault/fault.h"
#include "strain.h"

namespace strain {
namespace {

void Paths(Worker& worker)
{
    char path[4096];
    worker.Must(ZKQGeneral_GetModuleFileName(nullptr, path, sizeof path) > 0, "GetModuleFileName");
    worker.Right(worker.process.program == path, "the program's path");
    worker.Right(ZKQGeneral_GetTempPath(sizeof path, path) == 5 && strcmp(path, "/tmp/") == 0, "GetTempPath");
}

void Ticks(Worker& worker)
{
    const long before = ZKQGeneral_GetTickCount();
    worker.RightUnlessFault(before > 0, "GetTickCount");
    ZKQGeneral_Sleep(static_cast<int>(worker.Below(3)));
    const long after = ZKQGeneral_GetTickCount();
    worker.RightUnlessFault(after >= before, "GetTickCount goes on");
    ZKQGeneral_GetTickCountEx(worker.Maybe()); // one stopwatch for all threads: what it shows is theirs together
}

void FileTimes(Worker& worker)
{
    const std::string file = worker.File("time");
    WriteWhole(file, "x");
    _TIMESTRUCT told = {};
    worker.Must(ZKQGeneral_GetFileTimeInfo(file.c_str(), &told, 2), "GetFileTimeInfo");
    const fault::Calm calm;
    struct stat status = {};
    stat(file.c_str(), &status);
    tm local = {};
    localtime_r(&status.st_mtime, &local);
    worker.Right(told.wYear == local.tm_year + 1900 && told.wHour == local.tm_hour && told.wMinute == local.tm_min &&
                     told.wSecond == local.tm_sec,
                 "the time of a file");
}

void* Double(void* argument)
{
    auto* const number = static_cast<uint64_t*>(argument);
    *number *= 2;
    return number;
}

void Threads(Worker& worker)
{
    uint64_t number = worker.Below(1000);
    const uint64_t expected = 2 * number;
    THREADINFOA thread = {};
    worker.Must(ZKQGeneral_CreateWorkingThread(Double, &number, &thread), "CreateWorkingThread");
    unsigned code = 0;
    worker.Must(ZKQGeneral_WaitThreadExit(&thread, &code, 0), "WaitThreadExit");
    worker.Right(number == expected && code == static_cast<unsigned>(reinterpret_cast<uintptr_t>(&number)),
                 "what the thread did and returned");
}

void Programs(Worker& worker)
{
    const DWORD expected = worker.Below(256);
    const std::string arguments = "-c 'exit " + std::to_string(expected) + "'";
    DWORD code = 1000;
    worker.Must(ZKQGeneral_WinExecFileAndGetRetCode("/bin/sh", arguments.c_str(), TRUE, &code),
                "WinExecFileAndGetRetCode");
    worker.Right(code == expected, "the exit status of a program");
}

void ProgramsAside(Worker& worker)
{
    // The shell leaves a file behind: that tells when it has been there.
    const std::string file = worker.File("aside");
    const std::string arguments = "-c ': > " + file + "'";
    worker.Must(ZKQGeneral_WinExecFile("/bin/sh", arguments.c_str(), FALSE), "WinExecFile, without waiting");
    const fault::Calm calm;
    struct stat status = {};
    constexpr int kSteps = kPatience * 100;
    int step = 0;
    for (; stat(file.c_str(), &status) != 0 && step < kSteps; ++step)
        ZKQGeneral_Sleep(10);
    worker.Right(step < kSteps, "the program that nobody waits for has run");
}

void Processes(Worker& worker)
{
    int isRunning = -1;
    worker.Must(ZKQGeneral_IsApplicationRunning(worker.process.commandLine.c_str(), &isRunning),
                "IsApplicationRunning");
    worker.RightUnlessFault(isRunning == 1, "this program is running");
    worker.Must(ZKQGeneral_IsApplicationRunning("no such program as this", &isRunning),
                "IsApplicationRunning, of none");
    worker.Right(isRunning == 0, "no such program is running");
    worker.Right(ZKQGeneral_DetectApplication(("lock" + std::to_string(worker.process.number)).c_str(),
                                              worker.process.site.directory.c_str()) == TRUE,
                 "the instance lock of this process is held");
}

} // namespace

void AddSystem(Operations& operations)
{
    operations.insert(operations.end(), {{"system", "paths", Paths, 3},
                                         {"system", "ticks", Ticks, 3},
                                         {"system", "times of files", FileTimes, 3},
                                         {"system", "threads", Threads, 2},
                                         {"system", "programs", Programs, 1},
                                         {"system", "programs aside", ProgramsAside, 1},
                                         {"system", "processes", Processes, 1}});
}

} // namespace strain
