// What of the HTTP client cannot be seen from outside: how its output grows, and what it tells in the library's log.
#include <ZKQ_general/iconv.h>

#include <memory>
#include <optional>
#include <thread>

#include "../src/internal/http.h"
#include "../src/internal/log.h"
#include "messages_gbk.h"
#include "support/error_text.h"
#include "support/http_server.h"
#include "support/log_context.h"

namespace {

using support::LengthHeader;
using support::Response;
using support::ScriptedServer;

class Output {
public:
    Output() { out_.OutData = &data_; }
    ~Output()
    {
        CloseOutput(&out_, true);
        free(data_);
    }
    FUNCTIONOUT* Get() { return &out_; }
    FUNCTIONOUT* operator->() { return &out_; }

private:
    FUNCTIONOUT out_ = {};
    char* data_ = nullptr;
};

TEST(HttpOutput, GrowsInPieces)
{
    Output out;
    EXPECT_EQ(out->BufSize, 0);
    const int sizes[] = {1, 8191, 8192, 20000, 24576, 24577};
    const int capacities[] = {8192, 8192, 8192, 24576, 24576, 32768};
    for (size_t i = 0; i < std::size(sizes); ++i) {
        const auto more = static_cast<size_t>(sizes[i] - out->DataLength);
        ASSERT_TRUE(PutBytes(out.Get(), std::string(more, 'x')));
        EXPECT_EQ(out->DataLength, sizes[i]);
        EXPECT_EQ(out->BufSize, capacities[i]);
    }
}

TEST(HttpOutput, IsNotCopiedForEveryPiece)
{
    Output out;
    int moves = 0;
    const char* last = nullptr;
    size_t capacity = 0;
    for (int i = 0; i < 10000; ++i) {
        std::span<char> room;
        ASSERT_TRUE(GetRoom(out.Get(), 1000, &room));
        ASSERT_TRUE(PutRoom(out.Get(), 1000));
        moves += out->Capacity != capacity ? 1 : 0;
        capacity = out->Capacity;
        last = out->ResultData;
    }
    EXPECT_NE(last, nullptr);
    EXPECT_LT(moves, 20);
}

TEST(HttpOutput, EndsWhereTheLengthCannotBeTold)
{
    Output out;
    out->DataLength = INT_MAX; // as if they were there
    std::span<char> room;
    EXPECT_FALSE(GetRoom(out.Get(), 1, &room));
    EXPECT_SYSTEM_ERROR(ENOMEM);
    out->DataLength = 0;
}

TEST(HttpOutput, OfAPartThatBreaksOffWholePiecesAreKept)
{
    const support::TempDir dir;
    const std::string path = dir.File("out");
    const std::string body(100000, 'b');
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    std::thread sender([&] {
        support::Fd peer(ends[1]);
        support::WriteAll(peer.Get(), body);
    });
    const support::Fd mine(ends[0]);
    const auto hd = std::make_unique<MYINETHANDLE>();
    hd->sy.sd = static_cast<SOCKET>(ends[0]);
    hd->Timeout = 5;
    hd->OutputObj.OutFile = path.c_str();
    hd->ResponseData.Length = 100001;
    EXPECT_FALSE(ReadResponseBody(hd.get()));
    sender.join();
    const size_t kept = hd->OutputObj.PendingLength + static_cast<size_t>(std::filesystem::file_size(path));
    EXPECT_EQ(kept, 12U * 8192);
    CloseOutput(&hd->OutputObj, true);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(HttpFileName, IsOneOfItsDirectory)
{
    for (const char* good : {"a", "...", "a b", ".hidden", "\xD6\xD0", "a\\b", "~"})
        EXPECT_TRUE(IsFileName(good)) << good;
    for (const char* bad : {"", ".", "..", "/", "a/", "/a", "../a", "a\n", "\x1F", "\x7F"})
        EXPECT_FALSE(IsFileName(bad)) << bad;
    EXPECT_TRUE(IsFileName(std::string(299, 'n')));
    EXPECT_FALSE(IsFileName(std::string(300, 'n')));
    EXPECT_FALSE(IsFileName(std::string_view("a\0", 2)));
}

/// Each test sees the library's own log.
class HttpLog : public testing::Test {
protected:
    HttpLog() : info_(dir_), saved_(g_General_LogCtx)
    {
        info_.bAlwaysLog = ZKQ_LOG_ALL;
        context_.emplace(info_);
        g_General_LogCtx = static_cast<LOGCTX*>(context_->Get());
    }
    ~HttpLog() override { g_General_LogCtx = saved_; }

    /// The requests so far have left these records, each with where it stands and nothing else.
    void ExpectRecords(const std::vector<std::pair<const char*, const char*>>& records)
    {
        std::string log = support::ReadFile(dir_.OwnLog());
        for (const auto& [tag, message] : records) {
            const std::string start = std::string(tag) + message + " - http,";
            const size_t at = log.find(start);
            EXPECT_NE(at, std::string::npos) << tag << message << " is not in\n" << log;
            if (at != std::string::npos)
                log.erase(log.rfind('\n', at) + 1, log.find('\n', at) - log.rfind('\n', at));
        }
        EXPECT_EQ(log, "");
        support::WriteFile(dir_.OwnLog(), "");
    }
    void ExpectError(const char* message) { ExpectRecords({{"[Error] ", message}}); }
    /// The connection broke off, in one of the ways that a connection does.
    void ExpectErrorOfTheConnection(const std::vector<std::pair<const char*, const char*>>& before)
    {
        const std::string log = support::ReadFile(dir_.OwnLog());
        std::vector<std::pair<const char*, const char*>> records = before;
        const bool isReset = log.find(strerror(ECONNRESET)) != std::string::npos;
        records.emplace_back("[Error] ", isReset ? strerror(ECONNRESET) : Message::SocketClosed);
        ExpectRecords(records);
    }

    static BOOL Get(const std::string& response, const char* file = nullptr, int bPath = 0, char* name = nullptr)
    {
        const ScriptedServer server(response);
        char* data = nullptr;
        const BOOL succeeded = Network_HttpSendReceiveEx2(server.Url().c_str(), nullptr, nullptr, file, &data, nullptr,
                                                          1, bPath, name, name != nullptr ? 2 : 0);
        NetWork_FreeBuffer(data);
        return succeeded;
    }

    support::LogDir dir_;

private:
    support::AppInfo info_;
    std::optional<support::LogContext> context_;
    LOGCTX* saved_;
};

TEST_F(HttpLog, TellsWhatIsWrongWithAHead)
{
    EXPECT_FALSE(Get(std::string(9000, 'x')));
    ExpectError(Message::HttpHeadTooLong);
    EXPECT_FALSE(Get(""));
    ExpectError(Message::HttpNothingReceived);
    EXPECT_FALSE(Get("nothing\r\n\r\n"));
    ExpectError(Message::HttpBadHead);
    EXPECT_FALSE(Get(Response("", "Location: " + std::string(300, 'u') + "\r\n", "302 Found")));
    ExpectError(Message::HttpRedirectTooLong);
    EXPECT_FALSE(Get(Response("", "", "302 Found")));
    ExpectError(Message::HttpNoRedirectUrl);
    EXPECT_FALSE(Get(Response("body", "", "404 Not Found")));
    ExpectError(Message::HttpErrorCode);
}

TEST_F(HttpLog, TellsOfChunks)
{
    EXPECT_TRUE(Get(Response("5\r\nhello\r\n0\r\n\r\n", "Transfer-Encoding: chunked\r\n")));
    ExpectRecords({{"[Info ] ", Message::HttpChunkedBegins}, {"[Info ] ", Message::HttpChunkedEnds}});
    EXPECT_FALSE(Get(Response("5\r\nhel", "Transfer-Encoding: chunked\r\n")));
    ExpectErrorOfTheConnection({{"[Info ] ", Message::HttpChunkedBegins}});
    EXPECT_FALSE(Get(Response("fffffffff\r\n", "Transfer-Encoding: chunked\r\n")));
    ExpectRecords({{"[Info ] ", Message::HttpChunkedBegins}, {"[Error] ", strerror(EBADMSG)}});
    EXPECT_FALSE(Get(Response(std::string(9000, '1'), "Transfer-Encoding: chunked\r\n")));
    ExpectRecords({{"[Info ] ", Message::HttpChunkedBegins}, {"[Error] ", strerror(EBADMSG)}});
}

TEST_F(HttpLog, TellsOfFailuresThatHaveNoMessageOfTheirOwn)
{
    EXPECT_FALSE(Network_SendHttpRequest("gopher://h/x", nullptr, nullptr));
    ExpectError(strerror(ENOSYS));
    EXPECT_FALSE(Network_SendHttpRequest("http://h/x\ny", nullptr, nullptr));
    ExpectError(strerror(EINVAL));
    const std::string url = "http://127.0.0.1:" + std::to_string(support::ClosedPort());
    EXPECT_FALSE(Network_SendHttpRequest(url.c_str(), nullptr, nullptr));
    ExpectError(strerror(ECONNREFUSED));
    EXPECT_FALSE(Get(Response("hello", LengthHeader(6))));
    ExpectErrorOfTheConnection({});
    EXPECT_FALSE(Get(Response("", "Content-Length: -1\r\n")));
    ExpectError(strerror(EBADMSG));
}

TEST_F(HttpLog, TellsWhatIsWrongWithTheFile)
{
    const support::TempDir out;
    EXPECT_FALSE(Get(Response("body"), out.Path().c_str(), 1));
    ExpectError(Message::HttpNoFileName);
    EXPECT_FALSE(Get(Response("body", "Content-Disposition: a; filename=\xFF\r\nContent-Type: x; charset=utf-8\r\n"),
                     out.Path().c_str(), 1));
    ExpectError(Message::HttpBadFileName);
    EXPECT_FALSE(Get(Response("body"), out.File("no/file").c_str()));
    ExpectError(Message::HttpCreateFailed);
    char name[2];
    EXPECT_FALSE(Get(Response("body", "Content-Disposition: a; filename=ab\r\n"), out.Path().c_str(), 1, name));
    ExpectError(Message::HttpFileNameRoom);
    if (access("/dev/full", W_OK) == 0) {
        std::filesystem::create_symlink("/dev/full", out.File("full"));
        EXPECT_FALSE(Get(Response("body"), out.File("full").c_str()));
        ExpectError(Message::HttpWriteFailed);
    }
}

TEST_F(HttpLog, SaysNothingOfAPlainSuccess)
{
    EXPECT_TRUE(Get(Response("body", LengthHeader(4))));
    ExpectRecords({});
}

TEST(HttpMessages, AreTheGivenTexts)
{
    struct Row {
        const char* gbk;
        const char* utf8;
    };
    const Row rows[] = {{Message::HttpRequestNoMemory, "为制作请求数据分配内存失败！"},
                        {Message::HttpHeadTooLong, "HTTP响应头不应该超过8K"},
                        {Message::HttpNothingReceived, "指定时间内未能收到任何数据！"},
                        {Message::HttpBadHead, "Http响应数据不正确，不是标准的格式！"},
                        {Message::HttpRedirectTooLong, "重定向的URL太长，超过了本系统允许的范围！"},
                        {Message::HttpNoRedirectUrl, "HTTP返回指示要重定向，但未给出重定向的URL！"},
                        {Message::HttpErrorCode, "HTTP返回码指示错误！"},
                        {Message::HttpChunkedBegins, "开始用Chunked方式接收数据！"},
                        {Message::HttpChunkedEnds, "成功用Chunked方式接收全部数据！"},
                        {Message::HttpBodyNoMemory, "为保存响应数据分配内存失败！"},
                        {Message::HttpNoFileName, "接口参数要求自动获取文件名，但HTTP应答中没有给出文件名！"},
                        {Message::HttpBadFileName, "HTTP应答中给出的UTF8文件名转换为GB2312字符串失败！"},
                        {Message::HttpCreateFailed, "创建输出文件失败！"},
                        {Message::HttpWriteFailed, "将响应数据写入文件失败！"},
                        {Message::HttpResultNoMemory, "为输出分配内存失败！"},
                        {Message::HttpFileNameRoom, "文件名缓冲区不足，不足以容纳全部数据！"},
                        {Message::SocketClosed, "Socket已经关闭！"},
                        {Message::SocketSendBuffer, "设置SO_SNDBUF为一个大数失败"},
                        {Message::SocketReceiveBuffer, "设置SO_RCVBUF为一个大数失败"}};
    for (const Row& row : rows) {
        char utf8[300] = "";
        int length = sizeof utf8;
        ASSERT_TRUE(ZKQGeneral_AnsiToUTF8(row.gbk, utf8, static_cast<int>(strlen(row.gbk)) + 1, &length));
        EXPECT_STREQ(utf8, row.utf8);
    }
}

} // namespace
