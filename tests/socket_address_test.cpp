// Addresses: from texts, to texts, and of sockets. Names are those that every machine knows without asking another.
#include <ZKQ_general/socket.h>
#include <limits.h>
#include <netdb.h>
#include <sched.h>

#include <vector>

#include "support/buffer.h"
#include "support/child.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/socket.h"

namespace {

using support::Connection;
using support::Listener;
using support::Socket;

/// The part of a test that looks for a name which nobody knows runs where there is no network to ask.
void EnterNoNetwork()
{
    if (unshare(CLONE_NEWNET) != 0)
        support::SkipChild("unshare");
}

std::string Text6(const unsigned char (&address)[16])
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, address, text, sizeof text);
    return text;
}

TEST(GetServerAddress, OfDottedTexts)
{
    struct Row {
        const char* text;
        uint32_t address;
    };
    const Row rows[] = {{"127.0.0.1", 0x7F000001},
                        {"0.0.0.0", 0},
                        {"255.255.255.255", 0xFFFFFFFF},
                        {"10.1.2.3", 0x0A010203},
                        {"127.1", 0x7F000001},
                        {"0x7f.0.0.1", 0x7F000001},
                        {"1", 1},
                        {"4294967294", 0xFFFFFFFE}};
    for (const Row& row : rows) {
        unsigned long address = ~0UL;
        EXPECT_TRUE(GetServerAddress(row.text, &address)) << row.text;
        EXPECT_EQ(address, htonl(row.address)) << row.text;
    }
}

TEST(GetServerAddress, OfAName)
{
    unsigned long address = 0;
    ASSERT_TRUE(GetServerAddress("localhost", &address));
    EXPECT_EQ(address & htonl(0xFF000000), htonl(0x7F000000));
}

TEST(GetServerAddress, Failures)
{
    unsigned long address = 5;
    for (const char* bad : {static_cast<const char*>(nullptr), "", "::1", "10.0.0.1:81"}) {
        support::MarkErrorText();
        EXPECT_FALSE(GetServerAddress(bad, &address));
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    EXPECT_EQ(address, 5U);
    support::MarkErrorText();
    EXPECT_FALSE(GetServerAddress("127.0.0.1", nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(GetServerAddress, ANameThatNobodyKnows)
{
    RUN_IN_CHILD([] {
        EnterNoNetwork();
        unsigned long address = 0;
        EXPECT_FALSE(GetServerAddress("nobody.invalid", &address));
        EXPECT_SYSTEM_ERROR(EINVAL);
        unsigned char six[16];
        EXPECT_FALSE(GetServerAddress6("nobody.invalid", six));
        EXPECT_TRUE(support::ErrorText() == gai_strerror(EAI_AGAIN) || support::ErrorText() == gai_strerror(EAI_NONAME))
            << support::ErrorText();
        // The whole text is looked up, and no host is called so.
        sockaddr_in addr;
        EXPECT_FALSE(Network_FillSockAddr(&addr, "localhost:81", 80));
        EXPECT_SYSTEM_ERROR(EINVAL);
    });
}

TEST(GetServerAddress6, OfTexts)
{
    struct Row {
        const char* text;
        const char* address;
    };
    const Row rows[] = {{nullptr, "::"},
                        {"", "::"},
                        {"::1", "::1"},
                        {"2001:db8::5", "2001:db8::5"},
                        {"::ffff:1.2.3.4", "::ffff:1.2.3.4"},
                        {"1.2.3.4", "::ffff:1.2.3.4"},
                        {"fe80::1", "fe80::1"}};
    for (const Row& row : rows) {
        unsigned char address[16];
        memset(address, 0xA5, sizeof address);
        EXPECT_TRUE(GetServerAddress6(row.text, address)) << NetWork_GetErrorText();
        EXPECT_EQ(Text6(address), row.address);
    }
    EXPECT_FALSE(GetServerAddress6("::1", nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    unsigned char address[16];
    EXPECT_FALSE(GetServerAddress6("1:2:3", address));
    EXPECT_EQ(support::ErrorText().find("ame or service"), 1U) << support::ErrorText();
}

TEST(FillSockAddr, IPv4)
{
    support::Buffer addr(sizeof(sockaddr_in));
    ASSERT_TRUE(Network_FillSockAddr(addr.Data(), "10.1.2.3", 80));
    EXPECT_TRUE(addr.GuardIntact());
    sockaddr_in expected = {};
    expected.sin_family = AF_INET;
    expected.sin_port = htons(80);
    expected.sin_addr.s_addr = htonl(0x0A010203);
    EXPECT_EQ(memcmp(addr.Data(), &expected, sizeof expected), 0);
    for (const int family : {AF_INET, 0}) {
        support::Buffer same(sizeof(sockaddr_in));
        ASSERT_TRUE(Network_FillSockAddrEx(same.Data(), family, "10.1.2.3", 80));
        EXPECT_EQ(memcmp(same.Data(), &expected, sizeof expected), 0);
        EXPECT_TRUE(same.GuardIntact());
    }
}

TEST(FillSockAddr, ATextWithAPortIsLookedUpWhole)
{
    sockaddr_in addr;
    EXPECT_FALSE(Network_FillSockAddr(&addr, "10.0.0.1:81", 80));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(addr.sin_family, AF_INET);
    EXPECT_EQ(addr.sin_port, htons(81));
    EXPECT_EQ(addr.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_FALSE(Network_FillSockAddr(&addr, "10.0.0.1:0", 80));
    EXPECT_EQ(addr.sin_port, htons(80));
}

TEST(FillSockAddr, BadArguments)
{
    sockaddr_in addr;
    for (const int family : {-1, 0, AF_INET}) {
        const auto fill = [family](void* to, const char* text, int port) {
            support::MarkErrorText();
            return family < 0 ? Network_FillSockAddr(to, text, port) : Network_FillSockAddrEx(to, family, text, port);
        };
        EXPECT_FALSE(fill(nullptr, "10.0.0.1", 80));
        EXPECT_SYSTEM_ERROR(EINVAL);
        for (const int port : {0, -1, INT_MIN}) {
            EXPECT_FALSE(fill(&addr, "10.0.0.1", port));
            EXPECT_SYSTEM_ERROR(EINVAL);
        }
        EXPECT_FALSE(fill(&addr, nullptr, 80));
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_FALSE(fill(&addr, "", 80));
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    EXPECT_FALSE(Network_FillSockAddrEx(nullptr, AF_INET6, "::1", 80));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(FillSockAddrEx, IPv6)
{
    struct Row {
        const char* text;
        const char* address;
        int port;
    };
    const Row rows[] = {{"::1", "::1", 80},
                        {"[::1]", "::1", 80},
                        {"[::1]:8080", "::1", 8080},
                        {"[::1]:0", "::1", 80},
                        {"[::1]:", "::1", 80},
                        {"[::1]:x", "::1", 80},
                        {"[::1]8080", "::1", 80},
                        {"[::1", "::1", 80},
                        {"[", "::", 80},
                        {"[]", "::", 80},
                        {"[]:81", "::", 81},
                        {"", "::", 80},
                        {nullptr, "::", 80},
                        {"1.2.3.4", "::ffff:1.2.3.4", 80},
                        {"[1.2.3.4]:81", "::ffff:1.2.3.4", 81}};
    for (const Row& row : rows)
        for (const int family : {AF_INET6, 99, -1}) {
            SCOPED_TRACE(row.text == nullptr ? "(null)" : row.text);
            support::Buffer addr(sizeof(sockaddr_in6));
            ASSERT_TRUE(Network_FillSockAddrEx(addr.Data(), family, row.text, 80)) << NetWork_GetErrorText();
            EXPECT_TRUE(addr.GuardIntact());
            sockaddr_in6 expected = {};
            expected.sin6_family = AF_INET6;
            expected.sin6_port = htons(static_cast<uint16_t>(row.port));
            inet_pton(AF_INET6, row.address, &expected.sin6_addr);
            EXPECT_EQ(memcmp(addr.Data(), &expected, sizeof expected), 0);
        }
    sockaddr_in6 addr;
    EXPECT_TRUE(Network_FillSockAddrEx(&addr, AF_INET6, "::1", 0));
    EXPECT_EQ(addr.sin6_port, 0);
    const std::string longText = "[" + std::string(2000, '1') + "]:80";
    EXPECT_FALSE(Network_FillSockAddrEx(&addr, AF_INET6, longText.c_str(), 80));
    EXPECT_EQ(support::ErrorText(), gai_strerror(EAI_NONAME));
}

TEST(ParseSockAddr, EachOutputIsOptional)
{
    sockaddr_in four = {};
    four.sin_family = AF_INET;
    four.sin_port = htons(8080);
    four.sin_addr.s_addr = 0xFFFFFFFF;
    support::Buffer text(16);
    int port = 0;
    int family = 0;
    ASSERT_TRUE(Network_ParseSockAddr(&four, text.Data(), &port, &family));
    EXPECT_EQ(text.Text(), "255.255.255.255");
    EXPECT_TRUE(text.GuardIntact());
    EXPECT_EQ(port, 8080);
    EXPECT_EQ(family, AF_INET);
    EXPECT_TRUE(Network_ParseSockAddr(&four, nullptr, nullptr, nullptr));
    sockaddr_in6 six = {};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(65535);
    inet_pton(AF_INET6, "1111:2222:3333:4444:5555:6666:7777:8888", &six.sin6_addr);
    support::Buffer text6(46);
    ASSERT_TRUE(Network_ParseSockAddr(&six, text6.Data(), &port, &family));
    EXPECT_EQ(text6.Text(), "1111:2222:3333:4444:5555:6666:7777:8888");
    EXPECT_TRUE(text6.GuardIntact());
    EXPECT_EQ(port, 65535);
    EXPECT_EQ(family, AF_INET6);
    EXPECT_TRUE(Network_ParseSockAddr(&six, nullptr, nullptr, nullptr));
    const char zero[16] = {};
    ASSERT_TRUE(Network_ParseSockAddr(zero, text.Data(), &port, &family));
    EXPECT_EQ(text.Text(), "0.0.0.0");
    EXPECT_EQ(port, 0);
    EXPECT_EQ(family, 0);
    EXPECT_FALSE(Network_ParseSockAddr(nullptr, text.Data(), &port, &family));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(ParseSockAddr, ReadsNoMoreThanAnAddressHas)
{
    const std::vector<char> four(16, '\x02'); // on the heap, to the byte
    char text[46];
    EXPECT_TRUE(Network_ParseSockAddr(four.data(), text, nullptr, nullptr));
    std::vector<char> six(29, '\0');
    six[1] = AF_INET6; // and not aligned
    EXPECT_TRUE(Network_ParseSockAddr(six.data() + 1, text, nullptr, nullptr));
    EXPECT_STREQ(text, "::");
}

class Ends : public testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        if (!Listener::HasFamily(GetParam()))
            GTEST_SKIP() << "this system has no such addresses";
    }
    const char* Host() const { return GetParam() == AF_INET ? "127.0.0.1" : "::1"; }
    size_t Size() const { return GetParam() == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6); }
};

INSTANTIATE_TEST_SUITE_P(Sockets, Ends, testing::Values(AF_INET, AF_INET6),
                         [](const auto& row) { return row.param == AF_INET ? "IPv4" : "IPv6"; });

TEST_P(Ends, OfAConnection)
{
    Connection connection(GetParam());
    sockaddr_in6 own = {};
    sockaddr_in6 seen = {};
    socklen_t length = sizeof own;
    getsockname(connection.mine.Descriptor(), reinterpret_cast<sockaddr*>(&own), &length);
    support::Buffer info(Size());
    ASSERT_TRUE(S_GetSocketInfo(*connection.mine, info.Data()));
    EXPECT_EQ(memcmp(info.Data(), &own, Size()), 0);
    EXPECT_TRUE(info.GuardIntact());
    length = sizeof seen;
    getpeername(connection.mine.Descriptor(), reinterpret_cast<sockaddr*>(&seen), &length);
    support::Buffer peer(Size());
    ASSERT_TRUE(S_GetPeerInfo(*connection.mine, peer.Data()));
    EXPECT_EQ(memcmp(peer.Data(), &seen, Size()), 0);
    EXPECT_TRUE(peer.GuardIntact());

    char text[46] = "";
    int port = 0;
    ASSERT_TRUE(S_GetLocalInfoEx(connection.mine.Get(), text, &port, nullptr));
    EXPECT_STREQ(text, Host());
    EXPECT_EQ(port, ntohs(own.sin6_port));
    ASSERT_TRUE(S_GetPeerInfoEx(connection.mine.Get(), text, &port, nullptr));
    EXPECT_STREQ(text, Host());
    EXPECT_EQ(port, ntohs(seen.sin6_port));
    EXPECT_TRUE(S_GetPeerInfoEx(connection.mine.Get(), nullptr, nullptr, nullptr));

    const char* const dotted = GetParam() == AF_INET ? "127.0.0.1" : "0.0.0.0";
    support::Buffer ip(16);
    ASSERT_TRUE(S_GetSockHostIP(*connection.mine, ip.Data()));
    EXPECT_EQ(ip.Text(), dotted);
    ASSERT_TRUE(S_GetPeerIP(*connection.mine, ip.Data()));
    EXPECT_EQ(ip.Text(), dotted);
    EXPECT_TRUE(ip.GuardIntact());
}

TEST_P(Ends, OfASocketThatIsNotConnected)
{
    Socket socket;
    ASSERT_TRUE(S_Open(socket.Get(), GetParam(), 0, 0));
    char room[1025];
    int port = 0;
    support::MarkErrorText();
    EXPECT_FALSE(S_GetPeerInfo(*socket, room));
    EXPECT_SYSTEM_ERROR(ENOTCONN);
    EXPECT_FALSE(S_GetPeerIP(*socket, room));
    EXPECT_FALSE(S_GetPeerInfoEx(socket.Get(), room, &port, room));
    EXPECT_SYSTEM_ERROR(ENOTCONN);
}

TEST(Ends, BadArguments)
{
    Connection connection;
    SOCKET_ZKQ* const sy = connection.mine.Get();
    SOCKET_ZKQ none = {};
    none.sd = INVALID_SOCKET;
    char room[1025];
    const auto expectFailure = [](BOOL result, int error) {
        EXPECT_FALSE(result);
        EXPECT_SYSTEM_ERROR(error);
        support::MarkErrorText();
    };
    expectFailure(S_GetSocketInfo(*sy, nullptr), EINVAL);
    expectFailure(S_GetPeerInfo(*sy, nullptr), EINVAL);
    expectFailure(S_GetSockHostIP(*sy, nullptr), EINVAL);
    expectFailure(S_GetPeerIP(*sy, nullptr), EINVAL);
    expectFailure(S_GetSockHost(*sy, nullptr), EINVAL);
    expectFailure(S_GetLocalInfoEx(nullptr, room, nullptr, nullptr), EINVAL);
    expectFailure(S_GetPeerInfoEx(nullptr, room, nullptr, nullptr), EINVAL);
    expectFailure(S_GetHostByAddr(nullptr, room), EINVAL);
    expectFailure(S_GetHostByAddr(&sy->sin, nullptr), EINVAL);
    expectFailure(S_GetSocketInfo(none, room), EBADF);
    expectFailure(S_GetPeerInfo(none, room), EBADF);
    expectFailure(S_GetSockHostIP(none, room), EBADF);
    expectFailure(S_GetSockHost(none, room), EBADF);
    expectFailure(S_GetLocalInfoEx(&none, room, nullptr, room), EBADF);
}

TEST(HostNames, OfTheLoopbackAddress)
{
    Connection connection;
    char expected[1025] = "";
    const sockaddr_storage loopback = Listener::Loopback(AF_INET, 0);
    ASSERT_EQ(getnameinfo(reinterpret_cast<const sockaddr*>(&loopback), sizeof(sockaddr_in), expected, sizeof expected,
                          nullptr, 0, NI_NAMEREQD),
              0);
    support::Buffer name(1025);
    ASSERT_TRUE(S_GetHostByAddr(&loopback, name.Data()));
    EXPECT_EQ(name.Text(), expected);
    EXPECT_TRUE(name.GuardIntact());
    char text[1025] = "";
    ASSERT_TRUE(S_GetSockHost(*connection.mine, text));
    EXPECT_STREQ(text, expected);
    for (auto* const call : {S_GetLocalInfoEx, S_GetPeerInfoEx}) {
        int port = 0;
        char host[46] = "";
        text[0] = '\0';
        ASSERT_TRUE(call(connection.mine.Get(), host, &port, text));
        EXPECT_STREQ(text, expected);
        EXPECT_STREQ(host, "127.0.0.1");
    }
}

TEST(HostNames, OfAnAddressThatNobodyKnows)
{
    RUN_IN_CHILD([] {
        EnterNoNetwork();
        sockaddr_in four = {};
        four.sin_family = AF_INET;
        four.sin_addr.s_addr = htonl(0xC0000205); // one that is kept for examples
        char name[1025] = "";
        support::MarkErrorText();
        EXPECT_FALSE(S_GetHostByAddr(&four, name));
        EXPECT_TRUE(support::ErrorText() == strerror(HOST_NOT_FOUND) || support::ErrorText() == strerror(TRY_AGAIN))
            << support::ErrorText();
        sockaddr_in6 six = {};
        six.sin6_family = AF_INET6;
        inet_pton(AF_INET6, "2001:db8::7", &six.sin6_addr);
        if (S_GetHostByAddr(&six, name)) {
            EXPECT_STREQ(name, "2001:db8::7");
        } else {
            EXPECT_EQ(support::ErrorText(), gai_strerror(EAI_AGAIN));
        }
    });
}

TEST(Addresses, NothingLeaks)
{
    support::ExpectNothingLeaks([] {
        unsigned long four = 0;
        unsigned char six[16];
        EXPECT_TRUE(GetServerAddress("127.0.0.1", &four));
        EXPECT_TRUE(GetServerAddress6("127.0.0.1", six));
    });
}

} // namespace
