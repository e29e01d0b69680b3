// Many writers, one log: no torn line, no lost line, no deadlock.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "support/log_context.h"

namespace {

using support::AppInfo;
using support::LogContext;
using support::LogDir;
using support::ReadFile;

constexpr int kProcesses = 16;
constexpr int kThreads = 16;
constexpr int kRecords = 20; // of each thread

/// Runs `body` in processes of their own; true if every one of them said so.
template <class Body>
bool InProcesses(int count, Body body)
{
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i) {
        const pid_t child = fork();
        if (child == 0)
            _exit(body(i) ? 0 : 1);
        children.push_back(child);
    }
    bool allSaidSo = true;
    for (const pid_t child : children) {
        int status = 0;
        allSaidSo &= waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    return allSaidSo;
}

template <class Body>
void InThreads(int count, Body body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(body, i);
    for (auto& thread : threads)
        thread.join();
}

std::string TextOf(int process, int thread, int record)
{
    // Some long enough to be written piecemeal if anything were.
    const size_t padding = record % 5 == 0 ? 3000 : 10;
    return std::to_string(process) + "/" + std::to_string(thread) + "/" + std::to_string(record) + ":" +
           std::string(padding, static_cast<char>('a' + process));
}

TEST(LogConcurrency, SixteenProcessesOfSixteenThreadsLoseAndTearNothing)
{
    LogDir dir;
    const std::string shared = dir.File("shared.log");
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    info.RecordThreadID = 1;
    ASSERT_TRUE(InProcesses(kProcesses, [&](int process) {
        const LogContext ctx(info);
        bool written = ZKQGeneral_SetAppLogFile(ctx.Get(), shared.c_str());
        InThreads(kThreads, [&](int thread) {
            for (int record = 0; record < kRecords; ++record)
                ctx.Write(ZKQ_LOG_INFO, TextOf(process, thread, record).c_str());
        });
        return written;
    }));
    std::map<std::string, int> expected;
    for (int process = 0; process < kProcesses; ++process)
        for (int thread = 0; thread < kThreads; ++thread)
            for (int record = 0; record < kRecords; ++record)
                expected[TextOf(process, thread, record) + " - main.c,120"] = 1;
    std::istringstream log(ReadFile(shared));
    for (std::string line; std::getline(log, line);) {
        const size_t tag = line.find("][Info ] ");
        ASSERT_NE(tag, std::string::npos) << line;
        ASSERT_EQ(line.rfind("[TID: ", 0), 0u) << line;
        ASSERT_EQ(expected.erase(line.substr(tag + 9)), 1u) << "torn or twice: " << line;
    }
    EXPECT_TRUE(expected.empty()) << expected.size() << " lost, the first: " << expected.begin()->first;
}

TEST(LogConcurrency, FormattedRecordsAndDumpsAreNotTornEither)
{
    LogDir dir;
    const std::string shared = dir.File("shared.log");
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const std::string longText(20000, 'L');
    ASSERT_TRUE(InProcesses(4, [&](int process) {
        const LogContext ctx(info);
        ZKQGeneral_SetAppLogFile(ctx.Get(), shared.c_str());
        unsigned char data[] = "0123456789abcdefXYZ";
        InThreads(4, [&](int) {
            for (int i = 0; i < 20; ++i) {
                ZKQGeneral_RecordAppLogToFileEx2_V(ctx.Get(), 2, "m.c", process, "<%s>",
                                                   i % 4 == 0 ? longText.c_str() : "short");
                ZKQGeneral_RecordBinaryLogInfoEx(ctx.Get(), 2, data, 19, "dump");
            }
        });
        return true;
    }));
    std::string log = ReadFile(shared);
    const std::string dump = "[Info ] dump[Length: 19]\n"
                             "000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\n"
                             "010: 58 59 5a                                        XYZ\n\n";
    int dumps = 0;
    for (size_t at = log.find(dump); at != std::string::npos; at = log.find(dump, at)) {
        log.erase(at, dump.size());
        ++dumps;
    }
    EXPECT_EQ(dumps, 4 * 4 * 20);
    int lines = 0;
    std::istringstream rest(log);
    for (std::string line; std::getline(rest, line); ++lines) {
        const std::string text = line.substr(0, line.rfind(' '));
        ASSERT_TRUE(text == "[Info ] <short> m.c" || text == "[Info ] <" + longText + "> m.c") << line.substr(0, 100);
    }
    EXPECT_EQ(lines, 4 * 4 * 20);
}

TEST(LogConcurrency, TwoSinksOnOneFileDoNotLockEachOtherOut)
{
    LogDir dir;
    dir.Switch("allapp", 15);
    dir.Switch("server", 15);
    AppInfo info(dir, 2);
    const LogContext ctx(info);
    ASSERT_TRUE(ZKQGeneral_SetAppLogFile(ctx.Get(), dir.SharedLog().c_str()));
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_TRUE(ZKQGeneral_RecordAppLogToFileEx_V(ctx.Get(), 8, "formatted"));
    const std::string log = ReadFile(dir.SharedLog());
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 4) << log;
    ASSERT_EQ(link(dir.SharedLog().c_str(), dir.File("second-name.log").c_str()), 0);
    ASSERT_TRUE(ZKQGeneral_SetAppLogFile(ctx.Get(), "second-name.log"));
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_EQ(ReadFile(dir.SharedLog()).size(), ReadFile(dir.File("second-name.log")).size());
}

TEST(LogConcurrency, ContextsThatCrossTheirFilesDoNotDeadlock)
{
    LogDir dir;
    dir.Switch("allapp", 15);
    dir.Switch("server", 15);
    const std::string files[] = {dir.File("one.log"), dir.File("two.log")};
    ASSERT_TRUE(InProcesses(4, [&](int process) {
        AppInfo info(dir, 2);
        const LogContext ctx(info);
        // Each process's own log is what its neighbour's shared log is linked to.
        unlink(dir.SharedLog().c_str());
        return symlink(files[process % 2].c_str(), dir.SharedLog().c_str()) == 0 &&
               ZKQGeneral_SetAppLogFile(ctx.Get(), files[1 - process % 2].c_str()) && [&] {
                   for (int i = 0; i < 500; ++i)
                       ctx.Write(8);
                   return true;
               }();
    }));
    const std::string all = ReadFile(files[0]) + ReadFile(files[1]);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 4 * 500 * 2);
}

/// Holds the lock of a file in this process, through a descriptor of its own.
class Holder {
public:
    explicit Holder(const std::string& path) : fd_(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666))
    {
        EXPECT_EQ(flock(fd_, LOCK_EX), 0);
    }
    ~Holder() { Release(); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    void Release()
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
};

/// Waits until some process waits for a lock that this process holds on the file.
void WaitForWaiter(const std::string& path)
{
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    const std::string inode = ":" + std::to_string(status.st_ino) + " ";
    for (int tries = 0; tries < 5000; ++tries) {
        std::istringstream locks(ReadFile("/proc/locks"));
        for (std::string line; std::getline(locks, line);)
            if (line.find("->") != std::string::npos && line.find(inode) != std::string::npos)
                return;
        usleep(1000);
    }
    FAIL() << "nobody waits for " << path;
}

TEST(LogConcurrency, ARecordNeverGoesIntoALogThatWasRemovedWhileItWaited)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    Holder holder(dir.OwnLog());
    std::thread writer([&] { ctx.Write(8); });
    WaitForWaiter(dir.OwnLog());
    ASSERT_EQ(unlink(dir.OwnLog().c_str()), 0);
    holder.Release();
    writer.join();
    EXPECT_EQ(ReadFile(dir.OwnLog()), "[Error] text - main.c,120\n");
}

TEST(LogConcurrency, AnInterruptedLockIsTakenAllTheSame)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    struct sigaction ignore = {};
    ignore.sa_handler = [](int) {}; // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &ignore, nullptr), 0);
    Holder holder(dir.OwnLog());
    std::thread writer([&] { ctx.Write(8); });
    WaitForWaiter(dir.OwnLog());
    for (int i = 0; i < 5; ++i)
        pthread_kill(writer.native_handle(), SIGUSR1);
    WaitForWaiter(dir.OwnLog());
    EXPECT_EQ(ReadFile(dir.OwnLog()), "");
    holder.Release();
    writer.join();
    EXPECT_EQ(ReadFile(dir.OwnLog()), "[Error] text - main.c,120\n");
}

TEST(LogConcurrency, AKilledHolderLeavesNoLock)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        const Holder holder(dir.OwnLog());
        (void)!write(ready[1], "x", 1);
        for (;;)
            pause();
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    std::thread writer([&] { ctx.Write(8); });
    WaitForWaiter(dir.OwnLog());
    ASSERT_EQ(kill(child, SIGKILL), 0);
    writer.join();
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(ReadFile(dir.OwnLog()), "[Error] text - main.c,120\n");
}

TEST(LogConcurrency, WritersThatKeepDeletingEachOthersLogStayWhole)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    info.MaxFileLength = 200;
    ASSERT_TRUE(InProcesses(8, [&](int) {
        const LogContext ctx(info);
        for (int i = 0; i < 500; ++i)
            ctx.Write(8);
        return true;
    }));
    std::istringstream log(ReadFile(dir.OwnLog()));
    int lines = 0;
    for (std::string line; std::getline(log, line); ++lines)
        ASSERT_EQ(line, "[Error] text - main.c,120");
    EXPECT_GE(lines, 1);
    EXPECT_LE(lines, 200 / 26 + 1);
}

TEST(LogConcurrency, SettingsMayChangeWhileOthersWrite)
{
    LogDir dir;
    AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const LogContext ctx(info);
    InThreads(4, [&](int thread) {
        for (int i = 0; i < 200; ++i) {
            char path[128];
            if (thread == 0)
                ZKQGeneral_SetAppLogFile(ctx.Get(), i % 2 == 0 ? "a.log" : "b.log");
            else if (thread == 1)
                ZKQGeneral_GetAppLogFile(ctx.Get(), path);
            else
                ctx.Write(8);
        }
    });
    const std::string log = ReadFile(dir.File("a.log")) + ReadFile(dir.File("b.log")) + ReadFile(dir.OwnLog());
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2 * 200);
}

} // namespace
