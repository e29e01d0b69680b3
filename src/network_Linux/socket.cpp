// Opening, connecting, serving and closing of sockets, and waiting for them.
#include <ZKQ_general/socket.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>

#include "../internal/clock.h"
#include "../internal/guards.h"
#include "../internal/log.h"
#include "../internal/socket.h"
#include "messages_gbk.h"

namespace {

constexpr int kGracefulClose = 0;
constexpr int kHardClose = 1;
constexpr int kCloseDescriptorOnly = 2;
constexpr int kLargeBuffer = 0x20000;
constexpr long kLongestTimeout = 0x7FFFFFFF; // seconds; nobody sees the difference
constexpr long kNanosecond = 1'000'000'000;

bool IsPast(const timespec& left)
{
    return left.tv_sec < 0;
}

/// What poll() reports as select() would: an error or a hang-up is something to read, and an error ends waiting to write.
int ReadyOf(short events)
{
    int ready = 0;
    if ((events & (POLLIN | POLLHUP | POLLERR)) != 0)
        ready |= kReadable;
    if ((events & (POLLOUT | POLLERR)) != 0)
        ready |= kWritable;
    return ready;
}

bool SetOption(SOCKET sd, int option, int value)
{
    return setsockopt(Descriptor(sd), SOL_SOCKET, option, &value, sizeof value) == 0;
}

/// The options of every stream socket; 0 or an errno value.
int SetRegularOptions(SOCKET sd)
{
    if (!SetOption(sd, SO_REUSEADDR, 1))
        return errno;
    SetOption(sd, SO_KEEPALIVE, 1);
    return 0;
}

/// Makes the structure one for IPv6 that owns a copy of an address; 0 or an errno value.
int OwnAddress(SOCKET_ZKQ* sy, const sockaddr_in6& address)
{
    auto* const owned = static_cast<sockaddr_in6*>(malloc(sizeof address));
    if (owned == nullptr)
        return ENOMEM;
    *owned = address;
    sy->sin.sin_family = AF_INET6;
    memcpy(&sy->sin.sin_addr, &owned, sizeof(void*));
    return 0; // cppcheck-suppress memleak ; the structure holds the pointer
}

void Clear(SOCKET_ZKQ* sy)
{
    *sy = SOCKET_ZKQ{};
    sy->sd = kNoSocket;
}

/// Ends a function that filled a structure: after an error there is nothing in it.
int KeepOrClose(SOCKET_ZKQ* sy, int error)
{
    if (error != 0)
        S_Close(sy, kHardClose);
    return error;
}

int OpenIPv4(SOCKET_ZKQ* sy, int st)
{
    return st == SOCK_STREAM ? SetRegularOptions(sy->sd) : 0;
}

int OpenIPv6(SOCKET_ZKQ* sy, int st)
{
    sy->sin.sin_family = 0; // until there is an address to own
    if (const int error = OwnAddress(sy, sockaddr_in6{}))
        return error;
    if (const int error = OpenIPv4(sy, st))
        return error;
    if (!SetOption(sy->sd, SO_SNDBUF, kLargeBuffer))
        General_LibraryLog(ZKQ_LOG_WARN, Message::SocketSendBuffer, kSocketLogName);
    if (!SetOption(sy->sd, SO_RCVBUF, kLargeBuffer))
        General_LibraryLog(ZKQ_LOG_WARN, Message::SocketReceiveBuffer, kSocketLogName);
    return 0;
}

int Open(SOCKET_ZKQ* sy, int af, int st, int pro)
{
    sy->sin.sin_family = static_cast<sa_family_t>(af);
    const int sd = socket(af, st, pro);
    if (sd < 0) {
        Clear(sy);
        return errno;
    }
    sy->sd = static_cast<SOCKET>(sd);
    return KeepOrClose(sy, af == AF_INET6 ? OpenIPv6(sy, st) : OpenIPv4(sy, st));
}

/// Copies a caller's address into the structure; 0 or an errno value.
int TakeAddress(SOCKET_ZKQ* sy, const void* pAddr)
{
    sockaddr* const own = AddressOf(sy);
    if (own == nullptr)
        return EINVAL;
    SocketAddress address = {};
    memcpy(&address, pAddr, AddressLength(*sy));
    // Such a family in the structure itself would say that there is an address of its own behind it.
    if (!S_IsIPV6(sy) && address.any.sa_family == AF_INET6)
        return EAFNOSUPPORT;
    memcpy(own, &address, AddressLength(*sy));
    return 0;
}

int BindToOwnAddress(SOCKET_ZKQ* sy)
{
    if (bind(Descriptor(sy->sd), AddressOf(sy), AddressLength(*sy)) != 0)
        return errno;
    sy->bindflag = 1;
    return 0;
}

int Bind(SOCKET_ZKQ* sy, const char* daddr, int port)
{
    const bool isAny = daddr == nullptr || *daddr == '\0';
    if (const int error = FillOwnAddress(sy, isAny && !S_IsIPV6(sy) ? "0.0.0.0" : daddr, port))
        return error;
    return BindToOwnAddress(sy);
}

int Accept(SOCKET listener, SOCKET_ZKQ* NewFd)
{
    SocketAddress peer = {};
    socklen_t length = sizeof peer;
    const int sd = accept(Descriptor(listener), &peer.any, &length);
    if (sd < 0)
        return errno;
    NewFd->sd = static_cast<SOCKET>(sd);
    if (peer.any.sa_family == AF_INET)
        NewFd->sin = peer.v4;
    else if (const int error = OwnAddress(NewFd, peer.v6))
        return error;
    if (const int error = SetNonBlocking(NewFd->sd))
        return error;
    return SetRegularOptions(NewFd->sd);
}

/// select() until a deadline.
int SelectUntil(int iMaxFD, void* pReadFDs, void* pWriteFDs, void* pExcptFDs, Deadline deadline)
{
    if (iMaxFD < -1 || iMaxFD >= FD_SETSIZE) {
        GeneralMisc_SetSystemError(EINVAL);
        return -1;
    }
    const int count = Repeat([&] { // an interrupted call leaves the sets as they were
        return pselect(iMaxFD + 1, static_cast<fd_set*>(pReadFDs), static_cast<fd_set*>(pWriteFDs),
                       static_cast<fd_set*>(pExcptFDs), deadline.Left(), nullptr);
    });
    if (count < 0)
        GetSystemLastErrorText();
    else if (count == 0)
        GeneralMisc_SetSystemError(ETIME);
    return count < 0 ? -1 : count;
}

BOOL IsReady(SOCKET sd, int wanted, int* isReady)
{
    if (isReady == nullptr)
        return Fail(EINVAL);
    const int ready = WaitFor(sd, wanted, -1);
    *isReady = ready > 0 ? 1 : 0;
    if (ready < 0)
        return FailWithErrno();
    if (ready == 0)
        GeneralMisc_SetSystemError(ETIME);
    return TRUE;
}

} // namespace

Deadline::Deadline(long Timeout) : isEndless_(Timeout == 0)
{
    if (Timeout > 0) {
        end_ = MonotonicNow();
        end_.tv_sec += std::min(Timeout, kLongestTimeout);
    }
}

const timespec* Deadline::Left()
{
    if (isEndless_)
        return nullptr;
    if (end_.tv_sec == 0)
        return &left_;
    const timespec now = MonotonicNow();
    left_.tv_sec = end_.tv_sec - now.tv_sec;
    left_.tv_nsec = end_.tv_nsec - now.tv_nsec;
    if (left_.tv_nsec < 0) {
        left_.tv_nsec += kNanosecond;
        --left_.tv_sec;
    }
    if (IsPast(left_))
        left_ = {};
    return &left_;
}

int WaitUntil(SOCKET sd, int wanted, Deadline deadline)
{
    pollfd entry = {Descriptor(sd), 0, 0};
    if (entry.fd < 0) { // poll() would pass over it
        errno = EBADF;
        return -1;
    }
    if ((wanted & kReadable) != 0)
        entry.events |= POLLIN;
    if ((wanted & kWritable) != 0)
        entry.events |= POLLOUT;
    const int count = Repeat([&] { return ppoll(&entry, 1, deadline.Left(), nullptr); });
    if (count <= 0)
        return count;
    if ((entry.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    const int ready = ReadyOf(entry.revents) & wanted;
    return ready != 0 ? ready : wanted; // a hang-up when there is to write: the write will tell
}

int SetNonBlocking(SOCKET sd)
{
    const int flags = fcntl(Descriptor(sd), F_GETFL, 0);
    return flags < 0 || fcntl(Descriptor(sd), F_SETFL, flags | O_NONBLOCK) < 0 ? errno : 0;
}

BOOL ConnectWithin(SOCKET_ZKQ* sy, long Timeout)
{
    const int sd = Descriptor(sy->sd);
    if (connect(sd, AddressOf(sy), AddressLength(*sy)) == 0)
        return TRUE;
    if (errno != EINPROGRESS)
        return FailWithErrno();
    const int ready = WaitFor(sy->sd, kReadable | kWritable, Timeout);
    if (ready < 0)
        return FailWithErrno();
    if (ready == 0)
        return Fail(ETIMEDOUT);
    if (ready == kWritable)
        return TRUE;
    // There is something to read, be it the refusal. That a server may have spoken already makes no difference.
    int error = 0;
    socklen_t length = sizeof error;
    if (ready == kReadable || getsockopt(sd, SOL_SOCKET, SO_ERROR, &error, &length) != 0)
        return Fail(ECONNREFUSED);
    return Fail(error);
}

void Network_init(void)
{
    signal(SIGPIPE, SIG_IGN);
}

char* NetWork_GetErrorText(void)
{
    return ZKQGeneral_GetGeneralErrorInfo();
}

int WSAGetLastError(void)
{
    return errno;
}

BOOL Network_SetSockOpt(int, const void*, int)
{
    return TRUE;
}

BOOL S_Open(SOCKET_ZKQ* sy, int af, int st, int pro)
{
    if (sy == nullptr)
        return Fail(EINVAL);
    Clear(sy);
    return Finish(Open(sy, af == 0 ? AF_INET : af, st == 0 ? SOCK_STREAM : st, pro));
}

BOOL S_Close(SOCKET_ZKQ* sy, int HardClose)
{
    if (sy == nullptr)
        return Fail(EINVAL);
    const ErrnoKeeper keeper;
    if (sy->sd != kNoSocket) {
        if (HardClose == kGracefulClose) {
            shutdown(Descriptor(sy->sd), SHUT_WR);
            shutdown(Descriptor(sy->sd), SHUT_RDWR);
        }
        close(Descriptor(sy->sd));
        if (HardClose == kCloseDescriptorOnly)
            return TRUE;
        if (S_IsIPV6(sy))
            free(OwnedAddress(*sy));
    }
    Clear(sy);
    return TRUE;
}

BOOL S_Client(SOCKET_ZKQ* sy, const char* daddr, int port, long Timeout)
{
    if (!HasSocket(sy))
        return Fail(EINVAL);
    if (const int error = SetNonBlocking(sy->sd))
        return Fail(error);
    if (const int error = FillOwnAddress(sy, daddr, port))
        return FinishAddress(error);
    return ConnectWithin(sy, Timeout);
}

BOOL S_Client_Addr(SOCKET_ZKQ* sy, const void* pAddr, long Timeout)
{
    if (sy == nullptr || pAddr == nullptr)
        return Fail(EINVAL);
    if (const int error = TakeAddress(sy, pAddr))
        return Fail(error);
    return ConnectWithin(sy, Timeout);
}

BOOL S_Bind(SOCKET_ZKQ* sy, const char* daddr, int port)
{
    if (sy == nullptr || sy->bindflag != 0)
        return Fail(EINVAL);
    return FinishAddress(Bind(sy, daddr, port));
}

BOOL S_Bind_Addr(SOCKET_ZKQ* sy, const void* pAddr)
{
    if (sy == nullptr || sy->bindflag != 0 || pAddr == nullptr)
        return Fail(EINVAL);
    const int error = TakeAddress(sy, pAddr);
    return Finish(error != 0 ? error : BindToOwnAddress(sy));
}

BOOL S_Listen(SOCKET_ZKQ* sy, int iConnections)
{
    if (sy == nullptr)
        return Fail(EINVAL);
    return listen(Descriptor(sy->sd), iConnections) == 0 ? TRUE : FailWithErrno();
}

BOOL S_Accept(SOCKET_ZKQ SockFD, SOCKET_ZKQ* NewFd, int)
{
    if (NewFd == nullptr)
        return Fail(EINVAL);
    Clear(NewFd);
    return Finish(KeepOrClose(NewFd, Accept(SockFD.sd, NewFd)));
}

BOOL S_CanAccept(SOCKET_ZKQ* sy)
{
    if (sy == nullptr)
        return Fail(EINVAL);
    return WaitFor(sy->sd, kReadable, 0) > 0 ? TRUE : FailWithErrno();
}

int S_Select(int iMaxFD, void* pReadFDs, void* pWriteFDs, void* pExcptFDs, int iTimeout)
{
    if (iTimeout < 0) {
        GeneralMisc_SetSystemError(EINVAL); // as select() would say
        return -1;
    }
    return SelectUntil(iMaxFD, pReadFDs, pWriteFDs, pExcptFDs, Deadline(iTimeout == 0 ? -1 : iTimeout));
}

int S_Select_Server(int iMaxFD, void* pReadFDs, void* pWriteFDs, void* pExcptFDs)
{
    return SelectUntil(iMaxFD, pReadFDs, pWriteFDs, pExcptFDs, Deadline(0));
}

BOOL S_SocketIsReadible(SOCKET_ZKQ sy, int* bReadible)
{
    return IsReady(sy.sd, kReadable, bReadible);
}

BOOL S_SocketIsWritable(SOCKET_ZKQ sy, int* bWritable)
{
    return IsReady(sy.sd, kWritable, bWritable);
}

BOOL S_IsIPV6(const SOCKET_ZKQ* sy)
{
    return sy != nullptr && sy->sin.sin_family == AF_INET6 ? TRUE : FALSE;
}
