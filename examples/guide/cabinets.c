/* A cabinet is made of a file and a directory, and taken apart. */
#include <ZKQ_general.h>
#include <stdint.h>
#include <stdio.h>

/* [progress] */
static void* Show(void* percentage)
{
    printf("%ld%%\n", (long)(intptr_t)percentage);
    return NULL;
}
/* [progress end] */

int main(void)
{
    static const unsigned char text[] = "127.0.0.1 localhost";
    ZKQGeneral_CreateMultiLevelDirectory("etc/network");
    if (!ZKQGeneral_SetFileContent("etc/hosts", text, sizeof text - 1) ||
        !ZKQGeneral_SetFileContent("etc/network/interfaces", text, 7))
        return 1;
    /* [cabinet] */
    /* Names, each with a NUL, and an empty one behind the last. */
    const char names[] = "etc/hosts\0etc/network\0";
    if (!ZKQGeneral_MakeMyCabFile_P("net.cab", names, 1, Show)) {
        puts(ZKQGeneral_GetGeneralErrorInfo());
        return 1;
    }
    if (!ZKQGeneral_ExtractMyCabAllFile("net.cab", "copy"))
        puts(ZKQGeneral_GetGeneralErrorInfo());

    char path[300] = "one"; /* the directory; then the path of the file */
    if (ZKQGeneral_ExtractMyCabOneFile("net.cab", path, 0))
        puts(path);
    /* [cabinet end] */
    printf("copy/interfaces is %s\n", ZKQGeneral_IsFileExist("copy/interfaces") ? "there" : "missing");
    return 0;
}
