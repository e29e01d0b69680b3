#include <ZKQ_general/x509.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "internal/base64.h"
#include "internal/file.h"
#include "internal/guards.h"
#include "internal/text.h"
#include "internal/x509_certificate.h"
#include "messages_gbk.h"

namespace {

constexpr char kDerBegin = '0'; // the byte of a SEQUENCE
constexpr char kPemBegin = '-';
constexpr std::string_view kBeginMarker = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kEndMarker = "-----END CERTIFICATE-----";

constexpr char kKeyUsageOid[] = "2.5.29.15";
constexpr char kBasicConstraintsOid[] = "2.5.29.19";
constexpr char kHexOid[] = "1.2.86.21.1.1";

// --- opening and closing ---

void FreeX509(X509* cert)
{
    free(cert->SN);
    for (int i = 0; i < cert->Count_Issuer; ++i)
        free(cert->Issuer[i].Value);
    for (int i = 0; i < cert->Count_Subject; ++i)
        free(cert->Subject[i].Value);
    for (int i = 0; i < cert->Count_Extension; ++i)
        free(cert->Extension[i].Value);
    free(cert->IssuerDN);
    free(cert->SubjectDN);
    explicit_bzero(&cert->Magic, sizeof cert->Magic); // not to be optimised away
    free(cert);
}

struct X509Freer {
    void operator()(X509* cert) const { FreeX509(cert); }
};
using UniqueX509 = std::unique_ptr<X509, X509Freer>;

/// What the caller has given, with a NUL behind it.
struct RawData {
    MallocPtr<unsigned char> bytes;
    size_t size = 0;

    const char* Text() const { return reinterpret_cast<const char*>(bytes.get()); }
};

int CopyRawData(const char* Cert, size_t length, RawData* raw)
{
    raw->bytes.reset(static_cast<unsigned char*>(malloc(length + 1)));
    if (raw->bytes == nullptr)
        return FailX509(ENOMEM, Message::CertNoRawMemory);
    memcpy(raw->bytes.get(), Cert, length);
    raw->bytes.get()[length] = '\0';
    raw->size = length;
    return 0;
}

int ReadRawData(const char* Cert, RawData* raw)
{
    unsigned char* content = nullptr;
    int size = 0;
    if (FileContent(Cert, &content, &size) != 0)
        return FailX509(EINVAL, Message::CertReadFailed);
    raw->bytes.reset(content);
    raw->size = static_cast<size_t>(size);
    return 0;
}

/// The Base64 text of a certificate that is not in DER.
std::string_view Base64Text(const RawData& raw)
{
    std::string_view text(raw.Text(), strnlen(raw.Text(), raw.size));
    if (raw.Text()[0] != kPemBegin)
        return text;
    text = text.substr(0, text.find(kEndMarker));
    const size_t begin = text.find(kBeginMarker);
    return begin == std::string_view::npos ? text : After(text, begin + kBeginMarker.size());
}

int ParseDer(Bytes der, UniqueX509* cert)
{
    cert->reset(static_cast<X509*>(calloc(1, sizeof(X509))));
    if (*cert == nullptr)
        return FailX509(ENOMEM, Message::CertNoRecordMemory);
    (*cert)->Magic = kCertMagic;
    return ParseCertificate(der, cert->get());
}

/// Parses a certificate in any of the forms.
int ParseRawData(const RawData& raw, UniqueX509* cert)
{
    const MallocPtr<unsigned char> work(static_cast<unsigned char*>(malloc(raw.size + 1)));
    if (work == nullptr)
        return FailX509(ENOMEM, Message::CertNoWorkMemory);
    if (raw.Text()[0] == kDerBegin)
        return ParseDer({raw.bytes.get(), raw.size}, cert);
    size_t length = 0;
    if (ConvertFromBase64_R(Base64Text(raw), work.get(), &length) != 0)
        return FailX509(EINVAL, Message::CertDecodeFailed);
    return ParseDer({work.get(), length}, cert);
}

// --- what every query does ---

/// The certificate behind a handle, or null, which is logged.
X509* General_CheckX509Ptr(void* Ctx, int line = __builtin_LINE())
{
    int magic = 0;
    if (Ctx == nullptr) {
        FailX509(EINVAL, Message::CertBadCtx, line);
        return nullptr;
    }
    memcpy(&magic, Ctx, sizeof magic);
    if (magic != kCertMagic) {
        FailX509(EINVAL, Message::CertBadHandle, line);
        return nullptr;
    }
    return static_cast<X509*>(Ctx);
}

/// Decides whether a result of so many bytes is to be written; 0, or ENOMEM if there is no room for it.
int RequireRoom(size_t length, const char* Value, int* MaxSize, int line = __builtin_LINE())
{
    // What exceeds an int cannot be told either.
    if (length > INT_MAX || (Value != nullptr && *MaxSize < static_cast<int>(length)))
        return FailX509(ENOMEM, Message::CertNoRoom, line);
    *MaxSize = static_cast<int>(length);
    return 0;
}

int General_OutputBuffer(const void* bytes, size_t length, char* Value, int* MaxSize, int line = __builtin_LINE())
{
    if (const int error = RequireRoom(length, Value, MaxSize, line))
        return error;
    if (Value != nullptr)
        memcpy(Value, bytes, length);
    return 0;
}

/// A text with its NUL.
int OutputText(const char* text, char* Value, int* MaxSize, int line = __builtin_LINE())
{
    return General_OutputBuffer(text, strlen(text) + 1, Value, MaxSize, line);
}

int OutputNumber(int number, int* MaxSize)
{
    *MaxSize = number;
    return 0;
}

void OutputOid(const char (&oid)[kOidTextSize], char* OID)
{
    memcpy(OID, oid, strlen(oid) + 1);
}

// --- extensions as texts ---

/// Bits of a key usage, the highest of the first byte first.
constexpr std::string_view kKeyUsages[] = {"Digital Signature", "Non Repudiation", "Key Encipherment",
                                           "Data Encipherment", "Key Agreement",   "Certificate Sign",
                                           "CRL Sign",          "Encipher Only",   "Decipher Only"};

int OutputKeyUsage(Bytes value, char* Value, int* MaxSize)
{
    constexpr size_t kHeader = 3; // tag, length, number of unused bits
    constexpr unsigned kMostUnusedBits = 7;
    if (value.empty() || value[0] != kAsn1BitString)
        return FailX509(EINVAL, Message::CertKeyUsageType);
    if (value.size() <= kHeader || value[1] > SCHAR_MAX || value[1] != value.size() - 2 || value[2] > kMostUnusedBits)
        return FailX509(EINVAL, Message::CertKeyUsageLength);
    const size_t bits = (value.size() - kHeader) * CHAR_BIT - value[2];
    char text[256];
    TextBuilder builder(text);
    for (size_t i = 0; i < std::min(bits, std::size(kKeyUsages)); ++i)
        if ((value[kHeader + i / CHAR_BIT] << i % CHAR_BIT & 0x80) != 0)
            builder.Add(builder.Text().empty() ? "" : ", ").Add(kKeyUsages[i]);
    return OutputText(text, Value, MaxSize);
}

int OutputBasicConstraints(Bytes value, char* Value, int* MaxSize)
{
    Bytes content;
    if (const int error = Asn1Reader(value).Expect(kAsn1Sequence, &content))
        return error;
    Asn1Reader fields(content);
    bool isAuthority = false;
    if (!fields.AtEnd()) {
        if (const int error = fields.Expect(kAsn1Boolean, &content))
            return error;
        if (content.empty())
            return FailX509(EINVAL, Message::Asn1BadContent);
        isAuthority = content[0] != 0;
    }
    char text[64];
    TextBuilder builder(text);
    builder.Add(isAuthority ? "CA:TRUE" : "CA:FALSE");
    if (!fields.AtEnd()) {
        if (const int error = fields.Integer(&content))
            return error;
        builder.Add(", pathlen:").AddDecimal(content[0]);
    }
    return OutputText(text, Value, MaxSize);
}

/// Two lower-case digits and a blank for each byte.
int OutputHex(Bytes value, char* Value, int* MaxSize)
{
    constexpr char kDigits[] = "0123456789abcdef";
    constexpr size_t kPerByte = 3;
    if (const int error = RequireRoom(kPerByte * value.size() + 1, Value, MaxSize))
        return error;
    if (Value == nullptr)
        return 0;
    for (const unsigned byte : value) {
        *Value++ = kDigits[byte >> 4];
        *Value++ = kDigits[byte & 0xF];
        *Value++ = ' ';
    }
    *Value = '\0';
    return 0;
}

} // namespace

int ZKQGeneral_OpenCert(const char* Cert, int Length, void** Ctx)
{
    if (Ctx == nullptr)
        return FailX509(EINVAL, Message::CertBadCtx);
    if (Cert == nullptr)
        return FailX509(EINVAL, Message::CertBadCert);
    if (Length < 0)
        return FailX509(EINVAL, Message::CertBadLength);
    RawData raw;
    if (const int error = Length != 0 ? CopyRawData(Cert, static_cast<size_t>(Length), &raw) : ReadRawData(Cert, &raw))
        return error;
    UniqueX509 cert;
    if (const int error = ParseRawData(raw, &cert))
        return error;
    *Ctx = cert.release();
    return 0;
}

int ZKQGeneral_CertInfo_GetDNCount(void* Ctx, int bSubject, int* Count)
{
    const X509* const cert = General_CheckX509Ptr(Ctx);
    if (cert == nullptr)
        return EINVAL;
    if (Count != nullptr)
        *Count = bSubject != 0 ? cert->Count_Subject : cert->Count_Issuer;
    return 0;
}

int ZKQGeneral_CertInfo_GetDN(void* Ctx, int bSubject, int Index, char* OID, char* Value, int* MaxSize)
{
    const X509* const cert = General_CheckX509Ptr(Ctx);
    if (cert == nullptr)
        return EINVAL;
    if (Index < 0 || Index >= (bSubject != 0 ? cert->Count_Subject : cert->Count_Issuer))
        return FailX509(EINVAL, Message::CertBadIndex);
    if (OID == nullptr)
        return FailX509(EINVAL, Message::CertBadOid);
    if (MaxSize == nullptr)
        return FailX509(EINVAL, Message::CertBadMaxSize);
    const ONEDN& component = (bSubject != 0 ? cert->Subject : cert->Issuer)[Index];
    OutputOid(component.OID, OID);
    return OutputText(component.Value, Value, MaxSize);
}

int ZKQGeneral_CertInfo_GetInfo(void* Ctx, int Index, char* Value, int* MaxSize)
{
    const X509* const cert = General_CheckX509Ptr(Ctx);
    if (cert == nullptr)
        return EINVAL;
    if (MaxSize == nullptr)
        return FailX509(EINVAL, Message::CertBadMaxSize);
    const auto bytes = [Value, MaxSize](const unsigned char* field, int length) {
        return General_OutputBuffer(field, static_cast<size_t>(length), Value, MaxSize);
    };
    switch (Index) {
    case ZKQ_CERT_VERSION:
        return OutputNumber(cert->Version, MaxSize);
    case ZKQ_CERT_SERIAL:
        return OutputText(cert->SN, Value, MaxSize);
    case ZKQ_CERT_NOT_BEFORE:
        return OutputText(cert->StartTime, Value, MaxSize);
    case ZKQ_CERT_NOT_AFTER:
        return OutputText(cert->StopTime, Value, MaxSize);
    case ZKQ_CERT_KEY_ALGORITHM:
        return OutputText(cert->PKParam[0] != '\0' ? cert->PKParam : cert->PKAlg, Value, MaxSize);
    case ZKQ_CERT_KEY_LENGTH:
        return OutputNumber(cert->PublicKeyLength, MaxSize);
    case ZKQ_CERT_SIGN_ALGORITHM:
        return OutputText(cert->SignAlgOid_Data, Value, MaxSize);
    case ZKQ_CERT_KEY:
        return bytes(cert->PublicKey, cert->PublicKeyLength);
    case ZKQ_CERT_KEY_TYPE:
        return OutputNumber(strcmp(cert->PKAlg, kRsaKeyOid) == 0 ? ZKQ_CERT_KEY_TYPE_RSA : ZKQ_CERT_KEY_TYPE_EC,
                            MaxSize);
    case ZKQ_CERT_SIGNATURE_LENGTH:
        return OutputNumber(cert->SignDataLength, MaxSize);
    case ZKQ_CERT_SIGNATURE:
        return bytes(cert->SignData, cert->SignDataLength);
    case ZKQ_CERT_SUBJECT:
        return bytes(cert->SubjectDN, cert->SubjectDN_Length);
    case ZKQ_CERT_ISSUER:
        return bytes(cert->IssuerDN, cert->IssuerDN_Length);
    default:
        return FailX509(EINVAL, Message::CertUnknownInfo);
    }
}

int ZKQGeneral_CertInfo_GetExtCount(void* Ctx, int* Count)
{
    const X509* const cert = General_CheckX509Ptr(Ctx);
    if (cert == nullptr)
        return EINVAL;
    if (Count != nullptr)
        *Count = cert->Count_Extension;
    return 0;
}

int ZKQGeneral_CertInfo_GetExtInfo(void* Ctx, int Index, char* OID, int* bCritical, char* Value, int* MaxSize)
{
    const X509* const cert = General_CheckX509Ptr(Ctx);
    if (cert == nullptr)
        return EINVAL;
    if (Index < 0 || Index >= cert->Count_Extension)
        return FailX509(EINVAL, Message::CertBadIndex);
    if (OID == nullptr)
        return FailX509(EINVAL, Message::CertBadOid);
    if (MaxSize == nullptr)
        return FailX509(EINVAL, Message::CertBadMaxSize);
    const ONEEXTENSION& extension = cert->Extension[Index];
    const Bytes value(extension.Value, static_cast<size_t>(extension.ValueLength));
    OutputOid(extension.OID, OID);
    if (bCritical != nullptr)
        *bCritical = extension.bCritical;
    if (strcmp(extension.OID, kKeyUsageOid) == 0)
        return OutputKeyUsage(value, Value, MaxSize);
    if (strcmp(extension.OID, kBasicConstraintsOid) == 0)
        return OutputBasicConstraints(value, Value, MaxSize);
    if (strcmp(extension.OID, kHexOid) == 0)
        return OutputHex(value, Value, MaxSize);
    return General_OutputBuffer(value.data(), value.size(), Value, MaxSize);
}

int ZKQGeneral_CloseCert(void* Ctx)
{
    X509* const cert = General_CheckX509Ptr(Ctx);
    if (cert == nullptr)
        return EINVAL;
    FreeX509(cert);
    return 0;
}
