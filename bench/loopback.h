// The other sides of the network benchmarks: processes of their own on the loopback interface.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

// A listening socket whose connections are served, one after the other, by a child process that ends with its owner.
class LoopbackServer {
public:
    explicit LoopbackServer(const std::function<void(int)>& serve) : listener_(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(listener_, 64) != 0 ||
            getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            std::perror("loopback");
            std::exit(EXIT_FAILURE);
        }
        port_ = ntohs(address.sin_port);
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;) {
                const int connection = accept(listener_, nullptr, nullptr);
                serve(connection);
                close(connection);
            }
        }
        close(listener_);
    }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    ~LoopbackServer()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }

    int Port() const { return port_; }

private:
    int listener_;
    int port_ = 0;
    pid_t child_ = -1;
};

// Writes so many bytes, over and over the same block; false if the other side is gone.
inline bool WriteBytes(int fd, std::size_t size)
{
    static const std::string block(1 << 20, 'b');
    while (size > 0) {
        const ssize_t count = send(fd, block.data(), std::min(size, block.size()), MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

// Reads so many bytes and drops them.
inline bool DropBytes(int fd, std::size_t size)
{
    static std::string room(1 << 20, '\0');
    while (size > 0) {
        const ssize_t count = read(fd, room.data(), std::min(size, room.size()));
        if (count <= 0) {
            return false;
        }
        size -= static_cast<std::size_t>(count);
    }
    return true;
}
