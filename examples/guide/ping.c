/* Addresses of hosts and of this one. What differs from machine to machine, and the ping that is for root, go to standard error. */
#include <ZKQ_general.h>
#include <arpa/inet.h>
#include <stdio.h>

static void Ping(const char* host, FILE* out)
{
    /* [ping] */
    unsigned long elapsed; /* milliseconds */
    unsigned char ttl;
    if (Network_PingHost(host, 56, 1, &elapsed, &ttl))
        fprintf(out, "%lu ms, ttl %d\n", elapsed, ttl);
    else
        fprintf(out, "%s\n", ZKQGeneral_GetGeneralErrorInfo());
    /* [ping end] */
}

static void ShowKind(const char* host)
{
    char text[46];
    /* [kind] */
    unsigned char address[16]; /* 4 or 16 bytes of it are set */
    int isIPv6;
    if (Network_IsIPV6Address(host, address, &isIPv6) &&
        inet_ntop(isIPv6 ? AF_INET6 : AF_INET, address, text, sizeof text) != NULL)
        printf("%s is IPv%d\n", text, isIPv6 ? 6 : 4);
    /* [kind end] */
}

static void ListInterfaces(FILE* out)
{
    /* [interfaces] */
    char name[16], ip[16], mask[16], ipv6[46], mac[15];
    for (int i = 0; Network_GetDevName(i, name); ++i) {
        if (Network_GetInfo_if(name, NULL, NULL, NULL, mac))
            fprintf(out, "%s %s\n", name, mac); /* eth0 0242-AC11-0002 */
        if (Network_GetInfo_if(name, ip, mask, NULL, NULL))
            fprintf(out, "%s %s\n", ip, mask);
        if (Network_GetInfo_if(name, NULL, NULL, ipv6, NULL))
            fprintf(out, "%s\n", ipv6);
    }
    /* [interfaces end] */
}

static void ListOwnAddresses(FILE* out)
{
    /* [own] */
    char ip[16];
    for (int i = 0, count = GetIPAddressCount(); i < count; ++i)
        if (GetIPAddress(i, ip) == 0) /* 0, and not TRUE */
            fprintf(out, "%s\n", ip);
    /* [own end] */
}

int main(void)
{
    ShowKind("127.0.0.1");
    ShowKind("::1");
    Ping("127.0.0.1", stderr);
    ListInterfaces(stderr);
    ListOwnAddresses(stderr);
    return 0;
}
