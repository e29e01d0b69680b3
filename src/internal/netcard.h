// Interfaces as the kernel's device table and its interface calls show them.
#pragma once

#include <ZKQ_general/netcard.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stddef.h>

#include "guards.h"

static_assert(sizeof(NETCARDINFO) == 112 && offsetof(NETCARDINFO, IP) == 16);
static_assert(offsetof(NETCARDINFO, Mask) == 48 && offsetof(NETCARDINFO, MAC) == 80);
static_assert(sizeof(BRIDGEINFO) == 336 && offsetof(BRIDGEINFO, DevList) == 16);
static_assert(offsetof(BRIDGEINFO, IP) == 272 && offsetof(BRIDGEINFO, Mask) == 304);

inline constexpr char kNetClass[] = "/sys/class/net";

/// Whether a text, which may end without a NUL after 16 bytes, can name an interface. A name that had to be cut would be
/// another interface's.
bool IsInterfaceName(const char* name);
/// Whether an interface of that name is a bridge.
bool IsBridge(const char* name);

/// Reads the name at the start of a line of the device table: "v0:1" may be an alias, or v0 with a counter behind it.
bool get_name(const char* line, char (&name)[IFNAMSIZ]);

// These return 0 or an errno value.

/// Opens a socket for the calls about interfaces; a failure is logged.
int OpenInterfaceSocket(int type, UniqueFd* sd);
/// Asks the system about an interface.
int AskInterface(int sd, unsigned long request, const char* name, ifreq* answer);
/// Asks for an IPv4 address of an interface.
int AskAddress(int sd, unsigned long request, const char* name, in_addr* address);

inline constexpr size_t kMacLength = 6;
/// Writes a hardware address as in "0242-AC11-0002".
void MacText(const unsigned char (&mac)[kMacLength], char* text);
/// Writes a dotted address.
void DottedText(const in_addr& address, char (&text)[32]);
