// Addresses: from texts, to texts, of sockets and their peers, and their names.
#include <ZKQ_general/socket.h>
#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <stdlib.h>

#include <algorithm>
#include <string_view>

#include "../internal/guards.h"
#include "../internal/resolver.h"
#include "../internal/socket.h"
#include "../internal/text.h"

namespace {

constexpr int kOriginalDestination = 80; // SO_ORIGINAL_DST of the packet filter
constexpr size_t kHostNameSize = NI_MAXHOST;
constexpr socklen_t kNumericNameSize = INET6_ADDRSTRLEN; // what callers have room for
constexpr int kDecimal = 10;

/// The port behind a ':', `port` if it is 0 or none.
int PortBehind(const char* colon, int port)
{
    const auto number = static_cast<int>(strtol(colon + 1, nullptr, kDecimal));
    return number != 0 ? number : port;
}

/// The port as it goes into an address; larger ones lose their upper bits.
in_port_t NetworkPort(int port)
{
    return htons(static_cast<uint16_t>(port));
}

/// Copies a caller's address, of whichever family it says.
SocketAddress Load(const void* addr)
{
    SocketAddress address = {};
    memcpy(&address.any.sa_family, addr, sizeof address.any.sa_family);
    memcpy(&address, addr, address.any.sa_family == AF_INET6 ? sizeof address.v6 : sizeof address.v4);
    return address;
}

void DottedText(const in_addr& address, char* text)
{
    inet_ntop(AF_INET, &address, text, INET_ADDRSTRLEN);
}

int ParseIPv6(const sockaddr_in6& address, char* daddr)
{
    char text[kNumericNameSize];
    const int error = getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address, text, sizeof text,
                                  nullptr, 0, NI_NUMERICHOST);
    if (error == 0)
        GeneralMisc_OutputString(text, daddr, sizeof text, 1);
    return error;
}

/// The host name of an IPv4 address; 0 or the resolver's error number.
int NameOfIPv4(const in_addr& address, char* name)
{
    MallocPtr<char> room;
    hostent entry = {};
    int resolverError = 0;
    const hostent* const answer = AskResolver(
        &room, &entry, &resolverError, [&](hostent* to, char* buffer, size_t size, hostent** found, int* why) {
            return gethostbyaddr_r(&address, sizeof address, AF_INET, to, buffer, size, found, why);
        });
    if (answer == nullptr)
        return resolverError;
    GeneralMisc_OutputString(answer->h_name, name, kHostNameSize, 1);
    return 0;
}

/// Ends an exported function with the host name of an address.
BOOL GiveName(const SocketAddress& address, char* name)
{
    if (address.any.sa_family != AF_INET6)
        return Finish(NameOfIPv4(address.v4.sin_addr, name));
    return FinishAddress(getnameinfo(&address.any, sizeof address.v6, name, kHostNameSize, nullptr, 0, 0));
}

/// These two fill as much of an address as its socket's family has; 0 or an errno value.
int LocalAddress(const SOCKET_ZKQ& sy, SocketAddress* address)
{
    socklen_t length = AddressLength(sy);
    return getsockname(Descriptor(sy.sd), &address->any, &length) == 0 ? 0 : errno;
}

int PeerAddress(const SOCKET_ZKQ& sy, SocketAddress* address)
{
    socklen_t length = AddressLength(sy);
    if (getsockopt(Descriptor(sy.sd), IPPROTO_IP, kOriginalDestination, address, &length) == 0)
        return 0;
    length = AddressLength(sy);
    return getpeername(Descriptor(sy.sd), &address->any, &length) == 0 ? 0 : errno;
}

using AddressOfSocket = int (*)(const SOCKET_ZKQ& sy, SocketAddress* address);

BOOL GiveAddress(const SOCKET_ZKQ& sy, void* out, AddressOfSocket find)
{
    if (out == nullptr)
        return Fail(EINVAL);
    SocketAddress address = {};
    if (const int error = find(sy, &address))
        return Fail(error);
    memcpy(out, &address, AddressLength(sy));
    return TRUE;
}

BOOL GiveDottedText(const SOCKET_ZKQ& sy, char* text, AddressOfSocket find)
{
    if (text == nullptr)
        return Fail(EINVAL);
    SocketAddress address = {};
    if (const int error = find(sy, &address))
        return Fail(error);
    DottedText(address.v4.sin_addr, text);
    return TRUE;
}

BOOL GiveTexts(const SOCKET_ZKQ* sy, LPTSTR IPName, int* Port, LPTSTR Name, AddressOfSocket find)
{
    if (sy == nullptr)
        return Fail(EINVAL);
    SocketAddress address = {};
    if (const int error = find(*sy, &address))
        return Fail(error);
    if (!Network_ParseSockAddr(&address, IPName, Port, nullptr))
        return FALSE;
    return Name == nullptr ? TRUE : GiveName(address, Name);
}

} // namespace

int ResolveIPv4(const char* host, in_addr* address)
{
    if (host == nullptr || *host == '\0')
        return EINVAL;
    address->s_addr = inet_addr(host);
    if (address->s_addr != INADDR_NONE || std::string_view(host) == "255.255.255.255")
        return 0;
    MallocPtr<char> room;
    hostent entry = {};
    int resolverError = 0;
    const hostent* const answer = AskResolver(&room, &entry, &resolverError,
                                              [&](hostent* to, char* buffer, size_t size, hostent** found, int* why) {
                                                  return gethostbyname_r(host, to, buffer, size, found, why);
                                              });
    if (answer == nullptr || answer->h_addrtype != AF_INET || answer->h_addr_list[0] == nullptr)
        return EINVAL;
    memcpy(address, answer->h_addr_list[0], sizeof *address);
    return 0;
}

int ResolveIPv6(const char* host, in6_addr* address)
{
    if (host == nullptr || *host == '\0')
        host = "::";
    if (inet_pton(AF_INET6, host, address) == 1)
        return 0;
    addrinfo hints = {};
    hints.ai_family = AF_INET6;
    hints.ai_flags = AI_V4MAPPED | AI_ALL;
    addrinfo* answers = nullptr;
    if (const int error = getaddrinfo(host, nullptr, &hints, &answers))
        return error;
    *address = reinterpret_cast<const sockaddr_in6*>(answers->ai_addr)->sin6_addr;
    freeaddrinfo(answers);
    return 0;
}

int FillIPv4(sockaddr_in* address, const char* host, int port)
{
    sockaddr_in filled = {};
    if (const int error = ResolveIPv4(host, &filled.sin_addr))
        return error;
    filled.sin_family = AF_INET;
    filled.sin_port = NetworkPort(port);
    *address = filled;
    return 0;
}

int FillIPv6(sockaddr_in6* address, const char* text, int port)
{
    char host[kHostNameSize] = "";
    if (text != nullptr && *text == '[') {
        const std::string_view inside(text + 1);
        const size_t end = std::min(inside.find(']'), inside.size());
        if (end < inside.size() && inside.substr(end).starts_with("]:"))
            port = PortBehind(inside.data() + end + 1, port);
        TextBuilder builder(host);
        builder.Add(inside.substr(0, end));
        if (builder.WasCut())
            return EAI_NONAME;
        text = host;
    }
    sockaddr_in6 filled = {};
    if (const int error = ResolveIPv6(text, &filled.sin6_addr))
        return error;
    filled.sin6_family = AF_INET6;
    filled.sin6_port = NetworkPort(port);
    *address = filled;
    return 0;
}

int FillOwnAddress(SOCKET_ZKQ* sy, const char* host, int port)
{
    if (!S_IsIPV6(sy))
        return FillIPv4(&sy->sin, host, port);
    sockaddr_in6* const owned = OwnedAddress(*sy);
    return owned == nullptr ? EINVAL : FillIPv6(owned, host, port);
}

BOOL GetServerAddress(LPCTSTR pszServer, unsigned long* NetAddress)
{
    if (NetAddress == nullptr)
        return Fail(EINVAL);
    in_addr address = {};
    if (const int error = ResolveIPv4(pszServer, &address))
        return Fail(error);
    *NetAddress = address.s_addr;
    return TRUE;
}

BOOL GetServerAddress6(LPCTSTR pszServer, unsigned char* NetAddress)
{
    if (NetAddress == nullptr)
        return Fail(EINVAL);
    in6_addr address = {};
    if (const int error = ResolveIPv6(pszServer, &address))
        return FinishAddress(error);
    memcpy(NetAddress, &address, sizeof address);
    return TRUE;
}

BOOL Network_FillSockAddr(void* addr, const char* daddr, int port)
{
    if (addr == nullptr || port <= 0)
        return Fail(EINVAL);
    const char* const colon = daddr == nullptr ? nullptr : strchr(daddr, ':');
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = NetworkPort(colon == nullptr ? port : PortBehind(colon, port));
    const int error = ResolveIPv4(daddr, &address.sin_addr);
    if (error != 0)
        address.sin_addr.s_addr = INADDR_ANY;
    memcpy(addr, &address, sizeof address);
    return Finish(error);
}

BOOL Network_FillSockAddrEx(void* addr, int Family, const char* daddr, int port)
{
    if (Family == AF_UNSPEC || Family == AF_INET)
        return Network_FillSockAddr(addr, daddr, port);
    if (addr == nullptr)
        return Fail(EINVAL);
    sockaddr_in6 address = {};
    if (const int error = FillIPv6(&address, daddr, port))
        return FinishAddress(error);
    memcpy(addr, &address, sizeof address);
    return TRUE;
}

BOOL Network_ParseSockAddr(const void* addr, char* daddr, int* port, int* Family)
{
    if (addr == nullptr)
        return Fail(EINVAL);
    const SocketAddress address = Load(addr);
    if (Family != nullptr)
        *Family = address.any.sa_family;
    if (address.any.sa_family == AF_INET6) {
        if (const int error = daddr == nullptr ? 0 : ParseIPv6(address.v6, daddr))
            return FinishAddress(error);
    } else if (daddr != nullptr) {
        DottedText(address.v4.sin_addr, daddr);
    }
    if (port != nullptr) // it stands in the same place in both
        *port = ntohs(address.v4.sin_port);
    return TRUE;
}

BOOL S_GetPeerInfo(SOCKET_ZKQ SockFD, void* AddrInfo)
{
    return GiveAddress(SockFD, AddrInfo, PeerAddress);
}

BOOL S_GetSocketInfo(SOCKET_ZKQ SockFD, void* pAddr)
{
    return GiveAddress(SockFD, pAddr, LocalAddress);
}

BOOL S_GetHostByAddr(const void* AddrInfo, LPTSTR Name)
{
    if (AddrInfo == nullptr || Name == nullptr)
        return Fail(EINVAL);
    return GiveName(Load(AddrInfo), Name);
}

BOOL S_GetSockHostIP(SOCKET_ZKQ SockFD, LPTSTR IPName)
{
    return GiveDottedText(SockFD, IPName, LocalAddress);
}

BOOL S_GetPeerIP(SOCKET_ZKQ SockFD, LPTSTR IPName)
{
    return GiveDottedText(SockFD, IPName, PeerAddress);
}

BOOL S_GetSockHost(SOCKET_ZKQ SockFD, LPTSTR Name)
{
    if (Name == nullptr)
        return Fail(EINVAL);
    SocketAddress address = {};
    if (const int error = LocalAddress(SockFD, &address))
        return Fail(error);
    return GiveName(address, Name);
}

BOOL S_GetLocalInfoEx(SOCKET_ZKQ* sy, LPTSTR IPName, int* Port, LPTSTR Name)
{
    return GiveTexts(sy, IPName, Port, Name, LocalAddress);
}

BOOL S_GetPeerInfoEx(SOCKET_ZKQ* sy, LPTSTR IPName, int* Port, LPTSTR Name)
{
    return GiveTexts(sy, IPName, Port, Name, PeerAddress);
}
