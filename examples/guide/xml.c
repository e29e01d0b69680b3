/* A document as a tree of nodes, and a table from texts to values. */
#include <ZKQ_general.h>
#include <stdio.h>

static int Nodes(void)
{
    /* [nodes] */
    void *document, *root, *child;
    char *name, *text;
    int count;
    if (WQXXML_LoadFromString("<servers><server name='alpha'/><server name='beta'/></servers>", &document) != 0 ||
        WQXXML_GetRootNode(document, 0, &root) != 0)
        return 1;
    WQXXML_AddNodeChildItem(root, "server", "", &child);
    WQXXML_AddNodeAttribute(child, "name", "gamma");
    WQXXML_GetChildNode(root, &count, NULL); /* without a place for a child: how many there are */
    for (int i = 0; i < count; ++i)
        if (WQXXML_GetChildNode(root, &i, &child) == 0 && WQXXML_GetAttribute(child, "name", &name) == 0)
            printf("%d: %s\n", i, name);
    WQXXML_DelNode(&document, child);
    if (WQXXML_OutputString(document, &text) == 0) {
        fputs(text, stdout);
        WQXXML_FreeString(text);
    }
    WQXXML_ReleaseObject(document); /* the whole document */
    /* [nodes end] */
    return 0;
}

static int Table(void)
{
    int port = 8080;
    /* [table] */
    void *table, *value;
    if (General_Table_Create(&table, 256, 0) != 0) /* 256 buckets at first; 1 instead of 0 keeps copies of the values */
        return 1;
    General_Table_String_AddNode(table, "alpha", &port, sizeof port);
    if (General_Table_String_GetNode(table, "alpha", &value, NULL) == 0)
        printf("alpha has %d\n", *(int*)value);
    printf("again: %d\n", General_Table_String_AddNode(table, "alpha", &port, sizeof port)); /* EEXIST */
    General_Table_Destroy(table);
    /* [table end] */
    return 0;
}

int main(void)
{
    return Nodes() || Table();
}
