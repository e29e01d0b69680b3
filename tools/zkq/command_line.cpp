#include "command_line.h"

#include <ZKQ_general/system.h>
#include <stdio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "failure.h"
#include "output.h"

namespace {

/// A word that the shell takes as it is.
std::string Quoted(const std::string& word)
{
    std::string quoted = "'";
    for (const char byte : word) {
        if (byte == '\'')
            quoted += "'\\''";
        else
            quoted += byte;
    }
    return quoted + "'";
}

/// The library does not quote the program's name.
void RequirePlainName(const std::string& program)
{
    constexpr char kPlain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+-,:@%^";
    if (program.empty() || program.find_first_not_of(kPlain) != std::string::npos)
        throw Failure("cannot run \"" + program + "\"", "The shell would take this name for something else");
}

int Run(const std::vector<std::string>& command, bool wait, int timeout)
{
    const std::string& program = command.front();
    RequirePlainName(program);
    std::string parameter;
    for (size_t i = 1; i < command.size(); ++i)
        parameter += Quoted(command[i]) + " ";
    parameter += "; exit $?"; // a shell that stays tells of signals, too
    FlushOutput();
    DWORD status = 0;
    if (!ZKQGeneral_WinExecFileAndGetRetCodeEx(program.c_str(), parameter.c_str(), wait ? TRUE : FALSE, &status,
                                               timeout))
        throw LibraryFailure("cannot run " + program);
    return static_cast<int>(status);
}

} // namespace

std::string Joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (&word == &words.front() ? "" : " ") + word;
    return text;
}

int RunAndWait(const std::vector<std::string>& command, int timeout)
{
    return Run(command, true, timeout);
}

void RunAndForget(const std::vector<std::string>& command)
{
    Run(command, false, 0);
}

void PassOn(const std::string& program, int status)
{
    if (status == 0)
        return;
    if (isatty(STDERR_FILENO))
        fprintf(stderr, "zkq: %s: Exit status %d\n", program.c_str(), status);
    throw CLI::RuntimeError(status);
}
