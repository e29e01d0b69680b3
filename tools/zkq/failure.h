// Why a command could not do its work. A command throws; main prints the text and ends with status 1.
#pragma once

#include <stdexcept>
#include <string>

class Failure : public std::runtime_error {
public:
    Failure(const std::string& what, const std::string& why) : std::runtime_error(what + ": " + why) {}
};

/// The reason is the library's error text.
Failure LibraryFailure(const std::string& what);

/// The reason is the system's text for `number`, an errno value.
Failure SystemFailure(const std::string& what, int number);

/// Sees whether the library has left a new error text. Some of its failures are told by the text alone, some leave
/// none.
class ErrorMark {
public:
    ErrorMark();
    bool Changed() const;

private:
    std::string before_;
};
