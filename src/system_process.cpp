// Running programs.
#include <ZKQ_general/system.h>
#include <errno.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>

#include "internal/child_table.h"
#include "internal/clock.h"
#include "internal/error.h"
#include "internal/guards.h"
#include "internal/text.h"
#include "internal/tokenizer.h"

namespace {

constexpr char kShell[] = "/bin/sh";
constexpr int kCannotRun = 127 << 8; // the status of a child that could not become the shell

constinit ChildTable g_children;

/// What the shell is told to run: the program's path and its arguments.
class CommandLine {
public:
    /// Finds the program; 0 or an errno value.
    int Build(std::string_view name, std::string_view parameter)
    {
        const char* const path = getenv("PATH");
        const std::string_view directories = OrEmpty(path);
        const size_t longest = std::max(directories.size(), kPathSize) + name.size() + 2; // "/", NUL
        text_.reset(static_cast<char*>(malloc(longest + parameter.size() + 1)));          // blank
        if (text_ == nullptr)
            return ENOMEM;
        if (!Find(name, directories))
            return ENOENT;
        if (!parameter.empty()) {
            char* next = text_.get() + strlen(text_.get());
            *next++ = ' ';
            next += parameter.copy(next, parameter.size());
            *next = '\0';
        }
        return 0;
    }
    char* Get() const { return text_.get(); }

private:
    bool Find(std::string_view name, std::string_view directories)
    {
        if (directories.empty() || name.find('/') != std::string_view::npos)
            return Try("", "", name);
        Tokenizer entries(directories, ":");
        for (std::string_view entry = entries.Next(); !entry.empty(); entry = entries.Next())
            if (Try(entry, entry.ends_with('/') ? "" : "/", name))
                return true;
        char working[kPathSize];
        return getcwd(working, sizeof working) != nullptr && Try(working, "/", name);
    }

    /// Whether there is a file of this name, be it a link that leads nowhere, which the text then is.
    bool Try(std::string_view directory, std::string_view slash, std::string_view name)
    {
        char* next = text_.get();
        for (const std::string_view part : {directory, slash, name})
            next += part.copy(next, part.size());
        *next = '\0';
        struct stat status;
        return lstat(text_.get(), &status) == 0;
    }

    MallocPtr<char> text_;
};

void ReapChildren(int)
{
    g_children.Reap();
}

int InstallHandler()
{
    struct sigaction action = {};
    action.sa_handler = ReapChildren;
    action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
    sigemptyset(&action.sa_mask);
    return sigaction(SIGCHLD, &action, nullptr) == 0 ? 0 : errno;
}

/// Starts the shell without a copy of this process. 0 with the child, 0 with the child 0 if there was one that could not
/// become the shell, or an errno value.
int StartShell(char* command, pid_t* child)
{
    char name[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {name, option, command, nullptr};
    *child = 0;
    const int error = posix_spawn(child, kShell, nullptr, nullptr, arguments, environ);
    if (error != 0)
        *child = 0;
    return error == EAGAIN || error == ENOMEM ? error : 0;
}

/// Waits for a child; 0 or an errno value.
int WaitWithoutLimit(int slot, pid_t child, int* status)
{
    while (g_children.Wait(slot, child, status, 0) != child)
        if (errno != EINTR)
            return errno;
    return 0;
}

int WaitForSeconds(int slot, pid_t child, int timeout, int* status)
{
    SecondSteps steps;
    for (;;) {
        const pid_t ended = g_children.Wait(slot, child, status, WNOHANG);
        if (ended == child)
            return 0;
        if (ended < 0 && errno != EINTR)
            return errno;
        if (steps.Elapsed() >= timeout)
            return ETIME;
        steps.Sleep();
    }
}

int RunAndForget(char* command)
{
    if (const int error = InstallHandler())
        return error;
    pid_t child;
    return StartShell(command, &child);
}

int WaitFor(int slot, pid_t child, int timeout, int* status)
{
    return timeout <= 0 ? WaitWithoutLimit(slot, child, status) : WaitForSeconds(slot, child, timeout, status);
}

int RunAndWait(char* command, int timeout, int* status)
{
    *status = kCannotRun;
    g_children.BeginStart();
    pid_t child;
    int error = StartShell(command, &child);
    const int slot = child == 0 ? ChildTable::kNoSlot : g_children.Enter(child);
    if (child != 0 && slot == ChildTable::kNoSlot)
        error = WaitFor(slot, child, timeout, status);
    g_children.EndStart();
    if (slot == ChildTable::kNoSlot)
        return error;
    error = WaitFor(slot, child, timeout, status);
    g_children.Leave(slot, child);
    return error;
}

} // namespace

BOOL ZKQGeneral_WinExecFile(LPCTSTR FullPathExeFile, LPCTSTR Parameter, BOOL bWaitEnd)
{
    return ZKQGeneral_WinExecFileAndGetRetCodeEx(FullPathExeFile, Parameter, bWaitEnd, nullptr, 0);
}

BOOL ZKQGeneral_WinExecFileAndGetRetCode(LPCTSTR FullPathExeFile, LPCTSTR Parameter, BOOL bWaitEnd, DWORD* RetCode)
{
    return ZKQGeneral_WinExecFileAndGetRetCodeEx(FullPathExeFile, Parameter, bWaitEnd, RetCode, 0);
}

BOOL ZKQGeneral_WinExecFileAndGetRetCodeEx(LPCTSTR FullPathExeFile, LPCTSTR Parameter, BOOL bWaitEnd, DWORD* RetCode,
                                           int Timeout)
{
    if (FullPathExeFile == nullptr)
        return Fail(EINVAL);
    CommandLine command;
    if (const int error = command.Build(FullPathExeFile, OrEmpty(Parameter)))
        return Fail(error);
    if (bWaitEnd == 0)
        return Finish(RunAndForget(command.Get()));
    int status;
    if (const int error = RunAndWait(command.Get(), Timeout, &status))
        return Fail(error);
    if (RetCode != nullptr)
        *RetCode = static_cast<DWORD>(WEXITSTATUS(status));
    return TRUE;
}
