/**
 * @file ip.h
 * @brief Addresses of interfaces and the default route, over the kernel's routing netlink.
 *
 * Unless a function says otherwise it returns `TRUE`, or `FALSE` with the reason as error text: one of those given here,
 * that of a failed system call, the text of `EINVAL` (22) for null arguments, or what is wrong with the kernel's reply:
 * "RTNETLINK answers", "ERROR truncated", "call filter fail", "Message truncated", "!!!Remnant of size",
 * "EOF on netlink", "OVERRUN", "sender address length error", "Cannot talk to rtnetlink", "Truncated message",
 * "!!!malformed message", "Unexpected reply!!!".
 *
 * Callers serialise the calls of this header.
 */
#ifndef ZKQ_GENERAL_IP_H
#define ZKQ_GENERAL_IP_H

#include <ZKQ_general/types.h>
#include <sys/socket.h>

#include <linux/netlink.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A conversation with the kernel's routing netlink. */
struct rtnl_handle {
    int fd;                   /**< The socket. */
    struct sockaddr_nl local; /**< Its address. */
    struct sockaddr_nl peer;  /**< The other side's: the kernel's is all zero but for the family. */
    uint32_t seq;             /**< Sequence number of the last request. */
    uint32_t dump;            /**< Sequence number of the current dump. */
};

/**
 * @brief Gives one of the addresses of an interface.
 * @param DevName The interface. The error text for an unknown one is "Device does not exist.".
 * @param Family  AF_INET, AF_INET6, or 0 for AF_INET.
 * @param IP      Receives the address as text: room for 46 bytes. Empty if there are not so many.
 * @param index   Its place, from 0, in the kernel's order.
 * @return TRUE, also if there are not so many. A reply that is too short for an address gives the text "wrong len".
 */
ZKQ_API BOOL Network_GetIPAddress(const char* DevName, int Family, char* IP, int index);

/**
 * @brief Adds a default route through a gateway, behind those that are there. Needs the right to administer the network.
 * @param DevName The interface that leads there. The error text for an unknown one is "Device does not exist.".
 * @param Family  AF_INET, AF_INET6, or 0 for AF_INET.
 * @param IP      Address of the gateway as text. One of another family gives the text "Wrong address family."; one with
 *                the length of a network behind it "Wrong address length."; what is no address that of `EINVAL`.
 * @return TRUE if the kernel has acknowledged it; else its error number's text.
 */
ZKQ_API BOOL Network_SetDefaultGateway(const char* DevName, int Family, const char* IP);

/**
 * @brief Deletes an IPv4 default route through an interface, if it was made as Network_SetDefaultGateway() makes them
 *        (or by hand). Needs the right to administer the network.
 * @param DevName The interface. The error text for an unknown one is "Device does not exist.".
 * @return TRUE if the kernel has acknowledged it; else its error number's text, of `ESRCH` (3) if there is none.
 */
ZKQ_API BOOL Network_DeleteDefaultGateway(const char* DevName);

/**
 * @brief Dumps all links and remembers each one's index and name, in the place of those that were remembered before.
 *        The functions above do so themselves.
 * @param rth An open conversation.
 * @return 0, or -1 with the error text set, and what was remembered before is kept.
 */
ZKQ_API int ll_init_map(struct rtnl_handle* rth);

#ifdef __cplusplus
}
#endif

#endif
