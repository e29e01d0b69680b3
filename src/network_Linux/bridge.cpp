// Ethernet bridges: listing, making and deleting them.
#include <fcntl.h>
#include <linux/if_bridge.h>
#include <linux/sockios.h>
#include <string.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <string_view>

#include "../internal/error.h"
#include "../internal/netcard.h"
#include "../internal/socket.h"
#include "../internal/text.h"

namespace {

constexpr size_t kMaxMembers = 16;

/// The path of something about an interface.
class ClassPath {
public:
    ClassPath(std::string_view name, std::string_view what)
    {
        TextBuilder(text_).Add(kNetClass).Add('/').Add(name).Add('/').Add(what);
    }
    const char* Text() const { return text_; }

private:
    char text_[64];
};
static_assert(sizeof "/sys/class/net//bridge/stp_state" + IFNAMSIZ <= 64);

/// Calls `use` with the name of each interface in a directory, while it returns 0; 0 or an errno value.
template <class Use>
int ForEachName(const char* path, Use use)
{
    const UniqueDir directory(opendir(path));
    if (directory == nullptr)
        return errno;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(directory.get());
        if (entry == nullptr)
            return errno;
        if (!IsInterfaceName(entry->d_name)) // "." and "..", too
            continue;
        if (const int error = use(entry->d_name))
            return error;
    }
}

void CopyName(const char* name, char (&to)[IFNAMSIZ])
{
    memcpy(to, name, strlen(name) + 1);
}

int ReadMembers(BRIDGEINFO* info)
{
    size_t count = 0;
    return ForEachName(ClassPath(info->Name, "brif/").Text(), [&](const char* name) {
        if (count < kMaxMembers)
            CopyName(name, info->DevList[count++]);
        return 0;
    });
}

int ReadBridge(const char* name, BRIDGEINFO* info)
{
    *info = {};
    CopyName(name, info->Name);
    UniqueFd sd;
    in_addr address = {};
    in_addr mask = {};
    int error = ReadMembers(info);
    if (error == 0)
        error = OpenInterfaceSocket(SOCK_DGRAM, &sd);
    if (error == 0)
        error = AskAddress(sd.Get(), SIOCGIFADDR, name, &address);
    if (error == 0)
        error = AskAddress(sd.Get(), SIOCGIFNETMASK, name, &mask);
    if (error != 0)
        return error;
    DottedText(address, info->IP);
    DottedText(mask, info->Mask);
    return 0;
}

int ListBridges(BRIDGEINFO* Info, int* Count)
{
    int count = 0;
    const int error = ForEachName(kNetClass, [&](const char* name) {
        if (!IsBridge(name))
            return 0;
        const int at = count++;
        return Info == nullptr ? 0 : ReadBridge(name, Info + at);
    });
    if (error == 0)
        *Count = count;
    return error;
}

/// Makes or deletes a bridge by the kernel's call for it, or else by the one that older kernels have.
int ChangeBridge(int sd, unsigned long request, unsigned long oldCommand, const char* name)
{
    char text[IFNAMSIZ] = {};
    CopyName(name, text);
    if (ioctl(sd, request, text) == 0)
        return 0;
    unsigned long arguments[] = {oldCommand, reinterpret_cast<unsigned long>(text), 0};
    return ioctl(sd, SIOCSIFBR, arguments) == 0 ? 0 : errno;
}

int DeleteBridge(int sd, const char* name)
{
    return ChangeBridge(sd, SIOCBRDELBR, BRCTL_DEL_BRIDGE, name);
}

int AddMember(int sd, const char* bridge, const char* member)
{
    const unsigned index = if_nametoindex(member);
    if (index == 0)
        return ENODEV;
    ifreq request = {};
    CopyName(bridge, request.ifr_name);
    request.ifr_ifindex = static_cast<int>(index);
    if (ioctl(sd, SIOCBRADDIF, &request) == 0)
        return 0;
    unsigned long arguments[] = {BRCTL_ADD_IF, index, 0, 0};
    request.ifr_data = reinterpret_cast<char*>(arguments);
    return ioctl(sd, SIOCDEVPRIVATE, &request) == 0 ? 0 : errno;
}

/// How many members are given before the first empty one.
size_t CountMembers(const BRIDGEINFO& info)
{
    size_t count = 0;
    while (count < kMaxMembers && info.DevList[count][0] != '\0')
        ++count;
    return count;
}

bool IsBridgeRequest(const BRIDGEINFO& info, size_t members)
{
    return IsInterfaceName(info.Name) && strchr(info.Name, '%') == nullptr &&
           std::all_of(info.DevList, info.DevList + members, [](const char* name) { return IsInterfaceName(name); });
}

int AddBridge(const BRIDGEINFO& info)
{
    const size_t members = CountMembers(info);
    if (!IsBridgeRequest(info, members))
        return EINVAL;
    UniqueFd sd;
    if (const int error = OpenInterfaceSocket(SOCK_STREAM, &sd))
        return error;
    if (const int error = ChangeBridge(sd.Get(), SIOCBRADDBR, BRCTL_ADD_BRIDGE, info.Name))
        return error;
    for (size_t i = 0; i < members; ++i) {
        if (const int error = AddMember(sd.Get(), info.Name, info.DevList[i])) {
            DeleteBridge(sd.Get(), info.Name);
            return error;
        }
    }
    return 0;
}

int DelBridge(const char* name)
{
    UniqueFd sd;
    const int error = OpenInterfaceSocket(SOCK_STREAM, &sd);
    return error != 0 ? error : DeleteBridge(sd.Get(), name);
}

int SetStp(const char* name, bool isOn)
{
    const ClassPath path(name, "bridge/stp_state");
    const UniqueFd file(Repeat([&] { return open(path.Text(), O_WRONLY | O_CLOEXEC); }));
    if (!file.IsOpen())
        return errno;
    return Repeat([&] { return write(file.Get(), isOn ? "1" : "0", 1); }) == 1 ? 0 : errno;
}

} // namespace

bool IsBridge(const char* name)
{
    return access(ClassPath(name, "bridge").Text(), F_OK) == 0;
}

BOOL Network_GetBridgeInfo(BRIDGEINFO* Info, int* Count)
{
    return Finish(Count == nullptr ? EINVAL : ListBridges(Info, Count));
}

BOOL Network_AddBridge(const BRIDGEINFO* Info)
{
    return Finish(Info == nullptr ? EINVAL : AddBridge(*Info));
}

BOOL Network_DelBridge(const char* BridgeName)
{
    return Finish(IsInterfaceName(BridgeName) ? DelBridge(BridgeName) : EINVAL);
}

BOOL Network_SetBridgeStp(const char* Name, int bOn)
{
    return Finish(IsInterfaceName(Name) ? SetStp(Name, bOn != 0) : EINVAL);
}
