// Signals at a high rate, for calls that may block.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include "child.h"

namespace support {

/// In a child: while it lives, signals come every 200 microseconds.
class Signals {
public:
    Signals()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        EXPECT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
        const itimerval often = {{0, 200}, {0, 200}};
        EXPECT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals()
    {
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        alarm(kChildSeconds);
    }
};

} // namespace support
