// Reading of responses.
#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "../internal/charset.h"
#include "../internal/error.h"
#include "../internal/http.h"
#include "../internal/log.h"
#include "../internal/text.h"
#include "messages_gbk.h"

namespace {

constexpr size_t kMostHeld = kHttpPiece - 1;
constexpr size_t kReceiveBlock = 16 * kHttpPiece; // asked for at once; whole pieces
constexpr int kMostInterimHeads = 1000;
constexpr int kFoundOk = 200;
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeadEnd = "\r\n\r\n";

enum HeadResult { kHeadFailed, kHeadComplete, kHeadMissing };

char* BufferOf(RESPONSEDATA* response)
{
    return response->Large != nullptr ? response->Large : response->Head;
}

std::string_view Held(RESPONSEDATA* response)
{
    return {BufferOf(response) + response->Begin, response->End - response->Begin};
}

/// Moves what is held to the front of a buffer, so that all the room there is lies behind it.
void MoveTo(RESPONSEDATA* response, char* buffer)
{
    const std::string_view held = Held(response);
    memmove(buffer, held.data(), held.size());
    response->Begin = 0;
    response->End = held.size();
}

/// Receives into the free part of the buffer, of which there is some.
BOOL ReceiveMore(MYINETHANDLE* hd)
{
    RESPONSEDATA* const response = &hd->ResponseData;
    char* const buffer = BufferOf(response);
    MoveTo(response, buffer);
    auto size = static_cast<long>((response->Large != nullptr ? kLargeBuffer : kMostHeld) - response->End);
    if (!S_Receive_Unknow_Data(hd->sy, buffer + response->End, &size, hd->Timeout))
        return FALSE;
    response->End += static_cast<size_t>(size);
    return TRUE;
}

/// Gets a larger buffer, so that many small chunks are received at once. Without memory for it, it is only slower.
void GetLargeBuffer(RESPONSEDATA* response)
{
    auto* const large = static_cast<char*>(malloc(kLargeBuffer));
    if (large == nullptr)
        return;
    MoveTo(response, large);
    response->Large = large;
}

/// What of the range of a code begins with a digit.
bool IsInHundreds(int code, int digit)
{
    constexpr int kHundred = 100;
    return code >= digit * kHundred && code < (digit + 1) * kHundred;
}

bool HasBodyLength(int code)
{
    constexpr int kNoContent = 204;
    constexpr int kRangeNotSatisfiable = 416;
    return code != kNoContent && code != kRangeNotSatisfiable && !IsInHundreds(code, 3);
}

/// What stands behind a header's name, wherever that is in the line.
bool FindHeader(std::string_view line, std::string_view name, std::string_view* value)
{
    const size_t at = line.find(name);
    if (at == std::string_view::npos)
        return false;
    *value = After(line, at + name.size());
    return true;
}

/// A decimal number that fits, blanks before it and anything behind it.
bool ParseLength(std::string_view text, int* length)
{
    text = After(text, std::min(text.find_first_not_of(" \t"), text.size()));
    return std::from_chars(text.data(), text.data() + text.size(), *length).ec == std::errc() && *length >= 0;
}

/// The hexadecimal number that a text begins with, 0 if it does not; false if it does not fit.
bool ParseChunkSize(std::string_view text, int* size)
{
    constexpr int kHexadecimal = 16;
    *size = 0;
    if (text.starts_with('-'))
        return true; // is no digit
    return std::from_chars(text.data(), text.data() + text.size(), *size, kHexadecimal).ec !=
           std::errc::result_out_of_range;
}

/// A parameter of a header's value: behind a ";", perhaps with blanks around it, perhaps in double quotes, in which a ";"
/// is a character as others.
std::string_view FindParameter(std::string_view value, std::string_view name)
{
    while (!value.empty()) {
        size_t end = std::min(value.find(';'), value.size());
        const size_t equals = value.find('=');
        if (equals < end) {
            const std::string_view behind = After(value, equals + 1);
            const size_t quote = behind.find_first_not_of(' ');
            const bool isQuoted = quote != std::string_view::npos && behind[quote] == '"';
            const std::string_view inside = isQuoted ? After(behind, quote + 1) : behind;
            const size_t length = std::min(inside.find(isQuoted ? '"' : ';'), inside.size());
            if (TrimBlanks(value.substr(0, equals)) == name)
                return isQuoted ? inside.substr(0, length) : TrimBlanks(inside.substr(0, length));
            const std::string_view rest = After(inside, length);
            end = value.size() - rest.size() + std::min(rest.find(';'), rest.size());
        }
        value = After(value, std::min(end + 1, value.size()));
    }
    return {};
}

/// Stores the server's name for the file, empty if it cannot be used.
void TakeFileName(FUNCTIONOUT* out, std::string_view name)
{
    char local[kPathSize];
    int length = sizeof local - 1;
    out->FileName[0] = '\0';
    if (!IsFileName(name))
        return;
    if (out->CharSet != 0) {
        if (ConvertText(kUtf8ToGbk, name.data(), static_cast<int>(name.size()), local, &length) != 0)
            return;
        name = {local, static_cast<size_t>(length)};
    }
    if (IsFileName(name))
        TextBuilder(out->FileName).Add(name);
}

BOOL TakeLocation(RESPONSEDATA* response, std::string_view url)
{
    TextBuilder builder(response->NewURL);
    builder.Add(url);
    return builder.WasCut() ? FailHttp(EBADMSG, Message::HttpRedirectTooLong) : TRUE;
}

/// Looks for what matters in one line of a head.
BOOL TakeHeaderLine(MYINETHANDLE* hd, std::string_view line)
{
    RESPONSEDATA* const response = &hd->ResponseData;
    FUNCTIONOUT* const out = &hd->OutputObj;
    std::string_view value;
    if (HasBodyLength(response->RetCode) && FindHeader(line, "Content-Length: ", &value)) {
        if (!ParseLength(value, &response->Length))
            return FailHttp(EBADMSG);
    } else if (FindHeader(line, "Content-Type:", &value)) {
        out->CharSet = FindParameter(value, "charset") == "utf-8" ? 1 : 0;
    } else if (FindHeader(line, "Content-Disposition:", &value)) {
        TakeFileName(out, FindParameter(value, "filename"));
        out->CharSet = 0;
    } else if (FindHeader(line, "Location:", &value)) {
        return TakeLocation(response, value);
    } else if (FindHeader(line, "Transfer-Encoding:", &value) && line.find("chunked") != std::string_view::npos) {
        response->Chunked = 1;
    }
    return TRUE;
}

/// Analyses the lines behind the status line, each of which has its end.
BOOL TakeHeaderLines(MYINETHANDLE* hd, std::string_view lines)
{
    while (!lines.empty()) {
        const size_t end = lines.find(kLineEnd);
        if (!TakeHeaderLine(hd, lines.substr(0, end)))
            return FALSE;
        lines = After(lines, end + kLineEnd.size());
    }
    return TRUE;
}

/// Receives until there is a whole head; *size is its length up to the end of its last line.
HeadResult FindHead(MYINETHANDLE* hd, size_t* size)
{
    RESPONSEDATA* const response = &hd->ResponseData;
    for (size_t searched = 0;;) {
        const std::string_view held = Held(response);
        *size = held.find(kHeadEnd, searched);
        if (*size != std::string_view::npos) {
            *size += kLineEnd.size();
            return kHeadComplete;
        }
        if (held.size() >= kMostHeld) {
            FailHttp(EBADMSG, Message::HttpHeadTooLong);
            return kHeadFailed;
        }
        searched = held.size() - std::min(held.size(), kHeadEnd.size() - 1);
        if (ReceiveMore(hd))
            continue;
        if (!held.empty())
            return kHeadMissing;
        General_LibraryLog(ZKQ_LOG_ERROR, Message::HttpNothingReceived, kHttpLogName);
        return kHeadFailed;
    }
}

/// Reads a number as scanf() does, blanks and sign included, and moves behind it.
bool TakeNumber(const char** text, int* number)
{
    constexpr int kDecimal = 10;
    char* end = nullptr;
    *number = static_cast<int>(strtol(*text, &end, kDecimal));
    const bool isNumber = end != *text;
    *text = end;
    return isNumber;
}

bool TakeWord(const char** text, std::string_view word)
{
    const bool isWord = strncmp(*text, word.data(), word.size()) == 0;
    *text += isWord ? word.size() : 0;
    return isWord;
}

const char* SkipBlanks(const char* text)
{
    while (isspace(static_cast<unsigned char>(*text)) != 0)
        ++text;
    return text;
}

/// Reads " HTTP/%d.%d %3d", each blank being any number of them.
bool TakeStatusLine(RESPONSEDATA* response, const char* text)
{
    constexpr size_t kCodeDigits = 3;
    text = SkipBlanks(text);
    if (!TakeWord(&text, "HTTP/") || !TakeNumber(&text, &response->MajorVersion) || !TakeWord(&text, ".") ||
        !TakeNumber(&text, &response->SubVersion))
        return false;
    char code[kCodeDigits + 1];
    TextBuilder(code).Add(OrEmpty(SkipBlanks(text)));
    text = code;
    return TakeNumber(&text, &response->RetCode);
}

/// Analyses a head, which is then replaced by what follows it.
BOOL TakeHead(MYINETHANDLE* hd, size_t size)
{
    RESPONSEDATA* const response = &hd->ResponseData;
    const std::string_view head = Held(response).substr(0, size);
    BufferOf(response)[response->Begin + size] = '\0'; // on the empty line
    response->Begin += size + kLineEnd.size();
    if (!TakeStatusLine(response, head.data()))
        return FailHttp(EBADMSG, Message::HttpBadHead);
    if (IsInHundreds(response->RetCode, 1))
        return TRUE;
    return TakeHeaderLines(hd, After(head, head.find(kLineEnd) + kLineEnd.size()));
}

/// Whether a final head is one that the request can end with, or go on from.
BOOL CheckFinalHead(RESPONSEDATA* response)
{
    if (IsInHundreds(response->RetCode, 3))
        return response->NewURL[0] != '\0' ? TRUE : FailHttp(EBADMSG, Message::HttpNoRedirectUrl);
    response->NewURL[0] = '\0';
    return response->RetCode == kFoundOk ? TRUE : FailHttp(EBADMSG, Message::HttpErrorCode);
}

/// Receives exactly so many bytes of the body. What comes of a part that breaks off counts in whole pieces.
BOOL ReceiveBytes(MYINETHANDLE* hd, size_t size)
{
    while (size > 0) {
        std::span<char> room;
        if (!GetRoom(&hd->OutputObj, std::min(size, kReceiveBlock), &room))
            return FALSE;
        if (room.size() < size && room.size() > kHttpPiece)
            room = room.first(room.size() - room.size() % kHttpPiece);
        const size_t count = ReceiveAll(hd->sy.sd, room.data(), room.size(), hd->Timeout);
        const bool isWhole = count == room.size();
        if (!PutRoom(&hd->OutputObj, isWhole ? count : count - count % kHttpPiece))
            return FALSE;
        if (!isWhole)
            return PassFailure();
        size -= count;
    }
    return TRUE;
}

/// Puts out the next bytes of the body: what is held of them, and what is still to come.
BOOL PassBytes(MYINETHANDLE* hd, size_t size)
{
    RESPONSEDATA* const response = &hd->ResponseData;
    const std::string_view held = Held(response).substr(0, size);
    response->Begin += held.size();
    return PutBytes(&hd->OutputObj, held) && ReceiveBytes(hd, size - held.size());
}

/// Receives until there is a whole size line behind the two bytes that end what came before; *line is without its end.
BOOL FindSizeLine(MYINETHANDLE* hd, std::string_view* line)
{
    for (size_t searched = kLineEnd.size();;) {
        const std::string_view held = Held(&hd->ResponseData).substr(0, kMostHeld);
        const size_t end = held.find(kLineEnd, searched);
        if (end != std::string_view::npos) {
            *line = After(held.substr(0, end), kLineEnd.size());
            return TRUE;
        }
        if (held.size() >= kMostHeld)
            return FailHttp(EBADMSG);
        searched = std::max(held.size(), searched + 1) - 1;
        if (!ReceiveMore(hd))
            return PassFailure();
    }
}

BOOL ReadChunks(MYINETHANDLE* hd)
{
    RESPONSEDATA* const response = &hd->ResponseData;
    General_LibraryLog(ZKQ_LOG_INFO, Message::HttpChunkedBegins, kHttpLogName);
    response->Begin -= kLineEnd.size(); // the end of the head is there for that of a chunk
    GetLargeBuffer(response);
    for (;;) {
        std::string_view line;
        int size = 0;
        if (!FindSizeLine(hd, &line))
            return FALSE;
        if (!ParseChunkSize(line, &size))
            return FailHttp(EBADMSG);
        if (size == 0)
            break;
        response->Begin += line.size() + 2 * kLineEnd.size();
        if (!PassBytes(hd, static_cast<size_t>(size)))
            return FALSE;
    }
    General_LibraryLog(ZKQ_LOG_INFO, Message::HttpChunkedEnds, kHttpLogName);
    return TRUE;
}

/// A body of unknown length ends when nothing more comes, for whichever reason.
BOOL ReadUntilEnd(MYINETHANDLE* hd)
{
    if (!PutBytes(&hd->OutputObj, Held(&hd->ResponseData)))
        return FALSE;
    for (;;) {
        std::span<char> room;
        if (!GetRoom(&hd->OutputObj, kReceiveBlock, &room))
            return FALSE;
        const long count =
            NetworkMisc_SocketRecvData(hd->sy.sd, room.data(), static_cast<int>(room.size()), hd->Timeout);
        if (count <= 0)
            return TRUE;
        if (!PutRoom(&hd->OutputObj, static_cast<size_t>(count)))
            return FALSE;
    }
}

} // namespace

BOOL ReadResponseHead(MYINETHANDLE* hd)
{
    RESPONSEDATA* const response = &hd->ResponseData;
    response->Length = kNoLength;
    for (int heads = 0; heads < kMostInterimHeads; ++heads) {
        size_t size = 0;
        const HeadResult found = FindHead(hd, &size);
        if (found == kHeadFailed)
            return FALSE;
        if (found == kHeadMissing) {
            response->RetCode = 0;
            return PutBytes(&hd->OutputObj, Held(response));
        }
        if (!TakeHead(hd, size))
            return FALSE;
        if (!IsInHundreds(response->RetCode, 1))
            return CheckFinalHead(response);
    }
    return FailHttp(EBADMSG);
}

BOOL ReadResponseBody(MYINETHANDLE* hd)
{
    if (hd->ResponseData.Chunked != 0)
        return ReadChunks(hd);
    if (hd->ResponseData.Length != kNoLength)
        return PassBytes(hd, static_cast<size_t>(hd->ResponseData.Length));
    return ReadUntilEnd(hd);
}

void CloseResponse(RESPONSEDATA* response)
{
    free(response->Large);
}
