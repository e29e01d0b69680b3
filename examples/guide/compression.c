/* A text is compressed and comes back. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void)
{
    unsigned char plain[10000], *back;
    const long plainLength = sizeof plain;
    long room, streamLength;
    memset(plain, 'a', sizeof plain);

    if (!ZKQGeneral_Zlib_CompressBuffer(plain, plainLength, NULL, &room)) /* how much room it takes */
        return 1;
    unsigned char* stream = malloc((size_t)room);
    if (stream == NULL || !ZKQGeneral_Zlib_CompressBuffer(plain, plainLength, stream, &streamLength)) {
        puts(ZKQGeneral_GetGeneralErrorInfo());
        free(stream);
        return 1;
    }
    printf("%ld bytes have become %s\n", plainLength, streamLength < 100 ? "a few" : "many");

    /* Keep the plain length: the stream does not tell it. */
    back = malloc((size_t)plainLength);
    if (back != NULL && ZKQGeneral_Zlib_UnCompressBuffer(stream, streamLength, back, plainLength))
        printf("they are back: %s\n", memcmp(plain, back, sizeof plain) == 0 ? "yes" : "no");
    if (back != NULL && !ZKQGeneral_Zlib_UnCompressBuffer(stream, streamLength, back, plainLength - 1))
        printf("with another length: %s\n", ZKQGeneral_GetGeneralErrorInfo());
    free(back);
    free(stream);
    return 0;
}
