// Working directory and file mode mask, put back when the test ends.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace support {

class WorkingDir {
public:
    explicit WorkingDir(const std::string& path) : before_(std::filesystem::current_path())
    {
        EXPECT_EQ(chdir(path.c_str()), 0) << path;
    }
    ~WorkingDir()
    {
        std::error_code ignored;
        std::filesystem::current_path(before_, ignored);
    }
    WorkingDir(const WorkingDir&) = delete;
    WorkingDir& operator=(const WorkingDir&) = delete;

private:
    std::filesystem::path before_;
};

class Umask {
public:
    explicit Umask(mode_t mask) : before_(umask(mask)) {}
    ~Umask() { umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t before_;
};

} // namespace support
