// The reader of HTTP responses. Input: the response. However its bytes come, at once or one by one, the result is the same;
// a body is never longer than the response, and a name for the file never leaves its directory.
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "../../src/internal/http.h"
#include "fuzz.h"

namespace {

constexpr int kTimeout = 5;

struct Reading {
    bool succeeded;
    int code;
    std::string body;
    std::string name;
    std::string redirect;

    bool operator==(const Reading& other) const = default;
};

void SendAll(int fd, const char* bytes, size_t size, size_t piece)
{
    for (size_t sent = 0; sent < size;) {
        const ssize_t count = send(fd, bytes + sent, std::min(piece, size - sent), MSG_NOSIGNAL);
        if (count <= 0)
            break; // the reader has seen enough
        sent += static_cast<size_t>(count);
    }
    shutdown(fd, SHUT_WR);
}

Reading Read(MYINETHANDLE* hd)
{
    char* data = nullptr;
    int length = 0;
    hd->Timeout = kTimeout;
    hd->OutputObj.OutData = &data;
    hd->OutputObj.OutDataSize = &length;
    Reading reading = {};
    reading.succeeded = ReadResponseHead(hd);
    reading.redirect = hd->ResponseData.NewURL;
    reading.name = hd->OutputObj.FileName;
    reading.code = hd->ResponseData.RetCode;
    const bool hasBody = reading.succeeded && reading.redirect.empty();
    if (hasBody && reading.code != 0)
        reading.succeeded = ReadResponseBody(hd);
    if (hasBody && reading.succeeded) {
        REQUIRE(FinishOutput(&hd->OutputObj));
        REQUIRE((data == nullptr) == (length == 0));
        if (data != nullptr) {
            REQUIRE(data[length] == '\0');
            reading.body.assign(data, static_cast<size_t>(length));
        }
    }
    CloseOutput(&hd->OutputObj, false);
    CloseResponse(&hd->ResponseData);
    free(data);
    return reading;
}

Reading ReadBytes(const uint8_t* data, size_t size, bool atOnce)
{
    int ends[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    const Exact<MYINETHANDLE> hd(sizeof(MYINETHANDLE));
    memset(static_cast<void*>(hd.Get()), 0, sizeof(MYINETHANDLE));
    hd.Get()->sy.sd = static_cast<SOCKET>(ends[0]);
    const char* const bytes = reinterpret_cast<const char*>(data);
    std::thread sender([&] { SendAll(ends[1], bytes, size, atOnce ? size : 1); });
    if (atOnce)
        sender.join();
    Reading reading = Read(hd.Get());
    close(ends[0]);
    if (!atOnce)
        sender.join();
    close(ends[1]);
    return reading;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t kMost = 30000; // fits into a socket
    size = std::min(size, kMost);
    const Reading reading = ReadBytes(data, size, true);
    REQUIRE(reading == ReadBytes(data, size, false));
    REQUIRE(reading.body.size() <= size);
    REQUIRE(reading.name.empty() || IsFileName(reading.name));
    REQUIRE(reading.redirect.size() < kRedirectUrlSize);
    return 0;
}
