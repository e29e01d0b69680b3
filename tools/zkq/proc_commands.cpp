// zkq proc: programs, processes, instance locks.
#include <ZKQ_general/error.h>
#include <ZKQ_general/system.h>
#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "command_line.h"
#include "commands.h"
#include "failure.h"
#include "output.h"

namespace {

namespace fs = std::filesystem;

constexpr int kTimedOut = 124; // as timeout(1) has it
constexpr size_t kCommandLineSize = 2047;

struct Options {
    std::vector<std::string> words;
    std::string name;
    std::string path;
    int timeout = 0;
    bool flag = false;
};

void RunProgram(const Options& options)
{
    if (options.flag) {
        RunAndForget(options.words);
        return;
    }
    try {
        PassOn(options.words.front(), RunAndWait(options.words, options.timeout));
    } catch (const Failure& failure) {
        if (ZKQGeneral_GetGeneralErrorInfo() != std::string(strerror(ETIME)))
            throw;
        fprintf(stderr, "zkq: %s: Still running after %d s, and goes on\n", options.words.front().c_str(),
                options.timeout);
        throw CLI::RuntimeError(kTimedOut);
    }
}

/// The command line of a process as the library compares it.
std::string CommandLineOf(const fs::path& process)
{
    std::ifstream file(process / "cmdline", std::ios::binary);
    std::string text(kCommandLineSize, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    text.erase(text.find_last_not_of('\0') + 1);
    for (size_t i = 0; i + 1 < text.size(); ++i)
        if (text[i] == '\0' && text[i + 1] != '\0')
            text[i] = ' ';
    return text;
}

std::string OwnerOf(const fs::path& process)
{
    struct stat status = {};
    if (stat(process.c_str(), &status) != 0)
        return "-";
    const passwd* const user = getpwuid(status.st_uid);
    return user == nullptr ? std::to_string(status.st_uid) : user->pw_name;
}

/// The numbers of the processes with a command line, in their order.
std::vector<long> ProcessesOf(const std::string& commandLine)
{
    std::vector<long> numbers;
    std::error_code error;
    for (fs::directory_iterator at("/proc", error), end; at != end && !error; at.increment(error)) {
        const std::string name = at->path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos && CommandLineOf(at->path()) == commandLine)
            numbers.push_back(std::stol(name));
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

bool IsRunning(const std::string& commandLine)
{
    int running = 0;
    if (!ZKQGeneral_IsApplicationRunning(commandLine.c_str(), &running))
        throw LibraryFailure("cannot list processes");
    return running != 0;
}

void RequireRunning(const std::string& commandLine)
{
    if (!IsRunning(commandLine))
        throw Failure(commandLine, "No process has this command line");
}

void Find(const Options& options)
{
    const std::string commandLine = Joined(options.words);
    RequireRunning(commandLine);
    PrintLine("    PID  User      Command line");
    for (const long number : ProcessesOf(commandLine)) {
        char line[64];
        snprintf(line, sizeof line, "%7ld  %-8s  ", number, OwnerOf("/proc/" + std::to_string(number)).c_str());
        PrintLine(line + commandLine);
    }
}

void Kill(const Options& options)
{
    const std::string commandLine = Joined(options.words);
    RequireRunning(commandLine);
    const ErrorMark mark;
    // Without a text some other process could not be looked at; that may just have ended.
    if (!ZKQGeneral_TerminateApplication(commandLine.c_str()) && mark.Changed())
        throw LibraryFailure("cannot kill " + commandLine);
}

std::string LockFile(const Options& options)
{
    const std::string directory = options.path.empty() ? "/tmp" : options.path;
    return directory + (directory.ends_with('/') ? "" : "/") + options.name;
}

void CreateLockFile(const std::string& file)
{
    const int fd = open(file.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (fd < 0)
        throw SystemFailure("cannot create " + file, errno);
    close(fd);
}

/// A lock that cannot be had because it is held leaves no text.
Failure LockFailure(const std::string& file, const ErrorMark& mark)
{
    return mark.Changed() ? LibraryFailure("cannot lock " + file) : Failure(file, "Held by another process");
}

void Lock(const Options& options)
{
    const std::string file = LockFile(options);
    if (options.flag)
        CreateLockFile(file);
    const ErrorMark mark;
    if (options.words.empty()) {
        if (ZKQGeneral_DetectApplication(options.name.c_str(), options.path.c_str()))
            throw LockFailure(file, mark);
        PrintLine(file + ": free");
        return;
    }
    if (!ZKQGeneral_SingleInstance(options.name.c_str(), options.path.c_str()))
        throw LockFailure(file, mark);
    PassOn(options.words.front(), RunAndWait(options.words));
}

void AddRun(CLI::App& proc)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = proc.add_subcommand("run", "Run a program and end with its exit status");
    command
        ->add_option("PROGRAM", options->words, "The program and its arguments; put -- before it if any begins with -")
        ->required()
        ->type_name("");
    CLI::Option* timeout =
        command->add_option("--timeout", options->timeout, "Wait so many seconds; the program then goes on")
            ->type_name("SECONDS")
            ->check(CLI::PositiveNumber);
    command->add_flag("--no-wait", options->flag, "Do not wait at all")->excludes(timeout);
    command->footer("Exit status: that of the program, 128 and the signal's number if one has ended it,\n"
                    "124 after the time-out, 1 if there is no such program.");
    command->callback([options] { RunProgram(*options); });
}

void AddWords(CLI::App* command, Options& options)
{
    command->add_option("WORD", options.words, "The whole command line, program and arguments; -- before any with a -")
        ->required()
        ->type_name("");
}

void AddFind(CLI::App& proc)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = proc.add_subcommand("find", "List the processes that have exactly this command line");
    AddWords(command, *options);
    command->callback([options] { Find(*options); });
}

void AddKill(CLI::App& proc)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = proc.add_subcommand("kill", "Kill all processes that have exactly this command line");
    AddWords(command, *options);
    command->callback([options] { Kill(*options); });
}

void AddLock(CLI::App& proc)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command =
        proc.add_subcommand("lock", "Hold an instance lock while a program runs, or look whether it is free");
    command->add_option("NAME", options->name, "The lock file's name")->required()->type_name("");
    command
        ->add_option("PROGRAM", options->words, "The program and its arguments; without it the lock is only looked at")
        ->type_name("");
    command->add_option("--path", options->path, "The lock file's directory; /tmp by default")->type_name("DIR");
    command->add_flag("--create", options->flag, "Create the lock file if there is none");
    command->callback([options] { Lock(*options); });
}

} // namespace

void AddProcCommands(CLI::App& app)
{
    CLI::App* proc = app.add_subcommand("proc", "Run programs, find and kill processes, hold instance locks");
    proc->require_subcommand(1);
    AddRun(*proc);
    AddFind(*proc);
    AddKill(*proc);
    AddLock(*proc);
}
