// Sending and receiving, in steps: one wait and one system call that moves bytes. A receive step is meant as "look whether
// the peer has closed, wait, read", and begins with the read: what is there at once costs one system call.
#include <ZKQ_general/socket.h>
#include <errno.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>

#include "../internal/socket.h"
#include "messages_gbk.h"

namespace {

constexpr int kTimeUp = 0; // of the steps: so many bytes, or these two with the error text set
constexpr int kFailed = -1;

long Failed()
{
    GetSystemLastErrorText();
    return kFailed;
}

long TimeUp(int error)
{
    GeneralMisc_SetSystemError(error);
    return kTimeUp;
}

/// What is to be said of a peer that closed before the step began.
long Closed()
{
    GeneralMisc_SetErrorString(Message::SocketClosed);
    return kFailed;
}

/// Waits and reads.
long ReceiveLater(SOCKET sd, char* buffer, size_t size, int Timeout)
{
    const int ready = WaitFor(sd, kReadable, Timeout);
    if (ready < 0)
        return Failed();
    if (ready == 0)
        return TimeUp(ETIME);
    const ssize_t count = read(Descriptor(sd), buffer, size);
    if (count == 0)
        return TimeUp(ECONNRESET);
    return count < 0 ? Failed() : count;
}

/// The receive step. An error that the first look takes off the socket is not the end: what a read says afterwards is. The
/// look leaves its text all the same, that of a time-out if there was nothing yet.
long ReceiveStep(SOCKET sd, char* buffer, size_t size, int Timeout)
{
    const ssize_t count = recv(Descriptor(sd), buffer, size, MSG_DONTWAIT);
    if (count > 0)
        return count;
    if (count == 0)
        return Closed();
    GeneralMisc_SetSystemError(errno == EAGAIN ? ETIME : errno);
    return ReceiveLater(sd, buffer, size, Timeout);
}

/// The same for no bytes, which a receive cannot tell from the end.
long ReceiveNothing(SOCKET sd, char* buffer, int Timeout)
{
    if (TCP_SocketIsTermination(sd) == 1)
        return Closed();
    return ReceiveLater(sd, buffer, 0, Timeout);
}

/// One write that does not wait; a descriptor that is no socket is written to all the same.
ssize_t SendNow(SOCKET sd, const char* buffer, size_t size)
{
    const ssize_t count = send(Descriptor(sd), buffer, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return count < 0 && errno == ENOTSOCK ? write(Descriptor(sd), buffer, size) : count;
}

/// The send step. It waits also where a write would take a few bytes at once: room is what the system calls room.
long SendStep(SOCKET sd, const char* buffer, size_t size, long Timeout)
{
    const int ready = WaitFor(sd, kWritable, Timeout);
    if (ready < 0)
        return Failed();
    if (ready == 0)
        return TimeUp(ETIME);
    const ssize_t count = SendNow(sd, buffer, size);
    if (count < 0)
        return errno == EAGAIN ? 0 : Failed();
    return count;
}

/// Sends all, as long as no step fails, or, if it may give up, none moves nothing. Without giving up there is no need to
/// wait for room before it has run out.
BOOL SendAll(SOCKET sd, const char* buffer, size_t size, int Timeout, bool mayGiveUp)
{
    const ssize_t first = mayGiveUp ? 0 : SendNow(sd, buffer, size);
    if (first < 0 && errno != EAGAIN)
        return FailWithErrno();
    auto sent = static_cast<size_t>(std::max<ssize_t>(first, 0));
    long wait = Timeout;
    while (sent < size) {
        const long count = SendStep(sd, buffer + sent, size - sent, wait);
        if (count < 0 || (count == 0 && mayGiveUp))
            return FALSE;
        if (count == 0 && wait < 0)
            wait = 1; // asking without a pause would not be faster
        sent += static_cast<size_t>(count);
    }
    return TRUE;
}

/// An exported transfer's arguments; `size` bytes are there to be moved.
bool IsTransfer(const void* buffer, long size)
{
    return size > 0 && buffer != nullptr;
}

BOOL SendExactly(SOCKET sd, const char* buffer, long size, int Timeout, bool mayGiveUp)
{
    if (size == 0)
        return TRUE;
    if (!IsTransfer(buffer, size))
        return Fail(EINVAL);
    return SendAll(sd, buffer, static_cast<size_t>(size), Timeout, mayGiveUp);
}

BOOL ReceiveExactly(SOCKET sd, char* buffer, long size, int Timeout)
{
    if (size == 0)
        return TRUE;
    if (!IsTransfer(buffer, size))
        return Fail(EINVAL);
    return ReceiveAll(sd, buffer, static_cast<size_t>(size), Timeout) == static_cast<size_t>(size) ? TRUE : FALSE;
}

} // namespace

size_t ReceiveAll(SOCKET sd, char* buffer, size_t size, int Timeout)
{
    size_t received = 0;
    while (received < size) {
        const long count = ReceiveStep(sd, buffer + received, size - received, Timeout);
        if (count <= 0)
            break;
        received += static_cast<size_t>(count);
    }
    return received;
}

long NetworkMisc_SocketRecvData(SOCKET SockFD, char* pszBuffer, int iBufferSize, int iTimeout)
{
    if (pszBuffer == nullptr || iBufferSize < 0) {
        GeneralMisc_SetSystemError(EINVAL);
        return kFailed;
    }
    if (iBufferSize == 0)
        return ReceiveNothing(SockFD, pszBuffer, iTimeout);
    return ReceiveStep(SockFD, pszBuffer, static_cast<size_t>(iBufferSize), iTimeout);
}

BOOL S_Receive(SOCKET_ZKQ sy, char* buffer, long* size, int iTimeout)
{
    return size == nullptr ? Fail(EINVAL) : ReceiveExactly(sy.sd, buffer, *size, iTimeout);
}

BOOL S_Send(SOCKET_ZKQ sy, const char* buffer, long* size, int iTimeout)
{
    return size == nullptr ? Fail(EINVAL) : SendExactly(sy.sd, buffer, *size, iTimeout, false);
}

BOOL S_ReceiveEx(SOCKET_ZKQ* sy, char* buffer, long size, int iTimeout)
{
    return sy == nullptr ? Fail(EINVAL) : ReceiveExactly(sy->sd, buffer, size, iTimeout);
}

BOOL S_SendEx(SOCKET_ZKQ* sy, const char* buffer, long size, int iTimeout)
{
    return sy == nullptr ? Fail(EINVAL) : SendExactly(sy->sd, buffer, size, iTimeout, true);
}

BOOL S_Receive_Unknow_Data(SOCKET_ZKQ sy, char* buffer, long* size, int iTimeout)
{
    if (size == nullptr || *size < 0)
        return Fail(EINVAL);
    const long count =
        NetworkMisc_SocketRecvData(sy.sd, buffer, static_cast<int>(std::min<long>(*size, INT_MAX)), iTimeout);
    if (count <= 0)
        return FALSE;
    *size = count;
    return TRUE;
}

BOOL S_Send_Unknow_Data(SOCKET_ZKQ* sy, const char* buffer, long* size)
{
    if (sy == nullptr || size == nullptr || *size < 0 || buffer == nullptr)
        return Fail(EINVAL);
    const ssize_t count = write(Descriptor(sy->sd), buffer, static_cast<size_t>(*size));
    if (count < 0 && errno != EAGAIN)
        return FailWithErrno();
    *size = std::max<ssize_t>(count, 0);
    return TRUE;
}

BOOL TCP_SocketIsTermination(unsigned int Socket)
{
    const int ready = WaitFor(Socket, kReadable, -1);
    if (ready < 0) {
        GetSystemLastErrorText();
        return -1;
    }
    if (ready == 0) {
        GeneralMisc_SetSystemError(ETIME);
        return 0;
    }
    char byte = 0;
    const ssize_t count = recv(Descriptor(Socket), &byte, sizeof byte, MSG_PEEK);
    if (count < 0)
        GetSystemLastErrorText();
    return count == 0 ? 1 : 0;
}

BOOL TCP_SocketIsTerminationEx(SOCKET Socket)
{
    return TCP_SocketIsTermination(Socket);
}

BOOL S_SendUDPDatagram(SOCKET_ZKQ* sy, const char* daddr, int port, const char* data, const unsigned long* size)
{
    if (size == nullptr)
        return Fail(EINVAL);
    if (*size == 0)
        return TRUE;
    if (!HasSocket(sy) || daddr == nullptr || data == nullptr)
        return Fail(EINVAL);
    if (const int error = FillOwnAddress(sy, daddr, port))
        return FinishAddress(error);
    // Nobody learns whether it could be sent, as nobody would learn whether it arrived.
    static_cast<void>(Repeat(
        [&] { return sendto(Descriptor(sy->sd), data, *size, MSG_NOSIGNAL, AddressOf(sy), AddressLength(*sy)); }));
    return TRUE;
}

BOOL S_ReceiveUDPDatagram(SOCKET_ZKQ* sy, char* daddr, int* port, char* data, unsigned long* size, int iTimeout)
{
    if (size == nullptr)
        return Fail(EINVAL);
    if (*size == 0)
        return TRUE;
    if (!HasSocket(sy) || data == nullptr)
        return Fail(EINVAL);
    const int ready = WaitFor(sy->sd, kReadable, iTimeout);
    if (ready < 0)
        return FALSE;
    if (ready == 0)
        return Fail(ETIME);
    SocketAddress sender = {};
    socklen_t length = sizeof sender;
    *size = static_cast<unsigned long>(
        Repeat([&] { return recvfrom(Descriptor(sy->sd), data, *size, 0, &sender.any, &length); }));
    return Network_ParseSockAddr(&sender, daddr, port, nullptr);
}
