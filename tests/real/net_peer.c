/* The network families at work, for scripts: fetches a URL, or answers each request with the request itself. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int Fail(const char* what)
{
    fprintf(stderr, "%s: %s\n", what, NetWork_GetErrorText());
    return 1;
}

static int Fetch(const char* url, const char* target, const char* data)
{
    char name[300] = "";
    const int isDirectory = target[strlen(target) - 1] == '/';
    if (!Network_HttpSendReceiveEx2(url, data, NULL, target, NULL, NULL, 5, isDirectory, name, sizeof name))
        return Fail(url);
    if (isDirectory)
        puts(name);
    return 0;
}

static int Answer(SOCKET_ZKQ* client)
{
    char request[4096] = "";
    long used = 0;
    while (strstr(request, "\r\n\r\n") == NULL) {
        long size = (long)sizeof request - 1 - used;
        if (!S_Receive_Unknow_Data(*client, request + used, &size, 5))
            return Fail("receive");
        used += size;
        request[used] = '\0';
    }
    char head[100];
    snprintf(head, sizeof head, "HTTP/1.1 200 OK\r\nContent-Length: %ld\r\nConnection: close\r\n\r\n", used);
    if (!S_SendEx(client, head, (long)strlen(head), 5) || !S_SendEx(client, request, used, 5))
        return Fail("send");
    return 0;
}

static int Serve(const char* host, int count)
{
    SOCKET_ZKQ server;
    int port = 0;
    const int family = strchr(host, ':') != NULL ? AF_INET6 : AF_INET;
    if (!S_Open(&server, family, 0, 0) || !S_Bind(&server, host, 0) || !S_Listen(&server, 5) ||
        !S_GetLocalInfoEx(&server, NULL, &port, NULL))
        return Fail("serve");
    printf("%d\n", port);
    fflush(stdout);
    int status = 0;
    while (status == 0 && count-- > 0) {
        SOCKET_ZKQ client;
        if (!S_CanAccept(&server) || !S_Accept(server, &client, 0))
            status = Fail("accept");
        else
            status = Answer(&client);
        S_Close(&client, 0);
    }
    S_Close(&server, 1);
    return status;
}

int main(int argc, char** argv)
{
    if (argc >= 4 && strcmp(argv[1], "fetch") == 0)
        return Fetch(argv[2], argv[3], argv[4]);
    if (argc == 4 && strcmp(argv[1], "serve") == 0)
        return Serve(argv[2], atoi(argv[3]));
    fputs("usage: net_peer fetch URL FILE|DIRECTORY/ [DATA] | serve ADDRESS COUNT\n", stderr);
    return 2;
}
