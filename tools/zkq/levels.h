// Log levels as people write them: "off", "all", a list of names, or the number that stands in the switch file.
#pragma once

#include <string>

/// The empty text if `text` names levels, otherwise what is wrong with it.
std::string CheckLevels(const std::string& text);

/// `text` has passed CheckLevels().
int ParseLevels(const std::string& text);

/// Both forms, such as "12 (warn,error)".
std::string DescribeLevels(int levels);
