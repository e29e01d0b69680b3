#include <errno.h>
#include <string.h>

#include "../internal/xmlh.h"
#include "messages_gbk.h"

namespace {

constexpr size_t kErrorTextSize = 256;
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
    char* const output = ErrorString == nullptr ? g_externalError : ErrorString;
    const char* const text = Ret == kXmlExternalError ? g_externalError : TextOfCode(Ret);
    if (text != output)
        GeneralMisc_OutputString(text, output, kErrorTextSize, 1);
    return output;
}

char* WQXXMLH_GetErrorInfo(int ErrorCode, char* ErrorInfo)
{
    return WQXXML_GetErrorString(ErrorCode, ErrorInfo);
}

void WQXXMLH_Misc_SetExternalError(const char* Info)
{
    if (Info != nullptr && Info != g_externalError)
        GeneralMisc_OutputString(Info, g_externalError, sizeof g_externalError, 1);
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
