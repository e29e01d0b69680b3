/* Requests to a server that says what it was asked for, in the same program. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <string.h>

enum { REQUESTS = 4 };

static void* Serve(void* argument)
{
    SOCKET_ZKQ *server = argument, client;
    for (int i = 0; i < REQUESTS && S_CanAccept(server); ++i) {
        char request[4096], answer[5000];
        long size = sizeof request - 1;
        if (!S_Accept(*server, &client, 0))
            continue;
        if (S_Receive_Unknow_Data(client, request, &size, 20)) {
            request[size] = '\0';
            const char* body = strstr(request, "\r\n\r\n");
            const int length =
                snprintf(answer, sizeof answer,
                         "HTTP/1.1 200 OK\r\nContent-Disposition: attachment; filename=status.txt\r\n\r\n"
                         "%.*s with %d bytes",
                         (int)strcspn(request, " "), request, body == NULL ? 0 : (int)strlen(body + 4));
            S_SendEx(&client, answer, length, 20);
        }
        S_Close(&client, 0);
    }
    return NULL;
}

static void Ask(const char* url)
{
    /* [get] */
    char* body;
    if (!Network_HttpSendReceive(url, NULL, NULL, &body, 5))
        printf("%s\n", NetWork_GetErrorText());
    else
        printf("%s\n", body != NULL ? body : "");
    NetWork_FreeBuffer(body);
    /* [get end] */
    /* [post] */
    if (Network_HttpSendReceive(url, "{\"name\":\"value\"}", "Content-Type: application/json", &body, 5))
        printf("%s\n", body != NULL ? body : "");
    NetWork_FreeBuffer(body);
    /* [post end] */
    /* [file] */
    if (!Network_SendHttpRequest(url, NULL, "report.txt"))
        printf("%s\n", NetWork_GetErrorText());

    char name[300];
    if (Network_SendHttpRequestEx2(url, NULL, "inbox", NULL, 1, name, sizeof name))
        printf("the server calls it %s\n", name);
    /* [file end] */
}

int main(void)
{
    SOCKET_ZKQ server;
    THREADINFOA thread;
    char url[64];
    int port;
    if (!S_Open(&server, 0, 0, 0) || !S_Bind(&server, "127.0.0.1", 0) || !S_Listen(&server, 16) ||
        !S_GetLocalInfoEx(&server, NULL, &port, NULL) || !ZKQGeneral_CreateWorkingThread(Serve, &server, &thread)) {
        puts(NetWork_GetErrorText());
        return 1;
    }
    ZKQGeneral_CreateMultiLevelDirectory("./inbox");
    snprintf(url, sizeof url, "http://127.0.0.1:%d/status", port);
    Ask(url);
    ZKQGeneral_WaitThreadExit(&thread, NULL, 0);
    S_Close(&server, 0);
    return 0;
}
