// Requests over the loopback interface against libcurl: 1 GiB into memory and into a file, and many small ones, each on a
// connection of its own.
#include <ZKQ_general/error.h>
#include <ZKQ_general/http.h>
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <memory>

#include "loopback.h"
#include "support.h"

namespace {

constexpr std::size_t kLarge = std::size_t{1} << 30;
constexpr std::size_t kChunk = 16384;
constexpr std::size_t kSmall = 100;
constexpr int kRequests = 10000;

std::string ReadRequest(int connection)
{
    std::string request;
    char part[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t count = read(connection, part, sizeof part);
        if (count <= 0) {
            break;
        }
        request.append(part, static_cast<std::size_t>(count));
    }
    return request;
}

void WriteText(int connection, const std::string& text)
{
    static_cast<void>(send(connection, text.data(), text.size(), MSG_NOSIGNAL));
}

void WriteChunks(int connection)
{
    const std::string chunk = "4000\r\n" + std::string(kChunk, 'c') + "\r\n";
    std::string block;
    while (block.size() < (1 << 20)) {
        block += chunk;
    }
    const std::size_t chunksInBlock = block.size() / chunk.size();
    std::size_t left = kLarge / kChunk;
    while (left > 0) {
        const std::size_t count = std::min(left, chunksInBlock);
        std::size_t sent = 0;
        while (sent < count * chunk.size()) {
            const ssize_t part = send(connection, block.data() + sent, count * chunk.size() - sent, MSG_NOSIGNAL);
            if (part <= 0) {
                return;
            }
            sent += static_cast<std::size_t>(part);
        }
        left -= count;
    }
    WriteText(connection, "0\r\n\r\n");
}

void Serve(int connection)
{
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::string request = ReadRequest(connection);
    if (request.starts_with("GET /chunked ")) {
        WriteText(connection, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        WriteChunks(connection);
        return;
    }
    const std::size_t size = request.starts_with("GET /large ") ? kLarge : kSmall;
    std::string answer =
        "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
    if (size == kSmall) {
        answer.append(kSmall, 's');
    }
    WriteText(connection, answer);
    if (size == kLarge) {
        WriteBytes(connection, kLarge);
    }
}

std::string Url(const char* path)
{
    static LoopbackServer server(Serve);
    return "http://127.0.0.1:" + std::to_string(server.Port()) + path;
}

std::string OutputFile()
{
    return ScratchDirectory() + "/body";
}

// --- Ours

void IntoMemory(benchmark::State& state, const char* path, std::size_t size)
{
    const std::string url = Url(path);
    for (auto _ : state) {
        char* body = nullptr;
        int length = 0;
        if (!Network_HttpSendReceiveEx(url.c_str(), nullptr, nullptr, nullptr, &body, &length, 20, 0) ||
            static_cast<std::size_t>(length) != size) {
            state.SkipWithError(ZKQGeneral_GetGeneralErrorInfo());
        }
        NetWork_FreeBuffer(body);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}

void IntoFile(benchmark::State& state)
{
    const std::string url = Url("/large");
    const std::string file = OutputFile();
    for (auto _ : state) {
        if (!Network_SendHttpRequest(url.c_str(), nullptr, file.c_str())) {
            state.SkipWithError(ZKQGeneral_GetGeneralErrorInfo());
            break;
        }
        state.PauseTiming();
        unlink(file.c_str());
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kLarge) * state.iterations());
}

// --- libcurl

struct Body {
    char* data = nullptr;
    std::size_t size = 0;
    std::size_t capacity = 0;

    ~Body() { std::free(data); }
};

std::size_t Append(char* piece, std::size_t, std::size_t size, void* to)
{
    auto* const body = static_cast<Body*>(to);
    if (body->size + size > body->capacity) {
        body->capacity = std::max(body->size + size, 2 * body->capacity);
        body->data = static_cast<char*>(std::realloc(body->data, body->capacity));
        if (body->data == nullptr) {
            return 0;
        }
    }
    std::memcpy(body->data + body->size, piece, size);
    body->size += size;
    return size;
}

struct EndCurl {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
using Curl = std::unique_ptr<CURL, EndCurl>;

Curl MakeCurl(const std::string& url, long buffer)
{
    Curl curl(curl_easy_init());
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(curl.get(), CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 120L);
    if (buffer != 0) {
        curl_easy_setopt(curl.get(), CURLOPT_BUFFERSIZE, buffer);
    }
    return curl;
}

void CurlIntoMemory(benchmark::State& state, const char* path, std::size_t size, long buffer)
{
    const Curl curl = MakeCurl(Url(path), buffer);
    for (auto _ : state) {
        Body body;
        curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, Append);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);
        const CURLcode code = curl_easy_perform(curl.get());
        if (code != CURLE_OK || body.size != size) {
            state.SkipWithError(curl_easy_strerror(code));
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}

void CurlIntoFile(benchmark::State& state, long buffer)
{
    const Curl curl = MakeCurl(Url("/large"), buffer);
    const std::string path = OutputFile();
    for (auto _ : state) {
        std::FILE* const file = std::fopen(path.c_str(), "wb");
        curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, file);
        const CURLcode code = curl_easy_perform(curl.get());
        if (code != CURLE_OK || std::fclose(file) != 0) {
            state.SkipWithError(curl_easy_strerror(code));
            break;
        }
        state.PauseTiming();
        unlink(path.c_str());
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kLarge) * state.iterations());
}

void Once(benchmark::internal::Benchmark* bench)
{
    bench->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
}

void Many(benchmark::internal::Benchmark* bench)
{
    bench->Iterations(kRequests)->UseRealTime();
}

constexpr long kLargestBuffer = 10 << 20; // the largest that libcurl takes

BENCHMARK_CAPTURE(IntoMemory, large, "/large", kLarge)->Name("http/memory/ours")->Apply(Once);
BENCHMARK_CAPTURE(CurlIntoMemory, large, "/large", kLarge, 0)->Name("http/memory/libcurl")->Apply(Once);
BENCHMARK_CAPTURE(CurlIntoMemory, tuned, "/large", kLarge, kLargestBuffer)
    ->Name("http/memory/libcurl-10MB")
    ->Apply(Once);
BENCHMARK_CAPTURE(IntoMemory, chunked, "/chunked", kLarge)->Name("http/chunked/ours")->Apply(Once);
BENCHMARK_CAPTURE(CurlIntoMemory, chunked, "/chunked", kLarge, 0)->Name("http/chunked/libcurl")->Apply(Once);
BENCHMARK(IntoFile)->Name("http/file/ours")->Apply(Once);
BENCHMARK_CAPTURE(CurlIntoFile, usual, 0)->Name("http/file/libcurl")->Apply(Once);
BENCHMARK_CAPTURE(CurlIntoFile, tuned, kLargestBuffer)->Name("http/file/libcurl-10MB")->Apply(Once);
BENCHMARK_CAPTURE(IntoMemory, small, "/small", kSmall)->Name("http/requests/ours")->Apply(Many);
BENCHMARK_CAPTURE(CurlIntoMemory, small, "/small", kSmall, 0)->Name("http/requests/libcurl")->Apply(Many);

} // namespace
