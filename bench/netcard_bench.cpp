// Listing addresses and interfaces, with 1,000 of each in a network of this program's own, against dumps by libmnl, which
// ask the kernel for the same. Making that network takes root; without, everything is skipped.
#include <ZKQ_general/ip.h>
#include <ZKQ_general/netcard.h>
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <ifaddrs.h>
#include <libmnl/libmnl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>

#include <linux/rtnetlink.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

constexpr int kCount = 1000;
constexpr std::size_t kDumpSize = 32768; // what libmnl's newer versions advise
constexpr const char* kDevice = "a0";

/// Interfaces a0 to a499 and b0 to b499, and a thousand addresses on the first.
bool MakeNetwork()
{
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0 || mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
        return false;
    FILE* const ip = popen("ip -batch - >/dev/null 2>&1", "w");
    for (int i = 0; i < kCount / 2; ++i)
        fprintf(ip, "link add a%d type veth peer name b%d\n", i, i);
    for (int i = 0; i < kCount; ++i)
        fprintf(ip, "addr add 10.0.%d.%d/8 dev %s\n", i / 250, i % 250 + 1, kDevice);
    return pclose(ip) == 0;
}

bool HasNetwork(benchmark::State& state)
{
    static const bool isMade = MakeNetwork();
    if (!isMade)
        state.SkipWithError("skipped: no rights to make a network");
    return isMade;
}

/// The last of the thousand: all of them are looked at.
void GetAddress(benchmark::State& state)
{
    if (!HasNetwork(state))
        return;
    for (auto _ : state) {
        char text[INET6_ADDRSTRLEN];
        if (!Network_GetIPAddress(kDevice, 0, text, kCount - 1) || std::strcmp(text, "10.0.3.250") != 0)
            state.SkipWithError("not found");
        benchmark::DoNotOptimize(text);
    }
}

struct Search {
    unsigned device = 0;
    int index = 0;
    char text[INET6_ADDRSTRLEN] = "";
};

/// Calls `use` with each attribute behind a header of that size, until it returns false.
template <class Use>
void ForEachAttribute(const nlmsghdr* message, std::size_t header, Use use)
{
    const auto* attribute = static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(message, header));
    const auto* const tail = static_cast<const char*>(mnl_nlmsg_get_payload_tail(message));
    while (mnl_attr_ok(attribute, static_cast<int>(tail - reinterpret_cast<const char*>(attribute))) && use(attribute))
        attribute = mnl_attr_next(attribute);
}

int TakeLink(const nlmsghdr* message, void* data)
{
    auto* const search = static_cast<Search*>(data);
    const auto* const link = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
    ForEachAttribute(message, sizeof *link, [&](const nlattr* attribute) {
        const bool isName = mnl_attr_get_type(attribute) == IFLA_IFNAME;
        if (isName && std::strcmp(mnl_attr_get_str(attribute), kDevice) == 0)
            search->device = static_cast<unsigned>(link->ifi_index);
        return !isName;
    });
    return MNL_CB_OK;
}

int TakeAddress(const nlmsghdr* message, void* data)
{
    auto* const search = static_cast<Search*>(data);
    const auto* const about = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(message));
    if (about->ifa_index != search->device)
        return MNL_CB_OK;
    ForEachAttribute(message, sizeof *about, [&](const nlattr* attribute) {
        const bool isLocal = mnl_attr_get_type(attribute) == IFA_LOCAL;
        if (isLocal && search->index++ == kCount - 1)
            inet_ntop(AF_INET, mnl_attr_get_payload(attribute), search->text, sizeof search->text);
        return !isLocal;
    });
    return MNL_CB_OK;
}

bool Dump(mnl_socket* socket, unsigned short type, int family, mnl_cb_t take, Search* search)
{
    std::vector<char> buffer(kDumpSize);
    nlmsghdr* const request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request->nlmsg_seq = static_cast<unsigned>(std::time(nullptr));
    static_cast<rtgenmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtgenmsg)))->rtgen_family =
        static_cast<unsigned char>(family);
    const unsigned sequence = request->nlmsg_seq;
    if (mnl_socket_sendto(socket, request, request->nlmsg_len) < 0)
        return false;
    int result = MNL_CB_OK;
    while (result == MNL_CB_OK) {
        const ssize_t size = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
        if (size <= 0)
            return false;
        result = mnl_cb_run(buffer.data(), static_cast<std::size_t>(size), sequence, mnl_socket_get_portid(socket),
                            take, search);
    }
    return result == MNL_CB_STOP;
}

void GetAddressByMnl(benchmark::State& state)
{
    if (!HasNetwork(state))
        return;
    for (auto _ : state) {
        Search search;
        mnl_socket* const socket = mnl_socket_open(NETLINK_ROUTE);
        if (mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) < 0 ||
            !Dump(socket, RTM_GETLINK, AF_UNSPEC, TakeLink, &search) ||
            !Dump(socket, RTM_GETADDR, AF_INET, TakeAddress, &search) || std::strcmp(search.text, "10.0.3.250") != 0)
            state.SkipWithError("not found");
        mnl_socket_close(socket);
        benchmark::DoNotOptimize(search);
    }
}

void ListCards(benchmark::State& state)
{
    if (!HasNetwork(state))
        return;
    std::vector<NETCARDINFO> cards(kCount + 16);
    for (auto _ : state) {
        int count = 0;
        if (!Network_GetNetCardInfo(cards.data(), &count) || count != kCount)
            state.SkipWithError("not all");
        benchmark::ClobberMemory();
    }
}

/// What the kernel tells the C library of addresses and hardware addresses.
void ListByGetifaddrs(benchmark::State& state)
{
    if (!HasNetwork(state))
        return;
    for (auto _ : state) {
        ifaddrs* list = nullptr;
        if (getifaddrs(&list) != 0)
            state.SkipWithError("no list");
        int count = 0;
        for (const ifaddrs* item = list; item != nullptr; item = item->ifa_next)
            ++count;
        if (count < 2 * kCount)
            state.SkipWithError("not all");
        freeifaddrs(list);
    }
}

BENCHMARK(GetAddress)->Name("netcard/address/ours");
BENCHMARK(GetAddressByMnl)->Name("netcard/address/libmnl");
BENCHMARK(ListCards)->Name("netcard/cards/ours");
BENCHMARK(ListByGetifaddrs)->Name("netcard/cards/getifaddrs");

} // namespace
