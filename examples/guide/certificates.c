/* What a certificate says: this one, an example without any worth. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char pem[] = "-----BEGIN CERTIFICATE-----\n"
                          "MIIBhzCCAS2gAwIBAgICEjQwCgYIKoZIzj0EAwIwIjEQMA4GA1UECgwHRXhhbXBs\n"
                          "ZTEOMAwGA1UEAwwFQWxwaGEwHhcNMjYxMTIxMjEyOTUyWhcNMzYxMTE4MjEyOTUy\n"
                          "WjAiMRAwDgYDVQQKDAdFeGFtcGxlMQ4wDAYDVQQDDAVBbHBoYTBZMBMGByqGSM49\n"
                          "AgEGCCqGSM49AwEHA0IABBSEAl5tzorRn7Fq1AzoDF84GWbhpdDzi0U/A7Hx4lUR\n"
                          "4aKmsrEBDMJ6L/VRLparPOv6deyBdfd7qYoNPsr/JrWjUzBRMB0GA1UdDgQWBBQt\n"
                          "xMnWYOlZSWlJVBGFO/2YBpJfpjAfBgNVHSMEGDAWgBQtxMnWYOlZSWlJVBGFO/2Y\n"
                          "BpJfpjAPBgNVHRMBAf8EBTADAQH/MAoGCCqGSM49BAMCA0gAMEUCIQCujTtI4zRW\n"
                          "OMQ2kmSoz3qKLA3ylKFnzADKypBFq1hYnwIgcsSWtjImx+9Vx3Ttnk3o2//OmmeQ\n"
                          "YvN9fdiEPgp/K5k=\n"
                          "-----END CERTIFICATE-----\n";

int main(void)
{
    void* cert;
    char oid[ZKQ_CERT_OID_SIZE], text[256];
    int count, critical;
    if (ZKQGeneral_OpenCert(pem, (int)strlen(pem), &cert) != 0)
        return 1;
    /* [ask] */
    int size = sizeof text;
    if (ZKQGeneral_CertInfo_GetInfo(cert, ZKQ_CERT_NOT_AFTER, text, &size) == 0)
        printf("until %s\n", text); /* the hour of UTC+8 */

    if (ZKQGeneral_CertInfo_GetInfo(cert, ZKQ_CERT_KEY, NULL, &size) == 0) { /* the length alone */
        char* key = malloc((size_t)size);
        if (key != NULL && ZKQGeneral_CertInfo_GetInfo(cert, ZKQ_CERT_KEY, key, &size) == 0)
            printf("a key of %d bytes\n", size);
        free(key);
    }
    /* [ask end] */
    /* [extensions] */
    ZKQGeneral_CertInfo_GetExtCount(cert, &count);
    for (int i = 0; i < count; ++i) {
        size = sizeof text;
        if (ZKQGeneral_CertInfo_GetExtInfo(cert, i, oid, &critical, text, &size) == 0)
            printf("%s%s: %d bytes%s%s\n", oid, critical ? ", critical" : "", size,
                   strcmp(oid, "2.5.29.19") == 0 ? ", " : "", strcmp(oid, "2.5.29.19") == 0 ? text : "");
    }
    /* [extensions end] */
    ZKQGeneral_CloseCert(cert);
    return 0;
}
