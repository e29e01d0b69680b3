// XML documents behind handles, trees of nodes, tables.
#include <ZKQ_general/TamorXml.h>
#include <ZKQ_general/WQXXMLH.h>
#include <ZKQ_general/table.h>
#include <errno.h>
#include <string.h>

#include <map>

#include "strain.h"

namespace strain {
namespace {

/// Whether every start tag of what the library writes has its end tag.
bool IsBalanced(const std::string& text)
{
    std::vector<std::string> open;
    for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
        const size_t end = text.find('>', at);
        if (end == std::string::npos)
            return false;
        const std::string tag = text.substr(at + 1, end - at - 1);
        if (tag.starts_with("?"))
            continue;
        if (!tag.starts_with("/")) {
            open.push_back(tag.substr(0, tag.find(' ')));
        } else {
            if (open.empty() || open.back() != tag.substr(1))
                return false;
            open.pop_back();
        }
    }
    return open.empty();
}

/// Attributes by the number of the item, as they must be in the document.
using Model = std::map<int, std::string>;

void Fill(Worker& worker, void* document, Model& model)
{
    for (int i = 0; i < 12; ++i) {
        const int number = static_cast<int>(worker.Below(6));
        const std::string path = "/root/item[n=" + std::to_string(number) + "]";
        const std::string value = worker.Word(1 + worker.Below(30));
        worker.Must(WQXXMLH_AddElementAttribute(document, path.c_str(), "value", value.c_str()) == 0,
                    "AddElementAttribute");
        model[number] = value;
        if (worker.Below(4) == 0) {
            worker.Must(WQXXMLH_DeleteElement(document, path.c_str()) == 0, "DeleteElement");
            model.erase(number);
        }
    }
}

void Compare(Worker& worker, void* document, const Model& model)
{
    void* walk = nullptr;
    worker.Must(WQXXMLH_BeginIterate(document, "/root", &walk) == 0, "BeginIterate");
    const Holder end([&] { WQXXMLH_EndIterate(walk); });
    size_t count = 0;
    void* item = nullptr;
    while (WQXXMLH_Iterate(walk, &item) == 0) {
        char* number = nullptr;
        char* value = nullptr;
        worker.Must(WQXXMLH_Iterate_GetAttribute(item, "n", &number) == 0, "Iterate_GetAttribute, n");
        worker.Must(WQXXMLH_Iterate_GetAttribute(item, "value", &value) == 0, "Iterate_GetAttribute, value");
        const auto found = model.find(std::stoi(number));
        worker.Right(found != model.end() && found->second == value, "an item of the document");
        ++count;
    }
    worker.RightUnlessFault(count == model.size(), "the number of items");
}

void Texts(Worker& worker)
{
    void* document = nullptr;
    worker.Must(WQXXMLH_Open2("<root></root>", 1, &document) == 0, "Open2");
    Model model;
    char* text = nullptr;
    const Holder release([&] { WQXXMLH_FreeString(text); });
    {
        const Holder close([&] { WQXXMLH_Close2(document, &text); });
        Fill(worker, document, model);
        worker.Must(WQXXMLH_SetDeclaration(document, "1.0", "UTF-8", nullptr) == 0, "SetDeclaration");
        worker.Must(WQXXMLH_AddElementValue(document, "/root/deep/deeper", "text", "some text") == 0,
                    "AddElementValue");
        char* value = nullptr;
        worker.Must(WQXXMLH_GetElementValue(document, "/root/deep/deeper/text", &value) == 0, "GetElementValue");
        worker.Right(strcmp(value, "some text") == 0, "GetElementValue's text");
        worker.Must(WQXXMLH_DeleteElement(document, "/root/deep") == 0, "DeleteElement, deep");
    }
    worker.Must(text != nullptr, "Close2");
    worker.Right(IsBalanced(text), "the written text is balanced");
    worker.Must(WQXXMLH_Open2(text, 0, &document) == 0, "Open2, again");
    const Holder close([&] { WQXXMLH_Close(document); });
    Compare(worker, document, model);
}

void Files(Worker& worker)
{
    const std::string file = worker.File("a.xml");
    void* document = nullptr;
    worker.Must(WQXXMLH_Open(file.c_str(), 1, &document) == 0, "Open");
    Model model;
    {
        const Holder close([&] { WQXXMLH_Close(document); });
        Fill(worker, document, model);
    }
    const int opened = WQXXMLH_Open(file.c_str(), 0, &document); // a failure to write is told in the log alone
    worker.RightUnlessFault(opened == 0, "Open, again");
    const Holder close([&] { WQXXMLH_Close(document); });
    if (worker.Faults() == 0)
        Compare(worker, document, model);
}

void Nodes(Worker& worker)
{
    void* tree = nullptr;
    worker.Must(WQXXML_LoadFromString("<a><b x=\"1\">one</b><c/></a>", &tree) == 0, "LoadFromString");
    const Holder release([&] { WQXXML_ReleaseObject(tree); });
    const char* one = nullptr;
    worker.RightUnlessFault(WQXXML_GetKeyValue(tree, "a", "b", &one) == 0 && one != nullptr && strcmp(one, "one") == 0,
                            "GetKeyValue");
    void* node = nullptr;
    worker.Must(WQXXML_GetKeyNode(tree, "a", "c", &node) == 0, "GetKeyNode");
    const int count = static_cast<int>(worker.Below(20));
    for (int i = 0; i < count; ++i)
        worker.Must(WQXXML_AddNodeChildItem(node, "n", std::to_string(i).c_str(), nullptr) == 0, "AddNodeChildItem");
    int children = -1;
    worker.Must(WQXXML_GetChildNode(node, &children, nullptr) == 0, "GetChildNode, their number");
    worker.RightUnlessFault(children == count, "the number of children");
    for (int i = 0; i < count; ++i) {
        void* child = nullptr;
        char* value = nullptr;
        worker.Must(WQXXML_GetChildNode(node, &i, &child) == 0, "GetChildNode");
        worker.Must(WQXXML_GetElementValue(child, &value) == 0, "GetElementValue");
        worker.Right(std::to_string(i) == value, "a child's text");
    }
    char* text = nullptr;
    worker.Must(WQXXML_OutputString(tree, &text) == 0, "OutputString");
    const std::unique_ptr<char, void (*)(char*)> owned(text, WQXXML_FreeString);
    worker.Right(IsBalanced(text), "the written tree is balanced");
    worker.Must(WQXXML_DelNode(&tree, node) == 0, "DelNode");
    const std::string file = worker.File("tree.xml");
    worker.Must(WQXXML_OutputFile(tree, "1.0", "GBK", nullptr, file.c_str()) == 0, "OutputFile");
    worker.Right(IsBalanced(ReadWhole(file)), "the written file is balanced");
    char error[256];
    WQXXML_GetErrorString(2, error);
    worker.Right(error[0] != '\0', "the text of a code");
}

void Table(Worker& worker)
{
    void* table = nullptr;
    worker.Must(General_Table_Create(&table, 1 + static_cast<unsigned>(worker.Below(64)), 1) == 0, "Table_Create");
    const Holder destroy([&] { General_Table_Destroy(table); });
    std::map<std::string, std::string> model;
    for (int i = 0; i < 60; ++i) {
        const std::string key = "k" + std::to_string(worker.Below(40));
        std::string value = worker.Word(1 + worker.Below(20));
        const int expected = model.count(key) > 0 ? EEXIST : 0;
        const int result =
            General_Table_String_AddNode(table, key.c_str(), value.data(), static_cast<unsigned>(value.size()));
        worker.Must(result == 0 || result == EEXIST, "Table_String_AddNode");
        worker.Right(result == expected, "Table_String_AddNode's result");
        model.emplace(key, value);
        if (worker.Below(3) == 0) {
            const std::string gone = model.begin()->first;
            worker.Must(General_Table_String_DelNode(table, gone.c_str()) == 0, "Table_String_DelNode");
            model.erase(gone);
        }
    }
    for (int i = 0; i < 40; ++i) {
        const std::string key = "k" + std::to_string(i);
        void* value = nullptr;
        unsigned length = 0;
        const int result = General_Table_String_GetNode(table, key.c_str(), &value, &length);
        const auto found = model.find(key);
        worker.Right(result == (found == model.end() ? ENOENT : 0), "Table_String_GetNode's result");
        worker.Right(result != 0 || found->second == std::string_view(static_cast<char*>(value), length),
                     "the value in the table");
    }
}

} // namespace

void AddXml(Operations& operations)
{
    operations.insert(operations.end(), {{"XMLH", "texts", Texts, 4},
                                         {"XMLH", "files", Files, 3},
                                         {"XML nodes", "tree", Nodes, 4},
                                         {"table", "entries", Table, 4}});
}

} // namespace strain
