// Processes by their command lines, among those of a namespace of the tests' own; instance locks; start at boot.
#include <ZKQ_general/system.h>
#include <fcntl.h>
#include <sys/file.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/error_text.h"
#include "support/paths.h"
#include "support/temp_dir.h"

namespace {

using support::ReadFile;
using support::TempDir;
using support::WriteFile;

/// Runs a part as the first process of a namespace, so that no others are about, with a /proc that shows it.
template <class Part>
bool RunAmongOwnProcesses(Part part, const char* options = "")
{
    return support::RunInChild([&] {
        support::EnterPrivateMounts();
        if (unshare(CLONE_NEWPID) != 0)
            support::SkipChild("namespace of processes");
        // The outer child passes on whether the inner one has skipped.
        if (!support::RunInChild([&] {
                if (mount("proc", "/proc", "proc", 0, options) != 0)
                    support::SkipChild("/proc");
                part();
            }))
            _exit(support::kChildSkips);
    });
}
#define RUN_AMONG_OWN_PROCESSES(...)                                                                                   \
    if (!RunAmongOwnProcesses(__VA_ARGS__))                                                                            \
    GTEST_SKIP() << "the system does not allow this test, see above"

/// A process that sleeps under a command line, until it is killed.
class Sleeper {
public:
    explicit Sleeper(std::vector<std::string> arguments)
    {
        int ready[2];
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            std::vector<char*> list;
            for (std::string& argument : arguments)
                list.push_back(argument.data());
            list.push_back(nullptr);
            execv("/bin/sleep", list.data());
            _exit(1);
        }
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 0) << "the pipe ends with the program before";
        close(ready[0]);
        // The new command line is there a moment later.
        const std::string file = "/proc/" + std::to_string(pid_) + "/cmdline";
        for (int i = 0; i < 10'000 && !ReadFile(file).starts_with(arguments[0]); ++i)
            usleep(1000);
    }
    ~Sleeper()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Sleeper(Sleeper&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
    Sleeper& operator=(Sleeper&&) = delete;

    /// It is killed by SIGKILL before long.
    bool WasKilled()
    {
        int status = 0;
        pid_t ended = 0;
        for (int i = 0; i < 1000 && ended == 0; ++i) {
            ended = waitpid(pid_, &status, WNOHANG);
            usleep(ended == 0 ? 10'000 : 0);
        }
        if (ended != pid_)
            return false;
        pid_ = 0;
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }
    /// It runs, and a kill that was sent would have come by now.
    bool IsAlive() const
    {
        usleep(50'000);
        return waitpid(pid_, nullptr, WNOHANG) == 0;
    }

private:
    pid_t pid_ = 0;
};

bool IsRunning(const std::string& commandLine)
{
    int running = 77;
    EXPECT_TRUE(ZKQGeneral_IsApplicationRunning(commandLine.c_str(), &running)) << support::ErrorText();
    EXPECT_TRUE(running == 0 || running == 1);
    return running == 1;
}

TEST(FindProcess, ByItsWholeCommandLine)
{
    RUN_AMONG_OWN_PROCESSES([] {
        {
            const Sleeper sleeper({"./Some program", "1000"});
            EXPECT_TRUE(IsRunning("./Some program 1000"));
            for (const char* const other : {"./Some program", "./Some program 1000 ", "./some program 1000",
                                            "Some program 1000", "./Some program 100", "sleep", "/bin/sleep 1000"})
                EXPECT_FALSE(IsRunning(other)) << other;
        }
        EXPECT_FALSE(IsRunning("./Some program 1000")) << "it has ended";
        const Sleeper two({"x", "999", "1"});
        EXPECT_TRUE(IsRunning("x 999 1"));
    });
}

TEST(FindProcess, AmongAllOfTheSystem)
{
    const std::string name = "zkq-test-" + std::to_string(getpid());
    Sleeper sleeper({name, "506"});
    EXPECT_TRUE(IsRunning(name + " 506"));
    support::MarkErrorText();
    // Others may end while the list is read, which is a failure without a text.
    ZKQGeneral_TerminateApplication((name + " 506").c_str());
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_TRUE(sleeper.WasKilled());
    EXPECT_FALSE(IsRunning(name + " 506"));
}

TEST(FindProcess, EmptyArgumentsAreNotPassedOver)
{
    RUN_AMONG_OWN_PROCESSES([] {
        // A shell that waits; its command line is "sh", "-c", "read x", "", "b".
        int input[2];
        ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
        const pid_t pid = fork();
        if (pid == 0) {
            dup2(input[0], STDIN_FILENO);
            execl("/bin/sh", "sh", "-c", "read x", "", "b", nullptr);
            _exit(1);
        }
        const std::string file = "/proc/" + std::to_string(pid) + "/cmdline";
        while (!ReadFile(file).starts_with("sh"))
            usleep(1000);
        EXPECT_FALSE(IsRunning("sh -c read x"));
        EXPECT_FALSE(IsRunning("sh -c read x  b"));
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    });
}

TEST(FindProcess, LongCommandLinesAreCut)
{
    RUN_AMONG_OWN_PROCESSES([] {
        const std::string name(2040, 'n');
        const Sleeper exact({name, "100000"}); // 2047 bytes
        const Sleeper longer({name + "mm", "1000", std::string(5000, '1')});
        EXPECT_TRUE(IsRunning(name + " 100000"));
        const std::string full = name + "mm 1000 " + std::string(5000, '1');
        EXPECT_FALSE(IsRunning(full));
        EXPECT_TRUE(IsRunning(full.substr(0, 2047)));
        EXPECT_FALSE(IsRunning(full.substr(0, 2046)));
        EXPECT_FALSE(IsRunning(full.substr(0, 2048)));
    });
}

TEST(KillProcess, KillsEveryOneWithTheCommandLine)
{
    RUN_AMONG_OWN_PROCESSES([] {
        std::vector<Sleeper> wanted;
        for (int i = 0; i < 5; ++i)
            wanted.emplace_back(std::vector<std::string>{"victim", "500"});
        Sleeper other({"victim", "501"});
        support::MarkErrorText();
        EXPECT_TRUE(ZKQGeneral_TerminateApplication("victim 500"));
        for (Sleeper& one : wanted)
            EXPECT_TRUE(one.WasKilled());
        EXPECT_TRUE(other.IsAlive());
        EXPECT_TRUE(ZKQGeneral_TerminateApplication("victim 500")) << "nothing to do";
        EXPECT_TRUE(support::ErrorTextIsMarked());
    });
}

TEST(KillProcess, WithoutTheRightFails)
{
    RUN_AMONG_OWN_PROCESSES([] {
        Sleeper foreign({"victim", "502"});
        RUN_IN_CHILD([] {
            support::BecomeNobody();
            Sleeper own({"victim", "502"});
            EXPECT_TRUE(IsRunning("victim 502"));
            support::MarkErrorText();
            EXPECT_FALSE(ZKQGeneral_TerminateApplication("victim 502"));
            EXPECT_SYSTEM_ERROR(EPERM);
            EXPECT_TRUE(own.WasKilled()) << "the others are killed all the same";
        });
        EXPECT_TRUE(foreign.IsAlive());
    });
}

TEST(KillProcess, ACommandLineThatCannotBeOpenedIsAFailureWithoutAText)
{
    RUN_AMONG_OWN_PROCESSES(
        [] {
            const Sleeper foreign({"other", "503"});
            RUN_IN_CHILD([] {
                support::BecomeNobody();
                Sleeper own({"victim", "503"});
                EXPECT_FALSE(IsRunning("other 503")) << "not readable, and passed over";
                EXPECT_TRUE(IsRunning("victim 503"));
                support::MarkErrorText();
                EXPECT_FALSE(ZKQGeneral_TerminateApplication("victim 503"));
                EXPECT_TRUE(support::ErrorTextIsMarked());
                EXPECT_TRUE(own.WasKilled());
            });
        },
        "hidepid=1");
}

/// In a child: a /proc of plain files, in which processes have whatever names and command lines a test wants.
void EnterOwnProc(const TempDir& dir, const std::vector<std::pair<std::string, std::string>>& commandLines)
{
    for (const auto& [name, bytes] : commandLines) {
        std::filesystem::create_directories(dir.File("proc/" + name));
        WriteFile(dir.File("proc/" + name + "/cmdline"), bytes);
    }
    WriteFile(dir.File("proc/777"), "file");
    std::filesystem::create_directory_symlink("5", dir.File("proc/778"));
    support::EnterRoot(dir.Path());
}

TEST(FindProcess, OnlyDirectoriesOfDigitsAreProcesses)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        EnterOwnProc(dir, {{"5", std::string("five\0", 5)},
                           {"x5", "x"},
                           {"5x", "x"},
                           {"-5", "x"},
                           {"+5", "x"},
                           {" 5", "x"},
                           {"0", "x"},
                           {"00", "x"},
                           {"99999999999", "x"},
                           {"4294967301", "x"},
                           {"self", "x"},
                           {"6", ""},
                           {"7", std::string("\0\0\0", 3)},
                           {"8", std::string("a\0\0b\0", 5)},
                           {"9", std::string("t\0\0\0", 4)},
                           {"10", "no end"},
                           {"2147483647", "last"}});
        EXPECT_TRUE(IsRunning("five"));
        EXPECT_FALSE(IsRunning("x"));
        EXPECT_TRUE(IsRunning("")) << "some processes have no command line";
        EXPECT_FALSE(IsRunning("a"));
        EXPECT_TRUE(IsRunning("t"));
        EXPECT_TRUE(IsRunning("no end"));
        EXPECT_TRUE(IsRunning("last"));
    });
}

TEST(KillProcess, NeverSignalsGroupsOrEveryone)
{
    RUN_AMONG_OWN_PROCESSES([] {
        Sleeper own({"victim", "504"}); // would be among all of them
        const TempDir dir;
        EnterOwnProc(dir, {{"0", "victim"},
                           {"00", "victim"},
                           {"-1", "victim"},
                           {"4294967295", "victim"},
                           {"4294967296", "victim"},
                           {"18446744073709551615", "victim"},
                           {"2147483648", "victim"}});
        EXPECT_TRUE(ZKQGeneral_TerminateApplication("victim"));
        EXPECT_TRUE(own.IsAlive());
        // A number that no process has.
        std::filesystem::create_directories("/proc/2147483647");
        WriteFile("/proc/2147483647/cmdline", "victim");
        EXPECT_FALSE(ZKQGeneral_TerminateApplication("victim"));
        EXPECT_SYSTEM_ERROR(ESRCH);
    });
}

TEST(FindProcess, WithoutProcFails)
{
    RUN_IN_CHILD([] {
        const TempDir empty;
        support::EnterRoot(empty.Path());
        int running = 1;
        EXPECT_FALSE(ZKQGeneral_IsApplicationRunning("x", &running));
        EXPECT_SYSTEM_ERROR(ENOENT);
        EXPECT_EQ(running, 0);
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_TerminateApplication("x"));
        EXPECT_SYSTEM_ERROR(ENOENT);
    });
}

TEST(FindProcess, NullIsNoName)
{
    int running = 1;
    EXPECT_FALSE(ZKQGeneral_IsApplicationRunning(nullptr, &running));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(running, 0);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_IsApplicationRunning("x", nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_TerminateApplication(nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

// --- instance locks ---

size_t OpenDescriptors()
{
    const std::filesystem::directory_iterator list("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(list), end(list)));
}

TEST(Instance, TheLockFileMustExist)
{
    const std::string name = "zkq-no-such-lock-" + std::to_string(getpid());
    EXPECT_FALSE(ZKQGeneral_SingleInstance(name.c_str(), nullptr));
    EXPECT_SYSTEM_ERROR(ENOENT);
    support::MarkErrorText();
    EXPECT_TRUE(ZKQGeneral_DetectApplication(name.c_str(), nullptr));
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_FALSE(support::Exists("/tmp/" + name));
}

TEST(Instance, IsHeldUntilTheProcessEnds)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        WriteFile(dir.File("lock"), "");
        const char* const path = dir.Path().c_str();
        int ready[2];
        int done[2];
        ASSERT_EQ(pipe(ready) + pipe(done), 0);
        const pid_t holder = fork();
        if (holder == 0) {
            close(done[1]);
            char byte = ZKQGeneral_SingleInstance("lock", path) ? 'y' : 'n';
            EXPECT_EQ(write(ready[1], &byte, 1), 1);
            EXPECT_EQ(read(done[0], &byte, 1), 0);
            _exit(0);
        }
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        EXPECT_EQ(byte, 'y');
        const size_t open = OpenDescriptors();
        for (int i = 0; i < 3; ++i) {
            support::MarkErrorText();
            EXPECT_FALSE(ZKQGeneral_SingleInstance("lock", path));
            EXPECT_TRUE(ZKQGeneral_DetectApplication("lock", path));
            EXPECT_TRUE(support::ErrorTextIsMarked()) << "an answer, not an error";
        }
        EXPECT_EQ(OpenDescriptors(), open);
        close(done[1]);
        waitpid(holder, nullptr, 0);
        EXPECT_FALSE(ZKQGeneral_DetectApplication("lock", path)) << "given back by the end";
        EXPECT_FALSE(ZKQGeneral_DetectApplication("lock", path)) << "looking does not take it";
        EXPECT_EQ(OpenDescriptors(), open - 1);
        EXPECT_TRUE(ZKQGeneral_SingleInstance("lock", (dir.Path() + "/").c_str()));
        EXPECT_EQ(OpenDescriptors(), open);
        EXPECT_TRUE(ZKQGeneral_DetectApplication("lock", path)) << "this process holds it";
        EXPECT_FALSE(ZKQGeneral_SingleInstance("lock", path));
        EXPECT_TRUE(ZKQGeneral_DetectApplication("lock", path)) << "and still does";
        for (int fd = 3; fd < 100; ++fd) {
            std::error_code none;
            const auto link = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
            if (link == dir.File("lock")) {
                EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
                EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY);
            }
        }
    });
}

TEST(Instance, IsInTmpWithoutAPath)
{
    RUN_IN_CHILD([] {
        const std::string name = "zkq-test-lock-" + std::to_string(getpid());
        WriteFile("/tmp/" + name, "");
        EXPECT_FALSE(ZKQGeneral_DetectApplication(name.c_str(), ""));
        EXPECT_TRUE(ZKQGeneral_SingleInstance(name.c_str(), nullptr));
        EXPECT_TRUE(ZKQGeneral_DetectApplication(name.c_str(), ""));
        std::filesystem::remove("/tmp/" + name);
    });
}

TEST(Instance, BadNames)
{
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_SingleInstance(nullptr, "/tmp"));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_TRUE(ZKQGeneral_DetectApplication(nullptr, "/tmp")) << "no lock was obtained";
    EXPECT_SYSTEM_ERROR(EINVAL);
    const std::string fits(299 - 5, '/'); // "/tmp/" and 294 more
    EXPECT_FALSE(ZKQGeneral_DetectApplication(fits.c_str(), nullptr)) << "a directory may be locked";
    EXPECT_TRUE(ZKQGeneral_DetectApplication((fits + "/").c_str(), nullptr));
    EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
    EXPECT_FALSE(ZKQGeneral_SingleInstance("x", std::string(300, '/').c_str()));
    EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
}

TEST(Instance, APipeDoesNotHang)
{
    RUN_IN_CHILD([] {
        const TempDir dir;
        ASSERT_EQ(mkfifo(dir.File("pipe").c_str(), 0600), 0);
        EXPECT_TRUE(ZKQGeneral_SingleInstance("pipe", dir.Path().c_str()));
    });
}

// --- start at boot ---

constexpr char kBootFile[] = "/etc/rc.d/rc.local";

/// Runs a part in a root directory of its own; with the boot file's content, unless null.
template <class Part>
bool RunWithBootFile(const char* content, Part part)
{
    return support::RunInChild([&] {
        const TempDir dir;
        std::filesystem::permissions(dir.Path(), std::filesystem::perms(0755));
        std::filesystem::create_directories(dir.File("etc/rc.d"));
        if (content != nullptr)
            WriteFile(dir.File(kBootFile + 1), content);
        support::EnterRoot(dir.Path());
        part();
    });
}

struct BootRow {
    const char* before;
    const char* text;
    const char* after;
};

TEST(StartAtBoot, Table)
{
    static const std::string fill(295, 'f');
    static const std::string longLine = fill + "/bin/agent\n";
    static const std::string longLineAfter = longLine + "/bin/agent\n";
    static const std::string secondPiece = "# " + std::string(297, 'c') + "/bin/agent\n";
    const BootRow rows[] = {
        {nullptr, "/bin/agent -d", "/bin/agent -d\n"},
        {"", "/bin/agent", "/bin/agent\n"},
        {"#!/bin/sh\n", "/bin/agent", "#!/bin/sh\n/bin/agent\n"},
        {"#!/bin/sh\n/bin/agent\nexit\n", "/bin/agent", "#!/bin/sh\n/bin/agent\nexit\n"},
        {"nohup /bin/agent & \n", "/bin/agent", "nohup /bin/agent & \n"},
        {" \t/bin/agent", "/bin/agent", " \t/bin/agent"},
        {"#/bin/agent\n", "/bin/agent", "#/bin/agent\n/bin/agent\n"},
        {" \t # /bin/agent\n", "/bin/agent", " \t # /bin/agent\n/bin/agent\n"},
        {"x # /bin/agent\n", "/bin/agent", "x # /bin/agent\n"},
        {"/bin/agen", "/bin/agent", "/bin/agen/bin/agent\n"},
        {"/BIN/AGENT\n", "/bin/agent", "/BIN/AGENT\n/bin/agent\n"},
        {"\n\n", "/bin/agent", "\n\n/bin/agent\n"},
        {"anything\n", "", "anything\n"},
        {"", "", "\n"},
        // Lines are taken in pieces of 299 bytes.
        {longLine.c_str(), "/bin/agent", longLineAfter.c_str()},
        {secondPiece.c_str(), "/bin/agent", secondPiece.c_str()},
    };
    for (const BootRow& row : rows) {
        SCOPED_TRACE(row.after);
        const bool ran = RunWithBootFile(row.before, [&] {
            support::MarkErrorText();
            EXPECT_TRUE(ZKQGeneral_AutoStartProc("item", row.text)) << support::ErrorText();
            EXPECT_EQ(ReadFile(kBootFile), row.after);
            EXPECT_TRUE(ZKQGeneral_AutoStartProc(nullptr, "other"));
            EXPECT_TRUE(ZKQGeneral_AutoStartProc("", "other"));
            EXPECT_EQ(ReadFile(kBootFile), std::string(row.after) + "other\n") << "once";
            EXPECT_TRUE(support::ErrorTextIsMarked());
        });
        if (!ran)
            GTEST_SKIP() << "the system does not allow this test, see above";
    }
}

TEST(StartAtBoot, Failures)
{
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_AutoStartProc("item", nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    const bool ran = RunWithBootFile(nullptr, [] {
        ASSERT_EQ(mkfifo(kBootFile, 0600), 0);
        EXPECT_FALSE(ZKQGeneral_AutoStartProc("item", "x")) << "a pipe that nobody reads";
        EXPECT_SYSTEM_ERROR(ENXIO);
        std::filesystem::remove(kBootFile);
        std::filesystem::create_directory(kBootFile);
        EXPECT_FALSE(ZKQGeneral_AutoStartProc("item", "x"));
        EXPECT_SYSTEM_ERROR(EISDIR);
        std::filesystem::remove(kBootFile);
        WriteFile(kBootFile, "a\n");
        support::BecomeNobody();
        EXPECT_FALSE(ZKQGeneral_AutoStartProc("item", "x"));
        EXPECT_SYSTEM_ERROR(EACCES);
        EXPECT_TRUE(ZKQGeneral_AutoStartProc("item", "a")) << "nothing to write";
    });
    if (!ran)
        GTEST_SKIP() << "the system does not allow this test, see above";
    RUN_IN_CHILD([] {
        const TempDir empty;
        support::EnterRoot(empty.Path());
        EXPECT_FALSE(ZKQGeneral_AutoStartProc("item", "x"));
        EXPECT_SYSTEM_ERROR(ENOENT);
    });
}

} // namespace
