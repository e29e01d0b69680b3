// Network cards and bridges, in networks of the tests' own, with the program ip as judge.
#include <ZKQ_general/netcard.h>
#include <limits.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <sstream>
#include <thread>
#include <vector>

#include "support/error_text.h"
#include "support/network_namespace.h"
#include "support/signals.h"

namespace {

using support::ErrorText;
using support::Output;
using support::Shell;

/// In a child: an empty network that /sys shows.
void EnterNetwork()
{
    support::EnterNetwork();
    support::ShowNetworkInSys();
}

void ExpectError(int error, BOOL result)
{
    EXPECT_FALSE(result);
    EXPECT_EQ(ErrorText(), strerror(error));
    support::MarkErrorText();
}

void AddCable(const std::string& end = "v0", const std::string& other = "v1")
{
    if (!Shell("ip link add " + end + " type veth peer name " + other))
        support::SkipChild("veth");
}

void AddBridgeByHand(const std::string& name)
{
    if (!Shell("ip link add " + name + " type bridge"))
        support::SkipChild("bridge");
}

BRIDGEINFO Bridge(const std::string& name, const std::vector<std::string>& members = {})
{
    BRIDGEINFO info = {};
    name.copy(info.Name, sizeof info.Name);
    for (size_t i = 0; i < members.size(); ++i)
        members[i].copy(info.DevList[i], sizeof info.DevList[i]);
    return info;
}

bool Exists(const std::string& name)
{
    return if_nametoindex(name.c_str()) != 0;
}

/// "0242AC110002" of "02:42:ac:11:00:02", in groups.
std::string MacText(const std::string& colons)
{
    std::string digits;
    for (const char c : colons)
        if (c != ':')
            digits += static_cast<char>(toupper(c));
    return digits.substr(0, 4) + "-" + digits.substr(4, 4) + "-" + digits.substr(8);
}

std::string MacOf(const std::string& name)
{
    return MacText(Output("cat /sys/class/net/" + name + "/address"));
}

std::vector<NETCARDINFO> Cards()
{
    int count = -1;
    EXPECT_TRUE(Network_GetNetCardInfo(nullptr, &count)) << ErrorText();
    std::vector<NETCARDINFO> cards(static_cast<size_t>(std::max(count, 0)));
    int filled = -1;
    EXPECT_TRUE(Network_GetNetCardInfo(cards.data(), &filled)) << ErrorText();
    EXPECT_EQ(filled, count);
    return cards;
}

/// The cards that the program ip knows, in the order of the device table.
std::vector<std::string> CardNames()
{
    std::vector<std::string> names;
    std::istringstream table(Output("sed -n '3,$s/:.*//p' /proc/net/dev"));
    std::string name;
    while (table >> name)
        if (Shell("ip -d link show " + name + " | grep link/ether") &&
            !Shell("ip -d link show " + name + " | grep 'bridge forward'"))
            names.push_back(name);
    return names;
}

TEST(NetCard, OnlyEthernetCountsAndNoBridge)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        long count = -1;
        EXPECT_TRUE(Network_GetNetCardNumber(&count)) << ErrorText();
        EXPECT_EQ(count, 0) << "the loopback interface is none";
        AddBridgeByHand("br0");
        EXPECT_TRUE(Network_GetNetCardNumber(&count));
        EXPECT_EQ(count, 0);
        AddCable();
        EXPECT_TRUE(Network_GetNetCardNumber(&count));
        EXPECT_EQ(count, 2);
        EXPECT_TRUE(Shell("ip link set v0 master br0"));
        EXPECT_TRUE(Network_GetNetCardNumber(&count));
        EXPECT_EQ(count, 2) << "a member counts";
    });
}

TEST(NetCard, RecordsAreThoseOfTheProgramIp)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable("v0", "fifteen_bytes_x");
        AddCable("eth.5", "a-b_c");
        AddBridgeByHand("br0");
        EXPECT_TRUE(Shell("ip addr add 192.0.2.1/25 dev v0 && ip addr add 10.255.0.17/8 dev fifteen_bytes_x && "
                          "ip addr add 192.0.2.200/32 dev v0"));
        const std::vector<NETCARDINFO> cards = Cards();
        const std::vector<std::string> names = CardNames();
        ASSERT_EQ(cards.size(), 4);
        ASSERT_EQ(names.size(), 4);
        for (size_t i = 0; i < cards.size(); ++i) {
            const std::string name = cards[i].Name;
            EXPECT_EQ(name, names[i]);
            EXPECT_EQ(cards[i].MAC, MacOf(name));
            const char* const ip = name == "v0" ? "192.0.2.1" : name == "fifteen_bytes_x" ? "10.255.0.17" : "0.0.0.0";
            const char* const mask = name == "v0"                ? "255.255.255.128"
                                     : name == "fifteen_bytes_x" ? "255.0.0.0"
                                                                 : "0.0.0.0";
            EXPECT_STREQ(cards[i].IP, ip) << name;
            EXPECT_STREQ(cards[i].Mask, mask) << name;
            char mac[15];
            EXPECT_TRUE(Network_GetMACAddress(static_cast<int>(i), mac));
            EXPECT_STREQ(mac, cards[i].MAC);
        }
    });
}

TEST(NetCard, NothingBehindTheRecordsIsTouched)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        std::array<NETCARDINFO, 3> cards;
        memset(cards.data(), 0x5A, sizeof cards);
        int count = 3;
        EXPECT_TRUE(Network_GetNetCardInfo(cards.data(), &count));
        EXPECT_EQ(count, 2);
        const auto* const rest = reinterpret_cast<const char*>(&cards[2]);
        EXPECT_TRUE(std::all_of(rest, rest + sizeof cards[2], [](char c) { return c == 0x5A; }));
    });
}

TEST(NetCard, ACardThatIsNotThereHasNoAddress)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        for (const int number : {2, 3, -1, INT_MAX, INT_MIN}) {
            char mac[15] = "unset";
            ExpectError(EINVAL, Network_GetMACAddress(number, mac));
            EXPECT_STREQ(mac, "unset");
        }
    });
}

TEST(NetCard, NullIsRefused)
{
    NETCARDINFO card;
    ExpectError(EINVAL, Network_GetNetCardNumber(nullptr));
    ExpectError(EINVAL, Network_GetMACAddress(0, nullptr));
    ExpectError(EINVAL, Network_GetNetCardInfo(&card, nullptr));
    ExpectError(EINVAL, Network_GetNetCardInfo(nullptr, nullptr));
    ExpectError(EINVAL, Network_GetBridgeInfo(nullptr, nullptr));
    ExpectError(EINVAL, Network_AddBridge(nullptr));
    ExpectError(EINVAL, Network_DelBridge(nullptr));
    ExpectError(EINVAL, Network_SetBridgeStp(nullptr, 1));
    ExpectError(EINVAL, Network_StartStopNetworkDevice(nullptr, 1));
    ExpectError(EINVAL, Network_SetDevAddress(nullptr, "192.0.2.1", "255.255.255.0"));
    ExpectError(EINVAL, Network_SetDevAddress("lo", nullptr, "255.255.255.0"));
    ExpectError(EINVAL, Network_SetDevAddress("lo", "192.0.2.1", nullptr));
}

/// In a child: the device table is this text. All else of /proc is gone.
void ReplaceTable(const support::TempDir& dir, const std::string& text)
{
    std::filesystem::create_directory(dir.File("net"));
    support::WriteFile(dir.File("net/dev"), text);
    if (mount(dir.Path().c_str(), "/proc", "none", MS_BIND, nullptr) != 0)
        support::SkipChild("mount on /proc");
}

const char kTableHeader[] = "Inter-|   Receive |  Transmit\n face |bytes packets compressed|bytes\n";

TEST(NetCard, AliasesAndGluedCountersAreToldApart)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        EnterNetwork();
        AddCable();
        EXPECT_TRUE(Shell("ip addr add 192.0.2.1/24 dev v0 && ip addr add 198.51.100.7/30 dev v0 label v0:1"));
        ReplaceTable(dir, kTableHeader + std::string("  v0:1234 5 6 7\n    v0:1: 5 6\nv1: 1\n"));
        const std::vector<NETCARDINFO> cards = Cards();
        ASSERT_EQ(cards.size(), 3);
        EXPECT_STREQ(cards[0].Name, "v0");
        EXPECT_STREQ(cards[0].IP, "192.0.2.1");
        EXPECT_STREQ(cards[1].Name, "v0:1");
        EXPECT_STREQ(cards[1].IP, "198.51.100.7");
        EXPECT_STREQ(cards[1].Mask, "255.255.255.252");
        EXPECT_STREQ(cards[2].Name, "v1");
    });
}

TEST(NetCard, OddTablesAreRead)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        EnterNetwork();
        AddCable();
        ReplaceTable(dir, kTableHeader + std::string("\n:\nno colon\n  ../v0: 1\n gone: 1\nsixteen_bytes_xy: 1\n") +
                              std::string(5000, 'x') + "\nv0\n..: 1\nlo: 1\n\tv1: 1");
        const std::vector<NETCARDINFO> cards = Cards();
        ASSERT_EQ(cards.size(), 1);
        EXPECT_STREQ(cards[0].Name, "v1");
    });
    const support::TempDir empty;
    RUN_IN_CHILD([&] {
        EnterNetwork();
        ReplaceTable(empty, "");
        EXPECT_TRUE(Cards().empty());
    });
}

TEST(NetCard, WithoutTheSystemsFilesNothingIsListed)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        support::EnterRoot(dir.Path());
        long number = 7;
        int count = 7;
        char mac[15] = "unset";
        ExpectError(ENOENT, Network_GetNetCardNumber(&number));
        ExpectError(ENOENT, Network_GetNetCardInfo(nullptr, &count));
        ExpectError(ENOENT, Network_GetMACAddress(0, mac));
        ExpectError(ENOENT, Network_GetBridgeInfo(nullptr, &count));
        ExpectError(ENOENT, Network_SetBridgeStp("br0", 1));
        EXPECT_EQ(number, 7);
        EXPECT_EQ(count, 7);
        EXPECT_STREQ(mac, "unset");
    });
}

/// While it lives, a thread of this network makes interfaces and deletes them again, which nobody announces.
class Changes {
public:
    Changes()
        : thread_([this] {
              while (!isOver_)
                  Shell("ip link add w0 type veth peer name w1; ip link add wb type bridge; ip link del w0; ip link "
                        "del wb");
          })
    {}
    ~Changes()
    {
        isOver_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

TEST(NetCard, AreListedWhileTheyComeAndGo)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        const Changes changes;
        std::vector<NETCARDINFO> cards(8);
        for (int i = 0; i < 300; ++i) {
            int count = -1;
            EXPECT_TRUE(Network_GetNetCardInfo(cards.data(), &count)) << ErrorText();
            EXPECT_GE(count, 2);
            EXPECT_LE(count, 5) << "w0, w1, and wb before it is known as a bridge";
            EXPECT_TRUE(Network_GetBridgeInfo(nullptr, &count)) << ErrorText();
            EXPECT_LE(count, 1);
        }
    });
}

TEST(NetCard, AThousandAreListed)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        EXPECT_TRUE(Shell("for i in $(seq 100); do echo link add a$i type veth peer name b$i; done | ip -batch -"));
        EXPECT_EQ(Cards().size(), 202);
    });
}

// --- Bridges

std::vector<BRIDGEINFO> Bridges()
{
    int count = -1;
    EXPECT_TRUE(Network_GetBridgeInfo(nullptr, &count)) << ErrorText();
    std::vector<BRIDGEINFO> bridges(static_cast<size_t>(std::max(count, 0)));
    for (BRIDGEINFO& bridge : bridges)
        memset(&bridge, 0x5A, sizeof bridge);
    int filled = -1;
    EXPECT_TRUE(Network_GetBridgeInfo(bridges.data(), &filled)) << ErrorText();
    EXPECT_EQ(filled, count);
    return bridges;
}

std::vector<std::string> Members(const BRIDGEINFO& info)
{
    std::vector<std::string> members;
    for (const char* const name : info.DevList) {
        if (*name == '\0')
            break;
        members.emplace_back(name);
    }
    return members;
}

/// The members that the program ip knows.
std::vector<std::string> MembersByIp(const std::string& bridge)
{
    std::istringstream output(Output("ip -br link show master " + bridge + " | sed 's/[@ ].*//' | sort"));
    std::vector<std::string> members;
    std::string name;
    while (output >> name)
        members.push_back(name);
    return members;
}

TEST(NetBridge, IsMadeWithItsMembers)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable("v0", "v1");
        AddCable("v2", "fifteen_bytes_x");
        BRIDGEINFO info = Bridge("br0", {"v0", "fifteen_bytes_x", "", "v2"});
        strcpy(info.IP, "192.0.2.1");
        strcpy(info.Mask, "255.255.255.0");
        EXPECT_TRUE(Network_AddBridge(&info)) << ErrorText();
        EXPECT_EQ(MembersByIp("br0"), (std::vector<std::string>{"fifteen_bytes_x", "v0"})) << "up to the empty one";
        EXPECT_EQ(Output("ip -4 -o addr show br0"), "") << "its address is not set";
        EXPECT_TRUE(Shell("ip -d link show br0 | grep 'bridge forward'"));
    });
}

TEST(NetBridge, SixteenMembersFillTheList)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        std::vector<std::string> members;
        for (int i = 0; i < 17; ++i) {
            members.push_back("m" + std::to_string(i));
            AddCable(members.back(), "p" + std::to_string(i));
        }
        const std::string last = members.back();
        members.pop_back();
        const auto info = std::make_unique<BRIDGEINFO>(Bridge("br0", members));
        EXPECT_TRUE(Network_AddBridge(info.get())) << ErrorText();
        EXPECT_EQ(MembersByIp("br0").size(), 16);
        EXPECT_TRUE(Shell("ip addr add 192.0.2.1/24 dev br0 && ip link set " + last + " master br0"));
        const std::vector<BRIDGEINFO> bridges = Bridges();
        ASSERT_EQ(bridges.size(), 1);
        EXPECT_STREQ(bridges[0].IP, "192.0.2.1") << "not run over by the member 17";
        std::istringstream directory(Output("ls -U /sys/class/net/br0/brif"));
        for (const std::string& member : Members(bridges[0])) {
            std::string name;
            directory >> name;
            EXPECT_EQ(member, name);
        }
        EXPECT_EQ(Members(bridges[0]).size(), 16);
    });
}

TEST(NetBridge, RecordsAreThoseOfTheProgramIp)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        EXPECT_TRUE(Bridges().empty());
        AddCable();
        for (const char* const name : {"br0", "bridge", "fifteen_bytes_x"})
            AddBridgeByHand(name);
        EXPECT_TRUE(Shell("ip link set v0 master bridge && ip link set v1 master bridge && "
                          "ip addr add 192.0.2.1/25 dev bridge && ip addr add 10.0.0.1/8 dev br0 && "
                          "ip addr add 203.0.113.255/32 dev fifteen_bytes_x"));
        const std::vector<BRIDGEINFO> bridges = Bridges();
        ASSERT_EQ(bridges.size(), 3);
        std::istringstream directory(Output("ls -U /sys/class/net | grep -v -e lo -e v[01]"));
        for (const BRIDGEINFO& bridge : bridges) {
            std::string name;
            directory >> name;
            EXPECT_EQ(bridge.Name, name);
            std::vector<std::string> members = Members(bridge);
            std::sort(members.begin(), members.end());
            EXPECT_EQ(members, MembersByIp(name));
            const bool isLong = name == "fifteen_bytes_x";
            EXPECT_STREQ(bridge.IP, name == "br0" ? "10.0.0.1" : isLong ? "203.0.113.255" : "192.0.2.1");
            EXPECT_STREQ(bridge.Mask, name == "br0" ? "255.0.0.0" : isLong ? "255.255.255.255" : "255.255.255.128");
            EXPECT_TRUE(
                std::all_of(std::end(bridge.DevList) - 14, std::end(bridge.DevList),
                            [](const char(&entry)[16]) { return std::string(entry, 16) == std::string(16, 0); }));
        }
    });
}

TEST(NetBridge, WithoutAnAddressIsCountedAndNotListed)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddBridgeByHand("br0");
        int count = -1;
        EXPECT_TRUE(Network_GetBridgeInfo(nullptr, &count));
        EXPECT_EQ(count, 1);
        count = -1;
        BRIDGEINFO info;
        ExpectError(EADDRNOTAVAIL, Network_GetBridgeInfo(&info, &count));
        EXPECT_EQ(count, -1);
    });
}

TEST(NetBridge, AnUnknownMemberTakesTheNewBridgeAway)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        BRIDGEINFO info = Bridge("br0", {"v0", "nobody", "v1"});
        ExpectError(ENODEV, Network_AddBridge(&info));
        EXPECT_FALSE(Exists("br0"));
        EXPECT_TRUE(MembersByIp("v0").empty());
        info = Bridge("br0", {"v0", "lo"});
        ExpectError(EINVAL, Network_AddBridge(&info)); // the system's word for the loopback interface
        EXPECT_FALSE(Exists("br0"));
        AddBridgeByHand("br1");
        EXPECT_TRUE(Shell("ip link set v0 master br1"));
        info = Bridge("br0", {"v0"});
        ExpectError(EBUSY, Network_AddBridge(&info));
        EXPECT_FALSE(Exists("br0"));
        EXPECT_EQ(MembersByIp("br1"), std::vector<std::string>{"v0"});
    });
}

TEST(NetBridge, OneThatWasThereStays)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        AddBridgeByHand("br0");
        EXPECT_TRUE(Shell("ip link set v0 master br0"));
        const BRIDGEINFO info = Bridge("br0", {"nobody"});
        ExpectError(EEXIST, Network_AddBridge(&info));
        EXPECT_EQ(MembersByIp("br0"), std::vector<std::string>{"v0"});
        const BRIDGEINFO card = Bridge("v1");
        ExpectError(EEXIST, Network_AddBridge(&card));
        EXPECT_TRUE(Exists("v1"));
    });
}

TEST(NetBridge, IsDeleted)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        AddBridgeByHand("br0");
        EXPECT_TRUE(Shell("ip link set v0 master br0 && ip link set br0 up"));
        ExpectError(EBUSY, Network_DelBridge("br0"));
        EXPECT_TRUE(Network_StartStopNetworkDevice("br0", 0));
        EXPECT_TRUE(Network_DelBridge("br0")) << ErrorText();
        EXPECT_FALSE(Exists("br0"));
        EXPECT_TRUE(Exists("v0"));
        ExpectError(ENXIO, Network_DelBridge("br0"));
        ExpectError(EPERM, Network_DelBridge("v0")); // the system's word for what is no bridge
        EXPECT_TRUE(Exists("v0"));
    });
}

TEST(NetBridge, SpanningTreeIsSwitched)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        AddBridgeByHand("br0");
        const struct {
            int on;
            const char* state;
        } rows[] = {{1, "1"}, {0, "0"}, {-7, "1"}, {0, "0"}, {256, "1"}, {1, "1"}};
        for (const auto& row : rows) {
            EXPECT_TRUE(Network_SetBridgeStp("br0", row.on)) << ErrorText();
            EXPECT_EQ(Output("cat /sys/class/net/br0/bridge/stp_state"), row.state);
        }
        ExpectError(ENOENT, Network_SetBridgeStp("v0", 1));
        ExpectError(ENOENT, Network_SetBridgeStp("nobody", 1));
    });
}

TEST(NetBridge, TheByteIsWrittenAsItIs)
{
    const support::TempDir dir;
    RUN_IN_CHILD([&] {
        std::filesystem::create_directories(dir.File("sys/class/net/br0/bridge"));
        support::WriteFile(dir.File("sys/class/net/br0/bridge/stp_state"), "xyz");
        support::EnterRoot(dir.Path());
        EXPECT_TRUE(Network_SetBridgeStp("br0", 1));
        EXPECT_EQ(support::ReadFile("/sys/class/net/br0/bridge/stp_state"), "1yz");
        EXPECT_TRUE(Network_SetBridgeStp("br0", 0));
        EXPECT_EQ(support::ReadFile("/sys/class/net/br0/bridge/stp_state"), "0yz");
    });
}

// --- Names

TEST(NetCardNames, ThatWouldBeCutOrLeadElsewhereAreRefused)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable("fifteen_bytes_x", "v1");
        const std::string before = Output("ip link");
        const std::vector<std::string> names = {
            "",  "fifteen_bytes_xy", "fifteen_bytes_x/",    "a/b", "/", "../net/v1", "..",
            ".", "v1/../v1",         std::string(5000, 'v')};
        for (const std::string& text : names) {
            const std::vector<char> name(text.c_str(), text.c_str() + text.size() + 1); // on the heap, no byte more
            ExpectError(EINVAL, Network_DelBridge(name.data()));
            ExpectError(EINVAL, Network_SetBridgeStp(name.data(), 1));
            ExpectError(EINVAL, Network_StartStopNetworkDevice(name.data(), 1));
            ExpectError(EINVAL, Network_SetDevAddress(name.data(), "192.0.2.1", "255.255.255.0"));
            const auto info = std::make_unique<BRIDGEINFO>(Bridge(text));
            ExpectError(EINVAL, Network_AddBridge(info.get()));
            if (text.empty())
                continue;
            *info = Bridge("br0", {"v1", text});
            ExpectError(EINVAL, Network_AddBridge(info.get()));
            EXPECT_FALSE(Exists("br0"));
        }
        const BRIDGEINFO numbered = Bridge("br%d");
        ExpectError(EINVAL, Network_AddBridge(&numbered));
        EXPECT_EQ(Output("ip link"), before);
    });
}

// --- Up and down

TEST(NetDevice, StartsAndStops)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        EXPECT_TRUE(Shell("ip link set v0 promisc on mtu 1400"));
        EXPECT_TRUE(Network_StartStopNetworkDevice("v0", 1)) << ErrorText();
        EXPECT_TRUE(Shell("ip link show v0 | grep '[<,]UP[,>]'"));
        EXPECT_TRUE(Network_StartStopNetworkDevice("v0", 1)) << "again";
        EXPECT_TRUE(Shell("ip link show v0 | grep 'PROMISC.*mtu 1400'")) << "all else stays";
        EXPECT_TRUE(Network_StartStopNetworkDevice("v0", 0)) << ErrorText();
        EXPECT_FALSE(Shell("ip link show v0 | grep '[<,]UP[,>]'"));
        EXPECT_TRUE(Shell("ip link show v0 | grep PROMISC"));
        EXPECT_TRUE(Network_StartStopNetworkDevice("v0", -3));
        EXPECT_TRUE(Shell("ip link show v0 | grep '[<,]UP[,>]'"));
        ExpectError(ENODEV, Network_StartStopNetworkDevice("nobody", 1));
    });
}

// --- Addresses

std::string AddressByIp(const std::string& name)
{
    return Output("ip -4 -o addr show dev " + name + " | sed 's/.*inet //; s/ scope.*//; s/ metric [0-9]*//'");
}

TEST(NetDevice, GetsAddressMaskAndBroadcast)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        const struct {
            const char* ip;
            const char* mask;
            const char* shown;
        } rows[] = {
            {"192.0.2.1", "255.255.255.0", "192.0.2.1/24 brd 192.0.2.255"},
            {"10.1.2.3", "255.255.240.0", "10.1.2.3/20 brd 10.1.15.255"},
            {"192.0.2.77", "255.255.255.128", "192.0.2.77/25 brd 192.0.2.127"},
            {"192.0.2.77", "255.0.0.0", "192.0.2.77/8 brd 192.255.255.255"},
            {"172.16.0.1", "255.255.255.255", "172.16.0.1/32 brd 172.16.0.1"},
        };
        for (const auto& row : rows) {
            EXPECT_TRUE(Network_SetDevAddress("v0", row.ip, row.mask)) << ErrorText();
            EXPECT_EQ(AddressByIp("v0"), row.shown);
        }
    });
}

TEST(NetDevice, ZeroTakesTheAddressAwayAndSetsNoMask)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        EXPECT_TRUE(Network_SetDevAddress("v0", "192.0.2.1", "255.255.255.0"));
        EXPECT_TRUE(Network_SetDevAddress("v0", "0.0.0.0", "255.255.255.0")) << ErrorText();
        EXPECT_EQ(AddressByIp("v0"), "");
        EXPECT_TRUE(Network_SetDevAddress("v0", "0.0.0.0", "255.255.255.0")) << ErrorText();
    });
}

TEST(NetDevice, BothTextsAreConvertedBeforeAnythingIsSet)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        EXPECT_TRUE(Network_SetDevAddress("v0", "192.0.2.1", "255.255.255.0"));
        ExpectError(EINVAL, Network_SetDevAddress("v0", "198.51.100.1", ""));
        ExpectError(EINVAL, Network_SetDevAddress("v0", "198.51.100.1", "255.255.255.256"));
        ExpectError(EINVAL, Network_SetDevAddress("v0", "", "255.255.255.0"));
        ExpectError(EINVAL, Network_SetDevAddress("v0", "0.0.0.0", "x y"));
        EXPECT_EQ(AddressByIp("v0"), "192.0.2.1/24 brd 192.0.2.255");
        ExpectError(ENODEV, Network_SetDevAddress("nobody", "192.0.2.1", "255.255.255.0"));
        ExpectError(EINVAL, Network_SetDevAddress("v0", "192.0.2.1", "255.0.255.0")); // no mask: the system's word
    });
}

TEST(NetDevice, NobodyMayChangeIt)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        AddBridgeByHand("br0");
        EXPECT_TRUE(Shell("ip addr add 192.0.2.1/24 dev br0"));
        support::BecomeNobody();
        const BRIDGEINFO info = Bridge("br1");
        ExpectError(EPERM, Network_AddBridge(&info));
        ExpectError(EPERM, Network_DelBridge("br0"));
        ExpectError(EACCES, Network_SetBridgeStp("br0", 1));
        ExpectError(EPERM, Network_StartStopNetworkDevice("v0", 1));
        ExpectError(EPERM, Network_SetDevAddress("v0", "192.0.2.1", "255.255.255.0"));
        EXPECT_EQ(Cards().size(), 2) << "but everybody may look";
        EXPECT_EQ(Bridges().size(), 1);
    });
}

TEST(NetCard, SuccessLeavesTheErrorText)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        support::MarkErrorText();
        Cards();
        Bridges();
        EXPECT_TRUE(Network_SetDevAddress("v0", "192.0.2.1", "255.255.255.0"));
        EXPECT_TRUE(support::ErrorTextIsMarked());
    });
}

TEST(NetCard, SignalsDoNoHarm)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        const support::SignalStorm signals;
        const BRIDGEINFO info = Bridge("br0", {"v0"});
        for (int i = 0; i < 100; ++i) {
            EXPECT_TRUE(Network_AddBridge(&info)) << ErrorText();
            EXPECT_TRUE(Network_SetBridgeStp("br0", i % 2)) << ErrorText();
            EXPECT_TRUE(Network_SetDevAddress("br0", "192.0.2.1", "255.255.255.0")) << ErrorText();
            EXPECT_TRUE(Network_StartStopNetworkDevice("br0", 1)) << ErrorText();
            EXPECT_EQ(Bridges().size(), 1);
            EXPECT_EQ(Cards().size(), 2);
            EXPECT_TRUE(Network_StartStopNetworkDevice("br0", 0)) << ErrorText();
            EXPECT_TRUE(Network_DelBridge("br0")) << ErrorText();
        }
    });
}

TEST(NetCard, SeveralThreadsMayAsk)
{
    RUN_IN_CHILD([] {
        EnterNetwork();
        AddCable();
        AddBridgeByHand("br0");
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([] {
                for (int round = 0; round < 50; ++round) {
                    long count = 0;
                    int bridges = 0;
                    EXPECT_TRUE(Network_GetNetCardNumber(&count));
                    EXPECT_EQ(count, 2);
                    EXPECT_TRUE(Network_GetBridgeInfo(nullptr, &bridges));
                    EXPECT_EQ(bridges, 1);
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    });
}

} // namespace
