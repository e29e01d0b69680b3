/* An XML file with one entry, made and listed. */
#include <ZKQ_general.h>
#include <stdio.h>

int main(void)
{
    void *document, *walk, *server;
    char *name, *port, text[256];

    int error = WQXXMLH_Open("servers.xml", 1, &document); /* made if it is not there */
    if (error != 0) {
        fprintf(stderr, "%s\n", WQXXMLH_GetErrorInfo(error, text));
        return 1;
    }
    WQXXMLH_AddElementAttribute(document, "/servers/server[name=alpha]", "port", "8080");
    if (WQXXMLH_BeginIterate(document, "/servers", &walk) == 0) {
        while (WQXXMLH_Iterate(walk, &server) == 0)
            if (WQXXMLH_Iterate_GetAttribute(server, "name", &name) == 0 &&
                WQXXMLH_Iterate_GetAttribute(server, "port", &port) == 0)
                printf("%s listens on %s\n", name, port);
        WQXXMLH_EndIterate(walk);
    }
    WQXXMLH_SetDeclaration(document, "1.0", "UTF-8", NULL);
    WQXXMLH_Close(document); /* writes the file, because something was added */
    return 0;
}
