// zkq file: copying, directories, temporary names.
#include <ZKQ_general/file.h>
#include <ZKQ_general/system.h>
#include <stdio.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "columns.h"
#include "commands.h"
#include "failure.h"
#include "output.h"
#include "paths.h"

namespace {

namespace fs = std::filesystem;

constexpr int kPathSize = 300;  // of the library's names, the NUL counted
constexpr int kContentTime = 2; // of the library's times of a file

void Copy(const std::string& source, const std::string& destination, bool no_clobber)
{
    RequireRegular(source);
    RequireLength(source);
    std::error_code ignored;
    const std::string target = fs::is_directory(destination, ignored)
                                   ? fs::path(destination) / fs::path(source).filename()
                                   : fs::path(destination);
    const std::string what = "cannot copy " + source + " to " + target;
    const ErrorMark mark;
    if (ZKQGeneral_CopyFile(Resolved(source).c_str(), target.c_str(), no_clobber))
        return;
    // The library leaves no reason when the source ends early or the disk is full.
    throw mark.Changed() ? LibraryFailure(what) : Failure(what, "Short read or write");
}

/// The library insists on one "/" at least and never two in a row.
std::string Normalized(const std::string& directory)
{
    std::string name = directory.empty() || directory.front() == '/' ? "" : "./";
    for (const char byte : directory) {
        if (byte != '/' || !name.ends_with('/'))
            name += byte;
    }
    return name;
}

void MakeDirectories(const std::string& directory)
{
    if (!ZKQGeneral_CreateMultiLevelDirectory(Normalized(directory).c_str()))
        throw LibraryFailure("cannot create " + directory);
    // A file in the place of the last directory is fine with the library.
    RequireDirectory(directory);
}

/// The tree's name without slashes at its end.
std::string TreeName(std::string directory)
{
    while (directory.size() > 1 && directory.ends_with('/'))
        directory.pop_back();
    const fs::path last = fs::path(directory).filename();
    if (last == "." || last == "..")
        throw Failure("cannot delete " + directory, "\".\" and \"..\" are refused");
    if (!ZKQGeneral_IsFileExist(directory.c_str()))
        throw LibraryFailure("cannot delete " + directory);
    return directory;
}

void Confirm(const std::string& directory)
{
    if (!isatty(STDIN_FILENO))
        throw CLI::ValidationError("--yes", "needed where there is no terminal to ask on");
    fprintf(stderr, "zkq: delete \"%s\" and all it holds? [y/N] ", directory.c_str());
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "yes")
        throw Failure(directory, "Not deleted");
}

void RemoveTree(const std::string& directory, bool yes)
{
    std::string name = TreeName(directory);
    if (!yes)
        Confirm(name);
    if (!ZKQGeneral_MyDeleteDirectory(name.data()))
        throw LibraryFailure("cannot delete " + directory);
}

void MakeTemporary(const std::string& prefix)
{
    char name[kPathSize];
    if (!ZKQGeneral_MyCreateTempFile(name, prefix.c_str(), sizeof(name)))
        throw LibraryFailure("cannot create a temporary file");
    PrintLine(name);
}

/// The library puts the link in the place of a file, too; here only another link makes way.
void MakeLink(const std::string& target, const std::string& link)
{
    std::error_code ignored;
    const fs::file_status status = fs::symlink_status(link, ignored);
    if (fs::exists(status) && !fs::is_symlink(status))
        throw Failure("cannot make " + link, "There is something of this name that is no link");
    if (!ZKQGeneral_CreateShortCut(target.c_str(), nullptr, link.c_str()))
        throw LibraryFailure("cannot make " + link);
}

const char* KindText(const std::string& path)
{
    std::error_code ignored;
    switch (fs::symlink_status(path, ignored).type()) {
    case fs::file_type::regular:
        return "file";
    case fs::file_type::directory:
        return "directory";
    case fs::file_type::symlink:
        return "link";
    default:
        return "other";
    }
}

/// Of a link, the length of its own text, and the time of what it leads to.
Row RowOf(const std::string& path)
{
    if (!ZKQGeneral_IsFileExist(path.c_str()))
        throw LibraryFailure("cannot look at " + path);
    DWORD length = 0;
    const bool hasLength = ZKQGeneral_GetFileLength(path.c_str(), &length);
    _TIMESTRUCT time = {};
    char text[48] = "-"; // as large as six numbers of 16 bits may need
    if (ZKQGeneral_GetFileTimeInfo(path.c_str(), &time, kContentTime))
        snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", unsigned{time.wYear}, unsigned{time.wMonth},
                 unsigned{time.wDay}, unsigned{time.wHour}, unsigned{time.wMinute}, unsigned{time.wSecond});
    return {KindText(path), hasLength ? std::to_string(length) : "-", text, path};
}

void ShowFiles(const std::vector<std::string>& paths)
{
    std::vector<Row> rows = {{"KIND", "BYTES", "CHANGED", "NAME"}};
    for (const std::string& path : paths)
        rows.push_back(RowOf(path));
    PrintTable(rows);
}

struct Options {
    std::string first;
    std::string second;
    std::vector<std::string> paths;
    bool flag = false;
};

void AddCopy(CLI::App& file)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = file.add_subcommand("copy", "Copy a file with its mode bits");
    command->add_option("SRC", options->first, "The file; links are followed")->required()->type_name("");
    command->add_option("DST", options->second, "The copy, or a directory for it")->required()->type_name("");
    command->add_flag("--no-clobber", options->flag, "Fail if the copy exists already");
    command->callback([options] { Copy(options->first, options->second, options->flag); });
}

void AddMkdirs(CLI::App& file)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = file.add_subcommand("mkdirs", "Create a directory and those above it");
    command->add_option("DIR", options->first, "The directory; it may exist")->required()->type_name("");
    command->callback([options] { MakeDirectories(options->first); });
}

void AddRmtree(CLI::App& file)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = file.add_subcommand("rmtree", "Delete a directory with all it holds");
    command->add_option("DIR", options->first, "The directory; links in it are not followed")
        ->required()
        ->type_name("");
    command->add_flag("--yes", options->flag, "Do not ask; needed where there is no terminal");
    command->callback([options] { RemoveTree(options->first, options->flag); });
}

void AddTemp(CLI::App& file)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = file.add_subcommand("temp", "Create an empty file in /tmp and print its name");
    command->add_option("PREFIX", options->first, "Start of the file's name")->required()->type_name("");
    command->callback([options] { MakeTemporary(options->first); });
}

void AddLink(CLI::App& file)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = file.add_subcommand("link", "Make a symbolic link, or lead one elsewhere");
    command->add_option("TARGET", options->first, "What the link leads to")->required()->type_name("");
    command->add_option("LINK", options->second, "The link")->required()->type_name("");
    command->callback([options] { MakeLink(options->first, options->second); });
}

void AddStat(CLI::App& file)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = file.add_subcommand("stat", "Show kind, length and time of files");
    command->add_option("FILE", options->paths, "Files of any kind")->required()->type_name("");
    command->callback([options] { ShowFiles(options->paths); });
}

} // namespace

void AddFileCommands(CLI::App& app)
{
    CLI::App* file = app.add_subcommand("file", "Copy files, make and delete directory trees");
    file->require_subcommand(1);
    AddCopy(*file);
    AddMkdirs(*file);
    AddRmtree(*file);
    AddTemp(*file);
    AddLink(*file);
    AddStat(*file);
}
