/**
 * @file msgpacket.h
 * @brief Message packets: a list of byte strings and integers in one flat, self-delimiting string of bytes.
 *
 * A packet begins with its own length; each item is a length and that many bytes. All lengths and integers are 32 bits,
 * the most significant byte first, so that the bytes are the same on every host. Tagged packets hold pairs of items: an
 * integer, the OID, and then its value.
 *
 * A packet is either allocated by the library and grows, or lies in a buffer of the caller's that a #MSGDATA of the
 * caller's describes. Functions that take `Packet` take either. One packet is used by one thread at a time, readers
 * included: the library remembers in it where the last item was read.
 *
 * All functions return `TRUE`, or `FALSE` with the error text of an errno value. A null pointer, a negative size and a
 * negative index fail with `EINVAL`; bytes that are no packet fail with `EBADMSG`. Nothing is ever read beyond the bytes
 * in use.
 */
#ifndef ZKQ_GENERAL_MSGPACKET_H
#define ZKQ_GENERAL_MSGPACKET_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A packet in a caller's buffer. Filled by ZKQGeneral_CreateMsgPacket2() or ZKQGeneral_InitMsgPacket2(). */
typedef struct MSGDATA_st {
    int Version;           /**< 0, not used. */
    unsigned char* buffer; /**< The bytes of the packet. */
    int max;               /**< Bytes available at `buffer`. */
    int size;              /**< Bytes in use. */
    int StepSize;          /**< Growth granule of packets that the library allocates. */
    int TotalSize;         /**< Length of the packet as its header has it. */
    int TotalNums;         /**< Number of items. */
    int NeedMalloc;        /**< 1: the library owns `buffer` and may grow it; 0: it is the caller's. */
} MSGDATA;

/**
 * @brief Makes an empty packet that grows.
 * @param StepSize  Bytes by which its room grows: below 1 means 1024, above 65536 means 65536.
 * @param Packet    Receives the packet, released with ZKQGeneral_DestroyMsgPacket().
 * @return `FALSE` with `EINVAL` or `ENOMEM`.
 */
ZKQ_API BOOL ZKQGeneral_CreateMsgPacket(int StepSize, void** Packet);

/**
 * @brief Makes a packet that grows from a copy of received bytes.
 * @param Buffer    The bytes.
 * @param Size      Their number, which must be the length that the header gives.
 * @param StepSize  As for ZKQGeneral_CreateMsgPacket().
 * @param Packet    Receives the packet, released with ZKQGeneral_DestroyMsgPacket().
 * @return `FALSE` with `EINVAL`, `ENOMEM`, or `EBADMSG` if the bytes are no packet.
 */
ZKQ_API BOOL ZKQGeneral_InitMsgPacket(const void* Buffer, int Size, int StepSize, void** Packet);

/**
 * @brief Makes an empty packet in a buffer of the caller's.
 * @param Buffer      The buffer; the caller keeps it for as long as the packet is used.
 * @param BufferSize  Its size in bytes, of which the packet always leaves one unused.
 * @param Packet      The caller's record, filled; there is nothing to release.
 * @return `FALSE` with `EINVAL`, or `EBADMSG` if the buffer has less than 4 bytes.
 */
ZKQ_API BOOL ZKQGeneral_CreateMsgPacket2(unsigned char* Buffer, int BufferSize, MSGDATA* Packet);

/**
 * @brief Makes a packet of received bytes where they are.
 * @param Buffer      The bytes; the caller keeps them for as long as the packet is used.
 * @param BufferSize  Their number, at least the length that the header gives; what follows that is room for more items.
 * @param Packet      The caller's record, filled on success only; there is nothing to release.
 * @return `FALSE` with `EINVAL`, or `EBADMSG` if the bytes are no packet.
 */
ZKQ_API BOOL ZKQGeneral_InitMsgPacket2(unsigned char* Buffer, int BufferSize, MSGDATA* Packet);

/**
 * @brief Releases a packet that the library allocated, and its bytes.
 * @param Packet  The packet; null and packets in a caller's buffer are ignored.
 */
ZKQ_API void ZKQGeneral_DestroyMsgPacket(void* Packet);

/**
 * @brief Appends an item.
 * @param Packet  The packet. A failure for want of room leaves it inconsistent: it is then good for nothing but release.
 * @param Buffer  The bytes, which may lie in the packet itself; null if there are none.
 * @param Size    Their number.
 * @return `FALSE` with `EINVAL`; `EMSGSIZE` if the packet would exceed 2147483647 bytes, which leaves it as it was; or
 *         `ENOMEM` if memory ran out or a caller's buffer is full.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_AddBuffer(void* Packet, const void* Buffer, int Size);

/**
 * @brief Appends an integer as an item of 4 bytes.
 * @param Packet   As for ZKQGeneral_MsgPacket_AddBuffer().
 * @param Integer  The integer.
 * @return As for ZKQGeneral_MsgPacket_AddBuffer().
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_AddInt(void* Packet, int Integer);

/**
 * @brief Tells the number of items.
 * @param Packet  The packet.
 * @param Count   Receives the number.
 * @return `FALSE` with `EINVAL`.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_GetCount(void* Packet, int* Count);

/**
 * @brief Gives the whole packet as it is sent.
 * @param Packet  The packet.
 * @param Buffer  Receives a pointer to the packet's own bytes, good until the next item is added.
 * @param Size    Receives the length of the packet.
 * @return `FALSE` with `EINVAL`.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_GetBuffer(void* Packet, unsigned char** Buffer, int* Size);

/**
 * @brief Copies an item. Reading items in order costs no search in packets that the library allocated.
 * @param Packet  The packet.
 * @param index   The item, counted from 0.
 * @param Buffer  Receives the bytes; null asks for the length alone.
 * @param Size    On entry the room in `Buffer`; receives the item's length, also if the room is too small.
 * @return `FALSE` with `EINVAL`, also for an index past the end; `ERANGE` if the room is too small; or `EBADMSG`.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_GetData(void* Packet, int index, void* Buffer, int* Size);

/**
 * @brief Gives an item where it lies in the packet.
 * @param Packet  The packet.
 * @param index   The item, counted from 0.
 * @param Buffer  Receives a pointer to its bytes, good until the next item is added.
 * @param Size    Receives its length.
 * @return `FALSE` with `EINVAL`, or `EBADMSG`, also for an index past the end.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_GetDataPtr(void* Packet, int index, void** Buffer, int* Size);

/**
 * @brief Reads an item as an integer.
 * @param Packet  The packet.
 * @param index   The item, counted from 0.
 * @param Data    Receives the integer.
 * @return `FALSE` with `EINVAL`, also for an index past the end; `ERANGE` for an item longer than 4 bytes; or `EBADMSG`,
 *         also for a shorter one.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_GetIntegerData(void* Packet, int index, int* Data);

/**
 * @brief Appends an OID and its value.
 * @param Packet  As for ZKQGeneral_MsgPacket_AddBuffer(). If only the OID finds room it stays.
 * @param Oid     The OID; it need not be unique.
 * @param Buffer  The bytes of the value, which may lie in the packet itself; null if there are none.
 * @param Size    Their number.
 * @return As for ZKQGeneral_MsgPacket_AddBuffer().
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_AddBuffer(void* Packet, int Oid, const void* Buffer, int Size);

/**
 * @brief Appends an OID and a text with its NUL.
 * @param Packet  As for ZKQGeneral_MsgPacket_OID_AddBuffer().
 * @param Oid     The OID.
 * @param Buffer  The text; null means the empty one.
 * @return As for ZKQGeneral_MsgPacket_AddBuffer().
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_AddString(void* Packet, int Oid, const char* Buffer);

/**
 * @brief Appends an OID and an integer.
 * @param Packet   As for ZKQGeneral_MsgPacket_OID_AddBuffer().
 * @param Oid      The OID.
 * @param Integer  The integer.
 * @return As for ZKQGeneral_MsgPacket_AddBuffer().
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_AddInt(void* Packet, int Oid, int Integer);

/**
 * @brief Copies the value of an OID, the first if there are several.
 * @param Packet   The packet.
 * @param Oid      The OID.
 * @param Buffer   Receives the bytes; null asks for the length alone.
 * @param Size     Receives the value's length, on success only.
 * @param MaxSize  The room in `Buffer`.
 * @return `FALSE` with `EINVAL`, also if the OID is the last item and has no value; `ENOMEDIUM` if there is no such OID;
 *         `ERANGE` if the room is too small; or `EBADMSG`, also if an item on the way that is to be an OID has not 4
 *         bytes.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_GetBuffer(void* Packet, int Oid, void* Buffer, int* Size, int MaxSize);

/**
 * @brief Copies the text of an OID.
 * @param Packet   The packet.
 * @param Oid      The OID.
 * @param Buffer   Receives the whole value.
 * @param MaxSize  The room in `Buffer`.
 * @return As for ZKQGeneral_MsgPacket_OID_GetBuffer(); `EBADMSG` also for a value without a NUL, which is then in
 *         `Buffer` all the same.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_GetString(void* Packet, int Oid, char* Buffer, int MaxSize);

/**
 * @brief Reads the integer of an OID.
 * @param Packet   The packet.
 * @param Oid      The OID.
 * @param Integer  Receives the integer. Of a value shorter than 4 bytes the missing last ones are taken as 0.
 * @return As for ZKQGeneral_MsgPacket_OID_GetBuffer(), with `ERANGE` for a value longer than 4 bytes.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_GetInt(void* Packet, int Oid, int* Integer);

/**
 * @brief Gives the value of an OID where it lies in the packet.
 * @param Packet  The packet.
 * @param Oid     The OID.
 * @param Buffer  Receives a pointer to the value, good until the next item is added; null asks for the length alone.
 * @param Size    Receives the value's length.
 * @return As for ZKQGeneral_MsgPacket_OID_GetBuffer(), without `ERANGE`.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_GetBufferPtr(void* Packet, int Oid, void** Buffer, int* Size);

/**
 * @brief Gives the text of an OID where it lies in the packet.
 * @param Packet  The packet.
 * @param Oid     The OID.
 * @param Buffer  Receives a pointer to the text, good until the next item is added.
 * @return As for ZKQGeneral_MsgPacket_OID_GetBufferPtr(); `EBADMSG` also for a value without a NUL.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_GetStringPtr(void* Packet, int Oid, char** Buffer);

/**
 * @brief Lists the OIDs in their order.
 * @param Packet    The packet.
 * @param OidList   Receives the OIDs; null asks for their number alone, for which the items are not looked at.
 * @param OidCount  On entry the room in `OidList`, in OIDs; receives their number.
 * @return `FALSE` with `EINVAL`; `ENOMEM` if the room is too small; or `EBADMSG`, also for an odd number of items and for
 *         an item that is to be an OID and has not 4 bytes.
 */
ZKQ_API BOOL ZKQGeneral_MsgPacket_OID_EnumOID(void* Packet, int* OidList, int* OidCount);

#ifdef __cplusplus
}
#endif

#endif
