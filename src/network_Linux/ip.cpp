// Addresses of interfaces and the default route, by routing netlink.
#include <ZKQ_general/ip.h>
#include <errno.h>

#include "../internal/error.h"
#include "../internal/rtnetlink.h"

namespace {

/// A conversation with the kernel, for as long as it lives.
class Netlink {
public:
    // cppcheck-suppress uninitMemberVar ; rtnl_open() sets it
    Netlink() : isOpen_(rtnl_open(&handle_) == 0) {}
    Netlink(const Netlink&) = delete;
    Netlink& operator=(const Netlink&) = delete;
    ~Netlink() { rtnl_close(&handle_); }

    bool IsOpen() const { return isOpen_; }
    rtnl_handle* Get() { return &handle_; }

private:
    rtnl_handle handle_;
    bool isOpen_;
};

/// The index of an interface among the links that there are now; 0 with the error text set.
unsigned FindDevice(Netlink* netlink, const char* name)
{
    if (!netlink->IsOpen() || ll_init_map(netlink->Get()) != 0)
        return 0;
    const unsigned index = ll_name_to_index(name);
    if (index == 0)
        GeneralMisc_SetErrorString("Device does not exist.");
    return index;
}

int FamilyOr4(int family)
{
    return family == AF_UNSPEC ? AF_INET : family;
}

void FillDefaultRoute(RouteRequest* request, uint16_t type, uint16_t flags, int family)
{
    *request = {};
    request->n.nlmsg_len = NLMSG_LENGTH(sizeof request->r);
    request->n.nlmsg_type = type;
    request->n.nlmsg_flags = flags;
    request->r.rtm_family = static_cast<unsigned char>(family);
    request->r.rtm_table = RT_TABLE_MAIN;
    request->r.rtm_protocol = RTPROT_BOOT;
    request->r.rtm_type = RTN_UNICAST;
    request->r.rtm_scope = type == RTM_NEWROUTE ? RT_SCOPE_UNIVERSE : RT_SCOPE_NOWHERE;
}

/// Sends a default route's request for an interface; the gateway may be null.
BOOL ChangeDefaultRoute(Netlink* netlink, unsigned device, RouteRequest* request, const inet_prefix* gateway)
{
    nlmsghdr* const header = &request->n;
    const bool isBuilt =
        (gateway == nullptr || addattr_l(header, sizeof *request, RTA_GATEWAY, gateway->data, gateway->bytelen) == 0) &&
        addattr32(header, sizeof *request, RTA_OIF, device) == 0;
    return isBuilt && rtnl_talk(netlink->Get(), header) == 0 ? TRUE : FALSE;
}

} // namespace

BOOL Network_GetIPAddress(const char* DevName, int Family, char* IP, int index)
{
    if (IP != nullptr)
        *IP = '\0';
    if (DevName == nullptr || IP == nullptr)
        return Fail(EINVAL);
    const int family = FamilyOr4(Family);
    Netlink netlink;
    const unsigned device = FindDevice(&netlink, DevName);
    MessageList messages;
    if (device == 0 || rtnl_wilddump_request(netlink.Get(), family, RTM_GETADDR) != 0 ||
        rtnl_dump_filter(netlink.Get(), store_nlmsg, &messages) != 0)
        return FALSE;
    return FindAddress(messages, static_cast<int>(device), family, index, IP) == 0 ? TRUE : FALSE;
}

BOOL Network_SetDefaultGateway(const char* DevName, int Family, const char* IP)
{
    if (DevName == nullptr || IP == nullptr)
        return Fail(EINVAL);
    const int family = FamilyOr4(Family);
    Netlink netlink;
    inet_prefix gateway;
    const unsigned device = FindDevice(&netlink, DevName);
    if (device == 0 || get_addr(&gateway, IP, family) != 0)
        return FALSE;
    RouteRequest request;
    FillDefaultRoute(&request, RTM_NEWROUTE, NLM_F_REQUEST | NLM_F_CREATE | NLM_F_APPEND, family);
    return ChangeDefaultRoute(&netlink, device, &request, &gateway);
}

BOOL Network_DeleteDefaultGateway(const char* DevName)
{
    if (DevName == nullptr)
        return Fail(EINVAL);
    Netlink netlink;
    const unsigned device = FindDevice(&netlink, DevName);
    if (device == 0)
        return FALSE;
    RouteRequest request;
    FillDefaultRoute(&request, RTM_DELROUTE, NLM_F_REQUEST, AF_INET);
    return ChangeDefaultRoute(&netlink, device, &request, nullptr);
}
