/* Shows whose a certificate is, and until when. */
#include <ZKQ_general.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    void* cert;
    char oid[ZKQ_CERT_OID_SIZE], text[256];
    int count, size = sizeof text;

    if (argc != 2 || ZKQGeneral_OpenCert(argv[1], 0, &cert) != 0) {
        fprintf(stderr, "not a certificate\n"); /* the reason is in the library's log */
        return 1;
    }
    ZKQGeneral_CertInfo_GetDNCount(cert, 1, &count);
    for (int i = 0; i < count; ++i, size = sizeof text)
        if (ZKQGeneral_CertInfo_GetDN(cert, 1, i, oid, text, &size) == 0)
            printf("%s is %s\n", oid, text); /* in GBK */
    if (ZKQGeneral_CertInfo_GetInfo(cert, ZKQ_CERT_NOT_AFTER, text, &size) == 0)
        printf("until %s\n", text);
    ZKQGeneral_CloseCert(cert);
    return 0;
}
