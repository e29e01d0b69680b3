// Signals that come all the time, into whatever call is blocked.
#pragma once

#include <signal.h>
#include <sys/time.h>

namespace support {

/// While it lives SIGALRM comes every few hundred microseconds and interrupts every call that can be.
class SignalStorm {
public:
    SignalStorm()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &old_);
        const itimerval often = {{0, 300}, {0, 300}};
        setitimer(ITIMER_REAL, &often, &oldTimer_);
    }
    ~SignalStorm()
    {
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        signal(SIGALRM, SIG_IGN); // what is still on its way is thrown away, not left to the old action
        sigaction(SIGALRM, &old_, nullptr);
        setitimer(ITIMER_REAL, &oldTimer_, nullptr);
    }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

private:
    struct sigaction old_ = {};
    itimerval oldTimer_ = {}; ///< perhaps a time limit of the test
};

} // namespace support
