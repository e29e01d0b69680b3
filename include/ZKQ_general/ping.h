/**
 * @file ping.h
 * @brief ICMP echo to a host, and the host's own addresses and interfaces.
 *
 * Unless a function says otherwise it returns `TRUE`, or `FALSE` with the reason as error text: that of the failed system
 * call, the resolver's own message, or the text of `EINVAL` (22) for bad arguments and names that do not resolve.
 *
 * All functions may be called by several threads at once.
 */
#ifndef ZKQ_GENERAL_PING_H
#define ZKQ_GENERAL_PING_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Sends one ICMP echo request and waits for its reply.
 *
 * Needs the right to open raw sockets (root, or the capability CAP_NET_RAW). Whether the request could be sent is not
 * looked at: a host without a route ends with the time-out, too. A reply counts only if it comes from the pinged address
 * with the same identifier, sequence number and payload.
 *
 * @param IPAddress The host: a name, or an IPv4 or IPv6 address. Which of both is pinged tells Network_IsIPV6Address().
 * @param Size      Bytes of payload, taken as 0 to 65500 if beyond.
 * @param iTimeOut  Seconds to wait, counted from the sending. With 0 and less the wait is over at once.
 * @param Elapsed   Receives the milliseconds from sending to reply; may be null.
 * @param TTL       Receives the time-to-live that the reply arrived with, for IPv4 only; may be null.
 * @return TRUE if the host replied. The error text after a time-out is that of `ETIME` (62).
 */
ZKQ_API BOOL Network_PingHost(const char* IPAddress, int Size, int iTimeOut, unsigned long* Elapsed,
                              unsigned char* TTL);

/**
 * @brief Finds a host's address and tells whether it is one of IPv6.
 *
 * "127.0.0.1" and "0.0.0.0" are IPv4, "::1" and "::" are IPv6. Everything else is resolved as IPv6 first; if that fails,
 * or gives an address of twelve zero bytes and four others or an IPv4 address mapped into IPv6, it is resolved as IPv4.
 * "::2" is thus taken for IPv4, and does not resolve.
 *
 * @param IPAddress  The host: a name or an address.
 * @param NetAddress Receives the address in network byte order, 4 or 16 bytes: room for 16. May be null.
 * @param bIPV6      Receives 1 for IPv6, else 0, also when the host has no address. May be null.
 * @return TRUE if the host has an address.
 */
ZKQ_API BOOL Network_IsIPV6Address(const char* IPAddress, unsigned char* NetAddress, int* bIPV6);

/**
 * @brief Counts the IPv4 addresses that the host's own name resolves to.
 * @return The count, or -1 with the error text set.
 */
ZKQ_API int GetIPAddressCount(void);

/**
 * @brief Gives one of the IPv4 addresses that the host's own name resolves to.
 * @param index Its place, from 0.
 * @param IP    Receives its dotted text: room for 16 bytes.
 * @return 0, or -1 with the error text set: of `EINVAL` if there are not so many.
 */
ZKQ_API int GetIPAddress(int index, char* IP);

/**
 * @brief Gives the addresses of a network interface. Each result may be left out with null; what comes before the one
 *        that fails has been stored.
 * @param DevName The interface.
 * @param IP      Receives its IPv4 address as dotted text: room for 16 bytes.
 * @param IPMask  Receives its network mask alike.
 * @param IPV6    Receives its first IPv6 address as text: room for 46 bytes.
 * @param Mac     Receives its hardware address like "0242-AC11-0002": room for 15 bytes.
 * @return TRUE if all that was asked for is there.
 */
ZKQ_API BOOL Network_GetInfo_if(const char* DevName, char* IP, char* IPMask, char* IPV6, char* Mac);

/**
 * @brief Gives the first IPv6 address of a network interface, from the kernel's table.
 * @param DevName The interface.
 * @param IP      Receives the address as text: room for 46 bytes.
 * @return TRUE if it has one; else the error text is that of `ENODEV` (19).
 */
ZKQ_API BOOL Network_GetIPAddress_V6_if(const char* DevName, char* IP);

/**
 * @brief Counts the IPv6 addresses that the host's own name resolves to.
 * @return The count, 0 if it resolves as IPv4 only, or -1 with the error text set.
 */
ZKQ_API int Network_GetIPAddressCount_V6(void);

/**
 * @brief Gives one of the IPv6 addresses that the host's own name resolves to.
 * @param index Its place, from 0.
 * @param IP    Receives its text: room for 46 bytes.
 * @return TRUE if there are so many.
 */
ZKQ_API BOOL Network_GetIPAddress_V6(int index, char* IP);

/**
 * @brief Gives the name of one of the network interfaces, in the order of the kernel's device table.
 * @param index   Its place, from 0.
 * @param DevName Receives the name: room for 16 bytes.
 * @return TRUE if there are so many.
 */
ZKQ_API BOOL Network_GetDevName(int index, char* DevName);

#ifdef __cplusplus
}
#endif

#endif
