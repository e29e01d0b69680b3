// Standard output. A result that did not reach its reader is a failure of the command.
#pragma once

#include <string_view>

void Print(std::string_view text);
void PrintLine(std::string_view text);
void FlushOutput();
