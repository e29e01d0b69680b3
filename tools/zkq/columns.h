// Tables of texts in columns.
#pragma once

#include <string>
#include <vector>

using Row = std::vector<std::string>;

/// Prints rows of as many texts each, the heading first.
void PrintTable(const std::vector<Row>& rows);
