/* A record becomes bytes and a record again; one with a list is released. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <string.h>

/* [point] */
typedef struct POINT {
    int x;
    int y;
    char label[16];
} POINT;

static const GENERAL_MSG_TEMPLATE point_fields[] = {
    ZKQ_MSG_INT32(POINT, x, "x", "/point"),
    ZKQ_MSG_INT32(POINT, y, "y", "/point"),
    ZKQ_MSG_STRING(POINT, label, "label", "/point@"),
};
ZKQ_MSG_RECORD_ITEM(POINT_it, point_fields)
/* [point end] */

/* A list of items, each of which points to a record. */
typedef struct ITEM {
    POINT* place;
} ITEM;

static const GENERAL_MSG_TEMPLATE item_fields[] = {ZKQ_MSG_RECORDPTR(ITEM, place, POINT_it, "", "")};
ZKQ_MSG_RECORD_ITEM(ITEM_it, item_fields)

typedef struct LIST {
    ITEM* items;
    int count;
} LIST;

static const GENERAL_MSG_TEMPLATE list_fields[] = {ZKQ_MSG_RECORDSPTR(LIST, items, count, ITEM_it, "", "")};
ZKQ_MSG_RECORD_ITEM(LIST_it, list_fields)

static int ThereAndBack(void)
{
    /* [bytes] */
    POINT point = {3, -4, "here"}, copy;
    unsigned char* bytes = NULL;
    int length = ZKQGeneral_MSG_i2d(&point, &bytes, 0, POINT_it(), ZKQ_MSG_DER);
    if (length < 0)
        return 1;
    if (ZKQGeneral_MSG_d2i(&copy, sizeof copy, bytes, length, POINT_it(), ZKQ_MSG_DER) == 0) {
        printf("%d bytes: %s is at %d, %d\n", length, copy.label, copy.x, copy.y);
        ZKQGeneral_MSG_free(&copy, POINT_it(), 0, ZKQ_MSG_DER);
    }
    ZKQGeneral_FreeMallocBuffer(bytes);
    /* [bytes end] */
    return 0;
}

static int OwnBuffer(void)
{
    const POINT point = {3, -4, "here"};
    /* [own] */
    int size = ZKQGeneral_MSG_i2d(&point, NULL, 0, POINT_it(), ZKQ_MSG_DER); /* asks for the length */

    unsigned char buffer[256], *end = buffer; /* into a buffer of one's own; end is moved behind what was written */
    size = ZKQGeneral_MSG_i2d(&point, &end, sizeof buffer - 2, POINT_it(), ZKQ_MSG_DER); /* two headers may be long */
    /* [own end] */
    printf("%d bytes, %d written\n", size, (int)(end - buffer));
    return size < 0;
}

static int Release(void)
{
    POINT places[2] = {{1, 2, "a"}, {3, 4, "b"}};
    ITEM items[2] = {{&places[0]}, {&places[1]}};
    LIST list = {items, 2};
    unsigned char* bytes = NULL;
    int length = ZKQGeneral_MSG_i2d(&list, &bytes, 0, LIST_it(), ZKQ_MSG_DER);
    if (length < 0 || ZKQGeneral_MSG_d2i(&list, sizeof list, bytes, length, LIST_it(), ZKQ_MSG_DER) != 0) {
        ZKQGeneral_FreeMallocBuffer(bytes);
        return 1;
    }
    printf("%d items, the last is %s\n", list.count, list.items[1].place->label);
    /* [release] */
    for (int i = 1; i < list.count; ++i)
        ZKQGeneral_MSG_free(&list.items[i], ITEM_it(), 0, ZKQ_MSG_DER);
    ZKQGeneral_MSG_free(&list, LIST_it(), 0, ZKQ_MSG_DER);
    /* [release end] */
    ZKQGeneral_FreeMallocBuffer(bytes);
    return 0;
}

int main(void)
{
    return ThereAndBack() || OwnBuffer() || Release();
}
