/* From GBK to UTF-8 and back. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <string.h>

int main(void)
{
    const char* gbk = "\xd6\xd0\xce\xc4"; /* two characters */
    char utf8[300], back[300];
    int length = sizeof utf8 - 1; /* the room; no NUL is added */

    if (!ZKQGeneral_AnsiToUTF8(gbk, utf8, (int)strlen(gbk), &length)) {
        puts(ZKQGeneral_GetGeneralErrorInfo()); /* not GBK, or no room */
        return 1;
    }
    utf8[length] = '\0';
    printf("%d bytes of UTF-8: %s\n", length, utf8);

    int size = sizeof back;
    if (ZKQGeneral_UTF8ToAnsi(utf8, back, length, &size))
        printf("%d bytes of GBK, the same: %s\n", size, memcmp(back, gbk, 4) == 0 ? "yes" : "no");
    if (!ZKQGeneral_UTF8ToAnsi("\xf0\x9f\x98\x80", back, 4, &size))
        printf("not in GBK: %s\n", ZKQGeneral_GetGeneralErrorInfo());
    return 0;
}
