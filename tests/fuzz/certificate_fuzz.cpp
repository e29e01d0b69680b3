// Certificates: whatever opens answers every query, in any room, and tells the same in each of its forms.
#include <ZKQ_general/base64.h>
#include <ZKQ_general/error.h>
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <functional>

#include "fuzz.h"

namespace {

constexpr int kMostOfEach = 32;
constexpr size_t kMostKeyBytes = 1024;

/// Numbers that depend on the input alone.
class Chance {
public:
    Chance(const uint8_t* data, size_t size)
    {
        for (size_t i = 0; i < size; ++i)
            state_ = (state_ ^ data[i]) * 0x100000001B3;
    }
    int Below(int limit)
    {
        state_ = state_ * 6364136223846793005 + 1442695040888963407;
        return static_cast<int>((state_ >> 33) % static_cast<unsigned>(limit));
    }

private:
    uint64_t state_ = 0xCBF29CE484222325;
};

int Open(const std::string& bytes, void** ctx)
{
    const Exact<char> copy(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.Get());
    return ZKQGeneral_OpenCert(copy.Get(), static_cast<int>(bytes.size()), ctx);
}

using Ask = std::function<int(char* value, int* size)>;

/// A result, asked for in no room, in too little, in exactly enough, and in more.
std::string Answer(const Ask& ask, Chance& chance)
{
    int length = -1;
    const int error = ask(nullptr, &length);
    if (error != 0) {
        int size = 100;
        const Exact<char> room(100);
        REQUIRE(error == EINVAL && ask(room.Get(), &size) == EINVAL && size == 100);
        return "(refused)";
    }
    REQUIRE(length >= 0);
    if (length > 0) {
        const int small = chance.Below(length);
        int size = small;
        const Exact<char> room(static_cast<size_t>(small));
        REQUIRE(ask(room.Get(), &size) == ENOMEM && size == small);
    }
    int size = length + chance.Below(3);
    const Exact<char> room(static_cast<size_t>(size));
    REQUIRE(ask(room.Get(), &size) == 0 && size == length);
    return {room.Get(), static_cast<size_t>(length)};
}

void RequireOid(const char* oid)
{
    const std::string text = oid;
    REQUIRE(text.size() >= 3 && text.size() < ZKQ_CERT_OID_SIZE && text[0] >= '0' && text[0] <= '2');
    REQUIRE(text.find_first_not_of("0123456789.") == std::string::npos && text.find("..") == std::string::npos);
    REQUIRE(text[1] == '.' && text.back() != '.');
}

void RequireText(const std::string& text)
{
    REQUIRE(!text.empty() && text.find('\0') == text.size() - 1);
}

std::string Names(void* ctx, Chance& chance)
{
    std::string all;
    for (const int isSubject : {0, 1}) {
        int count = -1;
        REQUIRE(ZKQGeneral_CertInfo_GetDNCount(ctx, isSubject, &count) == 0 && count >= 0 && count <= kMostOfEach);
        const Exact<char> oid(ZKQ_CERT_OID_SIZE);
        for (int i = 0; i < count; ++i) {
            const std::string value =
                Answer([&](char* room,
                           int* size) { return ZKQGeneral_CertInfo_GetDN(ctx, isSubject, i, oid.Get(), room, size); },
                       chance);
            RequireOid(oid.Get());
            RequireText(value);
            all += oid.Get() + value;
        }
        int size = 0;
        for (const int index : {-1 - chance.Below(1000), count + chance.Below(1000)})
            REQUIRE(ZKQGeneral_CertInfo_GetDN(ctx, isSubject, index, oid.Get(), nullptr, &size) == EINVAL);
    }
    return all;
}

bool IsText(int index)
{
    return (index >= ZKQ_CERT_SERIAL && index <= ZKQ_CERT_KEY_ALGORITHM) || index == ZKQ_CERT_SIGN_ALGORITHM;
}

int Number(void* ctx, int index)
{
    int number = -1;
    REQUIRE(ZKQGeneral_CertInfo_GetInfo(ctx, index, nullptr, &number) == 0);
    return number;
}

std::string Fields(void* ctx, Chance& chance)
{
    std::string all;
    for (const int index :
         {ZKQ_CERT_SERIAL, ZKQ_CERT_NOT_BEFORE, ZKQ_CERT_NOT_AFTER, ZKQ_CERT_KEY_ALGORITHM, ZKQ_CERT_SIGN_ALGORITHM,
          ZKQ_CERT_KEY, ZKQ_CERT_SIGNATURE, ZKQ_CERT_SUBJECT, ZKQ_CERT_ISSUER}) {
        const std::string value =
            Answer([&](char* room, int* size) { return ZKQGeneral_CertInfo_GetInfo(ctx, index, room, size); }, chance);
        if (IsText(index))
            RequireText(value);
        if (index == ZKQ_CERT_KEY)
            REQUIRE(value.size() <= kMostKeyBytes &&
                    Number(ctx, ZKQ_CERT_KEY_LENGTH) == static_cast<int>(value.size()));
        if (index == ZKQ_CERT_SIGNATURE)
            REQUIRE(value.size() <= kMostKeyBytes &&
                    Number(ctx, ZKQ_CERT_SIGNATURE_LENGTH) == static_cast<int>(value.size()));
        all += value;
    }
    const int type = Number(ctx, ZKQ_CERT_KEY_TYPE);
    REQUIRE(type == ZKQ_CERT_KEY_TYPE_RSA || type == ZKQ_CERT_KEY_TYPE_EC);
    const int version = Number(ctx, ZKQ_CERT_VERSION);
    REQUIRE(version >= 0 && version <= 255);
    int size = 0;
    for (const int index : {0, 12 + chance.Below(7), 21 + chance.Below(1000), -1 - chance.Below(1000)})
        REQUIRE(ZKQGeneral_CertInfo_GetInfo(ctx, index, nullptr, &size) == EINVAL);
    return all + std::to_string(version) + std::to_string(type);
}

std::string Extensions(void* ctx, Chance& chance)
{
    std::string all;
    int count = -1;
    REQUIRE(ZKQGeneral_CertInfo_GetExtCount(ctx, &count) == 0 && count >= 0 && count <= kMostOfEach);
    const Exact<char> oid(ZKQ_CERT_OID_SIZE);
    for (int i = 0; i < count; ++i) {
        int critical = -1;
        const std::string value =
            Answer([&](char* room,
                       int* size) { return ZKQGeneral_CertInfo_GetExtInfo(ctx, i, oid.Get(), &critical, room, size); },
                   chance);
        RequireOid(oid.Get());
        REQUIRE(critical == 0 || critical == 1);
        all += oid.Get() + value;
    }
    int size = 0;
    for (const int index : {-1 - chance.Below(1000), count + chance.Below(1000)})
        REQUIRE(ZKQGeneral_CertInfo_GetExtInfo(ctx, index, oid.Get(), nullptr, nullptr, &size) == EINVAL);
    return all;
}

/// All that a certificate tells, or its error as a number.
std::string Told(const std::string& bytes, Chance chance)
{
    char none = 0;
    void* ctx = &none;
    const int result = Open(bytes, &ctx);
    if (result != 0) {
        REQUIRE(result == EINVAL && ctx == &none);
        return std::to_string(result);
    }
    const std::string all = Names(ctx, chance) + Fields(ctx, chance) + Extensions(ctx, chance);
    REQUIRE(ZKQGeneral_CloseCert(ctx) == 0);
    return all;
}

std::string Base64(const uint8_t* data, size_t size, int columns)
{
    char* text = nullptr;
    REQUIRE(ZKQGeneral_ConvertToBase64Ex(data, static_cast<int>(size), &text, columns));
    std::string result = text;
    ZKQGeneral_FreeMallocBuffer(text);
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const Chance chance(data, size);
    strcpy(ZKQGeneral_GetGeneralErrorInfo(), "(mark)");
    const std::string told = Told({reinterpret_cast<const char*>(data), size}, chance);
    REQUIRE(strcmp(ZKQGeneral_GetGeneralErrorInfo(), "(mark)") == 0);
    if (data[0] != '0')
        return 0;
    const std::string pem = "-----BEGIN CERTIFICATE-----\n" + Base64(data, size, 64) + "\n-----END CERTIFICATE-----\n";
    REQUIRE(Told(pem, chance) == told);
    REQUIRE(Told(Base64(data, size, 0), chance) == told);
    return 0;
}
