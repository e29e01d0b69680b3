// Profile files and texts.
#include <ZKQ_general/inifile.h>
#include <string.h>

#include <map>

#include "strain.h"

namespace strain {
namespace {

constexpr char kMissing[] = "(missing)";

std::string ReadKey(const std::string& file, const std::string& section, const std::string& key)
{
    char value[200];
    ZKQGeneral_GetPrivateProfileString(section.c_str(), key.c_str(), kMissing, value, sizeof value, file.c_str());
    return value;
}

void OwnFile(Worker& worker)
{
    const std::string file = worker.File("own.ini");
    std::map<std::pair<std::string, std::string>, std::string> model;
    for (int i = 0; i < 8; ++i) {
        const std::string section = "section" + std::to_string(worker.Below(3));
        const std::string key = "key" + std::to_string(worker.Below(3));
        const std::string value = worker.Word(1 + worker.Below(40));
        worker.Must(ZKQGeneral_WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(), file.c_str()),
                    "WritePrivateProfileString");
        model[{section, key}] = value;
    }
    for (const auto& [name, value] : model)
        worker.RightUnlessFault(ReadKey(file, name.first, name.second) == value, "a value that was written");
    const std::string gone = model.begin()->first.first;
    worker.Must(ZKQGeneral_DeletePrivateProfileSection(gone.c_str(), file.c_str()), "DeletePrivateProfileSection");
    for (const auto& [name, value] : model)
        worker.RightUnlessFault(ReadKey(file, name.first, name.second) == (name.first == gone ? kMissing : value),
                                "a value after a section was deleted");
}

void CommonFile(Worker& worker)
{
    const std::string& file = worker.process.site.profile;
    const std::string number = std::to_string(worker.Below(20));
    worker.RightUnlessFault(ReadKey(file, "common", "key" + number) == "value " + number, "a value of the common file");
    worker.RightUnlessFault(ZKQGeneral_GetPrivateProfileInt("numbers", number.c_str(), -1, file.c_str()) ==
                                static_cast<UINT>(std::stoi(number)),
                            "a number of the common file");
    char names[100] = "";
    worker.RightUnlessFault(ZKQGeneral_GetPrivateProfileSectionNames(names, sizeof names, file.c_str()) == 15 &&
                                memcmp(names, "common\0numbers\0", 16) == 0,
                            "the sections of the common file");
    char keys[400] = "";
    worker.RightUnlessFault(ZKQGeneral_GetPrivateProfileItemNames("numbers", keys, sizeof keys, file.c_str()) == 50 &&
                                keys[0] == '0',
                            "the keys of the common file");
}

void Text(Worker& worker)
{
    const std::string value = worker.Word(30);
    char* out = nullptr;
    int length = 0;
    const BOOL written =
        ZKQGeneral_WritePrivateProfileString_Mem("[a]\nx = 1\n", "a", "y", value.c_str(), &out, &length);
    const Owned<char> text(out);
    worker.Must(written, "WritePrivateProfileString_Mem");
    worker.Right(length == static_cast<int>(strlen(out)) + 1, "the length of the new text");
    char found[100];
    ZKQGeneral_GetPrivateProfileString_Mem("A", "Y", kMissing, found, sizeof found, out);
    worker.RightUnlessFault(found == value, "a value of the new text");
    worker.RightUnlessFault(ZKQGeneral_GetPrivateProfileInt_Mem("a", "x", 7, out) == 1, "a number of the new text");
    char* less = nullptr;
    const BOOL deleted = ZKQGeneral_DeletePrivateProfileSection_Mem("a", out, &less, &length);
    const Owned<char> rest(less);
    worker.Must(deleted, "DeletePrivateProfileSection_Mem");
    worker.Right(strchr(less, '=') == nullptr, "nothing of the section is left");
}

} // namespace

void AddProfile(Operations& operations)
{
    operations.insert(operations.end(), {{"inifile", "own file", OwnFile, 3},
                                         {"inifile", "common file", CommonFile, 4},
                                         {"inifile", "texts", Text, 4}});
}

} // namespace strain
