// Examples of every command, in one place: the help texts and the manual page show them, and a test runs them all.
#pragma once

#include <CLI/CLI.hpp>

/// Puts the examples of each command in front of what stands at the end of its help.
void AddExamples(CLI::App& app);
