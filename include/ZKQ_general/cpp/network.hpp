/**
 * @file network.hpp
 * @brief Owners of sockets, and HTTP requests into strings.
 */
#ifndef ZKQ_GENERAL_CPP_NETWORK_HPP
#define ZKQ_GENERAL_CPP_NETWORK_HPP

#include <ZKQ_general/cpp/basics.hpp>
#include <ZKQ_general/http.h>
#include <ZKQ_general/socket.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace zkq {

/** An end of a connection. */
struct Address {
    std::string host; /**< The numeric address. */
    int port = 0;     /**< The port. */
};

/** A datagram, and where it is from. */
struct Datagram {
    Address from;     /**< The sender. */
    std::string data; /**< Its bytes. */
};

/**
 * A socket; see socket.h, also about time-outs, which are in seconds: 0 waits without limit, a negative one not at all.
 * One thread at a time.
 */
class Socket {
public:
    /** No socket. */
    Socket() noexcept = default;
    /** @brief Takes a socket over. @param socket  The record, from now on closed here. */
    explicit Socket(const SOCKET_ZKQ& socket) noexcept : socket_(socket) {}
    /** @brief Takes over what another owns. @param other  The other; it has no socket then. */
    Socket(Socket&& other) noexcept : socket_(other.release()) {}
    /** @brief Takes over what another owns. @param other  The other; without a socket then, unless this. @return This. */
    Socket& operator=(Socket&& other) noexcept
    {
        SOCKET_ZKQ taken = other.release();
        Close();
        socket_ = taken;
        return *this;
    }
    ~Socket() { Close(); }

    /**
     * @brief Opens a socket; see S_Open().
     * @param family  `AF_INET` or `AF_INET6`.
     * @param type    `SOCK_STREAM` or `SOCK_DGRAM`.
     * @return The socket.
     */
    static Result<Socket> Open(int family = AF_INET, int type = SOCK_STREAM)
    {
        Socket socket;
        if (!S_Open(&socket.socket_, family, type, 0)) {
            Error error = LastError();
            socket.socket_ = None();
            return error;
        }
        return socket;
    }
    /**
     * @brief Connects to a host; see S_Client().
     * @param host     Its name or address.
     * @param port     Port.
     * @param timeout  Seconds.
     * @param family   `AF_INET` or `AF_INET6`.
     * @return The connection.
     */
    static Result<Socket> Connect(const Text& host, int port, long timeout = 20, int family = AF_INET)
    {
        Result<Socket> socket = Open(family);
        if (socket && !S_Client(socket->get(), host.c_str(), port, timeout))
            return LastError();
        return socket;
    }
    /**
     * @brief Waits for connections at an address; see S_Bind() and S_Listen().
     * @param host     The machine's own name or address; empty for all.
     * @param port     Port; 0 lets the system choose.
     * @param backlog  How many may wait to be accepted.
     * @param family   `AF_INET` or `AF_INET6`.
     * @return The listening socket.
     */
    static Result<Socket> Listen(const Text& host, int port, int backlog = SOMAXCONN, int family = AF_INET)
    {
        Result<Socket> socket = Open(family);
        if (socket && !(S_Bind(socket->get(), host.c_str(), port) && S_Listen(socket->get(), backlog)))
            return LastError();
        return socket;
    }

    /** @brief Waits for a connection and accepts it. @return The connection. */
    Result<Socket> Accept()
    {
        Socket connection;
        if (!S_CanAccept(&socket_))
            return LastError();
        if (!S_Accept(socket_, &connection.socket_, 0)) {
            Error error = LastError();
            connection.socket_ = None();
            return error;
        }
        return connection;
    }
    /** @brief Sends all bytes; see S_SendEx(). @param bytes  They. @param timeout  Seconds. @return Success, or why not. */
    Result<> Send(Bytes bytes, int timeout = 20)
    {
        return detail::Done(S_SendEx(&socket_, bytes.view().data(), static_cast<long>(bytes.size()), timeout));
    }
    /** @brief Receives so many bytes; see S_ReceiveEx(). @param size  Bytes. @param timeout  Seconds. @return They. */
    Result<std::string> Receive(std::size_t size, int timeout = 20)
    {
        std::string bytes(size, '\0');
        if (!S_ReceiveEx(&socket_, bytes.data(), static_cast<long>(size), timeout))
            return LastError();
        return bytes;
    }
    /** @brief Receives what there is. @param most  Bytes at most. @param timeout  Seconds. @return One or more bytes. */
    Result<std::string> ReceiveSome(std::size_t most, int timeout = 20)
    {
        std::string bytes(most, '\0');
        long size = static_cast<long>(most);
        if (!S_Receive_Unknow_Data(socket_, bytes.data(), &size, timeout))
            return LastError();
        bytes.resize(static_cast<std::size_t>(size));
        return bytes;
    }
    /** @brief Gives a socket its own address. @param host  Empty: all. @param port  0: any. @return Success, or why not. */
    Result<> Bind(const Text& host, int port) { return detail::Done(S_Bind(&socket_, host.c_str(), port)); }
    /**
     * @brief Sends a datagram; see S_SendUDPDatagram().
     * @param host   Where to.
     * @param port   Port.
     * @param bytes  The datagram.
     * @return Success, or the reason.
     */
    Result<> SendTo(const Text& host, int port, Bytes bytes)
    {
        const unsigned long size = bytes.size();
        return detail::Done(S_SendUDPDatagram(&socket_, host.c_str(), port, bytes.view().data(), &size));
    }
    /** @brief Receives a datagram. @param most  Bytes at most. @param timeout  Seconds. @return The datagram. */
    Result<Datagram> ReceiveFrom(std::size_t most, int timeout = 20)
    {
        Datagram datagram;
        char host[INET6_ADDRSTRLEN] = "";
        unsigned long size = most;
        datagram.data.resize(most);
        if (!S_ReceiveUDPDatagram(&socket_, host, &datagram.from.port, datagram.data.data(), &size, timeout))
            return LastError();
        if (size > most) // the system had an error to tell
            return detail::SystemError(WSAGetLastError());
        datagram.data.resize(size);
        datagram.from.host = host;
        return datagram;
    }
    /** @brief The socket's own address. @return The address. */
    Result<Address> Local() { return AddressBy(&S_GetLocalInfoEx); }
    /** @brief The peer's address. @return The address. */
    Result<Address> Peer() { return AddressBy(&S_GetPeerInfoEx); }

    /** @brief The record for C functions. @return The record, which stays this object's. */
    SOCKET_ZKQ* get() noexcept { return &socket_; }
    /** @brief Whether there is a socket. @return `true` if so. */
    explicit operator bool() const noexcept { return socket_.sd != INVALID_SOCKET; }
    /** @brief Gives the socket up. @return The record, the caller's to be closed. */
    SOCKET_ZKQ release() noexcept { return std::exchange(socket_, None()); }
    /** @brief Closes the socket; see S_Close(). Without one nothing is done. */
    void Close() noexcept
    {
        if (socket_.sd != INVALID_SOCKET)
            S_Close(&socket_, 0);
        socket_ = None();
    }

private:
    static SOCKET_ZKQ None() noexcept
    {
        SOCKET_ZKQ none = SOCKET_ZKQ();
        none.sd = INVALID_SOCKET;
        return none;
    }
    Result<Address> AddressBy(BOOL (*getter)(SOCKET_ZKQ*, char*, int*, char*))
    {
        Address address;
        char host[INET6_ADDRSTRLEN] = "";
        if (!getter(&socket_, host, &address.port, nullptr))
            return LastError();
        address.host = host;
        return address;
    }

    SOCKET_ZKQ socket_ = None();
};

namespace detail {

/**
 * @brief Sends a request.
 * @param url      The URL.
 * @param body     Body of a POST; null for a GET.
 * @param type     A whole header line, or null.
 * @param timeout  Seconds.
 * @return The response.
 */
inline Result<std::string> Request(const Text& url, const char* body, const char* type, int timeout)
{
    char* data = nullptr;
    int length = 0;
    if (!Network_HttpSendReceiveEx(url.c_str(), body, type, nullptr, &data, &length, timeout, 0))
        return LastError();
    std::string response(data == nullptr ? "" : data, static_cast<std::size_t>(data == nullptr ? 0 : length));
    NetWork_FreeBuffer(data);
    return response;
}

} // namespace detail

/** @brief Gets a resource; see http.h. @param url  The URL. @param timeout  Seconds. @return The response's body. */
inline Result<std::string> HttpGet(const Text& url, int timeout = 20)
{
    return detail::Request(url, nullptr, nullptr, timeout);
}

/**
 * @brief Posts a text; see http.h.
 * @param url          The URL.
 * @param body         The text; an empty one makes the request a GET.
 * @param contentType  A whole header line, such as "Content-Type: text/xml"; null for that of a form.
 * @param timeout      Seconds.
 * @return The response's body.
 */
inline Result<std::string> HttpPost(const Text& url, const Text& body, const Text& contentType = nullptr,
                                    int timeout = 20)
{
    return detail::Request(url, body.c_str(), contentType.c_str(), timeout);
}

} // namespace zkq

#endif
