// The stages of an HTTP request, as the files of the client share them.
#pragma once

#include <ZKQ_general/http.h>
#include <stddef.h>
#include <stdio.h>

#include <memory>
#include <span>
#include <string_view>

#include "socket.h"
#include "text.h"

static_assert(offsetof(NETWORK_URL, ServerName) == 100 && offsetof(NETWORK_URL, Object) == 400);
static_assert(sizeof(NETWORK_URL) == 700 && offsetof(NETWORK_URL_NEW, Port) == 704);
static_assert(offsetof(NETWORK_URL_EX, ServerName) == 8 && offsetof(NETWORK_URL_EX, Object) == 16);
static_assert(offsetof(NETWORK_URL_EX, Port) == 24 && sizeof(NETWORK_URL_EX) == 32);

/// What the client's log records are filed under.
inline constexpr char kHttpLogName[] = "network_Linux/http";
/// The step in which responses are received, and in which what is kept of a response that breaks off is counted.
inline constexpr size_t kHttpPiece = 8192;
inline constexpr size_t kRedirectUrlSize = 256;

/// Where the body goes: into memory, or, with OutFile, into a file.
struct FUNCTIONOUT {
    FILE* fp;         ///< the output file once opened
    char* ResultData; ///< the body in memory
    int BufSize;      ///< room for it in whole pieces, as if it grew by them
    int DataLength;   ///< bytes of it
    const char* OutFile;
    char** OutData;
    int* OutDataSize;
    char FileName[kPathSize]; ///< the server's name for the file, safe to use, or empty
    int bPath;                ///< OutFile is a directory
    int CharSet;              ///< the response has declared UTF-8

    size_t Capacity; ///< bytes really allocated at ResultData
    char* Pending;   ///< for the file: kPendingSize bytes that are written together
    size_t PendingLength;
};
inline constexpr size_t kPendingSize = 16 * kHttpPiece;

struct REQDATA {
    char Protocol[16];
    char Host[128];
    char Path[2048];
    int Port;
    const char* Method;
    char* Buffer; ///< the request text
    size_t Length;
    int bIPV6;
    in_addr Address; ///< of the host, unless bIPV6
};

inline constexpr int kNoLength = -1;
inline constexpr size_t kLargeBuffer = 16 * kHttpPiece;

struct RESPONSEDATA {
    int MajorVersion;
    int SubVersion;
    int RetCode;
    int Length; ///< of the body, or kNoLength
    int Chunked;
    char NewURL[kRedirectUrlSize]; ///< where the response redirects to, or empty

    char Head
        [kHttpPiece]; ///< received and not yet used: the bytes from Begin to End, here or, once it is there, in Large
    char* Large;      ///< kLargeBuffer bytes for a body in chunks
    size_t Begin;
    size_t End;
};

/// One request.
struct MYINETHANDLE {
    int Timeout;
    const char* FormData;
    const char* ContentType;
    SOCKET_ZKQ sy;
    FUNCTIONOUT OutputObj;
    REQDATA ReqData;
    RESPONSEDATA ResponseData;
};

/// Stores the text of an errno value, logs what went wrong, or that text if there is no message, and fails.
BOOL FailHttp(int error, const char* message = nullptr, int line = __builtin_LINE());
/// Logs the error text that the socket layer has left, and fails.
BOOL PassFailure(int line = __builtin_LINE());

// --- URLs (http_url.cpp)

/// A URL in parts, which point into it.
struct UrlParts {
    std::string_view protocol;
    std::string_view server; ///< with port and brackets
    std::string_view object;
    std::string_view name; ///< the server without them
    long port;             ///< 0 if there is none
};

/// Takes a URL apart; 0, or EINVAL for an empty one.
int SplitUrl(const char* URL, UrlParts* parts);
/// As SplitUrl(), and finds the port of the protocol if there is none; or ENOSYS.
int SplitUrlWithPort(const char* URL, UrlParts* parts);

// --- Responses (http_response.cpp); these set the error text

/// Reads and analyses heads until one is final. With TRUE and a NewURL the response is a redirect, with TRUE and a RetCode
/// of 0 there was no head and what was received has been put out as the body.
BOOL ReadResponseHead(MYINETHANDLE* hd);
/// Reads the body behind a final head and puts it out.
BOOL ReadResponseBody(MYINETHANDLE* hd);
void CloseResponse(RESPONSEDATA* response);

// --- Output (http_output.cpp); these set the error text

/// Room for the next bytes of the body: `size`, or at least kHttpPiece of them; in memory perhaps less.
BOOL GetRoom(FUNCTIONOUT* out, size_t size, std::span<char>* room);
/// So many bytes have been put into the room.
BOOL PutRoom(FUNCTIONOUT* out, size_t size);
/// Puts out bytes.
BOOL PutBytes(FUNCTIONOUT* out, std::string_view bytes);
/// Ends the output of a response that has come whole and hands the body to the caller.
BOOL FinishOutput(FUNCTIONOUT* out);
/// Releases everything; what has come of a file is written, and after a failure the file deleted.
void CloseOutput(FUNCTIONOUT* out, bool hasFailed);

/// A name that stays in its directory.
bool IsFileName(std::string_view name);
