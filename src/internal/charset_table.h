// What the system's converters make of single characters, remembered: they know the answer, and asking them for each
// character of a text is slow. Tables are filled a row at a time when a text first needs it, by any number of threads at
// once, which all write the same.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <atomic>

/// Bytes from this one on begin or continue a character that is not ASCII.
inline constexpr unsigned kFirstHighByte = 0x80;

/// GBK to UCS-2, by first byte.
class GbkTable {
public:
    /// The character of a pair of bytes; 0 if the table has none.
    uint16_t Pair(unsigned lead, unsigned trail) const
    {
        return trail < kFirstTrail ? uint16_t{0} : pairs_[lead - kFirstHighByte][trail - kFirstTrail].load(kRelaxed);
    }
    /// The character of a byte that stands alone; 0 if the table has none.
    uint16_t Single(unsigned byte) const { return singles_[byte - kFirstHighByte].load(kRelaxed); }

    /// Fills in what begins with a byte; false if that has been done already, or cannot be.
    bool Load(unsigned lead);

private:
    static constexpr unsigned kRows = 0x100 - kFirstHighByte;
    static constexpr unsigned kFirstTrail = 0x40;
    static constexpr unsigned kTrails = 0x100 - kFirstTrail;
    static constexpr std::memory_order kRelaxed = std::memory_order_relaxed;

    std::array<std::array<std::atomic<uint16_t>, kTrails>, kRows> pairs_;
    std::array<std::atomic<uint16_t>, kRows> singles_;
    std::array<std::atomic<bool>, kRows> isLoaded_;
};

/// UCS-2 to GBK, by high byte.
class Ucs2Table {
public:
    /// The bytes of a character as they lie in memory, the second one 0 if there is but one; 0 if the table has none.
    uint16_t Gbk(unsigned unit) const { return bytes_[unit].load(std::memory_order_relaxed); }

    /// Fills in the 256 characters with a high byte; false if that has been done already, or cannot be.
    bool Load(unsigned high);

private:
    std::array<std::atomic<uint16_t>, 0x10000> bytes_;
    std::array<std::atomic<bool>, 0x100> isLoaded_;
};

extern GbkTable g_GbkTable;
extern Ucs2Table g_Ucs2Table;
