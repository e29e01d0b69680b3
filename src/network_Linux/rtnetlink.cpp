// The kernel's routing netlink: requests, dumps and replies.
#include "../internal/rtnetlink.h"

#include <arpa/inet.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "../internal/error.h"
#include "../internal/guards.h"
#include "../internal/text.h"

namespace {

constexpr int kSocketBuffer = 32768;

int FailWith(const char* text)
{
    GeneralMisc_SetErrorString(text);
    return -1;
}

int FailWithNumber(int error)
{
    GeneralMisc_SetSystemError(error);
    return -1;
}

Walk StopWith(const char* text)
{
    GeneralMisc_SetErrorString(text);
    return Walk::kFailed;
}

/// The next header of a datagram, and what is left of it from there on.
struct Rest {
    const char* next;
    size_t size;

    const nlmsghdr* Header() const { return reinterpret_cast<const nlmsghdr*>(next); }
    bool HasHeader() const { return size >= sizeof(nlmsghdr); }
    bool HasMessage() const
    {
        return HasHeader() && Header()->nlmsg_len >= sizeof(nlmsghdr) && Header()->nlmsg_len <= size;
    }
    void Skip()
    {
        const size_t length = std::min(size, NLMSG_ALIGN(size_t{Header()->nlmsg_len}));
        next += length;
        size -= length;
    }
};

/// What is behind a message's header.
const char* Payload(const nlmsghdr* message)
{
    return reinterpret_cast<const char*>(message) + NLMSG_SPACE(0);
}

/// What to do with a message after which there may be others.
Walk CallJunk(const NetlinkHandlers& handlers, const sockaddr_nl& from, const nlmsghdr* message)
{
    if (handlers.junk != nullptr && handlers.junk(from, message, handlers.junkArgument) < 0)
        return StopWith("call junk fail");
    return Walk::kMore;
}

/// Whether a message is the kernel's reply to the request of that number.
bool Answers(const rtnl_handle& rth, uint32_t sequence, const sockaddr_nl& from, const nlmsghdr* message)
{
    return from.nl_pid == 0 && message->nlmsg_pid == rth.local.nl_pid && message->nlmsg_seq == sequence;
}

/// The error number of an error message; false if it is too short for one.
bool ReadError(const nlmsghdr* message, int* error)
{
    if (message->nlmsg_len < NLMSG_LENGTH(sizeof(nlmsgerr)))
        return false;
    nlmsgerr content;
    memcpy(&content, Payload(message), sizeof content);
    *error = static_cast<int>(0 - static_cast<unsigned>(content.error));
    return true;
}

Walk TakeDumped(const rtnl_handle& rth, const sockaddr_nl& from, const nlmsghdr* message,
                const NetlinkHandlers& handlers)
{
    if (!Answers(rth, rth.dump, from, message))
        return CallJunk(handlers, from, message);
    int error = 0;
    if (message->nlmsg_type == NLMSG_DONE)
        return Walk::kDone;
    if (message->nlmsg_type == NLMSG_ERROR)
        return StopWith(ReadError(message, &error) ? "RTNETLINK answers" : "ERROR truncated");
    if (handlers.filter(from, message, handlers.argument) < 0)
        return StopWith("call filter fail");
    return Walk::kMore;
}

Walk TakeAnswer(const rtnl_handle& rth, const sockaddr_nl& from, const nlmsghdr* message,
                const NetlinkHandlers& handlers)
{
    if (!Answers(rth, rth.seq, from, message))
        return CallJunk(handlers, from, message);
    int error = 0;
    if (message->nlmsg_type != NLMSG_ERROR)
        return StopWith("Unexpected reply!!!");
    if (!ReadError(message, &error))
        return StopWith("ERROR truncated");
    if (error == 0)
        return Walk::kDone;
    GeneralMisc_SetSystemError(error);
    return Walk::kFailed;
}

/// Memory for a datagram.
union ReceiveBuffer {
    nlmsghdr aligned;
    char bytes[kNetlinkReceiveSize];
};

/// Receives one datagram, however many signals come.
int Receive(const rtnl_handle& rth, ReceiveBuffer* buffer, NetlinkDatagram* datagram)
{
    iovec piece = {buffer->bytes, sizeof buffer->bytes};
    msghdr message = {};
    ssize_t size = -1;
    do {
        message.msg_name = &datagram->from;
        message.msg_namelen = sizeof datagram->from;
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        size = recvmsg(rth.fd, &message, 0);
    } while (size < 0 && errno == EINTR);
    if (size < 0) // what was lost is not sent again: to wait for it would last for ever
        return FailWith("OVERRUN");
    if (size == 0)
        return FailWith("EOF on netlink");
    if (message.msg_namelen != sizeof datagram->from)
        return FailWith("sender address length error");
    datagram->bytes = buffer->bytes;
    datagram->size = static_cast<size_t>(size);
    datagram->isTruncated = (message.msg_flags & MSG_TRUNC) != 0;
    return 0;
}

/// Receives datagrams until `walk` says that it is over.
template <class WalkOne>
int ReceiveAll(const rtnl_handle& rth, WalkOne walk)
{
    ReceiveBuffer buffer;
    NetlinkDatagram datagram = {};
    Walk result = Walk::kMore;
    while (result == Walk::kMore) {
        if (Receive(rth, &buffer, &datagram) != 0)
            return -1;
        result = walk(datagram);
    }
    return result == Walk::kDone ? 0 : -1;
}

/// Sends to the kernel, whom a caller's conversation need not name; false with errno.
bool Send(const rtnl_handle& rth, const void* bytes, size_t size)
{
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent = -1;
    do {
        sent = sendto(rth.fd, bytes, size, 0, reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

/// Binds the socket; 0 or an errno value.
int Bind(rtnl_handle* rth)
{
    rth->local.nl_family = rth->peer.nl_family = AF_NETLINK;
    if (setsockopt(rth->fd, SOL_SOCKET, SO_SNDBUF, &kSocketBuffer, sizeof kSocketBuffer) != 0 ||
        setsockopt(rth->fd, SOL_SOCKET, SO_RCVBUF, &kSocketBuffer, sizeof kSocketBuffer) != 0)
        return errno;
    auto* const local = reinterpret_cast<sockaddr*>(&rth->local);
    socklen_t length = sizeof rth->local;
    if (bind(rth->fd, local, length) != 0 || getsockname(rth->fd, local, &length) != 0)
        return errno;
    return length == sizeof rth->local && rth->local.nl_family == AF_NETLINK ? 0 : EINVAL;
}

// --- Links

struct Link {
    unsigned index;
    char name[IFNAMSIZ];
};

/// Indexes and names of links.
struct LinkMap {
    Link* links = nullptr;
    size_t count = 0;
    size_t room = 0;
};

LinkMap g_Links; // of the last dump
pthread_mutex_t g_LinksMutex = PTHREAD_MUTEX_INITIALIZER;

bool AddLink(LinkMap* map, unsigned index, std::string_view name)
{
    constexpr size_t kFirstRoom = 32;
    if (map->count == map->room) {
        const size_t room = map->room == 0 ? kFirstRoom : map->room * 2;
        auto* const grown = static_cast<Link*>(reallocarray(map->links, room, sizeof(Link)));
        if (grown == nullptr)
            return false;
        map->links = grown;
        map->room = room;
    }
    Link& link = map->links[map->count++];
    link = {};
    link.index = index;
    name.copy(link.name, sizeof link.name - 1);
    return true;
}

/// A filter: notes a link in the LinkMap that is its argument.
int ll_remember_index(const sockaddr_nl& /*who*/, const nlmsghdr* message, void* map)
{
    if (message->nlmsg_type != RTM_NEWLINK)
        return 0;
    constexpr size_t kHeader = NLMSG_SPACE(sizeof(ifinfomsg));
    if (message->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg)))
        return -1;
    const rtattr* table[IFLA_IFNAME + 1];
    const char* const bytes = reinterpret_cast<const char*>(message);
    ifinfomsg link;
    memcpy(&link, Payload(message), sizeof link);
    parse_rtattr(table, IFLA_IFNAME, bytes + kHeader,
                 message->nlmsg_len - std::min<size_t>(kHeader, message->nlmsg_len));
    const rtattr* const name = table[IFLA_IFNAME];
    if (name == nullptr)
        return 0;
    const size_t size = strnlen(AttributeData(name), RTA_PAYLOAD(name));
    if (size >= IFNAMSIZ)
        return 0;
    const std::string_view text(AttributeData(name), size);
    return AddLink(static_cast<LinkMap*>(map), static_cast<unsigned>(link.ifi_index), text) ? 0 : -1;
}

// --- Addresses as texts

size_t LengthOf(int family)
{
    return family == AF_INET6 ? sizeof(in6_addr) : sizeof(in_addr);
}

constexpr int kBitsOfByte = 8;

bool IsAddress(int family, const char* text)
{
    in6_addr ignored;
    return inet_pton(family, text, &ignored) == 1;
}

/// Reads the digits behind the "/"; -1 if they are no length up to `max`.
int ReadLength(const char* text, int max)
{
    unsigned length = 0; // which has no sign
    const char* const end = text + strlen(text);
    const auto result = std::from_chars(text, end, length);
    const bool isRead = result.ec == std::errc{} && result.ptr == end;
    return isRead && length <= static_cast<unsigned>(max) ? static_cast<int>(length) : -1;
}

} // namespace

int rtnl_open(rtnl_handle* rth)
{
    *rth = {};
    rth->fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (rth->fd < 0)
        return FailWithNumber(errno);
    if (const int error = Bind(rth)) {
        rtnl_close(rth);
        return FailWithNumber(error);
    }
    rth->seq = static_cast<uint32_t>(time(nullptr));
    return 0;
}

void rtnl_close(rtnl_handle* rth)
{
    const UniqueFd closed(std::exchange(rth->fd, -1));
}

int rtnl_wilddump_request(rtnl_handle* rth, int family, uint16_t type)
{
    struct {
        nlmsghdr n;
        ifinfomsg i; // of which other kinds have the family alone
        char attributes[RTA_SPACE(sizeof(uint32_t))];
    } request = {};
    request.n.nlmsg_len = NLMSG_LENGTH(sizeof(rtgenmsg));
    request.n.nlmsg_type = type;
    request.n.nlmsg_flags = NLM_F_DUMP | NLM_F_REQUEST;
    request.n.nlmsg_seq = rth->dump = ++rth->seq;
    request.i.ifi_family = static_cast<unsigned char>(family);
    if (type == RTM_GETLINK) { // whose counters are half of the work, and nobody wants them
        request.n.nlmsg_len = NLMSG_LENGTH(sizeof request.i);
        if (addattr32(&request.n, sizeof request, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS) != 0)
            return -1;
    }
    return Send(*rth, &request, request.n.nlmsg_len) ? 0 : FailWithNumber(errno);
}

Walk WalkDump(const rtnl_handle& rth, const NetlinkDatagram& datagram, const NetlinkHandlers& handlers)
{
    Rest rest = {datagram.bytes, datagram.size};
    for (; rest.HasMessage(); rest.Skip()) {
        const Walk result = TakeDumped(rth, datagram.from, rest.Header(), handlers);
        if (result != Walk::kMore)
            return result;
    }
    if (datagram.isTruncated)
        return StopWith("Message truncated");
    return rest.size == 0 ? Walk::kMore : StopWith("!!!Remnant of size");
}

int rtnl_dump_filter(const rtnl_handle* rth, rtnl_filter_t filter, void* argument, rtnl_filter_t junk,
                     void* junkArgument)
{
    const NetlinkHandlers handlers = {filter, argument, junk, junkArgument};
    return ReceiveAll(*rth, [&](const NetlinkDatagram& datagram) { return WalkDump(*rth, datagram, handlers); });
}

Walk WalkAnswer(const rtnl_handle& rth, const NetlinkDatagram& datagram, const NetlinkHandlers& handlers)
{
    Rest rest = {datagram.bytes, datagram.size};
    for (; rest.HasHeader(); rest.Skip()) {
        if (!rest.HasMessage())
            return StopWith(datagram.isTruncated ? "Truncated message" : "!!!malformed message");
        const Walk result = TakeAnswer(rth, datagram.from, rest.Header(), handlers);
        if (result != Walk::kMore)
            return result;
    }
    if (datagram.isTruncated)
        return StopWith("Message truncated\n");
    return rest.size == 0 ? Walk::kMore : StopWith("!!!Remnant of size");
}

int rtnl_talk(rtnl_handle* rth, nlmsghdr* request, rtnl_filter_t junk, void* junkArgument)
{
    request->nlmsg_seq = ++rth->seq;
    request->nlmsg_flags |= NLM_F_ACK;
    if (!Send(*rth, request, request->nlmsg_len))
        return FailWith("Cannot talk to rtnetlink");
    const NetlinkHandlers handlers = {nullptr, nullptr, junk, junkArgument};
    return ReceiveAll(*rth, [&](const NetlinkDatagram& datagram) { return WalkAnswer(*rth, datagram, handlers); });
}

MessageList::~MessageList()
{
    free(bytes_);
}

bool MessageList::Add(const nlmsghdr* message)
{
    const size_t size = NLMSG_ALIGN(size_t{message->nlmsg_len});
    if (room_ - size_ < size) {
        const size_t room = std::max(room_ * 2, size_ + kNetlinkReceiveSize * 2);
        auto* const grown = static_cast<char*>(realloc(bytes_, room));
        if (grown == nullptr)
            return false;
        bytes_ = grown;
        room_ = room;
    }
    memcpy(bytes_ + size_, message, message->nlmsg_len);
    size_ += size;
    return true;
}

const nlmsghdr* MessageList::Next(const nlmsghdr* last) const
{
    const char* const next =
        last == nullptr ? bytes_ : reinterpret_cast<const char*>(last) + NLMSG_ALIGN(size_t{last->nlmsg_len});
    return next == bytes_ + size_ ? nullptr : reinterpret_cast<const nlmsghdr*>(next);
}

int store_nlmsg(const sockaddr_nl& /*who*/, const nlmsghdr* message, void* list)
{
    return static_cast<MessageList*>(list)->Add(message) ? 0 : -1;
}

int addattr32(nlmsghdr* message, size_t room, uint16_t type, uint32_t value)
{
    if (NLMSG_ALIGN(size_t{message->nlmsg_len}) + RTA_LENGTH(sizeof value) > room)
        return FailWith("addattr32: Error! max allowed bound exceeded");
    return addattr_l(message, room, type, &value, sizeof value);
}

int addattr_l(nlmsghdr* message, size_t room, uint16_t type, const void* data, size_t size)
{
    const size_t at = NLMSG_ALIGN(size_t{message->nlmsg_len});
    const size_t length = RTA_LENGTH(size);
    if (length > UINT16_MAX || at + RTA_ALIGN(length) > room)
        return FailWith("addattr_l ERROR: message exceeded bound");
    const rtattr header = {static_cast<unsigned short>(length), type};
    char* const bytes = reinterpret_cast<char*>(message) + at;
    memset(bytes, 0, RTA_ALIGN(length));
    memcpy(bytes, &header, sizeof header);
    if (size > 0)
        memcpy(bytes + RTA_LENGTH(0), data, size);
    message->nlmsg_len = static_cast<uint32_t>(at + RTA_ALIGN(length));
    return 0;
}

void parse_rtattr(const rtattr** table, uint16_t max, const char* attributes, size_t size)
{
    std::fill_n(table, size_t{max} + 1, nullptr);
    while (size >= sizeof(rtattr)) {
        const auto* const attribute = reinterpret_cast<const rtattr*>(attributes);
        const size_t length = attribute->rta_len;
        if (length < sizeof(rtattr) || length > size)
            return;
        if (attribute->rta_type <= max && table[attribute->rta_type] == nullptr)
            table[attribute->rta_type] = attribute;
        const size_t step = std::min(size, RTA_ALIGN(length));
        attributes += step;
        size -= step;
    }
}

int FindAddress(const MessageList& messages, int interfaceIndex, int family, int index, char* text)
{
    constexpr size_t kHeader = NLMSG_SPACE(sizeof(ifaddrmsg));
    int found = 0;
    for (const nlmsghdr* message = messages.Next(nullptr); message != nullptr; message = messages.Next(message)) {
        if (message->nlmsg_type != RTM_NEWADDR)
            continue;
        if (message->nlmsg_len < NLMSG_LENGTH(sizeof(ifaddrmsg)))
            return FailWith("wrong len");
        const auto* const about = reinterpret_cast<const ifaddrmsg*>(Payload(message));
        if (about->ifa_index != static_cast<unsigned>(interfaceIndex) || about->ifa_family != family)
            continue;
        const rtattr* table[IFA_LOCAL + 1];
        parse_rtattr(table, IFA_LOCAL, reinterpret_cast<const char*>(message) + kHeader, message->nlmsg_len - kHeader);
        const rtattr* const local = table[IFA_LOCAL] != nullptr ? table[IFA_LOCAL] : table[IFA_ADDRESS];
        if (local == nullptr || RTA_PAYLOAD(local) < LengthOf(family))
            continue;
        if (found++ == index) {
            inet_ntop(family, AttributeData(local), text, INET6_ADDRSTRLEN);
            return 0;
        }
    }
    return 0;
}

int get_prefix(inet_prefix* prefix, const char* text, int family)
{
    *prefix = {};
    if (family == AF_UNSPEC)
        family = strchr(text, ':') == nullptr ? AF_INET : AF_INET6;
    prefix->family = static_cast<int16_t>(family);
    prefix->bytelen = static_cast<uint16_t>(LengthOf(family));
    const std::string_view whole(text);
    if (family != AF_INET && family != AF_INET6)
        return FailWith("Wrong address family.");
    if (whole == "default" || whole == "all" || whole == "any") {
        prefix->flags = kPrefixIsAny;
        return 0;
    }
    char address[INET6_ADDRSTRLEN];
    const size_t end = whole.find('/');
    TextBuilder builder(address);
    builder.Add(whole.substr(0, end));
    if (builder.WasCut())
        return FailWithNumber(EINVAL);
    if (inet_pton(family, address, prefix->data) != 1) {
        const int other = family == AF_INET ? AF_INET6 : AF_INET;
        return IsAddress(other, address) ? FailWith("Wrong address family.") : FailWithNumber(EINVAL);
    }
    const int bits = prefix->bytelen * kBitsOfByte;
    const int length = end == std::string_view::npos ? bits : ReadLength(text + end + 1, bits);
    if (length < 0)
        return FailWith("Wrong address length.");
    prefix->bitlen = static_cast<int16_t>(length);
    return 0;
}

int get_addr(inet_prefix* prefix, const char* text, int family)
{
    if (get_prefix(prefix, text, family) != 0)
        return -1;
    if (prefix->flags != kPrefixIsAny && prefix->bitlen != prefix->bytelen * kBitsOfByte)
        return FailWith("Wrong address length.");
    return 0;
}

int ll_init_map(rtnl_handle* rth)
{
    if (rth == nullptr)
        return FailWithNumber(EINVAL);
    LinkMap fresh;
    if (rtnl_wilddump_request(rth, AF_UNSPEC, RTM_GETLINK) != 0 ||
        rtnl_dump_filter(rth, ll_remember_index, &fresh) != 0) {
        free(fresh.links);
        return -1;
    }
    const MutexLock lock(g_LinksMutex);
    std::swap(g_Links, fresh);
    free(fresh.links);
    return 0;
}

unsigned ll_name_to_index(const char* name)
{
    const MutexLock lock(g_LinksMutex);
    for (size_t i = 0; i < g_Links.count; ++i)
        if (strcmp(g_Links.links[i].name, name) == 0)
            return g_Links.links[i].index;
    return 0;
}
