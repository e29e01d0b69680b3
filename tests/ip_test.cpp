// Addresses and the default route, in networks of the tests' own, with the program ip as judge.
#include <ZKQ_general/ip.h>
#include <arpa/inet.h>
#include <limits.h>
#include <sys/resource.h>

#include <sstream>
#include <thread>
#include <vector>

#include "support/buffer.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/network_namespace.h"
#include "support/signals.h"

namespace {

using support::EnterNetwork;
using support::ErrorText;
using support::Output;
using support::Shell;

void AddCable(const std::string& end = "v0", const std::string& other = "v1")
{
    if (!Shell("ip link add " + end + " type veth peer name " + other + " && ip link set addrgenmode none dev " + end +
               " && ip link set addrgenmode none dev " + other + " && ip link set up " + end + " && ip link set up " +
               other))
        support::SkipChild("veth");
}

void ExpectText(const std::string& text, BOOL result)
{
    EXPECT_FALSE(result);
    EXPECT_EQ(ErrorText(), text);
    support::MarkErrorText();
}

std::string AddressAt(const char* device, int family, int index)
{
    support::Buffer text(INET6_ADDRSTRLEN);
    EXPECT_TRUE(Network_GetIPAddress(device, family, text.Data(), index)) << ErrorText();
    EXPECT_TRUE(text.GuardIntact());
    return text.Text();
}

/// All addresses as the program ip lists them.
std::vector<std::string> AddressesByIp(const std::string& device, const std::string& family)
{
    std::istringstream output(
        Output("ip " + family + " -o addr show dev " + device + " | sed 's,.*inet6* ,,; s,[/ ].*,,'"));
    std::vector<std::string> addresses;
    std::string address;
    while (output >> address)
        addresses.push_back(address);
    return addresses;
}

TEST(IpAddress, OfTheLoopbackInterface)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        EXPECT_EQ(AddressAt("lo", 0, 0), "127.0.0.1");
        EXPECT_EQ(AddressAt("lo", AF_INET, 0), "127.0.0.1");
        EXPECT_EQ(AddressAt("lo", AF_INET6, 0), "::1");
        support::MarkErrorText();
        for (const int index : {1, 2, -1, INT_MAX, INT_MIN})
            EXPECT_EQ(AddressAt("lo", 0, index), "") << "fewer are no failure";
        EXPECT_EQ(AddressAt("lo", AF_UNIX, 0), "");
        EXPECT_EQ(AddressAt("lo", 99, 0), "");
        EXPECT_EQ(AddressAt("lo", -1, 0), "");
        EXPECT_TRUE(support::ErrorTextIsMarked());
    });
}

TEST(IpAddress, ComeInTheKernelsOrder)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable("v0", "fifteen_bytes_x");
        EXPECT_TRUE(Shell("for i in $(seq 1 200); do echo addr add 192.0.2.$i/24 dev v0; "
                          "echo addr add 2001:db8::$i:abcd:1/64 nodad dev v0; "
                          "echo addr add 198.51.$i.1/32 dev fifteen_bytes_x; done | ip -batch -"));
        for (const char* const device : {"v0", "fifteen_bytes_x"}) {
            const std::vector<std::string> v4 = AddressesByIp(device, "-4");
            EXPECT_EQ(v4.size(), 200);
            for (size_t i = 0; i < v4.size(); ++i)
                EXPECT_EQ(AddressAt(device, 0, static_cast<int>(i)), v4[i]);
            EXPECT_EQ(AddressAt(device, 0, 200), "");
        }
        const std::vector<std::string> v6 = AddressesByIp("v0", "-6");
        EXPECT_EQ(v6.size(), 200);
        for (size_t i = 0; i < v6.size(); ++i)
            EXPECT_EQ(AddressAt("v0", AF_INET6, static_cast<int>(i)), v6[i]);
    });
}

TEST(IpAddress, OfAnEndOfALineIsTheLocalOne)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        EXPECT_TRUE(Shell("ip addr add 192.0.2.1 peer 192.0.2.99 dev v0 && "
                          "ip addr add 2001:db8::1 peer 2001:db8::99 nodad dev v0"));
        EXPECT_EQ(AddressAt("v0", 0, 0), "192.0.2.1");
        EXPECT_EQ(AddressAt("v0", AF_INET6, 0), "2001:db8::1");
    });
}

TEST(IpAddress, LongestTextFits)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        const std::string longest = "2001:1111:2222:3333:4444:5555:6666:7777";
        EXPECT_TRUE(Shell("ip addr add " + longest + "/64 nodad dev v0"));
        EXPECT_EQ(AddressAt("v0", AF_INET6, 0), longest);
    });
}

TEST(IpAddress, UnknownDevices)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable("fifteen_bytes_x", "v1");
        for (const std::string& text :
             {std::string("nobody"), std::string(), std::string("fifteen_bytes_xy"), std::string("fifteen_bytes_"),
              std::string("../lo"), std::string("lo "), std::string(5000, 'v')}) {
            const std::vector<char> name(text.c_str(), text.c_str() + text.size() + 1);
            char ip[46] = "unset";
            ExpectText("Device does not exist.", Network_GetIPAddress(name.data(), 0, ip, 0));
            EXPECT_STREQ(ip, "");
            ExpectText("Device does not exist.", Network_SetDefaultGateway(name.data(), 0, "192.0.2.2"));
            ExpectText("Device does not exist.", Network_SetDefaultGateway(name.data(), 0, "no address"));
            ExpectText("Device does not exist.", Network_DeleteDefaultGateway(name.data()));
        }
    });
}

TEST(IpAddress, TheLinksAreThoseOfNow)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        EXPECT_EQ(AddressAt("v0", 0, 0), "");
        EXPECT_TRUE(Shell("ip link set v0 down && ip link set v0 name w0 && ip addr add 192.0.2.1/24 dev w0"));
        char ip[46];
        ExpectText("Device does not exist.", Network_GetIPAddress("v0", 0, ip, 0));
        EXPECT_EQ(AddressAt("w0", 0, 0), "192.0.2.1");
    });
}

TEST(IpAddress, NullIsRefused)
{
    char ip[46] = "unset";
    ExpectText(strerror(EINVAL), Network_GetIPAddress(nullptr, 0, ip, 0));
    EXPECT_STREQ(ip, "");
    ExpectText(strerror(EINVAL), Network_GetIPAddress("lo", 0, nullptr, 0));
    ExpectText(strerror(EINVAL), Network_SetDefaultGateway(nullptr, 0, "192.0.2.2"));
    ExpectText(strerror(EINVAL), Network_SetDefaultGateway("lo", 0, nullptr));
    ExpectText(strerror(EINVAL), Network_DeleteDefaultGateway(nullptr));
    EXPECT_EQ(ll_init_map(nullptr), -1);
    EXPECT_EQ(ErrorText(), strerror(EINVAL));
}

TEST(IpAddress, MapOfLinksOverAConversationOfTheCallers)
{
    rtnl_handle handle = {};
    handle.fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    ASSERT_GE(handle.fd, 0);
    handle.local.nl_family = AF_NETLINK;
    auto* const local = reinterpret_cast<sockaddr*>(&handle.local);
    socklen_t length = sizeof handle.local;
    ASSERT_EQ(bind(handle.fd, local, length), 0);
    ASSERT_EQ(getsockname(handle.fd, local, &length), 0);
    handle.seq = 41;
    EXPECT_EQ(ll_init_map(&handle), 0) << ErrorText();
    EXPECT_EQ(handle.seq, 42u);
    EXPECT_EQ(handle.dump, 42u);
    EXPECT_EQ(ll_init_map(&handle), 0) << ErrorText();
    EXPECT_EQ(handle.dump, 43u);
    close(handle.fd);
    EXPECT_EQ(ll_init_map(&handle), -1);
    EXPECT_EQ(ErrorText(), strerror(EBADF));
}

// --- Default routes

void AddHost()
{
    AddCable();
    EXPECT_TRUE(Shell("ip addr add 192.0.2.1/24 dev v0 && ip addr add 2001:db8::1/64 nodad dev v0 && "
                      "ip addr add 198.51.100.1/24 dev v1"));
}

std::string Routes(const std::string& family = "-4")
{
    // blanks at the end of a line are the program's
    return Output("ip " + family + " route show table main default | sed 's/ *$//'");
}

TEST(DefaultRoute, IsAddedAndDeleted)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddHost();
        support::MarkErrorText();
        EXPECT_TRUE(Network_SetDefaultGateway("v0", 0, "192.0.2.2")) << ErrorText();
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_EQ(Routes(), "default via 192.0.2.2 dev v0");
        EXPECT_EQ(Output("ip -N -d route show default | sed 's/ *$//'"),
                  "1 default via 192.0.2.2 dev v0 proto 3 scope 0")
            << "unicast, by boot, of the universe";
        EXPECT_TRUE(Network_SetDefaultGateway("v0", AF_INET, "192.0.2.3")) << "behind the first";
        EXPECT_EQ(Routes(), "default via 192.0.2.2 dev v0\ndefault via 192.0.2.3 dev v0");
        EXPECT_TRUE(Network_SetDefaultGateway("v1", 0, "198.51.100.2"));
        EXPECT_TRUE(Network_DeleteDefaultGateway("v0")) << ErrorText();
        EXPECT_EQ(Routes(), "default via 192.0.2.3 dev v0\ndefault via 198.51.100.2 dev v1");
        EXPECT_TRUE(Network_DeleteDefaultGateway("v0"));
        EXPECT_TRUE(Network_DeleteDefaultGateway("v1"));
        EXPECT_EQ(Routes(), "");
        ExpectText(strerror(ESRCH), Network_DeleteDefaultGateway("v0"));
    });
}

TEST(DefaultRoute, OfIPv6)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddHost();
        EXPECT_TRUE(Network_SetDefaultGateway("v0", AF_INET6, "2001:db8::2")) << ErrorText();
        EXPECT_EQ(Routes("-6").substr(0, 33), "default via 2001:db8::2 dev v0 me");
        EXPECT_EQ(Routes(), "");
        ExpectText(strerror(ESRCH), Network_DeleteDefaultGateway("v0")); // which is about IPv4
    });
}

TEST(DefaultRoute, ADeviceThroughNoGateway)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddHost();
        EXPECT_TRUE(Network_SetDefaultGateway("v0", 0, "default")) << ErrorText();
        EXPECT_EQ(Routes().substr(0, 14), "default dev v0");
        EXPECT_TRUE(Network_DeleteDefaultGateway("v0")) << ErrorText();
        EXPECT_EQ(Routes(), "");
    });
}

TEST(DefaultRoute, TheKernelsRefusalIsTold)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddHost();
        ExpectText(strerror(ENETUNREACH), Network_SetDefaultGateway("v0", 0, "203.0.113.1"));
        EXPECT_TRUE(Network_SetDefaultGateway("v0", 0, "192.0.2.2"));
        ExpectText(strerror(EEXIST), Network_SetDefaultGateway("v0", 0, "192.0.2.2"));
        EXPECT_TRUE(Shell("ip link set v1 down"));
        ExpectText(strerror(ENETDOWN), Network_SetDefaultGateway("v1", 0, "default"));
        support::BecomeNobody();
        ExpectText(strerror(EPERM), Network_SetDefaultGateway("v0", 0, "192.0.2.3"));
        ExpectText(strerror(EPERM), Network_DeleteDefaultGateway("v0"));
        EXPECT_EQ(AddressAt("v0", 0, 0), "192.0.2.1") << "but everybody may look";
    });
}

TEST(DefaultRoute, AddressesThatAreNone)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddHost();
        const struct {
            int family;
            const char* address;
            const char* text;
        } rows[] = {
            {0, "2001:db8::2", "Wrong address family."},
            {AF_INET, "::1", "Wrong address family."},
            {AF_INET6, "192.0.2.2", "Wrong address family."},
            {AF_UNIX, "192.0.2.2", "Wrong address family."},
            {-1, "192.0.2.2", "Wrong address family."},
            {0, "192.0.2.2/24", "Wrong address length."},
            {0, "192.0.2.2/33", "Wrong address length."},
            {0, "192.0.2.2/", "Wrong address length."},
            {AF_INET6, "2001:db8::2/129", "Wrong address length."},
            {0, "", strerror(EINVAL)},
            {0, "192.0.2", strerror(EINVAL)},
            {0, "192.0.2.2 ", strerror(EINVAL)},
            {0, "localhost", strerror(EINVAL)},
        };
        for (const auto& row : rows)
            ExpectText(row.text, Network_SetDefaultGateway("v0", row.family, row.address));
        EXPECT_EQ(Routes(), "");
    });
}

// --- Hard times

TEST(IpAddress, NothingLeaks)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddHost();
        const int before = dup(0);
        close(before);
        char ip[46];
        support::ExpectNothingLeaks([&] {
            Network_GetIPAddress("v0", 0, ip, 0);
            Network_GetIPAddress("nobody", 0, ip, 0);
            Network_SetDefaultGateway("v0", 0, "::1");
            Network_SetDefaultGateway("v0", 0, "203.0.113.1");
            Network_DeleteDefaultGateway("v0");
        });
        const int after = dup(0);
        EXPECT_EQ(after, before);
        close(after);
    });
}

TEST(IpAddress, WithoutDescriptors)
{
    RUN_IN_CHILD([] {
        const rlimit none = {0, 0};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        char ip[46];
        ExpectText(strerror(EMFILE), Network_GetIPAddress("lo", 0, ip, 0));
        ExpectText(strerror(EMFILE), Network_SetDefaultGateway("lo", 0, "192.0.2.2"));
        ExpectText(strerror(EMFILE), Network_DeleteDefaultGateway("lo"));
    });
}

TEST(IpAddress, SignalsDoNoHarm)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddHost();
        const support::SignalStorm signals;
        for (int i = 0; i < 300; ++i) {
            EXPECT_EQ(AddressAt("v0", 0, 0), "192.0.2.1");
            EXPECT_TRUE(Network_SetDefaultGateway("v0", 0, "192.0.2.2")) << ErrorText();
            EXPECT_TRUE(Network_DeleteDefaultGateway("v0")) << ErrorText();
        }
    });
}

TEST(IpAddress, CallsOfSeveralThreadsDoNotDisturbEachOther)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddHost();
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([i] {
                const bool isFirst = i % 2 == 0;
                for (int round = 0; round < 100; ++round)
                    EXPECT_EQ(AddressAt(isFirst ? "v0" : "v1", 0, 0), isFirst ? "192.0.2.1" : "198.51.100.1");
            });
        for (std::thread& thread : threads)
            thread.join();
    });
}

} // namespace
