#include <ZKQ_general/file.h>
#include <ZKQ_general/string.h>

#include <cstdio>

int main()
{
    int count = 0;
    char** tokens = ZKQGeneral_ParseLineInfo("a b", " ", &count);
    std::printf("%d %s %s\n", count, tokens[0], tokens[1]);
    ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
    return ZKQGeneral_IsFileExist("/") ? 0 : 1;
}
