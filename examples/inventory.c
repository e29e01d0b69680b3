/* The agent's inventory of its host: taken, compared with the last one, and reported to a server. */
#include "inventory.h"

#include <ZKQ_general.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#define HERE __FILE__, __LINE__
#define COMMON_NAME "2.5.4.3"
#define REPORT_TIMEOUT 10 /* seconds */
#define MAX_ANSWER 1024   /* bytes */
#define HEADER 4          /* bytes of a packet that tell its length */
#define BUCKETS 64        /* of the tables of interfaces */
#define MORE 8            /* interfaces beyond those that were counted */
enum { ITEM_HOST = 1, ITEM_LENGTH, ITEM_JSON, ITEM_INTERFACES };

/* How the records are encoded: the same fields for bytes and for JSON. */

static const GENERAL_MSG_TEMPLATE interface_fields[] = {
    ZKQ_MSG_STRING(INTERFACE, name, "name", ""),
    ZKQ_MSG_STRING(INTERFACE, mac, "mac", ""),
    ZKQ_MSG_STRING(INTERFACE, ipv4, "ipv4", ""),
    ZKQ_MSG_STRING(INTERFACE, ipv6, "ipv6", ""),
};
ZKQ_MSG_RECORD_ITEM(INTERFACE_it, interface_fields)

static const GENERAL_MSG_TEMPLATE certificate_fields[] = {
    ZKQ_MSG_STRINGPTR(CERTIFICATE, file, "file", ""),
    ZKQ_MSG_STRINGPTR(CERTIFICATE, subject, "subject", ""),
    ZKQ_MSG_STRINGPTR(CERTIFICATE, until, "until", ""),
};
ZKQ_MSG_RECORD_ITEM(CERTIFICATE_it, certificate_fields)

static const GENERAL_MSG_TEMPLATE byte_fields[] = {
    ZKQ_MSG_STRING(INVENTORY, host, "", ""),
    ZKQ_MSG_STRINGPTR(INVENTORY, system, "", ""),
    ZKQ_MSG_INT64(INVENTORY, uptime, "", ""),
    ZKQ_MSG_INT32(INVENTORY, echo, "", ""),
    ZKQ_MSG_RECORDSPTR(INVENTORY, interfaces, interface_count, INTERFACE_it, "", ""),
    ZKQ_MSG_RECORDSPTR(INVENTORY, certificates, certificate_count, CERTIFICATE_it, "", ""),
};
ZKQ_MSG_RECORD_ITEM(INVENTORY_it, byte_fields)

static const GENERAL_MSG_TEMPLATE json_fields[] = {
    /* JSON carries no 64-bit numbers */
    ZKQ_MSG_STRING(INVENTORY, host, "host", ""),
    ZKQ_MSG_STRINGPTR(INVENTORY, system, "system", ""),
    ZKQ_MSG_INT32(INVENTORY, echo, "echo", ""),
    ZKQ_MSG_RECORDSPTR(INVENTORY, interfaces, interface_count, INTERFACE_it, "", "interfaces"),
    ZKQ_MSG_RECORDSPTR(INVENTORY, certificates, certificate_count, CERTIFICATE_it, "", "certificates"),
};
ZKQ_MSG_RECORD_ITEM(JSON_INVENTORY_it, json_fields)

static int Fail(void* log, const char* what)
{
    ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_ERROR, HERE, "%s: %s", what, ZKQGeneral_GetGeneralErrorInfo());
    return 0;
}

/* Interfaces */

/* The Ethernet cards by their names. The table keeps copies. */
static void* TableOfCards(void)
{
    void* table = NULL;
    int count = 0;
    NETCARDINFO* cards;
    if (!Network_GetNetCardInfo(NULL, &count) || General_Table_Create(&table, BUCKETS, 1) != 0)
        return NULL;
    cards = calloc((size_t)count + MORE, sizeof *cards);
    if (cards != NULL && Network_GetNetCardInfo(cards, &count))
        for (int i = 0; i < count; ++i)
            General_Table_String_AddNode(table, cards[i].Name, &cards[i], sizeof cards[i]);
    free(cards);
    return table;
}

static int MakeRoom(INVENTORY* inventory, int room)
{
    INTERFACE* grown = realloc(inventory->interfaces, (size_t)room * sizeof *grown);
    if (grown != NULL)
        inventory->interfaces = grown;
    return grown != NULL;
}

static void AddInterface(INVENTORY* inventory, const char* name, void* cards)
{
    void* card = NULL;
    INTERFACE* interface = &inventory->interfaces[inventory->interface_count++];
    memset(interface, 0, sizeof *interface);
    strncpy_WQX(interface->name, name, sizeof interface->name);
    if (General_Table_String_GetNode(cards, name, &card, NULL) == 0)
        strncpy_WQX(interface->mac, ((NETCARDINFO*)card)->MAC, sizeof interface->mac);
    if (!Network_GetIPAddress(name, AF_INET, interface->ipv4, 0))
        interface->ipv4[0] = '\0';
    if (!Network_GetIPAddress_V6_if(name, interface->ipv6))
        interface->ipv6[0] = '\0';
}

static int ListInterfaces(void* log, INVENTORY* inventory)
{
    char name[16];
    int room = 0, done = 1;
    void* cards = TableOfCards();
    if (cards == NULL)
        return Fail(log, "cannot list the network cards");
    for (int i = 0; done && Network_GetDevName(i, name); ++i) {
        if (i == room)
            done = MakeRoom(inventory, room = 2 * room + MORE);
        if (done)
            AddInterface(inventory, name, cards);
    }
    General_Table_Destroy(cards);
    return done;
}

/* Certificates */

/* A copy of a GBK text in UTF-8. */
static char* Utf8(const char* text)
{
    const int length = (int)strlen(text);
    int room = 3 * length;
    char* copy = calloc((size_t)room + 1, 1);
    if (copy != NULL && !ZKQGeneral_AnsiToUTF8(text, copy, length, &room))
        copy[0] = '\0';
    return copy;
}

/* The common name of the subject, or an empty text. */
static char* CommonName(void* cert)
{
    char oid[ZKQ_CERT_OID_SIZE], value[1024];
    int count = 0;
    ZKQGeneral_CertInfo_GetDNCount(cert, 1, &count);
    for (int i = 0; i < count; ++i) {
        int size = sizeof value;
        if (ZKQGeneral_CertInfo_GetDN(cert, 1, i, oid, value, &size) == 0 && strcmp(oid, COMMON_NAME) == 0)
            return Utf8(value);
    }
    return Utf8("");
}

static int AddCertificate(void* log, INVENTORY* inventory, const char* file)
{
    void* cert;
    char until[32] = "";
    int size = sizeof until;
    CERTIFICATE* certificate = &inventory->certificates[inventory->certificate_count];
    if (ZKQGeneral_OpenCert(file, 0, &cert) != 0) {
        ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_ERROR, HERE, "not a certificate: %s", file);
        return 0;
    }
    ZKQGeneral_CertInfo_GetInfo(cert, ZKQ_CERT_NOT_AFTER, until, &size);
    certificate->file = strdup(file);
    certificate->subject = CommonName(cert);
    certificate->until = strdup(until);
    ++inventory->certificate_count;
    ZKQGeneral_CloseCert(cert);
    ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_INFO, HERE, "certificate of %s, until %s", certificate->subject,
                                       until);
    return certificate->file != NULL && certificate->subject != NULL && certificate->until != NULL;
}

static int ListCertificates(void* log, const char* files, INVENTORY* inventory)
{
    int count = 0, done = 1;
    char** list = ZKQGeneral_ParseLineInfo(files, " ", &count);
    if (list == NULL)
        return Fail(log, "cannot split the list of certificates");
    inventory->certificates = calloc((size_t)count + 1, sizeof *inventory->certificates);
    done = inventory->certificates != NULL;
    for (int i = 0; done && i < count; ++i)
        done = AddCertificate(log, inventory, list[i]);
    ZKQGeneral_FreeParseLineInfoBuffer(list, count);
    return done;
}

/* The host as a whole */

/* Runs uname through the shell; what it prints goes through a file. */
static int AskSystem(void* log, const char* work, INVENTORY* inventory)
{
    char arguments[400];
    unsigned char* text = NULL;
    int size = 0;
    DWORD status = 1;
    snprintf(arguments, sizeof arguments, "-srm > '%s'", work);
    if (strchr(work, '\'') != NULL) { /* the shell would take the rest for a command */
        ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_ERROR, HERE, "no name for a shell: %s", work);
        return 0;
    }
    if (!ZKQGeneral_WinExecFileAndGetRetCodeEx("uname", arguments, 1, &status, REPORT_TIMEOUT) || status != 0 ||
        !ZKQGeneral_GetFileContent(work, &text, &size))
        return Fail(log, "cannot ask for the system");
    inventory->system = calloc((size_t)size + 1, 1);
    if (inventory->system != NULL) {
        memcpy(inventory->system, text, (size_t)size);
        inventory->system[strcspn(inventory->system, "\n")] = '\0';
    }
    ZKQGeneral_FreeMallocBuffer(text);
    unlink(work);
    return inventory->system != NULL;
}

static int Echo(void)
{
    unsigned long milliseconds = 0;
    return Network_PingHost("127.0.0.1", 32, 1, &milliseconds, NULL) ? (int)milliseconds : -1;
}

int TakeInventory(void* log, const char* certificates, const char* work, INVENTORY* inventory)
{
    memset(inventory, 0, sizeof *inventory);
    gethostname(inventory->host, sizeof inventory->host - 1);
    inventory->uptime = ZKQGeneral_GetTickCount();
    inventory->echo = Echo();
    if (!AskSystem(log, work, inventory) || !ListInterfaces(log, inventory) ||
        !ListCertificates(log, certificates, inventory))
        return 0;
    ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_INFO, HERE, "%s, %s, %d interfaces, %d certificates",
                                       inventory->host, inventory->system, inventory->interface_count,
                                       inventory->certificate_count);
    return 1;
}

void FreeInventory(INVENTORY* inventory)
{
    for (int i = 0; i < inventory->certificate_count; ++i) {
        free(inventory->certificates[i].file);
        free(inventory->certificates[i].subject);
        free(inventory->certificates[i].until);
    }
    free(inventory->certificates);
    free(inventory->interfaces);
    free(inventory->system);
}

/* Comparing */

static void CompareInterfaces(void* log, const INVENTORY* old, const INVENTORY* now)
{
    void *table, *found;
    if (General_Table_Create(&table, BUCKETS, 0) != 0) /* which keeps pointers */
        return;
    for (int i = 0; i < old->interface_count; ++i)
        General_Table_String_AddNode(table, old->interfaces[i].name, &old->interfaces[i], sizeof old->interfaces[i]);
    for (int i = 0; i < now->interface_count; ++i) {
        const INTERFACE* interface = &now->interfaces[i];
        if (General_Table_String_GetNode(table, interface->name, &found, NULL) != 0)
            ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_WARN, HERE, "new interface: %s", interface->name);
        else if (strcmp(((INTERFACE*)found)->ipv4, interface->ipv4) != 0)
            ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_WARN, HERE, "address of %s: %s, was %s", interface->name,
                                               interface->ipv4, ((INTERFACE*)found)->ipv4);
    }
    General_Table_Destroy(table);
}

static void CompareWith(void* log, const INVENTORY* now, const char* file)
{
    unsigned char* bytes = NULL;
    int size = 0;
    INVENTORY old;
    if (!ZKQGeneral_IsFileExist(file) || !ZKQGeneral_GetFileContent(file, &bytes, &size))
        return;
    if (ZKQGeneral_MSG_d2i(&old, sizeof old, bytes, size, INVENTORY_it(), ZKQ_MSG_DER) == 0) {
        CompareInterfaces(log, &old, now);
        ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_INFO, HERE, "last inventory: %lld s ago by the uptime",
                                           (long long)(now->uptime - old.uptime) / 1000);
        ZKQGeneral_MSG_free(&old, INVENTORY_it(), 0, ZKQ_MSG_DER);
    } else {
        ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_ERROR, HERE, "not an inventory: %s", file);
    }
    ZKQGeneral_FreeMallocBuffer(bytes); /* only now: texts of the old one were in it */
}

int CompareAndSave(void* log, const INVENTORY* inventory, const char* file)
{
    unsigned char* bytes = NULL;
    CompareWith(log, inventory, file);
    const int length = ZKQGeneral_MSG_i2d(inventory, &bytes, 0, INVENTORY_it(), ZKQ_MSG_DER);
    if (length < 0)
        return Fail(log, "cannot encode the inventory");
    const int done = ZKQGeneral_SetFileContent(file, bytes, length) || Fail(log, "cannot save the inventory");
    ZKQGeneral_FreeMallocBuffer(bytes);
    return done;
}

/* Reporting */

/* The packet: the host's name, the length of the JSON text, and the text compressed. */
static void* Packed(void* log, const INVENTORY* inventory)
{
    unsigned char *json = NULL, *compressed = NULL;
    long length = 0;
    void* packet = NULL;
    if (ZKQGeneral_MSG_i2d(inventory, &json, 0, JSON_INVENTORY_it(), ZKQ_MSG_JSON) != 0) {
        Fail(log, "cannot write the inventory");
        return NULL;
    }
    const int plain = (int)strlen((char*)json);
    if (ZKQGeneral_Zlib_CompressBufferEx(json, plain, &compressed, &length) != 0 ||
        !ZKQGeneral_CreateMsgPacket(0, &packet) ||
        !ZKQGeneral_MsgPacket_OID_AddString(packet, ITEM_HOST, inventory->host) ||
        !ZKQGeneral_MsgPacket_OID_AddInt(packet, ITEM_LENGTH, plain) ||
        !ZKQGeneral_MsgPacket_OID_AddBuffer(packet, ITEM_JSON, compressed, (int)length)) {
        Fail(log, "cannot pack the inventory");
        ZKQGeneral_DestroyMsgPacket(packet);
        packet = NULL;
    }
    ZKQGeneral_FreeMallocBuffer(compressed);
    ZKQGeneral_FreeMallocBuffer(json);
    return packet;
}

/* Receives a packet of at most MAX_ANSWER bytes; -1, or the integer in it that tells the number of interfaces. */
static int Answer(SOCKET_ZKQ* server)
{
    unsigned char bytes[MAX_ANSWER];
    void* packet = NULL;
    int count = -1;
    if (!S_ReceiveEx(server, (char*)bytes, HEADER, REPORT_TIMEOUT))
        return -1;
    const unsigned length = (unsigned)bytes[0] << 24 | (unsigned)bytes[1] << 16 | (unsigned)bytes[2] << 8 | bytes[3];
    if (length < HEADER || length > sizeof bytes ||
        !S_ReceiveEx(server, (char*)bytes + HEADER, (long)length - HEADER, REPORT_TIMEOUT) ||
        !ZKQGeneral_InitMsgPacket(bytes, (int)length, 0, &packet))
        return -1;
    if (!ZKQGeneral_MsgPacket_OID_GetInt(packet, ITEM_INTERFACES, &count))
        count = -1;
    ZKQGeneral_DestroyMsgPacket(packet);
    return count;
}

int Report(void* log, const INVENTORY* inventory, const char* reporter)
{
    SOCKET_ZKQ server;
    unsigned char* bytes = NULL;
    int size = 0, count = -1;
    void* packet = Packed(log, inventory);
    if (packet == NULL)
        return 0;
    if (!S_Open(&server, AF_INET, 0, 0)) {
        ZKQGeneral_DestroyMsgPacket(packet);
        return Fail(log, "cannot open a socket");
    }
    char host[256];
    strncpy_WQX(host, reporter, sizeof host);
    char* port = strrchr(host, ':');
    if (port != NULL)
        *port++ = '\0';
    if (S_Client(&server, host, port == NULL ? 0 : atoi(port), REPORT_TIMEOUT) &&
        ZKQGeneral_MsgPacket_GetBuffer(packet, &bytes, &size) &&
        S_SendEx(&server, (const char*)bytes, size, REPORT_TIMEOUT))
        count = Answer(&server);
    S_Close(&server, 0);
    ZKQGeneral_DestroyMsgPacket(packet);
    if (count != inventory->interface_count)
        return Fail(log, "the reporter has not confirmed the inventory");
    ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_INFO, HERE, "%d interfaces reported in %d bytes", count, size);
    return 1;
}
