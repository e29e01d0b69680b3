// What making and extracting cabinets share: the header of the file, the words of its directory, and progress.
#pragma once

#include <ZKQ_general/mycab.h>
#include <endian.h>
#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <array>
#include <string_view>

/// The first bytes of a cabinet, little-endian.
struct CabHeader {
    int64_t Count;
    int64_t DirectoryPos;
    int64_t DirectoryCompactSize;
    int64_t DirectorySize;
    int64_t Reserved[12];
};
static_assert(sizeof(CabHeader) == 128);

/// Swaps a number between the order of a cabinet and that of the machine.
inline int64_t CabNumber(int64_t number)
{
    return static_cast<int64_t>(le64toh(static_cast<uint64_t>(number)));
}

/// A member has a section "File" and its number in the directory, with these keys.
inline constexpr std::string_view kCabSection = "File";
enum CabKey { kCabName, kCabStartPos, kCabCompactSize, kCabSize, kCabTime, kCabAccessFlag, kCabKeys };
inline constexpr std::array<std::string_view, kCabKeys> kCabKeyNames = {"Name", "StartPos", "CompactSize",
                                                                        "Size", "Time",     "AccessFlag"};

/// Tells the caller how far the work has come.
class MyCab_Progress {
public:
    MyCab_Progress(THREADPROC_C callback, double total) : callback_(callback), total_(total) { Finished(0); }

    void Finished(double part)
    {
        sum_ += part;
        if (callback_ == nullptr || total_ == 0)
            return;
        const auto percentage = static_cast<intptr_t>(std::min(sum_ / total_ * 100.0, 100.0));
        callback_(reinterpret_cast<void*>(percentage)); // a number the size of a pointer
    }

private:
    THREADPROC_C callback_;
    double total_;
    double sum_ = 0;
};
