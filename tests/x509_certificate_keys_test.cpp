// Keys, signatures and extensions of certificates.
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include "support/certificate.h"
#include "support/der.h"

namespace {

using namespace support::der; // NOLINT: the tests are written in it
using support::ExpectRefused;
using support::IsAccepted;
using support::OpenedCertificate;

// --- keys and signatures ---

constexpr char kEcKey[] = "1.2.840.10045.2.1";
constexpr char kCurve[] = "1.2.840.10045.3.1.7";

TEST(CertificateKey, OfACurve)
{
    Certificate parts;
    parts.keyAlgorithm = Algorithm(kEcKey, Oid(kCurve));
    parts.key = BitString("\x04XXXXYYYY");
    const OpenedCertificate cert(parts.Der());
    EXPECT_EQ(cert.Text(5), kCurve);
    EXPECT_EQ(cert.Number(6), 8);
    EXPECT_EQ(cert.Field(8), "XXXXYYYY");
    EXPECT_EQ(cert.Number(9), 408);
    parts.key = BitString("XXXXYYYY");
    EXPECT_EQ(OpenedCertificate(parts.Der()).Field(8), "XXXXYYYY") << "an even length stays";
    parts.key = BitString("");
    EXPECT_EQ(OpenedCertificate(parts.Der()).Field(8), "");
    parts.keyAlgorithm = Algorithm(kEcKey, Sequence("parameters"));
    EXPECT_EQ(OpenedCertificate(parts.Der()).Text(5), kEcKey);
    parts.keyAlgorithm = Sequence(Oid(kEcKey));
    EXPECT_EQ(OpenedCertificate(parts.Der()).Text(5), kEcKey);
}

TEST(CertificateKey, OfAnythingElse)
{
    Certificate parts;
    parts.keyAlgorithm = Sequence(Oid("1.3.101.112"));
    parts.key = BitString("odd");
    const OpenedCertificate cert(parts.Der());
    EXPECT_EQ(cert.Text(5), "1.3.101.112");
    EXPECT_EQ(cert.Field(8), "odd") << "only a point has a first byte to drop";
    EXPECT_EQ(cert.Number(9), 408);
    parts.keyAlgorithm = Algorithm("1.2.840.113549.1.1.1", Oid("1.2.3"));
    EXPECT_EQ(OpenedCertificate(parts.Der()).Text(5), "1.2.3");
    EXPECT_EQ(OpenedCertificate(parts.Der()).Number(9), 6) << "the algorithm decides";
    parts.keyAlgorithm = Algorithm("1.2.840.113549.1.1.11");
    EXPECT_EQ(OpenedCertificate(parts.Der()).Number(9), 408);
}

TEST(CertificateKey, Malformed)
{
    for (const std::string& key : {Tlv(kBitString, ""), Tlv(kBitString, "\x08x"), Tlv(kBitString, "\xFFx"),
                                   Tlv(kOctetString, "key"), std::string()}) {
        Certificate parts;
        parts.key = key;
        ExpectRefused(parts.Der(), "key");
        parts = {};
        parts.signature = key;
        ExpectRefused(parts.Der(), "signature");
    }
    for (const std::string& parameter : {Tlv(kOid, ""), Tlv(kOid, "\x2A\x86"), std::string(2, '\0'),
                                         std::string("\x05"), Tlv(kOid, "\x2A" + std::string(63, '\x01'))}) {
        Certificate parts;
        parts.keyAlgorithm = Algorithm(kEcKey, parameter);
        ExpectRefused(parts.Der(), "parameter");
    }
    Certificate parts;
    parts.key = Tlv(kBitString, "\x07x");
    EXPECT_TRUE(IsAccepted(parts.Der()));
}

TEST(CertificateKey, AThousandAndTwentyFourBytesAndOneMore)
{
    const std::string longest(1024, 'k');
    Certificate parts;
    parts.key = BitString(longest);
    EXPECT_EQ(OpenedCertificate(parts.Der()).Field(8), longest);
    parts.key = BitString(longest + "k");
    ExpectRefused(parts.Der());
    parts.keyAlgorithm = Algorithm(kEcKey);
    EXPECT_EQ(OpenedCertificate(parts.Der()).Field(8), longest) << "the byte that is dropped takes no room";
    parts.key = BitString(longest + "kk");
    ExpectRefused(parts.Der());
    parts = {};
    parts.signature = BitString(longest);
    EXPECT_EQ(OpenedCertificate(parts.Der()).Field(11), longest);
    EXPECT_EQ(OpenedCertificate(parts.Der()).Number(10), 1024);
    parts.signature = BitString(longest + "k");
    ExpectRefused(parts.Der());
    parts.signature = BitString("");
    EXPECT_EQ(OpenedCertificate(parts.Der()).Field(11), "");
}

// --- extensions ---

/// What an extension is shown as; an error as its number.
std::string ShownExtension(const std::string& oid, const std::string& value)
{
    Certificate parts;
    parts.extensions = Extension(oid, value);
    const OpenedCertificate cert(parts.Der());
    char name[ZKQ_CERT_OID_SIZE] = "";
    int critical = -1;
    int size = 77;
    const int error = ZKQGeneral_CertInfo_GetExtInfo(cert.Get(), 0, name, &critical, nullptr, &size);
    EXPECT_EQ(name, oid) << "told in any case";
    EXPECT_EQ(critical, 0);
    if (error != 0) {
        EXPECT_EQ(size, 77);
        return std::to_string(error);
    }
    return cert.ExtensionAt(0).value;
}

constexpr char kKeyUsage[] = "2.5.29.15";
constexpr char kBasicConstraints[] = "2.5.29.19";
constexpr char kHex[] = "1.2.86.21.1.1";

std::string Text(const std::string& text)
{
    return text + '\0';
}

TEST(CertificateExtension, KeyUsage)
{
    const auto usage = [](const std::string& value) { return ShownExtension(kKeyUsage, value); };
    EXPECT_EQ(usage("\x03\x02\x05\xA0"), Text("Digital Signature, Key Encipherment"));
    const char* const names[] = {"Digital Signature", "Non Repudiation",  "Key Encipherment", "Data Encipherment",
                                 "Key Agreement",     "Certificate Sign", "CRL Sign",         "Encipher Only"};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(usage(std::string("\x03\x02\x00", 3) + static_cast<char>(0x80 >> i)), Text(names[i]));
    EXPECT_EQ(usage(std::string("\x03\x03\x07\x00\x80", 5)), Text("Decipher Only"));
    EXPECT_EQ(usage("\x03\x03\x07\xFF\xFF"),
              Text("Digital Signature, Non Repudiation, Key Encipherment, Data Encipherment, Key Agreement, "
                   "Certificate Sign, CRL Sign, Encipher Only, Decipher Only"));
    EXPECT_EQ(usage("\x03\x02\x05\xFF"), Text("Digital Signature, Non Repudiation, Key Encipherment"))
        << "bits that are not used";
    EXPECT_EQ(usage("\x03\x02\x07\x7F"), Text(""));
    EXPECT_EQ(usage(std::string("\x03\x02\x00\x00", 4)), Text(""));
    EXPECT_EQ(usage(std::string("\x03\x04\x07\x00\xFF\xFF", 6)), Text("Decipher Only")) << "more bits have no name";
    EXPECT_EQ(usage("\x03\x7F\x07\x80" + std::string(125, '\x01')), Text("Digital Signature"));
}

TEST(CertificateExtension, KeyUsageThatIsNone)
{
    const auto usage = [](const std::string& value) { return ShownExtension(kKeyUsage, value); };
    EXPECT_EQ(usage(""), "22");
    EXPECT_EQ(usage("\x04\x02\x05\xA0"), "22") << "another type";
    EXPECT_EQ(usage("\x03"), "22");
    EXPECT_EQ(usage("\x03\x01"), "22");
    EXPECT_EQ(usage(std::string("\x03\x01\x00", 3)), "22") << "no byte of bits";
    EXPECT_EQ(usage("\x03\x03\x05\xA0"), "22") << "the length is another";
    EXPECT_EQ(usage("\x03\x01\x05\xA0"), "22");
    EXPECT_EQ(usage("\x03\x02\x05\xA0\x01"), "22") << "something follows";
    EXPECT_EQ(usage("\x03\x02\x08\xA0"), "22") << "eight unused bits";
    EXPECT_EQ(usage("\x03\x02\xFF\xA0"), "22");
    EXPECT_EQ(usage("\x03\x81\x02\x05\xA0"), "22") << "the long form of the length";
    EXPECT_EQ(usage("\x03\x80\x05" + std::string(127, '\x01')), "22") << "130 bytes: 128 is no length in one byte";
}

TEST(CertificateExtension, BasicConstraints)
{
    const auto constraints = [](const std::string& value) { return ShownExtension(kBasicConstraints, value); };
    const std::string zero(1, '\0');
    EXPECT_EQ(constraints("\x30" + zero), Text("CA:FALSE"));
    EXPECT_EQ(constraints("\x30\x06\x01\x01\xFF\x02\x01" + zero), Text("CA:TRUE, pathlen:0"));
    EXPECT_EQ(constraints("\x30\x03\x01\x01\xFF"), Text("CA:TRUE"));
    EXPECT_EQ(constraints("\x30\x03\x01\x01\x01"), Text("CA:TRUE"));
    EXPECT_EQ(constraints("\x30\x03\x01\x01" + zero), Text("CA:FALSE"));
    EXPECT_EQ(constraints(Sequence(kFalse + Integer("\x05"))), Text("CA:FALSE, pathlen:5"));
    EXPECT_EQ(constraints(Sequence(kTrue + Integer("\xFF"))), Text("CA:TRUE, pathlen:255"));
    EXPECT_EQ(constraints(Sequence(kTrue + Integer("\x01\x02"))), Text("CA:TRUE, pathlen:1")) << "the first byte";
    EXPECT_EQ(constraints(Sequence(kTrue + Integer("\x01") + "behind") + "behind"), Text("CA:TRUE, pathlen:1"));
    for (const std::string& bad :
         {std::string(), Sequence(Integer("\x01")), Tlv(kSet, ""), Sequence(Tlv(kBoolean, "")),
          Sequence(kTrue + Integer("")), Sequence(kTrue + kTrue), Sequence(Tlv(kNull, "")), std::string("\x30"),
          std::string("\x30\x05\x01\x01\xFF"), std::string("\x30\x03\x01\x02\xFF")})
        EXPECT_EQ(constraints(bad), "22");
}

TEST(CertificateExtension, Hexadecimal)
{
    EXPECT_EQ(ShownExtension(kHex, std::string("\0\x0F\xA5\xFF", 4)), Text("00 0f a5 ff "));
    EXPECT_EQ(ShownExtension(kHex, ""), Text(""));
    const std::string large(1000000, '\x42');
    const std::string shown = ShownExtension(kHex, large);
    EXPECT_EQ(shown.size(), 3000001u);
    EXPECT_EQ(shown.substr(2999997), "42 " + std::string(1, '\0'));
}

TEST(CertificateExtension, BytesOfEverythingElse)
{
    const std::string bytes = std::string("\x03\x02\x05\xA0\0\0", 6);
    EXPECT_EQ(ShownExtension("2.5.29.14", bytes), bytes);
    EXPECT_EQ(ShownExtension("2.5.29.150", bytes), bytes);
    EXPECT_EQ(ShownExtension("1.2.86.21.1", bytes), bytes);
    EXPECT_EQ(ShownExtension("2.5.29.14", ""), "");
    const std::string large(1000000, 'e');
    EXPECT_EQ(ShownExtension("2.5.29.14", large), large);
}

TEST(CertificateExtension, Criticality)
{
    Certificate parts;
    parts.extensions = Extension("1.2.3", "a", kTrue) + Extension("1.2.3", "b", kFalse) + Extension("1.2.3", "c") +
                       Extension("1.2.3", "d", Tlv(kBoolean, "\x01"));
    const OpenedCertificate cert(parts.Der());
    ASSERT_EQ(cert.ExtensionCount(), 4);
    EXPECT_EQ(cert.ExtensionAt(0).critical, 1);
    EXPECT_EQ(cert.ExtensionAt(1).critical, 0);
    EXPECT_EQ(cert.ExtensionAt(2).critical, 0);
    EXPECT_EQ(cert.ExtensionAt(3).critical, 1);
    EXPECT_EQ(cert.ExtensionAt(3).value, "d");
}

TEST(CertificateExtension, MayBeAbsent)
{
    Certificate parts;
    EXPECT_EQ(OpenedCertificate(parts.Der()).ExtensionCount(), 0);
    parts.behindKey = Explicit(3, Sequence(""));
    EXPECT_EQ(OpenedCertificate(parts.Der()).ExtensionCount(), 0);
    const OpenedCertificate cert(parts.Der());
    char oid[ZKQ_CERT_OID_SIZE];
    int size = 0;
    EXPECT_EQ(ZKQGeneral_CertInfo_GetExtInfo(cert.Get(), 0, oid, nullptr, nullptr, &size), EINVAL);
}

TEST(CertificateExtension, UniqueIdentifiersArePassedOver)
{
    for (const std::string& ids :
         {Tlv(0x81, "id"), Tlv(0x82, "id"), Tlv(0x81, "") + Tlv(0x82, ""), Tlv(0xA1, "i") + Tlv(0xA2, "i")}) {
        Certificate parts;
        parts.uniqueIds = ids;
        EXPECT_EQ(OpenedCertificate(parts.Der()).ExtensionCount(), 0);
        parts.extensions = Extension("1.2.3", "x");
        EXPECT_EQ(OpenedCertificate(parts.Der()).ExtensionCount(), 1);
    }
    for (const std::string& bad : {Tlv(0x82, "") + Tlv(0x81, ""), Tlv(0x81, "") + Tlv(0x81, ""), Tlv(0x84, ""),
                                   Sequence(""), std::string("\x81\x05"), std::string(2, '\0')}) {
        Certificate parts;
        parts.behindKey = bad;
        ExpectRefused(parts.Der());
    }
}

TEST(CertificateExtension, Malformed)
{
    const std::string good = Extension("1.2.3", "x");
    for (const std::string& bad :
         {Sequence(""), Sequence(Oid("1.2.3")), Sequence(Oid("1.2.3") + kTrue), Sequence(Tlv(kOctetString, "x")),
          Sequence(Oid("1.2.3") + Tlv(kIa5String, "x")), Sequence(Oid("1.2.3") + Tlv(kBoolean, "") + Tlv(4, "x")),
          Sequence(Oid("1.2.3") + kTrue + kTrue + Tlv(kOctetString, "x")), Tlv(kSet, ""), std::string(2, '\0'),
          Sequence(Tlv(kOid, "") + Tlv(kOctetString, "x")), std::string("\x30\x7F"), std::string("\x30")}) {
        Certificate parts;
        parts.extensions = good + bad;
        ExpectRefused(parts.Der());
    }
    for (const std::string& field :
         {Explicit(3, ""), Explicit(3, Tlv(kSet, "")), Tlv(0xA0, Sequence("")), Tlv(0x63, "")}) {
        Certificate parts;
        parts.behindKey = field;
        ExpectRefused(parts.Der());
    }
}

TEST(CertificateExtension, ThirtyTwoAndOneMore)
{
    Certificate parts;
    for (int i = 0; i < 32; ++i)
        parts.extensions += Extension("1.2.3", std::to_string(i));
    {
        const OpenedCertificate cert(parts.Der());
        ASSERT_EQ(cert.ExtensionCount(), 32);
        EXPECT_EQ(cert.ExtensionAt(31).value, "31");
    }
    parts.extensions += Extension("1.2.3", "32");
    ExpectRefused(parts.Der());
}

TEST(CertificateExtension, Queries)
{
    Certificate parts;
    parts.extensions = Extension("1.2.3", "value", kTrue);
    const OpenedCertificate cert(parts.Der());
    char oid[ZKQ_CERT_OID_SIZE] = "none";
    int critical = -1;
    int size = 9;
    for (const int index : {-1, 1, INT_MAX, INT_MIN})
        EXPECT_EQ(ZKQGeneral_CertInfo_GetExtInfo(cert.Get(), index, oid, &critical, nullptr, &size), EINVAL);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetExtInfo(cert.Get(), 0, nullptr, &critical, nullptr, &size), EINVAL);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetExtInfo(cert.Get(), 0, oid, &critical, nullptr, nullptr), EINVAL);
    EXPECT_STREQ(oid, "none");
    EXPECT_EQ(critical, -1);
    EXPECT_EQ(size, 9);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetExtInfo(cert.Get(), 0, oid, nullptr, nullptr, &size), 0);
    EXPECT_STREQ(oid, "1.2.3");
    EXPECT_EQ(size, 5);
}

} // namespace
