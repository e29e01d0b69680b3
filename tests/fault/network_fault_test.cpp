// Sockets and HTTP requests on a failing system: every call into the system is made to fail in turn. Every failure is
// reported, no descriptor stays open and nothing leaks.
#include <ZKQ_general.h>
#include <signal.h>
#include <sys/wait.h>

#include <functional>

#include "../../src/internal/log.h"
#include "../support/error_text.h"
#include "../support/http_server.h"
#include "../support/log_context.h"
#include "../support/socket.h"
#include "fault.h"
#include "messages_gbk.h"

namespace {

using support::Fd;
using support::Listener;
using support::Response;
using support::Socket;

/// A server in a process of its own, whose calls do not fail: it answers every request with the same response.
class OtherProcess {
public:
    explicit OtherProcess(const std::string& response) : pid_(fork())
    {
        if (pid_ == 0)
            Serve(response);
        EXPECT_GT(pid_, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    ~OtherProcess()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

    int Port() const { return listener_.Port(); }
    std::string Url() const { return "http://127.0.0.1:" + std::to_string(Port()) + "/"; }

private:
    [[noreturn]] void Serve(const std::string& response) const
    {
        alarm(120);
        for (;;) {
            const Fd connection(accept(listener_.Get(), nullptr, nullptr));
            std::string request;
            while (request.find("\r\n\r\n") == std::string::npos) {
                const std::string byte = support::ReadBytes(connection.Get(), 1);
                if (byte.empty())
                    break;
                request += byte;
            }
            support::WriteAll(connection.Get(), response);
        }
    }

    Listener listener_;
    pid_t pid_;
};

/// An operation; what it needs of a server and a directory is there.
struct Scenario {
    const char* name;
    std::string response;
    std::function<bool(const OtherProcess&, const support::TempDir&)> run;
    /// Functions whose failure the operation gets over, and may then succeed.
    std::vector<std::string> tolerated;

    friend void PrintTo(const Scenario& row, std::ostream* out) { *out << row.name; }
};

class NetworkSweep : public testing::TestWithParam<Scenario> {};

TEST_P(NetworkSweep, EveryFailureIsReportedAndNothingLeaks)
{
    const Scenario& scenario = GetParam();
    const OtherProcess server(scenario.response);
    int hits = 0;
    for (const std::string& function : fault::Functions()) {
        for (int call = 1;; ++call) {
            SCOPED_TRACE(function + " call " + std::to_string(call));
            const support::TempDir dir;
            support::MarkErrorText();
            const int before = fault::OpenDescriptors();
            fault::Arm(function, call, {ENOSYS, false});
            const bool succeeded = scenario.run(server, dir);
            const bool hit = fault::Disarm();
            EXPECT_EQ(fault::OpenDescriptors(), before);
            if (!hit) {
                EXPECT_TRUE(succeeded) << support::ErrorText();
                break;
            }
            ++hits;
            EXPECT_TRUE(!succeeded || fault::Has(scenario.tolerated, function));
            EXPECT_TRUE(succeeded || !support::ErrorTextIsMarked());
        }
    }
    EXPECT_GT(hits, 0);
}

using Directory = support::TempDir;

bool OpenAndClose(int family)
{
    SOCKET_ZKQ sy;
    const bool opened = S_Open(&sy, family, 0, 0);
    if (opened)
        S_Close(&sy, 0);
    {
        const fault::Pause pause;
        support::ExpectClosed(sy);
    }
    return opened;
}

/// Connects and closes; the server says nothing before it is asked.
bool Connect(const OtherProcess& server)
{
    Socket socket;
    return S_Open(socket.Get(), 0, 0, 0) && S_Client(socket.Get(), "127.0.0.1", server.Port(), 5);
}

bool Accept(int family)
{
    Socket listener;
    Socket client;
    Socket accepted;
    int port = 0;
    const char* const host = family == AF_INET ? "127.0.0.1" : "::1";
    if (!S_Open(listener.Get(), family, 0, 0) || !S_Bind(listener.Get(), host, 0) || !S_Listen(listener.Get(), 1) ||
        !S_GetLocalInfoEx(listener.Get(), nullptr, &port, nullptr))
        return false;
    {
        const fault::Pause pause;
        EXPECT_TRUE(S_Open(client.Get(), family, 0, 0));
        EXPECT_TRUE(S_Client(client.Get(), host, port, 5));
    }
    return S_CanAccept(listener.Get()) && S_Accept(*listener, accepted.Get(), 0);
}

bool Lookups()
{
    unsigned long four = 0;
    unsigned char six[16];
    return GetServerAddress("localhost", &four) && GetServerAddress6("127.0.0.1", six);
}

bool Names()
{
    const sockaddr_storage loopback = Listener::Loopback(AF_INET, 0);
    const sockaddr_storage loopback6 = Listener::Loopback(AF_INET6, 0);
    char name[1025];
    return S_GetHostByAddr(&loopback, name) && Network_ParseSockAddr(&loopback6, name, nullptr, nullptr);
}

bool Datagram()
{
    Socket socket;
    char byte = 'x';
    int port = 0;
    unsigned long size = 1;
    if (!S_Open(socket.Get(), AF_INET, SOCK_DGRAM, 0) || !S_Bind(socket.Get(), "127.0.0.1", 0) ||
        !S_GetLocalInfoEx(socket.Get(), nullptr, &port, nullptr))
        return false;
    if (!S_SendUDPDatagram(socket.Get(), "127.0.0.1", port, &byte, &size))
        return false;
    const bool received = S_ReceiveUDPDatagram(socket.Get(), nullptr, nullptr, &byte, &size, 1);
    if (!received && support::ErrorTextIsMarked()) // as documented
        GetServerAddress("", nullptr);
    return received;
}

bool InMemory(const OtherProcess& server)
{
    char* data = nullptr;
    int length = -1;
    const BOOL succeeded =
        Network_HttpSendReceiveEx(server.Url().c_str(), nullptr, "X: y", nullptr, &data, &length, 5, 0);
    EXPECT_EQ(data != nullptr, succeeded == TRUE);
    NetWork_FreeBuffer(data);
    return succeeded;
}

bool InFile(const OtherProcess& server, const Directory& dir)
{
    std::string path;
    {
        const fault::Pause pause;
        path = dir.File("out");
    }
    const BOOL succeeded = Network_SendHttpRequest(server.Url().c_str(), nullptr, path.c_str());
    const fault::Pause pause;
    EXPECT_EQ(access(path.c_str(), F_OK) == 0, succeeded == TRUE);
    return succeeded;
}

bool InDirectory(const OtherProcess& server, const Directory& dir)
{
    char name[300];
    return Network_SendHttpRequestEx2(server.Url().c_str(), nullptr, dir.Path().c_str(), nullptr, 1, name, sizeof name);
}

bool SplitUrl()
{
    NETWORK_URL_EX url;
    const BOOL split = Network_SplideURL_Ex("http://host/object", &url);
    if (split)
        Network_FreeURLEx(&url);
    EXPECT_EQ(url.Protocol, nullptr);
    return split;
}

std::string Large()
{
    return std::string(300000, 'l');
}

// What a receive cannot do at once it waits for, memory that cannot double may still grow, and a close has nobody to be
// told of.
const std::vector<std::string> kReceiving = {"recv", "close", "setsockopt", "realloc"};

INSTANTIATE_TEST_SUITE_P(
    Operations, NetworkSweep,
    testing::Values(
        Scenario{"open", "", [](const auto&, const auto&) { return OpenAndClose(AF_INET); }, {"setsockopt", "close"}},
        Scenario{"open6", "", [](const auto&, const auto&) { return OpenAndClose(AF_INET6); }, {"setsockopt", "close"}},
        Scenario{
            "connect", "", [](const auto& server, const auto&) { return Connect(server); }, {"setsockopt", "close"}},
        Scenario{"accept", "", [](const auto&, const auto&) { return Accept(AF_INET); }, {"setsockopt", "close"}},
        Scenario{"accept6", "", [](const auto&, const auto&) { return Accept(AF_INET6); }, {"setsockopt", "close"}},
        Scenario{"lookups", "", [](const auto&, const auto&) { return Lookups(); }, {}},
        Scenario{"names", "", [](const auto&, const auto&) { return Names(); }, {}},
        Scenario{"datagram", "", [](const auto&, const auto&) { return Datagram(); }, {"close", "recvfrom"}},
        Scenario{"split_url", "", [](const auto&, const auto&) { return SplitUrl(); }, {}},
        Scenario{"http_memory", Response(Large(), support::LengthHeader(Large().size())),
                 [](const auto& server, const auto&) { return InMemory(server); }, kReceiving},
        Scenario{"http_chunks",
                 Response("5\r\nhello\r\n0\r\n\r\n", "Transfer-Encoding: chunked\r\n"),
                 [](const auto& server, const auto&) { return InMemory(server); },
                 {"recv", "close", "setsockopt", "realloc", "malloc"}},
        Scenario{"http_file", Response(Large(), support::LengthHeader(Large().size())), InFile, kReceiving},
        Scenario{
            "http_directory",
            Response("body", "Content-Type: a; charset=utf-8\r\nContent-Disposition: a; filename=\xE4\xB8\xAD\r\n" +
                                 support::LengthHeader(4)),
            InDirectory, kReceiving}),
    [](const auto& row) { return row.param.name; });

TEST(NetworkInterrupted, WaitsGoOn)
{
    const OtherProcess server(Response("body", support::LengthHeader(4)));
    for (const char* function : {"ppoll", "recvfrom", "sendto"})
        for (const int error : {EINTR, ECHILD})
            for (int call = 1; call <= 3; ++call) {
                fault::Arm(function, call, {error, false});
                EXPECT_TRUE(InMemory(server) && Datagram()) << function << " call " << call;
                fault::Disarm();
            }
    fault::Arm("pselect", 1, {EINTR, false});
    EXPECT_EQ(S_Select(0, nullptr, nullptr, nullptr, 0), 0);
    EXPECT_TRUE(fault::Disarm());
}

TEST(NetworkShort, PiecesAreMadeUpFor)
{
    const OtherProcess server(Response(Large(), support::LengthHeader(Large().size())));
    for (const char* function : {"recv", "send", "read"})
        for (int call = 1; call <= 5; ++call) {
            fault::Arm(function, call, {0, true});
            EXPECT_TRUE(InMemory(server)) << function << " call " << call;
            fault::Disarm();
        }
}

TEST(NetworkOpen6, BuffersThatTheSystemRefusesAreLogged)
{
    const support::LogDir dir;
    support::AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const support::LogContext ctx(info);
    LOGCTX* const saved = std::exchange(g_General_LogCtx, static_cast<LOGCTX*>(ctx.Get()));
    for (const auto& [call, message] :
         {std::pair(3, Message::SocketSendBuffer), std::pair(4, Message::SocketReceiveBuffer)}) {
        fault::Arm("setsockopt", call, {ENOBUFS, false});
        EXPECT_TRUE(OpenAndClose(AF_INET6));
        EXPECT_TRUE(fault::Disarm());
        const std::string log = support::ReadFile(dir.OwnLog());
        EXPECT_NE(log.find(std::string("[Warn ] ") + message + " - socket,"), std::string::npos) << log;
        support::WriteFile(dir.OwnLog(), "");
    }
    g_General_LogCtx = saved;
}

TEST(NetworkConnect, AQueryThatFailsIsARefusal)
{
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), 0, 0, 0));
    const int port = support::ClosedPort();
    fault::Arm("getsockopt", 1, {ENOSYS, false});
    EXPECT_FALSE(S_Client(socket.Get(), "127.0.0.1", port, 5));
    fault::Disarm();
    EXPECT_SYSTEM_ERROR(ECONNREFUSED);
}

} // namespace
