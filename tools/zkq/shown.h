// Bytes and texts from anywhere, in a form that no terminal takes for commands.
#pragma once

#include <string>
#include <string_view>

/// "0a 1b ...", cut after `most` bytes.
std::string ShownBytes(std::string_view bytes, size_t most);

/// A text in the charset of the terminal with "\x1b" in place of control characters and "\\" in place of a backslash.
std::string WithoutControls(std::string_view text);

/// A number with a word in the singular or, with an "s", in the plural.
std::string Counted(size_t count, const std::string& word);
