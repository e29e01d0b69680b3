// Tick count, stopwatch, sleep, times of files.
#include <ZKQ_general/system.h>
#include <fcntl.h>
#include <locale.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/error_text.h"
#include "support/signals.h"
#include "support/temp_dir.h"

namespace {

using support::TempDir;

/// Milliseconds since the start as another clock of the kernel has them.
long SinceBoot()
{
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1'000'000;
}

/// The descriptors of a file that this process has open.
std::vector<int> DescriptorsOf(const std::string& path)
{
    std::vector<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry, error) == path)
            found.push_back(std::stoi(entry.path().filename()));
    }
    return found;
}

TEST(TickCount, IsTheSystemsUptime)
{
    const long before = SinceBoot();
    const long ticks = ZKQGeneral_GetTickCount();
    const long after = SinceBoot();
    if (std::abs(std::stod(support::ReadFile("/proc/uptime")) * 1000 - static_cast<double>(after)) > 5000)
        GTEST_SKIP() << "/proc/uptime is that of a container";
    EXPECT_GE(ticks, before - 20) << "the file counts hundredths";
    EXPECT_LE(ticks, after);
}

TEST(TickCount, GoesOn)
{
    const long before = ZKQGeneral_GetTickCount();
    usleep(60'000);
    const long after = ZKQGeneral_GetTickCount();
    EXPECT_GE(after - before, 40);
    EXPECT_LT(after - before, 5000);
}

TEST(TickCount, KeepsOneDescriptorOpen)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 100; ++round)
                EXPECT_GT(ZKQGeneral_GetTickCount(), 0);
        });
    for (std::thread& thread : threads)
        thread.join();
    const std::vector<int> open = DescriptorsOf("/proc/uptime");
    ASSERT_EQ(open.size(), 1u);
    EXPECT_TRUE(fcntl(open[0], F_GETFD) & FD_CLOEXEC);
}

TEST(TickCount, DoesNotDependOnTheLocaleAndLeavesIt)
{
    RUN_IN_CHILD([] {
        for (const char* const name : {"de_DE.UTF-8", "C.UTF-8"}) {
            if (setlocale(LC_ALL, name) == nullptr)
                continue;
            EXPECT_GT(ZKQGeneral_GetTickCount() % 1000, -1);
            const long milliseconds = ZKQGeneral_GetTickCount();
            EXPECT_NEAR(static_cast<double>(milliseconds), static_cast<double>(SinceBoot()), 5000);
            EXPECT_STREQ(setlocale(LC_ALL, nullptr), name);
        }
    });
}

TEST(TickCount, WithoutAFileIsZero)
{
    const std::vector<int> open = DescriptorsOf("/proc/uptime");
    RUN_IN_CHILD([&] {
        const TempDir empty;
        if (!open.empty()) {
            close(open[0]); // the program has closed what was not its own
        } else {
            support::EnterRoot(empty.Path());
        }
        EXPECT_EQ(ZKQGeneral_GetTickCount(), 0);
    });
}

TEST(Stopwatch, MeasuresFromItsLastStart)
{
    EXPECT_EQ(ZKQGeneral_GetTickCountEx(0), 0);
    usleep(50'000);
    const int first = ZKQGeneral_GetTickCountEx(1);
    EXPECT_GE(first, 49);
    EXPECT_LT(first, 5000);
    usleep(20'000);
    EXPECT_GE(ZKQGeneral_GetTickCountEx(-1), first + 19) << "it goes on";
    EXPECT_EQ(ZKQGeneral_GetTickCountEx(0), 0);
    EXPECT_LT(ZKQGeneral_GetTickCountEx(1), first + 1) << "from the second start";
}

TEST(Sleep, LastsWhateverSignalsCome)
{
    const support::SignalStorm storm;
    for (const int time : {0, 1, 120}) {
        const auto start = std::chrono::steady_clock::now();
        ZKQGeneral_Sleep(time);
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
        EXPECT_GE(took.count(), time);
        EXPECT_LT(took.count(), time + 3000);
    }
}

TEST(Sleep, TellsOnlyOfTimesThatAreNone)
{
    support::MarkErrorText();
    ZKQGeneral_Sleep(1);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    for (const int time : {-1, -1000, -2147483647 - 1}) {
        support::MarkErrorText();
        ZKQGeneral_Sleep(time);
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
}

/// Runs a part with a zone.
template <class Part>
void InZone(const char* zone, Part part)
{
    RUN_IN_CHILD([&] {
        setenv("TZ", zone, 1);
        part();
    });
}

void ExpectTime(const _TIMESTRUCT& time, const std::vector<int>& expected)
{
    EXPECT_EQ((std::vector<int>{time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond,
                                time.wDayOfWeek, time.wMilliseconds}),
              expected);
}

TEST(FileTime, IsThatOfTheFlagInLocalTime)
{
    InZone("XXX-3", [] { // three hours before Greenwich
        const TempDir dir;
        const std::string name = dir.File("f");
        support::WriteFile(name, "x");
        const timespec times[2] = {{951782400, 999'999'999}, {1772323199, 0}}; // access, content
        ASSERT_EQ(utimensat(AT_FDCWD, name.c_str(), times, 0), 0);
        _TIMESTRUCT time;
        ASSERT_TRUE(ZKQGeneral_GetFileTimeInfo(name.c_str(), &time, 1));
        ExpectTime(time, {2000, 2, 29, 3, 0, 0, 2, 0});
        for (const int flag : {2, -1, 1000}) {
            ASSERT_TRUE(ZKQGeneral_GetFileTimeInfo(name.c_str(), &time, flag));
            ExpectTime(time, {2026, 3, 1, 2, 59, 59, 0, 0});
        }
        struct stat status = {};
        ASSERT_EQ(stat(name.c_str(), &status), 0);
        tm local = {};
        localtime_r(&status.st_ctime, &local);
        ASSERT_TRUE(ZKQGeneral_GetFileTimeInfo(name.c_str(), &time, 0));
        ExpectTime(time, {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                          local.tm_sec, local.tm_wday, 0});
        setenv("TZ", "UTC", 1);
        ASSERT_TRUE(ZKQGeneral_GetFileTimeInfo(name.c_str(), &time, 2));
        ExpectTime(time, {2026, 2, 28, 23, 59, 59, 6, 0});
        ASSERT_EQ(symlink("f", dir.File("link").c_str()), 0);
        ASSERT_TRUE(ZKQGeneral_GetFileTimeInfo(dir.File("link").c_str(), &time, 2)) << "links are followed";
        ExpectTime(time, {2026, 2, 28, 23, 59, 59, 6, 0});
    });
}

TEST(FileTime, WithNowhereToPutItNothingIsDone)
{
    support::MarkErrorText();
    EXPECT_TRUE(ZKQGeneral_GetFileTimeInfo("/none", nullptr, 0));
    EXPECT_TRUE(ZKQGeneral_GetFileTimeInfo(nullptr, nullptr, 0));
    EXPECT_TRUE(support::ErrorTextIsMarked());
    _TIMESTRUCT time = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_FALSE(ZKQGeneral_GetFileTimeInfo(nullptr, &time, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(ZKQGeneral_GetFileTimeInfo("/none/none", &time, 0));
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_EQ(time.wMilliseconds, 8);
}

} // namespace
