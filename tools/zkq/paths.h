// Names of files as people give them, made fit for the library, which takes them more literally.
#pragma once

#include <string>

/// The library sees the length of a link, not that of what it points to: a link is replaced by its target. A link that
/// leads nowhere stays.
std::string Resolved(const std::string& path);

/// Fails for anything but a regular file, directories included; a missing file is left to who opens it.
void RequireRegular(const std::string& path);

/// Fails for a file that has content and claims to have none, as those in /proc do: the library would see it empty.
void RequireLength(const std::string& path);

void RequireDirectory(const std::string& path);
