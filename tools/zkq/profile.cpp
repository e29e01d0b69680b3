#include "profile.h"

#include <ZKQ_general/error.h>
#include <ZKQ_general/file.h>
#include <ZKQ_general/inifile.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <functional>

#include "input.h"
#include "paths.h"

namespace {

constexpr size_t kLineSize = 4096; // the longest line of a profile text, its NUL counted

std::string Lookup(const char* text, const std::string& section, const std::string& key, const char* fallback)
{
    char value[kLineSize];
    const DWORD length =
        ZKQGeneral_GetPrivateProfileString_Mem(section.c_str(), key.c_str(), fallback, value, sizeof(value), text);
    return {value, length};
}

/// A value cannot equal two different defaults: a key that answers with both is not there.
std::optional<std::string> Find(const char* text, const std::string& section, const std::string& key)
{
    const std::string value = Lookup(text, section, key, "");
    if (value != Lookup(text, section, key, "-"))
        return std::nullopt;
    return value;
}

/// An empty name may stand anywhere in a list, so only the number of bytes tells where the list ends.
std::vector<std::string> SplitNames(const std::vector<char>& list, size_t used)
{
    std::vector<std::string> names;
    for (size_t at = 0; at < used; at += names.back().size() + 1)
        names.emplace_back(&list[at]);
    return names;
}

/// A list that was cut fills its buffer to the last byte; room is added until it does not.
std::vector<std::string> AllNames(const std::function<DWORD(char*, DWORD)>& fill)
{
    for (size_t size = kLineSize;; size *= 2) {
        std::vector<char> list(size);
        const size_t used = fill(list.data(), size);
        if (used + 1 < size)
            return SplitNames(list, used);
    }
}

std::string Trimmed(std::string text)
{
    ZKQGeneral_TrimString(text.data(), 1);
    ZKQGeneral_TrimString(text.data(), 2);
    return text.c_str(); // cppcheck-suppress stlcstrReturn ; ends at the NUL that was put there
}

/// The text with a key set, or nothing if the library refuses.
std::optional<std::string> TextWith(const std::string& text, const std::string& section, const std::string& key,
                                    const std::string& value)
{
    char* changed = nullptr;
    int length = 0;
    const BOOL done = ZKQGeneral_WritePrivateProfileString_Mem(text.c_str(), section.c_str(), key.c_str(),
                                                               value.c_str(), &changed, &length);
    std::optional<std::string> result;
    if (done)
        result = changed;
    ZKQGeneral_FreeMallocBuffer(changed);
    return result;
}

/// There is no quoting in a profile text: a line break, a key with "=" or a section with "]" would be written and read
/// as something else, and a key that looks like a comment could never be changed again.
bool CanBeStored(const std::string& section, const std::string& key, const std::string& value)
{
    const std::optional<std::string> first = TextWith("", section, key, value == "0" ? "1" : "0");
    const std::optional<std::string> text = first ? TextWith(*first, section, key, value) : first;
    return text && Find(text->c_str(), section, key) == value;
}

std::string Described(const std::string& section, const std::string& key)
{
    return "[" + section + "] " + key;
}

} // namespace

Profile::Profile(const std::string& file) : file_(file), text_(ReadRegularFile(file)) {}

Failure Profile::Malformed() const
{
    return LibraryFailure(file_ + ": a section header without \"]\" or a line that is too long");
}

std::optional<std::string> Profile::Value(const std::string& section, const std::string& key) const
{
    const ErrorMark mark;
    std::optional<std::string> value = Find(text_.c_str(), section, key);
    if (!value && mark.Changed())
        throw Malformed();
    return value;
}

int Profile::Number(const std::string& section, const std::string& key) const
{
    if (!Value(section, key))
        return 0;
    return static_cast<int>(ZKQGeneral_GetPrivateProfileInt_Mem(section.c_str(), key.c_str(), 0, text_.c_str()));
}

std::vector<std::string> Profile::Sections() const
{
    const ErrorMark mark;
    std::vector<std::string> names = AllNames([this](char* buffer, DWORD size) {
        return ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer, size, text_.c_str());
    });
    if (mark.Changed())
        throw Malformed();
    return names;
}

std::vector<std::string> Profile::Keys(const std::string& section) const
{
    const ErrorMark mark;
    std::vector<std::string> names = AllNames([&](char* buffer, DWORD size) {
        return ZKQGeneral_GetPrivateProfileItemNames_Mem(section.c_str(), buffer, size, text_.c_str());
    });
    if (mark.Changed())
        throw Malformed();
    return names;
}

bool Profile::HasSection(const std::string& section) const
{
    const std::vector<std::string> names = Sections();
    return section.empty() || std::any_of(names.begin(), names.end(), [&](const std::string& name) {
               return strcasecmp(name.c_str(), section.c_str()) == 0;
           });
}

void Profile::RequireWellFormed() const
{
    if (strlen(text_.c_str()) != text_.size())
        throw Failure("cannot change " + file_, "The file holds NUL bytes and is no text");
    // Taking out a key that no line can hold copies the text line by line, and stops at a bad one.
    char* copy = nullptr;
    int length = 0;
    const BOOL done = ZKQGeneral_WritePrivateProfileString_Mem(text_.c_str(), "", "\n", nullptr, &copy, &length);
    ZKQGeneral_FreeMallocBuffer(copy);
    if (!done)
        throw Malformed();
}

void SetProfileValue(const std::string& file, const std::string& section, std::string key, std::string value)
{
    key = Trimmed(key);
    value = Trimmed(value);
    if (!CanBeStored(section, key, value))
        throw Failure("cannot set " + Described(section, key), "The file's syntax has no way to hold this");
    const std::string path = Resolved(file);
    if (ZKQGeneral_IsFileExist(path.c_str()))
        Profile(file).RequireWellFormed();
    if (!ZKQGeneral_WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(), path.c_str()))
        throw LibraryFailure("cannot write " + file);
}

void DeleteProfileKey(const std::string& file, const std::string& section, const std::string& key)
{
    Profile(file).RequireWellFormed();
    if (!ZKQGeneral_WritePrivateProfileString(section.c_str(), Trimmed(key).c_str(), nullptr, Resolved(file).c_str()))
        throw LibraryFailure("cannot write " + file);
}

void DeleteProfileSection(const std::string& file, const std::string& section)
{
    Profile(file).RequireWellFormed();
    if (!ZKQGeneral_DeletePrivateProfileSection(section.c_str(), Resolved(file).c_str()))
        throw LibraryFailure("cannot delete section [" + section + "] of " + file);
}
