/* Settings in a file and in a text. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <string.h>

int main(void)
{
    const char* file = "server.ini";
    char name[64], keys[256], *text;
    int length;

    if (!ZKQGeneral_WritePrivateProfileString("Server", "Name", "main server", file) ||
        !ZKQGeneral_WritePrivateProfileString("Server", "Port", "8080", file)) {
        puts(ZKQGeneral_GetGeneralErrorInfo());
        return 1;
    }
    ZKQGeneral_GetPrivateProfileString("server", "name", "unnamed", name, sizeof name, file); /* without case */
    printf("%s listens on %u\n", name, ZKQGeneral_GetPrivateProfileInt("Server", "Port", 80, file));
    printf("and waits %u seconds\n", ZKQGeneral_GetPrivateProfileInt("Server", "Timeout", 30, file)); /* the default */

    /* Names one behind the other, each with a NUL, and an empty one in the end. */
    ZKQGeneral_GetPrivateProfileItemNames("Server", keys, sizeof keys, file);
    for (const char* key = keys; *key != '\0'; key += strlen(key) + 1)
        printf("key: %s\n", key);

    if (ZKQGeneral_WritePrivateProfileString_Mem("[Server]\nPort = 80\n", "Server", "Port", "81", &text, &length))
        printf("%d bytes with the NUL:\n%s", length, text);
    ZKQGeneral_FreeMallocBuffer(text); /* after a failure, too */
    return 0;
}
