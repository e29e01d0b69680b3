#include "net_echo.h"

#include <ZKQ_general/error.h>
#include <ZKQ_general/socket.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <semaphore>
#include <string_view>
#include <thread>
#include <utility>

#include "failure.h"
#include "output.h"

namespace {

constexpr size_t kBlock = 65536;
constexpr int kBacklog = 16;
constexpr int kMostAtOnce = 100; // connections
constexpr int kNoLimit = 0;
constexpr int kPatience = 60; // seconds for a peer that takes nothing
constexpr size_t kAddressSize = 46;

/// As the library's HTTP client chooses: IPv4 where the name has such an address.
int FamilyOf(const std::string& host)
{
    unsigned long address = 0;
    const bool is_ipv4 = host.find(':') == std::string::npos && GetServerAddress(host.c_str(), &address);
    return host.empty() || is_ipv4 ? AF_INET : AF_INET6;
}

/// An open socket, closed at the end.
class Socket {
public:
    explicit Socket(const SOCKET_ZKQ& accepted) : sy_(accepted) {}
    explicit Socket(int family)
    {
        if (!S_Open(&sy_, family, SOCK_STREAM, 0))
            throw LibraryFailure("cannot open a socket");
    }
    Socket(Socket&& other) noexcept : sy_(std::exchange(other.sy_, kNone)) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() { S_Close(&sy_, 0); }

    SOCKET_ZKQ* Get() { return &sy_; }
    int Descriptor() const { return static_cast<int>(sy_.sd); }

private:
    static constexpr SOCKET_ZKQ kNone = {{}, 0, 0, INVALID_SOCKET, nullptr, 0};

    SOCKET_ZKQ sy_ = kNone;
};

/// No socket is to take the number of a closed standard stream, and get what is meant for that.
void OccupyStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

std::string Named(const std::string& address, int port)
{
    return address + " port " + std::to_string(port);
}

// Serving

/// The peer's address as it was accepted.
std::string PeerOf(const SOCKET_ZKQ& connection)
{
    constexpr size_t kPointerPlace = 4; // in the address of an IPv6 socket
    const void* address = &connection.sin;
    if (S_IsIPV6(&connection))
        memcpy(&address, reinterpret_cast<const char*>(&connection.sin) + kPointerPlace, sizeof address);
    char text[kAddressSize] = "?";
    int port = 0;
    Network_ParseSockAddr(address, text, &port, nullptr);
    return Named(text, port);
}

/// A line about a connection; several of them are served at once.
void Tell(const std::string& line)
{
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    fprintf(stdout, "%s\n", line.c_str());
    fflush(stdout);
}

void Echo(Socket connection)
{
    const std::string peer = PeerOf(*connection.Get());
    std::string block(kBlock, '\0');
    unsigned long long echoed = 0;
    Tell(peer + ": connected");
    for (;;) {
        auto size = static_cast<long>(block.size());
        if (!S_Receive_Unknow_Data(*connection.Get(), block.data(), &size, kNoLimit))
            break;
        if (!S_SendEx(connection.Get(), block.data(), size, kPatience)) {
            Tell(peer + ": takes nothing");
            break;
        }
        echoed += static_cast<unsigned long long>(size);
    }
    Tell(peer + ": closed, " + std::to_string(echoed) + " bytes sent back");
}

Socket Listen(const ServeOptions& options)
{
    const std::string what = "cannot listen on " + Named(options.host, options.port);
    Socket listener(FamilyOf(options.host));
    if (!S_Bind(listener.Get(), options.host.c_str(), options.port) || !S_Listen(listener.Get(), kBacklog))
        throw LibraryFailure(what);
    return listener;
}

Socket Accept(Socket& listener)
{
    SOCKET_ZKQ accepted;
    if (!S_CanAccept(listener.Get()) || !S_Accept(*listener.Get(), &accepted, 0))
        throw LibraryFailure("cannot accept a connection");
    return Socket(accepted);
}

// Connecting

Socket Connect(const ConnectOptions& options)
{
    const std::string what = "cannot connect to " + Named(options.host, options.port);
    Socket connection(FamilyOf(options.host));
    if (S_Client(connection.Get(), options.host.c_str(), options.port, options.timeout))
        return connection;
    if (ZKQGeneral_GetGeneralErrorInfo() == std::string_view(strerror(0)))
        throw Failure(what, "The server spoke first, which the library takes for a refusal");
    throw LibraryFailure(what);
}

/// Standard input on its way to the peer, as fast as that takes it.
class Outgoing {
public:
    bool WantsInput() const { return !has_ended_ && pending_.empty(); }
    bool WantsPeer() const { return !pending_.empty(); }
    void Read(const Socket& connection)
    {
        pending_.resize(kBlock);
        const ssize_t size = read(STDIN_FILENO, pending_.data(), pending_.size());
        const int reason = errno;
        pending_.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
        if (size < 0 && (reason == EINTR || reason == EAGAIN))
            return;
        if (size < 0)
            throw SystemFailure("cannot read standard input", reason);
        if (size == 0) {
            has_ended_ = true;
            shutdown(connection.Descriptor(), SHUT_WR); // the peer sees the end, and may still answer
        }
    }
    void Send(Socket& connection)
    {
        auto size = static_cast<long>(pending_.size());
        if (!S_Send_Unknow_Data(connection.Get(), pending_.data(), &size))
            throw LibraryFailure("cannot send");
        pending_.erase(0, static_cast<size_t>(size));
    }

private:
    std::string pending_;
    bool has_ended_ = false;
};

/// Passes on what has come; false if the peer has closed the connection in order.
bool Receive(Socket& connection)
{
    std::string block(kBlock, '\0');
    auto size = static_cast<long>(block.size());
    if (!S_Receive_Unknow_Data(*connection.Get(), block.data(), &size, kNoLimit)) {
        const bool is_reset = ZKQGeneral_GetGeneralErrorInfo() == std::string_view(strerror(ECONNRESET));
        if (is_reset || TCP_SocketIsTermination(connection.Get()->sd) != 1)
            throw LibraryFailure("cannot receive");
        return false;
    }
    signal(SIGPIPE, SIG_DFL); // "| head" ends the program, a lost peer does not
    Print({block.data(), static_cast<size_t>(size)});
    FlushOutput();
    Network_init();
    return true;
}

/// Passes bytes on in both directions until the peer closes.
void Exchange(Socket& connection)
{
    Outgoing outgoing;
    for (;;) {
        fd_set readable;
        fd_set writable;
        FD_ZERO(&readable);
        FD_ZERO(&writable);
        FD_SET(connection.Descriptor(), &readable);
        if (outgoing.WantsInput())
            FD_SET(STDIN_FILENO, &readable);
        if (outgoing.WantsPeer())
            FD_SET(connection.Descriptor(), &writable);
        if (S_Select_Server(connection.Descriptor(), &readable, &writable, nullptr) < 0)
            throw LibraryFailure("cannot wait");
        if (FD_ISSET(connection.Descriptor(), &readable) && !Receive(connection))
            return;
        if (FD_ISSET(connection.Descriptor(), &writable))
            outgoing.Send(connection);
        if (outgoing.WantsInput() && FD_ISSET(STDIN_FILENO, &readable))
            outgoing.Read(connection);
    }
}

} // namespace

void ServeEcho(const ServeOptions& options)
{
    static std::counting_semaphore<kMostAtOnce> places(kMostAtOnce);
    Network_init();
    OccupyStandardStreams();
    Socket listener = Listen(options);
    char address[kAddressSize] = "";
    int port = 0;
    if (!S_GetLocalInfoEx(listener.Get(), address, &port, nullptr))
        throw LibraryFailure("cannot tell the port");
    PrintLine("listening on " + Named(address, port));
    FlushOutput();
    for (long served = 0; options.count == 0 || served < options.count; ++served) {
        places.acquire();
        std::thread([connection = Accept(listener)]() mutable {
            Echo(std::move(connection));
            places.release();
        }).detach();
    }
    for (int i = 0; i < kMostAtOnce; ++i) // until all are through
        places.acquire();
}

void ConnectTo(const ConnectOptions& options)
{
    Network_init();
    OccupyStandardStreams();
    Socket connection = Connect(options);
    if (connection.Descriptor() >= FD_SETSIZE)
        throw SystemFailure("cannot wait", EMFILE);
    Exchange(connection);
}
