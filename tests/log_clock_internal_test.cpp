// Records under a clock of the test's own: the C library's clock functions are replaced in this program.
#include <sys/time.h>
#include <time.h>

#include "../src/internal/log.h"
#include "support/log_context.h"

namespace {

time_t clockSeconds = 0;
long clockMicroseconds = 0;
bool localTimeFails = false;

} // namespace

extern "C" time_t time(time_t* result) noexcept
{
    if (result != nullptr)
        *result = clockSeconds;
    return clockSeconds;
}

extern "C" int gettimeofday(timeval* now, void*) noexcept
{
    *now = {clockSeconds, clockMicroseconds};
    return 0;
}

extern "C" tm* localtime_r(const time_t* seconds, tm* result) noexcept
{
    return localTimeFails ? nullptr : gmtime_r(seconds, result);
}

namespace {

using support::AppInfo;
using support::LogContext;
using support::LogDir;
using support::ReadFile;

class LogClock : public testing::Test {
protected:
    LogClock() : info_(dir_)
    {
        clockSeconds = 1714979228; // 2024-05-06 07:07:08 UTC
        clockMicroseconds = 12999;
        localTimeFails = false;
        info_.RecordTime = 1;
        dir_.Switch("server", 15);
    }

    LogDir dir_;
    AppInfo info_;
};

TEST_F(LogClock, TimeStampsHaveFixedWidths)
{
    const LogContext ctx(info_);
    const std::pair<time_t, const char*> rows[] = {
        {1714979228, "[2024-05-06 07:07:08.012]"}, {1714979228, "[2024-05-06 07:07:08.012]"},
        {1714979229, "[2024-05-06 07:07:09.012]"}, {0, "[1970-01-01 00:00:00.012]"},
        {1735689599, "[2024-12-31 23:59:59.012]"}, {253402300800, "[10000-01-01 00:00:00.012]"}};
    std::string expected;
    for (const auto& [second, stamp] : rows) {
        clockSeconds = second;
        EXPECT_TRUE(ctx.Write(8));
        expected += std::string(stamp) + "[Error] text - main.c,120\n";
    }
    EXPECT_EQ(ReadFile(dir_.OwnLog()), expected);
}

TEST_F(LogClock, MillisecondsAreTheMicrosecondsCut)
{
    const LogContext ctx(info_);
    std::string expected;
    for (const auto& [microseconds, shown] :
         {std::pair{0, "000"}, {999, "000"}, {1000, "001"}, {99999, "099"}, {999999, "999"}}) {
        clockMicroseconds = microseconds;
        EXPECT_TRUE(ctx.Write(8));
        expected += std::string("[2024-05-06 07:07:08.") + shown + "][Error] text - main.c,120\n";
    }
    EXPECT_EQ(ReadFile(dir_.OwnLog()), expected);
}

TEST_F(LogClock, ATimeWithoutALocalFormIsUnknown)
{
    localTimeFails = true;
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(8));
    localTimeFails = false;
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[Unkown Time][Error] text - main.c,120\n"
                                       "[2024-05-06 07:07:08.012][Error] text - main.c,120\n");
}

TEST_F(LogClock, AnUnknownTimeDoesNotShowTheLastKnownOne)
{
    const LogContext ctx(info_);
    EXPECT_TRUE(ctx.Write(8));
    ++clockSeconds;
    localTimeFails = true;
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), "[2024-05-06 07:07:08.012][Error] text - main.c,120\n"
                                       "[Unkown Time][Error] text - main.c,120\n");
}

TEST_F(LogClock, SwitchesAreReadAfterMoreThan60Seconds)
{
    info_.Version = 2;
    const LogContext ctx(info_);
    const time_t made = clockSeconds;
    dir_.Switch("server", 0);
    for (const int later : {0, 1, 59, 60}) {
        clockSeconds = made + later;
        EXPECT_TRUE(ctx.Write(8));
    }
    const std::string log = ReadFile(dir_.OwnLog());
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 4);
    clockSeconds = made + 61;
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_EQ(ReadFile(dir_.OwnLog()), log);
    dir_.Switch("server", 15);
    clockSeconds = made + 60; // back, and so at once
    EXPECT_TRUE(ctx.Write(8));
    EXPECT_NE(ReadFile(dir_.OwnLog()), log);
}

} // namespace
