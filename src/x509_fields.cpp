// The fields of a certificate, in their order.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <string_view>

#include "internal/charset.h"
#include "internal/guards.h"
#include "internal/text.h"
#include "internal/x509_certificate.h"
#include "messages_gbk.h"

namespace {

constexpr time_t kShownAheadOfUtc = 8 * 60 * 60; // whatever the zone of the machine
constexpr int kFirstYearOfTm = 1900;
constexpr int kFirstShortYearOf1900 = 50;
constexpr int kMonths = 12;

enum ExplicitTag { kVersionTag = 0, kIssuerIdTag = 1, kSubjectIdTag = 2, kExtensionsTag = 3 };

/// A copy on the heap, of nothing as well; null if there is no memory.
MallocPtr<unsigned char> Copy(Bytes bytes)
{
    MallocPtr<unsigned char> copy(static_cast<unsigned char*>(malloc(std::max<size_t>(bytes.size(), 1))));
    if (copy != nullptr)
        std::copy(bytes.begin(), bytes.end(), copy.get());
    return copy;
}

int ReadVersion(Asn1Reader* tbs, X509* cert)
{
    Asn1Object version;
    Bytes content;
    if (const int error = tbs->Expect(kVersionTag, kAsn1Context, &version))
        return error;
    if (const int error = Asn1Reader(version.content).Integer(&content))
        return error;
    cert->Version = content[0];
    return 0;
}

int ReadSerialNumber(Asn1Reader* tbs, X509* cert)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    Bytes content;
    if (const int error = tbs->Integer(&content))
        return error;
    char* next = static_cast<char*>(malloc(2 * content.size() + 1));
    if (next == nullptr)
        return FailX509(ENOMEM, Message::CertNoSerialMemory);
    cert->SN = next;
    for (const unsigned byte : content) {
        *next++ = kDigits[byte >> 4];
        *next++ = kDigits[byte & 0xF];
    }
    *next = '\0';
    return 0;
}

/// Reads an algorithm; what follows the OID is left to the caller.
int ReadAlgorithm(Asn1Reader* from, char (&oid)[kOidTextSize], Bytes* parameter = nullptr)
{
    Bytes content;
    if (const int error = from->Expect(kAsn1Sequence, &content))
        return error;
    Asn1Reader algorithm(content);
    if (const int error = algorithm.Oid(oid))
        return error;
    if (parameter == nullptr || algorithm.AtEnd())
        return 0;
    Asn1Object object;
    if (const int error = algorithm.Next(&object))
        return error;
    if (object.Is(kAsn1Oid))
        *parameter = object.content;
    return 0;
}

// --- names ---

/// Where the name of one side goes.
struct NameFields {
    ONEDN* components;
    int* count;
    unsigned char** copy;
    int* length;
    const char* noMemory;
};

/// Big-endian units, the other way round.
MallocPtr<unsigned char> SwappedUnits(Bytes units)
{
    MallocPtr<unsigned char> swapped = Copy(units);
    for (size_t i = 1; swapped != nullptr && i < units.size(); i += 2)
        std::swap(swapped.get()[i - 1], swapped.get()[i]);
    return swapped;
}

/// Puts a value in the local code page into a buffer of its size and a NUL.
int ConvertValue(const Asn1Object& value, char* text)
{
    const int size = static_cast<int>(value.content.size());
    int length = size;
    int error = 0;
    if (value.Is(kAsn1BmpString)) {
        const MallocPtr<unsigned char> units = SwappedUnits(value.content);
        if (units == nullptr)
            return FailX509(ENOMEM, Message::CertNoDnMemory);
        error = ConvertText(kUcs2ToGbk, units.get(), size, text, &length);
    } else if (value.Is(kAsn1Utf8String)) {
        error = ConvertText(kUtf8ToGbk, value.content.data(), size, text, &length);
    } else {
        std::copy(value.content.begin(), value.content.end(), text);
    }
    if (error != 0)
        return FailX509(EINVAL, Message::CertDnNotConverted);
    text[length] = '\0';
    return 0;
}

/// Reads the first attribute of a SET; others that it may have are passed over.
int ReadComponent(Bytes set, ONEDN* component)
{
    Bytes content;
    if (const int error = Asn1Reader(set).Expect(kAsn1Sequence, &content))
        return error;
    Asn1Reader attribute(content);
    Asn1Object value;
    if (const int error = attribute.Oid(component->OID))
        return error;
    if (const int error = attribute.Next(&value))
        return error;
    component->Value = static_cast<char*>(malloc(value.content.size() + 1));
    if (component->Value == nullptr)
        return FailX509(ENOMEM, Message::CertNoDnMemory);
    component->Value[0] = '\0';
    return ConvertValue(value, component->Value);
}

int ReadName(Asn1Reader* tbs, const NameFields& fields)
{
    Bytes name;
    if (const int error = tbs->Expect(kAsn1Sequence, &name))
        return error;
    *fields.copy = Copy(name).release();
    if (*fields.copy == nullptr)
        return FailX509(ENOMEM, fields.noMemory);
    *fields.length = static_cast<int>(name.size());
    for (Asn1Reader sets(name); !sets.AtEnd();) {
        Bytes set;
        if (const int error = sets.Expect(kAsn1Set, &set))
            return error;
        if (*fields.count == kMaxComponents)
            return FailX509(EINVAL, Message::CertTooManyComponents);
        if (const int error = ReadComponent(set, &fields.components[(*fields.count)++]))
            return error;
    }
    return 0;
}

// --- times ---

bool AreDigits(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

int TwoDigits(const char* text)
{
    return (text[0] - '0') * 10 + (text[1] - '0');
}

void ShowTime(const tm& fields, char (&shown)[kTimeTextSize])
{
    const int year = fields.tm_year + kFirstYearOfTm;
    TextBuilder(shown)
        .AddDecimal(year, year < 0 ? 3 : 4)
        .Add('-')
        .AddDecimal(fields.tm_mon + 1, 2)
        .Add('-')
        .AddDecimal(fields.tm_mday, 2)
        .Add(' ')
        .AddDecimal(fields.tm_hour, 2)
        .Add(':')
        .AddDecimal(fields.tm_min, 2)
        .Add(':')
        .AddDecimal(fields.tm_sec, 2);
}

/// Turns the text of a time into the one that is shown. The year has two digits or four.
int ConvertTime(std::string_view text, size_t yearDigits, char (&shown)[kTimeTextSize])
{
    const size_t withMinutes = yearDigits + 8;
    if (text.size() < withMinutes || !AreDigits(text.substr(0, withMinutes)))
        return FailX509(EINVAL, Message::CertBadTime);
    int year = TwoDigits(text.data());
    if (yearDigits == 4)
        year = year * 100 + TwoDigits(text.data() + 2);
    else
        year += year < kFirstShortYearOf1900 ? 2000 : 1900;
    const char* const rest = text.data() + yearDigits;
    tm fields = {};
    fields.tm_year = year - kFirstYearOfTm;
    fields.tm_mon = TwoDigits(rest) - 1;
    fields.tm_mday = TwoDigits(rest + 2);
    fields.tm_hour = TwoDigits(rest + 4);
    fields.tm_min = TwoDigits(rest + 6);
    if (text.size() >= withMinutes + 2 && AreDigits(After(text.substr(0, withMinutes + 2), withMinutes)))
        fields.tm_sec = TwoDigits(rest + 8);
    if (fields.tm_mon < 0 || fields.tm_mon >= kMonths)
        return FailX509(EINVAL, Message::CertBadTime);
    if (text.back() == 'Z') {
        const time_t moved = timegm(&fields) + kShownAheadOfUtc;
        gmtime_r(&moved, &fields);
    }
    ShowTime(fields, shown);
    return 0;
}

int ReadTime(Asn1Reader* validity, char (&shown)[kTimeTextSize])
{
    Asn1Object time;
    if (const int error = validity->Next(&time))
        return error;
    if (!time.Is(kAsn1UtcTime) && !time.Is(kAsn1GeneralizedTime))
        return FailX509(EINVAL, Message::Asn1Mismatch);
    const std::string_view text(reinterpret_cast<const char*>(time.content.data()), time.content.size());
    return ConvertTime(text, time.Is(kAsn1UtcTime) ? 2 : 4, shown);
}

int ReadValidity(Asn1Reader* tbs, X509* cert)
{
    Bytes content;
    if (const int error = tbs->Expect(kAsn1Sequence, &content))
        return error;
    Asn1Reader validity(content);
    if (const int error = ReadTime(&validity, cert->StartTime))
        return error;
    return ReadTime(&validity, cert->StopTime);
}

// --- keys and signatures ---

/// Stores what must fit into its field.
int StoreBits(Bytes bits, unsigned char (&field)[kMaxKeyBytes], int* length, const char* tooLong)
{
    if (bits.size() > sizeof field)
        return FailX509(EINVAL, tooLong);
    std::copy(bits.begin(), bits.end(), field);
    *length = static_cast<int>(bits.size());
    return 0;
}

int ReadPublicKey(Asn1Reader* tbs, X509* cert)
{
    Bytes content;
    if (const int error = tbs->Expect(kAsn1Sequence, &content))
        return error;
    Asn1Reader info(content);
    Bytes parameter;
    if (const int error = ReadAlgorithm(&info, cert->PKAlg, &parameter))
        return error;
    if (parameter.data() != nullptr) {
        if (const int error = General_OBJ_obj2txt(parameter, cert->PKParam))
            return error;
    }
    Bytes key;
    if (const int error = info.BitString(&key))
        return error;
    if (key.size() % 2 != 0 && strcmp(cert->PKAlg, kEcKeyOid) == 0)
        key = key.subspan(1); // how the point is written
    return StoreBits(key, cert->PublicKey, &cert->PublicKeyLength, Message::CertKeyTooLong);
}

// --- extensions ---

int ReadExtension(Bytes content, ONEEXTENSION* extension)
{
    Asn1Reader fields(content);
    Bytes value;
    if (const int error = fields.Oid(extension->OID))
        return error;
    if (fields.IsNext(kAsn1Boolean)) {
        if (const int error = fields.Expect(kAsn1Boolean, &value))
            return error;
        if (value.empty())
            return FailX509(EINVAL, Message::Asn1BadContent);
        extension->bCritical = value[0] != 0 ? 1 : 0;
    }
    if (const int error = fields.Expect(kAsn1OctetString, &value))
        return error;
    extension->Value = Copy(value).release();
    if (extension->Value == nullptr)
        return FailX509(ENOMEM, Message::CertNoExtensionMemory);
    extension->ValueLength = static_cast<int>(value.size());
    return 0;
}

int ReadExtensions(Bytes content, X509* cert)
{
    Bytes list;
    if (const int error = Asn1Reader(content).Expect(kAsn1Sequence, &list))
        return error;
    for (Asn1Reader extensions(list); !extensions.AtEnd();) {
        Bytes extension;
        if (const int error = extensions.Expect(kAsn1Sequence, &extension))
            return error;
        if (cert->Count_Extension == kMaxExtensions)
            return FailX509(EINVAL, Message::CertTooManyExtensions);
        if (const int error = ReadExtension(extension, &cert->Extension[cert->Count_Extension++]))
            return error;
    }
    return 0;
}

/// What may follow the public key.
int ReadOptionalFields(Asn1Reader* tbs, X509* cert)
{
    Asn1Object object;
    for (const int tag : {kIssuerIdTag, kSubjectIdTag}) {
        if (!tbs->IsNext(tag, kAsn1Context))
            continue;
        if (const int error = tbs->Next(&object))
            return error;
    }
    if (tbs->AtEnd())
        return 0;
    if (const int error = tbs->Expect(kExtensionsTag, kAsn1Context, &object))
        return error;
    return ReadExtensions(object.content, cert);
}

int ReadToBeSigned(Bytes content, X509* cert)
{
    Asn1Reader tbs(content);
    if (const int error = ReadVersion(&tbs, cert))
        return error;
    if (const int error = ReadSerialNumber(&tbs, cert))
        return error;
    if (const int error = ReadAlgorithm(&tbs, cert->SignAlgOid))
        return error;
    if (const int error = ReadName(&tbs, {cert->Issuer, &cert->Count_Issuer, &cert->IssuerDN, &cert->IssuerDN_Length,
                                          Message::CertNoIssuerMemory}))
        return error;
    if (const int error = ReadValidity(&tbs, cert))
        return error;
    if (const int error = ReadName(&tbs, {cert->Subject, &cert->Count_Subject, &cert->SubjectDN,
                                          &cert->SubjectDN_Length, Message::CertNoSubjectMemory}))
        return error;
    if (const int error = ReadPublicKey(&tbs, cert))
        return error;
    return ReadOptionalFields(&tbs, cert);
}

} // namespace

int ParseCertificate(Bytes der, X509* cert)
{
    Asn1Object outer;
    Bytes content;
    if (const int error = Asn1Reader(der).Expect(kAsn1Sequence, kAsn1Universal, &outer))
        return error;
    Asn1Reader fields(outer.content);
    if (const int error = fields.Expect(kAsn1Sequence, &content))
        return error;
    if (const int error = ReadToBeSigned(content, cert))
        return error;
    if (const int error = ReadAlgorithm(&fields, cert->SignAlgOid_Data))
        return error;
    if (const int error = fields.BitString(&content))
        return error;
    if (const int error = StoreBits(content, cert->SignData, &cert->SignDataLength, Message::CertSignatureTooLong))
        return error;
    return outer.isIndefinite && fields.IsNext(kAsn1EndOfContents) ? fields.Next(&outer) : 0;
}
