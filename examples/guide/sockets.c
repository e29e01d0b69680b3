/* A server and its client in one program, over the loopback interface. */
#include <ZKQ_general.h>
#include <netinet/in.h>
#include <stdio.h>

/* [server] */
static void* Serve(void* argument)
{
    SOCKET_ZKQ *server = argument, client;
    while (S_CanAccept(server)) { /* waits; S_Accept does not */
        if (!S_Accept(*server, &client, 0))
            continue;
        char data[4096];
        long size = sizeof data;
        const int done = S_Receive_Unknow_Data(client, data, &size, 20) && S_SendEx(&client, data, size, 20);
        S_Close(&client, 0);
        if (done)
            break; /* this server has one client */
    }
    return NULL;
}
/* [server end] */

static int Talk(int port)
{
    /* [client] */
    SOCKET_ZKQ socket;
    if (!S_Open(&socket, 0, 0, 0))
        return 1;
    long size = 5;
    char answer[5];
    if (S_Client(&socket, "127.0.0.1", port, 5) && S_SendEx(&socket, "hello", size, 5) &&
        S_Receive(socket, answer, &size, 5))
        printf("answer: %.5s\n", answer);
    else
        printf("%s\n", NetWork_GetErrorText());
    S_Close(&socket, 0); /* always, what was opened */
    /* [client end] */
    return 0;
}

static void ShowAddresses(void)
{
    int port;
    /* [address] */
    struct sockaddr_in6 address;
    if (Network_FillSockAddrEx(&address, AF_INET6, "[::1]:8080", 80) &&
        Network_ParseSockAddr(&address, NULL, &port, NULL))
        printf("port %d\n", port);
    if (Network_FillSockAddrEx(&address, AF_INET6, "[::1]", 80) && Network_ParseSockAddr(&address, NULL, &port, NULL))
        printf("port %d\n", port);
    /* [address end] */
}

int main(void)
{
    SOCKET_ZKQ server;
    THREADINFOA thread;
    int port;
    /* [listen] */
    if (!S_Open(&server, 0, 0, 0) || !S_Bind(&server, "127.0.0.1", 0) || !S_Listen(&server, 16) ||
        !S_GetLocalInfoEx(&server, NULL, &port, NULL) || !ZKQGeneral_CreateWorkingThread(Serve, &server, &thread)) {
        puts(NetWork_GetErrorText());
        return 1;
    }
    /* [listen end] */
    const int failed = Talk(port);
    ZKQGeneral_WaitThreadExit(&thread, NULL, 0);
    S_Close(&server, 0);
    ShowAddresses();
    return failed;
}
