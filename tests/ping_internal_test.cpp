// Echo requests and replies as bytes.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "../src/internal/ping.h"

namespace {

using Bytes = std::vector<unsigned char>;

ICMPCONTEXT Echo(int size)
{
    ICMPCONTEXT echo = {};
    echo.Id = 2;
    echo.Seq = 0x1234;
    echo.Size = size;
    return echo;
}

Bytes Request(const ICMPCONTEXT& echo, bool isIPv6)
{
    Bytes request(kEchoHeaderSize + static_cast<size_t>(echo.Size));
    MakeEchoRequest(echo, isIPv6, request.data());
    return request;
}

/// The reply to a request, behind the IP header that comes with it over IPv4.
Bytes Reply(const ICMPCONTEXT& echo, bool isIPv6)
{
    Bytes reply = Request(echo, isIPv6);
    reply[0] = isIPv6 ? 129 : 0;
    if (!isIPv6)
        reply.insert(reply.begin(), 20, 0xFF);
    return reply;
}

/// Looks at a copy of exactly these bytes.
bool IsReply(const ICMPCONTEXT& echo, bool isIPv6, const Bytes& datagram)
{
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[datagram.size()]);
    std::copy(datagram.begin(), datagram.end(), exact.get());
    return IsEchoReply(echo, isIPv6, exact.get(), datagram.size());
}

TEST(EchoRequest, ConsistsOfHeaderAndPattern)
{
    const Bytes request = Request(Echo(30), false);
    EXPECT_EQ(Bytes(request.begin(), request.begin() + 2), (Bytes{8, 0}));
    EXPECT_EQ(Bytes(request.begin() + 4, request.begin() + 8), (Bytes{0, 2, 0x12, 0x34}));
    EXPECT_EQ(std::string(request.begin() + 8, request.end()), "abcdefghijklmnopqrstuvwxyzabcd");
    EXPECT_EQ(Request(Echo(0), true)[0], 128);
}

TEST(EchoRequest, ItsWordsAddUpToOnes)
{
    for (const int size : {0, 1, 2, 25, 26, 27, 1472, 65499, 65500}) {
        const Bytes request = Request(Echo(size), size % 2 == 0);
        uint64_t sum = 0;
        for (size_t i = 0; i < request.size(); ++i)
            sum += i % 2 == 0 ? request[i] * 256u : request[i];
        EXPECT_EQ(sum % 0xFFFF, 0) << size;
    }
}

class EchoReply : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Families, EchoReply, testing::Bool());

TEST_P(EchoReply, MatchesItsRequestAlone)
{
    for (const int size : {0, 1, 56}) {
        const ICMPCONTEXT echo = Echo(size);
        const Bytes reply = Reply(echo, GetParam());
        const size_t start = GetParam() ? 0 : 20;
        EXPECT_TRUE(IsReply(echo, GetParam(), reply));
        for (size_t i = 0; i < reply.size(); ++i) {
            Bytes other = reply;
            other[i] ^= 1;
            // Nobody looks at the IP header, nor at the checksum.
            EXPECT_EQ(IsReply(echo, GetParam(), other), i < start || i == start + 2 || i == start + 3) << i;
        }
    }
}

TEST_P(EchoReply, IsNotReadBeyondWhatCame)
{
    const ICMPCONTEXT echo = Echo(56);
    const Bytes reply = Reply(echo, GetParam());
    for (size_t size = 0; size < reply.size(); ++size)
        EXPECT_FALSE(IsReply(echo, GetParam(), Bytes(reply.begin(), reply.begin() + static_cast<ptrdiff_t>(size))));
}

TEST_P(EchoReply, MayBeLonger)
{
    Bytes reply = Reply(Echo(5), GetParam());
    reply.push_back(0);
    EXPECT_TRUE(IsReply(Echo(5), GetParam(), reply));
}

} // namespace
