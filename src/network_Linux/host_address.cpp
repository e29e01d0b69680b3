// The host's own addresses and interfaces.
#include <ZKQ_general/ping.h>
#include <ZKQ_general/socket.h>
#include <arpa/inet.h>
#include <errno.h>
#include <limits.h>
#include <net/if.h>
#include <netdb.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <string_view>

#include "../internal/guards.h"
#include "../internal/netcard.h"
#include "../internal/resolver.h"
#include "../internal/socket.h"
#include "../internal/text.h"

namespace {

/// Calls `use` with the host's entry for its own name; 0 or an errno value.
template <class Use>
int WithHostEntry(int family, Use use)
{
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) != 0)
        return errno;
    MallocPtr<char> room;
    hostent entry = {};
    int resolverError = 0;
    const hostent* const found = AskResolver(&room, &entry, &resolverError,
                                             [&](hostent* to, char* buffer, size_t size, hostent** answer, int* why) {
                                                 return gethostbyname2_r(name, family, to, buffer, size, answer, why);
                                             });
    return found == nullptr ? EINVAL : use(*found);
}

/// -1 with the error text set.
int CountAddresses(int family)
{
    int count = 0;
    const int error = WithHostEntry(family, [&](const hostent& entry) {
        while (entry.h_addr_list[count] != nullptr)
            ++count;
        return 0;
    });
    if (error == 0 || (family == AF_INET6 && WithHostEntry(AF_INET, [](const hostent&) { return 0; }) == 0))
        return count; // a name that has only addresses of the other family has none of this one
    GeneralMisc_SetSystemError(error);
    return -1;
}

/// The index-th address of the host's name; 0 or an errno value.
int AddressAt(int family, int index, void* address, int size)
{
    return WithHostEntry(family, [&](const hostent& entry) {
        if (entry.h_length != size)
            return EMSGSIZE;
        int at = 0;
        while (at < index && entry.h_addr_list[at] != nullptr)
            ++at;
        if (index < 0 || entry.h_addr_list[at] == nullptr)
            return EINVAL;
        memcpy(address, entry.h_addr_list[at], static_cast<size_t>(size));
        return 0;
    });
}

BOOL GiveIPv6Text(const in6_addr& bytes, char* IP)
{
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_addr = bytes;
    return Network_ParseSockAddr(&address, IP, nullptr, nullptr);
}

/// Stores an IPv4 address of an interface as text.
int GiveInterfaceAddress(int sd, unsigned long request, const char* DevName, char* text)
{
    in_addr address = {};
    if (const int error = AskAddress(sd, request, DevName, &address))
        return error;
    inet_ntop(AF_INET, &address, text, INET_ADDRSTRLEN);
    return 0;
}

int GiveMac(int sd, const char* DevName, char* Mac)
{
    ifreq answer;
    if (const int error = AskInterface(sd, SIOCGIFHWADDR, DevName, &answer))
        return error;
    unsigned char mac[kMacLength];
    memcpy(mac, answer.ifr_hwaddr.sa_data, sizeof mac);
    MacText(mac, Mac);
    return 0;
}

/// The lines of one of the kernel's tables.
class TableReader {
public:
    explicit TableReader(const char* fileName) : file_(fopen(fileName, "re")) {}
    bool IsOpen() const { return file_ != nullptr; }
    /// Null at the end. A line is cut to what fits, which all of the kernel's do.
    const char* NextLine() { return fgets(line_, sizeof line_, file_.get()); }

private:
    UniqueFile file_;
    char line_[512];
};

/// Reads an address as the kernel's table has it: 32 digits without colons.
bool ReadIPv6(const char (&digits)[33], in6_addr* address)
{
    constexpr int kGroupLength = 4;
    char text[INET6_ADDRSTRLEN];
    TextBuilder builder(text);
    for (size_t i = 0; digits[i] != '\0'; ++i) {
        if (i > 0 && i % kGroupLength == 0)
            builder.Add(':');
        builder.Add(digits[i]);
    }
    return inet_pton(AF_INET6, text, address) == 1;
}

/// Finds an interface's first address in the kernel's table; 0 or an errno value.
int FindIPv6(const char* DevName, in6_addr* address)
{
    TableReader table("/proc/net/if_inet6");
    if (!table.IsOpen())
        return errno;
    while (const char* line = table.NextLine()) {
        char digits[33];
        char name[21];
        if (sscanf(line, "%32[0-9a-f] %*s %*s %*s %*s %20s", digits, name) == 2 && strcmp(name, DevName) == 0 &&
            ReadIPv6(digits, address))
            return 0;
    }
    return ENODEV;
}

/// Finds the name of the index-th interface; 0 or an errno value.
int FindDevName(int index, char* DevName)
{
    constexpr int kHeaderLines = 2;
    TableReader table("/proc/net/dev");
    if (!table.IsOpen())
        return errno;
    const char* line = table.NextLine();
    for (int left = kHeaderLines; left > 0 && line != nullptr; --left)
        line = table.NextLine();
    for (int left = index; left > 0 && line != nullptr; --left)
        line = table.NextLine();
    if (index < 0 || line == nullptr)
        return EINVAL;
    line += strspn(line, " ");
    GeneralMisc_OutputString(std::string_view(line, std::min<size_t>(strcspn(line, ":"), IFNAMSIZ - 1)), DevName,
                             IFNAMSIZ, 1);
    return 0;
}

int GetInfo(const char* DevName, char* IP, char* IPMask, char* Mac)
{
    const UniqueFd sd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sd.IsOpen())
        return errno;
    int error = Mac == nullptr ? 0 : GiveMac(sd.Get(), DevName, Mac);
    if (error == 0 && IP != nullptr)
        error = GiveInterfaceAddress(sd.Get(), SIOCGIFADDR, DevName, IP);
    if (error == 0 && IPMask != nullptr)
        error = GiveInterfaceAddress(sd.Get(), SIOCGIFNETMASK, DevName, IPMask);
    return error;
}

} // namespace

int GetIPAddressCount(void)
{
    return CountAddresses(AF_INET);
}

int GetIPAddress(int index, char* IP)
{
    in_addr address = {};
    const int error = IP == nullptr ? EINVAL : AddressAt(AF_INET, index, &address, sizeof address);
    if (error != 0) {
        GeneralMisc_SetSystemError(error);
        return -1;
    }
    inet_ntop(AF_INET, &address, IP, INET_ADDRSTRLEN);
    return 0;
}

BOOL Network_GetInfo_if(const char* DevName, char* IP, char* IPMask, char* IPV6, char* Mac)
{
    if (!IsInterfaceName(DevName))
        return Fail(EINVAL);
    if (const int error = GetInfo(DevName, IP, IPMask, Mac))
        return Fail(error);
    return IPV6 == nullptr ? TRUE : Network_GetIPAddress_V6_if(DevName, IPV6);
}

BOOL Network_GetIPAddress_V6_if(const char* DevName, char* IP)
{
    if (DevName == nullptr || IP == nullptr)
        return Fail(EINVAL);
    in6_addr address = {};
    if (const int error = FindIPv6(DevName, &address))
        return Fail(error);
    return GiveIPv6Text(address, IP);
}

int Network_GetIPAddressCount_V6(void)
{
    return CountAddresses(AF_INET6);
}

BOOL Network_GetIPAddress_V6(int index, char* IP)
{
    in6_addr address = {};
    const int error = IP == nullptr ? EINVAL : AddressAt(AF_INET6, index, &address, sizeof address);
    return error != 0 ? Fail(error) : GiveIPv6Text(address, IP);
}

BOOL Network_GetDevName(int index, char* DevName)
{
    return Finish(DevName == nullptr ? EINVAL : FindDevName(index, DevName));
}
