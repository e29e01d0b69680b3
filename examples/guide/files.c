/* Whole files, directories, and what a link looks like. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <stdlib.h>

static void ShowContent(const char* path)
{
    /* [content] */
    unsigned char* content;
    int size;
    if (ZKQGeneral_GetFileContent(path, &content, &size)) {
        printf("%d bytes: %s\n", size, (char*)content); /* at least 100 zero bytes follow, so a text is a string */
        ZKQGeneral_FreeMallocBuffer(content);
    }
    /* [content end] */
}

int main(void)
{
    static const unsigned char settings[] = "color = red";
    BOOL isDirectory = FALSE;
    DWORD length = 0;

    if (!ZKQGeneral_CreateMultiLevelDirectory("conf/local") ||
        !ZKQGeneral_SetFileContent("conf/local/settings.txt", settings, sizeof settings - 1) ||
        !ZKQGeneral_CreateShortCut("local/settings.txt", NULL, "conf/link")) {
        puts(ZKQGeneral_GetGeneralErrorInfo());
        return 1;
    }
    ShowContent("conf/local/settings.txt");
    /* [link] */
    ZKQGeneral_GetFileLength("conf/link", &length); /* of the text "local/settings.txt" */
    printf("the link has %lu bytes\n", length);

    char* real = realpath("conf/link", NULL); /* the file itself */
    if (real != NULL && ZKQGeneral_GetFileLength(real, &length))
        printf("the file has %lu bytes\n", length);
    free(real);
    /* [link end] */
    ZKQGeneral_IsDirectoryName("conf/local", &isDirectory);
    printf("conf/local %s a directory\n", isDirectory ? "is" : "is not");

    if (!ZKQGeneral_MyDeleteDirectory("conf"))
        puts(ZKQGeneral_GetGeneralErrorInfo());
    printf("conf is %s\n", ZKQGeneral_IsFileExist("conf") ? "there" : "gone");
    return 0;
}
