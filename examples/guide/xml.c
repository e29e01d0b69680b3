/* A table from texts to values. */
#include <ZKQ_general.h>
#include <stdio.h>

int main(void)
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
