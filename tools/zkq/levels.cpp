#include "levels.h"

#include <ZKQ_general/log.h>

#include <charconv>
#include <optional>
#include <sstream>

namespace {

struct Level {
    const char* name;
    int mask;
};

constexpr Level kLevels[] = {
    {"debug", ZKQ_LOG_DEBUG}, {"info", ZKQ_LOG_INFO}, {"warn", ZKQ_LOG_WARN}, {"error", ZKQ_LOG_ERROR}};

std::optional<int> Number(const std::string& text)
{
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return number;
}

std::optional<int> Mask(const std::string& name)
{
    for (const Level& level : kLevels) {
        if (name == level.name)
            return level.mask;
    }
    return std::nullopt;
}

std::optional<int> List(const std::string& text)
{
    int levels = 0;
    std::istringstream names(text + ",");
    for (std::string name; std::getline(names, name, ',');) {
        const std::optional<int> mask = Mask(name);
        if (!mask)
            return std::nullopt;
        levels |= *mask;
    }
    return levels;
}

std::optional<int> Parse(const std::string& text)
{
    if (text == "off")
        return 0;
    if (text == "all")
        return ZKQ_LOG_ALL;
    const std::optional<int> number = Number(text);
    return number ? number : List(text);
}

std::string Names(int levels)
{
    if (levels == 0)
        return "off";
    if (levels == ZKQ_LOG_ALL)
        return "all";
    std::string names;
    for (const Level& level : kLevels) {
        if ((levels & level.mask) != 0)
            names += (names.empty() ? "" : ",") + std::string(level.name);
        levels &= ~level.mask;
    }
    // Programs may use bits of their own.
    if (levels != 0)
        names += names.empty() ? "other" : ",other";
    return names;
}

} // namespace

std::string CheckLevels(const std::string& text)
{
    return Parse(text) ? "" : "\"" + text + "\" is not off, all, a list of debug, info, warn and error, or a number";
}

int ParseLevels(const std::string& text)
{
    return Parse(text).value_or(0);
}

std::string DescribeLevels(int levels)
{
    return std::to_string(levels) + " (" + Names(levels) + ")";
}
