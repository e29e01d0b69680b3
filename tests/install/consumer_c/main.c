#include <ZKQ_general.h>
#include <stdio.h>

int main(void)
{
    char path[8];
    printf("%lu %s\n", ZKQGeneral_GetTempPath(sizeof path, path), path);
    printf("%s\n", ZKQGeneral_GetGeneralErrorInfo());
    return 0;
}
