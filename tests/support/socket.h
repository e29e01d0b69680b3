// A socket of the library with its other side.
#pragma once

#include <ZKQ_general/error.h>
#include <ZKQ_general/socket.h>

#include "loopback.h"

namespace support {

/// Owns a socket; what is in it is closed in the end.
class Socket {
public:
    Socket() { Forget(); }
    Socket(Socket&&) = delete;
    ~Socket() { S_Close(&sy_, 1); }

    SOCKET_ZKQ* Get() { return &sy_; }
    SOCKET_ZKQ& operator*() { return sy_; }
    SOCKET_ZKQ* operator->() { return &sy_; }
    int Descriptor() const { return static_cast<int>(sy_.sd); }
    /// Leaves what is in it to somebody else.
    void Forget()
    {
        sy_ = {};
        sy_.sd = INVALID_SOCKET;
    }

private:
    SOCKET_ZKQ sy_;
};

/// The structure is as after a close: zero, and without a socket.
inline void ExpectClosed(const SOCKET_ZKQ& sy)
{
    SOCKET_ZKQ expected;
    memset(&expected, 0, sizeof expected);
    expected.sd = INVALID_SOCKET;
    EXPECT_EQ(memcmp(&sy.sin, &expected.sin, sizeof sy.sin), 0);
    EXPECT_EQ(sy.bindflag, 0);
    EXPECT_EQ(sy.closeflag, 0);
    EXPECT_EQ(sy.sd, expected.sd);
    EXPECT_EQ(sy.s_sd, nullptr);
    EXPECT_EQ(sy.SSL_Mode, 0);
}

/// A connection through the loopback interface.
struct Connection {
    explicit Connection(int family = AF_INET)
    {
        const Listener listener(family);
        EXPECT_TRUE(S_Open(mine.Get(), family, 0, 0)) << NetWork_GetErrorText();
        EXPECT_TRUE(S_Client(mine.Get(), listener.Host(), listener.Port(), 5)) << NetWork_GetErrorText();
        peer = listener.Accept();
    }

    Socket mine;
    Fd peer;
};

} // namespace support
