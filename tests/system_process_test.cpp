// Running programs: searching, waiting, time-outs, and the children that a handler reaps. What changes the process for good
// happens in children.
#include <ZKQ_general/system.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/error_text.h"
#include "support/paths.h"
#include "support/signals.h"
#include "support/temp_dir.h"

namespace {

using support::ReadFile;
using support::TempDir;
using support::WriteFile;

constexpr DWORD kUnset = 0xAAAAAAAABBBBBBBB;

/// The exit status of a shell command, kUnset if it could not be run.
DWORD Status(const std::string& command, int timeout = 0)
{
    DWORD code = kUnset;
    const std::string parameter = "-c '" + command + "'";
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCodeEx("/bin/sh", parameter.c_str(), TRUE, &code, timeout))
        << support::ErrorText();
    return code;
}

void WriteProgram(const std::string& path, const std::string& text)
{
    WriteFile(path, "#!/bin/sh\n" + text + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::all);
}

bool Eventually(const std::function<bool()>& condition)
{
    for (int i = 0; i < 1000; ++i) {
        if (condition())
            return true;
        usleep(10'000);
    }
    return false;
}

/// No child is left, neither running nor as a zombie.
bool HasNoChildren()
{
    siginfo_t child = {};
    return waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD;
}

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(RunProgram, FindsItGivesItArgumentsAndReturnsItsStatus)
{
    DWORD code = kUnset;
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("sh", "-c 'exit 3'", TRUE, &code));
    EXPECT_EQ(code, 3u) << "all 64 bits are written";
    for (const DWORD status : {0, 1, 127, 255})
        EXPECT_EQ(Status("exit " + std::to_string(status)), status);
    EXPECT_TRUE(ZKQGeneral_WinExecFile("sh", "-c 'exit 3'", TRUE)) << "a failed program was run all the same";
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("sh", "-c 'exit 3'", TRUE, nullptr));
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCodeEx("sh", "-c 'exit 3'", TRUE, nullptr, 5));
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCodeEx("sh", "-c 'exit 4'", TRUE, &code, -5)) << "no limit";
    EXPECT_EQ(code, 4u);
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("true", nullptr, TRUE, &code));
    EXPECT_EQ(code, 0u);
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("false", "", TRUE, &code));
    EXPECT_EQ(code, 1u);
}

TEST(RunProgram, EndedByASignalHasStatusZero)
{
    DWORD code = kUnset;
    // The outer shell itself is what ends.
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("/bin/true", "; kill -9 $$", TRUE, &code));
    EXPECT_EQ(code, 0u);
}

TEST(RunProgram, IsAllShellSyntax)
{
    const TempDir dir;
    DWORD code = kUnset;
    const std::string file = dir.File("a b");
    const std::string parameter = "x 'y  z' >'" + file + "'; exit 7";
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("echo", parameter.c_str(), TRUE, &code));
    EXPECT_EQ(code, 7u);
    EXPECT_EQ(ReadFile(file), "x y  z\n");
    // The name is not quoted either: what exists is run as several words.
    WriteProgram(dir.File("sh"), "exit 6");
    WriteProgram(dir.File("sh more"), "exit 5");
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode(dir.File("sh more").c_str(), nullptr, TRUE, &code));
    EXPECT_EQ(code, 6u);
}

TEST(RunProgram, ThatIsNotThere)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        setenv("PATH", dir.Path().c_str(), 1);
        DWORD code = kUnset;
        for (const char* const name : {"none", "./none", "/none/none", "none/"}) {
            for (const BOOL wait : {TRUE, FALSE}) {
                support::MarkErrorText();
                EXPECT_FALSE(ZKQGeneral_WinExecFileAndGetRetCodeEx(name, "x", wait, &code, 1));
                EXPECT_SYSTEM_ERROR(ENOENT);
                support::MarkErrorText();
                EXPECT_FALSE(ZKQGeneral_WinExecFile(nullptr, "x", wait));
                EXPECT_SYSTEM_ERROR(EINVAL);
            }
        }
        EXPECT_EQ(code, kUnset);
        struct sigaction action = {};
        sigaction(SIGCHLD, nullptr, &action);
        EXPECT_EQ(action.sa_handler, SIG_DFL) << "nothing was started";
    });
}

/// Runs the program "prog" with a PATH; its status, or kUnset.
DWORD RunFrom(const std::string& path, const char* name = "prog")
{
    setenv("PATH", path.c_str(), 1);
    DWORD code = kUnset;
    ZKQGeneral_WinExecFileAndGetRetCode(name, nullptr, TRUE, &code);
    return code;
}

TEST(RunProgram, ALinkThatLeadsNowhereIsThere)
{
    const TempDir dir;
    const std::string link = dir.File("link");
    std::filesystem::create_symlink("nonesuch", link);
    DWORD code = 7;
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode(link.c_str(), "2>/dev/null", TRUE, &code));
    EXPECT_EQ(code, 127u) << "says the shell";
}

TEST(RunProgram, IsSearchedInOrder)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        for (const char* const name : {"one", "two", "here", "blocked", "folder/prog", "relative"})
            std::filesystem::create_directories(dir.File(name));
        WriteProgram(dir.File("one/prog"), "exit 1");
        WriteProgram(dir.File("two/prog"), "exit 2");
        WriteProgram(dir.File("here/prog"), "exit 3");
        std::filesystem::create_directories(dir.File("here/relative"));
        WriteProgram(dir.File("here/relative/prog"), "exit 4");
        WriteFile(dir.File("blocked/prog"), "");
        const std::string one = dir.File("one");
        const std::string two = dir.File("two");
        EXPECT_EQ(chdir(dir.File("here").c_str()), 0);
        EXPECT_EQ(RunFrom(one + ":" + two), 1u);
        EXPECT_EQ(RunFrom(two + ":" + one), 2u);
        EXPECT_EQ(RunFrom(two + "/"), 2u);
        EXPECT_EQ(RunFrom("::/none:" + two + "::"), 2u) << "empty entries are none";
        EXPECT_EQ(RunFrom("/none"), 3u) << "the working directory at last";
        EXPECT_EQ(RunFrom(":"), 3u);
        EXPECT_EQ(RunFrom("relative:" + one), 4u);
        EXPECT_EQ(RunFrom(std::string(5000, 'x') + ":" + std::string(300, '/') + two), 2u) << "of any length";
        EXPECT_EQ(RunFrom(two, "./prog"), 3u) << "a name with a slash is not searched";
        EXPECT_EQ(RunFrom(dir.File("blocked") + ":" + one), 126u) << "the first that exists";
        EXPECT_EQ(RunFrom(dir.File("folder") + ":" + one), 126u);
        EXPECT_EQ(RunFrom(""), 3u) << "as given; an empty entry is the working directory for the shell";
        EXPECT_EQ(RunFrom("", "prog2"), kUnset);
        unsetenv("PATH");
        DWORD code = kUnset;
        EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("prog", nullptr, TRUE, &code)) << "it exists";
        EXPECT_EQ(code, 127u) << "but the shell has no reason to look for it here";
        EXPECT_FALSE(ZKQGeneral_WinExecFileAndGetRetCode("sh", "-c true", TRUE, &code));
        EXPECT_SYSTEM_ERROR(ENOENT);
    });
}

TEST(RunProgram, InADeepWorkingDirectoryIsNotFound)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        EXPECT_EQ(chdir(dir.Path().c_str()), 0);
        size_t length = dir.Path().size();
        while (length < 299) { // bytes of the working directory, without the NUL
            const std::string name(std::min<size_t>(100, 299 - length - 1), 'd');
            if (299 - length == 1 + name.size() + 1) // would leave no room for a last "/x"
                break;
            EXPECT_EQ(mkdir(name.c_str(), 0777) + chdir(name.c_str()), 0);
            length += 1 + name.size();
        }
        WriteProgram("prog", "exit 9");
        EXPECT_EQ(RunFrom("/none"), 9u) << length;
        EXPECT_EQ(mkdir("dd", 0777) + chdir("dd"), 0);
        WriteProgram("prog", "exit 9");
        EXPECT_EQ(RunFrom("/none"), kUnset) << length;
        EXPECT_EQ(chdir("/"), 0);
    });
}

/// In a child: puts a file in the place of the shell.
void ReplaceShell(const std::string& file)
{
    support::EnterPrivateMounts();
    if (mount(file.c_str(), "/bin/sh", "none", MS_BIND, nullptr) != 0)
        support::SkipChild("bind mount");
}

TEST(RunProgram, TellsTheShellPathAndParameter)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        WriteFile(dir.File("shell"), "#!/bin/bash\nprintf '<%s>' \"$@\" >" + dir.File("out") + "\n");
        std::filesystem::permissions(dir.File("shell"), std::filesystem::perms::all);
        ReplaceShell(dir.File("shell"));
        setenv("PATH", "/bin/", 1);
        EXPECT_TRUE(ZKQGeneral_WinExecFile("ls", "  -l 'x ", TRUE));
        EXPECT_EQ(ReadFile(dir.File("out")), "<-c></bin/ls   -l 'x >");
        EXPECT_TRUE(ZKQGeneral_WinExecFile("ls", "", TRUE));
        EXPECT_EQ(ReadFile(dir.File("out")), "<-c></bin/ls>");
        EXPECT_TRUE(ZKQGeneral_WinExecFile("ls", nullptr, TRUE));
        EXPECT_EQ(ReadFile(dir.File("out")), "<-c></bin/ls>");
    });
}

TEST(RunProgram, WithoutAShellEndsWith127)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        WriteFile(dir.File("shell"), "");
        ReplaceShell(dir.File("shell"));
        DWORD code = kUnset;
        EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("/bin/ls", "", TRUE, &code));
        EXPECT_EQ(code, 127u);
        EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCodeEx("/bin/ls", "", TRUE, &code, 3));
        EXPECT_EQ(code, 127u);
        EXPECT_TRUE(ZKQGeneral_WinExecFile("/bin/ls", "", FALSE));
        EXPECT_TRUE(Eventually(HasNoChildren));
    });
}

TEST(RunProgram, ParametersMayBeLong)
{
    DWORD code = kUnset;
    const std::string fits = std::string(100'000, ' ') + "; exit 8";
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("true", fits.c_str(), TRUE, &code));
    EXPECT_EQ(code, 8u);
    const std::string tooLong = std::string(10'000'000, ' ') + "; exit 8"; // for the kernel
    EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCode("true", tooLong.c_str(), TRUE, &code));
    EXPECT_EQ(code, 127u);
}

TEST(RunProgram, NoMoreProcessesAreAFailure)
{
    RUN_IN_CHILD([] {
        if (geteuid() != 0)
            support::SkipChild("not the superuser");
        support::BecomeNobody();
        const rlimit none = {0, 0};
        EXPECT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
        DWORD code = kUnset;
        for (const BOOL wait : {TRUE, FALSE}) {
            support::MarkErrorText();
            EXPECT_FALSE(ZKQGeneral_WinExecFileAndGetRetCode("/bin/true", "", wait, &code));
            EXPECT_SYSTEM_ERROR(EAGAIN);
        }
        EXPECT_EQ(code, kUnset);
    });
}

TEST(RunProgram, WithoutWaitingReturnsAtOnceAndLeavesNoZombie)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        const std::string pipe = dir.File("pipe");
        EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        DWORD code = kUnset;
        EXPECT_TRUE(ZKQGeneral_WinExecFileAndGetRetCodeEx("cat", pipe.c_str(), FALSE, &code, 1));
        EXPECT_EQ(code, kUnset);
        EXPECT_FALSE(HasNoChildren()) << "it waits for somebody who writes";
        close(open(pipe.c_str(), O_WRONLY));
        EXPECT_TRUE(Eventually(HasNoChildren));
    });
}

TEST(RunProgram, TheHandlerReapsOtherChildrenToo)
{
    RUN_IN_CHILD([] {
        EXPECT_TRUE(ZKQGeneral_WinExecFile("true", "", FALSE));
        for (int i = 0; i < 20; ++i)
            if (fork() == 0)
                _exit(i);
        EXPECT_TRUE(Eventually(HasNoChildren));
        struct sigaction action = {};
        sigaction(SIGCHLD, nullptr, &action);
        EXPECT_TRUE(action.sa_flags & SA_RESTART) << "calls of the program are not interrupted";
        // It leaves errno alone, be there something to reap or not.
        errno = 12345;
        raise(SIGCHLD);
        EXPECT_EQ(errno, 12345);
        sigset_t child;
        sigemptyset(&child);
        sigaddset(&child, SIGCHLD);
        sigprocmask(SIG_BLOCK, &child, nullptr);
        if (fork() == 0)
            _exit(0);
        siginfo_t info;
        waitid(P_ALL, 0, &info, WEXITED | WNOWAIT);
        errno = 12345;
        sigprocmask(SIG_UNBLOCK, &child, nullptr);
        EXPECT_EQ(errno, 12345);
        EXPECT_TRUE(HasNoChildren());
    });
}

TEST(RunProgram, WaitingInstallsNoHandler)
{
    RUN_IN_CHILD([] {
        EXPECT_EQ(Status("exit 1"), 1u);
        struct sigaction action = {};
        sigaction(SIGCHLD, nullptr, &action);
        EXPECT_EQ(action.sa_handler, SIG_DFL);
        EXPECT_TRUE(HasNoChildren());
        const pid_t own = fork();
        if (own == 0)
            _exit(5);
        EXPECT_EQ(Status("exit 2"), 2u);
        int status = 0;
        EXPECT_EQ(waitpid(own, &status, 0), own) << "children of the program's own are left to it";
    });
}

TEST(RunProgram, EveryoneGetsHisOwnStatusWhileTheHandlerReaps)
{
    RUN_IN_CHILD([] {
        EXPECT_TRUE(ZKQGeneral_WinExecFile("true", "", FALSE));
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 8; ++thread)
            threads.emplace_back([thread] {
                for (int round = 0; round < 15; ++round) {
                    const unsigned expected = static_cast<unsigned>(thread * 20 + round);
                    EXPECT_EQ(Status("exit " + std::to_string(expected)), expected);
                }
                EXPECT_EQ(Status("exit 250", 5), 250u);
            });
        for (int i = 0; i < 50; ++i) {
            const pid_t own = fork();
            if (own == 0)
                _exit(1);
            EXPECT_TRUE(i % 5 != 0 || ZKQGeneral_WinExecFile("true", "", FALSE));
            usleep(1000);
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_TRUE(Eventually(HasNoChildren)) << "all others are reaped";
    });
}

TEST(RunProgram, AStatusThatTheSystemHasThrownAwayIsAFailure)
{
    RUN_IN_CHILD([] {
        signal(SIGCHLD, SIG_IGN);
        for (const int timeout : {0, 3}) {
            DWORD code = kUnset;
            support::MarkErrorText();
            EXPECT_FALSE(ZKQGeneral_WinExecFileAndGetRetCodeEx("true", "", TRUE, &code, timeout));
            EXPECT_SYSTEM_ERROR(ECHILD);
            EXPECT_EQ(code, kUnset);
        }
    });
}

TEST(RunProgram, ATimeOutLeavesItRunning)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        const std::string parameter = "-c 'echo $$ >" + dir.File("pid") + "; exec sleep 10'";
        DWORD code = kUnset;
        const auto start = std::chrono::steady_clock::now();
        {
            const support::SignalStorm storm;
            EXPECT_FALSE(ZKQGeneral_WinExecFileAndGetRetCodeEx("sh", parameter.c_str(), TRUE, &code, 2));
        }
        const double took = SecondsSince(start);
        EXPECT_SYSTEM_ERROR(ETIME);
        EXPECT_EQ(code, kUnset);
        EXPECT_GE(took, 2.0);
        EXPECT_LT(took, 3.9);
        const pid_t pid = std::stoi(ReadFile(dir.File("pid")));
        EXPECT_EQ(kill(pid, SIGKILL), 0) << "it is still there";
        EXPECT_GT(waitpid(-1, nullptr, 0), 0);
    });
}

TEST(RunProgram, SignalsDoNotEndTheWait)
{
    RUN_IN_CHILD([] {
        const support::SignalStorm storm;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Status("sleep 0.3; exit 5"), 5u);
        EXPECT_GE(SecondsSince(start), 0.3);
    });
}

TEST(RunProgram, IsLookedAtOnceASecond)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Status("sleep 0.1; exit 6", 9), 6u);
    EXPECT_GE(SecondsSince(start), 1.0);
    EXPECT_LT(SecondsSince(start), 4.0);
}

long MinorFaults()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

/// Writes to every page; the page faults that it takes.
long Touch(char* memory, size_t size)
{
    const long before = MinorFaults();
    for (size_t at = 0; at < size; at += 4096)
        static_cast<volatile char*>(memory)[at] = 1;
    return MinorFaults() - before;
}

TEST(RunProgram, CostsNoCopyOfALargeCallersPageTables)
{
    RUN_IN_CHILD([] {
        constexpr size_t kReserved = size_t{20} << 30;
        constexpr size_t kTouched = size_t{256} << 20;
        constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
        void* const reserved = mmap(nullptr, kReserved, PROT_NONE, kFlags, -1, 0);
        void* const memory = mmap(nullptr, kTouched, PROT_READ | PROT_WRITE, kFlags, -1, 0);
        if (reserved == MAP_FAILED || memory == MAP_FAILED)
            support::SkipChild("address space");
        madvise(memory, kTouched, MADV_NOHUGEPAGE);
        auto* const bytes = static_cast<char*>(memory);
        Touch(bytes, kTouched);
        EXPECT_EQ(Status("exit 3"), 3u);
        EXPECT_TRUE(ZKQGeneral_WinExecFile("true", "", FALSE));
        EXPECT_LT(Touch(bytes, kTouched), 2000) << "a copy makes each page fault again";
        const pid_t copy = fork();
        if (copy == 0)
            _exit(0);
        EXPECT_GT(Touch(bytes, kTouched), 50'000) << "as it does here";
        EXPECT_TRUE(Eventually(HasNoChildren));
    });
}

} // namespace
