// The C++ layer's sockets and HTTP requests, over the loopback interface.
#include <ZKQ_general.hpp>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <type_traits>
#include <utility>

#include "support/error_text.h"
#include "support/http_server.h"
#include "support/owner.h"

namespace {

using namespace std::string_literals;
using zkq::Socket;

static_assert(!std::is_copy_constructible_v<Socket> && !std::is_copy_assignable_v<Socket>);
static_assert(std::is_nothrow_move_constructible_v<Socket> && std::is_nothrow_move_assignable_v<Socket>);

// Fails, with the text of ENOENT.
void FailOtherwise()
{
    EXPECT_FALSE(ZKQGeneral_IsFileExist("/no such file"));
    EXPECT_SYSTEM_ERROR(ENOENT);
}

bool IsOpen(SOCKET descriptor)
{
    return fcntl(static_cast<int>(descriptor), F_GETFD) >= 0;
}

class CppSocket : public testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        if (!support::Listener::HasFamily(GetParam()))
            GTEST_SKIP() << "there is no such family here";
    }
    const char* Host() const { return GetParam() == AF_INET ? "127.0.0.1" : "::1"; }
};

TEST_P(CppSocket, MovesAndCloses)
{
    EXPECT_FALSE(Socket());
    auto opened = Socket::Open(GetParam());
    ASSERT_TRUE(opened) << opened.text();
    Socket first = std::move(*opened);
    EXPECT_FALSE(*opened);
    const SOCKET descriptor = first.get()->sd;
    Socket second(std::move(first));
    EXPECT_FALSE(first); // NOLINT: that it is empty is what is tested
    Socket& same = second;
    second = std::move(same);
    EXPECT_EQ(second.get()->sd, descriptor);
    EXPECT_TRUE(IsOpen(descriptor));
    Socket third(second.release());
    EXPECT_FALSE(second);
    EXPECT_EQ(third.get()->sd, descriptor);
    third = *Socket::Open(GetParam());
    EXPECT_TRUE(third);
    const SOCKET other = third.get()->sd;
    EXPECT_TRUE(other == descriptor || !IsOpen(descriptor));
    third.Close();
    EXPECT_FALSE(third);
    EXPECT_FALSE(IsOpen(other));
    third.Close();
}

TEST_P(CppSocket, ConnectsSendsAndReceives)
{
    auto listener = Socket::Listen(Host(), 0, 1, GetParam());
    ASSERT_TRUE(listener) << listener.text();
    const zkq::Address address = *listener->Local();
    EXPECT_EQ(address.host, Host());
    auto client = Socket::Connect(address.host, address.port, 10, GetParam());
    ASSERT_TRUE(client) << client.text();
    auto server = listener->Accept();
    ASSERT_TRUE(server) << server.text();
    EXPECT_EQ(client->Peer()->port, address.port);
    EXPECT_EQ(server->Peer()->port, client->Local()->port);

    EXPECT_TRUE(client->Send("a\0b"s));
    EXPECT_TRUE(client->Send(""));
    EXPECT_EQ(*server->Receive(3), "a\0b"s);
    EXPECT_EQ(*server->Receive(0), "");
    EXPECT_TRUE(server->Send("some"));
    EXPECT_EQ(*client->ReceiveSome(100), "some");
    auto late = client->ReceiveSome(100, -1);
    support::ExpectKeepsReason(late, strerror(ETIME), FailOtherwise);
    EXPECT_EQ(*late, "");
    EXPECT_TRUE(server->Send("cut"));
    server->Close();
    EXPECT_FALSE(client->Receive(4));
}

TEST_P(CppSocket, Datagrams)
{
    Socket one = *Socket::Open(GetParam(), SOCK_DGRAM);
    Socket other = *Socket::Open(GetParam(), SOCK_DGRAM);
    ASSERT_TRUE(one.Bind(Host(), 0));
    ASSERT_TRUE(other.Bind(Host(), 0));
    EXPECT_TRUE(one.SendTo(Host(), other.Local()->port, "gram\0"s));
    const auto datagram = other.ReceiveFrom(100);
    ASSERT_TRUE(datagram) << datagram.text();
    EXPECT_EQ(datagram->data, "gram\0"s);
    EXPECT_EQ(datagram->from.host, Host());
    EXPECT_EQ(datagram->from.port, one.Local()->port);
    auto none = other.ReceiveFrom(100, -1);
    support::ExpectKeepsReason(none, strerror(ETIME), FailOtherwise);
}

TEST_P(CppSocket, Failures)
{
    auto refused = Socket::Connect(Host(), support::ClosedPort(GetParam()), 10, GetParam());
    support::ExpectKeepsReason(refused, strerror(ECONNREFUSED), FailOtherwise);
    Socket taken = *Socket::Listen(Host(), 0, 1, GetParam());
    EXPECT_STREQ(Socket::Listen(Host(), taken.Local()->port, 1, GetParam()).text(), strerror(EADDRINUSE));
}

INSTANTIATE_TEST_SUITE_P(Families, CppSocket, testing::Values(AF_INET, AF_INET6),
                         [](const auto& entry) { return entry.param == AF_INET ? "IPv4"s : "IPv6"s; });

TEST(CppSocketWithoutSocket, IsHarmless)
{
    auto failed = Socket::Open(12345);
    support::ExpectKeepsReason(failed, strerror(EAFNOSUPPORT), FailOtherwise);
    Socket& none = *failed; // what a failed call gives is harmless
    EXPECT_FALSE(none);
    EXPECT_FALSE(none.Send("x"));
    EXPECT_FALSE(none.Receive(1));
    EXPECT_FALSE(none.ReceiveSome(1));
    EXPECT_FALSE(none.ReceiveFrom(1));
    EXPECT_FALSE(none.Accept());
    EXPECT_FALSE(none.Bind("127.0.0.1", 0));
    EXPECT_FALSE(none.Local());
    EXPECT_FALSE(none.Peer());
    EXPECT_EQ(none.release().sd, INVALID_SOCKET);
}

TEST(CppHttp, GetsAndPosts)
{
    const std::string body = "body\0more"s;
    const support::ScriptedServer server({
        support::ScriptedServer::Reply(support::Response(body, support::LengthHeader(body.size()))),
        support::ScriptedServer::Reply(support::Response("", support::LengthHeader(0))),
    });
    const auto got = zkq::HttpGet(server.Url());
    ASSERT_TRUE(got) << got.text();
    EXPECT_EQ(*got, body);
    const auto posted = zkq::HttpPost(server.Url(), std::string_view("posted!", 6), "Content-Type: text/plain");
    ASSERT_TRUE(posted) << posted.text();
    EXPECT_EQ(*posted, "");
    EXPECT_EQ(server.Requests()[0].rfind("GET /x ", 0), 0U);
    EXPECT_EQ(server.Requests()[1].rfind("POST /x ", 0), 0U);
    EXPECT_NE(server.Request().find("Content-Type: text/plain\r\n"), std::string::npos);
    EXPECT_NE(server.Request().find("\r\n\r\nposted"), std::string::npos);
}

TEST(CppHttp, Failures)
{
    const support::ScriptedServer server(support::Response("no", "", "404 Not Found"));
    auto failed = zkq::HttpGet(server.Url(), 10);
    support::ExpectKeepsReason(failed, strerror(EBADMSG), FailOtherwise);
    EXPECT_EQ(*failed, "");
    EXPECT_STREQ(zkq::HttpPost("gopher://host/x", "x").text(), strerror(ENOSYS));
    EXPECT_STREQ(zkq::HttpGet(nullptr).text(), strerror(EINVAL));
}

} // namespace
