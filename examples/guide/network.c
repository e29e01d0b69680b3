/*
 * Cards and addresses. What differs from machine to machine goes to standard error. With the argument "--change", which
 * is for root, it makes a bridge and gives it an address.
 */
#include <ZKQ_general.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

static void ListCards(FILE* out)
{
    /* [cards] */
    int count = 0;
    if (Network_GetNetCardInfo(NULL, &count)) {
        NETCARDINFO* cards = calloc((size_t)count + 16, sizeof *cards); /* some may come in the meantime */
        if (cards != NULL && Network_GetNetCardInfo(cards, &count))
            for (int i = 0; i < count; ++i)
                fprintf(out, "%s %s %s %s\n", cards[i].Name, cards[i].IP, cards[i].Mask, cards[i].MAC);
        free(cards);
    }
    /* [cards end] */
}

static void ListAddresses(const char* name, FILE* out)
{
    /* [addresses] */
    char ip[46];
    for (int i = 0; Network_GetIPAddress(name, AF_INET6, ip, i) && *ip != '\0'; ++i)
        fprintf(out, "%s\n", ip);
    /* [addresses end] */
}

static void Change(void)
{
    /* [bridge] */
    BRIDGEINFO bridge = {0};
    strcpy(bridge.Name, "br0");
    strcpy(bridge.DevList[0], "eth0");
    strcpy(bridge.DevList[1], "eth1"); /* an empty name ends the list */
    if (!Network_AddBridge(&bridge) || !Network_SetDevAddress("br0", "192.0.2.8", "255.255.255.0") ||
        !Network_StartStopNetworkDevice("br0", 1))
        puts(ZKQGeneral_GetGeneralErrorInfo());
    /* [bridge end] */
    /* [address] */
    Network_StartStopNetworkDevice("eth0", 1);
    Network_SetDevAddress("eth0", "192.0.2.7", "255.255.255.0"); /* broadcast address: 192.0.2.255 */
    Network_SetDevAddress("eth0", "0.0.0.0", "0.0.0.0");         /* takes the address away */
    /* [address end] */
    /* [route] */
    Network_SetDefaultGateway("eth0", 0, "192.0.2.1"); /* AF_INET6 with an IPv6 address */
    Network_DeleteDefaultGateway("eth0");
    /* [route end] */
}

int main(int argc, char** argv)
{
    char ip[46];
    ListCards(stderr);
    ListAddresses("lo", stderr);
    if (!Network_GetIPAddress("nosuchcard", 0, ip, 0))
        printf("nosuchcard: %s\n", ZKQGeneral_GetGeneralErrorInfo());
    if (!Network_StartStopNetworkDevice("a name that is too long", 1))
        printf("no name: %s\n", ZKQGeneral_GetGeneralErrorInfo());
    if (argc > 1 && strcmp(argv[1], "--change") == 0)
        Change();
    return 0;
}
