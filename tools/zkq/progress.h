// A progress bar on standard error while something takes its time. Where that is no terminal there is none.
#pragma once

#include <ZKQ_general/types.h>

class ProgressBar {
public:
    explicit ProgressBar(bool quiet);
    /// Leaves no trace of it.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Draws the bar anew if the percentage is another one.
    void Show(long percentage);
    /// What the library is to call, which draws the bar that was made last; null if there is none to draw.
    THREADPROC_C Callback() const;

private:
    bool shown_;
    long percentage_ = -1;
};
