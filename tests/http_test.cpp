// HTTP requests: what is sent, and what is made of the responses.
#include <ZKQ_general/http.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "support/error_text.h"
#include "support/http_client.h"
#include "support/temp_dir.h"

namespace {

using namespace support::http; // NOLINT: the tests are written in it
using support::LengthHeader;
using support::Listener;
using support::ReadFile;
using support::Response;
using support::ScriptedServer;
using support::Stopwatch;
using support::TempDir;

// --- Requests

TEST(HttpRequest, AGetByteForByte)
{
    const ScriptedServer server(Response("ok"));
    ASSERT_TRUE(Get(server.Url("/x")).succeeded);
    EXPECT_EQ(server.Request(), "GET /x HTTP/1.1\r\n"
                                "Accept: */*\r\n"
                                "User-Agent: Mozilla/4.0 (compatible; MSIE 5.01; Windows NT 5.0)\r\n"
                                "Host: " +
                                    server.Authority() +
                                    "\r\n"
                                    "Connection: Close\r\n"
                                    "Content-Length:  0\r\n"
                                    "\r\n");
}

TEST(HttpRequest, APostByteForByte)
{
    const ScriptedServer server(Response("ok"));
    ASSERT_TRUE(Get(server.Url("/a/b?c=d"), 5, "k=v&w=x").succeeded);
    EXPECT_EQ(server.Request(), "POST /a/b?c=d HTTP/1.1\r\n"
                                "Accept: */*\r\n"
                                "User-Agent: Mozilla/4.0 (compatible; MSIE 5.01; Windows NT 5.0)\r\n"
                                "Host: " +
                                    server.Authority() +
                                    "\r\n"
                                    "Connection: Close\r\n"
                                    "Content-Length:  7\r\n"
                                    "Content-Type: application/x-www-form-urlencoded\r\n"
                                    "\r\n"
                                    "k=v&w=x");
}

TEST(HttpRequest, TheExtraHeaderLine)
{
    const ScriptedServer post(Response("ok"));
    ASSERT_TRUE(Get(post.Url(), 5, "<a/>", "Content-Type: text/xml").succeeded);
    EXPECT_TRUE(post.Request().ends_with("Content-Length:  4\r\nContent-Type: text/xml\r\n\r\n<a/>")) << post.Request();
    const ScriptedServer get(Response("ok"));
    ASSERT_TRUE(Get(get.Url(), 5, nullptr, "X-Key: v").succeeded);
    EXPECT_TRUE(get.Request().ends_with("Content-Length:  0\r\nX-Key: v\r\n\r\n")) << get.Request();
    const ScriptedServer empty(Response("ok")); // an empty line would end the head
    ASSERT_TRUE(Get(empty.Url(), 5, "x", "").succeeded);
    EXPECT_TRUE(empty.Request().ends_with("-urlencoded\r\n\r\nx")) << empty.Request();
}

TEST(HttpRequest, AnEmptyBodyIsAPostToo)
{
    const ScriptedServer server(Response("ok"));
    ASSERT_TRUE(Get(server.Url(), 5, "").succeeded);
    EXPECT_TRUE(server.Request().starts_with("POST "));
    EXPECT_TRUE(
        server.Request().ends_with("Content-Length:  0\r\nContent-Type: application/x-www-form-urlencoded\r\n\r\n"));
}

TEST(HttpRequest, ProtocolAndPathMayBeMissing)
{
    const ScriptedServer server(Response("ok"));
    ASSERT_TRUE(Get("  " + server.Authority()).succeeded);
    EXPECT_TRUE(server.Request().starts_with("GET / HTTP/1.1\r\n"));
}

TEST(HttpRequest, AnHttpsUrlIsSentInPlainText)
{
    const ScriptedServer server(Response("plain"));
    EXPECT_EQ(Get("https://" + server.Authority() + "/").data, "plain");
}

TEST(HttpRequest, OverIPv6TheHostHasNoBrackets)
{
    if (!Listener::HasFamily(AF_INET6))
        GTEST_SKIP() << "no IPv6";
    const ScriptedServer server({ScriptedServer::Reply(Response("six"))}, AF_INET6);
    EXPECT_EQ(Get(server.Url()).data, "six");
    EXPECT_NE(server.Request().find("Host: ::1:" + std::to_string(server.Port()) + "\r\n"), std::string::npos);
}

TEST(HttpRequest, AHostNameIsLookedUp)
{
    const ScriptedServer server(Response("name"));
    EXPECT_EQ(Get("http://localhost:" + std::to_string(server.Port()) + "/").data, "name");
}

TEST(HttpRequest, ALargePostArrivesWhole)
{
    std::string body(3 << 20, 'b');
    for (size_t i = 0; i < body.size(); i += 100)
        body[i] = static_cast<char>('A' + i % 23);
    const ScriptedServer server(Response("ok"));
    ASSERT_TRUE(Get(server.Url(), 5, body.c_str()).succeeded);
    EXPECT_TRUE(server.Request().ends_with("\r\n\r\n" + body));
}

TEST(HttpRequest, LineBreaksAreRefusedBeforeAnythingIsSent)
{
    const ScriptedServer server(Response("ok"));
    for (const char* bad : {"/x\r\nX-Evil: 1", "/x\n", "/\r"}) {
        EXPECT_FALSE(Get(server.Url(bad)).succeeded);
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    for (const char* bad : {"A: b\r\nC: d", "A: b\n", "\r"}) {
        EXPECT_FALSE(Get(server.Url(), 5, nullptr, bad).succeeded);
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_FALSE(Get(server.Url(), 5, "post", bad).succeeded);
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    EXPECT_FALSE(Get("http://127.0.0.1\r\nX: y:80/").succeeded);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_TRUE(server.Requests().empty());
}

TEST(HttpRequest, BadUrls)
{
    struct Row {
        std::string url;
        int error;
    };
    const Row rows[] = {{"", EINVAL},
                        {"   ", EINVAL},
                        {"gopher://h/x", ENOSYS},
                        {"http:///x", EINVAL},
                        {"/x", EINVAL},
                        {"http://h:-1/", EINVAL},
                        {"http://h:65536/", EINVAL},
                        {"http://h:99999999999999999999/", EINVAL},
                        {"sixteencharacter://h:80/", ENOMEM},
                        {"http://" + std::string(128, 'h') + "/", ENOMEM},
                        {"http://127.0.0.1/" + std::string(2047, 'p'), ENOMEM}};
    for (const Row& row : rows) {
        const Result result = Get(row.url);
        EXPECT_FALSE(result.succeeded) << row.url;
        EXPECT_SYSTEM_ERROR(row.error) << row.url;
        EXPECT_FALSE(result.hasData);
    }
    EXPECT_FALSE(Network_HttpSendReceive(nullptr, nullptr, nullptr, nullptr, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(HttpRequest, TheLongestPath)
{
    const ScriptedServer server(Response("ok"));
    const std::string path = "/" + std::string(2046, 'p');
    ASSERT_TRUE(Get(server.Url(path)).succeeded);
    EXPECT_TRUE(server.Request().starts_with("GET " + path + " HTTP/1.1\r\n"));
}

TEST(HttpRequest, NobodyListens)
{
    EXPECT_FALSE(Get("http://127.0.0.1:" + std::to_string(support::ClosedPort()) + "/").succeeded);
    EXPECT_SYSTEM_ERROR(ECONNREFUSED);
}

// --- Heads

TEST(HttpHead, OnlyTwoHundredDeliversABody)
{
    for (const char* status : {"201 Created", "204 No Content", "206 Partial Content", "404 Not Found", "416 Range",
                               "500 Error", "000 Nothing", "99 Odd", "600 Odd", "-200 Odd"})
        EXPECT_EQ(BodyOf(Response("body", "Content-Length: 4\r\n", status)), Failed(EBADMSG)) << status;
}

TEST(HttpHead, TheStatusLine)
{
    for (const char* good : {"HTTP/1.1 200 OK\r\n\r\n", "HTTP/1.0 200\r\n\r\n", "  HTTP/3.14 200 OK\r\n\r\n",
                             "HTTP/1. 1 200\r\n\r\n", "HTTP/1.1  2004\r\n\r\n", "\nHTTP/1.1 200 OK\r\n\r\n"})
        EXPECT_EQ(BodyOf(good + std::string("body")), "body") << good;
    for (const char* bad : {"HTTP/1.1 OK\r\n\r\n", "http/1.1 200 OK\r\n\r\n", "HTTP 200\r\n\r\n", "\r\n\r\n",
                            "HTTP/1 200 OK\r\n\r\n", "HTTP/1.1200\r\n\r\n", "ICY 200 OK\r\n\r\n"})
        EXPECT_EQ(BodyOf(bad + std::string("body")), Failed(EBADMSG)) << bad;
    using namespace std::string_literals;
    EXPECT_EQ(BodyOf("HTTP/1.1\0 200 OK\r\n\r\nbody"s), Failed(EBADMSG));
    EXPECT_EQ(BodyOf("HTTP/1.1 200 OK\r\nX: \0\r\nContent-Length: 2\r\n\r\nbody"s), "bo");
}

TEST(HttpHead, InterimHeadsAreDropped)
{
    EXPECT_EQ(BodyOf("HTTP/1.1 100 Continue\r\n\r\n" + Response("body", LengthHeader(4))), "body");
    EXPECT_EQ(
        BodyOf("HTTP/1.1 199 X\r\nContent-Length: 1\r\nLocation: /\r\n\r\nHTTP/1.1 101 Y\r\n\r\n" + Response("body")),
        "body");
    const ScriptedServer server({ScriptedServer::Drip({"HTTP/1.1 100 Continue\r\n", "\r\n", Response("body")})});
    EXPECT_EQ(Get(server.Url()).data, "body");
}

TEST(HttpHead, InterimHeadsForEverEnd)
{
    std::string many;
    for (int i = 0; i < 1100; ++i)
        many += "HTTP/1.1 100 Continue\r\n\r\n";
    EXPECT_EQ(BodyOf(many + Response("body")), Failed(EBADMSG));
}

TEST(HttpHead, MayComeByteByByte)
{
    const std::string response = Response("body", "Content-Length: 4\r\n");
    std::vector<std::string> bytes;
    for (const char c : response)
        bytes.emplace_back(1, c);
    const ScriptedServer server({ScriptedServer::Drip(bytes, 500)});
    EXPECT_EQ(Get(server.Url()).data, "body");
}

TEST(HttpHead, OfEightKilobytes)
{
    const auto headOf = [](size_t size) { // with its empty line
        const std::string start = "HTTP/1.1 200 OK\r\nX: ";
        return start + std::string(size - start.size() - 4, 'x') + "\r\n\r\n";
    };
    EXPECT_EQ(BodyOf(headOf(8191) + "body"), "body");
    EXPECT_EQ(BodyOf(headOf(8190) + "body"), "body");
    EXPECT_EQ(BodyOf(headOf(8192) + "body"), Failed(EBADMSG));
    EXPECT_EQ(BodyOf(headOf(100000) + "body"), Failed(EBADMSG));
    EXPECT_EQ(BodyOf(std::string(8191, 'x')), Failed(EBADMSG));
}

TEST(HttpHead, AServerThatSaysNothing)
{
    const ScriptedServer stalling({ScriptedServer::Stall("")});
    const Stopwatch watch;
    const Result result = Get(stalling.Url(), 1);
    EXPECT_FALSE(result.succeeded);
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_GE(watch.Seconds(), 0.99);
    EXPECT_EQ(result.length, -1);
    const ScriptedServer closing("");
    EXPECT_FALSE(Get(closing.Url()).succeeded);
    EXPECT_FALSE(support::ErrorTextIsMarked());
}

TEST(HttpHead, WithoutOneWhatCameIsTheBody)
{
    EXPECT_EQ(BodyOf("just a text"), "just a text");
    EXPECT_EQ(BodyOf("HTTP/1.1 404 Not Found\r\nX: y\r\n"), "HTTP/1.1 404 Not Found\r\nX: y\r\n");
    EXPECT_EQ(BodyOf(std::string(8190, 'x')), std::string(8190, 'x'));
    const ScriptedServer stalling({ScriptedServer::Stall("HTTP/1.1 200 OK\r\n")});
    EXPECT_EQ(Get(stalling.Url(), 1).data, "HTTP/1.1 200 OK\r\n");
    const ScriptedServer interim("HTTP/1.1 100 Continue\r\n\r\n");
    EXPECT_FALSE(Get(interim.Url()).succeeded);
}

// --- Bodies

TEST(HttpBody, OfAGivenLength)
{
    EXPECT_EQ(BodyOf(Response("hello", "Content-Length: 5\r\n")), "hello");
    EXPECT_EQ(BodyOf(Response("hello, world", "Content-Length: 5\r\n")), "hello") << "the rest is cut";
    EXPECT_EQ(BodyOf(Response("hello", "Content-Length:   5 bytes\r\n")), "hello");
    EXPECT_EQ(BodyOf(Response("hello", "X-Content-Length: 2\r\n")), "he") << "by substring";
    EXPECT_EQ(BodyOf(Response("hello", "Content-Length: 1\r\nContent-Length: 2\r\n")), "he") << "the last counts";
    EXPECT_EQ(BodyOf(Response("hello", "content-length: 2\r\nContent-Length:2\r\n")), "hello") << "with exact case";
    const std::string large = Noise(300000);
    EXPECT_EQ(BodyOf(Response(large, LengthHeader(large.size()))), large);
}

TEST(HttpBody, ThatBreaksOffFails)
{
    EXPECT_TRUE(BodyOf(Response("hello", "Content-Length: 6\r\n")).starts_with("failed: "));
    const ScriptedServer server({ScriptedServer::Stall(Response("hello", "Content-Length: 6\r\n"))});
    EXPECT_FALSE(Get(server.Url(), 1).succeeded);
    EXPECT_SYSTEM_ERROR(ETIME);
}

TEST(HttpBody, LengthsThatLie)
{
    for (const char* bad : {"2147483648", "99999999999999999999", "-1", "-99999999999", "x", "", "+5", "0x5x"}) {
        const std::string body = BodyOf(Response("hello", "Content-Length: " + std::string(bad) + "\r\n"));
        EXPECT_EQ(body, std::string(bad) == "0x5x" ? "" : Failed(EBADMSG)) << bad;
    }
    EXPECT_NE(BodyOf(Response("hello", "Content-Length: 2147483647\r\n")).find("failed"), std::string::npos);
}

TEST(HttpBody, OfNoLengthEndsWithTheConnection)
{
    EXPECT_EQ(BodyOf(Response("hello")), "hello");
    const std::string large = Noise(1000000);
    EXPECT_EQ(BodyOf(Response(large)), large);
    const ScriptedServer stalling({ScriptedServer::Stall(Response("hello"))});
    EXPECT_EQ(Get(stalling.Url(), 1).data, "hello") << "or with the time";
    const ScriptedServer dripping({ScriptedServer::Drip({Response("a"), "b", "c", "d"})});
    EXPECT_EQ(Get(dripping.Url()).data, "abcd");
    const ScriptedServer resetting({[](support::Fd& connection) {
        support::WriteAll(connection.Get(), Response("hello"));
        usleep(50000);
        connection.Reset();
    }});
    EXPECT_EQ(Get(resetting.Url()).data, "hello");
}

TEST(HttpBody, AnEmptyOneIsNull)
{
    for (const char* headers : {"Content-Length: 0\r\n", "", kChunked}) {
        const ScriptedServer server(Response(headers == kChunked ? "0\r\n\r\n" : "", headers));
        const Result result = Get(server.Url());
        EXPECT_TRUE(result.succeeded);
        EXPECT_FALSE(result.hasData);
        EXPECT_EQ(result.length, 0);
    }
    // A length of 0 is not the lack of one.
    EXPECT_EQ(BodyOf(Response("more", "Content-Length: 0\r\n")), "");
}

TEST(HttpBody, IsNotTakenFromTheLengthOfARedirect)
{
    const ScriptedServer server({ScriptedServer::Reply(Response("", "Content-Length: 99999999999\r\n", "302 Found"))});
    EXPECT_FALSE(Get(server.Url()).succeeded);
    EXPECT_SYSTEM_ERROR(EBADMSG);
}

TEST(HttpChunks, OneOfFive)
{
    EXPECT_EQ(BodyOf(Response("5\r\nhello\r\n0\r\n\r\n", kChunked)), "hello");
}

TEST(HttpChunks, OfManySizes)
{
    const std::string noise = Noise(100000);
    for (const size_t size : {1, 2, 3, 100, 8100, 8180, 8190, 8191, 8192, 8193, 16384, 99999}) {
        std::vector<std::string> chunks;
        for (size_t at = 0; at < noise.size(); at += size)
            chunks.push_back(noise.substr(at, size));
        EXPECT_EQ(BodyOf(Chunks(chunks)), noise) << size;
    }
}

TEST(HttpChunks, DrippingByteByByte)
{
    std::vector<std::string> bytes;
    for (const char c : Chunks({"hello", ", ", "world"}))
        bytes.emplace_back(1, c);
    const ScriptedServer server({ScriptedServer::Drip(bytes, 500)});
    EXPECT_EQ(Get(server.Url()).data, "hello, world");
}

TEST(HttpChunks, SizeLines)
{
    EXPECT_EQ(BodyOf(Response("5;name=value\r\nhello\r\n0\r\n\r\n", kChunked)), "hello");
    EXPECT_EQ(BodyOf(Response("0000A\r\n0123456789\r\n0\r\n\r\n", kChunked)), "0123456789");
    EXPECT_EQ(BodyOf(Response("a\r\n0123456789\r\n0\r\n\r\n", kChunked)), "0123456789");
    EXPECT_EQ(BodyOf(Response("5\r\nhelloXY2\r\n!!\r\n0\r\n", kChunked)), "hello!!") << "two bytes end a chunk";
    EXPECT_EQ(BodyOf(Response("2\r\nab\r\nzz\r\ncd", kChunked)), "ab") << "no digit is no size";
    EXPECT_EQ(BodyOf(Response("2\r\nab\r\n-2\r\ncd", kChunked)), "ab");
    EXPECT_EQ(BodyOf(Response("2\r\nab\r\n0\r\n", kChunked)), "ab") << "trailers are not read";
    for (const char* bad : {"80000000", "ffffffff", "100000000", "fffffffffffffffff"})
        EXPECT_EQ(BodyOf(Response(std::string(bad) + "\r\nx", kChunked)), Failed(EBADMSG)) << bad;
    EXPECT_EQ(BodyOf(Response(std::string(10000, '1'), kChunked)), Failed(EBADMSG));
    EXPECT_NE(BodyOf(Response("7fffffff\r\nx", kChunked)).find("failed"), std::string::npos);
}

TEST(HttpChunks, ThatBreakOff)
{
    for (const char* part : {"", "5", "5\r", "5\r\n", "5\r\nhel", "5\r\nhello", "5\r\nhello\r\n"})
        EXPECT_NE(BodyOf(Response(part, kChunked)).find("failed"), std::string::npos) << part;
    const ScriptedServer server({ScriptedServer::Stall(Response("5\r\nhello\r\n", kChunked))});
    EXPECT_FALSE(Get(server.Url(), 1).succeeded);
    EXPECT_SYSTEM_ERROR(ETIME);
}

TEST(HttpChunks, CountMoreThanALength)
{
    EXPECT_EQ(BodyOf(Response("5\r\nhello\r\n0\r\n\r\n", std::string(kChunked) + "Content-Length: 2\r\n")), "hello");
    EXPECT_EQ(BodyOf(Response("hello", "Transfer-Encoding: gzip\r\nContent-Length: 2\r\n")), "he");
    EXPECT_EQ(BodyOf(Response("5\r\nhello\r\n0\r\n", "Transfer-Encoding: gzip, chunked\r\n")), "hello");
}

// --- Redirects

std::string Redirect(const std::string& url, const std::string& status = "302 Found")
{
    return Response("elsewhere", "Location: " + url + "\r\nContent-Length: 9\r\n", status);
}

TEST(HttpRedirect, IsFollowed)
{
    for (const char* status : {"300 M", "301 M", "302 F", "303 S", "304 N", "307 T", "308 P", "399 X"}) {
        const ScriptedServer target(Response("there"));
        const ScriptedServer server(Redirect(target.Url("/new"), status));
        const Result result = Get(server.Url());
        EXPECT_TRUE(result.succeeded) << status;
        EXPECT_EQ(result.data, "there");
        EXPECT_TRUE(target.Request().starts_with("GET /new HTTP/1.1\r\n"));
    }
}

TEST(HttpRedirect, KeepsTheBodyExceptAfterSeeOther)
{
    for (const char* status : {"302 Found", "307 Temporary", "303 See Other"}) {
        const ScriptedServer target(Response("there"));
        const ScriptedServer server(Redirect(target.Url(), status));
        EXPECT_TRUE(Get(server.Url(), 5, "body", "Content-Type: a/b").succeeded);
        const bool keeps = std::string(status) != "303 See Other";
        EXPECT_EQ(target.Request().starts_with("POST "), keeps);
        EXPECT_EQ(target.Request().ends_with("\r\n\r\nbody"), keeps);
        EXPECT_NE(target.Request().find("\r\nContent-Type: a/b\r\n"), std::string::npos);
    }
}

TEST(HttpRedirect, WithoutAUrlFails)
{
    for (const char* headers : {"", "location: http://127.0.0.1/\r\n", "Location:\r\n"})
        EXPECT_EQ(BodyOf(Response("body", headers, "302 Found")), Failed(EBADMSG));
}

TEST(HttpRedirect, AUrlOfAnotherCodeDoesNotCount)
{
    EXPECT_EQ(BodyOf(Response("body", "Location: http://127.0.0.1:1/\r\n")), "body");
}

TEST(HttpRedirect, LongUrls)
{
    ScriptedServer target({ScriptedServer::Reply(Response("there"))});
    const std::string start = target.Url("/");
    // The blank behind the colon counts.
    const std::string longest = start + std::string(254 - start.size(), 'p');
    const ScriptedServer server(
        {ScriptedServer::Reply(Redirect(longest)), ScriptedServer::Reply(Redirect(longest + "p"))});
    EXPECT_EQ(Get(server.Url()).data, "there");
    EXPECT_FALSE(Get(server.Url()).succeeded);
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_EQ(BodyOf(Response("body", "Location: " + std::string(255, 'u') + "\r\n")), Failed(EBADMSG))
        << "of any code";
}

TEST(HttpRedirect, IsTakenAsItStands)
{
    for (const char* url : {"/relative", " ", "gopher://h/", "http://h\rX: y/"}) {
        const ScriptedServer server(Redirect(url));
        EXPECT_FALSE(Get(server.Url()).succeeded) << url;
    }
}

TEST(HttpRedirect, ToAServerThatFailsFails)
{
    const ScriptedServer target(Response("gone", "", "404 Not Found"));
    const ScriptedServer server(Redirect(target.Url()));
    EXPECT_FALSE(Get(server.Url()).succeeded);
    EXPECT_SYSTEM_ERROR(EBADMSG);
}

TEST(HttpRedirect, ARingEnds)
{
    std::string own;
    ScriptedServer server({[&own](support::Fd& connection) { support::WriteAll(connection.Get(), Redirect(own)); }});
    server.RepeatLast();
    own = server.Url();
    const Result result = Get(own, 0);
    EXPECT_FALSE(result.succeeded);
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_EQ(server.Requests().size(), 1001U);
}

TEST(HttpRedirect, AChainEndsInTenTimesTheTimeOut)
{
    std::string own;
    ScriptedServer server({[&own](support::Fd& connection) {
        usleep(300000);
        support::WriteAll(connection.Get(), Redirect(own));
    }});
    server.RepeatLast();
    own = server.Url();
    const support::Stopwatch watch;
    EXPECT_FALSE(Get(own, 1).succeeded);
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_GE(watch.Seconds(), 9.9);
}

// --- Entry points

TEST(HttpEntryPoints, PassTheirArgumentsOn)
{
    const TempDir dir;
    const std::string out = dir.File("out");
    char name[10] = "unchanged";
    const ScriptedServer server(std::vector<ScriptedServer::Script>(6, ScriptedServer::Reply(Named("a; filename=f"))));
    const std::string url = server.Url();
    EXPECT_TRUE(Network_SendHttpRequestEx(url.c_str(), "p", out.c_str(), nullptr, 0));
    EXPECT_EQ(ReadFile(out), "body");
    EXPECT_TRUE(Network_SendHttpRequestEx2(url.c_str(), "p", out.c_str(), nullptr, 0, name, sizeof name));
    EXPECT_STREQ(name, "unchanged") << "a name is told only with a directory";
    EXPECT_TRUE(
        Network_SendHttpRequestEx3(url.c_str(), "p", "X: y", dir.Path().c_str(), nullptr, 1, name, sizeof name));
    EXPECT_STREQ(name, "f");
    EXPECT_NE(server.Request().find("\r\nX: y\r\n"), std::string::npos);
    char* data = nullptr;
    int length = 0;
    EXPECT_TRUE(Network_SendHttpRequestEx4(url.c_str(), "p", "X: y", nullptr, &data, &length, nullptr, 0, nullptr, 0));
    EXPECT_STREQ(data, "body");
    EXPECT_EQ(length, 4);
    NetWork_FreeBuffer(data);
    EXPECT_TRUE(Network_HttpSendReceive(url.c_str(), nullptr, nullptr, &data, 2));
    EXPECT_STREQ(data, "body");
    NetWork_FreeBuffer(data);
    NetWork_FreeBuffer(nullptr);
    EXPECT_TRUE(Network_SendHttpRequest(url.c_str(), nullptr, nullptr)) << "the body is dropped";
}

TEST(HttpEntryPoints, SuccessLeavesNoDescriptorAndNothingLeaks)
{
    ScriptedServer server({ScriptedServer::Reply(Response("body", LengthHeader(4)))});
    server.RepeatLast();
    const std::string url = server.Url();
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    EXPECT_TRUE(Get(url).succeeded);
    const auto before = descriptors();
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(Get(url).succeeded);
    EXPECT_LE(descriptors(), before + 1); // the server may not have closed the last one
}

TEST(HttpEntryPoints, InParallelThreads)
{
    const std::string body = Noise(200000);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            ScriptedServer server(
                {ScriptedServer::Reply(i % 2 == 0 ? Response(body, LengthHeader(body.size())) : Chunks({body}))});
            server.RepeatLast();
            for (int round = 0; round < 5; ++round)
                EXPECT_TRUE(Get(server.Url()).data == body);
        });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
