// Profile texts: whatever the bytes, what was set is read back, nothing is written twice, and lists stay in their
// buffers. Input: section, key, value and text, separated by NULs.
#include <ZKQ_general.h>
#include <string.h>

#include <algorithm>

#include "../../src/internal/profile_text.h"
#include "fuzz.h"

namespace {

struct Output {
    char* text = nullptr;
    int length = -1;

    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { ZKQGeneral_FreeMallocBuffer(text); }
};

std::string Get(const std::string& section, const std::string& key, const char* text, size_t size)
{
    const Exact<char> buffer(size);
    const DWORD length =
        ZKQGeneral_GetPrivateProfileString_Mem(section.c_str(), key.c_str(), "(default)", buffer.Get(), size, text);
    if (size == 0) {
        REQUIRE(length == 0);
        return {};
    }
    REQUIRE(length < size && buffer.Get()[length] == '\0' && strlen(buffer.Get()) == length);
    return {buffer.Get(), length};
}

/// A name that is found again under itself.
bool IsPlainKey(const std::string& key)
{
    return !key.empty() && key.front() != ' ' && key.back() != ' ' && key.find_first_of("=\r\n") == std::string::npos &&
           key.front() != '[' && key.front() != ';' && key.front() != '#';
}

bool IsPlainSection(const std::string& section)
{
    return section.find_first_of("]\r\n") == std::string::npos;
}

void CheckSet(const std::string& section, const std::string& key, const std::string& value, const std::string& text)
{
    Output once;
    if (!ZKQGeneral_WritePrivateProfileString_Mem(text.c_str(), section.c_str(), key.c_str(), value.c_str(), &once.text,
                                                  &once.length)) {
        REQUIRE(once.length == -1);
        return;
    }
    REQUIRE(once.length == static_cast<int>(strlen(once.text)) + 1);
    Output twice;
    if (ZKQGeneral_WritePrivateProfileString_Mem(once.text, section.c_str(), key.c_str(), value.c_str(), &twice.text,
                                                 &twice.length) &&
        IsPlainKey(key) && IsPlainSection(section) && value.find_first_of("\r\n") == std::string::npos)
        REQUIRE(strcmp(once.text, twice.text) == 0);
    if (IsPlainKey(key) && IsPlainSection(section) && value.find_first_of("\r\n") == std::string::npos) {
        const size_t first = value.find_first_not_of(' ');
        const std::string trimmed =
            first == std::string::npos ? "" : value.substr(first, value.find_last_not_of(' ') - first + 1);
        REQUIRE(Get(section, key, once.text, 5000) == trimmed);
    }
}

void CheckDelete(const std::string& section, const std::string& key, const std::string& text)
{
    Output without;
    if (ZKQGeneral_WritePrivateProfileString_Mem(text.c_str(), section.c_str(), key.c_str(), nullptr, &without.text,
                                                 &without.length))
        REQUIRE(strlen(without.text) <= text.size() + 1);
    Output rest;
    if (ZKQGeneral_DeletePrivateProfileSection_Mem(section.c_str(), text.c_str(), &rest.text, &rest.length)) {
        REQUIRE(strlen(rest.text) < text.size() || text.empty());
        REQUIRE(section.empty() || Get(section, key, rest.text, 5000) == "(default)");
    }
}

/// Writing to a file and to memory differ in blank lines and in the room alone.
void CheckFileForm(const std::string& section, const std::string& key, const std::string& value,
                   const std::string& text)
{
    const ProfileEdit edit = {section, key, value.c_str()};
    ProfileOutput file = ProfileOutput::ToFile(1);
    ProfileOutput memory = ProfileOutput::ToMemory(2 * text.size() * (value.size() + key.size() + 10) + 10000);
    const int fileError = WritePrivateProfileString_R(text, edit, &file);
    const int memoryError = WritePrivateProfileString_R(text, edit, &memory);
    file.Finish();
    memory.Finish();
    REQUIRE(fileError == memoryError);
    std::string squeezed;
    for (const char c : file.Text())
        if (c != '\n' || (!squeezed.empty() && squeezed.back() != '\n'))
            squeezed += c;
    if (value.find('\n') == std::string::npos && key.find('\n') == std::string::npos &&
        section.find('\n') == std::string::npos)
        REQUIRE(squeezed == memory.Text());
}

/// Walks over a list as callers do; the number of names.
size_t CountNames(const char* list, DWORD used)
{
    size_t names = 0;
    for (DWORD at = 0; at < used; at += strlen(list + at) + 1)
        ++names;
    return names;
}

void CheckLists(const std::string& section, const std::string& text, size_t size)
{
    const Exact<char> buffer(size);
    for (const bool sections : {true, false}) {
        if (size > 0)
            memset(buffer.Get(), '?', size);
        const DWORD used =
            sections ? ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer.Get(), size, text.c_str())
                     : ZKQGeneral_GetPrivateProfileItemNames_Mem(section.c_str(), buffer.Get(), size, text.c_str());
        REQUIRE(used == 0 || (used < size && buffer.Get()[used] == '\0' && buffer.Get()[used - 1] == '\0'));
        REQUIRE(CountNames(buffer.Get(), used) <= text.size() + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> texts = Texts(data, size, 4);
    const std::string &section = texts[0], &key = texts[1], &value = texts[2], &text = texts[3];
    for (const size_t room : {0, 1, 2, 7, 4096})
        Get(section, key, text.c_str(), room);
    ZKQGeneral_GetPrivateProfileInt_Mem(section.c_str(), key.c_str(), -1, text.c_str());
    CheckSet(section, key, value, text);
    CheckDelete(section, key, text);
    CheckFileForm(section, key, value, text);
    for (const size_t room : {0, 1, 2, 3, 10, 10000})
        CheckLists(section, text, room);
    std::string trimmed = value;
    for (const int flag : {2, 1, 0, 5}) {
        ZKQGeneral_TrimString(trimmed.data(), flag);
        trimmed.resize(strlen(trimmed.c_str()));
    }
    REQUIRE(trimmed.find(' ') == std::string::npos);
    return 0;
}
