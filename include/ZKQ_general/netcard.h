/**
 * @file netcard.h
 * @brief The host's network cards and Ethernet bridges: listing them, making and deleting bridges, setting addresses.
 *
 * Unless a function says otherwise it returns `TRUE`, or `FALSE` with the reason as error text: that of the failed system
 * call, or the text of `EINVAL` (22) for bad arguments. A name that is empty, longer than 15 bytes, "." or "..", or has a
 * "/" in it is such an argument: nothing is done to any interface then. A socket that cannot be made, a device table that
 * cannot be opened and memory that cannot be had are recorded in the library's own log, too.
 *
 * Whatever changes an interface needs the right to administer the network (root, or the capability CAP_NET_ADMIN).
 * Bridges are found in /sys/class/net, which must show the network that the caller is in.
 *
 * All functions may be called by several threads at once.
 */
#ifndef ZKQ_GENERAL_NETCARD_H
#define ZKQ_GENERAL_NETCARD_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A network card. Texts are terminated. */
typedef struct {
    char Name[16]; /**< Name of the interface. */
    char IP[32];   /**< IPv4 address, dotted; "0.0.0.0" if it has none. */
    char Mask[32]; /**< Network mask alike. */
    char MAC[32];  /**< Hardware address like "0242-AC11-0002". */
} NETCARDINFO;

/** An Ethernet bridge. */
typedef struct {
    char Name[16];        /**< Name of the bridge's interface. */
    char DevList[16][16]; /**< Names of the member interfaces; an empty one ends the list. */
    char IP[32];          /**< IPv4 address, dotted. */
    char Mask[32];        /**< Network mask alike. */
} BRIDGEINFO;

/**
 * @brief Counts the network cards: interfaces of Ethernet's hardware type that are not bridges.
 * @param Nums Receives the count.
 * @return TRUE if the interfaces could be read.
 */
ZKQ_API BOOL Network_GetNetCardNumber(long int* Nums);

/**
 * @brief Gives the hardware address of a network card.
 * @param CardNO     Its place, from 0, in the order of the kernel's device table.
 * @param MACAddress Receives the address like "0242-AC11-0002": room for 15 bytes.
 * @return TRUE if there are so many cards; else the error text is that of `EINVAL`.
 */
ZKQ_API BOOL Network_GetMACAddress(int CardNO, char* MACAddress);

/**
 * @brief Lists the network cards in the order of the kernel's device table.
 * @param Info    Receives a record a card; null to count them only. No bound is passed: leave room for cards that come
 *                after they were counted.
 * @param NCCount Receives the number of cards.
 * @return TRUE if the interfaces could be read; else nothing was stored.
 */
ZKQ_API BOOL Network_GetNetCardInfo(NETCARDINFO* Info, int* NCCount);

/**
 * @brief Lists the bridges in the order of /sys/class/net, each with up to 16 of its members.
 * @param Info  Receives a record a bridge; null to count them only. No bound is passed, as with Network_GetNetCardInfo().
 * @param Count Receives the number of bridges.
 * @return TRUE if all could be read. A bridge without an IPv4 address ends the listing with the text of
 *         `EADDRNOTAVAIL` (99); counting does not mind it.
 */
ZKQ_API BOOL Network_GetBridgeInfo(BRIDGEINFO* Info, int* Count);

/**
 * @brief Makes a bridge and adds its members to it. Its address and mask are not set: use Network_SetDevAddress().
 * @param Info Name and members; IP and Mask are not looked at. A name with "%" is refused: the kernel would put a number
 *             there.
 * @return TRUE if the bridge is there with all its members. If one cannot be added, the bridge is deleted again; the error
 *         text is that of `ENODEV` (19) for an unknown one.
 */
ZKQ_API BOOL Network_AddBridge(const BRIDGEINFO* Info);

/**
 * @brief Deletes a bridge, which must be down.
 * @param BridgeName Its name.
 * @return TRUE if it is gone.
 */
ZKQ_API BOOL Network_DelBridge(const char* BridgeName);

/**
 * @brief Switches the spanning tree protocol of a bridge.
 * @param Name Its name.
 * @param bOn  0 is off, all else on.
 * @return TRUE if it is switched.
 */
ZKQ_API BOOL Network_SetBridgeStp(const char* Name, int bOn);

/**
 * @brief Brings an interface up or down.
 * @param Name   Its name.
 * @param bStart 0 is down, all else up.
 * @return TRUE if its flags are set.
 */
ZKQ_API BOOL Network_StartStopNetworkDevice(const char* Name, int bStart);

/**
 * @brief Sets the IPv4 address of an interface, and with it network mask and broadcast address.
 * @param Name Its name.
 * @param IP   The address as a dotted text, or a host name. "0.0.0.0" takes the address away; the mask is not set then.
 * @param Mask The mask alike.
 * @return TRUE if all is set. Both texts are converted before anything is set, as GetServerAddress() does it and with
 *         its error text.
 */
ZKQ_API BOOL Network_SetDevAddress(const char* Name, const char* IP, const char* Mask);

#ifdef __cplusplus
}
#endif

#endif
