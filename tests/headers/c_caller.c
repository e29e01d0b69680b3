/* A caller in C: one call of every family, with its result. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <string.h>

static int failures;

static void Check(const char* family, int good)
{
    if (!good) {
        printf("%s has failed: %s\n", family, ZKQGeneral_GetGeneralErrorInfo());
        ++failures;
    }
}

static void CheckErrorAndFile(void)
{
    BOOL directory = FALSE;
    Check("error", strcmp(ZKQGeneral_GetGeneralErrorInfo(), "Function call successed!") == 0);
    Check("file", ZKQGeneral_IsDirectoryName("/", &directory) == TRUE && directory == TRUE);
    Check("file", ZKQGeneral_IsFileExist("/no such file anywhere") == FALSE);
    Check("error", strcmp(ZKQGeneral_GetGeneralErrorInfo(), "Function call successed!") != 0);
}

static void CheckSystem(void)
{
    char path[300];
    Check("system", ZKQGeneral_GetTempPath(sizeof path, path) == 5 && strcmp(path, "/tmp/") == 0);
    Check("system", ZKQGeneral_GetModuleFileName(NULL, path, sizeof path) > 0 && strstr(path, "c_caller") != NULL);
}

static void CheckProfile(void)
{
    char value[10];
    char* text = NULL;
    int length = 0;
    Check("inifile", ZKQGeneral_WritePrivateProfileString_Mem("", "A", "k", "v", &text, &length) == TRUE);
    Check("inifile", length == 11 && strcmp(text, "[A]\nk = v\n") == 0);
    Check("inifile", ZKQGeneral_GetPrivateProfileString_Mem("A", "k", "", value, sizeof value, text) == 1);
    ZKQGeneral_FreeMallocBuffer(text);
}

static void CheckString(void)
{
    int count = 0;
    unsigned char bytes[3] = {1, 2, 3};
    char** tokens = ZKQGeneral_ParseLineInfo("a b", " ", &count);
    void* memory = ZKQGeneral_MEM_malloc(0);
    Check("string", tokens != NULL && count == 2);
    ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
    Check("string", ZKQGeneral_MEM_Write(memory, bytes, 3) == 3 && ZKQGeneral_MEM_Read(memory, bytes, 5) == 3);
    ZKQGeneral_MEM_free(memory);
}

static void CheckPacket(void)
{
    unsigned char bytes[32];
    MSGDATA packet;
    void* copy = NULL;
    int value = 0;
    Check("msgpacket", ZKQGeneral_CreateMsgPacket2(bytes, sizeof bytes, &packet) == TRUE);
    Check("msgpacket", ZKQGeneral_MsgPacket_OID_AddInt(&packet, 7, -3) == TRUE && packet.size == 20);
    Check("msgpacket", ZKQGeneral_InitMsgPacket(bytes, packet.size, 0, &copy) == TRUE);
    Check("msgpacket", ZKQGeneral_MsgPacket_OID_GetInt(copy, 7, &value) == TRUE && value == -3);
    ZKQGeneral_DestroyMsgPacket(copy);
}

static void CheckCharset(void)
{
    char text[8];
    int length = sizeof text;
    Check("iconv", ZKQGeneral_AnsiToUTF8("\xD6\xD0", text, 2, &length) == TRUE);
    Check("iconv", length == 3 && memcmp(text, "\xE4\xB8\xAD", 3) == 0);
}

static void CheckLog(void)
{
    void* context = NULL;
    APPLOGINFO info = {0};
    info.ProjectName = NULL;
    Check("log", ZKQGeneral_IsNeedLogFile(&info, &context) == FALSE && context == NULL);
    ZKQGeneral_FreeLogCtx(context);
}

static void CheckZlib(void)
{
    const unsigned char* text = (const unsigned char*)"text text text";
    unsigned char* stream = NULL;
    unsigned char plain[14];
    long length = 0;
    Check("zlib", ZKQGeneral_Zlib_CompressBuffer(NULL, 0, NULL, &length) == TRUE && length == 33280);
    Check("zlib", ZKQGeneral_Zlib_CompressBufferEx(text, 14, &stream, &length) == 0 && length > 8);
    Check("zlib", ZKQGeneral_Zlib_UnCompressBuffer(stream, length, plain, 14) == TRUE && memcmp(plain, text, 14) == 0);
    ZKQGeneral_FreeMallocBuffer(stream);
}

static void* Progress(void* percentage)
{
    return percentage;
}

static void CheckMyCab(void)
{
    char name[300] = "/tmp";
    Check("mycab", ZKQGeneral_MakeMyCabFile_P("/no such directory/x.cab", "/etc/passwd\0", 1, Progress) == FALSE);
    Check("mycab", ZKQGeneral_ExtractMyCabOneFile("/no such cabinet", name, 0) == FALSE);
    Check("mycab", strcmp(name, "/tmp") == 0);
}

typedef struct POINT {
    int x;
    int64_t wide;
    char label[8];
    int ids[2];
    int id_count;
    struct POINT* next;
} POINT;

ZKQ_MSG_DECLARE_ITEM(POINT_it)
static const GENERAL_MSG_TEMPLATE point_fields[] = {
    ZKQ_MSG_INT32(POINT, x, "x", ""),
    ZKQ_MSG_INT64(POINT, wide, "wide", ""),
    ZKQ_MSG_STRING(POINT, label, "label", ""),
    ZKQ_MSG_INTARRAY(POINT, ids, id_count, "ids", ""),
    ZKQ_MSG_RECORDPTR(POINT, next, POINT_it, "next", ""),
};
ZKQ_MSG_RECORD_ITEM(POINT_it, point_fields)

static void CheckMessage(void)
{
    POINT last = {2, 3, "last", {0, 0}, 0, NULL};
    POINT first = {1, -1, "first", {7, 8}, 2, &last};
    POINT copy;
    unsigned char* bytes = NULL;
    int length = ZKQGeneral_MSG_i2d(&first, &bytes, 0, POINT_it(), ZKQ_MSG_DER);
    Check("x509", length > 0 && bytes[0] == 0x30);
    Check("x509", ZKQGeneral_MSG_d2i(&copy, sizeof copy, bytes, length, POINT_it(), ZKQ_MSG_DER) == 0);
    Check("x509", copy.wide == -1 && strcmp(copy.label, "first") == 0 && copy.ids[1] == 8);
    Check("x509", copy.next != NULL && copy.next->x == 2 && copy.next->next == NULL);
    ZKQGeneral_MSG_free(&copy, POINT_it(), 0, ZKQ_MSG_DER);
    ZKQGeneral_FreeMallocBuffer(bytes);
}

static void CheckCertificate(void)
{
    void* cert = NULL;
    int number = 0;
    Check("x509", ZKQGeneral_OpenCert("0", 1, &cert) == 22 && cert == NULL);
    Check("x509", ZKQGeneral_CertInfo_GetInfo(NULL, ZKQ_CERT_VERSION, NULL, &number) == 22);
    Check("x509", ZKQGeneral_CloseCert(NULL) == 22);
}

static void CheckNetwork(void)
{
    SOCKET_ZKQ sy;
    NETWORK_URL_NEW url;
    struct sockaddr_in address;
    Check("socket", S_Open(&sy, 0, 0, 0) == TRUE && S_Bind(&sy, "127.0.0.1", 0) == TRUE);
    Check("socket", S_Close(&sy, 0) == TRUE && sy.sd == INVALID_SOCKET);
    Check("socket", Network_FillSockAddr(&address, "127.0.0.1", 80) == TRUE && address.sin_family == AF_INET);
    Check("http", Network_SplideURL_New("http://host:81/x", &url) == TRUE && url.Port == 81);
    Check("http", Network_SendHttpRequest("gopher://host/x", NULL, NULL) == FALSE);
}

int main(void)
{
    CheckErrorAndFile();
    CheckSystem();
    CheckProfile();
    CheckString();
    CheckPacket();
    CheckCharset();
    CheckLog();
    CheckZlib();
    CheckMyCab();
    CheckMessage();
    CheckCertificate();
    CheckNetwork();
    return failures == 0 ? 0 : 1;
}
