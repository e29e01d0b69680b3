// Certificates: the forms they come in, and what each query tells. Certificates are built by hand, so
// that every byte is known; x509_openssl_test.cpp asks another reader about real ones.
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <thread>

#include "support/buffer.h"
#include "support/certificate.h"
#include "support/der.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/temp_dir.h"

namespace {

using namespace support::der; // NOLINT: the tests are written in it
using support::Base64;
using support::Buffer;
using support::ExpectRefused;
using support::g_sentinel;
using support::IsAccepted;
using support::kBegin;
using support::kEnd;
using support::OpenCertificate;
using support::OpenedCertificate;
using support::Pem;
using Component = OpenedCertificate::Component;
using Components = std::vector<Component>;

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

} // namespace
