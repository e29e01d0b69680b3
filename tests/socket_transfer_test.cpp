// Sending and receiving, streams and datagrams.
#include <ZKQ_general/socket.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "support/error_text.h"
#include "support/socket.h"

namespace {

using support::Connection;
using support::Fd;
using support::Listener;
using support::Socket;
using support::Stopwatch;

// "Socket已经关闭！" in GBK.
constexpr char kClosed[] = "Socket\xD2\xD1\xBE\xAD\xB9\xD8\xB1\xD5\xA3\xA1";

std::string Noise(size_t size)
{
    std::mt19937 random(7);
    std::string noise(size, '\0');
    for (char& byte : noise)
        byte = static_cast<char>(random());
    return noise;
}

/// The other side of a connection waits no longer than this to be closed.
void WaitUntilClosed(const Connection& connection)
{
    ASSERT_TRUE(support::WaitToRead(connection.mine.Descriptor(), 5000));
}

TEST(SReceive, TakesExactlySoMany)
{
    Connection connection;
    support::WriteAll(connection.peer.Get(), "hello, world");
    std::vector<char> text(5);
    long size = 5;
    ASSERT_TRUE(S_Receive(*connection.mine, text.data(), &size, 1));
    EXPECT_EQ(size, 5);
    EXPECT_EQ(std::string(text.data(), 5), "hello");
    ASSERT_TRUE(S_ReceiveEx(connection.mine.Get(), text.data(), 5, 1));
    EXPECT_EQ(std::string(text.data(), 5), ", wor");
}

TEST(SReceive, NothingAndLessThanNothing)
{
    SOCKET_ZKQ none = {};
    none.sd = INVALID_SOCKET;
    long size = 0;
    support::MarkErrorText();
    EXPECT_TRUE(S_Receive(none, nullptr, &size, 1));
    EXPECT_TRUE(S_ReceiveEx(&none, nullptr, 0, 1));
    EXPECT_TRUE(S_Send(none, nullptr, &size, 1));
    EXPECT_TRUE(S_SendEx(&none, nullptr, 0, 1));
    EXPECT_TRUE(support::ErrorTextIsMarked());
    char byte = 0;
    for (const long bad : {-1L, LONG_MIN}) {
        long negative = bad;
        for (const auto call : {0, 1, 2, 3, 4, 5}) {
            support::MarkErrorText();
            switch (call) {
            case 0:
                EXPECT_FALSE(S_Receive(none, &byte, &negative, 1));
                break;
            case 1:
                EXPECT_FALSE(S_ReceiveEx(&none, &byte, negative, 1));
                break;
            case 2:
                EXPECT_FALSE(S_Send(none, &byte, &negative, 1));
                break;
            case 3:
                EXPECT_FALSE(S_SendEx(&none, &byte, negative, 1));
                break;
            case 4:
                EXPECT_FALSE(S_Receive_Unknow_Data(none, &byte, &negative, 1));
                break;
            default:
                EXPECT_FALSE(S_Send_Unknow_Data(&none, &byte, &negative));
            }
            EXPECT_SYSTEM_ERROR(EINVAL) << call;
            EXPECT_EQ(negative, bad);
        }
    }
}

TEST(STransfer, NullArguments)
{
    Connection connection;
    SOCKET_ZKQ* const sy = connection.mine.Get();
    long size = 1;
    char byte = 0;
    support::MarkErrorText();
    EXPECT_FALSE(S_Receive(*sy, nullptr, &size, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(S_Receive(*sy, &byte, nullptr, 1));
    EXPECT_FALSE(S_ReceiveEx(sy, nullptr, 1, 1));
    EXPECT_FALSE(S_ReceiveEx(nullptr, &byte, 1, 1));
    EXPECT_FALSE(S_Send(*sy, nullptr, &size, 1));
    EXPECT_FALSE(S_Send(*sy, &byte, nullptr, 1));
    EXPECT_FALSE(S_SendEx(sy, nullptr, 1, 1));
    EXPECT_FALSE(S_SendEx(nullptr, &byte, 1, 1));
    EXPECT_FALSE(S_Receive_Unknow_Data(*sy, nullptr, &size, 1));
    EXPECT_FALSE(S_Receive_Unknow_Data(*sy, &byte, nullptr, 1));
    EXPECT_FALSE(S_Send_Unknow_Data(sy, nullptr, &size));
    EXPECT_FALSE(S_Send_Unknow_Data(sy, &byte, nullptr));
    EXPECT_FALSE(S_Send_Unknow_Data(nullptr, &byte, &size));
    EXPECT_EQ(NetworkMisc_SocketRecvData(sy->sd, nullptr, 1, 1), -1);
    EXPECT_EQ(NetworkMisc_SocketRecvData(sy->sd, &byte, -1, 1), -1);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(size, 1);
}

TEST(SReceive, TimesOutAndKeepsWhatCame)
{
    Connection connection;
    support::WriteAll(connection.peer.Get(), "abc");
    char text[6] = "-----";
    long size = 5;
    const Stopwatch watch;
    EXPECT_FALSE(S_Receive(*connection.mine, text, &size, 1));
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_GE(watch.Seconds(), 0.99);
    EXPECT_EQ(size, 5);
    EXPECT_STREQ(text, "abc--");
    const Stopwatch second;
    EXPECT_FALSE(S_ReceiveEx(connection.mine.Get(), text, 5, -1));
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_LT(second.Seconds(), 0.5);
}

TEST(SReceive, APeerThatHasClosed)
{
    Connection connection;
    support::WriteAll(connection.peer.Get(), "abc");
    connection.peer.Close();
    char text[6] = "-----";
    long size = 5;
    EXPECT_FALSE(S_Receive(*connection.mine, text, &size, 5));
    EXPECT_EQ(support::ErrorText(), kClosed);
    EXPECT_STREQ(text, "abc--");
    support::MarkErrorText();
    EXPECT_FALSE(S_ReceiveEx(connection.mine.Get(), text, 1, 5));
    EXPECT_EQ(support::ErrorText(), kClosed);
    EXPECT_FALSE(S_Receive_Unknow_Data(*connection.mine, text, &size, 5));
    EXPECT_EQ(size, 5);
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, text, 1, 5), -1);
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, text, 0, 5), -1);
    EXPECT_EQ(support::ErrorText(), kClosed);
}

TEST(SReceive, APeerThatClosesMeanwhile)
{
    Connection connection;
    std::thread closer([&] {
        usleep(200000);
        connection.peer.Close();
    });
    char byte = 0;
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, &byte, 1, 5), 0);
    EXPECT_SYSTEM_ERROR(ECONNRESET);
    closer.join();
}

TEST(SReceive, AConnectionThatIsReset)
{
    Connection connection;
    connection.peer.Reset();
    WaitUntilClosed(connection);
    char byte = 0;
    long size = 1;
    EXPECT_FALSE(S_Receive(*connection.mine, &byte, &size, 5));
    EXPECT_SYSTEM_ERROR(ECONNRESET);
}

TEST(SocketRecvData, GivesWhatThereIs)
{
    Connection connection;
    support::WriteAll(connection.peer.Get(), "abc");
    std::vector<char> text(10);
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, text.data(), 2, 5), 2);
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, text.data(), 10, 5), 1);
    EXPECT_EQ(text[0], 'c');
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, text.data(), 10, -1), 0);
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_EQ(NetworkMisc_SocketRecvData(INVALID_SOCKET, text.data(), 10, 0), -1);
    EXPECT_SYSTEM_ERROR(EBADF);
}

TEST(SocketRecvData, NoRoomReadsAsAnEnd)
{
    Connection connection;
    char byte = 0;
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, &byte, 0, -1), 0);
    EXPECT_SYSTEM_ERROR(ETIME);
    support::WriteAll(connection.peer.Get(), "x");
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, &byte, 0, 5), 0);
    EXPECT_SYSTEM_ERROR(ECONNRESET);
    EXPECT_EQ(NetworkMisc_SocketRecvData(connection.mine->sd, &byte, 1, 5), 1);
}

TEST(SocketRecvData, AlsoReadsWhatIsNoSocket)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const Fd reader(ends[0]);
    const Fd writer(ends[1]);
    ASSERT_EQ(write(writer.Get(), "pipe", 4), 4);
    char text[5] = "";
    EXPECT_EQ(NetworkMisc_SocketRecvData(static_cast<SOCKET>(reader.Get()), text, 4, 1), 4);
    EXPECT_STREQ(text, "pipe");
}

TEST(SReceiveUnknowData, GivesWhatThereIs)
{
    Connection connection;
    support::WriteAll(connection.peer.Get(), "abc");
    std::vector<char> text(10);
    long size = 10;
    ASSERT_TRUE(S_Receive_Unknow_Data(*connection.mine, text.data(), &size, 5));
    EXPECT_EQ(size, 3);
    size = 10;
    EXPECT_FALSE(S_Receive_Unknow_Data(*connection.mine, text.data(), &size, -1));
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_EQ(size, 10);
}

TEST(SReceive, WithoutLimitWaits)
{
    Connection connection;
    std::thread sender([&] {
        for (const char* piece : {"ab", "cd", "e"}) {
            usleep(20000);
            support::WriteAll(connection.peer.Get(), piece);
        }
    });
    char text[6] = "";
    long size = 5;
    support::MarkErrorText();
    EXPECT_TRUE(S_Receive(*connection.mine, text, &size, 0));
    EXPECT_STREQ(text, "abcde");
    EXPECT_SYSTEM_ERROR(ETIME); // which the look before each wait has left
    sender.join();
    support::WriteAll(connection.peer.Get(), "fghij");
    support::MarkErrorText();
    EXPECT_TRUE(S_Receive(*connection.mine, text, &size, 0));
    EXPECT_TRUE(support::ErrorTextIsMarked()) << "what is there needs no wait";
}

/// Sends a signal to a thread again and again.
class SignalStorm {
public:
    explicit SignalStorm(pthread_t target)
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, &before_);
        storm_ = std::thread([this, target] {
            while (!ends_) {
                pthread_kill(target, SIGUSR1);
                usleep(2000);
            }
        });
    }
    ~SignalStorm()
    {
        ends_ = true;
        storm_.join();
        sigaction(SIGUSR1, &before_, nullptr);
    }

private:
    struct sigaction before_ = {};
    std::atomic<bool> ends_ = false;
    std::thread storm_;
};

TEST(Signals, DoNotProlongAWait)
{
    Connection connection;
    char byte = 0;
    long size = 1;
    const SignalStorm storm(pthread_self());
    const Stopwatch watch;
    EXPECT_FALSE(S_Receive(*connection.mine, &byte, &size, 1));
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_GE(watch.Seconds(), 0.99);
    EXPECT_LT(watch.Seconds(), 10);
}

TEST(Signals, DoNotProlongASelect)
{
    Connection connection;
    const SignalStorm storm(pthread_self());
    fd_set set;
    FD_ZERO(&set);
    FD_SET(connection.mine.Descriptor(), &set);
    const Stopwatch watch;
    EXPECT_EQ(S_Select(connection.mine.Descriptor(), &set, nullptr, nullptr, 1), 0);
    EXPECT_GE(watch.Seconds(), 0.99);
    EXPECT_LT(watch.Seconds(), 10);
}

TEST(Signals, DoNotBreakATransfer)
{
    Connection connection;
    const std::string sent = Noise(8 << 20);
    std::string received;
    std::thread reader([&] { received = support::ReadBytes(connection.peer.Get(), sent.size()); });
    const SignalStorm storm(pthread_self());
    auto size = static_cast<long>(sent.size());
    EXPECT_TRUE(S_Send(*connection.mine, sent.data(), &size, 5));
    reader.join();
    EXPECT_EQ(received, sent);
}

TEST(STransfer, LargeOnesArriveWhole)
{
    const std::string sent = Noise(16 << 20);
    for (const bool ex : {false, true}) {
        Connection connection;
        std::thread echo(
            [&] { support::WriteAll(connection.peer.Get(), support::ReadBytes(connection.peer.Get(), sent.size())); });
        auto size = static_cast<long>(sent.size());
        std::string received(sent.size(), '\0');
        if (ex) {
            EXPECT_TRUE(S_SendEx(connection.mine.Get(), sent.data(), size, 5));
            EXPECT_TRUE(S_ReceiveEx(connection.mine.Get(), received.data(), size, 5));
        } else {
            EXPECT_TRUE(S_Send(*connection.mine, sent.data(), &size, 5));
            EXPECT_EQ(size, static_cast<long>(sent.size()));
            EXPECT_TRUE(S_Receive(*connection.mine, received.data(), &size, 5));
        }
        echo.join();
        EXPECT_TRUE(received == sent);
    }
}

TEST(SSendUnknowData, SendsWhatThereIsRoomFor)
{
    Connection connection;
    long size = 5;
    ASSERT_TRUE(S_Send_Unknow_Data(connection.mine.Get(), "hello", &size));
    EXPECT_EQ(size, 5);
    const std::string block(1 << 16, 'f');
    support::MarkErrorText();
    do {
        size = static_cast<long>(block.size());
        ASSERT_TRUE(S_Send_Unknow_Data(connection.mine.Get(), block.data(), &size));
    } while (size > 0); // at last there is no room, which is no failure
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_EQ(support::ReadBytes(connection.peer.Get(), 5), "hello");
}

/// More than fits anywhere on the way to the peer, though some room there may turn up late.
const std::string& Much()
{
    static const std::string much(32 << 20, 'm');
    return much;
}

/// Reads and drops until the other side closes.
void Drain(int fd)
{
    while (support::ReadBytes(fd, 1 << 16).size() == 1 << 16) {
    }
}

TEST(SSend, NeverGivesUpOnASlowPeer)
{
    for (const int timeout : {1, -1}) {
        Connection connection;
        std::atomic<bool> done = false;
        BOOL sent = FALSE;
        support::MarkErrorText();
        std::thread sender([&] {
            auto size = static_cast<long>(Much().size());
            sent = S_Send(*connection.mine, Much().data(), &size, timeout);
            done = true;
            S_Close(connection.mine.Get(), 0);
        });
        usleep(timeout > 0 ? 1300000 : 100000);
        EXPECT_FALSE(done);
        Drain(connection.peer.Get());
        sender.join();
        EXPECT_TRUE(sent);
        EXPECT_SYSTEM_ERROR(ETIME) << "it has been slow";
    }
}

TEST(SSendEx, GivesUpOnASlowPeer)
{
    Connection connection;
    const auto size = static_cast<long>(Much().size());
    const Stopwatch watch;
    EXPECT_FALSE(S_SendEx(connection.mine.Get(), Much().data(), size, 1));
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_GE(watch.Seconds(), 0.99);
    support::MarkErrorText();
    EXPECT_FALSE(S_SendEx(connection.mine.Get(), Much().data(), size, -1));
    EXPECT_SYSTEM_ERROR(ETIME);
}

TEST(SSendEx, KeepsItsTimeOnASocketThatBlocks)
{
    const Listener listener;
    const sockaddr_storage address = Listener::Loopback(AF_INET, listener.Port());
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), 0, 0, 0));
    ASSERT_TRUE(S_Client_Addr(socket.Get(), &address, 5));
    const Stopwatch watch;
    EXPECT_FALSE(S_SendEx(socket.Get(), Much().data(), static_cast<long>(Much().size()), 1));
    EXPECT_SYSTEM_ERROR(ETIME);
    EXPECT_LT(watch.Seconds(), 5);
}

TEST(SSend, ToAPeerThatIsGone)
{
    Connection connection;
    connection.peer.Reset();
    WaitUntilClosed(connection);
    long size = 5;
    EXPECT_FALSE(S_Send(*connection.mine, "hello", &size, 1));
    EXPECT_SYSTEM_ERROR(ECONNRESET);
    support::MarkErrorText();
    EXPECT_FALSE(S_SendEx(connection.mine.Get(), "hello", 5, 1));
    EXPECT_SYSTEM_ERROR(EPIPE);
    support::MarkErrorText();
    EXPECT_FALSE(S_Send_Unknow_Data(connection.mine.Get(), "hello", &size));
    EXPECT_SYSTEM_ERROR(EPIPE);
    EXPECT_EQ(size, 5);
    SOCKET_ZKQ none = {};
    none.sd = INVALID_SOCKET;
    EXPECT_FALSE(S_Send(none, "hello", &size, 1));
    EXPECT_SYSTEM_ERROR(EBADF);
}

TEST(TcpSocketIsTermination, TellsWhetherThePeerHasClosed)
{
    Connection connection;
    const SOCKET sd = connection.mine->sd;
    support::MarkErrorText();
    EXPECT_EQ(TCP_SocketIsTermination(sd), 0);
    EXPECT_SYSTEM_ERROR(ETIME);
    support::WriteAll(connection.peer.Get(), "x");
    connection.peer.Close();
    WaitUntilClosed(connection);
    support::MarkErrorText();
    EXPECT_EQ(TCP_SocketIsTermination(sd), 0);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    char byte = 0;
    EXPECT_EQ(NetworkMisc_SocketRecvData(sd, &byte, 1, 1), 1);
    EXPECT_EQ(byte, 'x');
    support::MarkErrorText();
    EXPECT_EQ(TCP_SocketIsTermination(sd), 1);
    EXPECT_EQ(TCP_SocketIsTerminationEx(sd), 1);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_EQ(TCP_SocketIsTermination(INVALID_SOCKET), -1);
    EXPECT_SYSTEM_ERROR(EBADF);
}

TEST(TcpSocketIsTermination, AResetIsNoEnd)
{
    Connection connection;
    connection.peer.Reset();
    WaitUntilClosed(connection);
    EXPECT_EQ(TCP_SocketIsTermination(connection.mine->sd), 0);
    EXPECT_SYSTEM_ERROR(ECONNRESET);
}

class Datagrams : public testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        if (!Listener::HasFamily(GetParam()))
            GTEST_SKIP() << "this system has no such addresses";
        ASSERT_TRUE(S_Open(mine.Get(), GetParam(), SOCK_DGRAM, 0));
        ASSERT_TRUE(S_Open(other.Get(), GetParam(), SOCK_DGRAM, 0));
        ASSERT_TRUE(S_Bind(mine.Get(), Host(), 0));
        ASSERT_TRUE(S_Bind(other.Get(), Host(), 0));
        ASSERT_TRUE(S_GetLocalInfoEx(mine.Get(), nullptr, &minePort, nullptr));
        ASSERT_TRUE(S_GetLocalInfoEx(other.Get(), nullptr, &otherPort, nullptr));
    }
    const char* Host() const { return GetParam() == AF_INET ? "127.0.0.1" : "::1"; }

    Socket mine;
    Socket other;
    int minePort = 0;
    int otherPort = 0;
};

INSTANTIATE_TEST_SUITE_P(Sockets, Datagrams, testing::Values(AF_INET, AF_INET6),
                         [](const auto& row) { return row.param == AF_INET ? "IPv4" : "IPv6"; });

TEST_P(Datagrams, ArriveWithTheirSender)
{
    unsigned long size = 5;
    ASSERT_TRUE(S_SendUDPDatagram(mine.Get(), Host(), otherPort, "hello", &size));
    EXPECT_EQ(size, 5U);
    std::vector<char> data(10);
    std::vector<char> sender(46);
    int port = 0;
    size = data.size();
    ASSERT_TRUE(S_ReceiveUDPDatagram(other.Get(), sender.data(), &port, data.data(), &size, 5));
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(std::string(data.data(), 5), "hello");
    EXPECT_STREQ(sender.data(), Host());
    EXPECT_EQ(port, minePort);
}

TEST_P(Datagrams, AreCutToTheRoom)
{
    unsigned long size = 5;
    ASSERT_TRUE(S_SendUDPDatagram(mine.Get(), Host(), otherPort, "hello", &size));
    std::vector<char> data(2);
    size = data.size();
    ASSERT_TRUE(S_ReceiveUDPDatagram(other.Get(), nullptr, nullptr, data.data(), &size, 5));
    EXPECT_EQ(size, 2U);
    EXPECT_EQ(std::string(data.data(), 2), "he");
    EXPECT_FALSE(S_ReceiveUDPDatagram(other.Get(), nullptr, nullptr, data.data(), &size, -1));
    EXPECT_SYSTEM_ERROR(ETIME);
}

TEST_P(Datagrams, NothingIsDoneForNoBytes)
{
    unsigned long size = 0;
    support::MarkErrorText();
    EXPECT_TRUE(S_SendUDPDatagram(nullptr, nullptr, 0, nullptr, &size));
    EXPECT_TRUE(S_ReceiveUDPDatagram(nullptr, nullptr, nullptr, nullptr, &size, 1));
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST_P(Datagrams, BadArguments)
{
    Socket none;
    char byte = 0;
    unsigned long size = 1;
    EXPECT_FALSE(S_SendUDPDatagram(none.Get(), Host(), 9, &byte, &size));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(S_SendUDPDatagram(nullptr, Host(), 9, &byte, &size));
    EXPECT_FALSE(S_SendUDPDatagram(mine.Get(), nullptr, 9, &byte, &size));
    EXPECT_FALSE(S_SendUDPDatagram(mine.Get(), Host(), 9, nullptr, &size));
    EXPECT_FALSE(S_SendUDPDatagram(mine.Get(), Host(), 9, &byte, nullptr));
    support::MarkErrorText();
    EXPECT_FALSE(S_ReceiveUDPDatagram(none.Get(), nullptr, nullptr, &byte, &size, 1));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(S_ReceiveUDPDatagram(nullptr, nullptr, nullptr, &byte, &size, 1));
    EXPECT_FALSE(S_ReceiveUDPDatagram(mine.Get(), nullptr, nullptr, nullptr, &size, 1));
    EXPECT_FALSE(S_ReceiveUDPDatagram(mine.Get(), nullptr, nullptr, &byte, nullptr, 1));
    support::MarkErrorText();
    EXPECT_FALSE(S_SendUDPDatagram(mine.Get(), "", -1, &byte, &size) && GetParam() == AF_INET);
}

TEST_P(Datagrams, OnesThatCannotBeSentAreSentAllTheSame)
{
    const std::string tooLong(100000, 'x');
    unsigned long size = tooLong.size();
    EXPECT_TRUE(S_SendUDPDatagram(mine.Get(), Host(), otherPort, tooLong.data(), &size));
    EXPECT_EQ(size, tooLong.size());
    char byte = 0;
    EXPECT_FALSE(S_ReceiveUDPDatagram(other.Get(), nullptr, nullptr, &byte, &size, -1));
}

TEST_P(Datagrams, AFailedReceiveIsMinusOneFromNobody)
{
    // A datagram to a port where nobody is comes back as an error on a connected socket.
    const sockaddr_storage nobody = Listener::Loopback(GetParam(), support::ClosedPort(GetParam()));
    ASSERT_TRUE(S_Client_Addr(mine.Get(), &nobody, 1));
    ASSERT_EQ(send(mine.Descriptor(), "x", 1, 0), 1);
    if (!support::WaitToRead(mine.Descriptor(), 1000))
        GTEST_SKIP() << "this system does not tell";
    char data[10];
    char sender[46] = "";
    int port = 7;
    unsigned long size = sizeof data;
    EXPECT_TRUE(S_ReceiveUDPDatagram(mine.Get(), sender, &port, data, &size, 1));
    EXPECT_EQ(size, static_cast<unsigned long>(-1));
    EXPECT_STREQ(sender, "0.0.0.0");
    EXPECT_EQ(port, 0);
}

TEST_P(Datagrams, AWaitThatFailsSetsNoText)
{
    SOCKET_ZKQ bad = {};
    bad.sd = 1000000;
    char byte = 0;
    unsigned long size = 1;
    support::MarkErrorText();
    EXPECT_FALSE(S_ReceiveUDPDatagram(&bad, nullptr, nullptr, &byte, &size, 1));
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

} // namespace
