// Certificates that are none: cut, changed byte by byte, with lengths and tags that lie.
#include <ZKQ_general/x509.h>
#include <gtest/gtest.h>
#include <string.h>

#include "support/certificate.h"
#include "support/der.h"

namespace {

using namespace support::der; // NOLINT: the tests are written in it
using support::ExpectRefused;
using support::IsAccepted;
using support::OpenCertificate;
using support::OpenedCertificate;
using support::Pem;
using Component = OpenedCertificate::Component;
using Components = std::vector<Component>;

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
