/**
 * @file socket.h
 * @brief Sockets over IPv4 and IPv6: connections and datagrams with time-outs, serving, addresses and names.
 *
 * Unless a function says otherwise it returns `TRUE`, or `FALSE` with the reason as error text: that of the failed system
 * call, the resolver's own message, or the text of one of these errno values: `EINVAL` (22) for bad arguments, `ETIME`
 * (62) for every time-out but a connect's, `ECONNRESET` (104) when the peer closes during a receive, `ETIMEDOUT` (110)
 * and `ECONNREFUSED` (111) for a connect.
 *
 * Time-outs are whole seconds: 0 waits without limit, a negative one does not wait at all. Signals do not prolong a wait.
 * Descriptors may have any number.
 *
 * Addresses that pass as `void*` are a `sockaddr_in` (16 bytes) or, for IPv6, a `sockaddr_in6` (28 bytes).
 *
 * One `SOCKET_ZKQ` must not be used by two threads at once.
 */
#ifndef ZKQ_GENERAL_SOCKET_H
#define ZKQ_GENERAL_SOCKET_H

#include <ZKQ_general/types.h>
#include <netinet/in.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned int SOCKET; /**< A descriptor. */

/** The value of a `SOCKET` that is none. */
#define INVALID_SOCKET (~0U)

/** A socket. S_Open() or S_Accept() fill it, S_Close() ends it; in between only this family writes to it. */
typedef struct {
    struct sockaddr_in
        sin;       /**< its address; for IPv6 the family alone, and in bytes 4 to 11 a pointer to a `sockaddr_in6`
                                 that belongs to this structure */
    int bindflag;  /**< 1 after a successful bind */
    int closeflag; /**< not used */
    SOCKET sd;     /**< the descriptor, INVALID_SOCKET when closed */
    void* s_sd;    /**< reserved for a secured channel */
    int SSL_Mode;  /**< reserved for a secured channel */
} SOCKET_ZKQ;

/**
 * @brief Ignores `SIGPIPE` in this process, so that a write to a closed peer fails instead of ending it.
 *
 * The library calls it when it is loaded. A program that sets the signal's action afterwards calls it again before it
 * uses this family.
 */
ZKQ_API void Network_init(void);

/**
 * @brief Returns the text of the last failure, as ZKQGeneral_GetGeneralErrorInfo() does.
 * @return The text itself, neither to be freed nor written.
 */
ZKQ_API char* NetWork_GetErrorText(void);

/**
 * @brief Returns `errno`.
 * @return The number that the calling thread's last failed system call has left.
 */
ZKQ_API int WSAGetLastError(void);

/**
 * @brief Does nothing.
 * @param index  Not used.
 * @param Value  Not used.
 * @param size   Not used.
 * @return `TRUE`.
 */
ZKQ_API BOOL Network_SetSockOpt(int index, const void* Value, int size);

/**
 * @brief Opens a socket.
 *
 * A stream socket may reuse its address at once and probes idle peers (`SO_REUSEADDR`, `SO_KEEPALIVE`). One for IPv6 gets
 * buffers of 128 KB; if the system refuses them, that is a warning in the library's own log and no failure.
 *
 * @param sy   Receives the socket; what was in it is not looked at.
 * @param af   Address family; 0 means `AF_INET`.
 * @param st   Kind of socket; 0 means `SOCK_STREAM`.
 * @param pro  Protocol; 0 for the usual one.
 * @return `FALSE` with the system's error; `*sy` then holds no socket and nothing to close.
 */
ZKQ_API BOOL S_Open(SOCKET_ZKQ* sy, int af, int st, int pro);

/**
 * @brief Closes a socket and leaves the structure zero, without a socket.
 * @param sy         The socket; without one the structure is zeroed only.
 * @param HardClose  0 shuts the connection down first, so that processes which share the socket see its end, too. 2
 *                   closes the descriptor and leaves the structure as it is, for when another structure has the IPv6
 *                   address. Anything else closes only.
 * @return `TRUE`; `FALSE` with `EINVAL` for a null pointer.
 */
ZKQ_API BOOL S_Close(SOCKET_ZKQ* sy, int HardClose);

/**
 * @brief Connects a socket to a host. The socket does not block from then on.
 * @param sy       An open socket.
 * @param daddr    Host name or numeric address; for IPv6 also in brackets, with a port behind them that replaces `port`.
 * @param port     Port.
 * @param Timeout  Seconds, for the connection; looking up a name takes its own time.
 * @return `FALSE` with `EINVAL` also for a host that is not found over IPv4, `ETIMEDOUT`, `ECONNREFUSED`, or the system's
 *         or the resolver's error. A connection on which the server has already spoken when it is seen to stand counts as
 *         refused, with the text for 0.
 */
ZKQ_API BOOL S_Client(SOCKET_ZKQ* sy, const char* daddr, int port, long Timeout);

/**
 * @brief Connects a socket to an address. Whether the socket blocks is not changed.
 * @param sy       An open socket. One that blocks waits as long as the system does, whatever `Timeout` says.
 * @param pAddr    The address, of the socket's family.
 * @param Timeout  Seconds.
 * @return As S_Client().
 */
ZKQ_API BOOL S_Client_Addr(SOCKET_ZKQ* sy, const void* pAddr, long Timeout);

/**
 * @brief Receives what there is, once.
 * @param SockFD       The descriptor.
 * @param pszBuffer    Receives the bytes.
 * @param iBufferSize  Room in bytes.
 * @param iTimeout     Seconds to wait for the first byte.
 * @return The number of bytes; 0 with `ETIME`, or with `ECONNRESET` if the peer closed while this waited; -1 with
 *         the library's own text for a closed socket (in Chinese, GBK) if it had closed before, or with the system's
 *         error.
 */
ZKQ_API long NetworkMisc_SocketRecvData(SOCKET SockFD, char* pszBuffer, int iBufferSize, int iTimeout);

/**
 * @brief Receives exactly so many bytes.
 * @param sy        The socket.
 * @param buffer    Receives the bytes; on failure those that arrived.
 * @param size      Their number; 0 succeeds at once. Not changed by a failure.
 * @param iTimeout  Seconds to wait for each piece as it comes, not for all.
 * @return `FALSE` with an error of NetworkMisc_SocketRecvData().
 */
ZKQ_API BOOL S_Receive(SOCKET_ZKQ sy, char* buffer, long* size, int iTimeout);

/**
 * @brief Sends all bytes, however long the peer takes: this never gives up while the connection stands.
 *
 * S_SendEx() is for those who want to give up.
 *
 * @param sy        The socket.
 * @param buffer    The bytes.
 * @param size      Their number; 0 succeeds at once. Not changed by a failure.
 * @param iTimeout  Seconds after which the error text becomes that of `ETIME` while the call goes on.
 * @return `FALSE` with `EINVAL` or the system's error.
 */
ZKQ_API BOOL S_Send(SOCKET_ZKQ sy, const char* buffer, long* size, int iTimeout);

/**
 * @brief Receives exactly so many bytes.
 * @param sy        The socket.
 * @param buffer    Receives the bytes; on failure those that arrived.
 * @param size      Their number; 0 succeeds at once.
 * @param iTimeout  Seconds to wait for each piece as it comes.
 * @return `FALSE` with an error of NetworkMisc_SocketRecvData().
 */
ZKQ_API BOOL S_ReceiveEx(SOCKET_ZKQ* sy, char* buffer, long size, int iTimeout);

/**
 * @brief Sends all bytes, or fails when the peer takes none for a time.
 * @param sy        The socket.
 * @param buffer    The bytes.
 * @param size      Their number; 0 succeeds at once.
 * @param iTimeout  Seconds to wait for room for each piece.
 * @return `FALSE` with `EINVAL`, `ETIME` or the system's error; how much was sent is not told.
 */
ZKQ_API BOOL S_SendEx(SOCKET_ZKQ* sy, const char* buffer, long size, int iTimeout);

/**
 * @brief Receives what there is, once.
 * @param sy        The socket.
 * @param buffer    Receives the bytes.
 * @param size      On entry the room in bytes; receives their number, on success only.
 * @param iTimeout  Seconds to wait for the first byte.
 * @return `FALSE` with an error of NetworkMisc_SocketRecvData().
 */
ZKQ_API BOOL S_Receive_Unknow_Data(SOCKET_ZKQ sy, char* buffer, long* size, int iTimeout);

/**
 * @brief Sends what can be sent with one write, without waiting first.
 * @param sy      The socket.
 * @param buffer  The bytes.
 * @param size    On entry their number; receives how many were sent, 0 if there was no room.
 * @return `FALSE` with `EINVAL` or the system's error.
 */
ZKQ_API BOOL S_Send_Unknow_Data(SOCKET_ZKQ* sy, const char* buffer, long* size);

/**
 * @brief Tells whether the peer has closed the connection and everything from it has been read.
 * @param Socket  The descriptor.
 * @return 1 if so; 0 if there is something to read, if there is nothing yet (with `ETIME`), or with the system's error if
 *         it cannot be read; -1 with the system's error for no descriptor.
 */
ZKQ_API BOOL TCP_SocketIsTermination(unsigned int Socket);

/**
 * @brief Does the same as TCP_SocketIsTermination().
 * @param Socket  The descriptor.
 * @return As there.
 */
ZKQ_API BOOL TCP_SocketIsTerminationEx(SOCKET Socket);

/**
 * @brief Sends a datagram.
 * @param sy     An open datagram socket.
 * @param daddr  Where to: host name or numeric address, as for S_Client().
 * @param port   Port.
 * @param data   The bytes.
 * @param size   Their number; 0 sends nothing and succeeds. Not changed.
 * @return `FALSE` with `EINVAL` or the resolver's error. `TRUE` does not mean that the system took the datagram.
 */
ZKQ_API BOOL S_SendUDPDatagram(SOCKET_ZKQ* sy, const char* daddr, int port, const char* data,
                               const unsigned long* size);

/**
 * @brief Receives a datagram.
 * @param sy        An open datagram socket.
 * @param daddr     Receives the sender's address as text, 46 bytes; may be null.
 * @param port      Receives the sender's port; may be null.
 * @param data      Receives the bytes; what does not fit is lost.
 * @param size      On entry the room, 0 succeeds at once; receives the number of bytes, or -1 as an unsigned number if the
 *                  system had an error to tell, such as a refusal of something sent before; the address is then zero.
 * @param iTimeout  Seconds.
 * @return `FALSE` with `EINVAL`, `ETIME`, or without a text of its own if waiting failed.
 */
ZKQ_API BOOL S_ReceiveUDPDatagram(SOCKET_ZKQ* sy, char* daddr, int* port, char* data, unsigned long* size,
                                  int iTimeout);

/**
 * @brief Gives a socket its own address, once.
 * @param sy     An open socket.
 * @param daddr  Host name or numeric address; null or empty for every address of this machine.
 * @param port   Port; 0 lets the system choose.
 * @return `FALSE` with `EINVAL` also for a socket that is bound already, or the system's or the resolver's error.
 */
ZKQ_API BOOL S_Bind(SOCKET_ZKQ* sy, const char* daddr, int port);

/**
 * @brief Gives a socket its own address, once.
 * @param sy     An open socket.
 * @param pAddr  The address, of the socket's family.
 * @return As S_Bind().
 */
ZKQ_API BOOL S_Bind_Addr(SOCKET_ZKQ* sy, const void* pAddr);

/**
 * @brief Lets a bound stream socket wait for connections.
 * @param sy            The socket.
 * @param iConnections  How many may wait to be accepted.
 * @return `FALSE` with the system's error.
 */
ZKQ_API BOOL S_Listen(SOCKET_ZKQ* sy, int iConnections);

/**
 * @brief Accepts a connection. If there may be none yet, S_CanAccept() or S_Select_Server() wait for it.
 * @param SockFD    The listening socket.
 * @param NewFd     Receives the connection, with the peer's address; it does not block. Closed with S_Close().
 * @param iTimeout  Not used.
 * @return `FALSE` with the system's error; `*NewFd` then holds no socket.
 */
ZKQ_API BOOL S_Accept(SOCKET_ZKQ SockFD, SOCKET_ZKQ* NewFd, int iTimeout);

/**
 * @brief Waits without limit for a connection to accept.
 * @param sy  The listening socket.
 * @return `FALSE` with the system's error.
 */
ZKQ_API BOOL S_CanAccept(SOCKET_ZKQ* sy);

/**
 * @brief Waits with select().
 * @param iMaxFD      The highest descriptor in the sets, below `FD_SETSIZE`.
 * @param pReadFDs    An `fd_set`, or null.
 * @param pWriteFDs   An `fd_set`, or null.
 * @param pExcptFDs   An `fd_set`, or null.
 * @param iTimeout    Seconds; 0 does not wait.
 * @return How many are ready; 0 with `ETIME`; -1 with `EINVAL` or the system's error.
 */
ZKQ_API int S_Select(int iMaxFD, void* pReadFDs, void* pWriteFDs, void* pExcptFDs, int iTimeout);

/**
 * @brief Waits with select(), without limit.
 * @param iMaxFD     The highest descriptor in the sets, below `FD_SETSIZE`.
 * @param pReadFDs   An `fd_set`, or null.
 * @param pWriteFDs  An `fd_set`, or null.
 * @param pExcptFDs  An `fd_set`, or null.
 * @return How many are ready; -1 with `EINVAL` or the system's error.
 */
ZKQ_API int S_Select_Server(int iMaxFD, void* pReadFDs, void* pWriteFDs, void* pExcptFDs);

/**
 * @brief Tells whether a receive would return at once.
 * @param sy         The socket.
 * @param bReadible  Receives 1 or 0.
 * @return `FALSE` with `EINVAL` or the system's error. With 0 the error text becomes that of `ETIME`.
 */
ZKQ_API BOOL S_SocketIsReadible(SOCKET_ZKQ sy, int* bReadible);

/**
 * @brief Tells whether a send would take something at once.
 * @param sy         The socket.
 * @param bWritable  Receives 1 or 0.
 * @return `FALSE` with `EINVAL` or the system's error. With 0 the error text becomes that of `ETIME`.
 */
ZKQ_API BOOL S_SocketIsWritable(SOCKET_ZKQ sy, int* bWritable);

/**
 * @brief Finds the IPv4 address of a host.
 * @param pszServer   Dotted address or host name.
 * @param NetAddress  Receives the address in network byte order.
 * @return `FALSE` with `EINVAL`.
 */
ZKQ_API BOOL GetServerAddress(LPCTSTR pszServer, unsigned long* NetAddress);

/**
 * @brief Finds the IPv6 address of a host.
 * @param pszServer   Numeric address or host name; null or empty for "::". Hosts that have IPv4 only get mapped ones.
 * @param NetAddress  Receives the 16 bytes of the address.
 * @return `FALSE` with `EINVAL` or the resolver's message.
 */
ZKQ_API BOOL GetServerAddress6(LPCTSTR pszServer, unsigned char* NetAddress);

/**
 * @brief Makes an IPv4 address.
 *
 * The whole text is looked up, so one with a port in it is as a rule not found.
 *
 * @param addr   Receives the 16 bytes of a `sockaddr_in`.
 * @param daddr  Dotted address or host name; a number behind a ':' in it replaces `port`, unless it is 0.
 * @param port   Port, above 0.
 * @return `FALSE` with `EINVAL`.
 */
ZKQ_API BOOL Network_FillSockAddr(void* addr, const char* daddr, int port);

/**
 * @brief Makes an address of either family.
 * @param addr    Receives the 16 bytes of a `sockaddr_in` or the 28 of a `sockaddr_in6`.
 * @param Family  0 or `AF_INET` for IPv4, where this is Network_FillSockAddr(); anything else for IPv6.
 * @param daddr   For IPv6: numeric address or host name, or either in brackets, with ":port" behind them that replaces
 *                `port` unless it is 0; null or empty for "::".
 * @param port    Port; for IPv6 it may be 0.
 * @return `FALSE` with `EINVAL` or the resolver's message.
 */
ZKQ_API BOOL Network_FillSockAddrEx(void* addr, int Family, const char* daddr, int port);

/**
 * @brief Takes an address apart.
 * @param addr    The address.
 * @param daddr   Receives it as a number in text: 16 bytes for IPv4, 46 for IPv6; may be null.
 * @param port    Receives the port; may be null.
 * @param Family  Receives the family; may be null.
 * @return `FALSE` with `EINVAL` or the resolver's message.
 */
ZKQ_API BOOL Network_ParseSockAddr(const void* addr, char* daddr, int* port, int* Family);

/**
 * @brief Gives the address of the peer; of a connection that was redirected on its way, the one it was meant for.
 * @param SockFD    A connected socket.
 * @param AddrInfo  Receives 16 bytes, or 28 of an IPv6 socket.
 * @return `FALSE` with `EINVAL` or the system's error.
 */
ZKQ_API BOOL S_GetPeerInfo(SOCKET_ZKQ SockFD, void* AddrInfo);

/**
 * @brief Gives the socket's own address.
 * @param SockFD  An open socket.
 * @param pAddr   Receives 16 bytes, or 28 of an IPv6 socket.
 * @return `FALSE` with `EINVAL` or the system's error.
 */
ZKQ_API BOOL S_GetSocketInfo(SOCKET_ZKQ SockFD, void* pAddr);

/**
 * @brief Finds the host name of an address.
 * @param AddrInfo  The address.
 * @param Name      Receives the name, 1025 bytes. An IPv6 address without a name gives its number.
 * @return `FALSE` with `EINVAL`; for IPv4 with the text that the resolver's error number has as an errno value, for IPv6
 *         with the resolver's message.
 */
ZKQ_API BOOL S_GetHostByAddr(const void* AddrInfo, LPTSTR Name);

/**
 * @brief Gives the socket's own IPv4 address as dotted text.
 * @param SockFD  An open IPv4 socket; one for IPv6 has none, and gives "0.0.0.0".
 * @param IPName  Receives the text, 16 bytes.
 * @return `FALSE` with `EINVAL` or the system's error.
 */
ZKQ_API BOOL S_GetSockHostIP(SOCKET_ZKQ SockFD, LPTSTR IPName);

/**
 * @brief Gives the peer's IPv4 address as dotted text.
 * @param SockFD  A connected IPv4 socket; one for IPv6 gives "0.0.0.0".
 * @param IPName  Receives the text, 16 bytes.
 * @return `FALSE` with `EINVAL` or the system's error.
 */
ZKQ_API BOOL S_GetPeerIP(SOCKET_ZKQ SockFD, LPTSTR IPName);

/**
 * @brief Finds the host name of the socket's own address.
 * @param SockFD  An open socket.
 * @param Name    Receives the name, 1025 bytes.
 * @return `FALSE` as S_GetSocketInfo() or S_GetHostByAddr().
 */
ZKQ_API BOOL S_GetSockHost(SOCKET_ZKQ SockFD, LPTSTR Name);

/**
 * @brief Gives the socket's own address as texts.
 * @param sy      An open socket.
 * @param IPName  Receives the numeric address, 46 bytes; may be null.
 * @param Port    Receives the port; may be null.
 * @param Name    Receives the host name, 1025 bytes; null if it is not wanted, which saves looking for it.
 * @return `FALSE` as S_GetSocketInfo() or S_GetHostByAddr(); address and port may have been written by then.
 */
ZKQ_API BOOL S_GetLocalInfoEx(SOCKET_ZKQ* sy, LPTSTR IPName, int* Port, LPTSTR Name);

/**
 * @brief Gives the peer's address as texts.
 * @param sy      A connected socket.
 * @param IPName  Receives the numeric address, 46 bytes; may be null.
 * @param Port    Receives the port; may be null.
 * @param Name    Receives the host name, 1025 bytes; null if it is not wanted.
 * @return `FALSE` as S_GetPeerInfo() or S_GetHostByAddr(); address and port may have been written by then.
 */
ZKQ_API BOOL S_GetPeerInfoEx(SOCKET_ZKQ* sy, LPTSTR IPName, int* Port, LPTSTR Name);

/**
 * @brief Tells whether a socket is one for IPv6.
 * @param sy  The socket; null is none.
 * @return `TRUE` or `FALSE`; the error text is left alone.
 */
ZKQ_API BOOL S_IsIPV6(const SOCKET_ZKQ* sy);

#ifdef __cplusplus
}
#endif

#endif
