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
    CheckNetwork();
    return failures == 0 ? 0 : 1;
}
