// The end of a log, and what is added to it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "charset.h"

class LogTail {
public:
    /// With `gbk` the log is shown in the charset of the terminal, otherwise byte for byte.
    LogTail(const std::string& file, bool gbk);
    ~LogTail();
    LogTail(const LogTail&) = delete;
    LogTail& operator=(const LogTail&) = delete;

    void ShowLast(size_t lines);
    /// Shows what is added until the user interrupts. Programs delete a log that has grown too large and start a new
    /// one of that name, so the name is watched and not only the open file.
    void Follow();

private:
    void Open();
    void ShowRest();
    void Show(const char* bytes, size_t size);
    off_t StartOfLast(size_t lines) const;
    off_t Size() const;
    bool IsReplaced() const;
    void Reopen();

    std::string file_;
    int descriptor_ = -1;
    off_t position_ = 0;
    std::optional<GbkReader> reader_;
};
