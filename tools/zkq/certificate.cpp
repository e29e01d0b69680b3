#include "certificate.h"

#include <ZKQ_general/base64.h>
#include <ZKQ_general/error.h>
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <limits.h>

#include <functional>

#include "bytes.h"
#include "charset.h"
#include "failure.h"
#include "input.h"

namespace {

constexpr char kBegin[] = "-----BEGIN CERTIFICATE-----";
constexpr char kEnd[] = "-----END CERTIFICATE-----";
constexpr char kDerBegin = '0';

using Ask = std::function<int(char* value, int* size)>;

/// A result of any length; fails with the name for an error.
std::string Answer(const Ask& ask, const std::string& name)
{
    int length = 0;
    int error = ask(nullptr, &length);
    std::string value(static_cast<size_t>(error == 0 ? length : 0), '\0');
    if (error == 0)
        error = ask(value.data(), &length);
    if (error != 0)
        throw SystemFailure(name, error);
    return value;
}

void DropNul(std::string& text)
{
    if (text.ends_with('\0'))
        text.pop_back();
}

bool IsTextField(int index)
{
    return (index >= ZKQ_CERT_SERIAL && index <= ZKQ_CERT_KEY_ALGORITHM) || index == ZKQ_CERT_SIGN_ALGORITHM;
}

/// Extensions that the library gives as texts.
bool IsTextExtension(const std::string& oid)
{
    return oid == "2.5.29.15" || oid == "2.5.29.19" || oid == "1.2.86.21.1.1";
}

std::string FromGbk(const std::string& text)
{
    GbkReader reader;
    const std::string converted = reader.Convert(text);
    return converted + reader.Finish();
}

} // namespace

std::vector<std::string> CertificatesIn(const std::string& file)
{
    const std::string bytes = ByteSource(file).ReadAll();
    const std::string what = file == "-" ? "standard input" : file;
    if (bytes.size() > INT_MAX)
        throw SystemFailure("cannot read " + what, EFBIG);
    if (bytes.empty())
        throw Failure(what, "Not a certificate: it is empty");
    size_t begin = bytes[0] == kDerBegin ? std::string::npos : bytes.find(kBegin);
    if (begin == std::string::npos)
        return {bytes};
    std::vector<std::string> certificates;
    while (begin != std::string::npos) {
        const size_t next = bytes.find(kBegin, begin + 1);
        certificates.push_back(bytes.substr(begin, next - begin));
        begin = next;
    }
    return certificates;
}

std::string DerOf(const std::string& certificate, const std::string& name)
{
    if (certificate[0] == kDerBegin)
        return certificate;
    std::string text = certificate.substr(0, certificate.find(kEnd));
    if (text.starts_with(kBegin))
        text.erase(0, sizeof kBegin - 1);
    unsigned char* bytes = nullptr;
    int length = 0;
    const bool is_good = ZKQGeneral_ConvertFromBase64Ex(text.c_str(), &bytes, &length) != 0;
    const std::unique_ptr<unsigned char, decltype(&ZKQGeneral_FreeMallocBuffer)> owner(bytes,
                                                                                       &ZKQGeneral_FreeMallocBuffer);
    if (!is_good)
        throw LibraryFailure(name);
    return {reinterpret_cast<char*>(bytes), static_cast<size_t>(length)};
}

void Certificate::Release::operator()(void* ctx) const
{
    ZKQGeneral_CloseCert(ctx);
}

Certificate::Certificate(const std::string& bytes, const std::string& name) : name_(name)
{
    void* ctx = nullptr;
    const int error = ZKQGeneral_OpenCert(bytes.data(), static_cast<int>(bytes.size()), &ctx);
    if (error == EINVAL)
        throw Failure(name, "Not a certificate that the library reads");
    if (error != 0)
        throw SystemFailure(name, error);
    ctx_.reset(ctx);
}

int Certificate::Number(int index) const
{
    int number = 0;
    if (const int error = ZKQGeneral_CertInfo_GetInfo(ctx_.get(), index, nullptr, &number))
        throw SystemFailure(name_, error);
    return number;
}

std::string Certificate::Field(int index) const
{
    std::string value = Answer(
        [&](char* room, int* size) { return ZKQGeneral_CertInfo_GetInfo(ctx_.get(), index, room, size); }, name_);
    if (IsTextField(index))
        DropNul(value);
    return value;
}

std::vector<std::pair<std::string, std::string>> Certificate::Name(bool is_subject) const
{
    int count = 0;
    ZKQGeneral_CertInfo_GetDNCount(ctx_.get(), is_subject, &count);
    std::vector<std::pair<std::string, std::string>> name;
    for (int i = 0; i < count; ++i) {
        char oid[ZKQ_CERT_OID_SIZE];
        std::string value =
            Answer([&](char* room,
                       int* size) { return ZKQGeneral_CertInfo_GetDN(ctx_.get(), is_subject, i, oid, room, size); },
                   name_);
        DropNul(value);
        name.emplace_back(oid, FromGbk(value));
    }
    return name;
}

std::vector<CertExtension> Certificate::Extensions() const
{
    int count = 0;
    ZKQGeneral_CertInfo_GetExtCount(ctx_.get(), &count);
    std::vector<CertExtension> extensions;
    for (int i = 0; i < count; ++i) {
        char oid[ZKQ_CERT_OID_SIZE];
        int critical = 0;
        int size = 0;
        const auto ask = [&](char* room, int* length) {
            return ZKQGeneral_CertInfo_GetExtInfo(ctx_.get(), i, oid, &critical, room, length);
        };
        const bool is_good = ask(nullptr, &size) == 0;
        CertExtension extension = {oid, critical != 0, is_good, IsTextExtension(oid), ""};
        if (is_good)
            extension.value = Answer(ask, name_);
        if (extension.is_text)
            DropNul(extension.value);
        extensions.push_back(extension);
    }
    return extensions;
}
