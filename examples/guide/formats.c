/* What the library writes, byte by byte: the examples of the page on formats. */
#include <ZKQ_general.h>
#include <ctype.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static void Heading(const char* name)
{
    printf("== %s\n", name);
}

static void Dump(const unsigned char* bytes, int size)
{
    for (int offset = 0; offset < size; offset += 16) {
        printf("%04x ", (unsigned)offset);
        for (int i = offset; i < offset + 16 && i < size; ++i)
            printf(" %02x", bytes[i]);
        puts("");
    }
}

static void ShowFile(const char* name)
{
    unsigned char* content;
    if (ZKQGeneral_GetFileContent(name, &content, NULL)) {
        fputs((char*)content, stdout);
        ZKQGeneral_FreeMallocBuffer(content);
    }
}

static void Profile(void)
{
    static const char before[] = "port = 80\n; comment\n[Server] old\nName=a\nname=b\n\n[Other]\nFlag\n";
    Heading("profile");
    ZKQGeneral_SetFileContent("server.ini", (const unsigned char*)before, sizeof before - 1);
    ZKQGeneral_WritePrivateProfileString("server", "NAME", "main server", "server.ini"); /* replaces the first match */
    ZKQGeneral_WritePrivateProfileString("Server", "Port", "8080", "server.ini");        /* ends the section */
    ZKQGeneral_WritePrivateProfileString("New", "Key", "value", "server.ini");           /* a new section */
    ShowFile("server.ini");
}

static void Packet(void)
{
    unsigned char buffer[64];
    MSGDATA packet;
    Heading("packet");
    if (!ZKQGeneral_CreateMsgPacket2(buffer, sizeof buffer, &packet))
        return;
    ZKQGeneral_MsgPacket_OID_AddInt(&packet, 8, -2);
    ZKQGeneral_MsgPacket_OID_AddString(&packet, 7, "ab");
    Dump(packet.buffer, packet.size);
}

static unsigned Number(const unsigned char* bytes)
{
    return bytes[0] | (unsigned)bytes[1] << 8 | (unsigned)bytes[2] << 16 | (unsigned)bytes[3] << 24;
}

static void Cabinet(void)
{
    static const unsigned char text[] = "127.0.0.1 localhost\n";
    const struct timespec times[2] = {{1234567890, 0}, {1234567890, 0}};
    unsigned char *cabinet, *directory;
    int size;
    ZKQGeneral_SetFileContent("hosts", text, sizeof text - 1);
    if (chmod("hosts", 0644) != 0 || utimensat(AT_FDCWD, "hosts", times, 0) != 0 ||
        !ZKQGeneral_MakeMyCabFile("net.cab", "hosts\0", 1) || !ZKQGeneral_GetFileContent("net.cab", &cabinet, &size))
        return;
    Heading("cabinet");
    Dump(cabinet, 32);
    Heading("directory");
    const unsigned length = Number(cabinet + 24);
    directory = malloc(length + 1);
    if (directory != NULL && ZKQGeneral_Zlib_UnCompressBuffer(cabinet + Number(cabinet + 8), (long)Number(cabinet + 16),
                                                              directory, (long)length))
        printf("%.*s", (int)length, (char*)directory);
    free(directory);
    ZKQGeneral_FreeMallocBuffer(cabinet);
}

typedef struct PORT {
    int number;
    char name[8];
} PORT;

typedef struct HOST {
    char* owner;
    unsigned char key[200];
    int keySize;
    PORT* ports;
    int portCount;
} HOST;

static const GENERAL_MSG_TEMPLATE port_fields[] = {
    ZKQ_MSG_INT32(PORT, number, "number", ""),
    ZKQ_MSG_STRING(PORT, name, "name", ""),
};
ZKQ_MSG_RECORD_ITEM(PORT_it, port_fields)

static const GENERAL_MSG_TEMPLATE host_fields[] = {
    ZKQ_MSG_STRINGPTR(HOST, owner, "owner", ""),
    ZKQ_MSG_BYTEARRAY(HOST, key, keySize, "key", ""),
    ZKQ_MSG_RECORDSPTR(HOST, ports, portCount, PORT_it, "", ""),
};
ZKQ_MSG_RECORD_ITEM(HOST_it, host_fields)

static void Message(const char* name, int keySize, int shown)
{
    PORT ports[] = {{22, "ssh"}, {80, "http"}};
    HOST host = {.keySize = keySize, .ports = ports, .portCount = 2};
    unsigned char* bytes = NULL;
    const int length = ZKQGeneral_MSG_i2d(&host, &bytes, 0, HOST_it(), ZKQ_MSG_DER);
    Heading(name);
    if (length >= 0)
        Dump(bytes, shown < length ? shown : length);
    ZKQGeneral_FreeMallocBuffer(bytes);
}

/* Shows a file of records with the digits of the times as 0. */
static void ShowMasked(const char* name)
{
    unsigned char* content;
    if (!ZKQGeneral_GetFileContent(name, &content, NULL))
        return;
    int inside = 0;
    for (const char* c = (char*)content; *c != '\0'; ++c) {
        if (strncmp(c, "[20", 3) == 0)
            inside = 1;
        if (*c == ']')
            inside = 0;
        putchar(inside && isdigit((unsigned char)*c) ? '0' : *c);
    }
    ZKQGeneral_FreeMallocBuffer(content);
}

static void Log(void)
{
    APPLOGINFO info = {.Version = 3,
                       .ProjectName = "server",
                       .TempPath = ".",
                       .RecordTime = 1,
                       .SubName = "main",
                       .bAlwaysLog = ZKQ_LOG_ALL};
    const unsigned char bytes[] = "GET /index.html HTTP/1.1";
    void* log;
    if (!ZKQGeneral_IsNeedLogFile(&info, &log))
        return;
    ZKQGeneral_RecordLogInfoEx(log, ZKQ_LOG_ERROR, "/src/main.c", 120, "cannot open");
    ZKQGeneral_RecordLogInfo(log, "main.c", 121, "at all levels");
    ZKQGeneral_RecordSystemErrorEx(log, ZKQ_LOG_WARN, "main.c", 122, 2);
    ZKQGeneral_RecordAppLogToFileEx2_V(log, ZKQ_LOG_INFO, "main.c", 123, "%d of %d", 9, 10);
    ZKQGeneral_RecordBinaryLogInfoEx2(log, ZKQ_LOG_INFO, bytes, sizeof bytes - 1, "main.c", 125, "request");
    ZKQGeneral_FreeLogCtx(log);
    Heading("log");
    ShowMasked("server.log");
}

static void Switches(void)
{
    Heading("switches");
    ZKQGeneral_WritePrivateProfileString("applog", "server", "12", "tamor.ini");
    ZKQGeneral_WritePrivateProfileString("applog", "allapp", "8", "tamor.ini");
    ZKQGeneral_WritePrivateProfileString("applog", "allapp2", "1", "tamor.ini");
    ShowFile("tamor.ini");
}

int main(void)
{
    Profile();
    Packet();
    Cabinet();
    Message("message", 3, 1000);
    Message("long message", 200, 16);
    Log();
    Switches();
    return 0;
}
