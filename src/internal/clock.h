// The clock that nobody sets.
#pragma once

#include <errno.h>
#include <time.h>

inline timespec MonotonicNow()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

/// Steps of a second, for waits that look once in each.
class SecondSteps {
public:
    /// Whole seconds since the beginning.
    int Elapsed() const { return elapsed_; }
    /// Sleeps until the next one, whatever signals come.
    void Sleep()
    {
        ++next_.tv_sec;
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next_, nullptr) == EINTR) {
        }
        const timespec now = MonotonicNow();
        const time_t late = now.tv_sec - next_.tv_sec - (now.tv_nsec < next_.tv_nsec ? 1 : 0);
        next_.tv_sec += late; // this process may have been stopped
        elapsed_ += static_cast<int>(late) + 1;
    }

private:
    timespec next_ = MonotonicNow();
    int elapsed_ = 0;
};
