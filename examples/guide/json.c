/* Documents are read, written, and have arrays. */
#include <ZKQ_general.h>
#include <stdio.h>

static int Read(const char* text)
{
    /* [read] */
    void* doc;
    if (JSON_Misc_InitJSON(text, &doc) != 0)
        return 1; /* not JSON */
    char* name;
    int port, timeout;
    JSON_Misc_GetString(doc, "server/name", &name); /* belongs to the document; null if it is no string */
    JSON_Misc_GetInt(doc, "server/port", &port);
    JSON_Misc_GetInt(doc, "server/timeout", &timeout); /* not there: "server" itself is read, which is no number */
    printf("%s on %d, %d\n", name != NULL ? name : "", port, timeout);
    JSON_Misc_FiniJSON(doc, NULL);
    /* [read end] */
    return 0;
}

static int Write(void)
{
    static const unsigned char key[] = {0x12, 0xab};
    /* [write] */
    void* doc;
    char* text;
    if (JSON_Misc_InitJSON(NULL, &doc) != 0) /* an empty object */
        return 1;
    JSON_Misc_SetString(doc, "server/name", "alpha");
    JSON_Misc_SetInt(doc, "server/port", 8080);
    JSON_Misc_SetHexData(doc, "server/key", key, sizeof key); /* or JSON_Misc_SetB64Data */
    JSON_Misc_FiniJSON(doc, &text);
    if (text != NULL)
        puts(text);
    ZKQGeneral_FreeMallocBuffer(text);
    /* [write end] */
    return 0;
}

static int Arrays(void)
{
    void* doc;
    if (JSON_Misc_InitJSON(NULL, &doc) != 0)
        return 1;
    /* [array] */
    void *list, *record;
    JSON_Misc_GetChildNode_AutoAdd(doc, "rows", &list);
    JSON_Misc_SetNodeArrayType(list);
    for (int i = 0; i < 3; ++i)
        if (JSON_Misc_CreateObjectNode(list, &record) == 0)
            JSON_Misc_SetInt(record, "id", 10 * i);

    int count = 0, id;
    size_t* nodes = NULL;
    JSON_Misc_GetArrayInfo(doc, "rows", &count, &nodes);
    for (int i = 0; i < count; ++i)
        if (JSON_Misc_GetInt((void*)nodes[i], "id", &id) == 0)
            printf("row %d has %d\n", i, id);
    ZKQGeneral_FreeMallocBuffer(nodes);
    /* [array end] */
    JSON_Misc_FiniJSON(doc, NULL);
    return 0;
}

int main(void)
{
    return Read("{\"server\": {\"name\": \"alpha\", \"port\": 8080}}") || Write() || Arrays();
}
