// What certificates write into the library's log: a record for each failure, with its text, the source and a line.
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "../src/internal/log.h"
#include "support/bare_iconv.h"
#include "support/certificate.h"
#include "support/der.h"
#include "support/error_text.h"
#include "support/log_context.h"

namespace {

using namespace support::der; // NOLINT: the tests are written in it
using support::LogDir;
using support::OpenCertificate;
using support::ReadFile;
using Lines = std::vector<std::string>;

class CertificateLog : public testing::Test {
protected:
    CertificateLog() : info_(dir_)
    {
        info_.bAlwaysLog = ZKQ_LOG_ALL;
        ctx_.emplace(info_);
        saved_ = std::exchange(g_General_LogCtx, static_cast<LOGCTX*>(ctx_->Get()));
        support::MarkErrorText();
    }
    ~CertificateLog() override
    {
        g_General_LogCtx = saved_;
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }

    /// What a call writes, as UTF-8, without source and line.
    Lines Logged(const std::function<void()>& call) const
    {
        const size_t before = std::filesystem::exists(dir_.OwnLog()) ? ReadFile(dir_.OwnLog()).size() : 0;
        call();
        const std::string text = std::filesystem::exists(dir_.OwnLog()) ? ReadFile(dir_.OwnLog()).substr(before) : "";
        const support::Converted utf8 = support::BareIconv("UTF-8", "GBK")(text);
        EXPECT_EQ(utf8.error, 0) << "in GBK";
        Lines lines;
        for (size_t at = 0; at < utf8.bytes.size();) {
            const size_t end = utf8.bytes.find('\n', at);
            const std::string line = utf8.bytes.substr(at, end - at);
            EXPECT_EQ(line.substr(0, 8), "[Error] ");
            const size_t source = line.find(" - x509,");
            EXPECT_NE(source, std::string::npos) << line;
            EXPECT_GT(atoi(line.c_str() + source + 8), 0) << line;
            lines.push_back(line.substr(8, source - 8));
            at = end + 1;
        }
        return lines;
    }

    /// The certificate is refused, with one record.
    void ExpectRefused(const std::string& bytes, const char* text) const
    {
        EXPECT_EQ(Logged([&] {
                      void* ctx = nullptr;
                      EXPECT_EQ(OpenCertificate(bytes, &ctx), EINVAL);
                      EXPECT_EQ(ctx, nullptr);
                  }),
                  Lines{text});
    }
    void ExpectRefused(const Certificate& parts, const char* text) const { ExpectRefused(parts.Der(), text); }

    LogDir dir_;
    support::AppInfo info_;
    std::optional<support::LogContext> ctx_;
    LOGCTX* saved_ = nullptr;
};

constexpr char kMismatch[] = "获取ASN1对象信息时标签或类与期望值不符！";
constexpr char kNoObject[] = "获取ASN1对象信息时已到缓冲区边界！";
constexpr char kTooLong[] = "获取ASN1对象信息时指示的长度超过了缓冲区边界！";
constexpr char kUnexpectedEnd[] = "遇到了不应该出现的结束标志！";
constexpr char kBadOid[] = "OID数据不正确！";
constexpr char kBadTime[] = "证书中的时间有格式错误！";
constexpr char kBadContent[] = "获取ASN1对象信息时内容不正确！";

TEST_F(CertificateLog, SuccessIsSilent)
{
    Certificate parts;
    parts.extensions = Extension("2.5.29.15", "\x03\x02\x05\xA0");
    EXPECT_EQ(Logged([&] {
                  const support::OpenedCertificate cert(parts.Der());
                  int size = 0;
                  char oid[ZKQ_CERT_OID_SIZE];
                  EXPECT_EQ(ZKQGeneral_CertInfo_GetExtInfo(cert.Get(), 0, oid, nullptr, nullptr, &size), 0);
                  EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), 0, 0, oid, nullptr, &size), 0);
                  EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(cert.Get(), 2, nullptr, &size), 0);
              }),
              Lines{});
}

TEST_F(CertificateLog, TheFileAndItsForm)
{
    EXPECT_EQ(Logged([&] {
                  void* ctx = nullptr;
                  EXPECT_EQ(ZKQGeneral_OpenCert(dir_.File("none").c_str(), 0, &ctx), EINVAL);
              }),
              Lines{"读证书文件失败！"});
    ExpectRefused("-not Base64", "为证书做BASE64解码失败！");
    ExpectRefused("not Base64", "为证书做BASE64解码失败！");
    ExpectRefused("-----END CERTIFICATE-----", kNoObject);
    ExpectRefused("MAUA", kTooLong);
}

TEST_F(CertificateLog, TheReaderOfElements)
{
    ExpectRefused("\x30", "获取ASN1长度信息时已到缓冲区边界！");
    ExpectRefused("\x30\x82\x01", "获取ASN1长度信息时已到缓冲区边界！");
    ExpectRefused("\x30\x85\x01\x01\x01\x01\x01", "获取ASN1长度信息时长度信息占用超过四个字节！");
    ExpectRefused("\x30\x85", "获取ASN1长度信息时长度信息占用超过四个字节！");
    ExpectRefused("\x30\xFF", "获取ASN1长度信息时长度信息占用超过四个字节！");
    ExpectRefused(std::string("\x30\x84\x80\0\0\0", 6), "获取ASN1长度信息时长度超过了系统允许的最大值！");
    ExpectRefused("\x30\x84\x7F\xFF\xFF\xFF", kTooLong);
    ExpectRefused("\x30\x01", kTooLong);
    ExpectRefused(std::string("\x30\0", 2), kNoObject);
    ExpectRefused("\x30\x80", kNoObject);
    ExpectRefused(std::string("\x30\x80\0\0", 4), kUnexpectedEnd);
    ExpectRefused(std::string("\x30\x02\0\0", 4), kUnexpectedEnd);
    ExpectRefused(std::string("\x30\x01\0", 3), "获取ASN1长度信息时已到缓冲区边界！");
    ExpectRefused(Sequence("\x1F"), "获取ASN1对象标签信息时已到缓冲区边界！");
    ExpectRefused(Sequence("\x1F\x81\xFF"), "获取ASN1对象标签信息时已到缓冲区边界！");
    ExpectRefused(Sequence("\x1F\x88\x80\x80\x80" + std::string(2, '\0')), "获取ASN1对象信息时得到的标签值太大！");
    ExpectRefused(Sequence("\x1F\x87\xFF\xFF\xFF\x7F" + std::string(1, '\0')), kMismatch);
    ExpectRefused(Sequence(Tlv(kSet, "")), kMismatch);
    ExpectRefused(Sequence(Tlv(0xB0, "")), kMismatch);
}

TEST_F(CertificateLog, FieldsOfAnotherType)
{
    Certificate parts;
    parts.version = "";
    ExpectRefused(parts, kMismatch);
    const std::string other = Tlv(kPrintableString, "x");
    std::string Certificate::*const fields[] = {
        &Certificate::version,   &Certificate::serial,    &Certificate::algorithm, &Certificate::issuer,
        &Certificate::notBefore, &Certificate::notAfter,  &Certificate::subject,   &Certificate::keyAlgorithm,
        &Certificate::key,       &Certificate::behindKey, &Certificate::signature, &Certificate::outerAlgorithm};
    for (const auto field : fields) {
        parts = {};
        parts.*field = other;
        ExpectRefused(parts, kMismatch);
        parts.*field = std::string(2, '\0');
        ExpectRefused(parts, kUnexpectedEnd);
    }
    parts = {};
    parts.signature = "";
    ExpectRefused(parts, kNoObject);
}

TEST_F(CertificateLog, Contents)
{
    Certificate parts;
    parts.version = Explicit(0, Integer(""));
    ExpectRefused(parts, kBadContent);
    parts = {};
    parts.serial = Integer("");
    ExpectRefused(parts, kBadContent);
    parts = {};
    parts.key = Tlv(kBitString, "");
    ExpectRefused(parts, kBadContent);
    parts.key = Tlv(kBitString, "\x08x");
    ExpectRefused(parts, kBadContent);
    parts = {};
    parts.extensions = Sequence(Oid("1.2.3") + Tlv(kBoolean, "") + Tlv(kOctetString, ""));
    ExpectRefused(parts, kBadContent);
    parts = {};
    parts.algorithm = Sequence(Tlv(kOid, ""));
    ExpectRefused(parts, kBadOid);
    parts.algorithm = Sequence(Tlv(kOid, "\x2A\x86"));
    ExpectRefused(parts, kBadOid);
    parts.algorithm = Sequence(Tlv(kOid, "\x2A" + std::string(63, '\x01')));
    ExpectRefused(parts, "OID文本的长度超过了系统允许的最大值！");
    parts = {};
    for (const char* time : {"250007080910Z", "251307080910Z", "25060708x9Z", "250607080"}) {
        parts.notAfter = Tlv(kUtcTime, time);
        ExpectRefused(parts, kBadTime);
    }
    parts.notAfter = Tlv(kGeneralizedTime, "202506070");
    ExpectRefused(parts, kBadTime);
    parts = {};
    for (const std::string& name :
         {Attribute("2.5.4.3", "\xFF", kUtf8String), Attribute("2.5.4.3", "abc", kBmpString)}) {
        parts.issuer = Sequence(name);
        ExpectRefused(parts, "为DN值做编码转换失败！");
    }
}

TEST_F(CertificateLog, Limits)
{
    Certificate parts;
    for (int i = 0; i < 33; ++i)
        parts.extensions += Extension("1.2.3", "");
    ExpectRefused(parts, "证书中扩展项的个数超过了系统允许的最大值！");
    std::string name;
    for (int i = 0; i < 33; ++i)
        name += Attribute("2.5.4.3", "");
    parts = {};
    parts.issuer = Sequence(name);
    ExpectRefused(parts, "证书中DN的项数超过了系统允许的最大值！");
    parts = {};
    parts.key = BitString(std::string(1025, 'k'));
    ExpectRefused(parts, "证书中公钥的长度超过了系统允许的最大值！");
    parts = {};
    parts.signature = BitString(std::string(1025, 's'));
    ExpectRefused(parts, "证书中签名的长度超过了系统允许的最大值！");
}

/// A call that fails with a number and a text.
struct Call {
    std::function<int(void*)> run;
    int result;
    const char* text;
};

TEST_F(CertificateLog, Queries)
{
    Certificate parts;
    parts.extensions = Extension("2.5.29.15", "\x04\x02\x05\xA0") + Extension("2.5.29.15", "\x03\x02\x08\xA0") +
                       Extension("2.5.29.19", Sequence(Integer("\x01"))) + Extension("1.2.86.21.1.1", "x") +
                       Extension("2.5.29.15", "") + Extension("2.5.29.15", "\x03\x01");
    const support::OpenedCertificate cert(parts.Der());
    int size = 0;
    int magic = 0;
    char oid[ZKQ_CERT_OID_SIZE];
    char room[3];
    void* opened = nullptr;
    const auto extension = [&](int index, char* value) {
        size = 3;
        return [&, index, value](void* ctx) {
            return ZKQGeneral_CertInfo_GetExtInfo(ctx, index, oid, nullptr, value, &size);
        };
    };
    constexpr char kBadCtx[] = "Ctx参数不正确！";
    constexpr char kBadHandle[] = "Ctx内存不正确！";
    constexpr char kBadIndex[] = "Index参数不正确！";
    constexpr char kBadMaxSize[] = "MaxSize参数不正确！";
    constexpr char kNoRoom[] = "给定的缓冲区不足！";
    const Call calls[] = {
        {[&](void*) { return ZKQGeneral_OpenCert("x", 1, nullptr); }, EINVAL, kBadCtx},
        {[&](void*) { return ZKQGeneral_OpenCert(nullptr, 1, &opened); }, EINVAL, "Cert参数不正确！"},
        {[&](void*) { return ZKQGeneral_OpenCert("x", -1, &opened); }, EINVAL, "Length参数不正确！"},
        {[&](void*) { return ZKQGeneral_CertInfo_GetDNCount(nullptr, 0, &size); }, EINVAL, kBadCtx},
        {[&](void*) { return ZKQGeneral_CertInfo_GetDN(nullptr, 0, 0, oid, nullptr, &size); }, EINVAL, kBadCtx},
        {[&](void*) { return ZKQGeneral_CertInfo_GetInfo(nullptr, 1, nullptr, &size); }, EINVAL, kBadCtx},
        {[&](void*) { return ZKQGeneral_CertInfo_GetExtCount(nullptr, &size); }, EINVAL, kBadCtx},
        {[&](void*) { return ZKQGeneral_CertInfo_GetExtInfo(nullptr, 0, oid, &size, nullptr, &size); }, EINVAL,
         kBadCtx},
        {[&](void*) { return ZKQGeneral_CloseCert(nullptr); }, EINVAL, kBadCtx},
        {[&](void*) { return ZKQGeneral_CertInfo_GetDNCount(&magic, 0, &size); }, EINVAL, kBadHandle},
        {[&](void*) { return ZKQGeneral_CertInfo_GetDN(&magic, 0, 0, oid, nullptr, &size); }, EINVAL, kBadHandle},
        {[&](void*) { return ZKQGeneral_CertInfo_GetInfo(&magic, 1, nullptr, &size); }, EINVAL, kBadHandle},
        {[&](void*) { return ZKQGeneral_CertInfo_GetExtCount(&magic, &size); }, EINVAL, kBadHandle},
        {[&](void*) { return ZKQGeneral_CertInfo_GetExtInfo(&magic, 0, oid, &size, nullptr, &size); }, EINVAL,
         kBadHandle},
        {[&](void*) { return ZKQGeneral_CloseCert(&magic); }, EINVAL, kBadHandle},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetDN(ctx, 0, 2, oid, nullptr, &size); }, EINVAL, kBadIndex},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetDN(ctx, 1, 1, oid, nullptr, &size); }, EINVAL, kBadIndex},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetDN(ctx, 0, -1, oid, nullptr, &size); }, EINVAL, kBadIndex},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetDN(ctx, 0, 0, oid, nullptr, nullptr); }, EINVAL, kBadMaxSize},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetDN(ctx, 0, 0, nullptr, nullptr, &size); }, EINVAL,
         "OID参数不正确！"},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetDN(ctx, 0, 1, oid, room, &(size = 3)); }, ENOMEM, kNoRoom},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetInfo(ctx, 1, nullptr, nullptr); }, EINVAL, kBadMaxSize},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetInfo(ctx, 12, nullptr, nullptr); }, EINVAL, kBadMaxSize},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetInfo(ctx, 12, nullptr, &size); }, EINVAL,
         "指定的索引项目前尚不支持！"},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetInfo(ctx, 8, room, &(size = 3)); }, ENOMEM, kNoRoom},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetExtInfo(ctx, 6, oid, nullptr, nullptr, &size); }, EINVAL,
         kBadIndex},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetExtInfo(ctx, -1, oid, nullptr, nullptr, &size); }, EINVAL,
         kBadIndex},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetExtInfo(ctx, 0, nullptr, nullptr, nullptr, &size); }, EINVAL,
         "OID参数不正确！"},
        {[&](void* ctx) { return ZKQGeneral_CertInfo_GetExtInfo(ctx, 0, oid, nullptr, nullptr, nullptr); }, EINVAL,
         kBadMaxSize},
        {extension(0, nullptr), EINVAL, "证书中密钥用途数据类型不正确！"},
        {extension(4, nullptr), EINVAL, "证书中密钥用途数据类型不正确！"},
        {extension(1, nullptr), EINVAL, "证书中密钥用途数据长度不正确！"},
        {extension(5, nullptr), EINVAL, "证书中密钥用途数据长度不正确！"},
        {extension(2, nullptr), EINVAL, kMismatch},
        {extension(3, room), ENOMEM, kNoRoom},
    };
    for (const Call& call : calls)
        EXPECT_EQ(Logged([&] { EXPECT_EQ(call.run(cert.Get()), call.result) << call.text; }), Lines{call.text});
}

TEST_F(CertificateLog, TheLineIsThatOfTheCause)
{
    const auto line = [this](const std::function<void()>& call) {
        const size_t before = std::filesystem::exists(dir_.OwnLog()) ? ReadFile(dir_.OwnLog()).size() : 0;
        call();
        const std::string text = ReadFile(dir_.OwnLog()).substr(before);
        return text.substr(text.find(" - x509,"));
    };
    EXPECT_NE(line([] { ZKQGeneral_CertInfo_GetExtCount(nullptr, nullptr); }),
              line([] { ZKQGeneral_CloseCert(nullptr); }));
}

} // namespace
