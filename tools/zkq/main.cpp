// zkq: what the library does, from the command line.
#include <locale.h>
#include <signal.h>
#include <stdio.h>

#include <exception>
#include <sstream>

#include "arguments.h"
#include "commands.h"
#include "examples.h"
#include "failure.h"
#include "output.h"

namespace {

enum ExitStatus { kSuccess = 0, kFailure = 1, kUsage = 2 };

void AddCommands(CLI::App& app)
{
    app.set_version_flag("--version", "zkq " ZKQ_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    app.footer("Exit status: 0 done, 1 failed, 2 wrong usage.");
    AddIniCommands(app);
    AddLogCommands(app);
    AddFileCommands(app);
    AddPacketCommands(app);
    AddConvCommand(app);
    AddBase64Commands(app);
    AddMd5Command(app);
    AddZCommands(app);
    AddCabCommands(app);
    AddXmlCommands(app);
    AddJsonCommands(app);
    AddCertCommands(app);
    AddDerCommands(app);
    AddHttpCommands(app);
    AddPingCommand(app);
    AddNetCommands(app);
    AddProcCommands(app);
    AddIpcCommands(app);
    AddExamples(app);
    UnguardOptions(app);
}

/// The words of the command line that chose a command, such as "zkq ini get".
std::string ChosenCommand(const CLI::App& app)
{
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    return app.get_name() + (chosen.empty() ? "" : " " + ChosenCommand(*chosen.front()));
}

/// Where something is missing because a word was misspelt, the word tells more.
std::string Reason(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<std::string> rest = app.remaining(true);
    const bool missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    return Unguarded(missing && !rest.empty() ? "Not expected here: " + rest.front() : error.what());
}

/// The parser speaks through an exception also when it has only been asked for help.
int Answer(const CLI::App& app, const CLI::ParseError& error)
{
    if (error.get_exit_code() == 0) {
        std::ostringstream text;
        app.exit(error, text, text);
        Print(text.str());
        return kSuccess;
    }
    fprintf(stderr, "zkq: %s\nTry \"%s --help\".\n", Reason(app, error).c_str(), ChosenCommand(app).c_str());
    return kUsage;
}

int Run(CLI::App& app, std::vector<std::string> arguments)
{
    int status = kSuccess;
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::RuntimeError& error) { // a command that has told its reasons itself
        status = error.get_exit_code();
    } catch (const CLI::ParseError& error) {
        status = Answer(app, error);
    }
    FlushOutput();
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    setlocale(LC_ALL, "");
    signal(SIGPIPE, SIG_DFL); // the library ignores it; "zkq ... | head" ends as quietly as it always has
    try {
        CLI::App app(
            "Files, logs, archives, documents, certificates, networks, processes, as libZKQ_general handles them.",
            "zkq");
        AddCommands(app);
        return Run(app, GuardedArguments(argc, argv));
    } catch (const std::exception& failure) {
        fprintf(stderr, "zkq: %s\n", failure.what());
        return kFailure;
    }
}
