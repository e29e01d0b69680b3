#include "charset_table.h"

#include <string.h>

#include <bit>
#include <span>

#include "converter.h"

static_assert(std::endian::native == std::endian::little, "characters are stored as they lie in memory");

constinit GbkTable g_GbkTable = {};
constinit Ucs2Table g_Ucs2Table = {};

namespace {

constexpr size_t kUnit = 2; ///< bytes of a UCS-2 character, and of a GBK pair

/// Characters of two bytes each, and what a converter makes of each of them.
struct Row {
    std::span<const unsigned char> units;
    unsigned char results[0x100][kUnit]; ///< both zero for what is no character, or has no result of one or two bytes

    size_t Count() const { return units.size() / kUnit; }
};

/// Converts one character.
void ConvertOne(Converter& converter, Row* row, size_t index)
{
    unsigned char room[8];
    const unsigned char* in = &row->units[index * kUnit];
    unsigned char* out = room;
    const bool converted = converter.Run(&in, kUnit, &out, sizeof room) == 0;
    const auto length = static_cast<size_t>(out - room);
    if (converted && length <= kUnit)
        memcpy(row->results[index], room, length);
}

/// Converts characters from `first` on up to one that fails; the number that did not.
size_t ConvertRun(Converter& converter, Row* row, size_t first, int* error)
{
    unsigned char room[0x100 * 4];
    const unsigned char* const start = &row->units[first * kUnit];
    const unsigned char* in = start;
    unsigned char* out = room;
    *error = converter.Run(&in, row->units.size() - first * kUnit, &out, sizeof room);
    const auto length = static_cast<size_t>(in - start);
    const size_t count = length / kUnit;
    if (static_cast<size_t>(out - room) == length) {
        memcpy(row->results[first], room, length);
    } else { // some have results of another length: one by one it is clear which
        for (size_t i = first; i < first + count; ++i)
            ConvertOne(converter, row, i);
    }
    return count;
}

/// Fills in the results; false if the converter fails for another reason than its input.
bool ConvertRow(Converter& converter, Row* row)
{
    int error = converter.Error();
    size_t next = 0;
    while (error == 0 && next < row->Count()) {
        next += ConvertRun(converter, row, next, &error);
        if (error == EILSEQ || error == EINVAL) {
            error = 0;
            ++next;
        }
    }
    return error == 0;
}

uint16_t ResultOf(const Row& row, size_t index)
{
    uint16_t result = 0;
    memcpy(&result, row.results[index], sizeof result);
    return result;
}

/// What a byte of GBK means by itself: a character, or 0 and an errno value.
uint16_t ConvertByte(Converter& converter, unsigned char byte, int* error)
{
    unsigned char room[8] = {};
    const unsigned char* in = &byte;
    unsigned char* out = room;
    *error = converter.Run(&in, 1, &out, sizeof room);
    uint16_t unit = 0;
    if (*error == 0 && out - room == kUnit)
        memcpy(&unit, room, kUnit);
    return unit;
}

} // namespace

bool GbkTable::Load(unsigned lead)
{
    const unsigned place = lead - kFirstHighByte;
    if (isLoaded_[place].load(std::memory_order_acquire))
        return false;
    Converter converter(kGbkToUcs2);
    if (converter.Error() != 0)
        return false;
    int error = 0;
    singles_[place].store(ConvertByte(converter, static_cast<unsigned char>(lead), &error), kRelaxed);
    if (error == EINVAL) { // it wants a second byte
        unsigned char pairs[kTrails * kUnit];
        for (unsigned i = 0; i < kTrails; ++i) {
            pairs[i * kUnit] = static_cast<unsigned char>(lead);
            pairs[i * kUnit + 1] = static_cast<unsigned char>(kFirstTrail + i);
        }
        Row row = {pairs, {}};
        if (!ConvertRow(converter, &row))
            return false;
        for (unsigned i = 0; i < kTrails; ++i)
            pairs_[place][i].store(ResultOf(row, i), kRelaxed);
    }
    isLoaded_[place].store(true, std::memory_order_release);
    return true;
}

bool Ucs2Table::Load(unsigned high)
{
    if (isLoaded_[high].load(std::memory_order_acquire))
        return false;
    unsigned char units[0x100 * kUnit];
    for (unsigned low = 0; low < 0x100; ++low) {
        units[low * kUnit] = static_cast<unsigned char>(low);
        units[low * kUnit + 1] = static_cast<unsigned char>(high);
    }
    Converter converter(kUcs2ToGbk);
    Row row = {units, {}};
    if (!ConvertRow(converter, &row))
        return false;
    for (unsigned low = 0; low < 0x100; ++low)
        bytes_[high * 0x100 + low].store(ResultOf(row, low), std::memory_order_relaxed);
    isLoaded_[high].store(true, std::memory_order_release);
    return true;
}
