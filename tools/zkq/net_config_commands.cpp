// zkq net cards, bridges, bridge, up, down, set, route: how the network devices of this machine are set up.
#include <ZKQ_general/ip.h>
#include <ZKQ_general/netcard.h>

#include <algorithm>
#include <memory>

#include "columns.h"
#include "commands.h"
#include "failure.h"
#include "output.h"

namespace {

constexpr size_t kMostMembers = 16;
constexpr int kNewcomers = 64; // records for devices that come while the others are listed

using Strings = std::vector<std::string>;

void Require(BOOL isDone, const std::string& what)
{
    if (!isDone)
        throw LibraryFailure(what);
}

/// Lists records with a function that is asked for their count first.
template <class Record>
std::vector<Record> List(BOOL (*list)(Record*, int*), const std::string& what)
{
    int count = 0;
    Require(list(nullptr, &count), what);
    std::vector<Record> records(static_cast<size_t>(count) + kNewcomers);
    Require(list(records.data(), &count), what);
    records.resize(static_cast<size_t>(count));
    return records;
}

void ShowCards()
{
    std::vector<Row> rows = {{"CARD", "MAC", "IPV4", "MASK"}};
    for (const NETCARDINFO& card : List(Network_GetNetCardInfo, "cannot list the network cards"))
        rows.push_back({card.Name, card.MAC, card.IP, card.Mask});
    PrintTable(rows);
}

std::string MembersOf(const BRIDGEINFO& bridge)
{
    std::string members;
    for (const char* const name : bridge.DevList) {
        if (*name == '\0')
            break;
        members += (members.empty() ? "" : " ") + std::string(name);
    }
    return members.empty() ? "-" : members;
}

void ShowBridges()
{
    std::vector<Row> rows = {{"BRIDGE", "IPV4", "MASK", "MEMBERS"}};
    for (const BRIDGEINFO& bridge : List(Network_GetBridgeInfo, "cannot list the bridges, which need IPv4 addresses"))
        rows.push_back({bridge.Name, bridge.IP, bridge.Mask, MembersOf(bridge)});
    PrintTable(rows);
}

/// Fills a name's place; one that is too long fills it without an end, which the library refuses.
template <size_t N>
void PutName(const std::string& name, char (&place)[N])
{
    name.copy(place, N);
}

void MakeBridge(const std::string& name, const Strings& members)
{
    if (members.size() > kMostMembers)
        throw Failure("cannot make the bridge " + name, "More than 16 members");
    if (std::find(members.begin(), members.end(), "") != members.end())
        throw Failure("cannot make the bridge " + name, "A member without a name");
    BRIDGEINFO bridge = {};
    PutName(name, bridge.Name);
    for (size_t i = 0; i < members.size(); ++i)
        PutName(members[i], bridge.DevList[i]);
    Require(Network_AddBridge(&bridge), "cannot make the bridge " + name);
}

/// A subcommand about one device.
CLI::App* AddDeviceCommand(CLI::App& group, const char* name, const char* description, std::string* device)
{
    CLI::App* command = group.add_subcommand(name, description);
    command->add_option("NAME", *device, "The device")->required()->type_name("");
    return command;
}

void AddTables(CLI::App& net)
{
    CLI::App* cards = net.add_subcommand("cards", "List the network cards");
    cards->callback(ShowCards);
    CLI::App* bridges = net.add_subcommand("bridges", "List the bridges with their members");
    bridges->callback(ShowBridges);
}

void AddBridgeAdd(CLI::App& bridge)
{
    struct Options {
        std::string name;
        Strings members;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* add = AddDeviceCommand(bridge, "add", "Make a bridge", &options->name);
    add->add_option("MEMBER", options->members, "Devices to add to it, 16 at most")->type_name("");
    add->callback([options] { MakeBridge(options->name, options->members); });
}

void AddBridge(CLI::App& net)
{
    struct Options {
        std::string name;
        std::string state;
    };
    CLI::App* bridge = net.add_subcommand("bridge", "Make, delete and set up bridges");
    bridge->require_subcommand(1);
    AddBridgeAdd(*bridge);

    const auto options = std::make_shared<Options>();
    CLI::App* del = AddDeviceCommand(*bridge, "del", "Delete a bridge, which must be down", &options->name);
    del->callback(
        [options] { Require(Network_DelBridge(options->name.c_str()), "cannot delete the bridge " + options->name); });

    CLI::App* stp = AddDeviceCommand(*bridge, "stp", "Switch a bridge's spanning tree", &options->name);
    stp->add_option("STATE", options->state, "on or off")
        ->required()
        ->type_name("")
        ->check(CLI::IsMember({"on", "off"}).description(""));
    stp->callback([options] {
        const int isOn = options->state == "on" ? 1 : 0;
        Require(Network_SetBridgeStp(options->name.c_str(), isOn),
                "cannot switch the spanning tree of " + options->name);
    });
}

void AddUpAndDown(CLI::App& net)
{
    const auto name = std::make_shared<std::string>();
    CLI::App* up = AddDeviceCommand(net, "up", "Bring a device up", name.get());
    up->callback([name] { Require(Network_StartStopNetworkDevice(name->c_str(), 1), "cannot bring up " + *name); });
    CLI::App* down = AddDeviceCommand(net, "down", "Bring a device down", name.get());
    down->callback([name] { Require(Network_StartStopNetworkDevice(name->c_str(), 0), "cannot bring down " + *name); });
}

void AddSet(CLI::App& net)
{
    struct Options {
        std::string name;
        std::string ip;
        std::string mask;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* set = AddDeviceCommand(net, "set", "Set a device's IPv4 address and mask", &options->name);
    set->add_option("IP", options->ip, "The address; 0.0.0.0 takes it away")->required()->type_name("");
    set->add_option("MASK", options->mask, "The network mask, dotted")->required()->type_name("");
    set->callback([options] {
        Require(Network_SetDevAddress(options->name.c_str(), options->ip.c_str(), options->mask.c_str()),
                "cannot set the address of " + options->name);
    });
}

void AddRoute(CLI::App& net)
{
    struct Options {
        std::string name;
        std::string gateway;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* route = net.add_subcommand("route", "Add and delete default routes");
    route->require_subcommand(1);

    CLI::App* set = AddDeviceCommand(*route, "set", "Add a default route through a gateway", &options->name);
    set->add_option("GATEWAY", options->gateway, "Its IPv4 or IPv6 address")->required()->type_name("");
    set->callback([options] {
        const bool isIPv6 = options->gateway.find(':') != std::string::npos;
        Require(Network_SetDefaultGateway(options->name.c_str(), isIPv6 ? AF_INET6 : AF_INET, options->gateway.c_str()),
                "cannot route through " + options->gateway);
    });

    CLI::App* del = AddDeviceCommand(*route, "del", "Delete an IPv4 default route", &options->name);
    del->callback([options] {
        Require(Network_DeleteDefaultGateway(options->name.c_str()), "cannot delete the route on " + options->name);
    });
}

} // namespace

void AddNetConfigCommands(CLI::App& net)
{
    AddTables(net);
    AddBridge(net);
    AddUpAndDown(net);
    AddSet(net);
    AddRoute(net);
}
