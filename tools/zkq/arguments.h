// Command lines as people know them, for a parser that gives some texts a meaning of its own.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

/// The arguments in the order that the parser wants (last first), changed so that it takes texts as they are: "[a]" is
/// not a list, "--option=" has an empty value, and whatever follows "--" is no option.
std::vector<std::string> GuardedArguments(int argc, char** argv);

/// Makes every option and positional of the commands receive its text without the guard.
void UnguardOptions(CLI::App& app);

/// A message of the parser, which may quote arguments, without guards.
std::string Unguarded(std::string message);
