// JSON texts as the library writes them, taken apart.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A text as the library writes it, line by line.
std::string FormattedJson(const std::string& text, const std::string& file);

/// Why rewriting a text would lose something of it; empty if nothing is lost.
std::string LostByFormatting(const std::string& text, const std::string& formatted);

/// The values in an array or object; in an object, each with its name in front.
std::vector<std::string_view> PartsOf(std::string_view container);

struct JsonMember {
    std::string name;
    std::string_view value;
};

/// The members of an object.
std::vector<JsonMember> MembersOf(std::string_view object);

/// The text of a string without its quotation marks and escapes.
std::string DecodedJson(std::string_view value);

/// A value in one line: a string as it is, unless it breaks the line.
std::string ShownJson(std::string_view value);
