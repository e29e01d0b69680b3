#include <ZKQ_general/inifile.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>

#include "internal/error.h"
#include "internal/file.h"
#include "internal/profile_text.h"
#include "internal/text.h"

namespace {

constexpr size_t kWriteMargin = 64; // room that the memory writer has beyond its texts

using ProfileFilter = int (*)(std::string_view, const ProfileEdit&, ProfileOutput*);

/// A profile file in memory; its text ends at the first NUL.
class ProfileFile {
public:
    /// Reads the file; FALSE with the error text set.
    BOOL Load(LPCTSTR fileName)
    {
        unsigned char* content = nullptr;
        int size = 0;
        const BOOL loaded = ZKQGeneral_GetFileContent(fileName, &content, &size);
        content_.reset(reinterpret_cast<char*>(content));
        length_ = loaded ? strnlen(content_.get(), static_cast<size_t>(size)) : 0;
        return loaded;
    }
    std::string_view Text() const { return {content_.get(), length_}; }
    /// The text, terminated: a read file is followed by zeros.
    const char* CString() const { return content_.get(); }

private:
    MallocPtr<char> content_;
    size_t length_ = 0;
};

/// The written entry and header would be lines that can be read again.
bool FitsLine(const ProfileEdit& edit)
{
    constexpr size_t kEntryFrame = 3;  // " = "
    constexpr size_t kHeaderFrame = 2; // "[" and "]"
    return edit.value == nullptr || (edit.key.size() + kEntryFrame + strlen(edit.value) <= kProfileLineMax &&
                                     edit.section.size() + kHeaderFrame <= kProfileLineMax);
}

BOOL Overwrite(LPCTSTR fileName, std::string_view text)
{
    struct statx status;
    const UniqueFd file(OpenForWriting(fileName, O_TRUNC, &status));
    if (!file.IsOpen())
        return FailWithErrno();
    return Finish(WriteAll(file.Get(), text));
}

/// Runs a filter over a file. Whatever can fail comes before the file is truncated; a header without "]" still loses
/// what stands behind it.
BOOL RewriteFile(LPCTSTR fileName, ProfileFilter filter, const ProfileEdit& edit)
{
    ProfileFile file;
    struct stat status;
    if (lstat(fileName, &status) == 0) {
        if (!file.Load(fileName))
            return FALSE;
    } else if (errno != ENOENT) {
        return FailWithErrno(); // it may well be there: nothing must be lost
    }
    ProfileOutput output = ProfileOutput::ToFile(file.Text().size() + edit.section.size() + edit.key.size() +
                                                 OrEmpty(edit.value).size() + kWriteMargin);
    if (!output.IsReady())
        return FailWithErrno();
    const int error = filter(file.Text(), edit, &output);
    if (error == ENOMEM || (error != 0 && HasTooLongLine(file.Text())))
        return Fail(error);
    output.Finish();
    return Overwrite(fileName, output.Text()) ? Finish(error) : FALSE;
}

/// Runs a filter over a text with `capacity` bytes for the new one, its NUL included.
BOOL RewriteText(std::string_view text, ProfileFilter filter, const ProfileEdit& edit, size_t capacity,
                 char** OutBuffer, int* OutLength)
{
    if (capacity > INT_MAX)
        return Fail(EINVAL);
    ProfileOutput output = ProfileOutput::ToMemory(capacity);
    if (!output.IsReady())
        return Fail(ENOMEM);
    const int error = filter(text, edit, &output);
    output.Finish();
    if (error == 0)
        *OutLength = static_cast<int>(output.Text().size()) + 1;
    *OutBuffer = output.Release();
    return Finish(error);
}

/// A list of names in a caller's buffer: each terminated, one more NUL at the end.
class NameList {
public:
    NameList(LPTSTR buffer, DWORD size) : buffer_(buffer), size_(size) {}

    /// False when the list is full: the name has been cut, or did not fit at all.
    bool Add(std::string_view name)
    {
        const DWORD room = size_ - used_ - 1;
        if (room == 0)
            return false;
        const int copied = GeneralMisc_OutputString(name, buffer_ + used_, room, 1);
        used_ += static_cast<DWORD>(copied) + 1;
        return static_cast<size_t>(copied) == name.size();
    }
    DWORD Finish()
    {
        buffer_[used_] = '\0';
        return used_;
    }

private:
    LPTSTR buffer_;
    DWORD size_;
    DWORD used_ = 0;
};

/// Lists the names that `nameOf` finds in the lines: it returns false for a line without one.
template <class NameOf>
DWORD ListNames(LPTSTR buffer, DWORD size, const char* text, NameOf nameOf)
{
    if (buffer == nullptr || text == nullptr)
        return FailWithZero(EINVAL);
    if (size == 0)
        return 0;
    NameList list(buffer, size);
    ProfileReader reader(text);
    ProfileLine line;
    std::string_view name;
    while (reader.Next(&line)) {
        if (line.kind == ProfileLine::kBadHeader || line.kind == ProfileLine::kTooLong)
            return FailWithZero(EINVAL);
        if (nameOf(line, &name) && !list.Add(name))
            break;
    }
    return list.Finish();
}

/// Finds a value in a text; otherwise the value is `fallback`, with the error text set for a bad line or argument.
std::string_view FindValue(LPCTSTR section, LPCTSTR key, std::string_view fallback, const char* text)
{
    int error = EINVAL;
    std::string_view value;
    if (key != nullptr && text != nullptr)
        error = FindProfileValue(text, OrEmpty(section), key, &value);
    if (error == EINVAL)
        GeneralMisc_SetSystemError(error);
    return error == 0 ? value : fallback;
}

DWORD OutputValue(std::string_view value, LPTSTR buffer, DWORD size)
{
    return static_cast<DWORD>(GeneralMisc_OutputString(value, buffer, size, 1));
}

} // namespace

int GeneralMisc_OutputString(std::string_view Value, LPTSTR lpReturnedString, DWORD nSize, int Flag)
{
    if (nSize == 0 || (Value.size() > nSize && Flag == 0))
        return 0;
    const size_t length = std::min({Value.size(), nSize - 1, static_cast<size_t>(INT_MAX) - 1});
    std::char_traits<char>::move(lpReturnedString, Value.data(), length);
    lpReturnedString[length] = '\0';
    return static_cast<int>(length);
}

void strncpy_WQX(char* dst, const char* src, int n)
{
    if (dst == nullptr || n <= 0)
        return;
    const size_t size = static_cast<size_t>(n);
    GeneralMisc_OutputString({src, src == nullptr ? 0 : strnlen(src, size)}, dst, size, 1);
}

void ZKQGeneral_TrimString(char* String, int TrimFlag)
{
    if (String == nullptr || TrimFlag < 0 || TrimFlag > 2)
        return;
    char* end = String + strlen(String);
    if (TrimFlag == 0) {
        end = std::remove(String, end, ' ');
    } else if (TrimFlag == 1) {
        const size_t blanks = strspn(String, " ");
        end = std::move(String + blanks, end, String);
    } else {
        while (end > String && end[-1] == ' ')
            --end;
    }
    *end = '\0';
}

DWORD ZKQGeneral_GetPrivateProfileString_Mem(LPCTSTR lpAppName, LPCTSTR lpKeyName, LPCTSTR lpDefault,
                                             LPTSTR lpReturnedString, DWORD nSize, const char* IniBuffer)
{
    if (lpReturnedString == nullptr || lpDefault == nullptr)
        return FailWithZero(EINVAL);
    return OutputValue(FindValue(lpAppName, lpKeyName, lpDefault, IniBuffer), lpReturnedString, nSize);
}

DWORD ZKQGeneral_GetPrivateProfileString(LPCTSTR lpAppName, LPCTSTR lpKeyName, LPCTSTR lpDefault,
                                         LPTSTR lpReturnedString, DWORD nSize, LPCTSTR lpFileName)
{
    if (lpReturnedString == nullptr || lpDefault == nullptr)
        return FailWithZero(EINVAL);
    ProfileFile file;
    if (lpAppName == nullptr)
        GeneralMisc_SetSystemError(EINVAL);
    if (lpAppName == nullptr || !file.Load(lpFileName))
        return OutputValue(lpDefault, lpReturnedString, nSize);
    return ZKQGeneral_GetPrivateProfileString_Mem(lpAppName, lpKeyName, lpDefault, lpReturnedString, nSize,
                                                  file.CString());
}

UINT ZKQGeneral_GetPrivateProfileInt_Mem(LPCTSTR lpAppName, LPCTSTR lpKeyName, INT nDefault, const char* IniBuffer)
{
    return ProfileInteger(FindValue(lpAppName, lpKeyName, {}, IniBuffer), nDefault);
}

UINT ZKQGeneral_GetPrivateProfileInt(LPCTSTR lpAppName, LPCTSTR lpKeyName, INT nDefault, LPCTSTR lpFileName)
{
    ProfileFile file;
    if (lpAppName == nullptr || lpKeyName == nullptr)
        GeneralMisc_SetSystemError(EINVAL);
    else if (file.Load(lpFileName))
        return ZKQGeneral_GetPrivateProfileInt_Mem(lpAppName, lpKeyName, nDefault, file.CString());
    return static_cast<UINT>(nDefault);
}

BOOL ZKQGeneral_WritePrivateProfileString(LPCTSTR lpAppName, LPCTSTR lpKeyName, LPCTSTR lpString, LPCTSTR lpFileName)
{
    if (lpAppName == nullptr || lpKeyName == nullptr || lpFileName == nullptr)
        return Fail(EINVAL);
    const ProfileEdit edit = {lpAppName, lpKeyName, lpString};
    return FitsLine(edit) ? RewriteFile(lpFileName, WritePrivateProfileString_R, edit) : Fail(EINVAL);
}

BOOL ZKQGeneral_WritePrivateProfileString_Mem(const char* IniBuffer, LPCTSTR lpAppName, LPCTSTR lpKeyName,
                                              LPCTSTR lpString, char** OutBuffer, int* OutLength)
{
    if (OutBuffer == nullptr || OutLength == nullptr)
        return Fail(EINVAL);
    *OutBuffer = nullptr;
    if (IniBuffer == nullptr || lpKeyName == nullptr)
        return Fail(EINVAL);
    const std::string_view text = IniBuffer;
    const ProfileEdit edit = {OrEmpty(lpAppName), lpKeyName, lpString};
    if (!FitsLine(edit))
        return Fail(EINVAL);
    size_t capacity = text.size() + kWriteMargin;
    if (lpString != nullptr)
        capacity += edit.section.size() + edit.key.size() + strlen(lpString);
    return RewriteText(text, WritePrivateProfileString_R, edit, capacity, OutBuffer, OutLength);
}

BOOL ZKQGeneral_DeletePrivateProfileSection(LPCTSTR lpAppName, LPCTSTR lpFileName)
{
    if (lpAppName == nullptr || *lpAppName == '\0' || lpFileName == nullptr)
        return Fail(EINVAL);
    return RewriteFile(lpFileName, DeletePrivateProfileSection_R, {lpAppName, {}, nullptr});
}

BOOL ZKQGeneral_DeletePrivateProfileSection_Mem(LPCTSTR lpAppName, const char* IniBuffer, char** OutBuffer,
                                                int* OutLength)
{
    if (OutBuffer == nullptr || OutLength == nullptr)
        return Fail(EINVAL);
    *OutBuffer = nullptr;
    if (IniBuffer == nullptr)
        return Fail(EINVAL);
    const std::string_view text = IniBuffer;
    return RewriteText(text, DeletePrivateProfileSection_R, {OrEmpty(lpAppName), {}, nullptr}, text.size() + 1,
                       OutBuffer, OutLength);
}

DWORD ZKQGeneral_GetPrivateProfileSectionNames_Mem(LPTSTR lpszReturnBuffer, DWORD nSize, const char* IniBuffer)
{
    return ListNames(lpszReturnBuffer, nSize, IniBuffer, [](const ProfileLine& line, std::string_view* name) {
        *name = line.name;
        return line.kind == ProfileLine::kHeader;
    });
}

DWORD ZKQGeneral_GetPrivateProfileSectionNames(LPTSTR lpszReturnBuffer, DWORD nSize, LPCTSTR lpFileName)
{
    ProfileFile file;
    if (file.Load(lpFileName))
        return ZKQGeneral_GetPrivateProfileSectionNames_Mem(lpszReturnBuffer, nSize, file.CString());
    return lpszReturnBuffer == nullptr ? 0 : OutputValue({}, lpszReturnBuffer, nSize);
}

DWORD ZKQGeneral_GetPrivateProfileItemNames_Mem(LPCTSTR lpAppName, LPTSTR lpszReturnBuffer, DWORD nSize,
                                                const char* IniBuffer)
{
    const std::string_view section = OrEmpty(lpAppName);
    bool inSection = section.empty();
    const auto nameOf = [&](const ProfileLine& line, std::string_view* name) {
        if (line.kind == ProfileLine::kHeader)
            inSection = EqualNoCase(line.name, section);
        *name = ParseINIFileLine(line.text).key;
        return line.kind == ProfileLine::kEntry && !line.text.empty() && inSection;
    };
    return ListNames(lpszReturnBuffer, nSize, IniBuffer, nameOf);
}

DWORD ZKQGeneral_GetPrivateProfileItemNames(LPCTSTR lpAppName, LPTSTR lpszReturnBuffer, DWORD nSize,
                                            const char* IniFile)
{
    if (lpAppName == nullptr)
        return FailWithZero(EINVAL);
    ProfileFile file;
    if (!file.Load(IniFile))
        return 0;
    return ZKQGeneral_GetPrivateProfileItemNames_Mem(lpAppName, lpszReturnBuffer, nSize, file.CString());
}
