// zkq json: values of JSON files, by their paths.
#include <ZKQ_general/error.h>
#include <ZKQ_general/json.h>
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>
#include <optional>

#include "columns.h"
#include "commands.h"
#include "failure.h"
#include "input.h"
#include "json_text.h"
#include "output.h"
#include "replacement.h"

namespace {

struct Names {
    std::string file;
    std::string path;
    std::string value;
    std::string output;
    bool is_integer = false;
    bool is_hex = false;
    bool is_base64 = false;
    bool is_forced = false;
};
using SharedNames = std::shared_ptr<Names>;

CLI::Option* AddWord(CLI::App* command, const char* option, std::string& word, const char* help)
{
    return command->add_option(option, word, help)->type_name("")->required();
}

SharedNames AddFileAndPath(CLI::App* command)
{
    auto names = std::make_shared<Names>();
    AddWord(command, "FILE", names->file, "The JSON file");
    AddWord(command, "PATH", names->path, "Names of members joined by \"/\"; empty for the whole document");
    return names;
}

void AddForce(CLI::App* command, Names& names)
{
    command->add_flag("--force", names.is_forced, "Rewrite the text even if something in it gets lost");
}

/// An open document, closed at the end.
class Document {
public:
    Document(const std::string& text, const std::string& file)
    {
        if (JSON_Misc_InitJSON(text.c_str(), &root_) != 0)
            throw Failure("cannot read " + file, "Not a JSON text");
    }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;
    ~Document()
    {
        if (root_ != nullptr)
            JSON_Misc_FiniJSON(root_, nullptr);
    }

    void* Root() const { return root_; }
    std::string Close(const std::string& file)
    {
        char* text = nullptr;
        JSON_Misc_FiniJSON(std::exchange(root_, nullptr), &text);
        if (text == nullptr)
            throw Failure("cannot write " + file, "The text would be too long");
        const std::unique_ptr<char, decltype(&ZKQGeneral_FreeMallocBuffer)> owner(text, &ZKQGeneral_FreeMallocBuffer);
        return text;
    }

private:
    void* root_ = nullptr;
};

std::vector<std::string> SegmentsOf(const std::string& path)
{
    std::vector<std::string> segments;
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        if (end > at)
            segments.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return segments;
}

/// The first name of a path that is not there. The library passes over it: looking for it leads to where it began.
std::optional<std::string> MissingName(void* node, const std::string& path)
{
    for (const std::string& name : SegmentsOf(path)) {
        void* below = nullptr;
        if (JSON_Misc_GetChildNode(node, name.c_str(), &below) != 0 || below == node)
            return name;
        node = below;
    }
    return std::nullopt;
}

void RequirePath(void* root, const Names& names)
{
    if (const std::optional<std::string> missing = MissingName(root, names.path))
        throw Failure(names.file, "No \"" + *missing + "\" on the way to " + names.path);
}

/// The written value at a path, which is there: in a formatted text.
std::string_view ValueAt(std::string_view text, const std::string& path)
{
    for (const std::string& name : SegmentsOf(path))
        for (const JsonMember& member : MembersOf(text))
            if (member.name == name) {
                text = member.value;
                break;
            }
    return text;
}

void PrintBytes(void* root, const Names& names)
{
    unsigned char* bytes = nullptr;
    int length = 0;
    const auto get = names.is_hex ? JSON_Misc_GetHexData : JSON_Misc_GetB64Data;
    char* text = nullptr;
    JSON_Misc_GetString(root, names.path.c_str(), &text);
    constexpr char kDigits[] = "0123456789ABCDEFabcdef";
    const bool is_good =
        text != nullptr && (!names.is_hex || strspn(text, kDigits) == strlen(text)); // the library takes any digits
    if (!is_good || get(root, names.path.c_str(), &bytes, &length) != 0)
        throw Failure("cannot decode " + names.path + " in " + names.file,
                      names.is_hex ? "Not a string of hexadecimal digits" : "Not a Base64 string");
    const std::unique_ptr<unsigned char, decltype(&ZKQGeneral_FreeMallocBuffer)> owner(bytes,
                                                                                       &ZKQGeneral_FreeMallocBuffer);
    if (length > 0)
        Print({reinterpret_cast<char*>(bytes), static_cast<size_t>(length)});
}

void Get(const Names& names)
{
    const std::string text = ReadInput(names.file);
    const std::string formatted = FormattedJson(text, names.file);
    const Document document(formatted, names.file);
    RequirePath(document.Root(), names);
    if (names.is_hex || names.is_base64)
        return PrintBytes(document.Root(), names);
    const std::string value(ValueAt(formatted, names.path));
    PrintLine(value[0] == '"' ? DecodedJson(value) : FormattedJson(value, names.file));
}

/// What is in a file that is to be rewritten, formatted.
std::string Rewritable(const Names& names, const std::string& text)
{
    std::string formatted = FormattedJson(text, names.file);
    const std::string lost = names.is_forced ? "" : LostByFormatting(text, formatted);
    if (!lost.empty())
        throw Failure("cannot rewrite " + names.file, lost + " (see --force)");
    return formatted;
}

int IntegerOf(const std::string& text)
{
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        throw Failure("\"" + text + "\"", "Not an integer of 32 bits");
    return number;
}

void SetValue(void* root, const Names& names)
{
    const char* const path = names.path.c_str();
    const auto* const bytes = reinterpret_cast<const unsigned char*>(names.value.data());
    const int length = static_cast<int>(names.value.size());
    const int error = names.is_integer  ? JSON_Misc_SetInt(root, path, IntegerOf(names.value))
                      : names.is_hex    ? JSON_Misc_SetHexData(root, path, bytes, length)
                      : names.is_base64 ? JSON_Misc_SetB64Data(root, path, bytes, length)
                                        : JSON_Misc_SetString(root, path, names.value.c_str());
    if (error != 0)
        throw Failure("cannot set " + names.path + " in " + names.file, "Out of memory");
}

void Set(const Names& names)
{
    std::error_code ignored;
    const bool is_there = std::filesystem::exists(names.file, ignored);
    Document document(is_there ? Rewritable(names, ReadInput(names.file)) : "{}", names.file);
    SetValue(document.Root(), names);
    const std::string text = document.Close(names.file);
    // What is added below a text or into an array is not written, or not by its name.
    if (MissingName(Document(text, names.file).Root(), names.path))
        throw Failure("cannot set " + names.path + " in " + names.file, "Something on the way is no object");
    ReplaceFile(names.file, text + "\n");
}

void Format(const Names& names)
{
    const std::string text = Rewritable(names, ReadInput(names.file)) + "\n";
    if (names.output.empty())
        Print(text);
    else
        ReplaceFile(names.output, text);
}

// Arrays

void PrintRecords(const std::vector<std::string_view>& records)
{
    std::vector<Row> rows(1);
    for (const std::string_view record : records) {
        Row row(rows[0].size());
        for (const JsonMember& member : MembersOf(record)) {
            const auto place = std::find(rows[0].begin(), rows[0].end(), member.name);
            const auto column = static_cast<size_t>(place - rows[0].begin());
            if (place == rows[0].end()) {
                rows[0].push_back(member.name);
                row.emplace_back();
            }
            if (row[column].empty()) // of several members of a name, paths find the first
                row[column] = ShownJson(member.value);
        }
        rows.push_back(std::move(row));
    }
    PrintTable(rows);
}

void List(const Names& names)
{
    const std::string text = FormattedJson(ReadInput(names.file), names.file);
    RequirePath(Document(text, names.file).Root(), names);
    const std::string_view array = ValueAt(text, names.path);
    if (array[0] != '[')
        throw Failure("cannot list " + names.path + " in " + names.file, "Not an array");
    const std::vector<std::string_view> elements = PartsOf(array);
    const bool are_records = !elements.empty() && std::all_of(elements.begin(), elements.end(),
                                                              [](std::string_view e) { return e[0] == '{'; });
    if (are_records)
        return PrintRecords(elements);
    for (const std::string_view element : elements)
        PrintLine(ShownJson(element));
}

void AddReading(CLI::App& json)
{
    CLI::App* get = json.add_subcommand("get", "Print a value: a string as it is, others as JSON");
    const SharedNames names = AddFileAndPath(get);
    CLI::Option* hex =
        get->add_flag("--hex", names->is_hex, "The bytes that a string of hexadecimal digits stands for");
    get->add_flag("--base64", names->is_base64, "The bytes that a Base64 string stands for")->excludes(hex);
    get->callback([names] { Get(*names); });

    CLI::App* array = json.add_subcommand("array", "List an array, one element a line; records as a table");
    const SharedNames listed = AddFileAndPath(array);
    array->callback([listed] { List(*listed); });

    CLI::App* format = json.add_subcommand("fmt", "Print a file as the library writes it");
    const auto formatted = std::make_shared<Names>();
    AddWord(format, "FILE", formatted->file, "The JSON file");
    format->add_option("-o,--output", formatted->output, "Write to this file, which may be the same")
        ->type_name("FILE");
    AddForce(format, *formatted);
    format->callback([formatted] { Format(*formatted); });
}

void AddSet(CLI::App& json)
{
    CLI::App* set = json.add_subcommand("set", "Set a value, adding what is missing on the way");
    const SharedNames names = AddFileAndPath(set);
    AddWord(set, "VALUE", names->value, "The new string");
    CLI::Option* integer = set->add_flag("--int", names->is_integer, "VALUE is an integer of 32 bits");
    CLI::Option* hex = set->add_flag("--hex", names->is_hex, "Store the bytes of VALUE as hexadecimal digits");
    set->add_flag("--base64", names->is_base64, "Store the bytes of VALUE as Base64")->excludes(integer)->excludes(hex);
    hex->excludes(integer);
    AddForce(set, *names);
    set->callback([names] { Set(*names); });
}

} // namespace

void AddJsonCommands(CLI::App& app)
{
    CLI::App* json = app.add_subcommand("json", "Read and edit JSON files by paths");
    json->require_subcommand(1);
    AddReading(*json);
    AddSet(*json);
}
