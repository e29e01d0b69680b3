// Whole files as input, or what arrives on standard input.
#pragma once

#include <string>

/// All bytes of a file; standard input for the empty name. More than the library's functions take is a failure.
std::string ReadInput(const std::string& file);

/// All bytes of a regular file, read as the library reads files.
std::string ReadRegularFile(const std::string& file);

/// How an input is called in messages.
std::string InputName(const std::string& file);
