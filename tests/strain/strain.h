// What the strain program's operations are made of. Eight processes of sixteen threads run operations of every family in
// random order, half of them with faults injected at random. Each operation judges its own results.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace fault {
class Random;
}

namespace strain {

constexpr int kProcesses = 8;
constexpr int kThreads = 16;
constexpr int kPatience = 120; // seconds that a wait for a peer or for a lock may take when all processors are busy

/// Ends an operation: the library has reported a failure, which is right only if a fault was injected.
struct Refused {
    std::string what;
};
/// Ends an operation: a result is wrong, fault or not.
struct Wrong {
    std::string what;
};

/// What all processes share.
struct Shared {
    std::atomic<uint64_t> blockAdded; ///< what the successful operations have added to the shared block's counter
    std::atomic<uint64_t> logged;     ///< records written without a fault
    std::atomic<int> wrong;           ///< operations and balances that were not right
};

/// Places and names that all processes know.
struct Site {
    std::string directory;
    std::string log;        ///< the log that all write to
    std::string profile;    ///< a profile that all read
    std::string tempPrefix; ///< of temporary files
    std::string corpus;     ///< directory of certificates
    int semaphore = -1;     ///< with kUnits units
    int firstKey = 0;       ///< System V keys from here on are this run's, each thread has kKeys of its own
    int blockKey = 0;       ///< of the shared block and its lock
    bool mayPing = false;
    bool hasIpv6 = false;
    bool hasCard = false; ///< whether there is an interface "lo" to be asked
    Shared* shared = nullptr;
};
constexpr int kUnits = 5;
constexpr int kKeys = 4;
constexpr unsigned kBlockSize = 4096;

/// What the threads of a process share.
class Process {
public:
    Process(const Site& site, int number);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    const Site& site;
    const int number;
    void* log = nullptr;                         ///< a context for all threads
    int httpPort = 0;                            ///< of the server that answers this process
    std::string program;                         ///< path of this program
    std::string commandLine;                     ///< as /proc has it, arguments joined
    std::mutex routes;                           ///< calls of ip.h are serialised
    std::vector<std::string> certificates;       ///< DER of the corpus
    std::vector<std::string> certificatesAsTold; ///< what each tells when nothing else runs
private:
    struct Server;
    std::unique_ptr<Server> server_;
};

/// A thread's hands.
class Worker {
public:
    Worker(Process& process, int thread, uint64_t seed);

    Process& process;
    const int thread;

    /// A number below a limit.
    size_t Below(size_t limit) { return limit == 0 ? 0 : random_() % limit; }
    bool Maybe() { return Below(2) == 0; }
    uint64_t Next() { return random_(); }
    std::string Bytes(size_t size);
    /// Letters and digits.
    std::string Word(size_t size);
    /// Path of a file in the thread's own directory.
    std::string File(const std::string& name) const { return directory_ + "/" + name; }
    const std::string& Directory() const { return directory_; }
    /// A System V key of the thread's own.
    int Key(int number) const;

    /// Faults injected into the running operation.
    unsigned Faults() const;
    bool InjectsFaults() const { return faults_ != nullptr; }
    /// The library says whether it has succeeded.
    void Must(bool succeeded, const char* what) const;
    /// A result that must be so.
    void Right(bool right, const char* what) const;
    /// A result that must be so unless a fault was injected: where failures are not reported, as documented.
    void RightUnlessFault(bool right, const char* what) const;

    /// Runs an operation; its own number and whether it went as it must.
    struct Verdict {
        bool wrong = false;
        bool refused = false;
        unsigned faults = 0;
        std::string what;
    };
    Verdict Run(void (*operation)(Worker&), bool withFaults);

private:
    std::mt19937_64 random_;
    std::string directory_;
    fault::Random* faults_ = nullptr;
    std::unique_ptr<fault::Random> owner_;
};

struct Operation {
    const char* family;
    const char* name;
    void (*run)(Worker&);
    int weight; ///< how often it is chosen
};
using Operations = std::vector<Operation>;

// One file a family or group.
void AddFile(Operations& operations);
void AddIpc(Operations& operations);
void AddProfile(Operations& operations);
void AddLog(Operations& operations);
void AddText(Operations& operations);
void AddCompression(Operations& operations);
void AddXml(Operations& operations);
void AddJson(Operations& operations);
void AddMessage(Operations& operations);
void AddSystem(Operations& operations);
void AddNetwork(Operations& operations);

/// Bytes of an exact block of the heap, so that one too many is seen.
class Exact {
public:
    explicit Exact(size_t size) : bytes_(new unsigned char[size]), size_(size) {}
    explicit Exact(std::string_view content) : Exact(content.size())
    {
        content.copy(reinterpret_cast<char*>(bytes_.get()), content.size());
    }
    unsigned char* Data() const { return bytes_.get(); }
    char* Text() const { return reinterpret_cast<char*>(bytes_.get()); }
    int Size() const { return static_cast<int>(size_); }
    std::string String(size_t size) const { return {Text(), size}; }

private:
    std::unique_ptr<unsigned char[]> bytes_;
    size_t size_;
};

/// What the library has handed out to be released by ZKQGeneral_FreeMallocBuffer().
struct Releaser {
    void operator()(void* block) const;
};
template <class T>
using Owned = std::unique_ptr<T, Releaser>;

/// An object with a function of its own that releases it.
template <class Release>
class Holder {
public:
    explicit Holder(Release release) : release_(release) {}
    ~Holder() { release_(); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

private:
    Release release_;
};

/// The process-wide error text as callers read it: while others write it. Whatever they do, it is terminated. The library
/// stores its bytes atomically; this reading, which the interface leaves to callers, is the race that is documented, and is
/// hidden from ThreadSanitizer.
std::string ReadErrorText();

// Without faults, whoever calls.
std::string ReadWhole(const std::string& path);
void WriteWhole(const std::string& path, const std::string& content);

/// Says what a certificate tells, or nothing after a failure.
std::string TellCertificate(const std::string& bytes, int* error);

/// Looks whether every record that was told to the ledgers is in the log, whole and once. Returns what is wrong.
std::vector<std::string> JudgeLog(const Site& site, uint64_t* records);

} // namespace strain
