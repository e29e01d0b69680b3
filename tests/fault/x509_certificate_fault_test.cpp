// Certificates on a failing system: each allocation and each call into the system is made to fail in turn. Every failure
// has its number and its record in the log, the handle stays as it was, and nothing leaks.
#include <ZKQ_general.h>
#include <errno.h>

#include <filesystem>
#include <optional>

#include "../../src/internal/log.h"
#include "../support/bare_iconv.h"
#include "../support/certificate.h"
#include "../support/der.h"
#include "../support/error_text.h"
#include "../support/log_context.h"
#include "fault.h"

namespace {

using namespace support::der; // NOLINT: the tests are written in it
using support::LogDir;
using support::ReadFile;

char g_sentinel;

class CertificateFault : public testing::Test {
protected:
    CertificateFault() : info_(dir_)
    {
        info_.bAlwaysLog = ZKQ_LOG_ALL;
        ctx_.emplace(info_);
        saved_ = std::exchange(g_General_LogCtx, static_cast<LOGCTX*>(ctx_->Get()));
        support::MarkErrorText();
    }
    ~CertificateFault() override
    {
        g_General_LogCtx = saved_;
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }

    /// The failures of each call of a function while a certificate is opened, in their order: "12 text".
    std::vector<std::string> Failures(const std::string& function, const std::string& cert, int length)
    {
        std::vector<std::string> failures;
        for (int call = 1;; ++call) {
            std::filesystem::remove(dir_.OwnLog());
            void* opened = &g_sentinel;
            fault::Arm(function, call, {ENOMEM, false});
            const int result = ZKQGeneral_OpenCert(cert.data(), length, &opened);
            const bool hit = fault::Disarm();
            if (result == 0) {
                EXPECT_EQ(ZKQGeneral_CloseCert(opened), 0);
                EXPECT_TRUE(!hit || function == "close") << function << " call " << call;
                if (hit)
                    continue; // a file that has been read
                return failures;
            }
            EXPECT_TRUE(hit);
            EXPECT_EQ(opened, &g_sentinel);
            const std::string log = support::BareIconv("UTF-8", "GBK")(ReadFile(dir_.OwnLog())).bytes;
            EXPECT_EQ(log.find('\n'), log.size() - 1) << "one record";
            failures.push_back(std::to_string(result) + " " + log.substr(8, log.find(" - x509,") - 8));
        }
    }

    LogDir dir_;
    support::AppInfo info_;
    std::optional<support::LogContext> ctx_;
    LOGCTX* saved_ = nullptr;
};

std::string Der()
{
    Certificate parts;
    parts.issuer = Sequence(Attribute("2.5.4.3", "issuer"));
    parts.subject =
        Sequence(Attribute("2.5.4.3", "subject", kUtf8String) + Attribute("2.5.4.3", "\x4E\x2D", kBmpString));
    parts.extensions = Extension("1.2.3", "value") + Extension("1.2.4", "");
    return parts.Der();
}

using Texts = std::vector<std::string>;

const Texts kParsing = {
    "12 为证书序列号分配内存失败！", "12 为发行者DN分配内存失败！",     "12 为DN值分配内存失败！",
    "12 为持有者DN分配内存失败！",   "12 为DN值分配内存失败！",         "12 为DN值分配内存失败！",
    "12 为DN值分配内存失败！",       "12 为保存扩展项值分配内存失败！", "12 为保存扩展项值分配内存失败！"};

Texts Joined(Texts first, const Texts& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST_F(CertificateFault, InMemory)
{
    const std::string der = Der();
    EXPECT_EQ(Failures("malloc", der, static_cast<int>(der.size())),
              Joined({"12 为保存原始数据分配内存失败！", "12 为转换证书格式分配内存失败！"}, kParsing));
    EXPECT_EQ(Failures("calloc", der, static_cast<int>(der.size())), Texts{"12 为保存证书解析结果分配内存失败！"});
    for (const std::string& function : fault::Functions())
        if (function != "malloc" && function != "calloc") {
            EXPECT_EQ(Failures(function, der, static_cast<int>(der.size())), Texts{}) << function;
        }
}

TEST_F(CertificateFault, AFile)
{
    const std::string path = dir_.File("cert");
    support::WriteFile(path, Der());
    EXPECT_EQ(Failures("malloc", path, 0),
              Joined({"22 读证书文件失败！", "12 为转换证书格式分配内存失败！"}, kParsing));
    int hits = 0;
    for (const std::string& function : fault::Functions()) {
        if (function == "malloc" || function == "calloc")
            continue;
        const Texts failures = Failures(function, path, 0);
        hits += static_cast<int>(failures.size());
        for (const std::string& text : failures)
            EXPECT_EQ(text, "22 读证书文件失败！") << function;
    }
    EXPECT_GE(hits, 3) << "looked at, opened, read";
}

/// A text that is converted on the heap.
TEST_F(CertificateFault, ALongName)
{
    Certificate parts;
    parts.issuer = Sequence(Attribute("2.5.4.3", std::string(5000, 'n'), kUtf8String));
    const std::string der = parts.Der();
    const Texts failures = Failures("malloc", der, static_cast<int>(der.size()));
    ASSERT_EQ(failures.size(), 8u);
    EXPECT_EQ(failures[4], "12 为DN值分配内存失败！");
    EXPECT_EQ(failures[5], "22 为DN值做编码转换失败！");
}

TEST_F(CertificateFault, QueriesNeedNoMemory)
{
    const support::OpenedCertificate cert(Der());
    for (const std::string& function : fault::Functions()) {
        fault::Arm(function, 0, {ENOMEM, false});
        char oid[ZKQ_CERT_OID_SIZE];
        char room[100];
        int size = sizeof room;
        EXPECT_EQ(ZKQGeneral_CertInfo_GetInfo(cert.Get(), ZKQ_CERT_SUBJECT, room, &size), 0);
        EXPECT_EQ(ZKQGeneral_CertInfo_GetDN(cert.Get(), 1, 0, oid, room, &(size = sizeof room)), 0);
        EXPECT_EQ(ZKQGeneral_CertInfo_GetExtInfo(cert.Get(), 0, oid, nullptr, room, &(size = sizeof room)), 0);
        EXPECT_FALSE(fault::Disarm()) << function;
    }
}

} // namespace
