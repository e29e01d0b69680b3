// What the socket layer's files share, and what families above it use of it without the error text.
#pragma once

#include <ZKQ_general/socket.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include "error.h"

static_assert(sizeof(sockaddr_in) == 16 && sizeof(sockaddr_in6) == 28);
static_assert(offsetof(SOCKET_ZKQ, bindflag) == 16 && offsetof(SOCKET_ZKQ, closeflag) == 20);
static_assert(offsetof(SOCKET_ZKQ, sd) == 24 && offsetof(SOCKET_ZKQ, s_sd) == 32);
static_assert(offsetof(SOCKET_ZKQ, SSL_Mode) == 40 && sizeof(SOCKET_ZKQ) == 48);

inline constexpr SOCKET kNoSocket = INVALID_SOCKET;
/// What the layer's log records are filed under.
inline constexpr char kSocketLogName[] = "network_Linux/socket";

/// For the system a descriptor is signed; no socket is then -1, which it refuses.
inline int Descriptor(SOCKET sd)
{
    return static_cast<int>(sd);
}

// --- Waiting

/// The end of a time-out in seconds: 0 has none, a negative one is past.
class Deadline {
public:
    explicit Deadline(long Timeout);

    /// What is left, not below zero; null if there is no end.
    const timespec* Left();

private:
    bool isEndless_;
    timespec end_ = {};
    timespec left_ = {};
};

inline constexpr int kReadable = 1;
inline constexpr int kWritable = 2;

/// Waits for one of `wanted`, however many signals come. What is ready of it, 0 when time is up, or -1 with errno.
int WaitUntil(SOCKET sd, int wanted, Deadline deadline);
inline int WaitFor(SOCKET sd, int wanted, long Timeout)
{
    return WaitUntil(sd, wanted, Deadline(Timeout));
}

/// Repeats a system call while a signal interrupts it.
template <class Call>
auto Repeat(Call call)
{
    auto result = call();
    while (result < 0 && (errno == EINTR || errno == ECHILD))
        result = call();
    return result;
}

// --- Addresses

/// Room for any address of ours. Callers' addresses come as void* of any alignment.
union SocketAddress {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
    sockaddr_storage storage;
};

/// The IPv6 address that a structure owns, or null.
inline sockaddr_in6* OwnedAddress(const SOCKET_ZKQ& sy)
{
    sockaddr_in6* owned = nullptr;
    memcpy(&owned, &sy.sin.sin_addr, sizeof(void*));
    return owned;
}

inline bool HasSocket(const SOCKET_ZKQ* sy)
{
    return sy != nullptr && sy->sd != kNoSocket;
}

inline socklen_t AddressLength(const SOCKET_ZKQ& sy)
{
    return S_IsIPV6(&sy) ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
}

/// The address in a structure; null if it should own one and does not.
inline sockaddr* AddressOf(SOCKET_ZKQ* sy)
{
    return S_IsIPV6(sy) ? reinterpret_cast<sockaddr*>(OwnedAddress(*sy)) : reinterpret_cast<sockaddr*>(&sy->sin);
}

// These return 0, an errno value, or a number of the resolver's, which is negative.

/// The address of a host.
int ResolveIPv4(const char* host, in_addr* address);
int ResolveIPv6(const char* host, in6_addr* address);
/// An address from a host and a port.
int FillIPv4(sockaddr_in* address, const char* host, int port);
int FillIPv6(sockaddr_in6* address, const char* text, int port);
/// Stores host and port as the address of a structure.
int FillOwnAddress(SOCKET_ZKQ* sy, const char* host, int port);

/// Ends an exported function with what one of those returned.
inline BOOL FinishAddress(int error)
{
    if (error >= 0)
        return Finish(error);
    GeneralMisc_SetErrorString(gai_strerror(error));
    return FALSE;
}

// --- Connecting and transfer, for the families above; these set the error text

/// Makes a socket non-blocking; 0 or an errno value.
int SetNonBlocking(SOCKET sd);
/// Connects to the address in the structure.
BOOL ConnectWithin(SOCKET_ZKQ* sy, long Timeout);
/// Receives exactly `size` bytes in steps of at most `Timeout` seconds. How many came: if fewer, with the error text set.
size_t ReceiveAll(SOCKET sd, char* buffer, size_t size, int Timeout);
