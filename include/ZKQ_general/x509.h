/**
 * @file x509.h
 * @brief X.509 certificates, read-only.
 *
 * The functions return 0, `EINVAL` (22) for bad input or a bad argument, or `ENOMEM` (12) for want of memory or of room
 * in the caller's buffer. They leave the error text alone: each failure writes one record, with its reason, into the
 * library's own log.
 */
#ifndef ZKQ_GENERAL_X509_H
#define ZKQ_GENERAL_X509_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Certificates
 *
 * A certificate is opened, asked, and closed. Nothing is verified: neither the signature nor the chain nor the dates.
 * Handles are independent of each other; one handle is used by one thread at a time.
 *
 * Texts come with their NUL, bytes without one. Where a function takes `Value` and `MaxSize`, `*MaxSize` is the room in
 * `Value` on entry and the length of the result on success, the NUL of a text counted; a null `Value` asks for the
 * length alone. A room that is too small fails with `ENOMEM` and changes neither.
 */

/** Sizes of buffers. */
enum {
    ZKQ_CERT_OID_SIZE = 128 /**< Bytes for the text of an OID, its NUL counted. */
};

/** What ZKQGeneral_CertInfo_GetInfo() tells. "Number" results are stored in `*MaxSize`, and `Value` is not used. */
enum {
    ZKQ_CERT_VERSION = 1,           /**< Number: the version as stored, 0 for version 1, 2 for version 3. */
    ZKQ_CERT_SERIAL = 2,            /**< Text: upper-case hexadecimal digits, two for each byte. */
    ZKQ_CERT_NOT_BEFORE = 3,        /**< Text: "2025-01-31 08:00:00", UTC plus 8 hours. */
    ZKQ_CERT_NOT_AFTER = 4,         /**< Text: as #ZKQ_CERT_NOT_BEFORE. */
    ZKQ_CERT_KEY_ALGORITHM = 5,     /**< Text: the OID of the curve if there is one, else that of the algorithm. */
    ZKQ_CERT_KEY_LENGTH = 6,        /**< Number: bytes of the public key. */
    ZKQ_CERT_SIGN_ALGORITHM = 7,    /**< Text: the OID of the signature algorithm. */
    ZKQ_CERT_KEY = 8,               /**< Bytes: the public key; of a point of a curve X and Y. */
    ZKQ_CERT_KEY_TYPE = 9,          /**< Number: #ZKQ_CERT_KEY_TYPE_RSA or #ZKQ_CERT_KEY_TYPE_EC. */
    ZKQ_CERT_SIGNATURE_LENGTH = 10, /**< Number: bytes of the signature. */
    ZKQ_CERT_SIGNATURE = 11,        /**< Bytes: the signature. */
    ZKQ_CERT_SUBJECT = 19,          /**< Bytes: the DER content of the subject's name. */
    ZKQ_CERT_ISSUER = 20            /**< Bytes: the DER content of the issuer's name. */
};

/** What #ZKQ_CERT_KEY_TYPE tells. */
enum {
    ZKQ_CERT_KEY_TYPE_RSA = 6, /**< RSA. */
    ZKQ_CERT_KEY_TYPE_EC = 408 /**< Anything else, taken for a key on an elliptic curve. */
};

/**
 * @brief Opens a certificate: DER, PEM (a text that begins with "-"), or bare Base64.
 * @param Cert    The certificate, or the path of its file. A symbolic link is not followed to its whole content.
 * @param Length  Bytes at `Cert`; 0 if it is a path.
 * @param Ctx     Receives the handle on success only, released with ZKQGeneral_CloseCert().
 * @return 0, `EINVAL`, or `ENOMEM`. More than 32 components in a name, 32 extensions, 1024 bytes of key or signature, or
 *         127 characters of an OID are refused, and so is a certificate without its version, or with a name that the
 *         local code page (GBK) cannot hold.
 */
ZKQ_API int ZKQGeneral_OpenCert(const char* Cert, int Length, void** Ctx);

/**
 * @brief Tells the number of components of a name.
 * @param Ctx       The certificate.
 * @param bSubject  Non-zero for the subject, 0 for the issuer.
 * @param Count     Receives the number; may be null.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int ZKQGeneral_CertInfo_GetDNCount(void* Ctx, int bSubject, int* Count);

/**
 * @brief Gives a component of a name.
 * @param Ctx       The certificate.
 * @param bSubject  Non-zero for the subject, 0 for the issuer.
 * @param Index     The component, counted from 0 in the certificate's order.
 * @param OID       Receives the OID of its type, such as "2.5.4.3" for the common name: #ZKQ_CERT_OID_SIZE bytes. It is
 *                  written as well when `Value` has too little room.
 * @param Value     Receives its text in the local code page (GBK); null asks for the length alone.
 * @param MaxSize   On entry the room in `Value` in bytes; receives the length with the NUL.
 * @return 0, `EINVAL`, or `ENOMEM`.
 */
ZKQ_API int ZKQGeneral_CertInfo_GetDN(void* Ctx, int bSubject, int Index, char* OID, char* Value, int* MaxSize);

/**
 * @brief Gives a field of a certificate.
 * @param Ctx      The certificate.
 * @param Index    The field: #ZKQ_CERT_VERSION and so on.
 * @param Value    Receives the text or the bytes; null asks for the length alone.
 * @param MaxSize  On entry the room in `Value` in bytes; receives the length, or the number.
 * @return 0, `EINVAL` (also for an unknown field), or `ENOMEM`.
 */
ZKQ_API int ZKQGeneral_CertInfo_GetInfo(void* Ctx, int Index, char* Value, int* MaxSize);

/**
 * @brief Tells the number of extensions.
 * @param Ctx    The certificate.
 * @param Count  Receives the number; may be null.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int ZKQGeneral_CertInfo_GetExtCount(void* Ctx, int* Count);

/**
 * @brief Gives an extension. Key usage (2.5.29.15), basic constraints (2.5.29.19) and 1.2.86.21.1.1 are given as texts,
 *        all others as their bytes.
 * @param Ctx        The certificate.
 * @param Index      The extension, counted from 0 in the certificate's order.
 * @param OID        Receives its OID: #ZKQ_CERT_OID_SIZE bytes. It and `*bCritical` are written as well when the value
 *                   cannot be given.
 * @param bCritical  Receives 1 if it is critical, else 0; may be null.
 * @param Value      Receives the text or the bytes; null asks for the length alone.
 * @param MaxSize    On entry the room in `Value` in bytes; receives the length.
 * @return 0, `EINVAL` (also for a malformed key usage or malformed basic constraints), or `ENOMEM`.
 */
ZKQ_API int ZKQGeneral_CertInfo_GetExtInfo(void* Ctx, int Index, char* OID, int* bCritical, char* Value, int* MaxSize);

/**
 * @brief Releases a certificate and everything that belongs to it.
 * @param Ctx  The certificate; the handle is good for nothing afterwards.
 * @return 0, or `EINVAL` for null and for what is no certificate.
 */
ZKQ_API int ZKQGeneral_CloseCert(void* Ctx);

#ifdef __cplusplus
}
#endif

#endif
