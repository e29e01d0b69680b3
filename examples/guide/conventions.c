/* A call that fails says why, and what the library hands out is given back. */
#include <ZKQ_general.h>
#include <stdio.h>

int main(void)
{
    static const unsigned char text[] = "hello";
    unsigned char* content = NULL;
    int size = 0;

    puts(ZKQGeneral_GetGeneralErrorInfo()); /* nothing has failed yet */
    if (!ZKQGeneral_GetFileContent("notes.txt", &content, &size))
        printf("cannot read: %s\n", ZKQGeneral_GetGeneralErrorInfo());

    if (!ZKQGeneral_SetFileContent("notes.txt", text, 5) || !ZKQGeneral_GetFileContent("notes.txt", &content, &size))
        return 1;
    printf("%d bytes, and the text of the last failure is still there: %s\n", size, ZKQGeneral_GetGeneralErrorInfo());
    ZKQGeneral_FreeMallocBuffer(content);
    return 0;
}
