// Certificates as OpenSSL reads them: those of the system, and some that OpenSSL has made, compared field by field.
#include <ZKQ_general/x509.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>
#include <stdlib.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>

#include "support/bare_iconv.h"
#include "support/certificate.h"

namespace {

using support::OpenedCertificate;

template <auto release>
struct Releaser {
    template <class T>
    void operator()(T* object) const
    {
        release(object);
    }
};
template <class T, auto release>
using Owned = std::unique_ptr<T, Releaser<release>>;
using Certificate = Owned<X509, X509_free>;
using Key = Owned<EVP_PKEY, EVP_PKEY_free>;
using Input = Owned<BIO, BIO_free_all>;

constexpr char kStore[] = "/etc/ssl/certs";

std::string Bytes(const unsigned char* data, int length)
{
    return {reinterpret_cast<const char*>(data), static_cast<size_t>(length)};
}

std::string OidText(const ASN1_OBJECT* object)
{
    char text[128];
    const int length = OBJ_obj2txt(text, sizeof text, object, 1);
    return {text, static_cast<size_t>(length)};
}

/// A value in the local code page; nothing if it has characters that are not in it.
std::optional<std::string> Gbk(const ASN1_STRING* value)
{
    const std::string bytes = Bytes(ASN1_STRING_get0_data(value), ASN1_STRING_length(value));
    const int type = ASN1_STRING_type(value);
    if (type != V_ASN1_UTF8STRING && type != V_ASN1_BMPSTRING)
        return bytes;
    const support::Converted text = support::BareIconv("GBK", type == V_ASN1_UTF8STRING ? "UTF-8" : "UCS-2BE")(bytes);
    return text.error == 0 ? std::optional(text.bytes) : std::nullopt;
}

std::optional<std::vector<OpenedCertificate::Component>> NameOf(const X509_NAME* name)
{
    std::vector<OpenedCertificate::Component> components;
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        const std::optional<std::string> value = Gbk(X509_NAME_ENTRY_get_data(entry));
        if (!value)
            return std::nullopt;
        components.emplace_back(OidText(X509_NAME_ENTRY_get_object(entry)), *value);
    }
    return components;
}

/// A time eight hours later.
std::string Shown(const ASN1_TIME* time)
{
    tm fields = {};
    EXPECT_EQ(ASN1_TIME_to_tm(time, &fields), 1);
    const time_t later = timegm(&fields) + 8 * 3600;
    gmtime_r(&later, &fields);
    char text[64];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
    return text;
}

/// The content of a name: what follows its own tag and length.
std::string NameContent(const X509_NAME* name)
{
    const unsigned char* der = nullptr;
    size_t size = 0;
    EXPECT_EQ(X509_NAME_get0_der(name, &der, &size), 1);
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    const unsigned char* content = der;
    ASN1_get_object(&content, &length, &tag, &tagClass, static_cast<long>(size));
    return Bytes(content, static_cast<int>(length));
}

std::string Serial(const X509* judge)
{
    const ASN1_INTEGER* number = X509_get0_serialNumber(judge);
    unsigned char* der = nullptr;
    const int size = i2d_ASN1_INTEGER(number, &der);
    std::string text;
    for (int i = 2; i < size; ++i) {
        char two[3];
        snprintf(two, sizeof two, "%02X", der[i]);
        text += two;
    }
    OPENSSL_free(der);
    return text;
}

void CompareKey(const OpenedCertificate& cert, const X509* judge)
{
    ASN1_OBJECT* algorithm = nullptr;
    const unsigned char* key = nullptr;
    int length = 0;
    X509_ALGOR* identifier = nullptr;
    ASSERT_EQ(X509_PUBKEY_get0_param(&algorithm, &key, &length, &identifier, X509_get_X509_PUBKEY(judge)), 1);
    int type = 0;
    const void* parameter = nullptr;
    X509_ALGOR_get0(nullptr, &type, &parameter, identifier);
    const std::string oid = OidText(algorithm);
    EXPECT_EQ(cert.Text(ZKQ_CERT_KEY_ALGORITHM),
              type == V_ASN1_OBJECT ? OidText(static_cast<const ASN1_OBJECT*>(parameter)) : oid);
    const bool isRsa = OBJ_obj2nid(algorithm) == NID_rsaEncryption;
    EXPECT_EQ(cert.Number(ZKQ_CERT_KEY_TYPE), isRsa ? NID_rsaEncryption : NID_X9_62_id_ecPublicKey);
    const bool isPoint = OBJ_obj2nid(algorithm) == NID_X9_62_id_ecPublicKey && length % 2 == 1;
    EXPECT_EQ(cert.Field(ZKQ_CERT_KEY), Bytes(key + isPoint, length - isPoint));
    EXPECT_EQ(cert.Number(ZKQ_CERT_KEY_LENGTH), length - isPoint);
}

std::string KeyUsage(const X509* judge)
{
    constexpr struct {
        uint32_t bit;
        const char* name;
    } kNames[] = {{KU_DIGITAL_SIGNATURE, "Digital Signature"},
                  {KU_NON_REPUDIATION, "Non Repudiation"},
                  {KU_KEY_ENCIPHERMENT, "Key Encipherment"},
                  {KU_DATA_ENCIPHERMENT, "Data Encipherment"},
                  {KU_KEY_AGREEMENT, "Key Agreement"},
                  {KU_KEY_CERT_SIGN, "Certificate Sign"},
                  {KU_CRL_SIGN, "CRL Sign"},
                  {KU_ENCIPHER_ONLY, "Encipher Only"},
                  {KU_DECIPHER_ONLY, "Decipher Only"}};
    const uint32_t usage = X509_get_key_usage(const_cast<X509*>(judge)); // NOLINT: OpenSSL's prototype
    std::string text;
    for (const auto& row : kNames)
        if ((usage & row.bit) != 0)
            text.append(text.empty() ? "" : ", ").append(row.name);
    return text + '\0';
}

std::string Constraints(const X509* judge)
{
    int critical = 0;
    const Owned<BASIC_CONSTRAINTS, BASIC_CONSTRAINTS_free> constraints(
        static_cast<BASIC_CONSTRAINTS*>(X509_get_ext_d2i(judge, NID_basic_constraints, &critical, nullptr)));
    std::string text = constraints->ca != 0 ? "CA:TRUE" : "CA:FALSE";
    if (constraints->pathlen != nullptr)
        text += ", pathlen:" + std::to_string(ASN1_INTEGER_get(constraints->pathlen));
    return text + '\0';
}

void CompareExtensions(const OpenedCertificate& cert, const X509* judge)
{
    ASSERT_EQ(cert.ExtensionCount(), X509_get_ext_count(judge));
    for (int i = 0; i < cert.ExtensionCount(); ++i) {
        X509_EXTENSION* const extension = X509_get_ext(judge, i);
        const OpenedCertificate::Extension read = cert.ExtensionAt(i);
        EXPECT_EQ(read.oid, OidText(X509_EXTENSION_get_object(extension)));
        EXPECT_EQ(read.critical, X509_EXTENSION_get_critical(extension));
        const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(extension);
        if (read.oid == "2.5.29.15")
            EXPECT_EQ(read.value, KeyUsage(judge));
        else if (read.oid == "2.5.29.19")
            EXPECT_EQ(read.value, Constraints(judge));
        else
            EXPECT_EQ(read.value, Bytes(ASN1_STRING_get0_data(value), ASN1_STRING_length(value)));
    }
}

/// Opens a certificate and compares all that it tells; false if it must be refused for its names, and is.
bool Compare(const std::string& bytes, const X509* judge)
{
    const auto issuer = NameOf(X509_get_issuer_name(judge));
    const auto subject = NameOf(X509_get_subject_name(judge));
    void* ctx = nullptr;
    const int result = support::OpenCertificate(bytes, &ctx);
    if (!issuer || !subject) {
        EXPECT_EQ(result, EINVAL);
        return false;
    }
    EXPECT_EQ(result, 0);
    if (result != 0)
        return true;
    const OpenedCertificate cert(ctx);
    EXPECT_EQ(cert.Number(ZKQ_CERT_VERSION), X509_get_version(judge));
    EXPECT_EQ(cert.Text(ZKQ_CERT_SERIAL), Serial(judge));
    EXPECT_EQ(cert.Text(ZKQ_CERT_NOT_BEFORE), Shown(X509_get0_notBefore(judge)));
    EXPECT_EQ(cert.Text(ZKQ_CERT_NOT_AFTER), Shown(X509_get0_notAfter(judge)));
    EXPECT_EQ(cert.Name(false), *issuer);
    EXPECT_EQ(cert.Name(true), *subject);
    EXPECT_EQ(cert.Field(ZKQ_CERT_ISSUER), NameContent(X509_get_issuer_name(judge)));
    EXPECT_EQ(cert.Field(ZKQ_CERT_SUBJECT), NameContent(X509_get_subject_name(judge)));
    const ASN1_BIT_STRING* signature = nullptr;
    const X509_ALGOR* algorithm = nullptr;
    X509_get0_signature(&signature, &algorithm, judge);
    EXPECT_EQ(cert.Text(ZKQ_CERT_SIGN_ALGORITHM), OidText(algorithm->algorithm));
    EXPECT_EQ(cert.Field(ZKQ_CERT_SIGNATURE), Bytes(ASN1_STRING_get0_data(signature), ASN1_STRING_length(signature)));
    EXPECT_EQ(cert.Number(ZKQ_CERT_SIGNATURE_LENGTH), ASN1_STRING_length(signature));
    CompareKey(cert, judge);
    CompareExtensions(cert, judge);
    return true;
}

std::string DerOf(const X509* judge)
{
    unsigned char* der = nullptr;
    const int size = i2d_X509(judge, &der);
    const std::string bytes = Bytes(der, size);
    OPENSSL_free(der);
    return bytes;
}

std::string PemOf(X509* judge)
{
    const Input memory(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PEM_write_bio_X509(memory.get(), judge), 1);
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<size_t>(size)};
}

TEST(CertificateOpenSsl, EveryCertificateOfTheSystem)
{
    int compared = 0;
    int refused = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kStore)) {
        if (entry.path().extension() != ".pem")
            continue;
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const Input memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
        const Certificate judge(PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr));
        if (judge == nullptr)
            continue;
        SCOPED_TRACE(entry.path());
        const bool wasCompared = Compare(text, judge.get());
        EXPECT_EQ(Compare(DerOf(judge.get()), judge.get()), wasCompared);
        ++(wasCompared ? compared : refused);
    }
    if (compared + refused == 0)
        GTEST_SKIP() << "no certificates in " << kStore;
    EXPECT_GT(compared, 20 * refused);
}

// --- certificates that OpenSSL has made ---

struct Recipe {
    const char* name;
    const char* keyType;
    int keyDetail;
    const char* subject;
    int stringType; ///< of OpenSSL: MBSTRING_ASC lets it choose
    const char* notAfter;
    std::vector<std::pair<int, const char*>> extensions;

    friend void PrintTo(const Recipe& recipe, std::ostream* out) { *out << recipe.name; }
};

Key MakeKey(const Recipe& recipe)
{
    if (std::string(recipe.keyType) == "RSA")
        return Key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(recipe.keyDetail)));
    if (std::string(recipe.keyType) == "EC")
        return Key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", OBJ_nid2sn(recipe.keyDetail)));
    return Key(EVP_PKEY_Q_keygen(nullptr, nullptr, recipe.keyType));
}

Certificate Make(const Recipe& recipe)
{
    const Key key = MakeKey(recipe);
    Certificate made(X509_new());
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(made.get()), 0xFEDCBA9876543210);
    ASN1_TIME_set_string(X509_getm_notBefore(made.get()), "20200229235959Z");
    ASN1_TIME_set_string_X509(X509_getm_notAfter(made.get()), recipe.notAfter);
    X509_NAME* const name = X509_get_subject_name(made.get());
    X509_NAME_add_entry_by_txt(name, "C", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("CN"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", recipe.stringType, reinterpret_cast<const unsigned char*>(recipe.subject),
                               -1, -1, 0);
    X509_set_issuer_name(made.get(), name);
    X509_set_pubkey(made.get(), key.get());
    for (const auto& [nid, value] : recipe.extensions) {
        const Owned<X509_EXTENSION, X509_EXTENSION_free> extension(X509V3_EXT_conf_nid(nullptr, nullptr, nid, value));
        EXPECT_NE(extension, nullptr) << value;
        X509_add_ext(made.get(), extension.get(), -1);
    }
    const bool isEdwards = std::string(recipe.keyType).rfind("ED", 0) == 0;
    EXPECT_GT(X509_sign(made.get(), key.get(), isEdwards ? nullptr : EVP_sha256()), 0);
    return made;
}

class CertificateMade : public testing::TestWithParam<Recipe> {};

TEST_P(CertificateMade, IsReadAlike)
{
    const Certificate made = Make(GetParam());
    EXPECT_TRUE(Compare(DerOf(made.get()), made.get()));
    EXPECT_TRUE(Compare(PemOf(made.get()), made.get()));
}

INSTANTIATE_TEST_SUITE_P(
    Recipes, CertificateMade,
    testing::Values(
        Recipe{
            "rsa",
            "RSA",
            2048,
            "name",
            MBSTRING_ASC,
            "20491231235959Z",
            {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"}, {NID_key_usage, "critical,keyCertSign,cRLSign"}}},
        Recipe{"p256",
               "EC",
               NID_X9_62_prime256v1,
               "名字",
               MBSTRING_UTF8,
               "20500101000000Z",
               {{NID_basic_constraints, "CA:FALSE"}, {NID_key_usage, "digitalSignature,decipherOnly,keyAgreement"}}},
        Recipe{"p521",
               "EC",
               NID_secp521r1,
               "name",
               V_ASN1_IA5STRING,
               "19491231235959Z",
               {{NID_subject_alt_name, "DNS:example.org,IP:127.0.0.1"}}},
        Recipe{"ed25519",
               "ED25519",
               0,
               "J\xFCrgen",
               V_ASN1_T61STRING,
               "99991231235959Z",
               {{NID_ext_key_usage, "serverAuth"}, {NID_netscape_comment, "a comment"}}},
        Recipe{"no_extensions", "EC", NID_secp384r1, "name", V_ASN1_PRINTABLESTRING, "19700101000000Z", {}}),
    [](const auto& recipe) { return recipe.param.name; });

} // namespace
