/* A line that is split, and bytes that are collected. */
#include <ZKQ_general.h>
#include <stdio.h>

static int Split(void)
{
    /* [split] */
    int count;
    char** tokens = ZKQGeneral_ParseLineInfo("a,,b;", ",;", &count);
    if (tokens == NULL)
        return 1;
    for (int i = 0; i < count; ++i)
        printf("token %d is %s\n", i, tokens[i]);
    ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
    /* [split end] */
    return 0;
}

static int Collect(void)
{
    const unsigned char bytes[] = {1, 2, 3, 4};
    /* [memory] */
    void* memory = ZKQGeneral_MEM_malloc(0);
    unsigned char *data = NULL, first;
    int size = 0;
    for (int i = 0; i < 3; ++i)
        if (ZKQGeneral_MEM_Write(memory, bytes, sizeof bytes) != sizeof bytes)
            puts("no memory");
    ZKQGeneral_MEM_Read(memory, &first, 1);      /* from the start */
    ZKQGeneral_MEM_Detach(memory, &data, &size); /* data is the caller's now; the object is empty and alive */
    printf("read %d, then there are %d bytes, from %d to %d\n", first, size, data[0], data[size - 1]);
    ZKQGeneral_FreeMallocBuffer(data);
    ZKQGeneral_MEM_free(memory);
    /* [memory end] */
    return 0;
}

int main(void)
{
    return Split() || Collect();
}
