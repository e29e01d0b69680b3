// A reader of DER elements, for certificates. Failures are logged where they are found and returned as errno values.
#pragma once

#include <stddef.h>

#include <span>

#include "x509.h"

using Bytes = std::span<const unsigned char>;

enum Asn1Class { kAsn1Universal = 0, kAsn1Context = 2 };
enum Asn1Tag {
    kAsn1EndOfContents = 0,
    kAsn1Boolean = 1,
    kAsn1Integer = 2,
    kAsn1BitString = 3,
    kAsn1OctetString = 4,
    kAsn1Oid = 6,
    kAsn1Utf8String = 12,
    kAsn1Sequence = 16,
    kAsn1Set = 17,
    kAsn1UtcTime = 23,
    kAsn1GeneralizedTime = 24,
    kAsn1BmpString = 30
};

/// Room for the text of an OID.
inline constexpr size_t kOidTextSize = 128;

/// An element.
struct Asn1Object {
    int tag;
    int tagClass;
    bool isConstructed;
    bool isIndefinite; ///< its content has no length of its own and runs to the end of what is around it
    Bytes content;

    bool Is(int expectedTag, int expectedClass = kAsn1Universal) const
    {
        return tag == expectedTag && tagClass == expectedClass;
    }
};

/// Reads the elements that follow each other in the content of another. The functions return 0 or an errno value.
class Asn1Reader {
public:
    explicit Asn1Reader(Bytes bytes) : left_(bytes) {}

    bool AtEnd() const { return left_.empty(); }
    /// The next element begins with this tag, which is below 31. Nothing is read.
    bool IsNext(int tag, int tagClass = kAsn1Universal) const;

    /// Reads any element but an end marker.
    int Next(Asn1Object* object);
    /// Reads an element that must have this tag.
    int Expect(int tag, int tagClass, Asn1Object* object);
    int Expect(int tag, Bytes* content);
    /// Reads an INTEGER, which must have content.
    int Integer(Bytes* content);
    /// Reads a BIT STRING; `bits` is what follows the number of unused bits.
    int BitString(Bytes* bits);
    /// Reads an OID as its text.
    int Oid(char (&text)[kOidTextSize]);

private:
    int Tag(Asn1Object* object);
    int Length(bool* isIndefinite, size_t* length);

    Bytes left_;
};

/// The dotted text of an OID; 0 or an errno value.
int General_OBJ_obj2txt(Bytes oid, char (&text)[kOidTextSize]);
