// Network cards: listing them, their addresses, up and down.
#include "../internal/netcard.h"

#include <ZKQ_general/socket.h>
#include <arpa/inet.h>
#include <ctype.h>
#include <net/if_arp.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>

#include <span>
#include <string_view>

#include "../internal/error.h"
#include "../internal/log.h"
#include "../internal/text.h"

namespace {

constexpr char kLogName[] = "network_Linux/netcard.c";
constexpr char kDeviceTable[] = "/proc/net/dev";

/// What there is to know of one interface.
struct interface {
    char name[IFNAMSIZ];
    int type; ///< of its hardware
    in_addr addr;
    in_addr netmask;
    unsigned char hwaddr[kMacLength];
};

/// The interfaces, as many as there were when the table was read.
class InterfaceList {
public:
    bool Add(const char (&name)[IFNAMSIZ])
    {
        if (count_ == room_) {
            const size_t room = room_ == 0 ? kFirstRoom : room_ * 2;
            auto* const grown = static_cast<interface*>(reallocarray(items_.get(), room, sizeof(interface)));
            if (grown == nullptr)
                return false;
            static_cast<void>(items_.release());
            items_.reset(grown);
            room_ = room;
        }
        interface& added = items_.get()[count_++];
        added = {};
        memcpy(added.name, name, sizeof name);
        return true;
    }
    std::span<interface> Items() const { return {items_.get(), count_}; }

private:
    static constexpr size_t kFirstRoom = 32;

    MallocPtr<interface> items_;
    size_t count_ = 0;
    size_t room_ = 0;
};

/// Records a failure; returns its errno value, which the recording may change.
int LogFailure(const char* text, int error)
{
    General_LibraryLog(ZKQ_LOG_ERROR, text, kLogName);
    return error;
}

/// Reads the names in the device table; 0 or an errno value.
int if_readlist_proc(InterfaceList* list)
{
    constexpr int kHeaderLines = 2;
    const UniqueFile table(fopen(kDeviceTable, "re"));
    if (table == nullptr)
        return LogFailure("open dev file failed", errno);
    char line[512];
    for (int number = 0; fgets(line, sizeof line, table.get()) != nullptr; ++number) {
        char name[IFNAMSIZ] = {};
        if (number >= kHeaderLines && get_name(line, name) && !list->Add(name))
            return LogFailure("malloc buffer failed", ENOMEM);
    }
    return ferror(table.get()) != 0 ? EIO : 0;
}

/// Asks for what is known of an interface. One that is gone has no hardware type; what one has not got stays zero.
void if_fetch(int sd, interface* item)
{
    ifreq answer;
    if (AskInterface(sd, SIOCGIFHWADDR, item->name, &answer) != 0)
        return;
    item->type = answer.ifr_hwaddr.sa_family;
    memcpy(item->hwaddr, answer.ifr_hwaddr.sa_data, sizeof item->hwaddr);
    if (item->type != ARPHRD_ETHER)
        return;
    if (AskAddress(sd, SIOCGIFADDR, item->name, &item->addr) == 0)
        AskAddress(sd, SIOCGIFNETMASK, item->name, &item->netmask);
}

/// Calls `use` with each network card; 0 or an errno value, without any such call.
template <class Use>
int ForEachCard(Use use)
{
    UniqueFd sd;
    InterfaceList list;
    if (const int error = OpenInterfaceSocket(SOCK_DGRAM, &sd))
        return error;
    if (const int error = if_readlist_proc(&list))
        return error;
    for (interface& item : list.Items()) {
        if_fetch(sd.Get(), &item);
        if (item.type == ARPHRD_ETHER && !IsBridge(item.name))
            use(item);
    }
    return 0;
}

int GetMac(int wanted, char* text)
{
    int number = 0;
    bool isFound = false;
    const int error = ForEachCard([&](const interface& card) {
        if (number++ != wanted)
            return;
        MacText(card.hwaddr, text);
        isFound = true;
    });
    return error == 0 && !isFound ? EINVAL : error;
}

int ListCards(NETCARDINFO* Info, int* count)
{
    int number = 0;
    const int error = ForEachCard([&](const interface& card) {
        if (Info != nullptr) {
            NETCARDINFO& info = Info[number] = {};
            memcpy(info.Name, card.name, sizeof info.Name);
            DottedText(card.addr, info.IP);
            DottedText(card.netmask, info.Mask);
            MacText(card.hwaddr, info.MAC);
        }
        ++number;
    });
    if (error == 0)
        *count = number;
    return error;
}

int SetRunning(const char* name, bool isStart)
{
    UniqueFd sd;
    ifreq request;
    if (const int error = OpenInterfaceSocket(SOCK_DGRAM, &sd))
        return error;
    if (const int error = AskInterface(sd.Get(), SIOCGIFFLAGS, name, &request))
        return error;
    const int flags = isStart ? request.ifr_flags | IFF_UP | IFF_RUNNING : request.ifr_flags & ~IFF_UP;
    request.ifr_flags = static_cast<short>(flags);
    return ioctl(sd.Get(), SIOCSIFFLAGS, &request) == 0 ? 0 : errno;
}

int SetAddress(int sd, unsigned long request, const char* name, in_addr_t value)
{
    ifreq change = {};
    memcpy(change.ifr_name, name, strlen(name));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = value;
    memcpy(&change.ifr_addr, &address, sizeof address);
    return ioctl(sd, request, &change) == 0 ? 0 : errno;
}

int SetAddresses(const char* name, in_addr_t address, in_addr_t mask)
{
    UniqueFd sd;
    int error = OpenInterfaceSocket(SOCK_DGRAM, &sd);
    if (error == 0)
        error = SetAddress(sd.Get(), SIOCSIFADDR, name, address);
    if (error != 0 || address == INADDR_ANY)
        return error;
    error = SetAddress(sd.Get(), SIOCSIFNETMASK, name, mask);
    return error != 0 ? error : SetAddress(sd.Get(), SIOCSIFBRDADDR, name, address | ~mask);
}

} // namespace

void MacText(const unsigned char (&mac)[kMacLength], char* text)
{
    constexpr size_t kTextSize = sizeof "0242-AC11-0002";
    snprintf(text, kTextSize, "%02X%02X-%02X%02X-%02X%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

bool IsInterfaceName(const char* name)
{
    if (name == nullptr)
        return false;
    const std::string_view text(name, strnlen(name, IFNAMSIZ));
    return !text.empty() && text.size() < IFNAMSIZ && text != "." && text != ".." &&
           text.find('/') == std::string_view::npos;
}

bool get_name(const char* line, char (&name)[IFNAMSIZ])
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    while (isspace(static_cast<unsigned char>(*line)))
        ++line;
    size_t length = strcspn(line, ": \t\n");
    if (line[length] != ':')
        return false;
    size_t end = length + 1;
    while (isDigit(line[end]))
        ++end;
    if (end > length + 1 && line[end] == ':')
        length = end;
    if (length >= sizeof name)
        return false;
    memcpy(name, line, length);
    name[length] = '\0';
    return IsInterfaceName(name);
}

int OpenInterfaceSocket(int type, UniqueFd* sd)
{
    sd->Reset(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    return sd->IsOpen() ? 0 : LogFailure("create socket failed", errno);
}

int AskInterface(int sd, unsigned long request, const char* name, ifreq* answer)
{
    *answer = {};
    memcpy(answer->ifr_name, name, strlen(name));
    return ioctl(sd, request, answer) == 0 ? 0 : errno;
}

int AskAddress(int sd, unsigned long request, const char* name, in_addr* address)
{
    ifreq answer;
    if (const int error = AskInterface(sd, request, name, &answer))
        return error;
    sockaddr_in found = {};
    memcpy(&found, &answer.ifr_addr, sizeof found);
    *address = found.sin_addr;
    return 0;
}

void DottedText(const in_addr& address, char (&text)[32])
{
    inet_ntop(AF_INET, &address, text, sizeof text);
}

BOOL Network_GetNetCardNumber(long int* Nums)
{
    int count = 0;
    if (Nums == nullptr)
        return Fail(EINVAL);
    if (const int error = ListCards(nullptr, &count))
        return Fail(error);
    *Nums = count;
    return TRUE;
}

BOOL Network_GetMACAddress(int CardNO, char* MACAddress)
{
    return Finish(MACAddress == nullptr ? EINVAL : GetMac(CardNO, MACAddress));
}

BOOL Network_GetNetCardInfo(NETCARDINFO* Info, int* NCCount)
{
    return Finish(NCCount == nullptr ? EINVAL : ListCards(Info, NCCount));
}

BOOL Network_StartStopNetworkDevice(const char* Name, int bStart)
{
    return Finish(IsInterfaceName(Name) ? SetRunning(Name, bStart != 0) : EINVAL);
}

BOOL Network_SetDevAddress(const char* Name, const char* IP, const char* Mask)
{
    unsigned long address = 0;
    unsigned long mask = 0;
    if (!IsInterfaceName(Name))
        return Fail(EINVAL);
    if (!GetServerAddress(IP, &address) || !GetServerAddress(Mask, &mask))
        return FALSE;
    return Finish(SetAddresses(Name, static_cast<in_addr_t>(address), static_cast<in_addr_t>(mask)));
}
