// Ping, in networks of the tests' own.
#include <ZKQ_general/ping.h>
#include <arpa/inet.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "support/error_text.h"
#include "support/network_namespace.h"

namespace {

using support::EnterNetwork;
using support::ErrorText;
using support::OtherHost;
using support::Shell;
using Bytes = std::vector<unsigned char>;

constexpr unsigned long kUnset = 12345;

struct Result {
    BOOL replied;
    unsigned long elapsed = kUnset;
    unsigned char ttl = 0;
};

Result Ping(const char* host, int size = 56, int seconds = 2)
{
    Result result;
    result.replied = Network_PingHost(host, size, seconds, &result.elapsed, &result.ttl);
    return result;
}

/// Sees what comes to a host in its ICMP messages.
class Listener {
public:
    explicit Listener(int family = AF_INET)
        : fd_(socket(family, SOCK_RAW, family == AF_INET ? int{IPPROTO_ICMP} : int{IPPROTO_ICMPV6}))
    {
        const timeval limit = {5, 0};
        EXPECT_EQ(setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
    }
    Listener(const Listener&) = delete;
    ~Listener() { close(fd_); }

    /// The next echo request, without an IP header.
    Bytes Request() const
    {
        for (;;) {
            Bytes datagram(70000);
            const ssize_t size = recv(fd_, datagram.data(), datagram.size(), 0);
            if (size < 0)
                return {};
            datagram.resize(static_cast<size_t>(size));
            if (datagram[0] >> 4 == 4)
                datagram.erase(datagram.begin(), datagram.begin() + 20);
            if (datagram[0] == 8 || datagram[0] == 128)
                return datagram;
        }
    }
    /// Sends a message from an address of this host to another.
    void Send(Bytes message, const char* from, const char* to = "127.0.0.1") const
    {
        const int sender = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        inet_pton(AF_INET, from, &address.sin_addr);
        EXPECT_EQ(bind(sender, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        inet_pton(AF_INET, to, &address.sin_addr);
        EXPECT_GT(
            sendto(sender, message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&address), sizeof address),
            0);
        close(sender);
    }

private:
    int fd_;
};

void SilenceTheSystem()
{
    if (!Shell("echo 1 >/proc/sys/net/ipv4/icmp_echo_ignore_all"))
        support::SkipChild("the system's own replies");
}

TEST(Ping, RefusesNoHost)
{
    support::MarkErrorText();
    EXPECT_FALSE(Network_PingHost(nullptr, 0, 1, nullptr, nullptr));
    EXPECT_EQ(ErrorText(), strerror(EINVAL));
}

TEST(Ping, ReachesThisHost)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        for (const int size : {-5, 0, 1, 56, 1472, 65500, 70000}) {
            const Result v4 = Ping("127.0.0.1", size);
            EXPECT_TRUE(v4.replied) << size << ErrorText();
            EXPECT_LT(v4.elapsed, 1000);
            EXPECT_EQ(v4.ttl, 64);
            const Result v6 = Ping("::1", size);
            EXPECT_TRUE(v6.replied) << size << ErrorText();
            EXPECT_LT(v6.elapsed, 1000);
            EXPECT_EQ(v6.ttl, 0) << "not stored";
        }
        EXPECT_TRUE(Network_PingHost("127.0.0.1", 8, 1, nullptr, nullptr));
    });
}

TEST(Ping, SendsTheHeaderAndThePattern)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        const Listener listener;
        const Listener listener6(AF_INET6);
        unsigned last = 0;
        const struct {
            int asked;
            size_t sent;
        } rows[] = {{-5, 0}, {0, 0}, {27, 27}, {65500, 65500}, {70000, 65500}};
        for (const auto& row : rows) {
            EXPECT_TRUE(Ping("127.0.0.1", row.asked).replied);
            const Bytes request = listener.Request();
            ASSERT_EQ(request.size(), 8 + row.sent);
            EXPECT_EQ(request[0], 8);
            EXPECT_EQ(request[1], 0);
            EXPECT_EQ(request[4] * 256 + request[5], 2);
            const unsigned sequence = request[6] * 256u + request[7];
            EXPECT_EQ(sequence, last + 1);
            last = sequence + 1;
            for (size_t i = 0; i < row.sent; ++i)
                ASSERT_EQ(request[8 + i], 'a' + i % 26);
            EXPECT_TRUE(Ping("::1", row.asked).replied);
            const Bytes request6 = listener6.Request();
            EXPECT_EQ(request6.size(), 8 + row.sent);
            EXPECT_EQ(request6[0], 128);
            EXPECT_EQ(request6[6] * 256u + request6[7], last);
        }
    });
}

TEST(Ping, ReachesAnotherHost)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        const OtherHost other;
        for (const int size : {0, 56, 1473, 65500}) {
            EXPECT_TRUE(Ping("192.0.2.2", size).replied) << size << ErrorText();
            EXPECT_TRUE(Ping("2001:db8::2", size).replied) << size << ErrorText();
        }
        EXPECT_TRUE(Shell("ping -c 1 -W 2 192.0.2.2 && ping -c 1 -W 2 2001:db8::2")) << "so does another program";
        EXPECT_TRUE(other.Run("sysctl -w net.ipv4.ip_default_ttl=7"));
        EXPECT_EQ(Ping("192.0.2.2").ttl, 7);
        EXPECT_TRUE(other.Run("ip link set v1 down"));
        EXPECT_FALSE(Ping("192.0.2.2", 56, 1).replied);
        EXPECT_EQ(ErrorText(), strerror(ETIME));
    });
}

TEST(Ping, EndsInTime)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        SilenceTheSystem();
        for (const int seconds : {0, -1, INT_MIN}) {
            const auto start = std::chrono::steady_clock::now();
            const Result result = Ping("127.0.0.1", 8, seconds);
            EXPECT_FALSE(result.replied);
            EXPECT_EQ(result.elapsed, kUnset);
            EXPECT_EQ(ErrorText(), strerror(ETIME));
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
        }
        // Datagrams that do not match do not prolong the wait.
        std::atomic<bool> isOver = false;
        std::thread noise([&] {
            const Listener listener;
            while (!isOver)
                listener.Send({0, 0, 0xFF, 0xFF, 0, 0, 0, 0}, "127.0.0.1");
        });
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(Ping("127.0.0.1", 8, 1).replied);
        const auto took = std::chrono::steady_clock::now() - start;
        isOver = true;
        noise.join();
        EXPECT_EQ(ErrorText(), strerror(ETIME));
        EXPECT_GE(took, std::chrono::milliseconds(990));
        EXPECT_LT(took, std::chrono::seconds(10));
    });
}

TEST(Ping, TakesNothingButItsReply)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        SilenceTheSystem();
        const Listener listener;
        std::thread host([&] {
            Bytes reply = listener.Request();
            ASSERT_EQ(reply.size(), 16u);
            reply[0] = 0;
            for (size_t i = 0; i < reply.size(); ++i) {
                if (i == 2 || i == 3)
                    continue;
                Bytes wrong = reply;
                wrong[i] ^= 0x10;
                listener.Send(wrong, "127.0.0.1");
            }
            listener.Send(Bytes(reply.begin(), reply.end() - 1), "127.0.0.1");
            listener.Send(reply, "127.0.0.2");
            usleep(300'000);
            listener.Send(reply, "127.0.0.1");
        });
        const Result result = Ping("127.0.0.1", 8, 3);
        host.join();
        EXPECT_TRUE(result.replied) << ErrorText();
        EXPECT_GE(result.elapsed, 299) << "an earlier one has been taken";
        EXPECT_LT(result.elapsed, 3000);
    });
}

TEST(Ping, RunsInManyThreads)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        std::atomic<int> replies = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&, i] {
                for (int j = 0; j < 20; ++j)
                    replies += Ping(i % 2 == 0 ? "127.0.0.1" : "::1", i * 100, 5).replied;
            });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(replies, 160);
    });
}

TEST(Ping, NeedsTheRightToDoIt)
{
    RUN_IN_CHILD([] {
        support::BecomeNobody();
        EXPECT_FALSE(Ping("127.0.0.1", 8, 1).replied);
        EXPECT_EQ(ErrorText(), strerror(EPERM));
        EXPECT_FALSE(Ping("::1", 8, 1).replied);
        EXPECT_EQ(ErrorText(), strerror(EPERM));
    });
}

TEST(Ping, LeavesNoDescriptor)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        const int before = dup(0);
        close(before);
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(Ping("127.0.0.1").replied);
            EXPECT_FALSE(Ping("127.0.0.1", 8, 0).replied);
            EXPECT_TRUE(Ping("::1").replied);
        }
        const int after = dup(0);
        close(after);
        EXPECT_EQ(after, before);
    });
}

struct FamilyRow {
    const char* text;
    bool isIPv6;
    const char* address;
};

TEST(AddressFamily, TellsWhichProtocolReachesAHost)
{
    const FamilyRow rows[] = {
        {"127.0.0.1", false, "127.0.0.1"},
        {"0.0.0.0", false, "0.0.0.0"},
        {"192.0.2.7", false, "192.0.2.7"},
        {"255.255.255.255", false, "255.255.255.255"},
        {"localhost", false, "127.0.0.1"},
        {"::1", true, "::1"},
        {"::", true, "::"},
        {"2001:db8::5", true, "2001:db8::5"},
        {"fe80::1", true, "fe80::1"},
        {"0:0:0:0:1::", true, "0:0:0:0:1::"},
    };
    for (const FamilyRow& row : rows) {
        std::array<unsigned char, 16> address = {};
        int isIPv6 = -1;
        EXPECT_TRUE(Network_IsIPV6Address(row.text, address.data(), &isIPv6)) << row.text << ErrorText();
        EXPECT_EQ(isIPv6, row.isIPv6) << row.text;
        std::array<unsigned char, 16> expected = {};
        EXPECT_EQ(inet_pton(row.isIPv6 ? AF_INET6 : AF_INET, row.address, expected.data()), 1);
        EXPECT_EQ(address, expected) << row.text;
    }
}

TEST(AddressFamily, TakesAddressesThatBeginWithZerosForIPv4)
{
    for (const char* text : {"::2", "0::1:2", "::ffff:192.0.2.1", "::192.0.2.1", "::fffe:1"}) {
        std::array<unsigned char, 16> address = {};
        int isIPv6 = 7;
        support::MarkErrorText();
        EXPECT_FALSE(Network_IsIPV6Address(text, address.data(), &isIPv6)) << text;
        EXPECT_EQ(ErrorText(), strerror(EINVAL));
        EXPECT_EQ(isIPv6, 0);
    }
}

TEST(AddressFamily, ResultsMayBeLeftOut)
{
    int isIPv6 = 7;
    EXPECT_TRUE(Network_IsIPV6Address("2001:db8::5", nullptr, &isIPv6));
    EXPECT_EQ(isIPv6, 1);
    EXPECT_TRUE(Network_IsIPV6Address("127.0.0.1", nullptr, nullptr));
    EXPECT_FALSE(Network_IsIPV6Address(nullptr, nullptr, nullptr));
    EXPECT_EQ(ErrorText(), strerror(EINVAL));
}

} // namespace
