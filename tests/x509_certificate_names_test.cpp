// Names, object identifiers and times of certificates: what is shown of each form, and what is refused.
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include "support/bare_iconv.h"
#include "support/certificate.h"
#include "support/der.h"

namespace {

using namespace support::der; // NOLINT: the tests are written in it
using support::ExpectRefused;
using support::IsAccepted;
using support::OpenCertificate;
using support::OpenedCertificate;
using Component = OpenedCertificate::Component;
using Components = std::vector<Component>;

std::string Gbk(const std::string& utf8)
{
    return support::BareIconv("GBK", "UTF-8")(utf8).bytes;
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

} // namespace
