/* A packet is made, sent, read; values with tags; a packet in a buffer of one's own. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <string.h>

/* [read] */
static void Receive(const void* received, int receivedSize)
{
    void *packet, *item;
    int number, size;
    if (!ZKQGeneral_InitMsgPacket(received, receivedSize, 0, &packet))
        return; /* not a packet */
    if (ZKQGeneral_MsgPacket_GetIntegerData(packet, 0, &number) &&
        ZKQGeneral_MsgPacket_GetDataPtr(packet, 1, &item, &size)) /* where it lies in the packet */
        printf("%d and %.*s\n", number, size, (char*)item);
    ZKQGeneral_DestroyMsgPacket(packet);
}
/* [read end] */

static int Send(void)
{
    /* [build] */
    void* packet;
    unsigned char* bytes;
    int size;
    if (!ZKQGeneral_CreateMsgPacket(0, &packet))
        return 1;
    ZKQGeneral_MsgPacket_AddInt(packet, 42);
    ZKQGeneral_MsgPacket_AddBuffer(packet, "hello", 5);
    if (ZKQGeneral_MsgPacket_GetBuffer(packet, &bytes, &size)) /* the packet's own bytes: not to be released */
        Receive(bytes, size);
    ZKQGeneral_DestroyMsgPacket(packet);
    /* [build end] */
    return 0;
}

static int Tagged(void)
{
    unsigned char buffer[256];
    /* [own] */
    MSGDATA packet; /* in a buffer of the caller's: nothing to release */
    if (!ZKQGeneral_CreateMsgPacket2(buffer, sizeof buffer, &packet))
        return 1;
    /* [own end] */
    /* [tagged] */
    ZKQGeneral_MsgPacket_OID_AddString(&packet, 7, "ab");
    ZKQGeneral_MsgPacket_OID_AddInt(&packet, 8, -2);

    char text[32];
    int number;
    if (ZKQGeneral_MsgPacket_OID_GetString(&packet, 7, text, sizeof text) &&
        ZKQGeneral_MsgPacket_OID_GetInt(&packet, 8, &number))
        printf("7 is %s, 8 is %d\n", text, number);
    if (!ZKQGeneral_MsgPacket_OID_GetInt(&packet, 9, &number))
        printf("9: %s\n", ZKQGeneral_GetGeneralErrorInfo());
    /* [tagged end] */
    return 0;
}

int main(void)
{
    return Send() || Tagged();
}
