// The netlink layer, with replies that no kernel would send.
#include <arpa/inet.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "../src/internal/rtnetlink.h"
#include "support/error_text.h"

namespace {

using support::ErrorText;

constexpr uint32_t kPort = 4711;
constexpr uint32_t kDump = 100;
constexpr uint32_t kSequence = 200;

/// A reply, built message by message.
class Reply {
public:
    /// A message of a type with this content, to our port; `length` is what its header says if it is not the truth.
    Reply& Add(uint16_t type, const std::string& content = {}, uint32_t sequence = kDump, uint32_t length = 0,
               uint32_t port = kPort)
    {
        nlmsghdr header = {};
        header.nlmsg_len = length != 0 ? length : static_cast<uint32_t>(sizeof header + content.size());
        header.nlmsg_type = type;
        header.nlmsg_seq = sequence;
        header.nlmsg_pid = port;
        bytes_.append(reinterpret_cast<const char*>(&header), sizeof header).append(content);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
        return *this;
    }
    Reply& Bytes(const std::string& bytes)
    {
        bytes_ += bytes;
        return *this;
    }
    Reply& Cut(size_t size)
    {
        bytes_.resize(bytes_.size() - size);
        return *this;
    }
    Reply& Truncated()
    {
        isTruncated_ = true;
        return *this;
    }
    Reply& From(uint32_t port)
    {
        from_ = port;
        return *this;
    }

    /// The reply on the heap, no byte more, while `use` sees it.
    template <class Use>
    Walk With(Use use) const
    {
        const std::vector<char> copy(bytes_.begin(), bytes_.end());
        NetlinkDatagram datagram = {};
        datagram.from.nl_family = AF_NETLINK;
        datagram.from.nl_pid = from_;
        datagram.bytes = copy.data();
        datagram.size = copy.size();
        datagram.isTruncated = isTruncated_;
        return use(datagram);
    }
    const std::string& Text() const { return bytes_; }

private:
    std::string bytes_;
    bool isTruncated_ = false;
    uint32_t from_ = 0;
};

std::string Error(int error)
{
    nlmsgerr content = {};
    content.error = error;
    return {reinterpret_cast<const char*>(&content), sizeof content};
}

rtnl_handle Handle()
{
    rtnl_handle handle = {};
    handle.fd = -1;
    handle.local.nl_pid = kPort;
    handle.dump = kDump;
    handle.seq = kSequence;
    return handle;
}

/// What the callbacks were told, and what they answer.
struct Calls {
    std::string filtered;
    std::string junked;
    int filterResult = 0;
    int junkResult = 0;
};

int Filter(const sockaddr_nl&, const nlmsghdr* message, void* calls)
{
    auto* const told = static_cast<Calls*>(calls);
    told->filtered += std::to_string(message->nlmsg_type) + " ";
    return told->filterResult;
}

int Junk(const sockaddr_nl&, const nlmsghdr* message, void* calls)
{
    auto* const told = static_cast<Calls*>(calls);
    told->junked += std::to_string(message->nlmsg_type) + " ";
    return told->junkResult;
}

Walk Dump(const Reply& reply, Calls* calls)
{
    support::MarkErrorText();
    const NetlinkHandlers handlers = {Filter, calls, Junk, calls};
    return reply.With([&](const NetlinkDatagram& datagram) { return WalkDump(Handle(), datagram, handlers); });
}

Walk Answer(const Reply& reply, Calls* calls)
{
    support::MarkErrorText();
    const NetlinkHandlers handlers = {nullptr, nullptr, Junk, calls};
    return reply.With([&](const NetlinkDatagram& datagram) { return WalkAnswer(Handle(), datagram, handlers); });
}

struct Row {
    Reply reply;
    Walk result;
    std::string text;
};

TEST(NetlinkDump, EveryReplyHasItsText)
{
    const std::string untouched = "(mark)";
    const Row rows[] = {
        {Reply(), Walk::kMore, untouched},
        {Reply().Add(16), Walk::kMore, untouched},
        {Reply().Add(16).Add(NLMSG_DONE), Walk::kDone, untouched},
        {Reply().Add(NLMSG_DONE).Bytes("x"), Walk::kDone, untouched},
        {Reply().Add(NLMSG_DONE).Bytes("x").Truncated(), Walk::kDone, untouched},
        {Reply().Add(NLMSG_ERROR, Error(-EPERM)), Walk::kFailed, "RTNETLINK answers"},
        {Reply().Add(NLMSG_ERROR, Error(0)), Walk::kFailed, "RTNETLINK answers"},
        {Reply().Add(NLMSG_ERROR), Walk::kFailed, "ERROR truncated"},
        {Reply().Add(NLMSG_ERROR, Error(1).substr(0, 19)), Walk::kFailed, "ERROR truncated"},
        {Reply().Add(16).Truncated(), Walk::kFailed, "Message truncated"},
        {Reply().Add(16, "abcdefgh").Cut(1).Truncated(), Walk::kFailed, "Message truncated"},
        {Reply().Add(16, "abcdefgh").Cut(1), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Add(16).Bytes("x"), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Add(16).Bytes(std::string(15, 'x')), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Add(16, "", kDump, 15), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Add(16, "", kDump, 1), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Add(16, "", kDump, 17), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Add(16, "", kDump, 0xFFFFFFFF), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Add(16, "", kDump, 0x80000010), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Add(16, "abcde").Cut(3), Walk::kMore, untouched}, // the last one need not be filled up
    };
    for (const Row& row : rows) {
        Calls calls;
        EXPECT_EQ(Dump(row.reply, &calls), row.result) << row.text;
        EXPECT_EQ(ErrorText(), row.text);
        EXPECT_EQ(calls.junked, "");
    }
}

TEST(NetlinkDump, OnlyItsOwnMessagesAreFiltered)
{
    Calls calls;
    EXPECT_EQ(
        Dump(Reply().Add(16).Add(17, "abc", kDump + 1).Add(18, "", kDump, 0, kPort + 1).Add(19, "x").Add(20), &calls),
        Walk::kMore);
    EXPECT_EQ(calls.filtered, "16 19 20 ");
    EXPECT_EQ(calls.junked, "17 18 ");
    calls = {};
    EXPECT_EQ(Dump(Reply().Add(NLMSG_DONE, "", kDump - 1).Add(NLMSG_ERROR, "", 0).Add(NLMSG_DONE), &calls),
              Walk::kDone);
    EXPECT_EQ(calls.junked, "3 2 ");
    calls = {};
    EXPECT_EQ(Dump(Reply().Add(16).Add(NLMSG_DONE).From(99), &calls), Walk::kMore) << "from another program";
    EXPECT_EQ(calls.filtered, "");
    EXPECT_EQ(calls.junked, "16 3 ");
}

TEST(NetlinkDump, FailingCallbacksEndIt)
{
    Calls calls;
    calls.filterResult = -1;
    EXPECT_EQ(Dump(Reply().Add(16).Add(17), &calls), Walk::kFailed);
    EXPECT_EQ(ErrorText(), "call filter fail");
    EXPECT_EQ(calls.filtered, "16 ");
    calls = {};
    calls.filterResult = 1;
    EXPECT_EQ(Dump(Reply().Add(16).Add(17), &calls), Walk::kMore);
    calls.junkResult = -1;
    EXPECT_EQ(Dump(Reply().Add(16, "", 0), &calls), Walk::kFailed);
    EXPECT_EQ(ErrorText(), "call junk fail");
}

TEST(NetlinkAnswer, EveryReplyHasItsText)
{
    const std::string untouched = "(mark)";
    const uint32_t seq = kSequence;
    const Row rows[] = {
        {Reply(), Walk::kMore, untouched},
        {Reply().Add(NLMSG_ERROR, Error(0), seq), Walk::kDone, untouched},
        {Reply().Add(NLMSG_ERROR, Error(0), seq).Bytes("x").Truncated(), Walk::kDone, untouched},
        {Reply().Add(NLMSG_ERROR, Error(-EPERM), seq), Walk::kFailed, strerror(EPERM)},
        {Reply().Add(NLMSG_ERROR, Error(-ESRCH) + "more", seq), Walk::kFailed, strerror(ESRCH)},
        {Reply().Add(NLMSG_ERROR, "", seq), Walk::kFailed, "ERROR truncated"},
        {Reply().Add(NLMSG_ERROR, Error(0).substr(0, 19), seq), Walk::kFailed, "ERROR truncated"},
        {Reply().Add(16, "abc", seq), Walk::kFailed, "Unexpected reply!!!"},
        {Reply().Add(NLMSG_DONE, "", seq), Walk::kFailed, "Unexpected reply!!!"},
        {Reply().Add(NLMSG_ERROR, Error(0), seq).Cut(1).Truncated(), Walk::kFailed, "Truncated message"},
        {Reply().Add(NLMSG_ERROR, Error(0), seq).Cut(1), Walk::kFailed, "!!!malformed message"},
        {Reply().Add(16, "", seq, 15), Walk::kFailed, "!!!malformed message"},
        {Reply().Add(16, "", seq, 0xFFFFFFFF), Walk::kFailed, "!!!malformed message"},
        {Reply().Add(16, "", 0, 17), Walk::kFailed, "!!!malformed message"},
        {Reply().Add(16).Truncated(), Walk::kFailed, "Message truncated\n"},
        {Reply().Bytes("x").Truncated(), Walk::kFailed, "Message truncated\n"},
        {Reply().Add(16).Bytes("x"), Walk::kFailed, "!!!Remnant of size"},
        {Reply().Bytes("x"), Walk::kFailed, "!!!Remnant of size"},
    };
    for (const Row& row : rows) {
        Calls calls;
        EXPECT_EQ(Answer(row.reply, &calls), row.result) << row.text;
        EXPECT_EQ(ErrorText(), row.text);
    }
    for (const int odd : {INT32_MIN, INT32_MAX, 1, -100000}) {
        Calls calls;
        EXPECT_EQ(Answer(Reply().Add(NLMSG_ERROR, Error(odd), seq), &calls), Walk::kFailed) << odd;
    }
}

TEST(NetlinkAnswer, MessagesOfOtherRequestsAreJunk)
{
    Calls calls;
    const Reply reply = Reply()
                            .Add(16, "abc", kSequence - 1)
                            .Add(NLMSG_ERROR, Error(-1), kSequence + 1)
                            .Add(17, "", kSequence, 0, kPort - 1)
                            .Add(NLMSG_ERROR, Error(0), kSequence);
    EXPECT_EQ(Answer(reply, &calls), Walk::kDone);
    EXPECT_EQ(calls.junked, "16 2 17 ");
    calls = {};
    EXPECT_EQ(Answer(Reply().Add(NLMSG_ERROR, Error(0), kSequence).From(1), &calls), Walk::kMore);
    calls.junkResult = -1;
    EXPECT_EQ(Answer(Reply().Add(16, "", 0), &calls), Walk::kFailed);
    EXPECT_EQ(ErrorText(), "call junk fail");
}

// --- Receiving, with a pair of sockets in the place of the kernel's

class Pair {
public:
    explicit Pair(int type = SOCK_DGRAM)
    {
        EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_NONBLOCK, 0, ends_), 0);
        handle_ = Handle();
        handle_.fd = ends_[0];
    }
    ~Pair()
    {
        close(ends_[0]);
        CloseOther();
    }
    void CloseOther()
    {
        if (ends_[1] >= 0)
            close(std::exchange(ends_[1], -1));
    }
    void Send(const std::string& bytes) const
    {
        EXPECT_EQ(write(ends_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    rtnl_handle* Get() { return &handle_; }

private:
    int ends_[2] = {-1, -1};
    rtnl_handle handle_;
};

void ExpectDumpFails(const Pair& pair, const rtnl_handle* handle, const std::string& text)
{
    static_cast<void>(pair);
    Calls calls;
    support::MarkErrorText();
    EXPECT_EQ(rtnl_dump_filter(handle, Filter, &calls), -1);
    EXPECT_EQ(ErrorText(), text);
}

TEST(NetlinkReceive, FailuresHaveTheirTexts)
{
    Pair empty;
    ExpectDumpFails(empty, empty.Get(), "OVERRUN");
    Pair nothing;
    nothing.Send("");
    ExpectDumpFails(nothing, nothing.Get(), "EOF on netlink");
    Pair closed(SOCK_SEQPACKET);
    closed.CloseOther();
    ExpectDumpFails(closed, closed.Get(), "EOF on netlink");
    Pair stranger;
    stranger.Send(Reply().Add(NLMSG_DONE).Text());
    ExpectDumpFails(stranger, stranger.Get(), "sender address length error");
    rtnl_handle none = Handle();
    ExpectDumpFails(empty, &none, "OVERRUN");
}

TEST(NetlinkReceive, WhatCannotBeSent)
{
    rtnl_handle none = Handle();
    EXPECT_EQ(rtnl_wilddump_request(&none, AF_INET, RTM_GETADDR), -1);
    EXPECT_EQ(ErrorText(), strerror(EBADF));
    EXPECT_EQ(none.seq, kSequence + 1);
    EXPECT_EQ(none.dump, kSequence + 1);
    RouteRequest request = {};
    request.n.nlmsg_len = NLMSG_LENGTH(sizeof request.r);
    EXPECT_EQ(rtnl_talk(&none, &request.n), -1);
    EXPECT_EQ(ErrorText(), "Cannot talk to rtnetlink");
    EXPECT_EQ(request.n.nlmsg_seq, kSequence + 2);
    EXPECT_EQ(request.n.nlmsg_flags, NLM_F_ACK);
}

TEST(NetlinkHandle, IsBoundWithItsBuffers)
{
    rtnl_handle handle;
    const auto before = static_cast<uint32_t>(time(nullptr));
    ASSERT_EQ(rtnl_open(&handle), 0) << ErrorText();
    EXPECT_GE(handle.seq, before);
    EXPECT_LE(handle.seq, before + 5);
    EXPECT_NE(handle.local.nl_pid, 0u);
    EXPECT_EQ(handle.local.nl_groups, 0u);
    for (const int option : {SO_SNDBUF, SO_RCVBUF}) {
        int size = 0;
        socklen_t length = sizeof size;
        EXPECT_EQ(getsockopt(handle.fd, SOL_SOCKET, option, &size, &length), 0);
        EXPECT_EQ(size, 2 * 32768) << "the kernel doubles it";
    }
    EXPECT_TRUE(fcntl(handle.fd, F_GETFD) & FD_CLOEXEC);
    rtnl_close(&handle);
    EXPECT_EQ(handle.fd, -1);
}

/// A real reply and one that is not: a packet of the kernel's cannot be too long, but asked for with a full buffer.
TEST(NetlinkHandle, TalksToTheKernel)
{
    rtnl_handle handle;
    ASSERT_EQ(rtnl_open(&handle), 0) << ErrorText();
    nlmsghdr nothing = {};
    nothing.nlmsg_len = sizeof nothing;
    nothing.nlmsg_type = NLMSG_NOOP;
    nothing.nlmsg_flags = NLM_F_REQUEST;
    EXPECT_EQ(rtnl_talk(&handle, &nothing), 0) << ErrorText();
    RouteRequest unknown = {};
    unknown.n.nlmsg_len = NLMSG_LENGTH(sizeof unknown.r);
    unknown.n.nlmsg_type = 4000;
    unknown.n.nlmsg_flags = NLM_F_REQUEST;
    EXPECT_EQ(rtnl_talk(&handle, &unknown.n), -1);
    EXPECT_EQ(ErrorText(), strerror(EOPNOTSUPP));
    rtnl_close(&handle);
}

// --- Attributes

TEST(NetlinkAttributes, DoNotGrowBeyondTheBound)
{
    struct {
        nlmsghdr n;
        char room[32];
        char guard[32];
    } message = {};
    message.n.nlmsg_len = sizeof message.n;
    memset(message.guard, 0x5A, sizeof message.guard);
    const size_t bound = sizeof message.n + sizeof message.room;
    EXPECT_EQ(addattr32(&message.n, bound, 7, 0x01020304), 0);
    EXPECT_EQ(message.n.nlmsg_len, sizeof message.n + 8);
    EXPECT_EQ(addattr_l(&message.n, bound, 8, "abcde", 5), 0);
    EXPECT_EQ(message.n.nlmsg_len, sizeof message.n + 20);
    EXPECT_EQ(addattr_l(&message.n, bound, 9, "123456789", 9), -1);
    EXPECT_EQ(ErrorText(), "addattr_l ERROR: message exceeded bound");
    EXPECT_EQ(addattr_l(&message.n, bound, 9, "12345678", 8), 0);
    EXPECT_EQ(addattr32(&message.n, bound, 7, 1), -1);
    EXPECT_EQ(ErrorText(), "addattr32: Error! max allowed bound exceeded");
    EXPECT_EQ(addattr_l(&message.n, 100000, 9, nullptr, 65536), -1);
    EXPECT_EQ(ErrorText(), "addattr_l ERROR: message exceeded bound");
    EXPECT_EQ(message.n.nlmsg_len, bound);
    EXPECT_EQ(std::string(message.guard, sizeof message.guard), std::string(sizeof message.guard, 0x5A));

    const rtattr* table[10];
    parse_rtattr(table, 9, message.room, sizeof message.room);
    ASSERT_TRUE(table[7] != nullptr && table[8] != nullptr && table[9] != nullptr && table[0] == nullptr);
    EXPECT_EQ(RTA_PAYLOAD(table[8]), 5u);
    EXPECT_EQ(memcmp(AttributeData(table[8]), "abcde", 5), 0);
    parse_rtattr(table, 8, message.room, sizeof message.room - 1);
    EXPECT_NE(table[8], nullptr) << "a type beyond the last is left out";
    parse_rtattr(table, 9, message.room, sizeof message.room - 1);
    EXPECT_EQ(table[9], nullptr) << "and so is one that is cut";
}

TEST(NetlinkAttributes, OddLengthsEndThem)
{
    for (const unsigned length : {0u, 1u, 3u, 9u, 65535u}) {
        rtattr attributes[2] = {};
        attributes[0].rta_len = static_cast<unsigned short>(length);
        attributes[0].rta_type = 1;
        const rtattr* table[2];
        parse_rtattr(table, 1, reinterpret_cast<const char*>(attributes), sizeof attributes);
        EXPECT_EQ(table[1], nullptr) << length;
    }
    const rtattr* table[2];
    parse_rtattr(table, 1, nullptr, 0);
    EXPECT_EQ(table[1], nullptr);
}

// --- Messages about addresses

std::string AddressMessage(unsigned interface, int family,
                           const std::vector<std::pair<uint16_t, std::string>>& attributes)
{
    ifaddrmsg about = {};
    about.ifa_family = static_cast<unsigned char>(family);
    about.ifa_index = interface;
    std::string content(reinterpret_cast<const char*>(&about), sizeof about);
    for (const auto& [type, text] : attributes) {
        unsigned char bytes[16];
        const int of = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
        const size_t size = inet_pton(of, text.c_str(), bytes) != 1 ? 2 : of == AF_INET ? 4 : 16;
        const rtattr header = {static_cast<unsigned short>(sizeof(rtattr) + size), type};
        content.append(reinterpret_cast<const char*>(&header), sizeof header);
        content.append(reinterpret_cast<const char*>(bytes), size);
        content.resize(RTA_ALIGN(content.size()));
    }
    return content;
}

void Store(MessageList* list, const Reply& reply)
{
    const NetlinkHandlers handlers = {store_nlmsg, list, nullptr, nullptr};
    EXPECT_EQ(reply.With([&](const NetlinkDatagram& datagram) { return WalkDump(Handle(), datagram, handlers); }),
              Walk::kMore);
}

std::string AddressAt(const MessageList& list, int index, int family = AF_INET)
{
    char text[INET6_ADDRSTRLEN] = "";
    EXPECT_EQ(FindAddress(list, 5, family, index, text), 0) << ErrorText();
    return text;
}

TEST(NetlinkAddresses, LocalAndPeerStandInForEachOther)
{
    MessageList list;
    Store(&list, Reply()
                     .Add(RTM_NEWADDR, AddressMessage(5, AF_INET, {{IFA_LOCAL, "192.0.2.1"}}))
                     .Add(RTM_NEWADDR, AddressMessage(5, AF_INET, {{IFA_ADDRESS, "192.0.2.2"}}))
                     .Add(RTM_NEWADDR, AddressMessage(5, AF_INET, {{IFA_ADDRESS, "1.1.1.1"}, {IFA_LOCAL, "192.0.2.3"}}))
                     .Add(RTM_NEWADDR, AddressMessage(6, AF_INET, {{IFA_LOCAL, "2.2.2.2"}}))
                     .Add(RTM_NEWADDR, AddressMessage(5, AF_INET6, {{IFA_ADDRESS, "2001:db8::1"}}))
                     .Add(RTM_DELADDR, AddressMessage(5, AF_INET, {{IFA_LOCAL, "3.3.3.3"}}))
                     .Add(RTM_NEWADDR, AddressMessage(5, AF_INET, {}))
                     .Add(RTM_NEWADDR, AddressMessage(5, AF_INET, {{IFA_LOCAL, "short"}}))
                     .Add(RTM_NEWLINK, "x"));
    Store(&list, Reply().Add(RTM_NEWADDR, AddressMessage(5, AF_INET, {{IFA_LOCAL, "192.0.2.4"}})));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(AddressAt(list, i), "192.0.2." + std::to_string(i + 1));
    EXPECT_EQ(AddressAt(list, 4), "");
    EXPECT_EQ(AddressAt(list, -1), "");
    EXPECT_EQ(AddressAt(list, 0, AF_INET6), "2001:db8::1");
    EXPECT_EQ(AddressAt(MessageList(), 0), "");
}

TEST(NetlinkAddresses, AShortMessageIsToldAbout)
{
    MessageList list;
    Store(&list,
          Reply().Add(RTM_NEWADDR, AddressMessage(5, AF_INET, {{IFA_LOCAL, "192.0.2.1"}})).Add(RTM_NEWADDR, "1234567"));
    EXPECT_EQ(AddressAt(list, 0), "192.0.2.1") << "found before";
    char text[INET6_ADDRSTRLEN] = "";
    EXPECT_EQ(FindAddress(list, 5, AF_INET, 1, text), -1);
    EXPECT_EQ(ErrorText(), "wrong len");
    EXPECT_STREQ(text, "");
}

TEST(NetlinkAddresses, ManyMessagesKeepTheirOrder)
{
    MessageList list;
    for (int i = 0; i < 5000; ++i)
        Store(&list, Reply().Add(static_cast<uint16_t>(i + 16), std::string(static_cast<size_t>(i % 97), 'x')));
    int count = 0;
    for (const nlmsghdr* message = list.Next(nullptr); message != nullptr; message = list.Next(message)) {
        ASSERT_EQ(message->nlmsg_type, count + 16);
        ASSERT_EQ(message->nlmsg_len, sizeof *message + static_cast<size_t>(count % 97));
        ++count;
    }
    EXPECT_EQ(count, 5000);
}

// --- Prefixes

TEST(NetlinkPrefix, WordsAndLengths)
{
    const struct {
        const char* text;
        int family;
        int bytelen;
        int bitlen;
    } rows[] = {
        {"default", AF_INET, 4, 0},         {"all", AF_INET, 4, 0},
        {"any", AF_INET6, 16, 0},           {"192.0.2.1", AF_INET, 4, 32},
        {"192.0.2.1/0", AF_INET, 4, 0},     {"192.0.2.1/24", AF_INET, 4, 24},
        {"192.0.2.1/32", AF_UNSPEC, 4, 32}, {"2001:db8::/32", AF_INET6, 16, 32},
        {"::1", AF_UNSPEC, 16, 128},
    };
    for (const auto& row : rows) {
        inet_prefix prefix;
        EXPECT_EQ(get_prefix(&prefix, row.text, row.family), 0) << row.text;
        EXPECT_EQ(prefix.family, row.bytelen == 4 ? AF_INET : AF_INET6);
        EXPECT_EQ(prefix.bytelen, row.bytelen);
        EXPECT_EQ(prefix.bitlen, row.bitlen);
        const bool isWord = isalpha(row.text[0]) != 0;
        EXPECT_EQ(prefix.flags, isWord ? kPrefixIsAny : 0);
        unsigned char bytes[16] = {};
        const std::string address = row.text;
        EXPECT_TRUE(isWord || inet_pton(prefix.family, address.substr(0, address.find('/')).c_str(), bytes) == 1);
        EXPECT_EQ(memcmp(prefix.data, bytes, sizeof bytes), 0);
    }
}

TEST(NetlinkPrefix, BadTexts)
{
    const struct {
        const char* text;
        int family;
        std::string error;
    } rows[] = {
        {"192.0.2.1/33", AF_INET, "Wrong address length."},
        {"192.0.2.1/-1", AF_INET, "Wrong address length."},
        {"192.0.2.1/+1", AF_INET, "Wrong address length."},
        {"192.0.2.1/-0", AF_INET, "Wrong address length."},
        {"192.0.2.1/ 1", AF_INET, "Wrong address length."},
        {"192.0.2.1/1x", AF_INET, "Wrong address length."},
        {"192.0.2.1/", AF_INET, "Wrong address length."},
        {"192.0.2.1/4294967328", AF_INET, "Wrong address length."},
        {"::/129", AF_INET6, "Wrong address length."},
        {"::1", AF_INET, "Wrong address family."},
        {"::1/200", AF_INET, "Wrong address family."},
        {"192.0.2.1", AF_INET6, "Wrong address family."},
        {"192.0.2.1", AF_UNIX, "Wrong address family."},
        {"default", 77, "Wrong address family."},
        {"defaultx", AF_INET, strerror(EINVAL)},
        {"", AF_INET, strerror(EINVAL)},
        {"/24", AF_INET, strerror(EINVAL)},
        {"1.2.3.4.5", AF_INET, strerror(EINVAL)},
    };
    for (const auto& row : rows) {
        inet_prefix prefix;
        support::MarkErrorText();
        EXPECT_EQ(get_prefix(&prefix, row.text, row.family), -1) << row.text;
        EXPECT_EQ(ErrorText(), row.error) << row.text;
    }
    inet_prefix prefix;
    EXPECT_EQ(get_prefix(&prefix, std::string(100000, '1').c_str(), AF_INET), -1);
    EXPECT_EQ(get_addr(&prefix, "192.0.2.1/31", AF_INET), -1);
    EXPECT_EQ(ErrorText(), "Wrong address length.");
    EXPECT_EQ(get_addr(&prefix, "192.0.2.1/32", AF_INET), 0);
    EXPECT_EQ(get_addr(&prefix, "any", AF_INET), 0);
}

} // namespace
