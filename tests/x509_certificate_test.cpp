// Certificates: the forms they come in, what each query tells, and what it refuses. Certificates are built by hand, so
// that every byte is known; x509_openssl_test.cpp asks another reader about real ones.
#include <ZKQ_general/base64.h>
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <thread>

#include "support/bare_iconv.h"
#include "support/buffer.h"
#include "support/certificate.h"
#include "support/der.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/temp_dir.h"

namespace {

using namespace support::der; // NOLINT: the tests are written in it
using support::Buffer;
using support::OpenCertificate;
using support::OpenedCertificate;
using Component = OpenedCertificate::Component;
using Components = std::vector<Component>;

char g_sentinel;

/// A certificate that must be refused; the handle stays as it was.
void ExpectRefused(const std::string& bytes, const char* what = "")
{
    void* ctx = &g_sentinel;
    support::MarkErrorText();
    EXPECT_EQ(OpenCertificate(bytes, &ctx), EINVAL) << what;
    EXPECT_EQ(ctx, &g_sentinel) << what;
    EXPECT_TRUE(support::ErrorTextIsMarked()) << what;
}

bool IsAccepted(const std::string& bytes)
{
    void* ctx = nullptr;
    const int result = OpenCertificate(bytes, &ctx);
    EXPECT_EQ(result == 0, ctx != nullptr);
    EXPECT_TRUE(result == 0 || result == EINVAL) << result;
    if (ctx != nullptr) {
        EXPECT_EQ(ZKQGeneral_CloseCert(ctx), 0);
    }
    return result == 0;
}

std::string Base64(const std::string& bytes, int columns = 64)
{
    char* text = nullptr;
    EXPECT_TRUE(ZKQGeneral_ConvertToBase64Ex(reinterpret_cast<const unsigned char*>(bytes.data()),
                                             static_cast<int>(bytes.size()), &text, columns));
    const std::string result = text;
    ZKQGeneral_FreeMallocBuffer(text);
    return result;
}

constexpr char kBegin[] = "-----BEGIN CERTIFICATE-----";
constexpr char kEnd[] = "-----END CERTIFICATE-----";

std::string Pem(const std::string& bytes)
{
    return std::string(kBegin) + "\n" + Base64(bytes) + "\n" + kEnd + "\n";
}

std::string Gbk(const std::string& utf8)
{
    return support::BareIconv("GBK", "UTF-8")(utf8).bytes;
}

// --- what a certificate tells ---

TEST(Certificate, EachField)
{
    Certificate parts;
    parts.extensions = Extension("2.5.29.14", "\x04\x01k") + Extension("2.5.29.17", "names", kTrue);
    const OpenedCertificate cert(parts.Der());
    EXPECT_EQ(cert.Number(1), 2);
    EXPECT_EQ(cert.Text(2), "0123");
    EXPECT_EQ(cert.Text(3), "2025-01-02 11:04:05");
    EXPECT_EQ(cert.Text(4), "2035-01-02 11:04:05");
    EXPECT_EQ(cert.Text(5), "1.2.840.113549.1.1.1");
    EXPECT_EQ(cert.Number(6), 7);
    EXPECT_EQ(cert.Text(7), "1.2.840.113549.1.1.5") << "that of the signature, not the one that is signed";
    EXPECT_EQ(cert.Field(8), "the key");
    EXPECT_EQ(cert.Number(9), 6);
    EXPECT_EQ(cert.Number(10), 13);
    EXPECT_EQ(cert.Field(11), "the signature");
    EXPECT_EQ(cert.Field(19), Attribute("2.5.4.3", "Subject"));
    EXPECT_EQ(cert.Field(20), Attribute("2.5.4.6", "CN") + Attribute("2.5.4.3", "Issuer"));
    EXPECT_EQ(cert.Name(true), (Components{{"2.5.4.3", "Subject"}}));
    EXPECT_EQ(cert.Name(false), (Components{{"2.5.4.6", "CN"}, {"2.5.4.3", "Issuer"}}));
    ASSERT_EQ(cert.ExtensionCount(), 2);
    EXPECT_EQ(cert.ExtensionAt(0).oid, "2.5.29.14");
    EXPECT_EQ(cert.ExtensionAt(0).critical, 0);
    EXPECT_EQ(cert.ExtensionAt(0).value, "\x04\x01k");
    EXPECT_EQ(cert.ExtensionAt(1).oid, "2.5.29.17");
    EXPECT_EQ(cert.ExtensionAt(1).critical, 1);
    EXPECT_EQ(cert.ExtensionAt(1).value, "names");
}

TEST(Certificate, TheNamesOfTheFields)
{
    EXPECT_EQ(ZKQ_CERT_VERSION, 1);
    EXPECT_EQ(ZKQ_CERT_SERIAL, 2);
    EXPECT_EQ(ZKQ_CERT_NOT_BEFORE, 3);
    EXPECT_EQ(ZKQ_CERT_NOT_AFTER, 4);
    EXPECT_EQ(ZKQ_CERT_KEY_ALGORITHM, 5);
    EXPECT_EQ(ZKQ_CERT_KEY_LENGTH, 6);
    EXPECT_EQ(ZKQ_CERT_SIGN_ALGORITHM, 7);
    EXPECT_EQ(ZKQ_CERT_KEY, 8);
    EXPECT_EQ(ZKQ_CERT_KEY_TYPE, 9);
    EXPECT_EQ(ZKQ_CERT_SIGNATURE_LENGTH, 10);
    EXPECT_EQ(ZKQ_CERT_SIGNATURE, 11);
    EXPECT_EQ(ZKQ_CERT_SUBJECT, 19);
    EXPECT_EQ(ZKQ_CERT_ISSUER, 20);
    EXPECT_EQ(ZKQ_CERT_KEY_TYPE_RSA, 6);
    EXPECT_EQ(ZKQ_CERT_KEY_TYPE_EC, 408);
    EXPECT_EQ(ZKQ_CERT_OID_SIZE, 128);
}

TEST(Certificate, UnknownFields)
{
    const OpenedCertificate cert(Certificate().Der());
    for (const int index : {0, -1, 12, 13, 18, 21, INT_MAX, INT_MIN}) {
        int size = 77;
        char room[4] = "abc";
        EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(cert.Get(), index, room, &size), EINVAL) << index;
        EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(cert.Get(), index, nullptr, &size), EINVAL) << index;
        EXPECT_EQ(size, 77);
        EXPECT_STREQ(room, "abc");
    }
}

TEST(Certificate, NumbersNeedNoRoom)
{
    const OpenedCertificate cert(Certificate().Der());
    for (const int index : {1, 6, 9, 10}) {
        int size = -5;
        Buffer room(8);
        EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(cert.Get(), index, room.Data(), &size), 0) << index;
        EXPECT_GE(size, 0);
        EXPECT_TRUE(room.Untouched());
    }
}

TEST(Certificate, ABufferLargerThanNeeded)
{
    const OpenedCertificate cert(Certificate().Der());
    Buffer room(100);
    int size = 100;
    EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(cert.Get(), ZKQ_CERT_SERIAL, room.Data(), &size), 0);
    EXPECT_EQ(size, 5);
    EXPECT_EQ(room.Text(), "0123");
    EXPECT_EQ(room.Bytes()[5], Buffer::kFill);
    size = -1;
    EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(cert.Get(), ZKQ_CERT_SERIAL, room.Data(), &size), ENOMEM);
    EXPECT_EQ(size, -1);
}

TEST(Certificate, Versions)
{
    Certificate parts;
    parts.version = Explicit(0, Integer(std::string(1, '\0')));
    EXPECT_EQ(OpenedCertificate(parts.Der()).Number(1), 0);
    parts.version = Explicit(0, Integer("\xFE\x01"));
    EXPECT_EQ(OpenedCertificate(parts.Der()).Number(1), 0xFE) << "the first byte as it is";
    for (const std::string& bad : {std::string(), Explicit(0, ""), Explicit(0, Integer("")), Integer("\x02"),
                                   Explicit(1, Integer("\x02")), Explicit(0, Tlv(kBoolean, "\x02"))}) {
        parts.version = bad;
        ExpectRefused(parts.Der(), "version");
    }
}

TEST(Certificate, SerialNumbers)
{
    Certificate parts;
    parts.serial = Integer(std::string("\0\xAB\xCD\xEF\x90", 5));
    EXPECT_EQ(OpenedCertificate(parts.Der()).Text(2), "00ABCDEF90");
    std::string long_number(100000, '\x7F');
    parts.serial = Integer(long_number);
    const std::string text = OpenedCertificate(parts.Der()).Text(2);
    EXPECT_EQ(text.size(), 200000u);
    EXPECT_EQ(text.find_first_not_of("7F"), std::string::npos);
    parts.serial = Integer("");
    ExpectRefused(parts.Der());
}

// --- the forms ---

TEST(CertificateForm, DerPemAndBase64)
{
    const std::string der = Certificate().Der();
    EXPECT_TRUE(IsAccepted(der));
    EXPECT_TRUE(IsAccepted(Pem(der)));
    EXPECT_TRUE(IsAccepted(Base64(der)));
    EXPECT_TRUE(IsAccepted(Base64(der, 0)));
    EXPECT_TRUE(IsAccepted("\r\n " + Base64(der))) << "breaks are skipped";
    EXPECT_TRUE(IsAccepted(der + "what follows")) << "behind the certificate";
    EXPECT_TRUE(IsAccepted(Base64(der) + std::string("\0!!", 3))) << "a text ends at its NUL";
}

TEST(CertificateForm, PemMarkers)
{
    const std::string der = Certificate().Der();
    const std::string base64 = Base64(der);
    const std::string begin = kBegin;
    const std::string end = kEnd;
    EXPECT_TRUE(IsAccepted("- a comment\nand another\n" + Pem(der) + "and more")) << "lines before the marker";
    EXPECT_TRUE(IsAccepted(begin + base64)) << "no end";
    EXPECT_TRUE(IsAccepted(Pem(der) + "-----BEGIN CERTIFICATE-----\n!!" + end)) << "the first of several";
    ExpectRefused("-" + base64, "decoded from the first character, which is none of the alphabet");
    ExpectRefused(end + "\n" + Pem(der), "the end is cut before the beginning is looked for");
    ExpectRefused(begin + end, "nothing");
    ExpectRefused(end, "nothing at all");
    ExpectRefused("Bag Attributes\n" + Pem(der), "no \"-\" at the start");
    const std::string unpadded = Base64(der + std::string(3 - der.size() % 3, 'x'));
    EXPECT_TRUE(IsAccepted(begin + unpadded));
    ExpectRefused(begin + unpadded + "\n-----END SOMETHING-----", "another end does not end it");
    ExpectRefused("-----BEGIN X509 CERTIFICATE-----\n" + base64 + end, "another marker");
}

TEST(CertificateForm, NotBase64)
{
    for (const char* text : {"!", "M", "MII", "MIIC*", "\xFF", "{\"json\":1}", "==="})
        ExpectRefused(text, text);
    ExpectRefused("MIIC", "no certificate");
    ExpectRefused(std::string(1, '\0'), "no text");
}

TEST(CertificateForm, Files)
{
    const support::TempDir dir;
    const std::string der = Certificate().Der();
    const std::string path = dir.File("c");
    for (const std::string& content : {der, Pem(der), Base64(der)}) {
        support::WriteFile(path, content);
        void* ctx = nullptr;
        ASSERT_EQ(ZKQGeneral_OpenCert(path.c_str(), 0, &ctx), 0);
        const OpenedCertificate cert(ctx);
        EXPECT_EQ(cert.Text(2), "0123");
    }
    for (const std::string& content : {std::string(), std::string("-"), std::string("0"), der.substr(0, 20)}) {
        support::WriteFile(path, content);
        void* ctx = &g_sentinel;
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_OpenCert(path.c_str(), 0, &ctx), EINVAL);
        EXPECT_EQ(ctx, &g_sentinel);
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }
    for (const std::string& none : {dir.File("none"), dir.Path(), std::string(), std::string(5000, 'x')}) {
        void* ctx = &g_sentinel;
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_OpenCert(none.c_str(), 0, &ctx), EINVAL);
        EXPECT_EQ(ctx, &g_sentinel);
        EXPECT_TRUE(support::ErrorTextIsMarked()) << "also by the reading of a file";
    }
}

// --- names ---

std::string NameValue(const std::string& value, unsigned identifier)
{
    Certificate parts;
    parts.subject = Sequence(Attribute("2.5.4.10", value, identifier));
    const OpenedCertificate cert(parts.Der());
    const Components name = cert.Name(true);
    EXPECT_EQ(name.size(), 1u);
    EXPECT_EQ(name.at(0).first, "2.5.4.10");
    return name.at(0).second;
}

bool NameIsAccepted(const std::string& value, unsigned identifier)
{
    Certificate parts;
    parts.issuer = Sequence(Attribute("2.5.4.10", value, identifier));
    return IsAccepted(parts.Der());
}

TEST(CertificateName, Utf8IsConverted)
{
    EXPECT_EQ(NameValue("Root CA", kUtf8String), "Root CA");
    EXPECT_EQ(NameValue("中国 é", kUtf8String), Gbk("中国 é"));
    EXPECT_EQ(NameValue("", kUtf8String), "");
    EXPECT_FALSE(NameIsAccepted("\xE4\xB8", kUtf8String)) << "cut off";
    EXPECT_FALSE(NameIsAccepted("\xFF", kUtf8String));
    EXPECT_FALSE(NameIsAccepted("ğ", kUtf8String)) << "not in the code page";
}

TEST(CertificateName, BmpIsConverted)
{
    EXPECT_EQ(NameValue(std::string("\0R\0o\0o\0t", 8), kBmpString), "Root");
    EXPECT_EQ(NameValue("\x4E\x2D\x56\xFD", kBmpString), Gbk("中国"));
    EXPECT_EQ(NameValue("", kBmpString), "");
    EXPECT_FALSE(NameIsAccepted(std::string("\0R\0", 3), kBmpString)) << "an odd length";
    EXPECT_FALSE(NameIsAccepted("\x01\x1F", kBmpString)) << "not in the code page";
}

TEST(CertificateName, EverythingElseIsCopied)
{
    for (const unsigned identifier : {0x13, 0x14, 0x16, 0x1C, 0x12, 0x04, 0x05, 0x8C, 0x9E, 0x4C})
        EXPECT_EQ(NameValue("J\xFCrgen\xFF", identifier), "J\xFCrgen\xFF") << identifier;
    EXPECT_EQ(NameValue("", kPrintableString), "");
    EXPECT_EQ(NameValue(std::string("good\0evil", 9), kIa5String), "good") << "the record holds a text";
    const std::string large(300000, 'n');
    EXPECT_EQ(NameValue(large, kPrintableString), large);
}

TEST(CertificateName, AnEmptyNameIsAName)
{
    Certificate parts;
    parts.subject = Sequence("");
    const OpenedCertificate cert(parts.Der());
    EXPECT_EQ(cert.Name(true), Components());
    EXPECT_EQ(cert.Field(ZKQ_CERT_SUBJECT), "");
}

TEST(CertificateName, OneAttributeOfASetIsRead)
{
    const auto attribute = [](const std::string& oid, const std::string& value) {
        return Sequence(Oid(oid) + Tlv(kPrintableString, value));
    };
    Certificate parts;
    parts.subject = Sequence(Tlv(kSet, attribute("2.5.4.3", "a") + attribute("2.5.4.4", "b")) +
                             Tlv(kSet, attribute("2.5.4.5", "c") + "\xFF\xFF"));
    EXPECT_EQ(OpenedCertificate(parts.Der()).Name(true), (Components{{"2.5.4.3", "a"}, {"2.5.4.5", "c"}}));
}

TEST(CertificateName, Malformed)
{
    const std::string good = Attribute("2.5.4.3", "x");
    const std::string bad[] = {
        Tlv(kSet, ""),                                                     // no attribute
        Tlv(kSet, Oid("2.5.4.3")),                                         // no SEQUENCE
        Sequence(Sequence(Oid("2.5.4.3") + Tlv(kPrintableString, "x"))),   // no SET
        Tlv(kSet, Sequence("")),                                           // no OID
        Tlv(kSet, Sequence(Oid("2.5.4.3"))),                               // no value
        Tlv(kSet, Sequence(Tlv(kPrintableString, "x") + Oid("2.5.4.3"))),  // the other way round
        Tlv(kSet, Sequence(Tlv(kOid, "") + Tlv(kPrintableString, "x"))),   // an empty OID
        Tlv(kSet, Sequence(Tlv(kOid, "\x55\x84") + Tlv(kIa5String, "x"))), // an OID that does not end
        Tlv(kSet, Sequence(Oid("2.5.4.3") + "\x13\x05" + "abcd")),         // a value past the end
        std::string(2, '\0'),                                              // an end marker
        Tlv(kSet, Sequence(Oid("2.5.4.3") + std::string(2, '\0'))),        // in place of the value
    };
    for (const std::string& name : bad) {
        for (const bool isSubject : {false, true}) {
            Certificate parts;
            (isSubject ? parts.subject : parts.issuer) = Sequence(good + name);
            ExpectRefused(parts.Der(), name.c_str());
        }
    }
    Certificate parts;
    parts.issuer = Tlv(kSet, "");
    ExpectRefused(parts.Der());
}

TEST(CertificateName, ThirtyTwoComponentsAndOneMore)
{
    std::string name;
    for (int i = 0; i < 32; ++i)
        name += Attribute("2.5.4.11", std::to_string(i));
    for (const bool isSubject : {false, true}) {
        Certificate parts;
        std::string& field = isSubject ? parts.subject : parts.issuer;
        field = Sequence(name);
        const OpenedCertificate cert(parts.Der());
        const Components read = cert.Name(isSubject);
        ASSERT_EQ(read.size(), 32u);
        EXPECT_EQ(read[31], Component("2.5.4.11", "31"));
        field = Sequence(name + Attribute("2.5.4.11", "32"));
        ExpectRefused(parts.Der());
    }
}

TEST(CertificateName, Queries)
{
    const OpenedCertificate cert(Certificate().Der());
    char oid[ZKQ_CERT_OID_SIZE] = "none";
    int size = 50;
    for (const int index : {-1, 1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), 1, index, oid, nullptr, &size), EINVAL);
        EXPECT_STREQ(oid, "none");
        EXPECT_EQ(size, 50);
    }
    EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), 0, 2, oid, nullptr, &size), EINVAL);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), 0, 1, oid, nullptr, &size), 0) << "the issuer has two";
    EXPECT_STREQ(oid, "2.5.4.3");
    EXPECT_EQ(size, 7);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), -3, 0, oid, nullptr, &size), 0)
        << "any number but 0 is the subject";
    EXPECT_EQ(size, 8);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), 0, 0, nullptr, nullptr, &size), EINVAL);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), 0, 0, oid, nullptr, nullptr), EINVAL);
    // The type is told also when the value finds no room.
    char room[2];
    size = 2;
    EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), 0, 0, oid, room, &size), ENOMEM);
    EXPECT_STREQ(oid, "2.5.4.6");
    EXPECT_EQ(size, 2);
}

// --- OIDs ---

std::string TypeOf(const std::string& oidContent)
{
    Certificate parts;
    parts.subject = Sequence(Tlv(kSet, Sequence(Tlv(kOid, oidContent) + Tlv(kPrintableString, "x"))));
    void* ctx = nullptr;
    if (OpenCertificate(parts.Der(), &ctx) != 0)
        return "(refused)";
    return OpenedCertificate(ctx).Name(true).at(0).first;
}

TEST(CertificateOid, Arcs)
{
    EXPECT_EQ(TypeOf(std::string(1, '\0')), "0.0");
    EXPECT_EQ(TypeOf("\x27"), "0.39");
    EXPECT_EQ(TypeOf("\x28"), "1.0");
    EXPECT_EQ(TypeOf("\x4F"), "1.39");
    EXPECT_EQ(TypeOf("\x50"), "2.0");
    EXPECT_EQ(TypeOf("\x7F"), "2.47");
    EXPECT_EQ(TypeOf("\x81\x34"), "2.100") << "X.690's example";
    EXPECT_EQ(TypeOf("\x88\x37\x03"), "2.999.3");
    EXPECT_EQ(TypeOf(std::string("\x55\x04\x00", 3)), "2.5.4.0");
    EXPECT_EQ(TypeOf("\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01"), "1.2.840.113549.1.1.1");
    EXPECT_EQ(TypeOf("\x55" + Base128(UINT64_MAX)), "2.5.18446744073709551615");
    EXPECT_EQ(TypeOf("\x55\x80\x01"), "2.5.1") << "zeros in front";
    EXPECT_EQ(TypeOf(Base128(UINT64_MAX)), "2.18446744073709551535");
}

TEST(CertificateOid, Malformed)
{
    EXPECT_EQ(TypeOf(""), "(refused)");
    EXPECT_EQ(TypeOf("\x80"), "(refused)");
    EXPECT_EQ(TypeOf("\x55\x04\x83"), "(refused)");
    EXPECT_EQ(TypeOf(std::string("\x55\x82\x80\x80\x80\x80\x80\x80\x80\x80\x00", 11)), "(refused)") << "2 to the 64th";
}

TEST(CertificateOid, AsManyCharactersAsFit)
{
    // "1.2" and ".1" for each byte: an odd number of characters; arcs of two digits make it even.
    const std::string fits = "\x2A" + std::string(62, '\x01');
    EXPECT_EQ(TypeOf(fits).size(), 127u);
    EXPECT_EQ(TypeOf("\x2A" + std::string(61, '\x01') + "\x0A"), "(refused)") << "128 characters";
    EXPECT_EQ(TypeOf("\x2A" + std::string(60, '\x01') + "\x64").size(), 127u);
    EXPECT_EQ(TypeOf("\x2A" + std::string(60, '\x01') + "\x0A" + "\x01"), "(refused)") << "the last arc by a character";
    EXPECT_EQ(TypeOf(fits + "\x01"), "(refused)") << "129";
    EXPECT_EQ(TypeOf("\x2A" + std::string(100000, '\x01')), "(refused)");
    for (int i = 0; i < 20; ++i) // wherever the end of the room falls
        EXPECT_EQ(TypeOf("\x2A" + std::string(static_cast<size_t>(40 + i), '\x01') + Base128(UINT64_MAX)).size() <= 127,
                  true);
}

TEST(CertificateOid, InEachOfItsPlaces)
{
    const std::string longest = Sequence(Tlv(kOid, "\x2A" + std::string(62, '\x01')));
    const std::string tooLong = Sequence(Tlv(kOid, "\x2A" + std::string(63, '\x01')));
    std::string Certificate::*const places[] = {&Certificate::algorithm, &Certificate::keyAlgorithm,
                                                &Certificate::outerAlgorithm};
    for (const auto place : places) {
        Certificate parts;
        parts.*place = longest;
        EXPECT_TRUE(IsAccepted(parts.Der()));
        parts.*place = tooLong;
        ExpectRefused(parts.Der());
        parts.*place = Sequence("");
        ExpectRefused(parts.Der());
        parts.*place = Sequence(Tlv(kNull, ""));
        ExpectRefused(parts.Der());
    }
}

// --- times ---

std::string Shown(const std::string& time, unsigned identifier = kUtcTime)
{
    Certificate parts;
    parts.notAfter = Tlv(identifier, time);
    void* ctx = nullptr;
    if (OpenCertificate(parts.Der(), &ctx) != 0)
        return "(refused)";
    return OpenedCertificate(ctx).Text(ZKQ_CERT_NOT_AFTER);
}

TEST(CertificateTime, UtcTime)
{
    EXPECT_EQ(Shown("491231235959Z"), "2050-01-01 07:59:59");
    EXPECT_EQ(Shown("500101000000Z"), "1950-01-01 08:00:00");
    EXPECT_EQ(Shown("000101000000Z"), "2000-01-01 08:00:00");
    EXPECT_EQ(Shown("991231235959Z"), "2000-01-01 07:59:59");
    EXPECT_EQ(Shown("240228160000Z"), "2024-02-29 00:00:00") << "a leap year";
    EXPECT_EQ(Shown("230228160000Z"), "2023-03-01 00:00:00");
    EXPECT_EQ(Shown("691231155959Z"), "1969-12-31 23:59:59") << "the last second before the epoch";
    EXPECT_EQ(Shown("700101000000Z"), "1970-01-01 08:00:00");
    EXPECT_EQ(Shown("691231235959Z"), "1970-01-01 07:59:59") << "-1 is a time";
}

TEST(CertificateTime, GeneralizedTime)
{
    EXPECT_EQ(Shown("20491231235959Z", kGeneralizedTime), "2050-01-01 07:59:59");
    EXPECT_EQ(Shown("00010101000000Z", kGeneralizedTime), "0001-01-01 08:00:00");
    EXPECT_EQ(Shown("00000101000000Z", kGeneralizedTime), "0000-01-01 08:00:00");
    EXPECT_EQ(Shown("99991231155959Z", kGeneralizedTime), "9999-12-31 23:59:59");
    EXPECT_EQ(Shown("99991231235959Z", kGeneralizedTime), "10000-01-01 07:59:59")
        << "what 253402300799 plus 8 hours is";
    EXPECT_EQ(Shown("19000228235959Z", kGeneralizedTime), "1900-03-01 07:59:59") << "no leap year";
    EXPECT_EQ(Shown("20000228235959Z", kGeneralizedTime), "2000-02-29 07:59:59");
    EXPECT_EQ(Shown("00000100000000Z", kGeneralizedTime), "-001-12-31 08:00:00") << "as %04d has it";
}

TEST(CertificateTime, WithoutZone)
{
    EXPECT_EQ(Shown("250607080910"), "2025-06-07 08:09:10");
    EXPECT_EQ(Shown("2506070809"), "2025-06-07 08:09:00");
    EXPECT_EQ(Shown("20250607080910", kGeneralizedTime), "2025-06-07 08:09:10");
    EXPECT_EQ(Shown("202506070809", kGeneralizedTime), "2025-06-07 08:09:00");
    EXPECT_EQ(Shown("259900000000"), "(refused)");
    EXPECT_EQ(Shown("250199998899"), "2025-01-99 99:88:99") << "as written";
    EXPECT_EQ(Shown("250600242525"), "2025-06-00 24:25:25");
}

TEST(CertificateTime, Seconds)
{
    EXPECT_EQ(Shown("2506070809Z"), "2025-06-07 16:09:00");
    EXPECT_EQ(Shown("25060708091Z"), "2025-06-07 16:09:00") << "one digit is not two";
    EXPECT_EQ(Shown("25060708091"), "2025-06-07 08:09:00");
    EXPECT_EQ(Shown("2506070809x1"), "2025-06-07 08:09:00");
    EXPECT_EQ(Shown("202506070809Z", kGeneralizedTime), "2025-06-07 16:09:00");
    EXPECT_EQ(Shown("2025060708091Z", kGeneralizedTime), "2025-06-07 16:09:00");
    EXPECT_EQ(Shown("20250607080910.5Z", kGeneralizedTime), "2025-06-07 16:09:10") << "fractions are passed over";
    EXPECT_EQ(Shown("250607080910+0100"), "2025-06-07 08:09:10") << "and so are zones";
    EXPECT_EQ(Shown("2506070809+0100"), "2025-06-07 08:09:00");
    EXPECT_EQ(Shown("250607080910z"), "2025-06-07 08:09:10");
    EXPECT_EQ(Shown("250607080910Z "), "2025-06-07 08:09:10") << "not at the end";
}

TEST(CertificateTime, FieldsOutOfRangeAreCarried)
{
    EXPECT_EQ(Shown("250230000000Z"), "2025-03-02 08:00:00");
    EXPECT_EQ(Shown("250100000000Z"), "2024-12-31 08:00:00");
    EXPECT_EQ(Shown("250101990000Z"), "2025-01-05 11:00:00");
    EXPECT_EQ(Shown("250101239999Z"), "2025-01-02 08:40:39");
}

TEST(CertificateTime, Malformed)
{
    for (const char* time : {"", "Z", "250607080", "250607080Z", "25060708x9Z", "-50607080910Z", "250007080910Z",
                             "251307080910Z", "250007080910", "25 607080910Z"})
        EXPECT_EQ(Shown(time), "(refused)") << time;
    for (const char* time : {"", "Z", "20250607080", "20250607080Z", "2025060708x9Z", "20250007080910Z",
                             "20251307080910Z", "2506070809Z", "2025:607080910Z"})
        EXPECT_EQ(Shown(time, kGeneralizedTime), "(refused)") << time;
    EXPECT_EQ(Shown("250607080910Z", kPrintableString), "(refused)");
    EXPECT_EQ(Shown("250607080910Z", 0x97), "(refused)") << "the class counts, too";
    Certificate parts;
    parts.notAfter = "";
    ExpectRefused(parts.Der());
    parts.notBefore = "";
    ExpectRefused(parts.Der());
}

TEST(CertificateTime, TheZoneOfTheMachineDoesNotMatter)
{
    const char* const before = getenv("TZ");
    const std::string saved = before == nullptr ? "" : before;
    for (const char* zone : {"UTC", "Asia/Shanghai", "America/New_York", "XXX-14YYY,M3.2.0,M11.1.0"}) {
        setenv("TZ", zone, 1);
        tzset();
        EXPECT_EQ(Shown("250309060000Z"), "2025-03-09 14:00:00") << zone;
        EXPECT_EQ(Shown("250309060000"), "2025-03-09 06:00:00") << zone;
    }
    before == nullptr ? unsetenv("TZ") : setenv("TZ", saved.c_str(), 1);
    tzset();
}

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

// --- handles and arguments ---

TEST(CertificateHandle, WhatIsNone)
{
    const std::unique_ptr<int> number(new int(0x5AA55AA4));
    for (void* ctx : {static_cast<void*>(nullptr), static_cast<void*>(number.get())}) {
        int value = 5;
        char oid[ZKQ_CERT_OID_SIZE];
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_CertInfo_GetDNCount(ctx, 0, &value), EINVAL);
        EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(ctx, 0, 0, oid, nullptr, &value), EINVAL);
        EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(ctx, 1, nullptr, &value), EINVAL);
        EXPECT_EQ(ZKQGeneral_CertInfo_GetExtCount(ctx, &value), EINVAL);
        EXPECT_EQ(ZKQGeneral_CertInfo_GetExtInfo(ctx, 0, oid, &value, nullptr, &value), EINVAL);
        EXPECT_EQ(ZKQGeneral_CloseCert(ctx), EINVAL);
        EXPECT_EQ(value, 5);
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }
}

TEST(CertificateHandle, NullArguments)
{
    const std::string der = Certificate().Der();
    void* ctx = &g_sentinel;
    EXPECT_EQ(ZKQGeneral_OpenCert(nullptr, 0, &ctx), EINVAL);
    EXPECT_EQ(ZKQGeneral_OpenCert(nullptr, 5, &ctx), EINVAL);
    EXPECT_EQ(ZKQGeneral_OpenCert(der.data(), -1, &ctx), EINVAL);
    EXPECT_EQ(ZKQGeneral_OpenCert(der.data(), INT_MIN, &ctx), EINVAL);
    EXPECT_EQ(ctx, &g_sentinel);
    EXPECT_EQ(ZKQGeneral_OpenCert(der.data(), static_cast<int>(der.size()), nullptr), EINVAL);
    const OpenedCertificate cert(der);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetDNCount(cert.Get(), 0, nullptr), 0);
    EXPECT_EQ(ZKQGeneral_CertInfo_GetExtCount(cert.Get(), nullptr), 0);
    for (int index = 0; index < 22; ++index)
        EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(cert.Get(), index, nullptr, nullptr), EINVAL);
}

TEST(CertificateHandle, TheBytesAreNotNeededAnyMore)
{
    std::string der = Certificate().Der();
    const OpenedCertificate cert(der);
    std::fill(der.begin(), der.end(), '\0');
    EXPECT_EQ(cert.Name(true), (Components{{"2.5.4.3", "Subject"}}));
}

TEST(CertificateHandle, NothingLeaks)
{
    Certificate parts;
    parts.subject = Sequence(Attribute("2.5.4.3", "中", kUtf8String) + Attribute("2.5.4.3", "\x4E\x2D", kBmpString));
    parts.extensions = Extension("1.2.3", "value");
    const std::string good = parts.Der();
    support::ExpectNothingLeaks([&] {
        void* ctx = nullptr;
        EXPECT_EQ(OpenCertificate(good, &ctx), 0);
        EXPECT_EQ(ZKQGeneral_CloseCert(ctx), 0);
        EXPECT_EQ(OpenCertificate(good.substr(0, good.size() - 1), &ctx), EINVAL);
    });
}

TEST(CertificateHandle, ThreadsWithOneEach)
{
    const std::string der = Certificate().Der();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&der] {
            for (int round = 0; round < 200; ++round)
                EXPECT_EQ(OpenedCertificate(der).Text(2), "0123");
        });
    for (std::thread& thread : threads)
        thread.join();
}

// --- hostile bytes ---

TEST(CertificateHostile, CutAnywhere)
{
    Certificate parts;
    parts.extensions = Extension("1.2.3", "value", kTrue);
    const std::string der = parts.Der();
    for (size_t size = 1; size < der.size(); ++size)
        ExpectRefused(der.substr(0, size));
    const std::string pem = Pem(der);
    for (size_t size = 1; size < pem.size(); ++size)
        IsAccepted(pem.substr(0, size));
}

TEST(CertificateHostile, AnyByteChanged)
{
    Certificate parts;
    parts.uniqueIds = Tlv(0x81, "id");
    parts.extensions = Extension("2.5.29.15", "\x03\x02\x05\xA0", kTrue) + Extension("2.5.29.19", Sequence(kTrue));
    const std::string der = parts.Der();
    for (size_t place = 0; place < der.size(); ++place)
        for (const int byte : {0x00, 0x01, 0x1F, 0x7F, 0x80, 0x81, 0x84, 0x85, 0xFF}) {
            std::string changed = der;
            changed[place] = static_cast<char>(byte);
            void* ctx = nullptr;
            if (OpenCertificate(changed, &ctx) != 0)
                continue;
            const OpenedCertificate cert(ctx);
            char oid[ZKQ_CERT_OID_SIZE];
            char room[400];
            for (int i = 0; i < cert.ExtensionCount(); ++i) {
                int size = sizeof room;
                ZKQGeneral_CertInfo_GetExtInfo(ctx, i, oid, nullptr, room, &size);
            }
        }
}

TEST(CertificateHostile, LengthsThatLie)
{
    const std::string tbs = Certificate().ToBeSigned();
    for (const char* length : {"\x84\x7F\xFF\xFF\xFF", "\x84\x80", "\x84\xFF\xFF\xFF\xFF", "\x85\x01\x01\x01\x01\x01",
                               "\xFF", "\x82\xFF\xFF", "\x83\xFF\xFF\xFF", "\x7F"})
        ExpectRefused(std::string("\x30") + length + tbs);
    // The long form of a short length is a length.
    const std::string inner = Sequence(tbs) + Certificate().outerAlgorithm + Certificate().signature;
    ASSERT_LT(inner.size(), 65536u);
    std::string length(4, '\0');
    length[2] = static_cast<char>(inner.size() >> 8);
    length[3] = static_cast<char>(inner.size());
    EXPECT_TRUE(IsAccepted("\x30\x84" + length + inner));
    ExpectRefused("\x30\x85" + std::string(1, '\0') + length + inner, "five bytes, whatever they say");
}

TEST(CertificateHostile, TagsOfSeveralBytes)
{
    Certificate parts;
    parts.subject = Sequence(Tlv(kSet, Sequence(Oid("2.5.4.3") + "\x1F\x81\x01\x01x")));
    EXPECT_EQ(OpenedCertificate(parts.Der()).Name(true), (Components{{"2.5.4.3", "x"}})) << "any type";
    parts.subject = Sequence(Tlv(kSet, Sequence(Oid("2.5.4.3") + "\x1F\x87\xFF\xFF\xFF\x7F\x01x")));
    EXPECT_TRUE(IsAccepted(parts.Der())) << "the largest number";
    parts.subject =
        Sequence(Tlv(kSet, Sequence(Oid("2.5.4.3") + "\x1F\x88\x80\x80\x80" + std::string(1, '\0') + "\x01x")));
    ExpectRefused(parts.Der(), "one more");
    parts.subject = Sequence(Tlv(kSet, Sequence(Oid("2.5.4.3") + "\x1F\x81\x81")));
    ExpectRefused(parts.Der(), "the number does not end");
}

TEST(CertificateHostile, IndefiniteLengths)
{
    const Certificate parts;
    const std::string marker(2, '\0');
    const std::string inner = Sequence(parts.ToBeSigned()) + parts.outerAlgorithm + parts.signature;
    EXPECT_TRUE(IsAccepted("\x30\x80" + inner)) << "to the end of what there is";
    ExpectRefused("\x30\x80" + inner + marker, "the end marker");
    ExpectRefused("\x30\x80" + inner + marker + "behind", "the end marker");
    ExpectRefused(Sequence("\x30\x80" + parts.ToBeSigned() + marker + parts.outerAlgorithm + parts.signature));
    Certificate indefinite;
    indefinite.signature = "\x03\x80" + std::string(1, '\0') + "sign";
    EXPECT_EQ(OpenedCertificate(indefinite.Der()).Field(11), "sign");
    indefinite.signature += marker;
    ExpectRefused(indefinite.Der(), "the end marker");
    indefinite = {};
    indefinite.extensions = "\x30\x80" + Oid("1.2.3") + Tlv(kOctetString, "x") + marker;
    IsAccepted(indefinite.Der());
    indefinite = {};
    indefinite.subject = Sequence("\x31\x80" + Sequence(Oid("2.5.4.3") + Tlv(kPrintableString, "x")) + marker);
    EXPECT_TRUE(IsAccepted(indefinite.Der())) << "the rest of a set is not read";
}

TEST(CertificateHostile, AMegabyteOfNoise)
{
    unsigned state = 1;
    std::string noise;
    for (int i = 0; i < 1000000; ++i) {
        state = state * 1664525 + 1013904223;
        noise += static_cast<char>(state >> 24);
    }
    for (const char first : {'0', '-', 'M'}) {
        noise[0] = first;
        ExpectRefused(noise);
    }
    ExpectRefused(std::string(1000000, '-'));
    ExpectRefused(std::string(1000000, '0'));
}

} // namespace
