#include <errno.h>
#include <string.h>

#include "../internal/error.h"
#include "../internal/xmlh.h"
#include "messages_gbk.h"

namespace {

constinit char g_externalError[kErrorTextSize] = {};

/// The text of a code other than -2.
const char* TextOfCode(int Ret)
{
    switch (Ret) {
    case -9:
        return Message::XmlNoMemory;
    case -8:
        return Message::XmlBadData;
    case -6:
        return Message::XmlWrongType;
    case -5:
        return Message::XmlTooLarge;
    case -4:
        return Message::XmlUnknownType;
    case -3:
        return Message::XmlOutOfRange;
    default:
        return Ret < 0 ? Message::XmlUnknownError : strerror(Ret);
    }
}

} // namespace

char* WQXXML_GetErrorString(int Ret, char* ErrorString)
{
    const bool isShared = ErrorString == nullptr || ErrorString == g_externalError;
    if (isShared) {
        if (Ret != kXmlExternalError)
            StoreSharedText(g_externalError, TextOfCode(Ret));
        return g_externalError;
    }
    char external[kErrorTextSize];
    if (Ret == kXmlExternalError)
        LoadSharedText(g_externalError, external);
    GeneralMisc_OutputString(Ret == kXmlExternalError ? external : TextOfCode(Ret), ErrorString, kErrorTextSize, 1);
    return ErrorString;
}

char* WQXXMLH_GetErrorInfo(int ErrorCode, char* ErrorInfo)
{
    return WQXXML_GetErrorString(ErrorCode, ErrorInfo);
}

void WQXXMLH_Misc_SetExternalError(const char* Info)
{
    if (Info != nullptr && Info != g_externalError)
        StoreSharedText(g_externalError, Info);
}

char* WQXXMLH_Misc_GetExternalError()
{
    return g_externalError;
}

int WQXXMLH_GetSystemError()
{
    return errno;
}

int General_Misc_IsBadPtr(int /*bRead*/, const void* /*p*/, int /*Len*/)
{
    return 0;
}

int LogXmlResult(int result, LogFormat format)
{
    char text[kErrorTextSize];
    if (result != 0)
        General_LibraryLogF(ZKQ_LOG_ERROR, format, WQXXML_GetErrorString(result, text));
    return result;
}
