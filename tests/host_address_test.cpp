// The host's own addresses and interfaces.
#include <ZKQ_general/ping.h>
#include <net/if.h>

#include <fstream>
#include <set>

#include "support/error_text.h"
#include "support/network_namespace.h"

namespace {

using support::EnterNetwork;
using support::ErrorText;
using support::Shell;

/// In a child: a host with this name, which these lines of the file of hosts are about.
void BecomeHost(const support::TempDir& dir, const std::string& name, const std::string& hosts)
{
    EnterNetwork();
    EXPECT_EQ(sethostname(name.data(), name.size()), 0);
    support::ReplaceSystemFile(dir, "/etc/nsswitch.conf", "hosts: files\n");
    support::ReplaceSystemFile(dir, "/etc/host.conf", "multi on\n");
    support::ReplaceSystemFile(dir, "/etc/hosts", hosts);
}

const char kHosts[] = "192.0.2.1 box\n192.0.2.7 box\n2001:db8::1 box\n127.0.0.1 localhost\n2001:db8::7 box\n";

TEST(HostAddress, AreThoseOfTheHostsName)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        BecomeHost(dir, "box", kHosts);
        EXPECT_EQ(GetIPAddressCount(), 2);
        char text[16];
        EXPECT_EQ(GetIPAddress(0, text), 0);
        EXPECT_STREQ(text, "192.0.2.1");
        EXPECT_EQ(GetIPAddress(1, text), 0);
        EXPECT_STREQ(text, "192.0.2.7");
        for (const int index : {2, 3, -1, INT_MAX, INT_MIN}) {
            support::MarkErrorText();
            EXPECT_EQ(GetIPAddress(index, text), -1);
            EXPECT_EQ(ErrorText(), strerror(EINVAL));
        }
        EXPECT_STREQ(text, "192.0.2.7");
        EXPECT_EQ(GetIPAddress(0, nullptr), -1);
        EXPECT_EQ(ErrorText(), strerror(EINVAL));
    });
}

TEST(HostAddress, OfIPv6AreCountedByThemselves)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        BecomeHost(dir, "box", kHosts);
        EXPECT_EQ(Network_GetIPAddressCount_V6(), 2);
        char text[46];
        EXPECT_TRUE(Network_GetIPAddress_V6(0, text));
        EXPECT_STREQ(text, "2001:db8::1");
        EXPECT_TRUE(Network_GetIPAddress_V6(1, text));
        EXPECT_STREQ(text, "2001:db8::7");
        for (const int index : {2, -1, INT_MAX}) {
            support::MarkErrorText();
            EXPECT_FALSE(Network_GetIPAddress_V6(index, text));
            EXPECT_EQ(ErrorText(), strerror(EINVAL));
        }
        EXPECT_FALSE(Network_GetIPAddress_V6(0, nullptr));
    });
}

TEST(HostAddress, ANameThatDoesNotResolveHasNone)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        BecomeHost(dir, "nobody-knows-it", kHosts);
        char text[46];
        support::MarkErrorText();
        EXPECT_EQ(GetIPAddressCount(), -1);
        EXPECT_EQ(ErrorText(), strerror(EINVAL));
        support::MarkErrorText();
        EXPECT_EQ(Network_GetIPAddressCount_V6(), -1);
        EXPECT_EQ(ErrorText(), strerror(EINVAL));
        support::MarkErrorText();
        EXPECT_EQ(GetIPAddress(0, text), -1);
        EXPECT_EQ(ErrorText(), strerror(EINVAL));
        support::MarkErrorText();
        EXPECT_FALSE(Network_GetIPAddress_V6(0, text));
        EXPECT_EQ(ErrorText(), strerror(EINVAL));
    });
}

TEST(HostAddress, ANameThatResolvesAsIPv4OnlyHasNoneOfIPv6)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        BecomeHost(dir, "box", "192.0.2.1 box\n");
        support::MarkErrorText();
        EXPECT_EQ(Network_GetIPAddressCount_V6(), 0);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_EQ(GetIPAddressCount(), 1);
    });
}

TEST(HostAddress, ThousandsOfThemAreNotTooMany)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        std::string hosts;
        for (int i = 0; i < 3000; ++i)
            hosts += "10.1." + std::to_string(i / 256) + "." + std::to_string(i % 256) + " box\n";
        BecomeHost(dir, "box", hosts);
        EXPECT_EQ(GetIPAddressCount(), 3000);
        char text[16];
        EXPECT_EQ(GetIPAddress(2999, text), 0);
        EXPECT_STREQ(text, "10.1.11.183");
    });
}

/// In a child with a network of its own: adds an interface v0, and v1 without addresses at its other end.
void AddInterface()
{
    if (!Shell("ip link add v0 type veth peer name v1"))
        support::SkipChild("veth");
    EXPECT_TRUE(Shell("ip link set addrgenmode none dev v0 && ip addr add 192.0.2.1/24 dev v0 && "
                      "ip addr add 2001:db8::1/64 nodad dev v0 && ip link set up dev v0"));
}

struct Info {
    char ip[16] = "unset";
    char mask[16] = "unset";
    char ipv6[46] = "unset";
    char mac[15] = "unset";
};

TEST(Interface, TellsItsAddresses)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddInterface();
        EXPECT_TRUE(Shell("ip link set v0 address 02:42:ac:11:0a:ff"));
        Info info;
        EXPECT_TRUE(Network_GetInfo_if("v0", info.ip, info.mask, info.ipv6, info.mac)) << ErrorText();
        EXPECT_STREQ(info.ip, "192.0.2.1");
        EXPECT_STREQ(info.mask, "255.255.255.0");
        EXPECT_STREQ(info.ipv6, "2001:db8::1");
        EXPECT_STREQ(info.mac, "0242-AC11-0AFF");
        EXPECT_TRUE(Network_GetInfo_if("lo", info.ip, info.mask, info.ipv6, info.mac)) << ErrorText();
        EXPECT_STREQ(info.ip, "127.0.0.1");
        EXPECT_STREQ(info.mask, "255.0.0.0");
        EXPECT_STREQ(info.ipv6, "::1");
        EXPECT_STREQ(info.mac, "0000-0000-0000");
        EXPECT_TRUE(Network_GetInfo_if("v0", nullptr, nullptr, nullptr, nullptr));
    });
}

TEST(Interface, TellsWhatItHasUntilSomethingIsMissing)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddInterface();
        EXPECT_TRUE(Shell("ip link set v0 address 02:42:ac:11:0a:ff && ip -6 addr flush dev v0"));
        Info info;
        EXPECT_FALSE(Network_GetInfo_if("v0", info.ip, info.mask, info.ipv6, info.mac));
        EXPECT_EQ(ErrorText(), strerror(ENODEV));
        EXPECT_STREQ(info.mask, "255.255.255.0");
        EXPECT_STREQ(info.ipv6, "unset");
        EXPECT_TRUE(Shell("ip addr flush dev v0"));
        info = {};
        EXPECT_FALSE(Network_GetInfo_if("v0", info.ip, info.mask, info.ipv6, info.mac));
        EXPECT_EQ(ErrorText(), strerror(EADDRNOTAVAIL));
        EXPECT_STREQ(info.mac, "0242-AC11-0AFF");
        EXPECT_STREQ(info.ip, "unset");
        EXPECT_STREQ(info.mask, "unset");
    });
}

TEST(Interface, ThatDoesNotExistHasNoAddresses)
{
    char text[46];
    EXPECT_FALSE(Network_GetInfo_if("nosuchdevice", text, nullptr, nullptr, nullptr));
    EXPECT_EQ(ErrorText(), strerror(ENODEV));
    for (const char* name : {static_cast<const char*>(nullptr), "", "sixteen_bytes_xx"}) {
        support::MarkErrorText();
        EXPECT_FALSE(Network_GetInfo_if(name, text, text, text, text));
        EXPECT_EQ(ErrorText(), strerror(EINVAL));
    }
    EXPECT_FALSE(Network_GetIPAddress_V6_if("nosuchdevice", text));
    EXPECT_EQ(ErrorText(), strerror(ENODEV));
    EXPECT_FALSE(Network_GetIPAddress_V6_if(nullptr, text));
    EXPECT_EQ(ErrorText(), strerror(EINVAL));
    EXPECT_FALSE(Network_GetIPAddress_V6_if("lo", nullptr));
    EXPECT_EQ(ErrorText(), strerror(EINVAL));
}

TEST(Interface, IPv6OfTheFirstLineWithItsWholeName)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddInterface();
        EXPECT_TRUE(
            Shell("ip link add fifteen_bytes_x type bridge && ip link set fifteen_bytes_x addrgenmode none && "
                  "ip addr add 2001:db8:1:2:3:4:5:6/64 nodad dev fifteen_bytes_x && ip link set fifteen_bytes_x up"));
        char text[46];
        EXPECT_TRUE(Network_GetIPAddress_V6_if("fifteen_bytes_x", text)) << ErrorText();
        EXPECT_STREQ(text, "2001:db8:1:2:3:4:5:6");
        EXPECT_FALSE(Network_GetIPAddress_V6_if("fifteen_bytes_", text));
        EXPECT_FALSE(Network_GetIPAddress_V6_if("v", text));
    });
}

TEST(Interface, NamesComeInTheOrderOfTheKernelsTable)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddInterface();
        EXPECT_TRUE(Shell("ip link add fifteen_bytes_x type bridge"));
        std::ifstream table("/proc/net/dev");
        std::string line;
        std::getline(table, line);
        std::getline(table, line);
        int count = 0;
        std::set<std::string> names;
        while (std::getline(table, line)) {
            char name[16] = "unset";
            EXPECT_TRUE(Network_GetDevName(count, name));
            const size_t start = line.find_first_not_of(' ');
            EXPECT_EQ(name, line.substr(start, line.find(':') - start));
            names.insert(name);
            ++count;
        }
        EXPECT_EQ(names, (std::set<std::string>{"lo", "v0", "v1", "fifteen_bytes_x"}));
        char name[16] = "unset";
        for (const int index : {count, count + 1, -1, INT_MAX, INT_MIN}) {
            support::MarkErrorText();
            EXPECT_FALSE(Network_GetDevName(index, name));
            EXPECT_EQ(ErrorText(), strerror(EINVAL));
        }
        EXPECT_STREQ(name, "unset");
        EXPECT_FALSE(Network_GetDevName(0, nullptr));
    });
}

TEST(Interface, WithoutTheKernelsTablesThereAreNone)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        support::EnterRoot(dir.Path());
        char text[46];
        EXPECT_FALSE(Network_GetDevName(0, text));
        EXPECT_EQ(ErrorText(), strerror(ENOENT));
        EXPECT_FALSE(Network_GetIPAddress_V6_if("lo", text));
        EXPECT_EQ(ErrorText(), strerror(ENOENT));
    });
}

} // namespace
