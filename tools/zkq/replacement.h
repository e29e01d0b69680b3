// Files that are rewritten: the old one stays until the new one is complete.
#pragma once

#include <string>
#include <string_view>

/// Replaces a file, which need not be there, keeping its mode; links are followed.
void ReplaceFile(const std::string& file, std::string_view content);
