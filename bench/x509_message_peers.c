#include "x509_message_peers.h"

#include <openssl/asn1t.h>
#include <stdlib.h>
#include <string.h>

#include "x509_message.pb-c.h"

/* protobuf-c */

void* ProtobufMake(const struct Values* values)
{
    PeerRecord* record = malloc(sizeof *record);
    peer_record__init(record);
    int32_t* const numbers[] = {&record->number0, &record->number1, &record->number2, &record->number3,
                                &record->number4, &record->number5, &record->number6, &record->number7};
    int64_t* const wides[] = {&record->wide0, &record->wide1, &record->wide2, &record->wide3};
    char** const texts[] = {&record->text0, &record->text1, &record->text2, &record->text3, &record->text4};
    ProtobufCBinaryData* const blobs[] = {&record->bytes0, &record->bytes1, &record->bytes2};
    for (int i = 0; i < kNumbers; ++i)
        *numbers[i] = values->numbers[i];
    for (int i = 0; i < kWides; ++i)
        *wides[i] = values->wides[i];
    for (int i = 0; i < kTexts; ++i)
        *texts[i] = values->texts[i];
    for (int i = 0; i < kBlobs; ++i) {
        blobs[i]->data = values->blobs[i];
        blobs[i]->len = (size_t)values->blobSizes[i];
    }
    return record;
}

void ProtobufFree(void* record)
{
    free(record); /* its texts are the caller's */
}

size_t ProtobufEncode(const void* record)
{
    const size_t size = peer_record__get_packed_size(record);
    unsigned char* buffer = malloc(size);
    const size_t written = peer_record__pack(record, buffer);
    free(buffer);
    return written;
}

size_t ProtobufEncodeInto(const void* record, unsigned char* buffer)
{
    return peer_record__pack(record, buffer);
}

int ProtobufDecode(const unsigned char* bytes, size_t size)
{
    PeerRecord* record = peer_record__unpack(NULL, size, bytes);
    if (record == NULL)
        return 0;
    peer_record__free_unpacked(record, NULL);
    return 1;
}

/* OpenSSL */

typedef struct {
    int32_t numbers[kNumbers];
    int64_t wides[kWides];
    ASN1_UTF8STRING* texts[kTexts];
    ASN1_OCTET_STRING* blobs[kBlobs];
} ASN1_RECORD;

ASN1_SEQUENCE(ASN1_RECORD) =
    {
        ASN1_EMBED(ASN1_RECORD, numbers[0], INT32),
        ASN1_EMBED(ASN1_RECORD, numbers[1], INT32),
        ASN1_EMBED(ASN1_RECORD, numbers[2], INT32),
        ASN1_EMBED(ASN1_RECORD, numbers[3], INT32),
        ASN1_EMBED(ASN1_RECORD, numbers[4], INT32),
        ASN1_EMBED(ASN1_RECORD, numbers[5], INT32),
        ASN1_EMBED(ASN1_RECORD, numbers[6], INT32),
        ASN1_EMBED(ASN1_RECORD, numbers[7], INT32),
        ASN1_EMBED(ASN1_RECORD, wides[0], INT64),
        ASN1_EMBED(ASN1_RECORD, wides[1], INT64),
        ASN1_EMBED(ASN1_RECORD, wides[2], INT64),
        ASN1_EMBED(ASN1_RECORD, wides[3], INT64),
        ASN1_SIMPLE(ASN1_RECORD, texts[0], ASN1_UTF8STRING),
        ASN1_SIMPLE(ASN1_RECORD, texts[1], ASN1_UTF8STRING),
        ASN1_SIMPLE(ASN1_RECORD, texts[2], ASN1_UTF8STRING),
        ASN1_SIMPLE(ASN1_RECORD, texts[3], ASN1_UTF8STRING),
        ASN1_SIMPLE(ASN1_RECORD, texts[4], ASN1_UTF8STRING),
        ASN1_SIMPLE(ASN1_RECORD, blobs[0], ASN1_OCTET_STRING),
        ASN1_SIMPLE(ASN1_RECORD, blobs[1], ASN1_OCTET_STRING),
        ASN1_SIMPLE(ASN1_RECORD, blobs[2], ASN1_OCTET_STRING),
} static_ASN1_SEQUENCE_END(ASN1_RECORD)

        void *
    OpenSslMake(const struct Values* values)
{
    ASN1_RECORD* record = (ASN1_RECORD*)ASN1_item_new(ASN1_ITEM_rptr(ASN1_RECORD));
    memcpy(record->numbers, values->numbers, sizeof record->numbers);
    memcpy(record->wides, values->wides, sizeof record->wides);
    for (int i = 0; i < kTexts; ++i)
        ASN1_STRING_set(record->texts[i], values->texts[i], -1);
    for (int i = 0; i < kBlobs; ++i)
        ASN1_STRING_set(record->blobs[i], values->blobs[i], values->blobSizes[i]);
    return record;
}

void OpenSslFree(void* record)
{
    ASN1_item_free(record, ASN1_ITEM_rptr(ASN1_RECORD));
}

size_t OpenSslEncode(const void* record)
{
    unsigned char* buffer = NULL;
    const int size = ASN1_item_i2d(record, &buffer, ASN1_ITEM_rptr(ASN1_RECORD));
    OPENSSL_free(buffer);
    return size < 0 ? 0 : (size_t)size;
}

size_t OpenSslEncodeInto(const void* record, unsigned char* buffer)
{
    const int size = ASN1_item_i2d(record, &buffer, ASN1_ITEM_rptr(ASN1_RECORD));
    return size < 0 ? 0 : (size_t)size;
}

int OpenSslDecode(const unsigned char* bytes, size_t size)
{
    ASN1_VALUE* record = ASN1_item_d2i(NULL, &bytes, (long)size, ASN1_ITEM_rptr(ASN1_RECORD));
    if (record == NULL)
        return 0;
    ASN1_item_free(record, ASN1_ITEM_rptr(ASN1_RECORD));
    return 1;
}
