// Requests: their text, their stages, and the chain of redirects.
#include <ZKQ_general/http.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "../internal/error.h"
#include "../internal/guards.h"
#include "../internal/http.h"
#include "../internal/log.h"
#include "../internal/text.h"
#include "messages_gbk.h"

namespace {

constexpr int kDefaultTimeout = 20;
constexpr int kMostRedirects = 1000;
constexpr long kTimeoutsInChain = 10;
constexpr int kSeeOther = 303;
constexpr long kHighestPort = 65535;
constexpr int kHardClose = 1;
constexpr size_t kRequestExtra = 1024; // for all of a request text but its path, extra header line and body
constexpr char kFormType[] = "Content-Type: application/x-www-form-urlencoded";
constexpr char kUserAgent[] = "\r\nUser-Agent: Mozilla/4.0 (compatible; MSIE 5.01; Windows NT 5.0)";

/// What the callers of the entry points want.
struct HTTPREQUEST {
    const char* URL;
    const char* FormData;
    const char* ContentType;
    const char* ResultFile;
    char** ResultData;
    int* DataLen;
    int Timeout;
    int bPath;
    char* FileName;
    int Length;
};

struct FreeHandle {
    void operator()(MYINETHANDLE* hd) const
    {
        free(hd->ReqData.Buffer);
        CloseResponse(&hd->ResponseData);
        if (hd->sy.sd != 0)
            S_Close(&hd->sy, kHardClose);
        free(hd);
    }
};
using RequestHandle = std::unique_ptr<MYINETHANDLE, FreeHandle>;

RequestHandle MakeHandle(const HTTPREQUEST& request)
{
    RequestHandle hd(static_cast<MYINETHANDLE*>(calloc(1, sizeof(MYINETHANDLE))));
    if (hd == nullptr)
        return hd;
    hd->Timeout = request.Timeout;
    hd->FormData = request.FormData;
    hd->ContentType = request.ContentType;
    hd->OutputObj.OutFile = request.ResultFile;
    hd->OutputObj.OutData = request.ResultData;
    hd->OutputObj.OutDataSize = request.DataLen;
    hd->OutputObj.bPath = request.bPath;
    return hd;
}

bool HasLineBreak(const char* text)
{
    return text != nullptr && strpbrk(text, "\r\n") != nullptr;
}

/// Stores the parts of a URL in the request; 0 or an errno value.
int TakeUrl(REQDATA* request, const char* URL)
{
    UrlParts parts;
    if (const int error = SplitUrlWithPort(URL, &parts))
        return error;
    if (parts.protocol.size() >= sizeof request->Protocol || parts.name.size() >= sizeof request->Host ||
        parts.object.size() >= sizeof request->Path)
        return ENOMEM;
    // No name would be that of this machine, and no redirect is to lead there by having none.
    if (parts.name.empty() || parts.port < 1 || parts.port > kHighestPort)
        return EINVAL;
    TextBuilder(request->Protocol).Add(parts.protocol);
    TextBuilder(request->Host).Add(parts.name);
    TextBuilder(request->Path).Add(parts.object);
    request->Port = static_cast<int>(parts.port);
    request->bIPV6 = ResolveIPv4(request->Host, &request->Address) != 0 ? 1 : 0;
    return 0;
}

/// The header line between the request's own and the empty one, or an empty text.
std::string_view ExtraHeader(const MYINETHANDLE& hd)
{
    if (hd.ContentType != nullptr && *hd.ContentType != '\0')
        return hd.ContentType;
    return hd.FormData != nullptr ? kFormType : "";
}

/// Builds the request text.
BOOL MakeRequest(MYINETHANDLE* hd)
{
    REQDATA* const request = &hd->ReqData;
    const std::string_view body = OrEmpty(hd->FormData);
    const std::string_view header = ExtraHeader(*hd);
    const size_t room = body.size() + header.size() + strlen(request->Path) + kRequestExtra;
    request->Method = hd->FormData != nullptr ? "POST" : "GET";
    request->Buffer = static_cast<char*>(malloc(room));
    if (request->Buffer == nullptr)
        return FailHttp(ENOMEM, Message::HttpRequestNoMemory);
    const int length =
        snprintf(request->Buffer, room, "%s %s HTTP/1.1\r\nAccept: */*%s\r\nHost: %s:%d%s%s %d%s%.*s\r\n\r\n",
                 request->Method, request->Path, kUserAgent, request->Host, request->Port, "\r\nConnection: Close",
                 "\r\nContent-Length: ", static_cast<int>(body.size()), header.empty() ? "" : "\r\n",
                 static_cast<int>(header.size()), header.data());
    body.copy(request->Buffer + length, body.size());
    request->Length = static_cast<size_t>(length) + body.size();
    return TRUE;
}

BOOL Connect(MYINETHANDLE* hd)
{
    const REQDATA& request = hd->ReqData;
    if (request.bIPV6 != 0)
        return S_Open(&hd->sy, AF_INET6, SOCK_STREAM, 0) && S_Client(&hd->sy, request.Host, request.Port, hd->Timeout);
    if (!S_Open(&hd->sy, 0, 0, 0))
        return FALSE;
    // As S_Client(), which would look the host up once more and ask for modes that a new socket does not have.
    if (fcntl(Descriptor(hd->sy.sd), F_SETFL, O_NONBLOCK) != 0)
        return FailWithErrno();
    hd->sy.sin.sin_port = htons(static_cast<uint16_t>(request.Port));
    hd->sy.sin.sin_addr = request.Address;
    return ConnectWithin(&hd->sy, hd->Timeout);
}

BOOL Send(MYINETHANDLE* hd)
{
    auto length = static_cast<long>(hd->ReqData.Length);
    return S_Send(hd->sy, hd->ReqData.Buffer, &length, hd->Timeout);
}

bool IsRedirect(const MYINETHANDLE& hd)
{
    return hd.ResponseData.NewURL[0] != '\0';
}

/// Nothing can be slipped into a request, and its lengths can be told.
bool IsSafeRequest(const MYINETHANDLE& hd, const char* URL)
{
    return !HasLineBreak(URL) && !HasLineBreak(hd.ContentType) && OrEmpty(hd.FormData).size() <= INT_MAX &&
           OrEmpty(hd.ContentType).size() <= INT_MAX;
}

/// The stages of one request up to its response; a redirect has no body that matters.
BOOL Perform(MYINETHANDLE* hd, const char* URL)
{
    if (!IsSafeRequest(*hd, URL))
        return FailHttp(EINVAL);
    if (const int error = TakeUrl(&hd->ReqData, URL))
        return FailHttp(error);
    if (!MakeRequest(hd))
        return FALSE;
    if (!Connect(hd) || !Send(hd))
        return PassFailure();
    if (!ReadResponseHead(hd))
        return FALSE;
    if (IsRedirect(*hd) || hd->ResponseData.RetCode == 0)
        return TRUE;
    return ReadResponseBody(hd);
}

/// Tells the caller the server's name for the file.
BOOL GiveFileName(const HTTPREQUEST& request, const FUNCTIONOUT& out)
{
    if (request.FileName == nullptr || request.bPath == 0)
        return TRUE;
    const std::string_view name = out.FileName;
    if (request.Length < 0 || name.size() >= static_cast<size_t>(request.Length))
        return FailHttp(ENOMEM, Message::HttpFileNameRoom);
    request.FileName[name.copy(request.FileName, name.size())] = '\0';
    return TRUE;
}

/// Follows redirects to the response that counts, which is then the handle's; or fails.
BOOL PerformChain(const HTTPREQUEST& request, RequestHandle* hd)
{
    HTTPREQUEST next = request;
    char url[kRedirectUrlSize];
    const long limit = std::min<long>(request.Timeout, LONG_MAX / kTimeoutsInChain) * kTimeoutsInChain;
    Deadline deadline(std::max(limit, 0L));
    for (int redirects = 0; Perform(hd->get(), next.URL); ++redirects) {
        if (!IsRedirect(**hd))
            return TRUE;
        const timespec* const left = deadline.Left();
        if (left != nullptr && left->tv_sec == 0 && left->tv_nsec == 0)
            return FailHttp(ETIME);
        if (redirects == kMostRedirects)
            return FailHttp(EBADMSG);
        if ((*hd)->ResponseData.RetCode == kSeeOther)
            next.FormData = nullptr;
        TextBuilder(url).Add((*hd)->ResponseData.NewURL);
        next.URL = url;
        CloseOutput(&(*hd)->OutputObj, false);
        hd->reset(); // closes the connection before the next one is made
        *hd = MakeHandle(next);
        if (*hd == nullptr)
            return FailHttp(ENOMEM, "calloc hd failed");
    }
    return FALSE;
}

BOOL SendRequest(const HTTPREQUEST& request)
{
    if (request.ResultData != nullptr)
        *request.ResultData = nullptr;
    RequestHandle hd = MakeHandle(request);
    if (hd == nullptr)
        return FailHttp(ENOMEM, "calloc hd failed");
    const bool succeeded =
        PerformChain(request, &hd) && GiveFileName(request, hd->OutputObj) && FinishOutput(&hd->OutputObj);
    if (hd != nullptr)
        CloseOutput(&hd->OutputObj, !succeeded);
    return succeeded ? TRUE : FALSE;
}

} // namespace

BOOL FailHttp(int error, const char* message, int line)
{
    GeneralMisc_SetSystemError(error);
    if (message == nullptr)
        return PassFailure(line);
    General_LibraryLog(ZKQ_LOG_ERROR, message, kHttpLogName, line);
    return FALSE;
}

BOOL PassFailure(int line)
{
    char text[kErrorTextSize];
    LoadSharedText(g_General_ErrorInfo, text);
    General_LibraryLog(ZKQ_LOG_ERROR, text, kHttpLogName, line);
    return FALSE;
}

BOOL Network_SendHttpRequest(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ResultFile)
{
    return Network_SendHttpRequestEx(URL, FormData, ResultFile, nullptr, 0);
}

BOOL Network_SendHttpRequestEx(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ResultFile, LPCTSTR Proxy, int bPath)
{
    return Network_SendHttpRequestEx2(URL, FormData, ResultFile, Proxy, bPath, nullptr, 0);
}

BOOL Network_SendHttpRequestEx2(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ResultFile, LPCTSTR Proxy, int bPath,
                                char* FileName, int Length)
{
    return Network_SendHttpRequestEx3(URL, FormData, nullptr, ResultFile, Proxy, bPath, FileName, Length);
}

BOOL Network_SendHttpRequestEx3(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ContentType, LPCTSTR ResultFile, LPCTSTR Proxy,
                                int bPath, char* FileName, int Length)
{
    return Network_SendHttpRequestEx4(URL, FormData, ContentType, ResultFile, nullptr, nullptr, Proxy, bPath, FileName,
                                      Length);
}

BOOL Network_SendHttpRequestEx4(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ContentType, const char* ResultFile,
                                char** ResultData, int* ResultDataLength, LPCTSTR, int bPath, char* FileName,
                                int Length)
{
    return SendRequest({URL, FormData, ContentType, ResultFile, ResultData, ResultDataLength, kDefaultTimeout, bPath,
                        FileName, Length});
}

BOOL Network_HttpSendReceive(LPCTSTR URL, LPCTSTR UploadData, LPCTSTR ContentType, char** ResultData, int TimeOut)
{
    return Network_HttpSendReceiveEx(URL, UploadData, ContentType, nullptr, ResultData, nullptr, TimeOut, 0);
}

BOOL Network_HttpSendReceiveEx(LPCTSTR URL, LPCTSTR UploadData, LPCTSTR ContentType, const char* ResultFile,
                               char** ResultData, int* ResultDataLength, int TimeOut, int bPath)
{
    return Network_HttpSendReceiveEx2(URL, UploadData, ContentType, ResultFile, ResultData, ResultDataLength, TimeOut,
                                      bPath, nullptr, 0);
}

BOOL Network_HttpSendReceiveEx2(LPCTSTR URL, LPCTSTR UploadData, LPCTSTR ContentType, const char* ResultFile,
                                char** ResultData, int* ResultDataLength, int TimeOut, int bPath, char* FileName,
                                int Length)
{
    return SendRequest(
        {URL, UploadData, ContentType, ResultFile, ResultData, ResultDataLength, TimeOut, bPath, FileName, Length});
}

void NetWork_FreeBuffer(char* ResultData)
{
    free(ResultData);
}
