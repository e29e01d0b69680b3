// Requests as tests make them, and what comes of the responses.
#pragma once

#include <ZKQ_general/http.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "error_text.h"
#include "http_server.h"

namespace support::http {

inline constexpr char kChunked[] = "Transfer-Encoding: chunked\r\n";

inline std::string Noise(size_t size)
{
    std::mt19937 random(3);
    std::string noise(size, '\0');
    for (char& byte : noise)
        byte = static_cast<char>(random());
    return noise;
}

struct Result {
    BOOL succeeded;
    bool hasData;
    std::string data;
    int length;
};

inline Result Get(const std::string& url, int timeout = 5, const char* post = nullptr, const char* type = nullptr)
{
    char untouched = 0;
    char* data = &untouched;
    int length = -1;
    MarkErrorText();
    Result result = {};
    result.succeeded = Network_HttpSendReceiveEx(url.c_str(), post, type, nullptr, &data, &length, timeout, 0);
    result.hasData = data != nullptr;
    if (data != nullptr && data != &untouched) {
        result.data.assign(data, static_cast<size_t>(std::max(length, 0)));
        EXPECT_EQ(data[length], '\0');
        NetWork_FreeBuffer(data);
    }
    result.length = length;
    return result;
}

/// The body that comes of a response; a failure shows as its error text.
inline std::string BodyOf(const std::string& response, int timeout = 5)
{
    const ScriptedServer server(response);
    const Result result = Get(server.Url(), timeout);
    return result.succeeded ? result.data : "failed: " + ErrorText();
}

inline std::string Failed(int error)
{
    return std::string("failed: ") + strerror(error);
}

/// A response in chunks.
inline std::string Chunks(const std::vector<std::string>& chunks)
{
    std::string body;
    for (const std::string& chunk : chunks) {
        char size[16];
        snprintf(size, sizeof size, "%zx\r\n", chunk.size());
        body += size + chunk + "\r\n";
    }
    return Response(body + "0\r\n\r\n", kChunked);
}

/// A response whose body a server names.
inline std::string Named(const std::string& disposition, const std::string& headers = "")
{
    return Response("body", headers + "Content-Disposition: " + disposition + "\r\n");
}

} // namespace support::http
