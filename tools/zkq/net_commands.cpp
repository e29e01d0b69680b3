// zkq net: the network of this machine, and connections to try it with.
#include <ZKQ_general/ping.h>
#include <ZKQ_general/socket.h>
#include <arpa/inet.h>
#include <limits.h>
#include <unistd.h>

#include <limits>
#include <memory>

#include "columns.h"
#include "commands.h"
#include "failure.h"
#include "net_echo.h"
#include "output.h"

namespace {

constexpr int kHighestPort = 65535;
constexpr int kLongestTimeout = 24 * 60 * 60;
constexpr size_t kTextSize = 64; // more than any address or device name takes
constexpr const char* kNone = "-";

/// A device's addresses; what it has not is a "-".
Row RowOf(const char* device)
{
    char ip[kTextSize] = "";
    char mask[kTextSize] = "";
    char ipv6[kTextSize] = "";
    char mac[kTextSize] = "";
    const bool has_mac = Network_GetInfo_if(device, nullptr, nullptr, nullptr, mac);
    const bool has_ip = Network_GetInfo_if(device, ip, nullptr, nullptr, nullptr);
    const bool has_mask = has_ip && Network_GetInfo_if(device, nullptr, mask, nullptr, nullptr);
    const bool has_ipv6 = Network_GetInfo_if(device, nullptr, nullptr, ipv6, nullptr);
    return {device, has_mac ? mac : kNone, has_ip ? ip : kNone, has_mask ? mask : kNone, has_ipv6 ? ipv6 : kNone};
}

/// The addresses that the host's own name resolves to.
std::string HostAddresses()
{
    std::string list;
    char text[kTextSize] = "";
    for (int i = 0, count = GetIPAddressCount(); i < count; ++i)
        if (GetIPAddress(i, text) == 0)
            list += std::string(" ") + text;
    for (int i = 0, count = Network_GetIPAddressCount_V6(); i < count; ++i)
        if (Network_GetIPAddress_V6(i, text))
            list += std::string(" ") + text;
    return list.empty() ? std::string(" ") + kNone : list;
}

void ShowAddresses()
{
    std::vector<Row> rows = {{"DEVICE", "MAC", "IPV4", "MASK", "IPV6"}};
    char device[kTextSize] = "";
    for (int i = 0; Network_GetDevName(i, device); ++i)
        rows.push_back(RowOf(device));
    PrintTable(rows);
    char name[HOST_NAME_MAX + 1] = "";
    gethostname(name, sizeof name);
    PrintLine(std::string("host ") + name + ":" + HostAddresses());
}

std::string AddressText(int family, const void* bytes)
{
    char text[INET6_ADDRSTRLEN] = "";
    return inet_ntop(family, bytes, text, sizeof text) == nullptr ? kNone : text;
}

/// The IPv4 and the IPv6 address of a host, where it has them.
void LookUp(const std::string& host)
{
    unsigned long ipv4 = 0;
    in6_addr ipv6 = {};
    const bool hasIpv4 = GetServerAddress(host.c_str(), &ipv4);
    const bool hasIpv6 = GetServerAddress6(host.c_str(), ipv6.s6_addr) && !IN6_IS_ADDR_V4MAPPED(&ipv6);
    if (!hasIpv4 && !hasIpv6)
        throw LibraryFailure("cannot find " + host);
    if (hasIpv4) {
        const in_addr address = {static_cast<in_addr_t>(ipv4)};
        PrintLine(AddressText(AF_INET, &address));
    }
    if (hasIpv6)
        PrintLine(AddressText(AF_INET6, &ipv6));
}

/// The name that an address has.
void LookUpName(const std::string& address)
{
    constexpr size_t kNameSize = 1025;
    constexpr int kAnyPort = 1;
    sockaddr_in6 room = {};
    const int family = address.find(':') == std::string::npos ? AF_INET : AF_INET6;
    char name[kNameSize] = "";
    const std::string what = "cannot find a name of " + address;
    if (!Network_FillSockAddrEx(&room, family, address.c_str(), kAnyPort))
        throw LibraryFailure(what);
    // Of IPv4 addresses the library leaves a text that has nothing to do with names.
    if (!S_GetHostByAddr(&room, name))
        throw family == AF_INET ? Failure(what, "Nobody knows one") : LibraryFailure(what);
    PrintLine(name);
}

void AddLookup(CLI::App& net)
{
    struct Options {
        std::string host;
        bool isReverse = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = net.add_subcommand("lookup", "Print the addresses of a host, one a line");
    command->add_option("HOST", options->host, "A name or an address")
        ->required()
        ->type_name("")
        ->check(CLI::Validator([](const std::string& host) { return host.empty() ? "is empty" : ""; }, ""));
    command->add_flag("--reverse", options->isReverse, "HOST is an address: print the name that it has");
    command->callback([options] { options->isReverse ? LookUpName(options->host) : LookUp(options->host); });
}

void AddAddr(CLI::App& net)
{
    CLI::App* command = net.add_subcommand("addr", "Show the addresses of this machine");
    command->callback(ShowAddresses);
}

void AddServe(CLI::App& net)
{
    const auto options = std::make_shared<ServeOptions>();
    CLI::App* command = net.add_subcommand("serve", "Send back to everybody what they send");
    command->add_option("--host", options->host, "The own address to listen on, \"\" for all IPv4 ones (127.0.0.1)")
        ->type_name("HOST");
    command->add_option("--port", options->port, "The port; 0 for one that is free, which is printed")
        ->required()
        ->type_name("PORT")
        ->check(CLI::Range(0, kHighestPort).description(""));
    command->add_option("--count", options->count, "End after so many connections; 0 for never (0)")
        ->type_name("N")
        ->check(CLI::Range(0L, std::numeric_limits<long>::max()).description(""));
    command->callback([options] { ServeEcho(*options); });
}

void AddConnect(CLI::App& net)
{
    const auto options = std::make_shared<ConnectOptions>();
    CLI::App* command = net.add_subcommand("connect", "Send standard input to a server and print what comes back");
    command->add_option("HOST", options->host, "A name, or an IPv4 or IPv6 address")->required()->type_name("");
    command->add_option("PORT", options->port, "The port")
        ->required()
        ->type_name("")
        ->check(CLI::Range(1, kHighestPort).description(""));
    command->add_option("--timeout", options->timeout, "How long to wait for the connection, 0 without limit (20)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, kLongestTimeout).description(""));
    command->callback([options] { ConnectTo(*options); });
}

} // namespace

void AddNetCommands(CLI::App& app)
{
    CLI::App* net = app.add_subcommand("net", "Show and set up the network of this machine, and try connections");
    net->require_subcommand(1);
    AddAddr(*net);
    AddLookup(*net);
    AddServe(*net);
    AddConnect(*net);
    AddNetConfigCommands(*net);
}
