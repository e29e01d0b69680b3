/**
 * @file x509.h
 * @brief Messages, plain records turned into bytes, XML or JSON and back; and X.509 certificates, read-only.
 *
 * What is wrong is told in the library's own log, "general.log", if that is switched on; the library's error text is left
 * alone, except by a JSON member that should be Base64 and is not.
 */
#ifndef ZKQ_GENERAL_X509_H
#define ZKQ_GENERAL_X509_H

#include <ZKQ_general/types.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @defgroup messages Messages
 *
 * A record type is described once, by a static array of templates, one a field, and an item around them:
 *
 * @code
 * typedef struct POINT { int x; int y; char label[16]; } POINT;
 *
 * static const GENERAL_MSG_TEMPLATE kPoint[] = {
 *     ZKQ_MSG_INT32(POINT, x, "x", "/point"),
 *     ZKQ_MSG_INT32(POINT, y, "y", "/point"),
 *     ZKQ_MSG_STRING(POINT, label, "label", "/point/@"),
 * };
 * ZKQ_MSG_RECORD_ITEM(POINT_it, kPoint)
 * @endcode
 *
 * ZKQGeneral_MSG_i2d(), ZKQGeneral_MSG_d2i() and ZKQGeneral_MSG_free() then encode, decode and release any such record,
 * in one of three modes. Templates and items are only read, and must live as long as they are used. A fault in them, such
 * as an offset outside of the record, is a fault of the program that nobody finds.
 *
 * Any thread may call; a record, and the input of a decoding, are used by one thread at a time.
 * @{
 */

/** How a record is encoded: the argument `mode`. */
enum {
    ZKQ_MSG_DER = 0, /**< Bytes: tag, length, value. */
    ZKQ_MSG_XML = 1, /**< XML text. */
    ZKQ_MSG_JSON = 2 /**< JSON text. */
};

/** What a field is: GENERAL_MSG_TEMPLATE::Type. The first nine are also GENERAL_MSG_ITEM::DataType, and the tag bytes. */
enum {
    ZKQ_MSG_KIND_INT32 = 1, /**< 32-bit integer. */
    ZKQ_MSG_KIND_INT64 = 2, /**< 64-bit integer. */
    ZKQ_MSG_KIND_PTR = 3,   /**< A pointer, of which the value itself is carried. */
    ZKQ_MSG_KIND_STRING =
        4, /**< Text in a buffer inside the record; one that came from a stranger may fill it without a NUL. */
    ZKQ_MSG_KIND_STRINGPTR = 5,    /**< Pointer to a text. */
    ZKQ_MSG_KIND_BYTEARRAY = 6,    /**< Bytes in a buffer inside the record, and their count. */
    ZKQ_MSG_KIND_BYTEARRAYPTR = 7, /**< Pointer to bytes, and their count. */
    ZKQ_MSG_KIND_INTARRAY = 8,     /**< 32-bit integers in the record, and their count. */
    ZKQ_MSG_KIND_INTARRAYPTR = 9,  /**< Pointer to 32-bit integers, and their count. */
    ZKQ_MSG_KIND_RECORD = 10,      /**< A record inside the record. */
    ZKQ_MSG_KIND_RECORDPTR = 11,   /**< Pointer to a record. */
    ZKQ_MSG_KIND_RECORDS = 12,     /**< Records inside the record, and their count. */
    ZKQ_MSG_KIND_RECORDSPTR = 13,  /**< Pointer to records, and their count. */
    ZKQ_MSG_KIND_VALUESPTR = 14    /**< Pointer to simple values, and their count. */
};

/** Results. The same fault has the same code in every mode; XML and JSON have those of their families as well. */
enum {
    ZKQ_MSG_TOO_SHORT = -3,   /**< A buffer or the input is too short. */
    ZKQ_MSG_UNSUPPORTED = -4, /**< A kind that the mode does not carry, or a wrong `IsStruct`. */
    ZKQ_MSG_TOO_LONG = -5,    /**< A length that cannot be. */
    ZKQ_MSG_WRONG_TAG = -6,   /**< Another tag than the template's. */
    ZKQ_MSG_BAD_LENGTH = -8,  /**< A content of the wrong length; a path that names no array. */
    ZKQ_MSG_NO_MEMORY = -9,   /**< Memory ran out. */
    ZKQ_MSG_BAD_MODE = -22    /**< Of ZKQGeneral_MSG_i2d(): no such mode, or no item. */
};

struct GENERAL_MSG_TEMPLATE_st;

/** What is encoded: a simple value, or a record. */
typedef struct GENERAL_MSG_ITEM_st {
    int IsStruct;                                    /**< 0: a simple value; 1: a record. */
    int DataType;                                    /**< Of a simple value: its kind, 1 to 9. */
    const struct GENERAL_MSG_TEMPLATE_st* Templates; /**< Of a record: its fields, in the order of the encoding. */
    int Count;                                       /**< How many. */
    int Temp;                                        /**< Used while encoding; 0. */
    const char* Name;                                /**< The name of the kind. */
    const char* XPath;                               /**< Used while encoding; null. */
    const char* NodeName;                            /**< Used while encoding; null. */
    int BuffSize;                                    /**< Used while encoding; 0. */
} GENERAL_MSG_ITEM;

/** A field of a record. */
typedef struct GENERAL_MSG_TEMPLATE_st {
    int Type;                              /**< Its kind. */
    unsigned int Offset;                   /**< Where it is in the record, in bytes. */
    const char* FieldName;                 /**< The name of the element, attribute or member that holds the value. */
    const GENERAL_MSG_ITEM* (*item)(void); /**< What it is encoded with. */
    int ArraySizeOffset;                   /**< Of arrays: where the 32-bit count of elements is in the record. */
    int SizeofStruct;                      /**< Bytes of a buffer, of a record pointed to, or of one element. */
    const char* XPath;                     /**< Where it is in the XML or JSON document. */
} GENERAL_MSG_TEMPLATE;

/**
 * @brief Encodes a record.
 * @param val   The record; null is the empty one in mode 0.
 * @param out   Mode 0: null only asks for the length; a null `*out` receives a new buffer; otherwise `*out` is the
 *              caller's buffer, and is moved behind what was written. Other modes: receives the text, whatever was there;
 *              null drops it. What is received is released with ZKQGeneral_FreeMallocBuffer(). Left alone on failure.
 * @param max   Mode 0: room in the caller's buffer, not counting one byte for each header with a length above 127, which
 *              is written beyond it. Not looked at otherwise.
 * @param it    The record's item.
 * @param mode  ZKQ_MSG_DER, ZKQ_MSG_XML or ZKQ_MSG_JSON.
 * @return Mode 0: the length of the encoding. Other modes: 0, or a positive errno value. Any mode: a negative code. A
 *         record that contains itself through its pointers is ZKQ_MSG_TOO_LONG.
 */
ZKQ_API int ZKQGeneral_MSG_i2d(const void* val, unsigned char** out, int max, const GENERAL_MSG_ITEM* it, int mode);

/**
 * @brief Decodes a record.
 * @param val   The record; overwritten with zeros first. What it pointed to is not released.
 * @param Size  Its size in bytes.
 * @param in    The encoding. Mode 0: texts and arrays of the record then lie in it, so that it must outlive the record;
 *              integers that a field points to are turned into the machine's order where they are, so that it must be
 *              writable, and cannot be decoded again. Other modes: a NUL-terminated text, copied from.
 * @param len   Mode 0: its length in bytes; what follows the record is ignored. Not looked at otherwise.
 * @param it    The record's item.
 * @param mode  As the record was encoded.
 * @return 0; `EINVAL` (22) for null, a negative size or no such mode; a negative code; in XML and JSON also what their
 *         families fail with. After a failure nothing is left to release.
 */
ZKQ_API int ZKQGeneral_MSG_d2i(void* val, int Size, const unsigned char* in, int len, const GENERAL_MSG_ITEM* it,
                               int mode);

/**
 * @brief Releases what decoding a record has allocated, and sets the pointers to it null.
 *
 * In mode 0 members of inline arrays (kind 12), and of all but the first element of an array that is pointed to (kind 13),
 * are **not** visited: where they have records of their own, these are for the caller to release.
 * @param val   The record; null is ignored. With the item of a simple value, in modes 1 and 2, the value itself.
 * @param it    The record's item.
 * @param Flag  Not 0: the record is of the C heap, and released as well.
 * @param mode  As the record was decoded; any other does nothing.
 */
ZKQ_API void ZKQGeneral_MSG_free(void* val, const GENERAL_MSG_ITEM* it, int Flag, int mode);

/**
 * @brief The item of a 32-bit integer.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_INT32_it(void);
/**
 * @brief The item of a 64-bit integer.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_INT64_it(void);
/**
 * @brief The item of a pointer's value.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_PTR_it(void);
/**
 * @brief The item of a text in the record.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_STRING_it(void);
/**
 * @brief The item of a pointer to a text.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_STRINGPTR_it(void);
/**
 * @brief The item of bytes in the record.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_BYTEARRAY_it(void);
/**
 * @brief The item of a pointer to bytes.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_BYTEARRAYPTR_it(void);
/**
 * @brief The item of integers in the record.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_INTARRAY_it(void);
/**
 * @brief The item of a pointer to integers.
 * @return Its address, the same at every call.
 */
ZKQ_API const GENERAL_MSG_ITEM* ZKQGeneral_INTARRAYPTR_it(void);

/** @cond */
/* A field of a record type, for sizeof. */
#ifdef __cplusplus
#define ZKQ_MSG_FIELD_(Record, field) Record::field
#else
#define ZKQ_MSG_FIELD_(Record, field) ((Record*)0)->field
#endif
/* The offset of a field. A field of another size than `size` does not compile. */
#define ZKQ_MSG_OFFSET_(Record, field, size)                                                                           \
    (offsetof(Record, field) + 0 * sizeof(char[sizeof(ZKQ_MSG_FIELD_(Record, field)) == (size) ? 1 : -1]))
#define ZKQ_MSG_ANY_(Record, field) offsetof(Record, field)
#define ZKQ_MSG_POINTER_(Record, field) ZKQ_MSG_OFFSET_(Record, field, sizeof(void*))
#define ZKQ_MSG_COUNT_(Record, count) ZKQ_MSG_OFFSET_(Record, count, 4)
#define ZKQ_MSG_SIZE_(Record, field) sizeof(ZKQ_MSG_FIELD_(Record, field))
#define ZKQ_MSG_TARGET_(Record, field) sizeof(*ZKQ_MSG_FIELD_(Record, field))
/** @endcond */

/**
 * @name Fields
 *
 * Initialisers of a GENERAL_MSG_TEMPLATE. `Record` is the name of the record's type, `field` that of the field, `count`
 * that of the 32-bit field with the number of elements, `it` the function of a record's item; offsets and sizes follow
 * from them, and a field of the wrong size does not compile. `Name` and `Path` are the node's name and place in XML and
 * JSON documents.
 * @{
 */
/** A 32-bit integer. */
#define ZKQ_MSG_INT32(Record, field, Name, Path)                                                                       \
    {                                                                                                                  \
        ZKQ_MSG_KIND_INT32, ZKQ_MSG_OFFSET_(Record, field, 4), Name, ZKQGeneral_INT32_it, 0, 0, Path                   \
    }
/** A 64-bit integer. */
#define ZKQ_MSG_INT64(Record, field, Name, Path)                                                                       \
    {                                                                                                                  \
        ZKQ_MSG_KIND_INT64, ZKQ_MSG_OFFSET_(Record, field, 8), Name, ZKQGeneral_INT64_it, 0, 0, Path                   \
    }
/** A pointer's value. */
#define ZKQ_MSG_PTR(Record, field, Name, Path)                                                                         \
    {                                                                                                                  \
        ZKQ_MSG_KIND_PTR, ZKQ_MSG_POINTER_(Record, field), Name, ZKQGeneral_PTR_it, 0, 0, Path                         \
    }
/** A text in a buffer. */
#define ZKQ_MSG_STRING(Record, field, Name, Path)                                                                      \
    {                                                                                                                  \
        ZKQ_MSG_KIND_STRING, ZKQ_MSG_ANY_(Record, field), Name, ZKQGeneral_STRING_it, 0, ZKQ_MSG_SIZE_(Record, field), \
            Path                                                                                                       \
    }
/** A pointer to a text. */
#define ZKQ_MSG_STRINGPTR(Record, field, Name, Path)                                                                   \
    {                                                                                                                  \
        ZKQ_MSG_KIND_STRINGPTR, ZKQ_MSG_POINTER_(Record, field), Name, ZKQGeneral_STRINGPTR_it, 0, 0, Path             \
    }
/** Bytes in a buffer. */
#define ZKQ_MSG_BYTEARRAY(Record, field, count, Name, Path)                                                            \
    {                                                                                                                  \
        ZKQ_MSG_KIND_BYTEARRAY, ZKQ_MSG_ANY_(Record, field), Name, ZKQGeneral_BYTEARRAY_it,                            \
            ZKQ_MSG_COUNT_(Record, count), ZKQ_MSG_SIZE_(Record, field), Path                                          \
    }
/** A pointer to bytes. */
#define ZKQ_MSG_BYTEARRAYPTR(Record, field, count, Name, Path)                                                         \
    {                                                                                                                  \
        ZKQ_MSG_KIND_BYTEARRAYPTR, ZKQ_MSG_POINTER_(Record, field), Name, ZKQGeneral_BYTEARRAYPTR_it,                  \
            ZKQ_MSG_COUNT_(Record, count), 0, Path                                                                     \
    }
/** Integers in an array. */
#define ZKQ_MSG_INTARRAY(Record, field, count, Name, Path)                                                             \
    {                                                                                                                  \
        ZKQ_MSG_KIND_INTARRAY, ZKQ_MSG_ANY_(Record, field), Name, ZKQGeneral_INTARRAY_it,                              \
            ZKQ_MSG_COUNT_(Record, count), ZKQ_MSG_SIZE_(Record, field), Path                                          \
    }
/** A pointer to integers. */
#define ZKQ_MSG_INTARRAYPTR(Record, field, count, Name, Path)                                                          \
    {                                                                                                                  \
        ZKQ_MSG_KIND_INTARRAYPTR, ZKQ_MSG_POINTER_(Record, field), Name, ZKQGeneral_INTARRAYPTR_it,                    \
            ZKQ_MSG_COUNT_(Record, count), 0, Path                                                                     \
    }
/** A record inside the record. */
#define ZKQ_MSG_RECORD(Record, field, it, Name, Path)                                                                  \
    {                                                                                                                  \
        ZKQ_MSG_KIND_RECORD, ZKQ_MSG_ANY_(Record, field), Name, it, 0, ZKQ_MSG_SIZE_(Record, field), Path              \
    }
/** A pointer to a record. */
#define ZKQ_MSG_RECORDPTR(Record, field, it, Name, Path)                                                               \
    {                                                                                                                  \
        ZKQ_MSG_KIND_RECORDPTR, ZKQ_MSG_POINTER_(Record, field), Name, it, 0, ZKQ_MSG_TARGET_(Record, field), Path     \
    }
/** An array of records. */
#define ZKQ_MSG_RECORDS(Record, field, count, it, Name, Path)                                                          \
    {                                                                                                                  \
        ZKQ_MSG_KIND_RECORDS, ZKQ_MSG_ANY_(Record, field), Name, it, ZKQ_MSG_COUNT_(Record, count),                    \
            ZKQ_MSG_TARGET_(Record, field), Path                                                                       \
    }
/** A pointer to records. */
#define ZKQ_MSG_RECORDSPTR(Record, field, count, it, Name, Path)                                                       \
    {                                                                                                                  \
        ZKQ_MSG_KIND_RECORDSPTR, ZKQ_MSG_POINTER_(Record, field), Name, it, ZKQ_MSG_COUNT_(Record, count),             \
            ZKQ_MSG_TARGET_(Record, field), Path                                                                       \
    }
/** A pointer to simple values, with the function of their item. */
#define ZKQ_MSG_VALUESPTR(Record, field, count, it, Name, Path)                                                        \
    {                                                                                                                  \
        ZKQ_MSG_KIND_VALUESPTR, ZKQ_MSG_POINTER_(Record, field), Name, it, ZKQ_MSG_COUNT_(Record, count),              \
            ZKQ_MSG_TARGET_(Record, field), Path                                                                       \
    }
/** @} */

/** Declares the function of a record's item ahead of its definition, for templates that refer to each other. */
#define ZKQ_MSG_DECLARE_ITEM(it) __attribute__((unused)) static const GENERAL_MSG_ITEM* it(void);

/** Defines the function of a record's item, private to its source file, over an array of templates. */
#define ZKQ_MSG_RECORD_ITEM(it, templates)                                                                             \
    __attribute__((unused)) static const GENERAL_MSG_ITEM* it(void)                                                    \
    {                                                                                                                  \
        static const GENERAL_MSG_ITEM item = {1, 0, templates, sizeof(templates) / sizeof((templates)[0]), 0, #it,     \
                                              0, 0, 0};                                                                \
        return &item;                                                                                                  \
    }

/** @} */

/**
 * @defgroup certificates Certificates
 *
 * A certificate is opened, asked, and closed. Nothing is verified: neither the signature nor the chain nor the dates.
 * Handles are independent of each other; one handle is used by one thread at a time.
 *
 * The functions return 0, `EINVAL` (22) for bad input or a bad argument, or `ENOMEM` (12) for want of memory or of room
 * in the caller's buffer.
 *
 * Texts come with their NUL, bytes without one. Where a function takes `Value` and `MaxSize`, `*MaxSize` is the room in
 * `Value` on entry and the length of the result on success, the NUL of a text counted; a null `Value` asks for the
 * length alone. A room that is too small fails with `ENOMEM` and changes neither.
 * @{
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

/** @} */

#ifdef __cplusplus
}
#endif

#endif
