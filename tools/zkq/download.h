// Files that arrive slowly: a directory of their own until they are complete, and a display of how far they have come.
#pragma once

#include <signal.h>

#include <string>
#include <thread>

/// A new directory, removed with all that is left in it, also when the user interrupts the program.
class ArrivalDirectory {
public:
    explicit ArrivalDirectory(const std::string& parent);
    ArrivalDirectory(const ArrivalDirectory&) = delete;
    ArrivalDirectory& operator=(const ArrivalDirectory&) = delete;
    ~ArrivalDirectory();

    const std::string& Path() const { return path_; }

private:
    void Watch();

    std::string path_;
    sigset_t watched_;
    sigset_t before_;
    std::thread watcher_;
};
