// The other side of a socket: bare system calls on the loopback interface, with ports that the system chooses.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace support {

/// Owns a descriptor.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd& operator=(Fd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Fd() { Close(); }

    int Get() const { return fd_; }
    void Close()
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }
    /// Closes so that the other side sees a reset.
    void Reset()
    {
        const linger hard = {1, 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        Close();
    }

private:
    int fd_ = -1;
};

inline bool WaitToRead(int fd, int milliseconds)
{
    pollfd entry = {fd, POLLIN, 0};
    return poll(&entry, 1, milliseconds) == 1;
}

/// Writes all, whatever it takes; false if the other side is gone.
inline bool WriteAll(int fd, const std::string& bytes)
{
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR)
            return false;
        sent += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

/// Reads until so many bytes are there, or the other side closes, or nothing comes for ten seconds.
inline std::string ReadBytes(int fd, size_t size)
{
    std::string bytes(size, '\0');
    size_t received = 0;
    while (received < size && WaitToRead(fd, 10000)) {
        const ssize_t count = read(fd, bytes.data() + received, size - received);
        if (count <= 0)
            break;
        received += static_cast<size_t>(count);
    }
    bytes.resize(received);
    return bytes;
}

/// A listening socket.
class Listener {
public:
    explicit Listener(int family = AF_INET, int backlog = 16) : family_(family), fd_(socket(family, SOCK_STREAM, 0))
    {
        sockaddr_storage address = Loopback(family, 0);
        EXPECT_EQ(bind(fd_.Get(), reinterpret_cast<sockaddr*>(&address), LengthOf(family)), 0) << strerror(errno);
        EXPECT_EQ(listen(fd_.Get(), backlog), 0) << strerror(errno);
        socklen_t length = sizeof address;
        getsockname(fd_.Get(), reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    }

    static bool HasFamily(int family)
    {
        const Fd probe(socket(family, SOCK_STREAM, 0));
        sockaddr_storage address = Loopback(family, 0);
        return probe.Get() >= 0 && bind(probe.Get(), reinterpret_cast<sockaddr*>(&address), LengthOf(family)) == 0;
    }
    static sockaddr_storage Loopback(int family, int port)
    {
        sockaddr_storage address = {};
        address.ss_family = static_cast<sa_family_t>(family);
        if (family == AF_INET) {
            reinterpret_cast<sockaddr_in*>(&address)->sin_port = htons(static_cast<uint16_t>(port));
            reinterpret_cast<sockaddr_in*>(&address)->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        } else {
            reinterpret_cast<sockaddr_in6*>(&address)->sin6_port = htons(static_cast<uint16_t>(port));
            reinterpret_cast<sockaddr_in6*>(&address)->sin6_addr = in6addr_loopback;
        }
        return address;
    }
    static socklen_t LengthOf(int family) { return family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6); }

    int Get() const { return fd_.Get(); }
    int Port() const { return port_; }
    const char* Host() const { return family_ == AF_INET ? "127.0.0.1" : "::1"; }
    /// The next connection; none if nobody comes within ten seconds.
    Fd Accept() const
    {
        return Fd(WaitToRead(fd_.Get(), 10000) ? accept4(fd_.Get(), nullptr, nullptr, SOCK_CLOEXEC) : -1);
    }
    void Close() { fd_.Close(); }

private:
    int family_;
    Fd fd_;
    int port_ = 0;
};

/// A port of the loopback interface at which nobody listens.
inline int ClosedPort(int family = AF_INET)
{
    return Listener(family).Port();
}

class Stopwatch {
public:
    double Seconds() const
    {
        const timespec now = Now();
        return static_cast<double>(now.tv_sec - start_.tv_sec) +
               static_cast<double>(now.tv_nsec - start_.tv_nsec) * 1e-9;
    }

private:
    static timespec Now()
    {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return now;
    }
    timespec start_ = Now();
};

} // namespace support
