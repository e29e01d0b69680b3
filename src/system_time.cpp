// Time since the start, stopwatch, sleep, times of files.
#include <ZKQ_general/system.h>
#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <atomic>

#include "internal/error.h"
#include "internal/guards.h"
#include "internal/system.h"

namespace {

constexpr long kMillisecondsPerSecond = 1000;
constexpr long kNanosecondsPerMillisecond = 1'000'000;
constexpr size_t kUptimeSize = 1024;
constexpr int kFirstYear = 1900; // of the C library
enum FileTime { kStatusChange = 0, kAccess = 1 };

constinit std::atomic<int> g_uptime = -1;
constinit std::atomic<long> g_watchStart = 0;

/// The descriptor of /proc/uptime, opened by the first who asks; -1 if it cannot be.
int Uptime()
{
    const int known = g_uptime.load(std::memory_order_acquire);
    if (known >= 0)
        return known;
    UniqueFd file(open("/proc/uptime", O_RDONLY | O_CLOEXEC));
    int other = -1;
    if (file.IsOpen() && !g_uptime.compare_exchange_strong(other, file.Get()))
        return other; // somebody was faster
    return file.Release();
}

/// Numbers are written with a point, whatever the program's locale is.
class NumericLocale {
public:
    NumericLocale() : locale_(newlocale(LC_ALL_MASK, "C", nullptr)) {}
    NumericLocale(const NumericLocale&) = delete;
    NumericLocale& operator=(const NumericLocale&) = delete;
    ~NumericLocale()
    {
        if (locale_ != nullptr)
            freelocale(locale_);
    }

    bool Exists() const { return locale_ != nullptr; }
    /// Reads a number and goes behind it; false if there is none.
    bool Read(const char*& text, double& number) const
    {
        char* end;
        number = strtod_l(text, &end, locale_);
        const bool found = end != text;
        text = end;
        return found;
    }

private:
    locale_t locale_;
};

/// Milliseconds of the time of day.
long TimeOfDay()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * kMillisecondsPerSecond + now.tv_nsec / kNanosecondsPerMillisecond;
}

time_t TimeOf(const struct stat& status, int Flag)
{
    if (Flag == kStatusChange)
        return status.st_ctime;
    return Flag == kAccess ? status.st_atime : status.st_mtime;
}

int LocalTime(time_t time, _TIMESTRUCT* result)
{
    tm local;
    tzset(); // localtime_r() alone would miss that the program has changed its zone
    if (localtime_r(&time, &local) == nullptr)
        return errno;
    const auto word = [](int number) { return static_cast<WORD>(number); };
    *result = {word(local.tm_year + kFirstYear),
               word(local.tm_mon + 1),
               word(local.tm_wday),
               word(local.tm_mday),
               word(local.tm_hour),
               word(local.tm_min),
               word(local.tm_sec),
               0};
    return 0;
}

} // namespace

long MillisecondsOfUptime(const char* text)
{
    const NumericLocale locale;
    double running;
    double idle;
    if (!locale.Exists() || !locale.Read(text, running) || !locale.Read(text, idle))
        return 0;
    constexpr double kLimit = 9e18; // what a long holds
    const double milliseconds = running * static_cast<double>(kMillisecondsPerSecond);
    return milliseconds > -kLimit && milliseconds < kLimit ? static_cast<long>(milliseconds) : 0;
}

long int ZKQGeneral_GetTickCount(void)
{
    const int file = Uptime();
    if (file < 0)
        return 0;
    char text[kUptimeSize];
    ssize_t length;
    do
        length = pread(file, text, sizeof text - 1, 0);
    while (length < 0 && errno == EINTR);
    if (length < 0)
        return 0;
    text[length] = '\0';
    return MillisecondsOfUptime(text);
}

int ZKQGeneral_GetTickCountEx(int bStop)
{
    const long now = TimeOfDay();
    if (bStop != 0)
        return static_cast<int>(now - g_watchStart.load(std::memory_order_relaxed));
    g_watchStart.store(now, std::memory_order_relaxed);
    return 0;
}

void ZKQGeneral_Sleep(int Milliseconds)
{
    timespec left = {Milliseconds / kMillisecondsPerSecond,
                     Milliseconds % kMillisecondsPerSecond * kNanosecondsPerMillisecond};
    while (nanosleep(&left, &left) != 0) {
        if (errno != EINTR && errno != ECHILD) {
            GetSystemLastErrorText();
            return;
        }
    }
}

BOOL ZKQGeneral_GetFileTimeInfo(LPCTSTR FileName, PTIMESTRUCT pts, int Flag)
{
    if (pts == nullptr)
        return TRUE;
    if (FileName == nullptr)
        return Fail(EINVAL);
    struct stat status;
    if (stat(FileName, &status) != 0)
        return FailWithErrno();
    return Finish(LocalTime(TimeOf(status, Flag), pts));
}
