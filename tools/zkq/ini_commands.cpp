// zkq ini: profile files.
#include "commands.h"
#include "output.h"
#include "profile.h"

namespace {

struct Names {
    std::string file;
    std::string section;
    std::string key;
    std::string text; // the value to set, or the default
};

void AddFile(CLI::App* command, Names& names)
{
    command->add_option("FILE", names.file, "The profile file")->required()->type_name("");
}

void AddSection(CLI::App* command, Names& names)
{
    command->add_option("SECTION", names.section, "The section; \"\" for the lines before the first header")
        ->required()
        ->type_name("");
}

CLI::Option* AddKey(CLI::App* command, Names& names, const char* help)
{
    return command->add_option("KEY", names.key, help)->type_name("");
}

void AddGet(CLI::App& ini)
{
    const auto names = std::make_shared<Names>();
    CLI::App* command = ini.add_subcommand("get", "Print the value of a key");
    AddFile(command, *names);
    AddSection(command, *names);
    AddKey(command, *names, "The key")->required();
    const CLI::Option* fallback = command->add_option("--default", names->text, "Printed when the key is not there");
    command->get_option("--default")->type_name("TEXT");
    command->callback([names, fallback] {
        const std::optional<std::string> value = Profile(names->file).Value(names->section, names->key);
        if (!value && fallback->count() == 0)
            throw Failure(names->file, "No key \"" + names->key + "\" in section [" + names->section + "]");
        PrintLine(value.value_or(names->text));
    });
}

void AddSet(CLI::App& ini)
{
    const auto names = std::make_shared<Names>();
    CLI::App* command = ini.add_subcommand("set", "Set a key, creating section and file as needed");
    AddFile(command, *names);
    AddSection(command, *names);
    AddKey(command, *names, "The key")->required();
    command->add_option("VALUE", names->text, "The value; blanks at its ends are not kept")->required()->type_name("");
    command->callback([names] { SetProfileValue(names->file, names->section, names->key, names->text); });
}

void AddDel(CLI::App& ini)
{
    const auto names = std::make_shared<Names>();
    CLI::App* command = ini.add_subcommand("del", "Delete a key, or a whole section but for its comments");
    AddFile(command, *names);
    AddSection(command, *names);
    const CLI::Option* key = AddKey(command, *names, "The key; without it the whole section goes");
    command->callback([names, key] {
        if (key->count() != 0)
            DeleteProfileKey(names->file, names->section, names->key);
        else
            DeleteProfileSection(names->file, names->section);
    });
}

void AddSections(CLI::App& ini)
{
    const auto names = std::make_shared<Names>();
    CLI::App* command = ini.add_subcommand("sections", "List the sections, one a line");
    AddFile(command, *names);
    command->callback([names] {
        for (const std::string& name : Profile(names->file).Sections())
            PrintLine(name);
    });
}

void AddKeys(CLI::App& ini)
{
    const auto names = std::make_shared<Names>();
    CLI::App* command = ini.add_subcommand("keys", "List the keys of a section, one a line");
    AddFile(command, *names);
    AddSection(command, *names);
    command->callback([names] {
        const Profile profile(names->file);
        if (!profile.HasSection(names->section))
            throw Failure(names->file, "No section [" + names->section + "]");
        for (const std::string& name : profile.Keys(names->section))
            PrintLine(name);
    });
}

} // namespace

void AddIniCommands(CLI::App& app)
{
    CLI::App* ini = app.add_subcommand("ini", "Read and edit profile (INI) files");
    ini->require_subcommand(1);
    AddGet(*ini);
    AddSet(*ini);
    AddDel(*ini);
    AddSections(*ini);
    AddKeys(*ini);
}
