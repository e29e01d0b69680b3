// Where the body of a response goes. What is received goes straight to its place in memory, or into the block that is
// written to the file next.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "../internal/charset.h"
#include "../internal/error.h"
#include "../internal/guards.h"
#include "../internal/http.h"
#include "messages_gbk.h"

namespace {

constexpr size_t kPathRoom = PATH_MAX;
constexpr size_t kMostInMemory = INT_MAX;
constexpr size_t kResultExtra = 10; // behind the body, the NUL among them

bool Grow(FUNCTIONOUT* out, size_t capacity)
{
    auto* const grown = static_cast<char*>(realloc(out->ResultData, capacity));
    if (grown == nullptr)
        return false;
    out->ResultData = grown;
    out->Capacity = capacity;
    return true;
}

/// Room behind the body in memory. The block doubles, so that no byte is copied more than twice.
BOOL GetMemory(FUNCTIONOUT* out, size_t size, std::span<char>* room)
{
    const auto held = static_cast<size_t>(out->DataLength);
    size = std::min(size, kMostInMemory - held);
    const size_t needed = held + size;
    if (size == 0 || (needed > out->Capacity && !Grow(out, std::max(needed, 2 * out->Capacity)) && !Grow(out, needed)))
        return FailHttp(ENOMEM, Message::HttpBodyNoMemory);
    *room = {out->ResultData + held, size};
    return TRUE;
}

void PutMemory(FUNCTIONOUT* out, size_t size)
{
    out->DataLength += static_cast<int>(size);
    const size_t pieces = (static_cast<size_t>(out->DataLength) + kHttpPiece - 1) / kHttpPiece;
    out->BufSize = static_cast<int>(std::min(pieces * kHttpPiece, kMostInMemory));
}

/// The server's name may have come before it was known to be UTF-8.
BOOL SettleFileName(FUNCTIONOUT* out)
{
    if (out->FileName[0] == '\0')
        return FailHttp(EBADMSG, Message::HttpNoFileName);
    if (out->CharSet == 0)
        return TRUE;
    char name[kPathSize];
    int length = sizeof name - 1;
    const int error = ConvertText(kUtf8ToGbk, out->FileName, static_cast<int>(strlen(out->FileName)), name, &length);
    if (error != 0 || !IsFileName({name, static_cast<size_t>(length)}))
        return FailHttp(EBADMSG, Message::HttpBadFileName);
    TextBuilder(out->FileName).Add({name, static_cast<size_t>(length)});
    out->CharSet = 0;
    return TRUE;
}

/// Opens a file for writing. A name of the server's choice leads to no other file and to nothing that would block.
FILE* OpenFile(const char* path, int flags)
{
    constexpr mode_t kMode = 0666;
    UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | flags, kMode));
    FILE* const file = fd.IsOpen() ? fdopen(fd.Get(), "wb") : nullptr;
    if (file == nullptr)
        return nullptr;
    static_cast<void>(fd.Release());
    setvbuf(file, nullptr, _IONBF, 0); // it is written in large blocks
    return file;
}

BOOL OpenOutput(FUNCTIONOUT* out)
{
    char path[kPathRoom];
    TextBuilder builder(path);
    builder.Add(out->OutFile);
    if (out->bPath != 0) {
        if (!SettleFileName(out))
            return FALSE;
        if (!builder.Text().ends_with('/'))
            builder.Add('/');
        builder.Add(out->FileName);
    }
    if (builder.WasCut())
        return FailHttp(ENAMETOOLONG, Message::HttpCreateFailed);
    out->fp = OpenFile(path, out->bPath != 0 ? O_NOFOLLOW | O_NONBLOCK | O_NOCTTY : 0);
    return out->fp != nullptr ? TRUE : FailHttp(errno, Message::HttpCreateFailed);
}

/// Writes what is pending; 0 or an errno value.
int WritePending(FUNCTIONOUT* out)
{
    const size_t size = out->PendingLength;
    out->PendingLength = 0;
    return size == 0 || fwrite(out->Pending, 1, size, out->fp) == size ? 0 : errno;
}

/// As WritePending(), and tells of a failure.
BOOL FlushPending(FUNCTIONOUT* out)
{
    const int error = WritePending(out);
    return error == 0 ? TRUE : FailHttp(error, Message::HttpWriteFailed);
}

BOOL GetPending(FUNCTIONOUT* out, size_t size, std::span<char>* room)
{
    if (out->Pending == nullptr)
        out->Pending = static_cast<char*>(malloc(kPendingSize));
    if (out->Pending == nullptr)
        return FailHttp(ENOMEM, Message::HttpBodyNoMemory);
    if (kPendingSize - out->PendingLength < std::min(size, kHttpPiece) && !FlushPending(out))
        return FALSE;
    *room = {out->Pending + out->PendingLength, std::min(size, kPendingSize - out->PendingLength)};
    return TRUE;
}

BOOL PutPending(FUNCTIONOUT* out, size_t size)
{
    if (out->fp == nullptr && !OpenOutput(out))
        return FALSE;
    out->PendingLength += size;
    return out->PendingLength < kPendingSize || FlushPending(out);
}

BOOL FinishFile(FUNCTIONOUT* out)
{
    if (out->fp == nullptr)
        return TRUE;
    int error = WritePending(out);
    if (fclose(std::exchange(out->fp, nullptr)) != 0 && error == 0)
        error = errno;
    return error == 0 ? TRUE : FailHttp(error, Message::HttpWriteFailed);
}

/// Deletes what was written to a path, unless it is a device or a pipe, which the superuser could delete as well.
void DeleteFile(const char* path)
{
    struct stat info = {};
    if (lstat(path, &info) == 0 && (S_ISREG(info.st_mode) || S_ISLNK(info.st_mode)))
        unlink(path);
}

BOOL FinishMemory(FUNCTIONOUT* out)
{
    const auto length = static_cast<size_t>(out->DataLength);
    if (out->OutDataSize != nullptr)
        *out->OutDataSize = out->DataLength;
    if (length == 0 || out->OutData == nullptr)
        return TRUE;
    if (!Grow(out, length + kResultExtra))
        return FailHttp(ENOMEM, Message::HttpResultNoMemory);
    out->ResultData[length] = '\0';
    *out->OutData = std::exchange(out->ResultData, nullptr);
    return TRUE;
}

} // namespace

bool IsFileName(std::string_view name)
{
    const auto isBad = [](char c) {
        constexpr unsigned char kDelete = 0x7F;
        const auto byte = static_cast<unsigned char>(c);
        return byte < ' ' || byte == kDelete || byte == '/';
    };
    return !name.empty() && name.size() < kPathSize && name != "." && name != ".." && std::ranges::none_of(name, isBad);
}

BOOL GetRoom(FUNCTIONOUT* out, size_t size, std::span<char>* room)
{
    return out->OutFile != nullptr ? GetPending(out, size, room) : GetMemory(out, size, room);
}

BOOL PutRoom(FUNCTIONOUT* out, size_t size)
{
    if (size == 0)
        return TRUE;
    if (out->OutFile != nullptr)
        return PutPending(out, size);
    PutMemory(out, size);
    return TRUE;
}

BOOL PutBytes(FUNCTIONOUT* out, std::string_view bytes)
{
    while (!bytes.empty()) {
        std::span<char> room;
        if (!GetRoom(out, bytes.size(), &room))
            return FALSE;
        memcpy(room.data(), bytes.data(), room.size());
        bytes.remove_prefix(room.size());
        if (!PutRoom(out, room.size()))
            return FALSE;
    }
    return TRUE;
}

BOOL FinishOutput(FUNCTIONOUT* out)
{
    return out->OutFile != nullptr ? FinishFile(out) : FinishMemory(out);
}

void CloseOutput(FUNCTIONOUT* out, bool hasFailed)
{
    if (out->fp != nullptr) {
        WritePending(out);
        fclose(out->fp);
    }
    if (hasFailed && out->OutFile != nullptr && out->bPath == 0)
        DeleteFile(out->OutFile);
    free(out->Pending);
    free(out->ResultData);
}
