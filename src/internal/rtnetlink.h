// A small layer over the kernel's routing netlink: requests, dumps, replies, attributes, addresses.
#pragma once

#include <ZKQ_general/ip.h>
#include <net/if.h>
#include <stddef.h>
#include <sys/types.h>

#include <linux/rtnetlink.h>

inline constexpr size_t kNetlinkReceiveSize = 16384;
inline constexpr size_t kRequestAttributes = 1052;

static_assert(offsetof(rtnl_handle, local) == 4 && offsetof(rtnl_handle, peer) == 16);
static_assert(offsetof(rtnl_handle, seq) == 28 && offsetof(rtnl_handle, dump) == 32 && sizeof(rtnl_handle) == 36);

/// An address with the length of its network's part, all in bits.
struct inet_prefix {
    uint16_t flags;
    uint16_t bytelen;
    int16_t family;
    int16_t bitlen;
    unsigned char data[16];
};
/// The text was one of "default", "all" and "any".
inline constexpr uint16_t kPrefixIsAny = 1;

/// A route request with room for its attributes.
struct RouteRequest {
    nlmsghdr n;
    rtmsg r;
    char attributes[kRequestAttributes];
};

/// Told of a message; below zero is a failure.
using rtnl_filter_t = int (*)(const sockaddr_nl& who, const nlmsghdr* message, void* argument);

// Where it is not said otherwise these return 0, or -1 with the error text set.

int rtnl_open(rtnl_handle* rth);
void rtnl_close(rtnl_handle* rth);
/// Asks for a dump of all there is of a kind.
int rtnl_wilddump_request(rtnl_handle* rth, int family, uint16_t type);
/// Receives the dump that was asked for, a call of `filter` a message. Other messages go to `junk`, which may be null.
int rtnl_dump_filter(const rtnl_handle* rth, rtnl_filter_t filter, void* argument, rtnl_filter_t junk = nullptr,
                     void* junkArgument = nullptr);
/// Sends a request and waits for its acknowledgement. Messages that answer others go to `junk`, which may be null.
int rtnl_talk(rtnl_handle* rth, nlmsghdr* request, rtnl_filter_t junk = nullptr, void* junkArgument = nullptr);

/// A datagram as it was received, in memory that is aligned for it.
struct NetlinkDatagram {
    sockaddr_nl from;
    const char* bytes;
    size_t size;
    bool isTruncated;
};
/// Who is told of messages, as for rtnl_dump_filter().
struct NetlinkHandlers {
    rtnl_filter_t filter;
    void* argument;
    rtnl_filter_t junk;
    void* junkArgument;
};
enum class Walk { kMore, kDone, kFailed };

/// Goes through one datagram of a dump.
Walk WalkDump(const rtnl_handle& rth, const NetlinkDatagram& datagram, const NetlinkHandlers& handlers);
/// Goes through one datagram that may have the acknowledgement of the last request in it.
Walk WalkAnswer(const rtnl_handle& rth, const NetlinkDatagram& datagram, const NetlinkHandlers& handlers);

/// Messages one behind the other, in the order in which they came.
class MessageList {
public:
    MessageList() = default;
    MessageList(const MessageList&) = delete;
    MessageList& operator=(const MessageList&) = delete;
    ~MessageList();

    bool Add(const nlmsghdr* message);
    /// The first message if `last` is null, else the one behind it; null at the end.
    const nlmsghdr* Next(const nlmsghdr* last) const;

private:
    char* bytes_ = nullptr;
    size_t size_ = 0;
    size_t room_ = 0;
};
/// A filter: adds the message to the MessageList that is its argument.
int store_nlmsg(const sockaddr_nl& who, const nlmsghdr* message, void* list);

/// Append an attribute to a message that may grow to `room` bytes.
int addattr32(nlmsghdr* message, size_t room, uint16_t type, uint32_t value);
int addattr_l(nlmsghdr* message, size_t room, uint16_t type, const void* data, size_t size);
inline const char* AttributeData(const rtattr* attribute)
{
    return reinterpret_cast<const char*>(attribute) + RTA_LENGTH(0);
}
/// Notes where each attribute of a type up to `max` is, null for those that are not there; of several the first counts.
void parse_rtattr(const rtattr** table, uint16_t max, const char* attributes, size_t size);
/// The index-th address of a family on an interface, as text in 46 bytes, from messages about addresses; empty if there
/// are not so many.
int FindAddress(const MessageList& messages, int interfaceIndex, int family, int index, char* text);

/// Reads an address with the optional "/length" of a network, or one of the words for all of them. With family 0 a text
/// with a ':' is IPv6.
int get_prefix(inet_prefix* prefix, const char* text, int family);
/// As get_prefix(), for a host's address: its length may only be that of all its bits.
int get_addr(inet_prefix* prefix, const char* text, int family);

/// The index of an interface among the links that were last dumped; 0 if there is none of that name.
unsigned ll_name_to_index(const char* name);
