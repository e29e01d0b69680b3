// Parts of a test that need a process of their own: another root directory, another user, a time limit.
#pragma once

#include <errno.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace support {

constexpr int kChildSkips = 77;
constexpr unsigned kChildSeconds = 20;

/// To be called in a child when the system does not let the test run.
[[noreturn]] inline void SkipChild(const std::string& reason)
{
    printf("skipped: %s: %s\n", reason.c_str(), strerror(errno));
    fflush(stdout);
    _exit(kChildSkips);
}

/// Ends a child. What it has covered is written by what exit() runs, and by nothing else.
[[noreturn]] inline void EndChild(int code)
{
#ifdef ZKQ_COVERAGE
    exit(code);
#else
    _exit(code);
#endif
}

/// Runs `part` in a forked child, whose failed expectations fail the test. A child that hangs is killed and fails too.
/// Returns false if the child has skipped.
template <typename Part>
bool RunInChild(Part part)
{
    fflush(stdout);
    const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    const int failures_before = result.total_part_count();
    const pid_t pid = fork();
    if (pid == 0) {
        signal(SIGALRM, SIG_DFL);
        alarm(kChildSeconds);
        part();
        fflush(stdout);
        EndChild(result.total_part_count() > failures_before ? 1 : 0);
    }
    EXPECT_GT(pid, 0) << strerror(errno);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_FALSE(WIFSIGNALED(status)) << "killed by signal " << WTERMSIG(status);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    EXPECT_TRUE(code == 0 || code == kChildSkips) << "the child has failed, code " << code;
    return code != kChildSkips;
}

/// In a child: mounts made from here on are seen by this process alone.
inline void EnterPrivateMounts()
{
    if (unshare(CLONE_NEWNS) != 0)
        SkipChild("unshare");
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0)
        SkipChild("private mounts");
}

/// In a child: makes `directory` the root of all paths.
inline void EnterRoot(const std::string& directory)
{
    struct stat wanted = {};
    struct stat root = {};
    if (stat(directory.c_str(), &wanted) != 0)
        SkipChild("stat");
    EnterPrivateMounts();
    if (chroot(directory.c_str()) != 0 || chdir("/") != 0)
        SkipChild("chroot");
    if (stat("/", &root) != 0 || root.st_ino != wanted.st_ino || root.st_dev != wanted.st_dev)
        SkipChild("the root directory is not the one that was asked for");
}

/// In a child: gives up the rights of the superuser. The working directory stays reachable by relative paths.
inline void BecomeNobody()
{
    constexpr uid_t kNobody = 65534;
    if (geteuid() != 0)
        return;
    if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)
        SkipChild("setuid");
}

} // namespace support

/// Runs a part of a test in a child; skips the test if the child does.
#define RUN_IN_CHILD(...)                                                                                              \
    if (!support::RunInChild(__VA_ARGS__))                                                                             \
    GTEST_SKIP() << "the system does not allow this test, see above"
