// Messages in their three forms, and certificates.
#include <ZKQ_general/x509.h>
#include <stdlib.h>
#include <string.h>

#include "strain.h"

namespace strain {
namespace {

struct Part {
    int number;
    char* note;
};
struct Whole {
    int serial;
    char name[16];
    char* text;
    unsigned char* data;
    int dataLength;
    Part* parts;
    int partCount;
};

const GENERAL_MSG_TEMPLATE kPart[] = {ZKQ_MSG_INT32(Part, number, "number", ""),
                                      ZKQ_MSG_STRINGPTR(Part, note, "note", "@")};
ZKQ_MSG_RECORD_ITEM(Part_it, kPart)

const GENERAL_MSG_TEMPLATE kWhole[] = {
    ZKQ_MSG_INT32(Whole, serial, "serial", "/whole"), ZKQ_MSG_STRING(Whole, name, "name", "/whole"),
    ZKQ_MSG_STRINGPTR(Whole, text, "text", "/whole/@"),
    ZKQ_MSG_BYTEARRAYPTR(Whole, data, dataLength, "data", "/whole/@"),
    ZKQ_MSG_RECORDSPTR(Whole, parts, partCount, Part_it, "parts", "/whole/list/part/count@")};
ZKQ_MSG_RECORD_ITEM(Whole_it, kWhole)

/// XML and JSON carry no bytes behind a pointer.
const GENERAL_MSG_TEMPLATE kReadable[] = {
    ZKQ_MSG_INT32(Whole, serial, "serial", "/whole"), ZKQ_MSG_STRING(Whole, name, "name", "/whole"),
    ZKQ_MSG_STRINGPTR(Whole, text, "text", "/whole/@"),
    ZKQ_MSG_RECORDSPTR(Whole, parts, partCount, Part_it, "parts", "/whole/list/part/count@")};
ZKQ_MSG_RECORD_ITEM(Readable_it, kReadable)

bool SameParts(const Whole& told, const Whole& read)
{
    if (read.partCount != told.partCount)
        return false;
    for (int i = 0; i < told.partCount; ++i)
        if (read.parts[i].number != told.parts[i].number || read.parts[i].note == nullptr ||
            strcmp(read.parts[i].note, told.parts[i].note) != 0)
            return false;
    return true;
}

bool Same(const Whole& told, const Whole& read, int mode)
{
    return read.serial == told.serial && strcmp(read.name, told.name) == 0 && read.text != nullptr &&
           strcmp(read.text, told.text) == 0 && SameParts(told, read) &&
           (mode != ZKQ_MSG_DER || (read.dataLength == told.dataLength &&
                                    memcmp(read.data, told.data, static_cast<size_t>(told.dataLength)) == 0));
}

void RoundTrip(Worker& worker)
{
    std::string text = worker.Word(1 + worker.Below(60));
    std::string data = worker.Bytes(1 + worker.Below(60));
    std::vector<std::string> notes(1 + worker.Below(5));
    std::vector<Part> parts;
    for (std::string& note : notes) {
        note = worker.Word(1 + worker.Below(20));
        parts.push_back({static_cast<int>(worker.Below(1000)), note.data()});
    }
    Whole whole = {};
    whole.serial = static_cast<int>(worker.Below(2'000'000'000));
    worker.Word(1 + worker.Below(14)).copy(whole.name, sizeof whole.name - 1);
    whole.text = text.data();
    whole.data = reinterpret_cast<unsigned char*>(data.data());
    whole.dataLength = static_cast<int>(data.size());
    whole.parts = parts.data();
    whole.partCount = static_cast<int>(parts.size());

    const int mode = static_cast<int>(worker.Below(3));
    const GENERAL_MSG_ITEM* const item = mode == ZKQ_MSG_DER ? Whole_it() : Readable_it();
    unsigned char* out = nullptr;
    const int length = ZKQGeneral_MSG_i2d(&whole, &out, 0, item, mode);
    const Owned<unsigned char> owned(out);
    worker.Must(mode == ZKQ_MSG_DER ? length > 0 : length == 0, "MSG_i2d");
    const Exact input(std::string_view(reinterpret_cast<char*>(out), mode == ZKQ_MSG_DER
                                                                         ? static_cast<size_t>(length)
                                                                         : strlen(reinterpret_cast<char*>(out)) + 1));
    Whole read;
    worker.Must(ZKQGeneral_MSG_d2i(&read, sizeof read, input.Data(), input.Size(), item, mode) == 0, "MSG_d2i");
    const Holder release([&] { ZKQGeneral_MSG_free(&read, item, 0, mode); });
    if (mode == ZKQ_MSG_XML) // its reader reports no errors, want of memory included, and reads less
        worker.RightUnlessFault(Same(whole, read, mode), "the record that comes back");
    else
        worker.Right(Same(whole, read, mode), "the record that comes back");
}

/// Adds what a query answers: a value asked for in two steps.
template <class Query>
int Tell(std::string& told, Query query)
{
    int size = 0;
    if (const int error = query(nullptr, &size))
        return error;
    const Exact room(static_cast<size_t>(size));
    if (const int error = query(room.Text(), &size))
        return error;
    told += "[" + room.String(static_cast<size_t>(size)) + "]";
    return 0;
}

int TellName(void* certificate, int isSubject, std::string& told)
{
    int count = 0;
    if (const int error = ZKQGeneral_CertInfo_GetDNCount(certificate, isSubject, &count))
        return error;
    char oid[ZKQ_CERT_OID_SIZE];
    for (int i = 0; i < count; ++i) {
        if (const int error = Tell(told, [&](char* value, int* size) {
                return ZKQGeneral_CertInfo_GetDN(certificate, isSubject, i, oid, value, size);
            }))
            return error;
        told += oid;
    }
    return 0;
}

int TellExtensions(void* certificate, std::string& told)
{
    int count = 0;
    if (const int error = ZKQGeneral_CertInfo_GetExtCount(certificate, &count))
        return error;
    char oid[ZKQ_CERT_OID_SIZE];
    int isCritical = 0;
    for (int i = 0; i < count; ++i) {
        if (const int error = Tell(told, [&](char* value, int* size) {
                return ZKQGeneral_CertInfo_GetExtInfo(certificate, i, oid, &isCritical, value, size);
            }))
            return error;
        told += oid + std::to_string(isCritical);
    }
    return 0;
}

int TellAll(void* certificate, std::string& told)
{
    for (const int field :
         {ZKQ_CERT_SERIAL, ZKQ_CERT_NOT_BEFORE, ZKQ_CERT_NOT_AFTER, ZKQ_CERT_KEY_ALGORITHM, ZKQ_CERT_SIGN_ALGORITHM,
          ZKQ_CERT_KEY, ZKQ_CERT_SIGNATURE, ZKQ_CERT_SUBJECT, ZKQ_CERT_ISSUER})
        if (const int error = Tell(told, [&](char* value, int* size) {
                return ZKQGeneral_CertInfo_GetInfo(certificate, field, value, size);
            }))
            return error;
    for (const int isSubject : {0, 1})
        if (const int error = TellName(certificate, isSubject, told))
            return error;
    return TellExtensions(certificate, told);
}

void Certificates(Worker& worker)
{
    const Process& process = worker.process;
    const size_t i = worker.Below(process.certificates.size());
    int error = 0;
    const std::string told = TellCertificate(process.certificates[i], &error);
    worker.Must(error == 0, "a certificate that had been read before");
    worker.Right(told == process.certificatesAsTold[i], "what a certificate tells");
}

} // namespace

std::string TellCertificate(const std::string& bytes, int* error)
{
    const Exact copy(bytes);
    void* certificate = nullptr;
    *error = ZKQGeneral_OpenCert(copy.Text(), copy.Size(), &certificate);
    if (*error != 0)
        return {};
    const Holder close([&] { ZKQGeneral_CloseCert(certificate); });
    std::string told;
    *error = TellAll(certificate, told);
    return told;
}

void AddMessage(Operations& operations)
{
    operations.insert(operations.end(), {{"x509 messages", "round trip", RoundTrip, 4},
                                         {"x509 certificates", "fields", Certificates, 4}});
}

} // namespace strain
