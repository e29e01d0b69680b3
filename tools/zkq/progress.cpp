#include "progress.h"

#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace {

constexpr long kAll = 100;
constexpr size_t kUsualWidth = 80;
constexpr size_t kBesideTheBar = 8; // brackets, percentage, and the last column, where some terminals begin a new line

ProgressBar* current = nullptr;

size_t TerminalWidth()
{
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

void* ShowCurrent(void* percentage)
{
    if (current != nullptr)
        current->Show(reinterpret_cast<long>(percentage));
    return nullptr;
}

} // namespace

ProgressBar::ProgressBar(bool quiet) : shown_(!quiet && isatty(STDERR_FILENO))
{
    current = this;
}

ProgressBar::~ProgressBar()
{
    current = nullptr;
    if (percentage_ >= 0)
        fputs("\r\033[K", stderr);
}

void ProgressBar::Show(long percentage)
{
    percentage = std::clamp(percentage, 0L, kAll); // files may grow while they are read
    if (!shown_ || percentage == percentage_)
        return;
    percentage_ = percentage;
    const size_t width = TerminalWidth();
    if (width <= kBesideTheBar) {
        fprintf(stderr, "\r%3ld%%", percentage);
        return;
    }
    std::string bar((width - kBesideTheBar) * static_cast<size_t>(percentage) / kAll, '#');
    bar.resize(width - kBesideTheBar, ' ');
    fprintf(stderr, "\r[%s] %3ld%%", bar.c_str(), percentage);
}

THREADPROC_C ProgressBar::Callback() const
{
    return shown_ ? ShowCurrent : nullptr;
}
