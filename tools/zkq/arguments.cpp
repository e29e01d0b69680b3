#include "arguments.h"

#include <algorithm>

namespace {

constexpr char kGuard = '\x01'; // in front of an argument, it keeps the parser from seeing a meaning

bool NeedsGuard(const std::string& argument)
{
    return argument.starts_with('[') || argument.starts_with(kGuard);
}

bool IsEmptyValue(const std::string& argument)
{
    return argument.starts_with("--") && argument.ends_with('=');
}

std::string WithoutGuard(std::string argument)
{
    if (argument.starts_with(kGuard))
        argument.erase(0, 1);
    return argument;
}

} // namespace

std::vector<std::string> GuardedArguments(int argc, char** argv)
{
    std::vector<std::string> arguments;
    bool texts_only = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (!texts_only && argument == "--") {
            texts_only = true;
        } else if (texts_only || NeedsGuard(argument)) {
            arguments.push_back(kGuard + argument);
        } else if (IsEmptyValue(argument)) {
            arguments.push_back(argument.substr(0, argument.size() - 1));
            arguments.emplace_back();
        } else {
            arguments.push_back(argument);
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

void UnguardOptions(CLI::App& app)
{
    for (CLI::Option* option : app.get_options()) {
        if (option->get_items_expected_max() > 0)
            option->transform(WithoutGuard);
    }
    for (CLI::App* command : app.get_subcommands({}))
        UnguardOptions(*command);
}

std::string Unguarded(std::string message)
{
    std::erase(message, kGuard);
    return message;
}
