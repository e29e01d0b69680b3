// DER by hand, right or wrong as a test wants it, and certificates of which each part can be replaced.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <sstream>
#include <string>
#include <vector>

namespace support::der {

/// Identifier octets of common elements.
enum Identifier : unsigned char {
    kBoolean = 0x01,
    kInteger = 0x02,
    kBitString = 0x03,
    kOctetString = 0x04,
    kNull = 0x05,
    kOid = 0x06,
    kUtf8String = 0x0C,
    kPrintableString = 0x13,
    kTeletexString = 0x14,
    kIa5String = 0x16,
    kUtcTime = 0x17,
    kGeneralizedTime = 0x18,
    kUniversalString = 0x1C,
    kBmpString = 0x1E,
    kSequence = 0x30,
    kSet = 0x31
};

inline std::string Length(size_t length)
{
    if (length < 0x80)
        return {static_cast<char>(length)};
    std::string bytes;
    for (; length > 0; length >>= 8)
        bytes.insert(bytes.begin(), static_cast<char>(length));
    return static_cast<char>(0x80 | bytes.size()) + bytes;
}

inline std::string Tlv(unsigned identifier, const std::string& content)
{
    return static_cast<char>(identifier) + Length(content.size()) + content;
}

inline std::string Sequence(const std::string& content)
{
    return Tlv(kSequence, content);
}

/// An explicit tag of the context.
inline std::string Explicit(unsigned number, const std::string& content)
{
    return Tlv(0xA0 | number, content);
}

/// A number of base 128.
inline std::string Base128(uint64_t number)
{
    std::string bytes(1, static_cast<char>(number & 0x7F));
    while ((number >>= 7) != 0)
        bytes.insert(bytes.begin(), static_cast<char>(0x80 | (number & 0x7F)));
    return bytes;
}

/// The content of an OID, from its text.
inline std::string OidContent(const std::string& text)
{
    std::istringstream in(text);
    uint64_t first = 0;
    uint64_t arc = 0;
    char point = 0;
    in >> first >> point >> arc;
    std::string content = Base128(first * 40 + arc);
    while (in >> point >> arc)
        content += Base128(arc);
    return content;
}

inline std::string Oid(const std::string& text)
{
    return Tlv(kOid, OidContent(text));
}

inline std::string Integer(const std::string& content)
{
    return Tlv(kInteger, content);
}

inline std::string BitString(const std::string& bits, char unused = 0)
{
    return Tlv(kBitString, unused + bits);
}

inline std::string Algorithm(const std::string& oid, const std::string& parameter = Tlv(kNull, ""))
{
    return Sequence(Oid(oid) + parameter);
}

/// A component of a name.
inline std::string Attribute(const std::string& oid, const std::string& value, unsigned identifier = kPrintableString)
{
    return Tlv(kSet, Sequence(Oid(oid) + Tlv(identifier, value)));
}

inline std::string Extension(const std::string& oid, const std::string& value, const std::string& critical = "")
{
    return Sequence(Oid(oid) + critical + Tlv(kOctetString, value));
}

inline const std::string kTrue = Tlv(kBoolean, "\xFF");
inline const std::string kFalse = Tlv(kBoolean, std::string(1, '\0'));

/// A certificate that is good as it is. Each member is the whole element, so that a test can put anything in its place.
struct Certificate {
    std::string version = Explicit(0, Integer("\x02"));
    std::string serial = Integer("\x01\x23");
    std::string algorithm = Algorithm("1.2.840.113549.1.1.11");
    std::string issuer = Sequence(Attribute("2.5.4.6", "CN") + Attribute("2.5.4.3", "Issuer"));
    std::string notBefore = Tlv(kUtcTime, "250102030405Z");
    std::string notAfter = Tlv(kUtcTime, "350102030405Z");
    std::string subject = Sequence(Attribute("2.5.4.3", "Subject"));
    std::string keyAlgorithm = Algorithm("1.2.840.113549.1.1.1");
    std::string key = BitString("the key");
    std::string uniqueIds;
    std::string extensions; ///< a list of extensions; with none there is no field
    std::string outerAlgorithm = Algorithm("1.2.840.113549.1.1.5");
    std::string signature = BitString("the signature");
    std::string behindKey; ///< in place of the field of extensions, whatever it is

    std::string ToBeSigned() const
    {
        return version + serial + algorithm + issuer + Sequence(notBefore + notAfter) + subject +
               Sequence(keyAlgorithm + key) + uniqueIds +
               (extensions.empty() ? behindKey : Explicit(3, Sequence(extensions)));
    }
    std::string Der() const { return Sequence(Sequence(ToBeSigned()) + outerAlgorithm + signature); }
};

} // namespace support::der
