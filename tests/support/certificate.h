// A certificate as the library tells of it.
#pragma once

#include <ZKQ_general/base64.h>
#include <ZKQ_general/error.h>
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "error_text.h"

namespace support {

/// The result of opening a copy of exactly these bytes.
inline int OpenCertificate(const std::string& bytes, void** ctx)
{
    const std::unique_ptr<char[]> copy(new char[bytes.size()]);
    bytes.copy(copy.get(), bytes.size());
    return ZKQGeneral_OpenCert(copy.get(), static_cast<int>(bytes.size()), ctx);
}

/// An open certificate, closed at the end.
class OpenedCertificate {
public:
    explicit OpenedCertificate(const std::string& bytes) { EXPECT_EQ(OpenCertificate(bytes, &ctx_), 0); }
    explicit OpenedCertificate(void* ctx) : ctx_(ctx) {}
    OpenedCertificate(const OpenedCertificate&) = delete;
    OpenedCertificate& operator=(const OpenedCertificate&) = delete;
    ~OpenedCertificate()
    {
        if (ctx_ != nullptr) {
            EXPECT_EQ(ZKQGeneral_CloseCert(ctx_), 0);
        }
    }

    void* Get() const { return ctx_; }

    int Number(int index) const
    {
        int number = -1;
        EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(ctx_, index, nullptr, &number), 0) << index;
        return number;
    }
    std::string Field(int index) const
    {
        return Asked([&](char* value, int* size) { return ZKQGeneral_CertInfo_GetInfo(ctx_, index, value, size); });
    }
    /// A field that ends with a NUL, without it.
    std::string Text(int index) const { return WithoutNul(Field(index)); }

    using Component = std::pair<std::string, std::string>;
    std::vector<Component> Name(bool isSubject) const
    {
        int count = -1;
        EXPECT_EQ(ZKQGeneral_CertInfo_GetDNCount(ctx_, isSubject, &count), 0);
        std::vector<Component> name;
        for (int i = 0; i < count; ++i) {
            char oid[ZKQ_CERT_OID_SIZE];
            const std::string value = Asked(
                [&](char* room, int* size) { return ZKQGeneral_CertInfo_GetDN(ctx_, isSubject, i, oid, room, size); });
            name.emplace_back(oid, WithoutNul(value));
        }
        return name;
    }

    int ExtensionCount() const
    {
        int count = -1;
        EXPECT_EQ(ZKQGeneral_CertInfo_GetExtCount(ctx_, &count), 0);
        return count;
    }
    struct Extension {
        std::string oid;
        int critical;
        std::string value;
    };
    Extension ExtensionAt(int index) const
    {
        char oid[ZKQ_CERT_OID_SIZE];
        int critical = -1;
        const std::string value = Asked([&](char* room, int* size) {
            return ZKQGeneral_CertInfo_GetExtInfo(ctx_, index, oid, &critical, room, size);
        });
        return {oid, critical, value};
    }

    static std::string WithoutNul(const std::string& text)
    {
        EXPECT_EQ(text.find('\0'), text.size() - 1);
        return text.substr(0, text.size() - 1);
    }

private:
    /// Asks for a length, with too little room, and with exactly enough.
    template <class Ask>
    static std::string Asked(Ask ask)
    {
        int length = -1;
        EXPECT_EQ(ask(nullptr, &length), 0);
        EXPECT_GE(length, 0);
        if (length < 0)
            return "";
        const auto size = static_cast<size_t>(length);
        const std::unique_ptr<char[]> room(new char[size]);
        if (length > 0) {
            int small = length - 1;
            room[0] = '\x5A';
            EXPECT_EQ(ask(room.get(), &small), ENOMEM);
            EXPECT_EQ(small, length - 1);
            EXPECT_EQ(room[0], '\x5A');
        }
        int exact = length;
        EXPECT_EQ(ask(room.get(), &exact), 0);
        EXPECT_EQ(exact, length);
        return {room.get(), size};
    }

    void* ctx_ = nullptr;
};

inline char g_sentinel;

/// A certificate that must be refused; the handle stays as it was.
inline void ExpectRefused(const std::string& bytes, const char* what = "")
{
    void* ctx = &g_sentinel;
    MarkErrorText();
    EXPECT_EQ(OpenCertificate(bytes, &ctx), EINVAL) << what;
    EXPECT_EQ(ctx, &g_sentinel) << what;
    EXPECT_TRUE(ErrorTextIsMarked()) << what;
}

inline bool IsAccepted(const std::string& bytes)
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

inline std::string Base64(const std::string& bytes, int columns = 64)
{
    char* text = nullptr;
    EXPECT_TRUE(ZKQGeneral_ConvertToBase64Ex(reinterpret_cast<const unsigned char*>(bytes.data()),
                                             static_cast<int>(bytes.size()), &text, columns));
    const std::string result = text;
    ZKQGeneral_FreeMallocBuffer(text);
    return result;
}

inline constexpr char kBegin[] = "-----BEGIN CERTIFICATE-----";
inline constexpr char kEnd[] = "-----END CERTIFICATE-----";

inline std::string Pem(const std::string& bytes)
{
    return std::string(kBegin) + "\n" + Base64(bytes) + "\n" + kEnd + "\n";
}

} // namespace support
