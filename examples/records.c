/* A record with a field of every kind: encoded as bytes, read back and printed; then what of it JSON and XML carry. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <string.h>

typedef struct PORT {
    int number;
    char protocol[8];
} PORT;

typedef struct SERVER {
    int id;                   /*  1 INT32 */
    int64_t started;          /*  2 INT64 */
    void* cookie;             /*  3 PTR: the value of the pointer itself */
    char name[16];            /*  4 STRING */
    char* owner;              /*  5 STRINGPTR */
    unsigned char address[4]; /*  6 BYTEARRAY */
    int address_size;
    unsigned char* key; /*  7 BYTEARRAYPTR */
    int key_size;
    int limits[3]; /*  8 INTARRAY */
    int limit_count;
    int* samples; /*  9 INTARRAYPTR */
    int sample_count;
    PORT admin;    /* 10 a record inside */
    PORT* backup;  /* 11 a pointer to a record */
    PORT ports[4]; /* 12 records inside */
    int port_count;
    struct SERVER* peers; /* 13 a pointer to records, here of the same type */
    int peer_count;
} SERVER;

static const GENERAL_MSG_TEMPLATE port_fields[] = {
    ZKQ_MSG_INT32(PORT, number, "number", ""),
    ZKQ_MSG_STRING(PORT, protocol, "protocol", "@"), /* in XML an attribute */
};
ZKQ_MSG_RECORD_ITEM(PORT_it, port_fields)

ZKQ_MSG_DECLARE_ITEM(SERVER_it)
static const GENERAL_MSG_TEMPLATE server_fields[] = {
    ZKQ_MSG_INT32(SERVER, id, "id", ""),
    ZKQ_MSG_INT64(SERVER, started, "started", ""),
    ZKQ_MSG_PTR(SERVER, cookie, "cookie", ""),
    ZKQ_MSG_STRING(SERVER, name, "name", ""),
    ZKQ_MSG_STRINGPTR(SERVER, owner, "owner", ""),
    ZKQ_MSG_BYTEARRAY(SERVER, address, address_size, "address", ""),
    ZKQ_MSG_BYTEARRAYPTR(SERVER, key, key_size, "key", ""),
    ZKQ_MSG_INTARRAY(SERVER, limits, limit_count, "limits", ""),
    ZKQ_MSG_INTARRAYPTR(SERVER, samples, sample_count, "samples", ""),
    ZKQ_MSG_RECORD(SERVER, admin, PORT_it, "", ""),
    ZKQ_MSG_RECORDPTR(SERVER, backup, PORT_it, "", ""),
    ZKQ_MSG_RECORDS(SERVER, ports, port_count, PORT_it, "", ""),
    ZKQ_MSG_RECORDSPTR(SERVER, peers, peer_count, SERVER_it, "", ""),
};
ZKQ_MSG_RECORD_ITEM(SERVER_it, server_fields)

/* The same record can have other templates: these say where its fields are in a JSON and in an XML document. */
typedef struct LIST {
    char title[16];
    int* levels; /* 14 a pointer to values, for JSON */
    int level_count;
    PORT* ports;
    int port_count;
} LIST;

static const GENERAL_MSG_TEMPLATE json_fields[] = {
    ZKQ_MSG_STRING(LIST, title, "title", "head"),
    ZKQ_MSG_VALUESPTR(LIST, levels, level_count, ZKQGeneral_INT32_it, "", "head/levels"),
    ZKQ_MSG_RECORDSPTR(LIST, ports, port_count, PORT_it, "", "ports"),
};
ZKQ_MSG_RECORD_ITEM(JSON_LIST_it, json_fields)

static const GENERAL_MSG_TEMPLATE xml_fields[] = {
    ZKQ_MSG_STRING(LIST, title, "title", "/list/head"),
    ZKQ_MSG_RECORDSPTR(LIST, ports, port_count, PORT_it, "", "/list/ports/port/count@"),
};
ZKQ_MSG_RECORD_ITEM(XML_LIST_it, xml_fields)

static void PrintServer(const SERVER* server, const char* indent)
{
    printf("%s%d %s of %s, since %lld\n", indent, server->id, server->name,
           server->owner == NULL ? "nobody" : server->owner, (long long)server->started);
    printf("%s  %d bytes of address, %d of key, %d limits, %d samples\n", indent, server->address_size,
           server->key_size, server->limit_count, server->sample_count);
    printf("%s  admin %d/%s, backup %s, %d ports, %d peers\n", indent, server->admin.number, server->admin.protocol,
           server->backup == NULL ? "none" : server->backup->protocol, server->port_count, server->peer_count);
}

static int Bytes(void)
{
    unsigned char key[] = {0xAA, 0xBB, 0xCC};
    int samples[] = {10, -20};
    char owner[] = "root";
    PORT backup = {8443, "https"};
    SERVER peer = {.id = 2, .name = "beta"};
    SERVER server = {1, 1700000000, &peer, "alpha", owner, {10, 0, 0, 1}, 4,       key,
                     3, {100, 200}, 2,     samples, 2,     {22, "ssh"},   &backup, {{80, "http"}, {443, "https"}},
                     2, &peer,      1};
    unsigned char* bytes = NULL;
    SERVER copy;
    int length = ZKQGeneral_MSG_i2d(&server, &bytes, 0, SERVER_it(), ZKQ_MSG_DER);

    if (length < 0)
        return 1;
    printf("%d bytes, beginning with %02x %02x %02x\n", length, bytes[0], bytes[1], bytes[2]);
    if (ZKQGeneral_MSG_d2i(&copy, sizeof copy, bytes, length, SERVER_it(), ZKQ_MSG_DER) == 0) {
        PrintServer(&copy, "");
        PrintServer(&copy.peers[0], "  ");
        ZKQGeneral_MSG_free(&copy, SERVER_it(), 0, ZKQ_MSG_DER);
    }
    ZKQGeneral_FreeMallocBuffer(bytes); /* only now: texts and arrays of the copy were in it */
    return 0;
}

static int Text(const LIST* list, const GENERAL_MSG_ITEM* it, int mode)
{
    unsigned char* text = NULL;
    LIST copy;

    if (ZKQGeneral_MSG_i2d(list, &text, 0, it, mode) != 0)
        return 1;
    printf("%s\n", (char*)text);
    if (ZKQGeneral_MSG_d2i(&copy, sizeof copy, text, 0, it, mode) == 0) {
        printf("%s: %d ports, the last is %s\n", copy.title, copy.port_count, copy.ports[copy.port_count - 1].protocol);
        ZKQGeneral_MSG_free(&copy, it, 0, mode);
    }
    ZKQGeneral_FreeMallocBuffer(text);
    return 0;
}

int main(void)
{
    PORT ports[] = {{80, "http"}, {443, "https"}};
    int levels[] = {3, 1, 2};
    LIST list = {"open ports", levels, 3, ports, 2};

    return Bytes() | Text(&list, JSON_LIST_it(), ZKQ_MSG_JSON) | Text(&list, XML_LIST_it(), ZKQ_MSG_XML);
}
