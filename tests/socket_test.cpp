// Opening, connecting, serving and closing of sockets.
#include <ZKQ_general/socket.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/un.h>

#include <thread>

#include "support/child.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/socket.h"

namespace {

using support::Connection;
using support::ExpectClosed;
using support::Fd;
using support::Listener;
using support::Socket;
using support::Stopwatch;

const int kFamilies[] = {AF_INET, AF_INET6};

int Option(int fd, int option)
{
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, option, &value, &length), 0);
    return value;
}

bool IsBlocking(const Socket& socket)
{
    return (fcntl(socket.Descriptor(), F_GETFL) & O_NONBLOCK) == 0;
}

bool IsOpenDescriptor(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

sockaddr_in6* Owned(const SOCKET_ZKQ& sy)
{
    sockaddr_in6* owned = nullptr;
    memcpy(&owned, reinterpret_cast<const char*>(&sy) + 4, sizeof owned);
    return owned;
}

class EachFamily : public testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        if (!Listener::HasFamily(GetParam()))
            GTEST_SKIP() << "this system has no such addresses";
    }
};

INSTANTIATE_TEST_SUITE_P(Sockets, EachFamily, testing::ValuesIn(kFamilies),
                         [](const auto& row) { return row.param == AF_INET ? "IPv4" : "IPv6"; });

TEST(SocketLayout, IsTheGivenOne)
{
    EXPECT_EQ(sizeof(SOCKET), 4U);
    EXPECT_EQ(INVALID_SOCKET, 0xFFFFFFFFU);
    EXPECT_EQ(sizeof(SOCKET_ZKQ::sin), 16U);
    EXPECT_EQ(offsetof(SOCKET_ZKQ, bindflag), 16U);
    EXPECT_EQ(offsetof(SOCKET_ZKQ, closeflag), 20U);
    EXPECT_EQ(offsetof(SOCKET_ZKQ, sd), 24U);
    EXPECT_EQ(offsetof(SOCKET_ZKQ, s_sd), 32U);
    EXPECT_EQ(offsetof(SOCKET_ZKQ, SSL_Mode), 40U);
}

TEST(NetworkInit, HasBeenDoneByTheTimeTheLibraryIsLoaded)
{
    struct sigaction action = {};
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
    RUN_IN_CHILD([] {
        signal(SIGPIPE, SIG_DFL);
        Network_init();
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        close(ends[0]);
        EXPECT_EQ(write(ends[1], "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
    });
}

TEST(NetworkMisc, ErrorTextAndNumberAreTheUsualOnes)
{
    EXPECT_EQ(NetWork_GetErrorText(), ZKQGeneral_GetGeneralErrorInfo());
    errno = EXDEV;
    EXPECT_EQ(WSAGetLastError(), EXDEV);
}

TEST(NetworkMisc, SetSockOptDoesNothing)
{
    support::MarkErrorText();
    EXPECT_EQ(Network_SetSockOpt(-1, nullptr, 5), TRUE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(SOpen, DefaultsAreAStreamOverIPv4)
{
    Socket socket;
    memset(socket.Get(), 0xA5, sizeof *socket);
    ASSERT_TRUE(S_Open(socket.Get(), 0, 0, 0));
    EXPECT_EQ(socket->sin.sin_family, AF_INET);
    EXPECT_EQ(socket->sin.sin_port, 0);
    EXPECT_EQ(socket->bindflag, 0);
    EXPECT_EQ(socket->s_sd, nullptr);
    EXPECT_EQ(Option(socket.Descriptor(), SO_DOMAIN), AF_INET);
    EXPECT_EQ(Option(socket.Descriptor(), SO_TYPE), SOCK_STREAM);
    EXPECT_TRUE(IsBlocking(socket));
    EXPECT_FALSE(S_IsIPV6(socket.Get()));
}

TEST_P(EachFamily, StreamsGetTheRegularOptions)
{
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), GetParam(), SOCK_STREAM, 0));
    EXPECT_EQ(Option(socket.Descriptor(), SO_REUSEADDR), 1);
    EXPECT_EQ(Option(socket.Descriptor(), SO_KEEPALIVE), 1);
    EXPECT_EQ(S_IsIPV6(socket.Get()), GetParam() == AF_INET6);
}

TEST_P(EachFamily, DatagramSocketsDoNot)
{
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), GetParam(), SOCK_DGRAM, 0));
    EXPECT_EQ(Option(socket.Descriptor(), SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(Option(socket.Descriptor(), SO_REUSEADDR), 0);
    EXPECT_EQ(Option(socket.Descriptor(), SO_KEEPALIVE), 0);
}

TEST(SOpen, OnlyIPv6OwnsAnAddressAndLargeBuffers)
{
    if (!Listener::HasFamily(AF_INET6))
        GTEST_SKIP() << "no IPv6";
    Socket four;
    Socket six;
    ASSERT_TRUE(S_Open(four.Get(), AF_INET, 0, 0));
    ASSERT_TRUE(S_Open(six.Get(), AF_INET6, 0, 0));
    ASSERT_NE(Owned(*six), nullptr);
    const sockaddr_in6 zero = {};
    EXPECT_EQ(memcmp(Owned(*six), &zero, sizeof zero), 0);
    const Fd untouched(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(Option(four.Descriptor(), SO_SNDBUF), Option(untouched.Get(), SO_SNDBUF));
    EXPECT_EQ(Option(four.Descriptor(), SO_RCVBUF), Option(untouched.Get(), SO_RCVBUF));
    Fd asked(socket(AF_INET6, SOCK_STREAM, 0));
    const int large = 0x20000;
    setsockopt(asked.Get(), SOL_SOCKET, SO_SNDBUF, &large, sizeof large);
    setsockopt(asked.Get(), SOL_SOCKET, SO_RCVBUF, &large, sizeof large);
    EXPECT_EQ(Option(six.Descriptor(), SO_SNDBUF), Option(asked.Get(), SO_SNDBUF));
    EXPECT_EQ(Option(six.Descriptor(), SO_RCVBUF), Option(asked.Get(), SO_RCVBUF));
}

TEST(SOpen, FailureLeavesNothingToClose)
{
    SOCKET_ZKQ sy;
    memset(&sy, 0xA5, sizeof sy);
    EXPECT_FALSE(S_Open(&sy, 250, 0, 0));
    EXPECT_SYSTEM_ERROR(EAFNOSUPPORT);
    ExpectClosed(sy);
    EXPECT_FALSE(S_Open(nullptr, 0, 0, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST_P(EachFamily, CloseLeavesTheStructureWithoutASocket)
{
    for (const int hard : {0, 1, 3, -1}) {
        Connection connection(GetParam());
        const int fd = connection.mine.Descriptor();
        connection.mine->bindflag = 1;
        EXPECT_EQ(S_Close(connection.mine.Get(), hard), TRUE);
        EXPECT_FALSE(IsOpenDescriptor(fd)) << hard;
        ExpectClosed(*connection.mine);
        EXPECT_EQ(support::ReadBytes(connection.peer.Get(), 1), "");
        EXPECT_EQ(S_Close(connection.mine.Get(), hard), TRUE);
        ExpectClosed(*connection.mine);
    }
}

TEST_P(EachFamily, CloseOfTheDescriptorLeavesTheStructure)
{
    Connection connection(GetParam());
    const SOCKET_ZKQ before = *connection.mine;
    EXPECT_EQ(S_Close(connection.mine.Get(), 2), TRUE);
    EXPECT_FALSE(IsOpenDescriptor(static_cast<int>(before.sd)));
    EXPECT_EQ(memcmp(connection.mine.Get(), &before, sizeof before), 0);
    if (GetParam() == AF_INET6)
        free(Owned(before));
    connection.mine.Forget();
}

TEST(SClose, GracefulEndsTheConnectionForAllWhoShareIt)
{
    for (const int hard : {0, 1}) {
        Connection connection;
        const Fd shared(dup(connection.mine.Descriptor()));
        S_Close(connection.mine.Get(), hard);
        EXPECT_EQ(support::WaitToRead(connection.peer.Get(), 50), hard == 0);
    }
}

TEST(SClose, WithoutASocketOnlyZeroes)
{
    SOCKET_ZKQ sy;
    memset(&sy, 0xA5, sizeof sy); // what looks like an owned address is none
    sy.sd = INVALID_SOCKET;
    EXPECT_EQ(S_Close(&sy, 0), TRUE);
    ExpectClosed(sy);
    EXPECT_FALSE(S_Close(nullptr, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST_P(EachFamily, NothingLeaks)
{
    const Listener listener(GetParam());
    support::ExpectNothingLeaks([&] {
        Socket socket;
        ASSERT_TRUE(S_Open(socket.Get(), GetParam(), SOCK_DGRAM, 0));
    });
}

TEST_P(EachFamily, ClientConnectsAndDoesNotBlockAfterwards)
{
    const Listener listener(GetParam());
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), GetParam(), 0, 0));
    ASSERT_TRUE(S_Client(socket.Get(), listener.Host(), listener.Port(), 5)) << NetWork_GetErrorText();
    EXPECT_FALSE(IsBlocking(socket));
    const Fd peer = listener.Accept();
    EXPECT_GE(peer.Get(), 0);
    if (GetParam() == AF_INET) {
        EXPECT_EQ(socket->sin.sin_port, htons(static_cast<uint16_t>(listener.Port())));
        EXPECT_EQ(socket->sin.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    } else {
        EXPECT_EQ(Owned(*socket)->sin6_family, AF_INET6);
        EXPECT_EQ(Owned(*socket)->sin6_port, htons(static_cast<uint16_t>(listener.Port())));
    }
}

TEST_P(EachFamily, ClientIsRefused)
{
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), GetParam(), 0, 0));
    EXPECT_FALSE(
        S_Client(socket.Get(), GetParam() == AF_INET ? "127.0.0.1" : "::1", support::ClosedPort(GetParam()), 5));
    EXPECT_SYSTEM_ERROR(ECONNREFUSED);
}

TEST(SClient, TakesBracketsAndTheirPortOverIPv6)
{
    if (!Listener::HasFamily(AF_INET6))
        GTEST_SKIP() << "no IPv6";
    const Listener listener(AF_INET6);
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), AF_INET6, 0, 0));
    const std::string text = "[::1]:" + std::to_string(listener.Port());
    EXPECT_TRUE(S_Client(socket.Get(), text.c_str(), 1, 5)) << NetWork_GetErrorText();
}

TEST(SClient, BadArguments)
{
    Socket none;
    EXPECT_FALSE(S_Client(none.Get(), "127.0.0.1", 80, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(S_Client(nullptr, "127.0.0.1", 80, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), 0, 0, 0));
    support::MarkErrorText();
    EXPECT_FALSE(S_Client(socket.Get(), nullptr, 80, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(IsBlocking(socket));
    socket->sin.sin_family = AF_INET6; // and owns nothing
    socket->sin.sin_addr.s_addr = 0;
    EXPECT_FALSE(S_Client(socket.Get(), "::1", 80, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    socket->sin.sin_family = AF_INET;
}

TEST(SClient, ABadDescriptorIsASystemError)
{
    SOCKET_ZKQ sy = {};
    sy.sin.sin_family = AF_INET;
    sy.sd = 1000000;
    EXPECT_FALSE(S_Client(&sy, "127.0.0.1", 80, 1));
    EXPECT_SYSTEM_ERROR(EBADF);
}

// A server that does not accept and whose queue is full takes no more connections.
class FullServer {
public:
    FullServer() : listener_(AF_INET, 0)
    {
        for (Fd& one : queue_) {
            one = Fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            sockaddr_storage address = Listener::Loopback(AF_INET, listener_.Port());
            connect(one.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(sockaddr_in));
        }
        usleep(20000);
        pollfd last = {queue_[3].Get(), POLLOUT, 0};
        isFull_ = poll(&last, 1, 0) == 0;
    }
    bool IsFull() const { return isFull_; }
    int Port() const { return listener_.Port(); }

private:
    Listener listener_;
    Fd queue_[4];
    bool isFull_ = false;
};

TEST(SClient, TimesOut)
{
    const FullServer server;
    if (!server.IsFull())
        GTEST_SKIP() << "this system accepts more connections than it was told";
    for (const long timeout : {1L, -1L}) {
        Socket socket;
        ASSERT_TRUE(S_Open(socket.Get(), 0, 0, 0));
        const Stopwatch watch;
        EXPECT_FALSE(S_Client(socket.Get(), "127.0.0.1", server.Port(), timeout));
        EXPECT_SYSTEM_ERROR(ETIMEDOUT);
        EXPECT_EQ(watch.Seconds() >= 0.99, timeout == 1) << watch.Seconds();
        EXPECT_LT(watch.Seconds(), 3);
    }
}

TEST_P(EachFamily, ClientAddrConnectsAndLeavesTheMode)
{
    const Listener listener(GetParam());
    const sockaddr_storage address = Listener::Loopback(GetParam(), listener.Port());
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), GetParam(), 0, 0));
    ASSERT_TRUE(S_Client_Addr(socket.Get(), &address, 5)) << NetWork_GetErrorText();
    EXPECT_TRUE(IsBlocking(socket));
    Socket other;
    ASSERT_TRUE(S_Open(other.Get(), GetParam(), 0, 0));
    fcntl(other.Descriptor(), F_SETFL, O_NONBLOCK);
    ASSERT_TRUE(S_Client_Addr(other.Get(), &address, 5)) << NetWork_GetErrorText();
    EXPECT_FALSE(IsBlocking(other));
}

TEST_P(EachFamily, ClientAddrIsRefused)
{
    const sockaddr_storage address = Listener::Loopback(GetParam(), support::ClosedPort(GetParam()));
    for (const int mode : {0, O_NONBLOCK}) {
        Socket socket;
        ASSERT_TRUE(S_Open(socket.Get(), GetParam(), 0, 0));
        fcntl(socket.Descriptor(), F_SETFL, mode);
        EXPECT_FALSE(S_Client_Addr(socket.Get(), &address, 5));
        EXPECT_SYSTEM_ERROR(ECONNREFUSED);
    }
}

TEST(SClientAddr, BadArguments)
{
    const sockaddr_storage four = Listener::Loopback(AF_INET, 80);
    const sockaddr_storage six = Listener::Loopback(AF_INET6, 80);
    Socket socket;
    EXPECT_FALSE(S_Client_Addr(socket.Get(), &four, 1));
    EXPECT_SYSTEM_ERROR(EBADF);
    EXPECT_FALSE(S_Client_Addr(nullptr, &four, 1));
    ASSERT_TRUE(S_Open(socket.Get(), 0, 0, 0));
    support::MarkErrorText();
    EXPECT_FALSE(S_Client_Addr(socket.Get(), nullptr, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    // An address of the other family would look like a pointer.
    EXPECT_FALSE(S_Client_Addr(socket.Get(), &six, 1));
    EXPECT_SYSTEM_ERROR(EAFNOSUPPORT);
    EXPECT_FALSE(S_IsIPV6(socket.Get()));
}

TEST_P(EachFamily, BindsOnce)
{
    const char* const host = GetParam() == AF_INET ? "127.0.0.1" : "::1";
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), GetParam(), 0, 0));
    ASSERT_TRUE(S_Bind(socket.Get(), host, 0)) << NetWork_GetErrorText();
    EXPECT_EQ(socket->bindflag, 1);
    support::MarkErrorText();
    EXPECT_FALSE(S_Bind(socket.Get(), host, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
    const sockaddr_storage address = Listener::Loopback(GetParam(), 0);
    support::MarkErrorText();
    EXPECT_FALSE(S_Bind_Addr(socket.Get(), &address));
    EXPECT_SYSTEM_ERROR(EINVAL);
    Socket other;
    ASSERT_TRUE(S_Open(other.Get(), GetParam(), 0, 0));
    EXPECT_TRUE(S_Bind_Addr(other.Get(), &address)) << NetWork_GetErrorText();
    EXPECT_EQ(other->bindflag, 1);
}

TEST_P(EachFamily, BindsToEveryAddress)
{
    for (const char* const host : {static_cast<const char*>(nullptr), ""}) {
        Socket socket;
        ASSERT_TRUE(S_Open(socket.Get(), GetParam(), 0, 0));
        ASSERT_TRUE(S_Bind(socket.Get(), host, 0)) << NetWork_GetErrorText();
        sockaddr_in6 address = {};
        ASSERT_TRUE(S_GetSocketInfo(*socket, &address));
        char text[46];
        int port = 0;
        ASSERT_TRUE(Network_ParseSockAddr(&address, text, &port, nullptr));
        EXPECT_STREQ(text, GetParam() == AF_INET ? "0.0.0.0" : "::");
        EXPECT_GT(port, 0);
    }
}

TEST(SBind, Failures)
{
    const Listener taken;
    Socket socket;
    EXPECT_FALSE(S_Bind(socket.Get(), "127.0.0.1", 0));
    EXPECT_SYSTEM_ERROR(EBADF);
    EXPECT_FALSE(S_Bind(nullptr, "127.0.0.1", 0));
    ASSERT_TRUE(S_Open(socket.Get(), 0, 0, 0));
    EXPECT_FALSE(S_Bind(socket.Get(), "127.0.0.1", taken.Port()));
    EXPECT_SYSTEM_ERROR(EADDRINUSE);
    EXPECT_EQ(socket->bindflag, 0);
    EXPECT_FALSE(S_Bind(socket.Get(), "192.0.2.1", 0));
    EXPECT_SYSTEM_ERROR(EADDRNOTAVAIL);
    EXPECT_FALSE(S_Bind_Addr(socket.Get(), nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_TRUE(S_Bind(socket.Get(), "127.0.0.1", 0)) << "still unbound";
}

TEST_P(EachFamily, ServesAConnection)
{
    const char* const host = GetParam() == AF_INET ? "127.0.0.1" : "::1";
    Socket server;
    ASSERT_TRUE(S_Open(server.Get(), GetParam(), 0, 0));
    ASSERT_TRUE(S_Bind(server.Get(), host, 0));
    ASSERT_TRUE(S_Listen(server.Get(), 4));
    int port = 0;
    ASSERT_TRUE(S_GetLocalInfoEx(server.Get(), nullptr, &port, nullptr));
    Socket client;
    ASSERT_TRUE(S_Open(client.Get(), GetParam(), 0, 0));
    ASSERT_TRUE(S_Client(client.Get(), host, port, 5));
    ASSERT_TRUE(S_CanAccept(server.Get()));
    Socket accepted;
    memset(accepted.Get(), 0xA5, sizeof *accepted);
    ASSERT_TRUE(S_Accept(*server, accepted.Get(), 0));
    EXPECT_FALSE(IsBlocking(accepted));
    EXPECT_EQ(Option(accepted.Descriptor(), SO_REUSEADDR), 1);
    EXPECT_EQ(Option(accepted.Descriptor(), SO_KEEPALIVE), 1);
    EXPECT_EQ(S_IsIPV6(accepted.Get()), GetParam() == AF_INET6);
    EXPECT_EQ(accepted->bindflag, 0);
    sockaddr_in6 clientAddress = {};
    ASSERT_TRUE(S_GetSocketInfo(*client, &clientAddress));
    if (GetParam() == AF_INET) {
        EXPECT_EQ(memcmp(&accepted->sin, &clientAddress, sizeof(sockaddr_in)), 0);
    } else {
        EXPECT_EQ(memcmp(Owned(*accepted), &clientAddress, sizeof clientAddress), 0);
    }
    long size = 5;
    ASSERT_TRUE(S_Send(*client, "hello", &size, 5));
    char text[6] = "";
    ASSERT_TRUE(S_Receive(*accepted, text, &size, 5)) << NetWork_GetErrorText();
    EXPECT_STREQ(text, "hello");
}

TEST(SAccept, AnyOtherFamilyCountsAsIPv6)
{
    const Fd listener(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_EQ(bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(sa_family_t)), 0);
    ASSERT_EQ(listen(listener.Get(), 1), 0);
    socklen_t length = sizeof address;
    getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &length);
    const Fd client(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(connect(client.Get(), reinterpret_cast<sockaddr*>(&address), length), 0);
    SOCKET_ZKQ server = {};
    server.sd = static_cast<SOCKET>(listener.Get());
    Socket accepted;
    ASSERT_TRUE(S_Accept(server, accepted.Get(), 0)) << NetWork_GetErrorText();
    EXPECT_TRUE(S_IsIPV6(accepted.Get()));
    EXPECT_EQ(Owned(*accepted)->sin6_family, AF_UNIX);
}

TEST(SAccept, DoesNotWait)
{
    Socket server;
    ASSERT_TRUE(S_Open(server.Get(), 0, 0, 0));
    ASSERT_TRUE(S_Bind(server.Get(), "127.0.0.1", 0));
    ASSERT_TRUE(S_Listen(server.Get(), 1));
    fcntl(server.Descriptor(), F_SETFL, O_NONBLOCK);
    SOCKET_ZKQ accepted;
    memset(&accepted, 0xA5, sizeof accepted);
    EXPECT_FALSE(S_Accept(*server, &accepted, 5));
    EXPECT_SYSTEM_ERROR(EAGAIN);
    ExpectClosed(accepted);
    EXPECT_FALSE(S_Accept(*server, nullptr, 5));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(SListen, Failures)
{
    Socket socket;
    EXPECT_FALSE(S_Listen(nullptr, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(S_Listen(socket.Get(), 1));
    EXPECT_SYSTEM_ERROR(EBADF);
    EXPECT_FALSE(S_CanAccept(nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(S_CanAccept(socket.Get()));
    EXPECT_SYSTEM_ERROR(EBADF);
    ASSERT_TRUE(S_Open(socket.Get(), AF_INET, SOCK_DGRAM, 0));
    EXPECT_FALSE(S_Listen(socket.Get(), 1));
    EXPECT_SYSTEM_ERROR(EOPNOTSUPP);
}

TEST(SSelect, CountsWhatIsReady)
{
    Connection connection;
    fd_set reading;
    fd_set writing;
    FD_ZERO(&reading);
    FD_ZERO(&writing);
    const int fd = connection.mine.Descriptor();
    FD_SET(fd, &reading);
    support::MarkErrorText();
    EXPECT_EQ(S_Select(fd, &reading, nullptr, nullptr, 0), 0);
    EXPECT_SYSTEM_ERROR(ETIME);
    FD_SET(fd, &reading);
    FD_SET(fd, &writing);
    EXPECT_EQ(S_Select(fd, &reading, &writing, nullptr, 1), 1);
    support::WriteAll(connection.peer.Get(), "x");
    FD_SET(fd, &reading);
    FD_SET(fd, &writing);
    EXPECT_EQ(S_Select_Server(fd, &reading, &writing, nullptr), 2);
    FD_SET(fd, &reading);
    const Stopwatch watch;
    FD_ZERO(&reading);
    EXPECT_EQ(S_Select(fd, &reading, nullptr, nullptr, 1), 0);
    EXPECT_GE(watch.Seconds(), 0.99);
}

TEST(SSelect, RefusesWhatDoesNotFitIntoASet)
{
    for (const int bad : {FD_SETSIZE, FD_SETSIZE + 1, INT_MAX, -2, INT_MIN}) {
        support::MarkErrorText();
        EXPECT_EQ(S_Select(bad, nullptr, nullptr, nullptr, 0), -1) << bad;
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_EQ(S_Select_Server(bad, nullptr, nullptr, nullptr), -1) << bad;
    }
    EXPECT_EQ(S_Select(FD_SETSIZE - 1, nullptr, nullptr, nullptr, 0), 0);
    EXPECT_EQ(S_Select(0, nullptr, nullptr, nullptr, -1), -1);
    EXPECT_SYSTEM_ERROR(EINVAL);
    const int closed = dup(0);
    ASSERT_EQ(close(closed), 0);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(closed, &set);
    EXPECT_EQ(S_Select(closed, &set, nullptr, nullptr, 0), -1);
    EXPECT_SYSTEM_ERROR(EBADF);
}

TEST(SSocketIs, TellsWhatIsReady)
{
    Connection connection;
    int ready = 7;
    support::MarkErrorText();
    EXPECT_TRUE(S_SocketIsReadible(*connection.mine, &ready));
    EXPECT_EQ(ready, 0);
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_TRUE(S_SocketIsWritable(*connection.mine, &ready));
    EXPECT_EQ(ready, 1);
    support::WriteAll(connection.peer.Get(), "x");
    EXPECT_TRUE(S_SocketIsReadible(*connection.mine, &ready));
    EXPECT_EQ(ready, 1);
    SOCKET_ZKQ none = {};
    none.sd = INVALID_SOCKET;
    EXPECT_FALSE(S_SocketIsReadible(none, &ready));
    EXPECT_SYSTEM_ERROR(EBADF);
    EXPECT_FALSE(S_SocketIsWritable(none, &ready));
    EXPECT_FALSE(S_SocketIsReadible(*connection.mine, nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(S_SocketIsWritable(*connection.mine, nullptr));
}

TEST(SIsIPV6, GoesByTheFirstTwoBytes)
{
    SOCKET_ZKQ sy = {};
    EXPECT_EQ(S_IsIPV6(&sy), FALSE);
    sy.sin.sin_family = AF_INET6;
    EXPECT_EQ(S_IsIPV6(&sy), TRUE);
    EXPECT_EQ(S_IsIPV6(nullptr), FALSE);
}

TEST(HighDescriptors, WorkEverywhere)
{
    RUN_IN_CHILD([] {
        constexpr int kHigh = 3000;
        const rlimit limit = {kHigh + 10, kHigh + 10};
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
            support::SkipChild("setrlimit");
        for (int fd = open("/dev/null", O_RDONLY); fd < kHigh; fd = dup(fd))
            ASSERT_GE(fd, 0) << strerror(errno);
        Connection connection;
        ASSERT_GT(connection.mine.Descriptor(), FD_SETSIZE);
        int ready = 0;
        EXPECT_TRUE(S_SocketIsWritable(*connection.mine, &ready));
        EXPECT_EQ(ready, 1);
        long size = 5;
        EXPECT_TRUE(S_Send(*connection.mine, "hello", &size, 1));
        EXPECT_EQ(support::ReadBytes(connection.peer.Get(), 5), "hello");
        support::WriteAll(connection.peer.Get(), "back");
        char text[5] = "";
        size = 4;
        EXPECT_TRUE(S_Receive(*connection.mine, text, &size, 1)) << NetWork_GetErrorText();
        EXPECT_STREQ(text, "back");
        EXPECT_FALSE(S_Receive(*connection.mine, text, &size, -1));
        EXPECT_EQ(TCP_SocketIsTermination(connection.mine->sd), 0);
    });
}

} // namespace
