// One log that all threads of all processes write to. What was written goes into a ledger a thread; at the end every record
// of the ledgers that no fault was injected into must be in the log, whole and once.
#include <ZKQ_general/log.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "../fault/fault.h"
#include "strain.h"

namespace strain {
namespace {

constexpr char kLetters[] = "abcdefghijklmnop";

/// A record's text, with its own name at either end.
std::string RecordOf(const std::string& name, size_t padding)
{
    return "<" + name + "#" + std::to_string(padding) + ":" + std::string(padding, kLetters[padding % 16]) + ":" +
           name + ">";
}

void Enter(const Worker& worker, const std::string& name, size_t padding)
{
    const fault::Calm calm;
    std::ofstream ledger(worker.process.site.directory + "/ledger." + std::to_string(worker.process.number) + "." +
                             std::to_string(worker.thread),
                         std::ios::app);
    ledger << name << ' ' << padding << ' ' << worker.Faults() << '\n';
    if (!ledger.flush().good())
        throw Wrong{"the program itself cannot write a ledger"};
}

void Record(Worker& worker)
{
    thread_local uint64_t number = 0;
    const std::string name =
        std::to_string(worker.process.number) + "/" + std::to_string(worker.thread) + "/" + std::to_string(number++);
    const size_t padding = worker.Below(8) == 0 ? worker.Below(6000) : worker.Below(40);
    const std::string text = RecordOf(name, padding);
    void* const log = worker.process.log;
    BOOL written = FALSE;
    switch (worker.Below(3)) {
    case 0:
        written = ZKQGeneral_RecordLogInfoEx(log, ZKQ_LOG_INFO, __FILE__, __LINE__, text.c_str());
        break;
    case 1:
        written = ZKQGeneral_RecordAppLogToFileEx_V(log, ZKQ_LOG_WARN, "%s", text.c_str());
        break;
    default:
        written = ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_ERROR, __FILE__, __LINE__, "%s", text.c_str());
    }
    Enter(worker, name, padding);
    worker.Must(written, "a record");
    if (worker.Faults() == 0)
        worker.process.site.shared->logged.fetch_add(1);
}

void OwnContext(Worker& worker)
{
    APPLOGINFO info = {};
    info.Version = 3;
    info.ProjectName = "own";
    const std::string directory = worker.process.site.directory + "/l";
    info.TempPath = directory.c_str();
    info.SubName = "sub";
    info.RecordThreadID = 1;
    info.bAlwaysLog = ZKQ_LOG_ALL;
    void* log = nullptr;
    worker.Must(ZKQGeneral_IsNeedLogFile(&info, &log), "IsNeedLogFile");
    const Holder release([&] { ZKQGeneral_FreeLogCtx(log); });
    const std::string file = worker.File("own.log");
    if (file.size() > 127)
        return;
    worker.Must(ZKQGeneral_SetAppLogFile(log, file.c_str()), "SetAppLogFile");
    const std::string word = worker.Word(10);
    worker.Must(ZKQGeneral_RecordBinaryLogInfoEx(log, ZKQ_LOG_INFO, Exact(word).Data(), 10, "dump"), "a dump");
    worker.Must(ZKQGeneral_RecordSystemErrorEx(log, ZKQ_LOG_ERROR, "f.c", 1, 2), "a system error");
    const std::string content = ReadWhole(file);
    worker.RightUnlessFault(content.find(" " + word + "\n") != std::string::npos, "the dump is in the log");
    worker.RightUnlessFault(content.find("No such file or directory") != std::string::npos, "the error is in the log");
}

struct Entry {
    size_t padding;
    bool faulted;
    int found;
};

std::map<std::string, Entry> ReadLedgers(const Site& site)
{
    std::map<std::string, Entry> entries;
    for (int process = 0; process < kProcesses; ++process)
        for (int thread = 0; thread < kThreads; ++thread) {
            std::ifstream ledger(site.directory + "/ledger." + std::to_string(process) + "." + std::to_string(thread));
            std::string name;
            size_t padding = 0;
            unsigned faults = 0;
            while (ledger >> name >> padding >> faults)
                entries[name] = {padding, faults > 0, 0};
        }
    return entries;
}

} // namespace

std::vector<std::string> JudgeLog(const Site& site, uint64_t* records)
{
    std::map<std::string, Entry> entries = ReadLedgers(site);
    const std::string log = ReadWhole(site.log);
    std::vector<std::string> findings;
    for (size_t at = log.find('<'); at != std::string::npos; at = log.find('<', at + 1)) {
        const size_t mark = log.find('#', at);
        const auto entry = mark == std::string::npos ? entries.end() : entries.find(log.substr(at + 1, mark - at - 1));
        if (entry == entries.end())
            continue; // torn by a fault, or what is whole would be missing below
        const std::string text = RecordOf(entry->first, entry->second.padding);
        if (log.compare(at, text.size(), text) == 0)
            ++entry->second.found;
    }
    *records = 0;
    for (const auto& [name, entry] : entries) {
        if (entry.found > 1)
            findings.push_back("record " + name + " is there " + std::to_string(entry.found) + " times");
        if (entry.faulted)
            continue;
        ++*records;
        if (entry.found == 0)
            findings.push_back("record " + name + " is lost or torn");
    }
    return findings;
}

void AddLog(Operations& operations)
{
    operations.insert(operations.end(), {{"log", "common log", Record, 8}, {"log", "own context", OwnContext, 2}});
}

} // namespace strain
