/* Base64 there and back, and digests. */
#include <ZKQ_general.h>
#include <stdio.h>

static void Encode(const unsigned char* bytes, int size)
{
    /* [encode] */
    char* text;
    if (ZKQGeneral_ConvertToBase64Ex(bytes, size, &text, 72)) {
        puts(text);
        ZKQGeneral_FreeMallocBuffer(text);
    }
    /* [encode end] */
}

static void Decode(const char* text)
{
    /* [decode] */
    unsigned char* bytes;
    int size;
    if (ZKQGeneral_ConvertFromBase64Ex(text, &bytes, &size))
        printf("%.*s\n", size, (char*)bytes);
    else
        printf("not Base64 behind %d bytes\n", size);
    ZKQGeneral_FreeMallocBuffer(bytes); /* after a failure, too */
    /* [decode end] */
}

static void Digest(const char* name)
{
    /* [digest] */
    unsigned char digest[16];
    if (!ZKQGeneral_DigestFile(name, digest))
        printf("%s: %s\n", name, ZKQGeneral_GetGeneralErrorInfo());
    ZKQGeneral_DigestBuffer("abc", 3, digest);
    for (int i = 0; i < 16; ++i)
        printf("%02x", digest[i]);
    puts("");
    /* [digest end] */
}

int main(void)
{
    static const unsigned char bytes[] = "hello";
    Encode(bytes, 5);
    Decode("aGVsbG8=");
    Decode("aGVs*G8=");
    Digest("missing.zip");
    return 0;
}
