#include "json_text.h"

#include <ZKQ_general/error.h>
#include <ZKQ_general/json.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>

#include "failure.h"

namespace {

/// Where a string ends that begins at `start`.
size_t StringEnd(std::string_view text, size_t start)
{
    size_t place = start + 1;
    while (place < text.size() && text[place] != '"')
        place += text[place] == '\\' ? 2 : 1;
    return std::min(place + 1, text.size());
}

bool IsInNumber(char c)
{
    return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
}

std::vector<std::string> NumbersIn(std::string_view text)
{
    std::vector<std::string> numbers;
    for (size_t place = 0; place < text.size();) {
        if (text[place] == '"') {
            place = StringEnd(text, place);
        } else if (text[place] == '-' || (text[place] >= '0' && text[place] <= '9')) {
            const auto* const end = std::find_if_not(text.begin() + place, text.end(), IsInNumber);
            numbers.emplace_back(text.begin() + place, end);
            place = static_cast<size_t>(end - text.begin());
        } else {
            ++place;
        }
    }
    return numbers;
}

/// Whether a text between other texts is read, and how many elements it makes if these are brackets; -1 if it is not.
int CountBetween(const char* before, const std::string& text, const char* after)
{
    void* document = nullptr;
    if (JSON_Misc_InitJSON((before + text + after).c_str(), &document) != 0)
        return -1;
    int count = 0;
    size_t* list = nullptr;
    if (JSON_Misc_GetArrayInfo(document, nullptr, &count, &list) == 0)
        ZKQGeneral_FreeMallocBuffer(list);
    JSON_Misc_FiniJSON(document, nullptr);
    return count;
}

/// Whether a text is one value and nothing else: then it is one element between brackets, and one member between braces.
bool IsOneValue(const std::string& text)
{
    return CountBetween("[", text, "]") == 1 && CountBetween("{\"\":", text, "}") >= 0;
}

std::string_view WithoutBlanks(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\n";
    const size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
    text.remove_prefix(first);
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

} // namespace

std::string FormattedJson(const std::string& text, const std::string& file)
{
    constexpr int kBadData = -8;
    if (text.find('\0') != std::string::npos)
        throw Failure("cannot read " + file, "The file holds NUL bytes and is no text");
    void* document = nullptr;
    if (const int error = JSON_Misc_InitJSON(text.c_str(), &document))
        throw Failure("cannot read " + file, error == kBadData ? "Not a JSON text" : "Out of memory");
    char* written = nullptr;
    JSON_Misc_FiniJSON(document, &written);
    if (written == nullptr)
        throw Failure("cannot format " + file, "The text would be too long");
    const std::unique_ptr<char, decltype(&ZKQGeneral_FreeMallocBuffer)> owner(written, &ZKQGeneral_FreeMallocBuffer);
    return written;
}

std::string LostByFormatting(const std::string& text, const std::string& formatted)
{
    if (!IsOneValue(text))
        return "Something follows its first value, or a string in it has no end";
    const std::vector<std::string> before = NumbersIn(text);
    const std::vector<std::string> after = NumbersIn(formatted);
    if (before.size() != after.size())
        return "Its numbers cannot be told";
    for (size_t i = 0; i < before.size(); ++i)
        if (strtod(before[i].c_str(), nullptr) != strtod(after[i].c_str(), nullptr))
            return "The number " + before[i] + " would become " + after[i];
    return "";
}

std::vector<std::string_view> PartsOf(std::string_view container)
{
    std::vector<std::string_view> parts;
    if (container.size() <= 2)
        return parts;
    const size_t end = container.size() - 1;
    size_t first = 1;
    size_t depth = 0;
    for (size_t place = 1; place < end;) {
        const char c = container[place];
        if (c == '"') {
            place = StringEnd(container, place);
            continue;
        }
        depth += c == '[' || c == '{' ? 1 : 0;
        depth -= c == ']' || c == '}' ? 1 : 0;
        if (c == ',' && depth == 0) {
            parts.push_back(WithoutBlanks(container.substr(first, place - first)));
            first = place + 1;
        }
        ++place;
    }
    parts.push_back(WithoutBlanks(container.substr(first, end - first)));
    return parts;
}

std::vector<JsonMember> MembersOf(std::string_view object)
{
    std::vector<JsonMember> members;
    for (const std::string_view part : PartsOf(object)) {
        const size_t end = StringEnd(part, 0);
        members.push_back({DecodedJson(part.substr(0, end)), part.substr(end + 1)});
    }
    return members;
}

std::string DecodedJson(std::string_view value)
{
    void* document = nullptr;
    char* text = nullptr;
    if (JSON_Misc_InitJSON(std::string(value).c_str(), &document) != 0)
        throw Failure("cannot decode a string", "Out of memory");
    JSON_Misc_GetString(document, nullptr, &text);
    std::string decoded = text == nullptr ? "" : text;
    JSON_Misc_FiniJSON(document, nullptr);
    return decoded;
}

std::string ShownJson(std::string_view value)
{
    const auto breaks = [](char c) { return c >= 0 && c < ' '; };
    if (!value.empty() && value[0] == '"') {
        std::string text = DecodedJson(value);
        return std::any_of(text.begin(), text.end(), breaks) ? std::string(value) : text;
    }
    std::string line(value);
    line.erase(std::remove_if(line.begin(), line.end(), breaks), line.end());
    return line;
}
