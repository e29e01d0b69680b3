/* A record of twenty fields, as the peers of the message benchmark encode and decode it. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { kNumbers = 8, kWides = 4, kTexts = 5, kBlobs = 3 };

struct Values {
    int32_t numbers[kNumbers];
    int64_t wides[kWides];
    char* texts[kTexts];
    unsigned char* blobs[kBlobs];
    int32_t blobSizes[kBlobs];
};

/* A peer's own record of the values. */
void* ProtobufMake(const struct Values* values);
void ProtobufFree(void* record);
/* Into a new buffer, which is released again; the size. */
size_t ProtobufEncode(const void* record);
/* Into a buffer that is large enough. */
size_t ProtobufEncodeInto(const void* record, unsigned char* buffer);
/* A new record, which is released again; 1 if it was read. */
int ProtobufDecode(const unsigned char* bytes, size_t size);

void* OpenSslMake(const struct Values* values);
void OpenSslFree(void* record);
size_t OpenSslEncode(const void* record);
size_t OpenSslEncodeInto(const void* record, unsigned char* buffer);
int OpenSslDecode(const unsigned char* bytes, size_t size);

#ifdef __cplusplus
}
#endif
