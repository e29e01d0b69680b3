// zkq log: reading logs, writing records, and the switches that decide what is written.
#include <ZKQ_general/file.h>
#include <ZKQ_general/log.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "commands.h"
#include "failure.h"
#include "levels.h"
#include "log_tail.h"
#include "output.h"
#include "paths.h"
#include "profile.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kLogNameSize = 128;
constexpr char kSwitchSection[] = "applog";

struct Options {
    std::string dir = ".";
    std::string project = "zkq";
    std::string level = "info"; // of the record, or the levels to switch on
    bool force = false;
    std::vector<std::string> text;
};

std::string SwitchFile(const std::string& dir)
{
    return (fs::path(dir) / "tamor.ini").string();
}

/// Like programs do, takes a missing file or key for "off".
int Switch(const std::string& dir, const std::string& project)
{
    const std::string file = SwitchFile(dir);
    return ZKQGeneral_IsFileExist(file.c_str()) ? Profile(file).Number(kSwitchSection, project) : 0;
}

class LogContext {
public:
    explicit LogContext(Options& options)
    {
        APPLOGINFO info = {};
        info.Version = 3;
        info.ProjectName = options.project.data();
        info.RecordTime = TRUE;
        info.TempPath = options.dir.data();
        info.bAlwaysLog = options.force ? ZKQ_LOG_ALL : 0;
        if (!ZKQGeneral_IsNeedLogFile(&info, &context_))
            throw LibraryFailure("cannot log as " + options.project + " in " + options.dir);
    }
    ~LogContext() { ZKQGeneral_FreeLogCtx(context_); }
    LogContext(const LogContext&) = delete;
    LogContext& operator=(const LogContext&) = delete;

    std::string OwnLog() const
    {
        char name[kLogNameSize];
        ZKQGeneral_GetAppLogFile(context_, name);
        return name;
    }

    bool Record(int level, const std::string& text) const
    {
        return ZKQGeneral_RecordAppLogToFileEx_V(context_, level, "%s", text.c_str());
    }

private:
    void* context_ = nullptr;
};

std::string SharedLog(const std::string& dir)
{
    const fs::path program = fs::read_symlink("/proc/self/exe");
    return (fs::path(dir) / (program.stem().string() + "[" + std::to_string(getpid()) + "].log")).string();
}

off_t SizeOf(const std::string& file)
{
    struct stat status;
    return stat(file.c_str(), &status) == 0 ? status.st_size : -1;
}

std::string Joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

/// The library loses records silently where a log cannot be written; a person wants to know.
void WriteChecked(const LogContext& context, int level, const std::string& text, const std::string& log)
{
    const off_t before = SizeOf(log);
    const bool recorded = context.Record(level, text);
    if (!recorded || SizeOf(log) == before)
        throw Failure("cannot write " + log, "The record did not reach the log");
}

void Write(Options& options)
{
    RequireDirectory(options.dir);
    const int level = ParseLevels(options.level);
    const bool own = options.force || (Switch(options.dir, options.project) & level) != 0;
    const bool shared = (Switch(options.dir, "allapp") & level) != 0;
    const LogContext context(options);
    if (own || shared)
        WriteChecked(context, level, Joined(options.text), own ? context.OwnLog() : SharedLog(options.dir));
    else if (isatty(STDERR_FILENO))
        fprintf(stderr, "zkq: not written: %s is switched off for %s in %s\n", options.level.c_str(),
                options.project.c_str(), options.dir.c_str());
}

void ShowOrSetSwitch(const Options& options, bool set)
{
    RequireDirectory(options.dir);
    if (set)
        SetProfileValue(SwitchFile(options.dir), kSwitchSection, options.project,
                        std::to_string(ParseLevels(options.level)));
    else
        PrintLine(options.project + ": " + DescribeLevels(Switch(options.dir, options.project)));
}

void AddDir(CLI::App* command, Options& options)
{
    command->add_option("--dir", options.dir, "The log directory, which holds tamor.ini; \".\" by default")
        ->type_name("DIR");
}

void AddTail(CLI::App& log)
{
    struct TailOptions {
        std::string file;
        size_t lines = 10;
        bool follow = false;
        bool gbk = false;
    };
    const auto options = std::make_shared<TailOptions>();
    CLI::App* command = log.add_subcommand("tail", "Show the end of a log");
    command->add_option("FILE", options->file, "The log")->required()->type_name("");
    command->add_option("-n,--lines", options->lines, "How many lines; 10 by default")
        ->type_name("LINES")
        ->check(CLI::NonNegativeNumber.description(""));
    command->add_flag("-f,--follow", options->follow, "Go on showing what is added, also to a new log of that name");
    command->add_flag("--gbk", options->gbk, "The log is in GBK: show it in the terminal's charset");
    command->callback([options] {
        LogTail tail(options->file, options->gbk);
        tail.ShowLast(options->lines);
        if (options->follow)
            tail.Follow();
    });
}

void AddWrite(CLI::App& log)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = log.add_subcommand("write", "Write a record, if the switch of its project lets it through");
    command->add_option("TEXT", options->text, "The record; words are joined by blanks")->required()->type_name("");
    AddDir(command, *options);
    command->add_option("--project", options->project, "The log's name without \".log\"; \"zkq\" by default")
        ->type_name("NAME");
    command->add_option("--level", options->level, "debug, info, warn or error; \"info\" by default")
        ->check(CLI::IsMember({"debug", "info", "warn", "error"}).description(""))
        ->type_name("LEVEL");
    command->add_flag("--force", options->force, "Write to the project's log whatever its switch says");
    command->callback([options] { Write(*options); });
}

void AddLevel(CLI::App& log)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = log.add_subcommand("level", "Show or set the switch of a project");
    command->add_option("PROJECT", options->project, "The project, or allapp, or allapp2")->required()->type_name("");
    const CLI::Option* levels =
        command->add_option("LEVELS", options->level, "off, all, a list as \"warn,error\", or a number")
            ->type_name("")
            ->check(CheckLevels);
    AddDir(command, *options);
    command->callback([options, levels] { ShowOrSetSwitch(*options, levels->count() != 0); });
}

} // namespace

void AddLogCommands(CLI::App& app)
{
    CLI::App* log = app.add_subcommand("log", "Read logs, write records, set log switches");
    log->require_subcommand(1);
    AddTail(*log);
    AddWrite(*log);
    AddLevel(*log);
}
