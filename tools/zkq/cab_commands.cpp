// zkq cab: cabinet archives.
#include <ZKQ_general/mycab.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "cabinet.h"
#include "commands.h"
#include "failure.h"
#include "output.h"
#include "paths.h"
#include "progress.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kPathSize = 300; // of the library's names, the NUL counted

struct Options {
    std::string cabinet;
    std::string directory = ".";
    std::vector<std::string> names;
    bool quiet = false;
    bool noTopFiles = false;
    bool table = false;
};

/// The library insists on two bytes at least. A link stands for what it points to.
std::string ForLibrary(const std::string& path)
{
    const std::string name = Resolved(path);
    return name.empty() || name.front() == '/' || name.starts_with("./") ? name : "./" + name;
}

/// Why a cabinet cannot hold a file; nothing if it can.
const char* Objection(const fs::path& path)
{
    std::error_code error;
    if (path.string().find('\n') != std::string::npos)
        return "A cabinet cannot hold a name with a line feed";
    if (!fs::is_regular_file(path, error))
        return error ? nullptr : "Not a regular file";
    return fs::file_size(path, error) == 0 ? "A cabinet cannot hold an empty file" : nullptr;
}

/// Calls `use` for all that is below the directories among the names and would go into the cabinet.
template <class Use>
void ForEachBelow(const Options& options, Use use)
{
    for (const std::string& name : options.names) {
        std::error_code error;
        for (fs::recursive_directory_iterator at(name, error), end; at != end && !error; at.increment(error)) {
            const bool isTop = at.depth() == 0 && (at->is_symlink() || !at->is_directory());
            if (!isTop || !options.noTopFiles)
                use(*at);
        }
    }
}

/// The library takes as much of a linked file as the link's own text is long.
void RequireNoLinks(const Options& options)
{
    ForEachBelow(options, [&](const fs::directory_entry& entry) {
        if (entry.is_symlink())
            throw Failure("cannot make " + options.cabinet + ": " + entry.path().string(),
                          "A cabinet cannot hold a link");
    });
}

/// The library's "Invalid argument" with the file that it is about.
Failure MakeFailure(const Options& options)
{
    const std::string what = "cannot make " + options.cabinet;
    Failure reason = LibraryFailure(what);
    if (reason.what() != what + ": " + strerror(EINVAL))
        return reason;
    std::string path;
    const char* objection = nullptr;
    const auto look = [&](const fs::path& candidate) {
        const char* found = fs::is_directory(candidate) || objection != nullptr ? nullptr : Objection(candidate);
        if (found != nullptr) {
            path = candidate;
            objection = found;
        }
    };
    for (const std::string& name : options.names)
        look(name);
    ForEachBelow(options, [&](const fs::directory_entry& entry) { look(entry.path()); });
    return objection != nullptr ? Failure(what + ": " + path, objection) : Failure(what, "No files");
}

void Make(const Options& options)
{
    RequireNoLinks(options);
    std::string list;
    if (std::find(options.names.begin(), options.names.end(), "") != options.names.end())
        throw SystemFailure("cannot make " + options.cabinet, ENOENT); // an empty name would end the list
    for (const std::string& name : options.names)
        list += ForLibrary(name) + '\0';
    list += '\0';
    const ProgressBar bar(options.quiet);
    if (!ZKQGeneral_MakeMyCabFile_P(options.cabinet.c_str(), list.c_str(), options.noTopFiles ? 0 : 1, bar.Callback()))
        throw MakeFailure(options);
}

std::string ModeText(long mode)
{
    std::string text = "-rwxrwxrwx";
    for (size_t bit = 0; bit < 9; ++bit)
        if ((mode & (0400 >> bit)) == 0)
            text[bit + 1] = '-';
    return text;
}

std::string TimeText(long seconds)
{
    tm local = {};
    char text[32];
    if (seconds == 0 || localtime_r(&seconds, &local) == nullptr ||
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) == 0)
        return "-";
    return text;
}

/// Names come from strangers, and bytes below the blank would steer a terminal.
std::string ForReader(std::string name)
{
    if (isatty(STDOUT_FILENO))
        std::replace_if(
            name.begin(), name.end(), [](unsigned char byte) { return byte < ' ' || byte == 0x7F; }, '?');
    return name;
}

void PrintTable(const std::vector<CabinetMember>& members)
{
    char line[128];
    PrintLine("    No        Size      Packed  Mode        Time                 Name");
    for (size_t i = 0; i < members.size(); ++i) {
        const CabinetMember& member = members[i];
        snprintf(line, sizeof line, "%6zu  %10ld  %10ld  %s  %-19s  ", i, member.size, member.packed,
                 ModeText(member.mode).c_str(), TimeText(member.time).c_str());
        PrintLine(line + ForReader(member.name));
    }
}

void List(const Options& options)
{
    const Cabinet cabinet(options.cabinet);
    if (options.table) {
        PrintTable(cabinet.Members());
        return;
    }
    for (const CabinetMember& member : cabinet.Members())
        PrintLine(ForReader(member.name));
}

/// The numbers of the files that a word means: all of that name or, if there are none, the one of that number.
std::vector<long> Numbers(const Options& options, const Cabinet& cabinet, const std::string& word)
{
    std::vector<long> numbers;
    const std::vector<CabinetMember>& members = cabinet.Members();
    for (size_t i = 0; i < members.size(); ++i)
        if (members[i].name == word)
            numbers.push_back(static_cast<long>(i));
    const bool isNumber = !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
    if (numbers.empty() && isNumber && word.size() < 10 && std::stoul(word) < members.size())
        numbers.push_back(std::stol(word));
    if (numbers.empty())
        throw Failure(options.cabinet, "No file \"" + word + "\"");
    return numbers;
}

void ExtractOne(const Options& options, long number)
{
    char path[kPathSize];
    if (options.directory.size() >= sizeof path)
        throw SystemFailure("cannot extract to " + options.directory, ENAMETOOLONG);
    path[options.directory.copy(path, sizeof path - 1)] = '\0';
    if (!ZKQGeneral_ExtractMyCabOneFile(options.cabinet.c_str(), path, number))
        throw LibraryFailure("cannot extract file " + std::to_string(number) + " of " + options.cabinet);
}

void ExtractNamed(const Options& options)
{
    std::vector<long> numbers;
    const Cabinet cabinet(options.cabinet);
    for (const std::string& name : options.names)
        for (const long number : Numbers(options, cabinet, name))
            numbers.push_back(number);
    ProgressBar bar(options.quiet);
    for (size_t i = 0; i < numbers.size(); ++i) {
        bar.Show(static_cast<long>(100 * i / numbers.size()));
        ExtractOne(options, numbers[i]);
    }
}

void Extract(const Options& options)
{
    if (!options.names.empty()) {
        ExtractNamed(options);
        return;
    }
    const ProgressBar bar(options.quiet);
    if (!ZKQGeneral_ExtractMyCabAllFile_P(options.cabinet.c_str(), options.directory.c_str(), bar.Callback()))
        throw LibraryFailure("cannot extract " + options.cabinet);
}

void Test(const Options& options)
{
    Cabinet cabinet(options.cabinet);
    const std::vector<CabinetMember>& members = cabinet.Members();
    std::vector<size_t> damaged;
    {
        ProgressBar bar(options.quiet);
        for (size_t i = 0; i < members.size(); ++i) {
            bar.Show(static_cast<long>(100 * i / members.size()));
            if (!cabinet.IsWhole(members[i]))
                damaged.push_back(i);
        }
    }
    for (const size_t i : damaged)
        fprintf(stderr, "zkq: %s: file %zu is damaged: %s\n", options.cabinet.c_str(), i,
                ForReader(members[i].name).c_str());
    if (!damaged.empty())
        throw Failure(options.cabinet,
                      std::to_string(damaged.size()) + " of " + std::to_string(members.size()) + " files are damaged");
    PrintLine(options.cabinet + ": " + std::to_string(members.size()) + " files, all whole");
}

CLI::App* AddCommand(CLI::App& cab, const char* name, const char* help, Options& options)
{
    CLI::App* command = cab.add_subcommand(name, help);
    command->add_option("CABINET", options.cabinet, "The cabinet")->required()->type_name("");
    return command;
}

void AddQuiet(CLI::App* command, Options& options)
{
    command->add_flag("-q,--quiet", options.quiet, "No progress bar, which otherwise a terminal gets");
}

void AddMake(CLI::App& cab)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(cab, "make", "Make a cabinet from files and directories", *options);
    command->add_option("PATH", options->names, "What goes into it; of directories, all files in them")
        ->required()
        ->type_name("");
    command->add_flag("--no-top-files", options->noTopFiles, "Of a directory, take what lies further down alone");
    AddQuiet(command, *options);
    command->callback([options] { Make(*options); });
}

void AddList(CLI::App& cab)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(cab, "list", "List the files of a cabinet, one a line", *options);
    command->add_flag("-l,--long", options->table, "With number, sizes, mode and time");
    command->callback([options] { List(*options); });
}

void AddExtract(CLI::App& cab)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(cab, "extract", "Extract files of a cabinet", *options);
    command->add_option("FILE", options->names, "Names or numbers of files; all by default")->type_name("");
    command->add_option("-d,--dir", options->directory, "Where to; \".\" by default")->type_name("DIR");
    AddQuiet(command, *options);
    command->callback([options] { Extract(*options); });
}

void AddTest(CLI::App& cab)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(cab, "test", "Check that all files of a cabinet are whole", *options);
    AddQuiet(command, *options);
    command->callback([options] { Test(*options); });
}

} // namespace

void AddCabCommands(CLI::App& app)
{
    CLI::App* cab = app.add_subcommand("cab", "Make and extract cabinet archives");
    cab->require_subcommand(1);
    AddMake(*cab);
    AddList(*cab);
    AddExtract(*cab);
    AddTest(*cab);
}
