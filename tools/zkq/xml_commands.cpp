// zkq xml: elements of XML files, by their paths.
#include <ZKQ_general/TamorXml.h>
#include <ZKQ_general/WQXXMLH.h>
#include <errno.h>

#include <algorithm>

#include "charset.h"
#include "commands.h"
#include "failure.h"
#include "output.h"
#include "xml_document.h"

namespace {

struct Names {
    std::string file;
    std::string path;
    std::string name;
    std::string value;
    std::string attribute;
    std::string file2;
    std::string path2;
    bool is_raw = false;
    bool is_forced = false;
};
using SharedNames = std::shared_ptr<Names>;

CLI::Option* AddWord(CLI::App* command, const char* option, std::string& word, const char* help)
{
    return command->add_option(option, word, help)->type_name("");
}

SharedNames AddFileAndPath(CLI::App* command)
{
    auto names = std::make_shared<Names>();
    AddWord(command, "FILE", names->file, "The XML file")->required();
    AddWord(command, "PATH", names->path, "The element, such as /root/item[id=3]/name")->required();
    return names;
}

CLI::Option* AddAttribute(CLI::App* command, Names& names)
{
    return command->add_option("--attribute", names.attribute, "The attribute of this name instead of the text")
        ->type_name("NAME");
}

void AddRaw(CLI::App* command, Names& names, const char* help)
{
    command->add_flag("--raw", names.is_raw, help);
}

void AddForce(CLI::App* command, Names& names)
{
    command->add_flag("--force", names.is_forced, "Rewrite the file even if something in it gets lost");
}

std::string Decoded(const XmlDocument& document, const std::string& stored, bool is_raw)
{
    const std::string text = WithoutMarks(stored);
    return is_raw ? text : UnescapedText(text, document.IsUtf8());
}

/// A text as it is stored for the library.
std::string Stored(const std::string& text, bool is_raw)
{
    const std::string escaped = is_raw ? WithoutMarks(text) : EscapedText(text);
    const bool begins_blank =
        !escaped.empty() && std::string_view(" \t\r\n").find(escaped[0]) != std::string_view::npos;
    return begins_blank ? kKeepBlanks + escaped : escaped;
}

void RequireName(const std::string& name)
{
    if (!IsXmlName(name))
        throw Failure("\"" + name + "\"", "Not a name that an XML file can hold");
}

void RequireDone(const XmlDocument& document, const char* what, const std::string& path, int error)
{
    if (error != 0)
        throw document.Refused(what, path, error);
}

/// The path of an element from itself.
std::string OwnPath(void* node)
{
    char* name = nullptr;
    WQXXMLH_Iterate_GetElement(node, &name);
    return std::string("/") + name;
}

bool HasText(void* node)
{
    char* text = nullptr;
    return WQXXML_GetElementValue(node, &text) == 0;
}

Failure NoText(const Names& names)
{
    return {"cannot find a text of " + names.path + " in " + names.file, "The element does not begin with one"};
}

void Get(const Names& names, bool wants_attribute)
{
    const XmlDocument document(names.file);
    void* const node = document.Find(names.path);
    char* value = nullptr;
    if (!wants_attribute && WQXXML_GetElementValue(node, &value) != 0)
        throw NoText(names);
    if (wants_attribute && WQXXMLH_Iterate_GetAttribute(node, names.attribute.c_str(), &value) != 0)
        throw Failure(names.file, "No attribute \"" + names.attribute + "\" at " + names.path);
    PrintLine(Decoded(document, value, names.is_raw));
}

void SetText(XmlDocument& document, const Names& names)
{
    void* node = document.FindOrAdd(names.path);
    if (!HasText(node)) {
        document.Refresh();
        node = document.Find(names.path);
    }
    if (WQXXMLH_ChangeElementValue(node, OwnPath(node).c_str(), Stored(names.value, names.is_raw).c_str()) != 0)
        throw NoText(names);
}

void SetAttribute(XmlDocument& document, const Names& names)
{
    RequireName(names.attribute);
    const std::string value = names.is_raw ? WithoutMarks(names.value) : EscapedValue(names.value);
    void* const node = document.FindOrAdd(names.path);
    RequireDone(document, "change", names.path,
                WQXXMLH_AddElementAttribute(node, OwnPath(node).c_str(), names.attribute.c_str(), value.c_str()));
}

void Set(const Names& names, bool wants_attribute)
{
    XmlDocument document(names.file, XmlDocument::Missing::kIsEmpty);
    document.RequireKept(names.is_forced);
    if (wants_attribute)
        SetAttribute(document, names);
    else
        SetText(document, names);
    document.Write(names.file);
}

void Add(const Names& names)
{
    RequireName(names.name);
    XmlDocument document(names.file, XmlDocument::Missing::kIsEmpty);
    document.RequireKept(names.is_forced);
    void* const node = document.FindOrAdd(names.path);
    RequireDone(document, "change", names.path,
                WQXXMLH_AddElementValue(node, OwnPath(node).c_str(), names.name.c_str(),
                                        Stored(names.value, names.is_raw).c_str()));
    document.Write(names.file);
}

void Delete(const Names& names)
{
    const XmlDocument document(names.file);
    document.RequireKept(names.is_forced);
    if (document.Find(names.path) == document.Find("/" + document.RootName()))
        throw Failure("cannot delete " + names.path + " in " + names.file, "An XML file has a root element");
    RequireDone(document, "delete", names.path, WQXXMLH_DeleteElement(document.Handle(), names.path.c_str()));
    document.Write(names.file);
}

void Rename(const Names& names)
{
    RequireName(names.name);
    XmlDocument document(names.file);
    document.RequireKept(names.is_forced);
    document.Rename(names.path, names.name);
    document.Write(names.file);
}

void Copy(const Names& names)
{
    const XmlDocument source(names.file);
    source.RequireKept(names.is_forced);
    const XmlDocument target(names.file2);
    target.RequireKept(names.is_forced);
    target.Find(names.path2);
    source.Find(names.path);
    RequireDone(source, "copy", names.path,
                WQXXMLH_Copy(source.Handle(), names.path.c_str(), target.Handle(), names.path2.c_str()));
    target.Write(names.file2);
}

void Format(const Names& names)
{
    const XmlDocument document(names.file);
    document.RequireKept(names.is_forced);
    if (names.file2.empty())
        Print(document.Text());
    else
        document.Write(names.file2);
}

// Listing

struct Line {
    std::string name;
    std::string attributes;
    std::string text;
};

/// A text in one line of no great length.
std::string Shortened(std::string text)
{
    constexpr size_t kMost = 60;
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
    if (text.size() <= kMost)
        return text;
    size_t end = kMost - 3;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) // inside of a character
        --end;
    return text.substr(0, end) + "...";
}

size_t CountElements(void* node)
{
    int count = 0;
    WQXXML_GetChildNode(node, &count, nullptr);
    return static_cast<size_t>(count);
}

Line Described(const XmlDocument& document, void* node, bool is_raw)
{
    Line line;
    char* text = nullptr;
    WQXXMLH_Iterate_GetElement(node, &text);
    line.name = text;
    char* written = nullptr;
    if (WQXXML_OutputString(node, &written) != 0)
        throw Failure("cannot list " + document.File(), "Out of memory");
    for (const auto& [name, value] : StartTagAttributes(written))
        (line.attributes += line.attributes.empty() ? "" : " ").append(name).append("=\"").append(value).append("\"");
    WQXXML_FreeString(written);
    if (const size_t count = CountElements(node); count != 0)
        line.text = "(" + std::to_string(count) + (count == 1 ? " element)" : " elements)");
    else if (WQXXML_GetElementValue(node, &text) == 0)
        line.text = Shortened(Decoded(document, text, is_raw));
    return line;
}

/// The columns that a text takes in UTF-8, near enough.
size_t Width(const std::string& text)
{
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string Padded(const std::string& text, size_t width)
{
    return text + std::string(width - std::min(width, Width(text)), ' ');
}

void PrintTable(const std::vector<Line>& lines)
{
    constexpr size_t kWidest = 40; // what is wider stands out of its column
    size_t name_width = 0;
    size_t attributes_width = 0;
    for (const Line& line : lines) {
        name_width = std::max(name_width, std::min(Width(line.name), kWidest));
        attributes_width = std::max(attributes_width, std::min(Width(line.attributes), kWidest));
    }
    for (const Line& line : lines) {
        std::string row = Padded(line.name, name_width);
        if (attributes_width != 0)
            row += "  " + Padded(line.attributes, attributes_width);
        row += "  " + line.text;
        row.resize(row.find_last_not_of(' ') + 1);
        PrintLine(row);
    }
}

void List(const Names& names)
{
    const XmlDocument document(names.file);
    const std::string path = names.path.empty() ? "/" + document.RootName() : names.path;
    void* walk = nullptr;
    RequireDone(document, "find", path, WQXXMLH_BeginIterate(document.Handle(), path.c_str(), &walk));
    const std::unique_ptr<void, decltype(&WQXXMLH_EndIterate)> owner(walk, &WQXXMLH_EndIterate);
    std::vector<Line> lines;
    for (void* node = nullptr; WQXXMLH_Iterate(walk, &node) == 0;)
        lines.push_back(Described(document, node, names.is_raw));
    PrintTable(lines);
}

void AddReading(CLI::App& xml)
{
    CLI::App* get = xml.add_subcommand("get", "Print the text or an attribute of an element");
    const SharedNames names = AddFileAndPath(get);
    const CLI::Option* attribute = AddAttribute(get, *names);
    AddRaw(get, *names, "As it is written in the file, references not decoded");
    get->callback([names, attribute] { Get(*names, attribute->count() != 0); });

    CLI::App* list = xml.add_subcommand("ls", "List the elements below an element");
    const auto listed = std::make_shared<Names>();
    AddWord(list, "FILE", listed->file, "The XML file")->required();
    AddWord(list, "PATH", listed->path, "The element; the root element if none is given");
    AddRaw(list, *listed, "Texts as they are written in the file, as attributes always are");
    list->callback([listed] { List(*listed); });

    CLI::App* format = xml.add_subcommand("fmt", "Print a file indented by two blanks a level");
    const auto formatted = std::make_shared<Names>();
    AddWord(format, "FILE", formatted->file, "The XML file")->required();
    format->add_option("-o,--output", formatted->file2, "Write to this file, which may be the same")->type_name("FILE");
    AddForce(format, *formatted);
    format->callback([formatted] { Format(*formatted); });
}

void AddChanging(CLI::App& xml)
{
    CLI::App* set = xml.add_subcommand("set", "Set a text or an attribute, adding what is missing on the way");
    const SharedNames names = AddFileAndPath(set);
    AddWord(set, "VALUE", names->value, "The new text or value")->required();
    const CLI::Option* attribute = AddAttribute(set, *names);
    AddRaw(set, *names, "VALUE is XML already");
    AddForce(set, *names);
    set->callback([names, attribute] { Set(*names, attribute->count() != 0); });

    CLI::App* add = xml.add_subcommand("add", "Add an element, and what is missing on the way");
    const SharedNames added = AddFileAndPath(add);
    AddWord(add, "NAME", added->name, "The new element's name")->required();
    AddWord(add, "VALUE", added->value, "Its text");
    AddRaw(add, *added, "VALUE is XML already");
    AddForce(add, *added);
    add->callback([added] { Add(*added); });
}

void AddMoving(CLI::App& xml)
{
    CLI::App* del = xml.add_subcommand("del", "Delete an element with all below it");
    const SharedNames deleted = AddFileAndPath(del);
    AddForce(del, *deleted);
    del->callback([deleted] { Delete(*deleted); });

    CLI::App* rename = xml.add_subcommand("rename", "Rename an element");
    const SharedNames renamed = AddFileAndPath(rename);
    AddWord(rename, "NAME", renamed->name, "The new name")->required();
    AddForce(rename, *renamed);
    rename->callback([renamed] { Rename(*renamed); });

    CLI::App* copy = xml.add_subcommand("copy", "Copy an element to be the last one below another");
    const auto copied = std::make_shared<Names>();
    AddWord(copy, "SRCFILE", copied->file, "The XML file to copy from")->required();
    AddWord(copy, "SRCPATH", copied->path, "The element; comments below it are not copied")->required();
    AddWord(copy, "DSTFILE", copied->file2, "The XML file to copy to, which may be the same")->required();
    AddWord(copy, "DSTPATH", copied->path2, "The new parent")->required();
    AddForce(copy, *copied);
    copy->callback([copied] { Copy(*copied); });
}

} // namespace

void AddXmlCommands(CLI::App& app)
{
    CLI::App* xml = app.add_subcommand("xml", "Read and edit XML files by paths");
    xml->require_subcommand(1);
    AddReading(*xml);
    AddChanging(*xml);
    AddMoving(*xml);
}
