// JSON documents.
#include <ZKQ_general/json.h>
#include <string.h>

#include "strain.h"

namespace strain {
namespace {

/// Whether brackets, braces and quotes of a text are closed.
bool IsBalanced(const std::string& text)
{
    std::string open;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"')
            inString = !inString;
        else if (inString && c == '\\')
            ++i;
        else if (!inString && (c == '{' || c == '['))
            open += c == '{' ? '}' : ']';
        else if (!inString && (c == '}' || c == ']')) {
            if (open.empty() || open.back() != c)
                return false;
            open.pop_back();
        }
    }
    return open.empty() && !inString;
}

struct Values {
    std::string text, hex, base64;
    int number;
    std::vector<std::string> list;
};

void Write(Worker& worker, void* document, const Values& values)
{
    const Exact hex(values.hex);
    const Exact base64(values.base64);
    worker.Must(JSON_Misc_SetString(document, "a/b/text", values.text.c_str()) == 0, "SetString");
    worker.Must(JSON_Misc_SetInt(document, "a/number", values.number) == 0, "SetInt");
    worker.Must(JSON_Misc_SetHexData(document, "a/hex", hex.Data(), hex.Size()) == 0, "SetHexData");
    worker.Must(JSON_Misc_SetB64Data(document, "a/base64", base64.Data(), base64.Size()) == 0, "SetB64Data");
    void* list = nullptr;
    worker.Must(JSON_Misc_GetChildNode_AutoAdd(document, "list", &list) == 0, "GetChildNode_AutoAdd");
    worker.Must(JSON_Misc_SetNodeArrayType(list) == 0, "SetNodeArrayType");
    for (const std::string& item : values.list)
        worker.Must(JSON_Misc_SetStringArray(list, reinterpret_cast<const unsigned char*>(item.c_str())) == 0,
                    "SetStringArray");
}

void Read(Worker& worker, void* document, const Values& values)
{
    char* text = nullptr;
    int number = 0;
    worker.Must(JSON_Misc_GetString(document, "a/b/text", &text) == 0 && text != nullptr, "GetString");
    worker.Right(values.text == text, "the text");
    worker.Must(JSON_Misc_GetInt(document, "a/number", &number) == 0, "GetInt");
    worker.Right(number == values.number, "the number");
    using Getter = int (*)(void*, const char*, unsigned char**, int*);
    const auto bytes = [&](Getter get, const char* path, const std::string& expected) {
        unsigned char* data = nullptr;
        int length = -1;
        const int result = get(document, path, &data, &length);
        const Owned<unsigned char> owned(data);
        worker.Must(result == 0, path);
        worker.Right(length == static_cast<int>(expected.size()) &&
                         (length == 0 || memcmp(data, expected.data(), expected.size()) == 0),
                     path);
    };
    bytes(JSON_Misc_GetHexData, "a/hex", values.hex);
    bytes(JSON_Misc_GetB64Data, "a/base64", values.base64);
    int count = -1;
    size_t* nodes = nullptr;
    worker.Must(JSON_Misc_GetArrayInfo(document, "list", &count, &nodes) == 0, "GetArrayInfo");
    const Owned<size_t> owned(nodes);
    worker.Right(count == static_cast<int>(values.list.size()), "the number of elements");
    for (size_t i = 0; i < values.list.size(); ++i) {
        void* const node = reinterpret_cast<void*>(nodes[i]); // as the interface hands them out
        worker.Must(JSON_Misc_GetString(node, nullptr, &text) == 0 && text != nullptr, "GetString, an element");
        worker.Right(values.list[i] == text, "an element");
    }
}

void RoundTrip(Worker& worker)
{
    Values values;
    values.text = "\"q\"\\\n" + worker.Word(worker.Below(100));
    values.hex = worker.Bytes(worker.Below(100));
    values.base64 = worker.Bytes(1 + worker.Below(100));
    values.number = static_cast<int>(worker.Below(2'000'000'000)) - 1'000'000'000;
    for (size_t i = worker.Below(10); i > 0; --i)
        values.list.push_back(worker.Word(worker.Below(20)));
    void* document = nullptr;
    worker.Must(JSON_Misc_InitJSON(nullptr, &document) == 0, "InitJSON");
    char* text = nullptr;
    const Holder release([&] { Releaser()(text); });
    {
        const Holder close([&] { JSON_Misc_FiniJSON(document, &text); });
        Write(worker, document, values);
        Read(worker, document, values);
    }
    worker.Must(text != nullptr, "FiniJSON");
    worker.Right(IsBalanced(text), "the written text is balanced");
    worker.Must(JSON_Misc_InitJSON(text, &document) == 0, "InitJSON, of the written text");
    const Holder close([&] { JSON_Misc_FiniJSON(document, nullptr); });
    Read(worker, document, values);
}

} // namespace

void AddJson(Operations& operations)
{
    operations.insert(operations.end(), {{"json", "round trip", RoundTrip, 5}});
}

} // namespace strain
