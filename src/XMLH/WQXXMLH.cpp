#include <ZKQ_general/error.h>
#include <ZKQ_general/file.h>
#include <ZKQ_general/table.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include "../internal/error.h"
#include "../internal/file.h"
#include "../internal/guards.h"
#include "../internal/xmlh.h"
#include "messages_gbk.h"

namespace {

constexpr unsigned int kTableBuckets = 256;

/// Logs why a function fails, and returns its result.
int FailWith(int result, const char* message, const char* file = __builtin_FILE(), int line = __builtin_LINE())
{
    General_LibraryLog(ZKQ_LOG_ERROR, message, file, line);
    return result;
}

int RefuseArguments(const char* function, LogFormat format = Message::XmlBadArgument)
{
    General_LibraryLogF(ZKQ_LOG_ERROR, format, function);
    return EINVAL;
}

/// Gives back a handle with its document, and wipes its mark.
struct ReleaseHandle {
    void operator()(WQXXMLH* handle) const
    {
        WQXXML_ReleaseObject(handle->xml);
        if (handle->HashTable != nullptr)
            General_Table_Destroy(handle->HashTable);
        explicit_bzero(handle, sizeof *handle); // not to be optimised away
        free(handle);
    }
};
using UniqueHandle = std::unique_ptr<WQXXMLH, ReleaseHandle>;

/// A new handle for an empty document; null without memory.
UniqueHandle NewHandle(const char* fileName, int Mode)
{
    UniqueHandle handle(static_cast<WQXXMLH*>(calloc(1, sizeof(WQXXMLH))));
    if (handle == nullptr || General_Table_Create(&handle->HashTable, kTableBuckets, 0) != 0)
        return nullptr;
    handle->MagicNum = kXmlHandleMark;
    handle->Mode = Mode;
    TextBuilder(handle->FileName).Add(fileName);
    return handle;
}

/// 0, or kXmlBadHandle, which is logged.
int CheckHandle(void* Handle)
{
    if (Handle == nullptr)
        return FailWith(kXmlBadHandle, Message::XmlNullHandle);
    return AsDocument(Handle) != nullptr ? 0 : FailWith(kXmlBadHandle, Message::XmlBadHandle);
}

/// Reads the document of a file; 0, or a code that has been logged.
int LoadFile(const char* Filename, void** xml)
{
    unsigned char* content = nullptr;
    if (!ZKQGeneral_GetFileContent(Filename, &content, nullptr)) {
        char reason[kErrorTextSize];
        LoadSharedText(g_General_ErrorInfo, reason);
        WQXXMLH_Misc_SetExternalError(reason);
        return LogXmlResult(kXmlExternalError);
    }
    const MallocPtr<unsigned char> owner(content);
    return LogXmlResult(WQXXML_LoadFromString(reinterpret_cast<const char*>(content), xml));
}

/// Makes an empty file, or empties it; 0 or an errno value, which is logged.
int MakeEmptyFile(const char* Filename)
{
    struct statx status;
    const UniqueFd file(OpenForWriting(Filename, O_TRUNC, &status));
    return LogXmlResult(file.IsOpen() ? 0 : errno);
}

int WriteFile(WQXXMLH* handle, const char* Version, const char* Encodeing, const char* Standalone)
{
    return LogXmlResult(WQXXML_OutputFile(handle->xml, Version, Encodeing, Standalone, handle->FileName));
}

/// Notes that a change has been made, unless it failed; then that is logged.
int FinishChange(void* Handle, int result)
{
    WQXXMLH* const document = AsDocument(Handle);
    if (result == 0 && document != nullptr)
        document->Modified = TRUE;
    return LogXmlResult(result);
}

const char* OrEmptyText(const char* text)
{
    return text == nullptr ? "" : text;
}

/// Resolves a path and checks a name; 0, or a code that has been logged.
int ResolveWithName(void* Handle, const char* Path, PathMode mode, const char* name, XMLNODE** node)
{
    if (const int error = ResolvePath(Handle, Path, mode, node))
        return error;
    const int error = WQXXMLH_Misc_CheckNamenValueValid(name, nullptr);
    return name == nullptr ? error : LogXmlResult(error); // who finds that there is none has logged it
}

int DeleteNode(void* Handle, XMLNODE* node)
{
    WQXXMLH* const document = AsDocument(Handle);
    if (node->parent != nullptr) {
        UnlinkAndRelease(&node->parent->Child, node);
        return 0;
    }
    XMLNODE* first = document != nullptr ? static_cast<XMLNODE*>(document->xml) : FirstOf(node);
    if (document == nullptr && first == node) // which only the owner of its document can take out
        return EINVAL;
    UnlinkAndRelease(&first, node);
    if (document != nullptr)
        document->xml = first;
    return 0;
}

} // namespace

int WQXXMLH_Open(const char* Filename, int Mode, void** Handle)
{
    if (Filename == nullptr || *Filename == '\0')
        return FailWith(EINVAL, Message::XmlNoFileName);
    if (Handle == nullptr)
        return FailWith(EINVAL, Message::XmlNoHandleOut);
    if (strlen(Filename) >= kPathSize)
        return FailWith(ENOMEM, Message::XmlNameTooLong);
    UniqueHandle handle = NewHandle(Filename, Mode);
    if (handle == nullptr)
        return FailWith(ENOMEM, Message::XmlMallocFailed);
    if (Mode == 0) {
        if (const int error = LoadFile(Filename, &handle->xml))
            return error;
    } else if (!ZKQGeneral_IsFileExist(Filename) || LoadFile(Filename, &handle->xml) != 0) {
        if (const int error = MakeEmptyFile(Filename))
            return error;
    }
    *Handle = handle.release();
    return 0;
}

int WQXXMLH_Open2(const char* XML, int Mode, void** Handle)
{
    const bool isEmpty = XML == nullptr || *XML == '\0';
    if (Mode == 0 && (isEmpty || Handle == nullptr))
        return FailWith(EINVAL, Message::XmlReadOnlyNeedsText);
    if (Handle == nullptr)
        return FailWith(EINVAL, Message::XmlNeedsHandleOut);
    UniqueHandle handle = NewHandle("", Mode);
    if (handle == nullptr) {
        WQXXMLH_Misc_SetExternalError(Message::XmlMallocFailed);
        return FailWith(ENOMEM, Message::XmlMallocFailed);
    }
    if (!isEmpty)
        if (const int error = LogXmlResult(WQXXML_LoadFromString(XML, &handle->xml)))
            return error;
    *Handle = handle.release();
    return 0;
}

int WQXXMLH_SetDeclaration(void* Handle, const char* Version, const char* Encodeing, const char* Standalone)
{
    if (const int error = CheckHandle(Handle))
        return error;
    WQXXMLH* const handle = AsDocument(Handle);
    const struct {
        const char* value;
        char (&field)[32];
    } values[] = {{Version, handle->Version}, {Encodeing, handle->Encodeing}, {Standalone, handle->Standalone}};
    for (const auto& [value, field] : values) {
        if (value == nullptr)
            continue;
        if (strlen(value) >= sizeof field)
            return LogXmlResult(kXmlNoMemory);
        GeneralMisc_OutputString(value, field, sizeof field, 1);
    }
    return 0;
}

void WQXXMLH_Close(void* Handle)
{
    if (CheckHandle(Handle) != 0)
        return;
    const UniqueHandle handle(AsDocument(Handle));
    if (handle->FileName[0] != '\0' && handle->Modified)
        WriteFile(handle.get(), handle->Version, handle->Encodeing, handle->Standalone);
}

void WQXXMLH_Close2(void* Handle, char** XML)
{
    if (CheckHandle(Handle) != 0)
        return;
    const WQXXMLH* const handle = AsDocument(Handle);
    if (XML != nullptr) {
        *XML = nullptr;
        LogXmlResult(WQXXML_OutputStringEx(handle->xml, handle->Version, handle->Encodeing, handle->Standalone, XML));
    }
    WQXXMLH_Close(Handle);
}

void WQXXMLH_FreeString(char* XML)
{
    WQXXML_FreeString(XML);
}

void WQXXMLH_RecordTempFile(void* Handle)
{
    if (CheckHandle(Handle) == 0 && AsDocument(Handle)->FileName[0] != '\0')
        WriteFile(AsDocument(Handle), "1.0", "UTF-8", "yes");
}

int WQXXMLH_SetXMLOption(int XMLOptionMode)
{
    const int plain = XMLOptionMode != 0;
    WQXXML_SetOption(1, &plain, sizeof plain);
    return 0;
}

int WQXXMLH_GetNodeFromPath(void* Handle, const char* Path, void** ElementHandle)
{
    if (ElementHandle == nullptr)
        return RefuseArguments("WQXXMLH_GetNodeFromPath");
    XMLNODE* node = nullptr;
    const int error = ResolvePath(Handle, Path, PathMode::kFind, &node);
    if (error == 0)
        *ElementHandle = node;
    return error;
}

int WQXXMLH_Misc_GetNodeFromPath_AutoAdd(void* Handle, const char* Path, void** ElementHandle)
{
    if (ElementHandle == nullptr)
        return RefuseArguments("WQXXMLH_Misc_GetNodeFromPath_AutoAdd");
    XMLNODE* node = nullptr;
    const int error = ResolvePath(Handle, Path, PathMode::kAdd, &node);
    if (error == 0)
        *ElementHandle = node;
    return error;
}

int WQXXMLH_GetElementValue(void* Handle, const char* Path, char** Value)
{
    if (Value == nullptr)
        return RefuseArguments("WQXXMLH_GetElementValue");
    XMLNODE* node = nullptr;
    if (const int error = ResolvePath(Handle, Path, PathMode::kFind, &node))
        return error;
    return LogXmlResult(WQXXML_GetElementValue(node, Value));
}

int WQXXMLH_GetElementAttribute(void* Handle, const char* Path, const char* AttributeName, char** AttributeValue)
{
    if (AttributeName == nullptr || AttributeValue == nullptr)
        return RefuseArguments("WQXXMLH_GetElementAttribute");
    XMLNODE* node = nullptr;
    if (const int error = ResolvePath(Handle, Path, PathMode::kFind, &node))
        return error;
    return LogXmlResult(WQXXML_GetAttribute(node, AttributeName, AttributeValue));
}

int WQXXMLH_AddElementValue(void* Handle, const char* Path, const char* NodeName, const char* Value)
{
    XMLNODE* node = nullptr;
    if (const int error = ResolveWithName(Handle, Path, PathMode::kAdd, NodeName, &node))
        return error;
    return FinishChange(Handle, WQXXML_AddNodeChildItem(node, NodeName, OrEmptyText(Value), nullptr));
}

int WQXXMLH_AddElementAttribute(void* Handle, const char* Path, const char* AttributeName, const char* AttributeValue)
{
    XMLNODE* node = nullptr;
    if (const int error = ResolveWithName(Handle, Path, PathMode::kAdd, AttributeName, &node))
        return error;
    return FinishChange(Handle, WQXXML_AddNodeAttribute(node, AttributeName, AttributeValue));
}

int WQXXMLH_ChangeElementValue(void* Handle, const char* Path, const char* Value)
{
    XMLNODE* node = nullptr;
    if (const int error = ResolveWithName(Handle, Path, PathMode::kFind, Path, &node))
        return error;
    return FinishChange(Handle, WQXXML_ChangeElementValue(node, Value));
}

int WQXXMLH_ChangeElementName(void* Handle, const char* Path, const char* Value)
{
    XMLNODE* node = nullptr;
    if (const int error = ResolveWithName(Handle, Path, PathMode::kFind, Value, &node))
        return error;
    return FinishChange(Handle, WQXXML_ChangeNodeValue(node, Value));
}

int WQXXMLH_ChangeElementAttribute(void* Handle, const char* Path, const char* AttributeName,
                                   const char* AttributeValue)
{
    XMLNODE* node = nullptr;
    if (const int error = ResolveWithName(Handle, Path, PathMode::kFind, AttributeName, &node))
        return error;
    return FinishChange(Handle, WQXXML_ChangeAttribute(node, AttributeName, AttributeValue));
}

int WQXXMLH_DeleteElement(void* Handle, const char* Path)
{
    XMLNODE* node = nullptr;
    if (const int error = ResolvePath(Handle, Path, PathMode::kFind, &node))
        return error;
    WQXXMLH* const document = AsDocument(Handle); // an element may be the one that is deleted
    const int result = DeleteNode(Handle, node);
    if (result == 0 && document != nullptr)
        document->Modified = TRUE;
    return LogXmlResult(result);
}

int WQXXMLH_Copy(void* xmlSrc, const char* srcPath, void* xmlDest, const char* destPath)
{
    XMLNODE* source = nullptr;
    XMLNODE* target = nullptr;
    if (const int error = ResolvePath(xmlSrc, srcPath, PathMode::kFind, &source))
        return error;
    if (const int error = ResolvePath(xmlDest, destPath, PathMode::kFind, &target))
        return error;
    return FinishChange(xmlDest, WQXXML_Misc_CopyNode(source, target));
}
