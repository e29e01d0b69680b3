// Programs that the tool runs through the library, which hands them to the shell.
#pragma once

#include <string>
#include <vector>

/// The words with blanks between them, as the library writes the command line of a process.
std::string Joined(const std::vector<std::string>& words);

/// Runs a program with arguments, each of which reaches it as it is, and waits for its end: the exit status, or 128 and the
/// number of the signal that has ended it. After a time-out in seconds (0 is none) it fails, and the program goes on.
int RunAndWait(const std::vector<std::string>& command, int timeout = 0);

/// As RunAndWait(), without waiting.
void RunAndForget(const std::vector<std::string>& command);

/// Ends the tool with the exit status of a program. One that is not 0 is told where a person reads.
void PassOn(const std::string& program, int status);
