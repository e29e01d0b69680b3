// Puts the whole library under strain: see strain.h. Ends with 0 if nothing was lost, leaked or wrong.
//
//   strain --seconds N [--seed N] [--corpus DIRECTORY]
#include <ZKQ_general/error.h>
#include <ZKQ_general/inifile.h>
#include <ZKQ_general/ping.h>
#include <ZKQ_general/syncobject.h>
#include <ZKQ_general/system.h>
#include <errno.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "../fault/fault.h"
#include "strain.h"

namespace strain {
namespace {

constexpr int kMostOperations = 64;
constexpr int kMostFindings = 50; // are told; all are counted
constexpr int kSlack = 300;       // seconds that the processes have to end

/// How it went with one operation in all processes.
struct Tally {
    std::atomic<uint64_t> runs, withFaults, faults, refused;
};
struct Board : Shared {
    Tally tallies[kMostOperations];
};

struct Options {
    int seconds = 10;
    uint64_t seed = 0;
    std::string corpus = ZKQ_STRAIN_CORPUS;
};

Operations AllOperations()
{
    Operations operations;
    AddFile(operations);
    AddIpc(operations);
    AddProfile(operations);
    AddLog(operations);
    AddText(operations);
    AddCompression(operations);
    AddXml(operations);
    AddJson(operations);
    AddMessage(operations);
    AddSystem(operations);
    AddNetwork(operations);
    return operations;
}

void Find(Shared& shared, const std::string& what)
{
    if (shared.wrong.fetch_add(1) < kMostFindings)
        fprintf(stderr, "strain: WRONG: %s\n", what.c_str());
}

double Now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// Every operation as often as it weighs.
std::vector<size_t> Lots(const Operations& operations)
{
    std::vector<size_t> lots;
    for (size_t i = 0; i < operations.size(); ++i)
        lots.insert(lots.end(), static_cast<size_t>(operations[i].weight), i);
    return lots;
}

/// The library's files of the operation before must not be met by the next.
void CleanUp(const Worker& worker)
{
    for (const auto& entry : std::filesystem::directory_iterator(worker.Directory()))
        std::filesystem::remove_all(entry.path());
}

void RunThread(Process& process, int thread, const Options& options, double end, const Operations& operations,
               Board& board)
{
    const uint64_t number = static_cast<uint64_t>(process.number * kThreads + thread);
    Worker worker(process, thread, options.seed * 1000 + number);
    const std::vector<size_t> lots = Lots(operations);
    while (Now() < end) {
        const size_t chosen = lots[worker.Below(lots.size())];
        const Operation& operation = operations[chosen];
        const bool withFaults = worker.Maybe();
        const Worker::Verdict verdict = worker.Run(operation.run, withFaults);
        Tally& tally = board.tallies[chosen];
        tally.runs.fetch_add(1);
        tally.withFaults.fetch_add(verdict.faults > 0 ? 1 : 0);
        tally.faults.fetch_add(verdict.faults);
        tally.refused.fetch_add(verdict.refused ? 1 : 0);
        if (verdict.wrong)
            Find(board, std::string(operation.family) + ", " + operation.name + ": " + verdict.what + " (process " +
                            std::to_string(process.number) + ", thread " + std::to_string(thread) + ", " +
                            std::to_string(verdict.faults) + " faults)");
        CleanUp(worker);
    }
}

/// What belongs to the process as long as it lives must not count as lost.
void Warm(const Site& site, int number)
{
    const std::string lock = "lock" + std::to_string(number);
    WriteWhole(site.directory + "/" + lock, "");
    ZKQGeneral_GetTickCount();
    if (!ZKQGeneral_SingleInstance(lock.c_str(), site.directory.c_str()))
        Find(*site.shared, "SingleInstance: the lock is free");
    // The handler that takes the status of programs that nobody waits for.
    ZKQGeneral_WinExecFile("/bin/true", nullptr, FALSE);
}

bool HasChildren()
{
#ifdef __SANITIZE_THREAD__
    // ThreadSanitizer puts handlers off, and forgets what it has put off when the thread ends: a signal may be missing.
    raise(SIGCHLD);
#endif
    // Programs aside may still be on their way out; their status is taken by the library's handler.
    for (int i = 0; i < 100 * kPatience; ++i) {
        siginfo_t info = {};
        if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD)
            return false;
        usleep(10000);
    }
    return true;
}

int RunProcess(const Site& site, int number, const Options& options, double end, Board& board)
{
    const Operations operations = AllOperations();
    Warm(site, number);
    const int descriptors = fault::OpenDescriptors();
    {
        Process process(site, number);
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&, i] { RunThread(process, i, options, end, operations, board); });
        for (std::thread& thread : threads)
            thread.join();
    }
    const std::string who = "process " + std::to_string(number) + ": ";
    if (const int now = fault::OpenDescriptors(); now != descriptors)
        Find(board, who + std::to_string(now) + " descriptors are open, " + std::to_string(descriptors) + " were");
    if (HasChildren())
        Find(board, who + "children are left");
    return 0;
}

std::vector<pid_t> StartProcesses(const Site& site, const Options& options, double end, Board& board)
{
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t child = fork();
        if (child == 0)
            exit(RunProcess(site, i, options, end, board)); // through the sanitizer's own look for leaks
        if (child < 0)
            Find(board, "a process cannot be started");
        else
            children.push_back(child);
    }
    return children;
}

void AwaitProcesses(std::vector<pid_t> children, double end, Board& board)
{
    while (!children.empty() && Now() < end + kSlack) {
        int status = 0;
        const pid_t child = waitpid(-1, &status, WNOHANG);
        if (child <= 0) {
            usleep(20000);
            continue;
        }
        std::erase(children, child);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            Find(board, "a process ended with status " + std::to_string(status) + ": what it has said stands above");
    }
    for (const pid_t child : children) {
        Find(board, "process " + std::to_string(child) + " hangs");
        kill(child, SIGABRT);
        waitpid(child, nullptr, 0);
    }
}

/// A profile that all read and nobody writes.
void MakeProfile(const Site& site)
{
    std::string text = "[common]\n";
    for (int i = 0; i < 20; ++i)
        text += "key" + std::to_string(i) + " = value " + std::to_string(i) + "\n";
    text += "[numbers]\n";
    for (int i = 0; i < 20; ++i)
        text += std::to_string(i) + " = " + std::to_string(i) + "\n";
    WriteWhole(site.profile, text);
}

bool HasAddress(int family)
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return false;
    bool has = false;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next)
        has |= strcmp(entry->ifa_name, "lo") == 0 && entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == family;
    freeifaddrs(list);
    return has;
}

SHAREDBLOCK BlockOf(const Site& site)
{
    SHAREDBLOCK block = {};
    block.Size = kBlockSize;
    block.SemName = block.ShmName = static_cast<unsigned long>(site.blockKey);
    block.SemID = block.ShmID = -1;
    return block;
}

/// Makes what all share. False if the system does not let us.
bool Prepare(Site& site, const Options& options, Board& board, SHAREDBLOCK& block)
{
    std::string pattern = "/tmp/strain.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        return false;
    site.directory = pattern;
    std::filesystem::create_directory(site.directory + "/l");
    site.log = site.directory + "/common.log";
    site.profile = site.directory + "/common.ini";
    site.tempPrefix = pattern.substr(strlen("/tmp/")) + "-";
    site.corpus = options.corpus;
    site.shared = &board;
    constexpr int kKeyBits = 15; // of a process's own
    site.firstKey = 0x10000000 | (getpid() & 0x1FFF) << kKeyBits;
    site.blockKey = site.firstKey + kProcesses * kThreads * kKeys;
    MakeProfile(site);
    site.semaphore = ZKQGeneral_SysCreateSemaphore(kUnits, 0, site.blockKey + 1);
    block = BlockOf(site);
    site.mayPing = Network_PingHost("127.0.0.1", 8, 5, nullptr, nullptr);
    site.hasIpv6 = HasAddress(AF_INET6);
    site.hasCard = HasAddress(AF_INET);
    return site.semaphore >= 0 && ZKQGeneral_ShbCreateBlock(&block);
}

void JudgeCommon(const Site& site, SHAREDBLOCK& block, Board& board)
{
    if (const int units = semctl(site.semaphore, 0, GETVAL); units != kUnits)
        Find(board, "the common semaphore has " + std::to_string(units) + " units");
    void* const handle = ZKQGeneral_ShbConnectBlock(&block);
    const auto* const counter = static_cast<const uint64_t*>(ZKQGeneral_ShbLock(handle, 5));
    if (counter == nullptr) {
        Find(board, "the common block cannot be locked");
    } else if (*counter != board.blockAdded) {
        Find(board,
             "the common block's counter is " + std::to_string(*counter) + ", not " + std::to_string(board.blockAdded));
    } else {
        printf("strain: the common block's counter is %lu, as counted\n", static_cast<unsigned long>(*counter));
    }
    ZKQGeneral_ShbUnlock(handle);
    ZKQGeneral_ShbCloseBlock(handle);
    uint64_t records = 0;
    const std::vector<std::string> findings = JudgeLog(site, &records);
    for (const std::string& finding : findings)
        Find(board, "log: " + finding);
    if (records < board.logged)
        Find(board, "the ledgers have " + std::to_string(records) + " records, not " + std::to_string(board.logged));
    printf("strain: %lu records without faults, %zu lost or torn\n", static_cast<unsigned long>(records),
           findings.size());
}

/// System V objects of this run, by their keys.
int CountObjects(const Site& site, const char* table)
{
    std::ifstream in(table);
    std::string line;
    int count = 0;
    while (std::getline(in, line)) {
        const long key = strtol(line.c_str(), nullptr, 10);
        count += key >= site.firstKey && key <= site.blockKey + 1;
    }
    return count;
}

void JudgeRemains(const Site& site, Board& board)
{
    for (const char* table : {"/proc/sysvipc/sem", "/proc/sysvipc/shm"})
        if (const int count = CountObjects(site, table); count > 0)
            Find(board, std::to_string(count) + " objects are left in " + table);
    for (const auto& entry : std::filesystem::directory_iterator("/tmp"))
        if (entry.path().filename().string().starts_with(site.tempPrefix))
            Find(board, "a temporary file is left: " + entry.path().string());
    std::filesystem::remove_all(site.directory);
}

void Report(const Board& board, const Site& site)
{
    const Operations operations = AllOperations();
    uint64_t runs = 0;
    uint64_t faults = 0;
    printf("%-18s %-20s %10s %12s %10s %10s\n", "family", "operation", "runs", "with faults", "faults", "refused");
    for (size_t i = 0; i < operations.size(); ++i) {
        const Tally& tally = board.tallies[i];
        const bool isSkipped = strcmp(operations[i].family, "ping") == 0 && !site.mayPing;
        printf("%-18s %-20s %10lu %12lu %10lu %10lu%s\n", operations[i].family, operations[i].name, tally.runs.load(),
               tally.withFaults.load(), tally.faults.load(), tally.refused.load(),
               isSkipped ? " SKIPPED: this host may not be pinged" : "");
        runs += tally.runs;
        faults += tally.faults;
    }
    printf("strain: %d processes of %d threads, %lu operations, %lu faults, %d findings\n", kProcesses, kThreads, runs,
           faults, board.wrong.load());
}

int Run(const Options& options)
{
    if (AllOperations().size() > kMostOperations) {
        fprintf(stderr, "strain: more operations than the board has room for\n");
        return 2;
    }
    void* const memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return 2;
    Board& board = *new (memory) Board();
    Site site;
    SHAREDBLOCK block;
    const int descriptors = fault::OpenDescriptors();
    if (!Prepare(site, options, board, block)) {
        fprintf(stderr, "strain: cannot begin: %s\n", ZKQGeneral_GetGeneralErrorInfo());
        return 2;
    }
    printf("strain: seed %lu, %d seconds, in %s\n", static_cast<unsigned long>(options.seed), options.seconds,
           site.directory.c_str());
    fflush(stdout);
    const double end = Now() + options.seconds;
    AwaitProcesses(StartProcesses(site, options, end, board), end, board);
    JudgeCommon(site, block, board);
    ZKQGeneral_ShbDestroyBlock(&block);
    ZKQGeneral_SysKillSemaphore(site.semaphore);
    JudgeRemains(site, board);
    if (fault::OpenDescriptors() != descriptors)
        Find(board, "descriptors of the first process are left open");
    Report(board, site);
    return board.wrong == 0 ? 0 : 1;
}

} // namespace
} // namespace strain

int main(int argc, char** argv)
{
    strain::Options options;
    options.seed = static_cast<uint64_t>(time(nullptr));
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--seconds")
            options.seconds = atoi(argv[i + 1]);
        else if (name == "--seed")
            options.seed = strtoull(argv[i + 1], nullptr, 10);
        else if (name == "--corpus")
            options.corpus = argv[i + 1];
    }
    return strain::Run(options);
}
