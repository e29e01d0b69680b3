#include "columns.h"

#include <algorithm>

#include "output.h"

namespace {

/// The columns that a text takes in UTF-8, near enough.
size_t Width(const std::string& text)
{
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

} // namespace

void PrintTable(const std::vector<Row>& rows)
{
    constexpr size_t kWidest = 40; // what is wider stands out of its column
    std::vector<size_t> widths(rows[0].size());
    for (const Row& row : rows)
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], std::min(Width(row[i]), kWidest));
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] - std::min(widths[i], Width(row[i])) + 2, ' ');
        PrintLine(line.substr(0, line.find_last_not_of(' ') + 1));
    }
}
