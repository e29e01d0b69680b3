// Replies of the kernel's routing netlink, and addresses with prefixes. The first byte chooses; of replies, the model is a
// second, slow reading of what a datagram means.
#include <arpa/inet.h>
#include <string.h>

#include <algorithm>

#include "../../src/internal/error.h"
#include "../../src/internal/rtnetlink.h"
#include "fuzz.h"

namespace {

constexpr uint32_t kPort = 1;
constexpr uint32_t kNumber = 2; // of the request that is answered

struct Kind {
    bool isDump;
    bool isTruncated;
    bool isFromKernel;
    bool filterFails;
    bool junkFails;
};

/// What must come of a datagram.
struct Outcome {
    Walk result = Walk::kMore;
    std::string text; ///< empty if it is not looked at
    std::vector<size_t> filtered;
    std::vector<size_t> junked;
};

uint32_t Number(const std::string& bytes, size_t at, size_t size)
{
    uint32_t value = 0;
    memcpy(&value, bytes.data() + at, size);
    return value;
}

Outcome Failed(Outcome outcome, const char* text)
{
    outcome.result = Walk::kFailed;
    outcome.text = text;
    return outcome;
}

Outcome ModelOfRest(const Outcome& outcome, const Kind& kind, size_t left)
{
    if (kind.isTruncated)
        return Failed(outcome, kind.isDump ? "Message truncated" : "Message truncated\n");
    return left == 0 ? outcome : Failed(outcome, "!!!Remnant of size");
}

Outcome ModelOf(const std::string& bytes, const Kind& kind)
{
    Outcome outcome;
    for (size_t at = 0;;) {
        const size_t left = bytes.size() - std::min(at, bytes.size());
        if (left < 16)
            return ModelOfRest(outcome, kind, left);
        const size_t length = Number(bytes, at, 4);
        if (length < 16 || length > left) {
            if (kind.isDump)
                return ModelOfRest(outcome, kind, left);
            return Failed(outcome, kind.isTruncated ? "Truncated message" : "!!!malformed message");
        }
        const uint32_t type = Number(bytes, at + 4, 2);
        const bool isOurs =
            kind.isFromKernel && Number(bytes, at + 8, 4) == kNumber && Number(bytes, at + 12, 4) == kPort;
        if (!isOurs) {
            outcome.junked.push_back(at);
            if (kind.junkFails)
                return Failed(outcome, "call junk fail");
        } else if (type == 2) {
            if (length < 36)
                return Failed(outcome, "ERROR truncated");
            if (kind.isDump)
                return Failed(outcome, "RTNETLINK answers");
            outcome.result = Number(bytes, at + 16, 4) == 0 ? Walk::kDone : Walk::kFailed;
            return outcome;
        } else if (!kind.isDump) {
            return Failed(outcome, "Unexpected reply!!!");
        } else if (type == 3) {
            outcome.result = Walk::kDone;
            return outcome;
        } else {
            outcome.filtered.push_back(at);
            if (kind.filterFails)
                return Failed(outcome, "call filter fail");
        }
        at += (length + 3) / 4 * 4;
    }
}

/// What the callbacks were told.
struct Told {
    const char* start;
    Kind kind;
    MessageList messages;
    std::vector<size_t> filtered;
    std::vector<size_t> junked;
};

size_t PlaceOf(const nlmsghdr* message, const Told& told)
{
    return static_cast<size_t>(reinterpret_cast<const char*>(message) - told.start);
}

int Filter(const sockaddr_nl& who, const nlmsghdr* message, void* argument)
{
    auto* const told = static_cast<Told*>(argument);
    told->filtered.push_back(PlaceOf(message, *told));
    REQUIRE(store_nlmsg(who, message, &told->messages) == 0);
    return told->kind.filterFails ? -1 : 0;
}

int Junk(const sockaddr_nl&, const nlmsghdr* message, void* argument)
{
    auto* const told = static_cast<Told*>(argument);
    told->junked.push_back(PlaceOf(message, *told));
    return told->kind.junkFails ? -1 : 0;
}

/// An address that is found is one.
void CheckAddresses(const MessageList& messages)
{
    for (const int family : {AF_INET, AF_INET6, 99}) {
        for (int index = 0; index < 4; ++index) {
            char text[INET6_ADDRSTRLEN] = "";
            unsigned char bytes[16];
            const int result = FindAddress(messages, 1, family, index, text);
            REQUIRE(result == 0 || *text == '\0');
            REQUIRE(*text == '\0' || inet_pton(family, text, bytes) == 1);
        }
    }
}

void CheckReply(const std::string& bytes, const Kind& kind)
{
    const Exact<char> copy(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.Get());
    rtnl_handle handle = {};
    handle.local.nl_pid = kPort;
    handle.seq = handle.dump = kNumber;
    NetlinkDatagram datagram = {};
    datagram.from.nl_pid = kind.isFromKernel ? 0 : 7;
    datagram.bytes = copy.Get();
    datagram.size = bytes.size();
    datagram.isTruncated = kind.isTruncated;
    Told told = {copy.Get(), kind, {}, {}, {}};
    const NetlinkHandlers handlers = {Filter, &told, Junk, &told};
    GeneralMisc_SetErrorString("");
    const Walk result = kind.isDump ? WalkDump(handle, datagram, handlers) : WalkAnswer(handle, datagram, handlers);
    const Outcome expected = ModelOf(bytes, kind);
    REQUIRE(result == expected.result);
    REQUIRE(expected.text.empty() || expected.text == g_General_ErrorInfo);
    REQUIRE(result == Walk::kFailed || *g_General_ErrorInfo == '\0');
    REQUIRE(told.filtered == expected.filtered);
    REQUIRE(told.junked == expected.junked);
    CheckAddresses(told.messages);
}

void CheckPrefix(const std::string& text)
{
    const Exact<char> copy(text.size() + 1);
    std::copy_n(text.c_str(), text.size() + 1, copy.Get());
    for (const int family : {AF_UNSPEC, AF_INET, AF_INET6}) {
        inet_prefix prefix;
        inet_prefix address;
        const int isPrefix = get_prefix(&prefix, copy.Get(), family) == 0;
        const int isAddress = get_addr(&address, copy.Get(), family) == 0;
        REQUIRE(isPrefix || !isAddress);
        if (!isPrefix)
            continue;
        REQUIRE(prefix.family == AF_INET || prefix.family == AF_INET6);
        REQUIRE(prefix.bytelen == (prefix.family == AF_INET ? 4 : 16));
        REQUIRE(prefix.bitlen >= 0 && prefix.bitlen <= prefix.bytelen * 8);
        const size_t slash = text.find('/');
        unsigned char bytes[16] = {};
        REQUIRE(prefix.flags == kPrefixIsAny || inet_pton(prefix.family, text.substr(0, slash).c_str(), bytes) == 1);
        REQUIRE(memcmp(bytes, prefix.data, sizeof bytes) == 0);
        REQUIRE(slash == std::string::npos || atoi(text.c_str() + slash + 1) == prefix.bitlen);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto bit = [&](unsigned number) { return (data[0] >> number & 1) != 0; };
    if (bit(7))
        CheckPrefix(Texts(data + 1, size - 1, 1)[0]);
    else
        CheckReply(rest, {!bit(0), bit(1), !bit(2), bit(3), bit(4)});
    return 0;
}
