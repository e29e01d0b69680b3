// The table of children that are waited for, with a handler that reaps all others.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "../src/internal/child_table.h"
#include "support/child.h"

namespace {

constinit ChildTable g_table;

void InstallHandler()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { g_table.Reap(); };
    action.sa_flags = SA_RESTART;
    sigaction(SIGCHLD, &action, nullptr);
}

pid_t Child(int code)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(code);
    return pid;
}

/// Waits until a child has ended, and leaves it a zombie, if it has not been reaped.
void AwaitEnd(pid_t pid)
{
    siginfo_t info;
    while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
}

bool IsZombie(pid_t pid)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
}

int Code(int slot, pid_t pid, int options = 0)
{
    int status = 0;
    return g_table.Wait(slot, pid, &status, options) == pid ? WEXITSTATUS(status) : -1;
}

TEST(ChildTable, KeepsTheStatusThatWasReaped)
{
    RUN_IN_CHILD([] {
        const pid_t pid = Child(42);
        const int slot = g_table.Enter(pid);
        AwaitEnd(pid);
        g_table.Reap();
        EXPECT_FALSE(IsZombie(pid));
        EXPECT_EQ(Code(slot, pid, WNOHANG), 42);
        EXPECT_EQ(Code(slot, pid), 42) << "as long as it stands there";
        g_table.Leave(slot, pid);
        EXPECT_EQ(g_table.Enter(1), slot) << "free again";
    });
}

TEST(ChildTable, AStatusThatNobodyHasReapedIsTheKernels)
{
    RUN_IN_CHILD([] {
        const pid_t pid = Child(43);
        const int slot = g_table.Enter(pid);
        EXPECT_EQ(Code(slot, pid), 43);
        errno = 0;
        EXPECT_EQ(Code(slot, pid), -1);
        EXPECT_EQ(errno, ECHILD);
        g_table.Leave(slot, pid);
    });
}

TEST(ChildTable, OthersAreReapedAndThoseThatRunAreNot)
{
    RUN_IN_CHILD([] {
        int hold[2];
        ASSERT_EQ(pipe(hold), 0);
        const pid_t running = fork();
        if (running == 0) {
            char byte;
            close(hold[1]);
            _exit(static_cast<int>(read(hold[0], &byte, 1)) + 9);
        }
        const int slot = g_table.Enter(running);
        const pid_t other = Child(1);
        AwaitEnd(other);
        errno = 4321;
        g_table.Reap();
        EXPECT_EQ(errno, 4321);
        EXPECT_FALSE(IsZombie(other));
        EXPECT_EQ(Code(slot, running, WNOHANG), -1);
        close(hold[1]);
        EXPECT_EQ(Code(slot, running), 9);
        g_table.Leave(slot, running);
    });
}

TEST(ChildTable, NothingIsReapedDuringAStartAndAllAfterIt)
{
    RUN_IN_CHILD([] {
        g_table.BeginStart();
        g_table.BeginStart();
        const pid_t mine = Child(7);
        const pid_t other = Child(8);
        AwaitEnd(mine);
        AwaitEnd(other);
        g_table.Reap();
        EXPECT_TRUE(IsZombie(mine));
        EXPECT_TRUE(IsZombie(other));
        const int slot = g_table.Enter(mine);
        g_table.EndStart();
        EXPECT_TRUE(IsZombie(other)) << "another start is not over";
        g_table.EndStart();
        EXPECT_FALSE(IsZombie(mine));
        EXPECT_FALSE(IsZombie(other));
        EXPECT_EQ(Code(slot, mine), 7);
        g_table.Leave(slot, mine);
        // Without a handler that came meanwhile nobody's children are touched.
        g_table.BeginStart();
        const pid_t last = Child(9);
        AwaitEnd(last);
        g_table.EndStart();
        EXPECT_TRUE(IsZombie(last));
    });
}

TEST(ChildTable, AFullTableLetsTheStartLast)
{
    RUN_IN_CHILD([] {
        for (int i = 0; i < ChildTable::kSize; ++i)
            EXPECT_EQ(g_table.Enter(1'000'000'000 + i), i);
        g_table.BeginStart();
        const pid_t pid = Child(77);
        EXPECT_EQ(g_table.Enter(pid), ChildTable::kNoSlot);
        AwaitEnd(pid);
        g_table.Reap();
        EXPECT_EQ(Code(ChildTable::kNoSlot, pid), 77);
        EXPECT_EQ(Code(ChildTable::kNoSlot, pid), -1);
        g_table.EndStart();
        g_table.Leave(5, 1'000'000'005);
        EXPECT_EQ(g_table.Enter(pid), 5);
    });
}

TEST(ChildTable, ManyThreadsAndAHandlerInEachOfThem)
{
    RUN_IN_CHILD([] {
        InstallHandler();
        std::atomic<bool> stop = false;
        std::thread reaper([&] { // as handlers do, and interrupted by them
            while (!stop)
                g_table.Reap();
        });
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 6; ++thread)
            threads.emplace_back([thread] {
                for (int round = 0; round < 60; ++round) {
                    const int code = (thread * 41 + round) % 256;
                    g_table.BeginStart();
                    const pid_t pid = Child(code);
                    const int slot = g_table.Enter(pid);
                    g_table.EndStart();
                    EXPECT_EQ(Code(slot, pid), code);
                    g_table.Leave(slot, pid);
                    Child(1); // nobody waits for this one
                }
            });
        for (std::thread& thread : threads)
            thread.join();
        stop = true;
        reaper.join();
        siginfo_t info;
        for (int i = 0; i < 1000 && waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0; ++i)
            usleep(10'000); // the last may have just begun
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "all are reaped";
        for (int i = 0; i < ChildTable::kSize; ++i)
            EXPECT_EQ(g_table.Enter(1), i) << "nobody stands there any more";
    });
}

} // namespace
