// ICMP echo over raw sockets.
#include "../internal/ping.h"

#include <ZKQ_general/ping.h>
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "../internal/clock.h"
#include "../internal/guards.h"
#include "../internal/socket.h"

namespace {

constexpr size_t kLargestDatagram = 65535;
constexpr size_t kIPv4HeaderSize = 20;
constexpr size_t kTTLOffset = 8;
constexpr uint16_t kIdentifier = 2;
constexpr int kRawLevel = 255;
constexpr int kIcmpFilter = 1;
constexpr uint32_t kAllButReplies = ~(uint32_t{1} << ICMP_ECHOREPLY);
constexpr size_t kAlphabet = 26;

uint16_t g_Sequence; // of the process's last request

unsigned char PatternAt(size_t i)
{
    return static_cast<unsigned char>('a' + i % kAlphabet);
}

void Store16(unsigned char* to, unsigned value)
{
    to[0] = static_cast<unsigned char>(value >> 8);
    to[1] = static_cast<unsigned char>(value);
}

unsigned Load16(const unsigned char* from)
{
    return static_cast<unsigned>(from[0] << 8 | from[1]);
}

/// The Internet checksum.
unsigned Checksum(const unsigned char* data, size_t size)
{
    constexpr unsigned kMask = 0xFFFF;
    unsigned sum = 0; // of 65508 bytes at most: no overflow
    for (; size > 1; data += 2, size -= 2)
        sum += Load16(data);
    if (size == 1)
        sum += static_cast<unsigned>(*data << 8);
    while (sum > kMask)
        sum = (sum & kMask) + (sum >> 16);
    return ~sum & kMask;
}

bool IsFrom(const SocketAddress& sender, const SocketAddress& target)
{
    if (target.any.sa_family == AF_INET)
        return sender.v4.sin_addr.s_addr == target.v4.sin_addr.s_addr;
    return memcmp(&sender.v6.sin6_addr, &target.v6.sin6_addr, sizeof target.v6.sin6_addr) == 0;
}

/// Whole seconds and the difference of their milliseconds.
unsigned long MillisecondsSince(const timespec& start)
{
    constexpr long kMillisecond = 1'000'000; // in nanoseconds
    const timespec now = MonotonicNow();
    return static_cast<unsigned long>((now.tv_sec - start.tv_sec) * 1000 + now.tv_nsec / kMillisecond -
                                      start.tv_nsec / kMillisecond);
}

/// The socket of one ping.
class PingSocket {
public:
    PingSocket() = default;
    PingSocket(const PingSocket&) = delete;
    PingSocket& operator=(const PingSocket&) = delete;
    ~PingSocket() { S_Close(&sy_, kHardClose); }

    BOOL Open(bool isIPv6)
    {
        const int protocol = isIPv6 ? int{IPPROTO_ICMPV6} : int{IPPROTO_ICMP};
        if (!S_Open(&sy_, isIPv6 ? AF_INET6 : AF_INET, SOCK_RAW, protocol))
            return FALSE;
        if (!isIPv6 && setsockopt(Get(), kRawLevel, kIcmpFilter, &kAllButReplies, sizeof kAllButReplies) != 0)
            GeneralMisc_SetErrorString("WARNING: setsockopt(ICMP_FILTER)");
        return TRUE;
    }
    int Get() const { return Descriptor(sy_.sd); }

private:
    static constexpr int kHardClose = 1;

    SOCKET_ZKQ sy_ = {{}, 0, 0, kNoSocket, nullptr, 0};
};

/// Reads until the reply is there; 0 or an errno value. There is room for any datagram.
int AwaitReply(const PingSocket& socket, const ICMPCONTEXT& echo, const SocketAddress& target, int iTimeOut,
               unsigned char* datagram)
{
    const Deadline deadline(iTimeOut);
    while (iTimeOut > 0) {
        const int ready = WaitUntil(static_cast<SOCKET>(socket.Get()), kReadable, deadline);
        if (ready <= 0)
            return ready == 0 ? ETIME : errno;
        SocketAddress sender = {};
        socklen_t length = sizeof sender;
        const ssize_t size = recvfrom(socket.Get(), datagram, kLargestDatagram, MSG_DONTWAIT, &sender.any, &length);
        if (size < 0 && errno != EINTR && errno != EAGAIN)
            return errno;
        if (size > 0 && IsFrom(sender, target) &&
            IsEchoReply(echo, target.any.sa_family == AF_INET6, datagram, static_cast<size_t>(size)))
            return 0;
    }
    return ETIME;
}

/// Finds a host's address as Network_IsIPV6Address() does.
int Resolve(const char* host, SocketAddress* address)
{
    const std::string_view text(host);
    const bool isIPv4 = text == "127.0.0.1" || text == "0.0.0.0";
    const bool isIPv6 = text == "::1" || text == "::";
    *address = {};
    if (!isIPv4 && ResolveIPv6(host, &address->v6.sin6_addr) == 0) {
        constexpr size_t kZeros = 10; // begin addresses that stand for one of IPv4, be it mapped
        const uint8_t* const bytes = address->v6.sin6_addr.s6_addr;
        const bool isForIPv4 = std::all_of(bytes, bytes + kZeros, [](uint8_t byte) { return byte == 0; });
        if (isIPv6 || !isForIPv4) {
            address->v6.sin6_family = AF_INET6;
            return 0;
        }
    }
    *address = {};
    address->v4.sin_family = AF_INET;
    return ResolveIPv4(host, &address->v4.sin_addr);
}

socklen_t LengthOf(const SocketAddress& address)
{
    return address.any.sa_family == AF_INET6 ? sizeof address.v6 : sizeof address.v4;
}

} // namespace

void MakeEchoRequest(const ICMPCONTEXT& echo, bool isIPv6, unsigned char* request)
{
    const size_t size = kEchoHeaderSize + static_cast<size_t>(echo.Size);
    request[0] = isIPv6 ? ICMP6_ECHO_REQUEST : ICMP_ECHO;
    request[1] = 0;
    Store16(request + 2, 0);
    Store16(request + 4, echo.Id);
    Store16(request + 6, echo.Seq);
    for (size_t i = kEchoHeaderSize; i < size; ++i)
        request[i] = PatternAt(i - kEchoHeaderSize);
    Store16(request + 2, Checksum(request, size));
}

bool IsEchoReply(const ICMPCONTEXT& echo, bool isIPv6, const unsigned char* datagram, size_t size)
{
    const size_t start = isIPv6 ? 0 : kIPv4HeaderSize;
    const auto payload = static_cast<size_t>(echo.Size);
    if (size < start + kEchoHeaderSize + payload)
        return false;
    const unsigned char* const message = datagram + start;
    if (message[0] != (isIPv6 ? ICMP6_ECHO_REPLY : ICMP_ECHOREPLY) || message[1] != 0)
        return false;
    if (Load16(message + 4) != echo.Id || Load16(message + 6) != echo.Seq)
        return false;
    for (size_t i = 0; i < payload; ++i)
        if (message[kEchoHeaderSize + i] != PatternAt(i))
            return false;
    return true;
}

BOOL Network_PingHost(const char* IPAddress, int Size, int iTimeOut, unsigned long* Elapsed, unsigned char* TTL)
{
    if (IPAddress == nullptr)
        return Fail(EINVAL);
    SocketAddress target;
    if (const int error = Resolve(IPAddress, &target))
        return Fail(error);
    const bool isIPv6 = target.any.sa_family == AF_INET6;
    PingSocket socket;
    if (!socket.Open(isIPv6))
        return FALSE;
    const MallocPtr<unsigned char> datagram(static_cast<unsigned char*>(malloc(kLargestDatagram)));
    if (datagram == nullptr)
        return Fail(ENOMEM);
    ICMPCONTEXT echo = {};
    echo.Id = kIdentifier;
    echo.Seq = __atomic_add_fetch(&g_Sequence, 1, __ATOMIC_RELAXED);
    echo.Size = std::clamp(Size, 0, kMaxEchoPayload);
    MakeEchoRequest(echo, isIPv6, datagram.get());
    echo.Tick = MonotonicNow();
    // As with every datagram, nobody learns whether it could be sent.
    Repeat([&] {
        return sendto(socket.Get(), datagram.get(), kEchoHeaderSize + static_cast<size_t>(echo.Size), 0, &target.any,
                      LengthOf(target));
    });
    if (const int error = AwaitReply(socket, echo, target, iTimeOut, datagram.get()))
        return Fail(error);
    if (Elapsed != nullptr)
        *Elapsed = MillisecondsSince(echo.Tick);
    if (TTL != nullptr && !isIPv6)
        *TTL = datagram.get()[kTTLOffset];
    return TRUE;
}

BOOL Network_IsIPV6Address(const char* IPAddress, unsigned char* NetAddress, int* bIPV6)
{
    if (IPAddress == nullptr)
        return Fail(EINVAL);
    SocketAddress address;
    const int error = Resolve(IPAddress, &address);
    const bool isIPv6 = address.any.sa_family == AF_INET6;
    if (bIPV6 != nullptr)
        *bIPV6 = isIPv6 ? 1 : 0; // also of what does not resolve, which was last taken for IPv4
    if (error != 0)
        return Fail(error);
    if (NetAddress != nullptr && isIPv6)
        memcpy(NetAddress, &address.v6.sin6_addr, sizeof address.v6.sin6_addr);
    else if (NetAddress != nullptr)
        memcpy(NetAddress, &address.v4.sin_addr, sizeof address.v4.sin_addr);
    return TRUE;
}
