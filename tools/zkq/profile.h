// Profile files as the commands see them: what is missing or malformed is told, and nothing is written that would not
// be read back.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "failure.h"

class Profile {
public:
    explicit Profile(const std::string& file);

    std::optional<std::string> Value(const std::string& section, const std::string& key) const;
    /// The number that programs see, which is 0 for a key that is not there.
    int Number(const std::string& section, const std::string& key) const;
    std::vector<std::string> Sections() const;
    std::vector<std::string> Keys(const std::string& section) const;
    bool HasSection(const std::string& section) const;
    /// Fails for a text that the library would lose a part of if it rewrote it.
    void RequireWellFormed() const;

private:
    Failure Malformed() const;

    std::string file_;
    std::string text_;
};

void SetProfileValue(const std::string& file, const std::string& section, std::string key, std::string value);
void DeleteProfileKey(const std::string& file, const std::string& section, const std::string& key);
void DeleteProfileSection(const std::string& file, const std::string& section);
