// Sockets, HTTP, ping, network cards, addresses.
#include <ZKQ_general/http.h>
#include <ZKQ_general/ip.h>
#include <ZKQ_general/netcard.h>
#include <ZKQ_general/ping.h>
#include <ZKQ_general/socket.h>
#include <string.h>

#include "strain.h"

namespace strain {
namespace {

/// A socket that is closed at the end.
class Socket {
public:
    Socket() : socket_() { socket_.sd = INVALID_SOCKET; }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() { S_Close(&socket_, 0); }
    SOCKET_ZKQ* Get() { return &socket_; }

private:
    SOCKET_ZKQ socket_;
};

const char* Loopback(int family)
{
    return family == AF_INET6 ? "::1" : "127.0.0.1";
}

int Family(Worker& worker)
{
    return worker.process.site.hasIpv6 && worker.Maybe() ? AF_INET6 : AF_INET;
}

int PortOf(Worker& worker, Socket& socket)
{
    sockaddr_in6 address = {};
    worker.Must(S_GetSocketInfo(*socket.Get(), &address), "S_GetSocketInfo");
    int port = 0;
    worker.Must(Network_ParseSockAddr(&address, nullptr, &port, nullptr), "Network_ParseSockAddr");
    return port;
}

void Listen(Worker& worker, Socket& listener, int family)
{
    worker.Must(S_Open(listener.Get(), family, SOCK_STREAM, 0), "S_Open");
    worker.Must(S_Bind(listener.Get(), Loopback(family), 0), "S_Bind");
    worker.Must(S_Listen(listener.Get(), 5), "S_Listen");
}

/// Sends bytes and looks whether they arrive. They are few enough to wait in the system.
void Pass(Worker& worker, Socket& from, Socket& to)
{
    const std::string content = worker.Bytes(1 + worker.Below(20000));
    const Exact bytes(content);
    worker.Must(S_SendEx(from.Get(), bytes.Text(), bytes.Size(), kPatience), "S_SendEx");
    const Exact room(content.size());
    worker.Must(S_ReceiveEx(to.Get(), room.Text(), room.Size(), kPatience), "S_ReceiveEx");
    worker.Right(room.String(content.size()) == content, "what has arrived");
}

void Connection(Worker& worker)
{
    const int family = Family(worker);
    Socket listener;
    Listen(worker, listener, family);
    Socket client;
    worker.Must(S_Open(client.Get(), family, SOCK_STREAM, 0), "S_Open");
    worker.Must(S_Client(client.Get(), Loopback(family), PortOf(worker, listener), kPatience), "S_Client");
    worker.Must(S_CanAccept(listener.Get()), "S_CanAccept");
    Socket server;
    worker.Must(S_Accept(*listener.Get(), server.Get(), 0), "S_Accept");
    Pass(worker, client, server);
    Pass(worker, server, client);
    worker.Right(S_IsIPV6(client.Get()) == (family == AF_INET6), "S_IsIPV6");
    int isReadible = -1;
    worker.Must(S_SocketIsReadible(*client.Get(), &isReadible), "S_SocketIsReadible");
    worker.Right(isReadible == 0, "nothing is left to read");
    worker.Must(S_Close(server.Get(), 0), "S_Close");
    worker.RightUnlessFault(TCP_SocketIsTermination(client.Get()->sd) == 1, "the peer has closed");
}

void Datagram(Worker& worker)
{
    const int family = Family(worker);
    Socket receiver;
    worker.Must(S_Open(receiver.Get(), family, SOCK_DGRAM, 0), "S_Open");
    worker.Must(S_Bind(receiver.Get(), Loopback(family), 0), "S_Bind");
    Socket sender;
    worker.Must(S_Open(sender.Get(), family, SOCK_DGRAM, 0), "S_Open");
    const std::string content = worker.Bytes(1 + worker.Below(1000));
    const Exact bytes(content);
    unsigned long size = content.size();
    worker.Must(S_SendUDPDatagram(sender.Get(), Loopback(family), PortOf(worker, receiver), bytes.Text(), &size),
                "S_SendUDPDatagram");
    const Exact room(2000);
    char from[46] = "";
    size = 2000;
    const int patience = worker.Faults() > 0 ? 1 : kPatience; // one that was not sent is not told
    worker.Must(S_ReceiveUDPDatagram(receiver.Get(), from, nullptr, room.Text(), &size, patience),
                "S_ReceiveUDPDatagram");
    worker.RightUnlessFault(size == content.size(), "the length of the datagram");
    if (size == content.size())
        worker.Right(room.String(size) == content, "the datagram");
    worker.RightUnlessFault(strcmp(from, Loopback(family)) == 0, "where the datagram comes from");
}

void Addresses(Worker& worker)
{
    sockaddr_in6 address = {};
    worker.Must(Network_FillSockAddrEx(&address, AF_INET6, "[2001:db8::7]:99", 5), "Network_FillSockAddrEx");
    char text[46] = "";
    int port = 0;
    int family = 0;
    worker.Must(Network_ParseSockAddr(&address, text, &port, &family), "Network_ParseSockAddr");
    worker.Right(strcmp(text, "2001:db8::7") == 0 && port == 99 && family == AF_INET6, "an address taken apart");
    unsigned long number = 0;
    worker.Must(GetServerAddress("127.0.0.1", &number), "GetServerAddress");
    worker.Right(number == htonl(INADDR_LOOPBACK), "the loopback address");
    int isIpv6 = -1;
    unsigned char bytes[16];
    worker.Must(Network_IsIPV6Address("2001:db8::7", bytes, &isIpv6), "Network_IsIPV6Address");
    worker.RightUnlessFault(isIpv6 == 1 && bytes[15] == 7, "an IPv6 address");
}

std::string Url(const Worker& worker, const std::string& path)
{
    return "http://127.0.0.1:" + std::to_string(worker.process.httpPort) + path;
}

/// What the server answers for a path of this number.
std::string Body(size_t size)
{
    std::string body(size, '\0');
    for (size_t i = 0; i < size; ++i)
        body[i] = static_cast<char>('a' + (i * 7 + size) % 26);
    return body;
}

void HttpToMemory(Worker& worker)
{
    constexpr const char* kForms[] = {"/length/", "/chunks/", "/close/"};
    const size_t size = 1 + worker.Below(30000);
    const std::string form = kForms[worker.Below(3)];
    const std::string url = Url(worker, form + std::to_string(size));
    char* data = nullptr;
    int length = -1;
    const BOOL received =
        Network_HttpSendReceiveEx(url.c_str(), nullptr, nullptr, nullptr, &data, &length, kPatience, 0);
    const std::unique_ptr<char, void (*)(char*)> owned(data, NetWork_FreeBuffer);
    worker.Must(received, "HttpSendReceiveEx");
    const bool isWhole = length == static_cast<int>(size) && Body(size) == data;
    if (form == "/close/")
        worker.RightUnlessFault(isWhole, "a body that ends with the connection, for whichever reason that ends");
    else
        worker.Right(isWhole, "the body");
}

void HttpToFile(Worker& worker)
{
    const size_t size = 1 + worker.Below(30000);
    const std::string file = worker.File("response");
    worker.Must(Network_SendHttpRequest(Url(worker, "/length/" + std::to_string(size)).c_str(), nullptr, file.c_str()),
                "SendHttpRequest");
    worker.Right(ReadWhole(file) == Body(size), "the body in the file");
}

void HttpEcho(Worker& worker)
{
    const std::string form = worker.Word(1 + worker.Below(5000));
    char* data = nullptr;
    const BOOL received =
        Network_HttpSendReceive(Url(worker, "/echo").c_str(), form.c_str(), nullptr, &data, kPatience);
    const std::unique_ptr<char, void (*)(char*)> owned(data, NetWork_FreeBuffer);
    worker.Must(received, "HttpSendReceive");
    worker.Right(data != nullptr && form == data, "what the server sends back");
}

void Urls(Worker& worker)
{
    const std::string host = worker.Word(1 + worker.Below(50));
    const std::string object = "/" + worker.Word(worker.Below(50));
    NETWORK_URL_EX url = {};
    worker.Must(Network_SplideURL_Ex(("http://" + host + ":81" + object).c_str(), &url), "SplideURL_Ex");
    const Holder release([&] { Network_FreeURLEx(&url); });
    worker.Right(host == url.ServerName && object == url.Object && url.Port == 81, "the parts of a URL");
}

void Ping(Worker& worker)
{
    if (!worker.process.site.mayPing)
        return;
    unsigned long elapsed = 0;
    // A request that a fault has kept from being sent is not told, and would be waited for.
    const int patience = worker.InjectsFaults() ? 5 : kPatience;
    worker.Must(Network_PingHost("127.0.0.1", static_cast<int>(worker.Below(1000)), patience, &elapsed, nullptr),
                "PingHost");
}

void Cards(Worker& worker)
{
    NETCARDINFO cards[64];
    int count = -1;
    worker.Must(Network_GetNetCardInfo(nullptr, &count), "GetNetCardInfo, their number");
    if (count > 32)
        return;
    worker.Must(Network_GetNetCardInfo(cards, &count), "GetNetCardInfo");
    for (int i = 0; i < count; ++i) {
        char address[15];
        worker.Must(Network_GetMACAddress(i, address), "GetMACAddress");
    }
    worker.Must(Network_GetBridgeInfo(nullptr, &count), "GetBridgeInfo, their number");
    char name[16];
    worker.Must(Network_GetDevName(0, name), "GetDevName");
    if (!worker.process.site.hasCard)
        return;
    char ip[16];
    worker.Must(Network_GetInfo_if("lo", ip, nullptr, nullptr, nullptr), "GetInfo_if");
    worker.Right(strcmp(ip, "127.0.0.1") == 0, "the address of lo");
}

void Routes(Worker& worker)
{
    if (!worker.process.site.hasCard)
        return;
    const std::lock_guard lock(worker.process.routes);
    char ip[46] = "";
    worker.Must(Network_GetIPAddress("lo", AF_INET, ip, 0), "GetIPAddress");
    worker.Right(strcmp(ip, "127.0.0.1") == 0, "the first address of lo");
    worker.Right(!Network_GetIPAddress("no-such-card", AF_INET, ip, 0), "no such interface");
}

} // namespace

void AddNetwork(Operations& operations)
{
    operations.insert(operations.end(), {{"socket", "connection", Connection, 4},
                                         {"socket", "datagram", Datagram, 3},
                                         {"socket", "addresses", Addresses, 3},
                                         {"http", "into memory", HttpToMemory, 3},
                                         {"http", "into a file", HttpToFile, 3},
                                         {"http", "echo", HttpEcho, 3},
                                         {"http", "URLs", Urls, 3},
                                         {"ping", "loopback", Ping, 2},
                                         {"netcard", "reading", Cards, 2},
                                         {"ip", "reading", Routes, 2}});
}

} // namespace strain
