#include "download.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>

#include "failure.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kEnough = SIGUSR1; // tells the watcher to end; nobody else sends it to a thread
constexpr std::chrono::seconds kPatience(1);
constexpr timespec kInterval = {0, 200'000'000};

/// The interruptions that would end the program.
sigset_t Interruptions()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset(&set, number);
    }
    return set;
}

uintmax_t BytesIn(const std::string& directory)
{
    uintmax_t bytes = 0;
    std::error_code error;
    for (fs::directory_iterator at(directory, error), end; !error && at != end; at.increment(error)) {
        std::error_code ignored;
        const uintmax_t size = fs::file_size(at->path(), ignored);
        bytes += ignored ? 0 : size;
    }
    return bytes;
}

std::string Amount(double bytes)
{
    constexpr const char* kUnits[] = {"bytes", "KB", "MB", "GB", "TB"};
    constexpr double kStep = 1000;
    size_t unit = 0;
    for (; bytes >= kStep && unit + 1 < std::size(kUnits); ++unit)
        bytes /= kStep;
    char text[64];
    snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
    return text;
}

/// How much has come, in one line of the terminal that disappears again. Nobody says how much is to come.
class Display {
public:
    void Show(const std::string& directory)
    {
        const std::chrono::duration<double> passed = Clock::now() - start_;
        if (!is_terminal_ || passed < kPatience)
            return;
        const auto bytes = static_cast<double>(BytesIn(directory));
        fprintf(stderr, "\r\033[Kreceived %s, %s/s", Amount(bytes).c_str(), Amount(bytes / passed.count()).c_str());
        is_shown_ = true;
    }
    void Clear()
    {
        if (is_shown_)
            fputs("\r\033[K", stderr);
    }

private:
    Clock::time_point start_ = Clock::now();
    bool is_terminal_ = isatty(STDERR_FILENO) != 0;
    bool is_shown_ = false;
};

void Remove(const std::string& directory)
{
    std::error_code ignored;
    fs::remove_all(directory, ignored);
}

} // namespace

ArrivalDirectory::ArrivalDirectory(const std::string& parent)
    : path_((parent.empty() ? "." : parent) + "/.zkq-XXXXXX"), watched_(Interruptions())
{
    sigaddset(&watched_, kEnough);
    pthread_sigmask(SIG_BLOCK, &watched_, &before_);
    if (mkdtemp(path_.data()) == nullptr) {
        const int reason = errno;
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        throw SystemFailure("cannot write into " + (parent.empty() ? "." : parent), reason);
    }
    watcher_ = std::thread([this] { Watch(); });
}

ArrivalDirectory::~ArrivalDirectory()
{
    pthread_kill(watcher_.native_handle(), kEnough);
    watcher_.join();
    Remove(path_);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void ArrivalDirectory::Watch()
{
    Display display;
    for (;;) {
        const int number = sigtimedwait(&watched_, nullptr, &kInterval);
        if (number < 0) {
            display.Show(path_);
            continue;
        }
        display.Clear();
        if (number == kEnough)
            return;
        Remove(path_);
        signal(number, SIG_DFL);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        raise(number);
    }
}
