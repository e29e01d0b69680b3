// zkq cert: what certificates say.
#include <ZKQ_general/x509.h>
#include <stdio.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <memory>
#include <optional>

#include "bytes.h"
#include "certificate.h"
#include "commands.h"
#include "failure.h"
#include "output.h"
#include "shown.h"

namespace {

constexpr size_t kShown = 20; // bytes of an extension
constexpr char kNameMark = ':';

struct OidName {
    const char* oid;
    const char* name;
};

constexpr OidName kNameTypes[] = {{"2.5.4.3", "CN"},
                                  {"2.5.4.4", "SN"},
                                  {"2.5.4.5", "serialNumber"},
                                  {"2.5.4.6", "C"},
                                  {"2.5.4.7", "L"},
                                  {"2.5.4.8", "ST"},
                                  {"2.5.4.9", "street"},
                                  {"2.5.4.10", "O"},
                                  {"2.5.4.11", "OU"},
                                  {"2.5.4.12", "title"},
                                  {"2.5.4.17", "postalCode"},
                                  {"2.5.4.42", "GN"},
                                  {"2.5.4.97", "organizationIdentifier"},
                                  {"0.9.2342.19200300.100.1.1", "UID"},
                                  {"0.9.2342.19200300.100.1.25", "DC"},
                                  {"1.2.840.113549.1.9.1", "emailAddress"}};

constexpr OidName kAlgorithms[] = {{"1.2.840.113549.1.1.1", "RSA"},
                                   {"1.2.840.113549.1.1.4", "RSA with MD5"},
                                   {"1.2.840.113549.1.1.5", "RSA with SHA-1"},
                                   {"1.2.840.113549.1.1.10", "RSA-PSS"},
                                   {"1.2.840.113549.1.1.11", "RSA with SHA-256"},
                                   {"1.2.840.113549.1.1.12", "RSA with SHA-384"},
                                   {"1.2.840.113549.1.1.13", "RSA with SHA-512"},
                                   {"1.2.840.10045.2.1", "elliptic curve"},
                                   {"1.2.840.10045.3.1.7", "P-256"},
                                   {"1.3.132.0.34", "P-384"},
                                   {"1.3.132.0.35", "P-521"},
                                   {"1.2.840.10045.4.1", "ECDSA with SHA-1"},
                                   {"1.2.840.10045.4.3.2", "ECDSA with SHA-256"},
                                   {"1.2.840.10045.4.3.3", "ECDSA with SHA-384"},
                                   {"1.2.840.10045.4.3.4", "ECDSA with SHA-512"},
                                   {"1.2.156.10197.1.301", "SM2"},
                                   {"1.2.156.10197.1.501", "SM2 with SM3"},
                                   {"1.3.101.112", "Ed25519"},
                                   {"1.3.101.113", "Ed448"}};

constexpr OidName kExtensions[] = {{"2.5.29.9", "subject directory attributes"},
                                   {"2.5.29.14", "subject key identifier"},
                                   {"2.5.29.15", "key usage"},
                                   {"2.5.29.16", "private key usage period"},
                                   {"2.5.29.17", "subject alternative name"},
                                   {"2.5.29.18", "issuer alternative name"},
                                   {"2.5.29.19", "basic constraints"},
                                   {"2.5.29.30", "name constraints"},
                                   {"2.5.29.31", "CRL distribution points"},
                                   {"2.5.29.32", "certificate policies"},
                                   {"2.5.29.33", "policy mappings"},
                                   {"2.5.29.35", "authority key identifier"},
                                   {"2.5.29.36", "policy constraints"},
                                   {"2.5.29.37", "extended key usage"},
                                   {"1.3.6.1.5.5.7.1.1", "authority information access"},
                                   {"1.3.6.1.4.1.11129.2.4.2", "signed certificate timestamps"},
                                   {"2.16.840.1.113730.1.1", "Netscape certificate type"}};

/// The name of an OID; nothing if it has none here.
template <size_t N>
std::optional<std::string> NameOf(const OidName (&names)[N], const std::string& oid)
{
    const OidName* const found =
        std::find_if(std::begin(names), std::end(names), [&oid](const OidName& row) { return oid == row.oid; });
    return found == std::end(names) ? std::nullopt : std::optional<std::string>(found->name);
}

/// The name of an OID with the OID behind it, or the OID.
template <size_t N>
std::string Titled(const OidName (&names)[N], const std::string& oid)
{
    const std::optional<std::string> name = NameOf(names, oid);
    return name ? *name + " (" + oid + ")" : oid;
}

/// A name in one line; commas in its values are told from those between them.
std::string OneLine(const Certificate& cert, bool is_subject)
{
    std::string line;
    for (const auto& [oid, value] : cert.Name(is_subject)) {
        line.append(line.empty() ? "" : ", ").append(NameOf(kNameTypes, oid).value_or(oid)).append("=");
        for (const char c : WithoutControls(value))
            (c == ',' ? line += '\\' : line) += c;
    }
    return line;
}

// --- show ---

std::string ShownExtension(const CertExtension& extension)
{
    std::string line = Titled(kExtensions, extension.oid) + (extension.is_critical ? ", critical: " : ": ");
    if (!extension.is_good)
        return line + "malformed";
    if (extension.is_text)
        return line + WithoutControls(extension.value);
    return line + Counted(extension.value.size(), "byte") + (extension.value.empty() ? "" : ": ") +
           ShownBytes(extension.value, kShown);
}

void PrintField(const char* title, const std::string& value)
{
    char column[16];
    snprintf(column, sizeof column, "%-12s", title);
    PrintLine(column + value);
}

std::string BytesOf(int number)
{
    return ", " + Counted(static_cast<size_t>(number), "byte");
}

void Show(const std::string& bytes, const std::string& name)
{
    const Certificate cert(bytes, name);
    PrintField("Version:", std::to_string(cert.Number(ZKQ_CERT_VERSION) + 1));
    PrintField("Serial:", cert.Field(ZKQ_CERT_SERIAL));
    PrintField("Issuer:", OneLine(cert, false));
    PrintField("Subject:", OneLine(cert, true));
    PrintField("Not before:", cert.Field(ZKQ_CERT_NOT_BEFORE) + " +08:00");
    PrintField("Not after:", cert.Field(ZKQ_CERT_NOT_AFTER) + " +08:00");
    PrintField("Key:",
               Titled(kAlgorithms, cert.Field(ZKQ_CERT_KEY_ALGORITHM)) + BytesOf(cert.Number(ZKQ_CERT_KEY_LENGTH)));
    PrintField("Signature:", Titled(kAlgorithms, cert.Field(ZKQ_CERT_SIGN_ALGORITHM)) +
                                 BytesOf(cert.Number(ZKQ_CERT_SIGNATURE_LENGTH)));
    const std::vector<CertExtension> extensions = cert.Extensions();
    if (!extensions.empty())
        PrintLine("Extensions:");
    for (const CertExtension& extension : extensions)
        PrintLine("  " + ShownExtension(extension));
}

// --- field ---

enum class Form { kNumber, kText, kBytes, kName };

struct FieldName {
    const char* name;
    int index;
    Form form;
};

constexpr FieldName kFields[] = {{"version", ZKQ_CERT_VERSION, Form::kNumber},
                                 {"serial", ZKQ_CERT_SERIAL, Form::kText},
                                 {"not-before", ZKQ_CERT_NOT_BEFORE, Form::kText},
                                 {"not-after", ZKQ_CERT_NOT_AFTER, Form::kText},
                                 {"key-algorithm", ZKQ_CERT_KEY_ALGORITHM, Form::kText},
                                 {"key-length", ZKQ_CERT_KEY_LENGTH, Form::kNumber},
                                 {"signature-algorithm", ZKQ_CERT_SIGN_ALGORITHM, Form::kText},
                                 {"key", ZKQ_CERT_KEY, Form::kBytes},
                                 {"key-type", ZKQ_CERT_KEY_TYPE, Form::kNumber},
                                 {"signature-length", ZKQ_CERT_SIGNATURE_LENGTH, Form::kNumber},
                                 {"signature", ZKQ_CERT_SIGNATURE, Form::kBytes},
                                 {"subject", ZKQ_CERT_SUBJECT, Form::kName},
                                 {"issuer", ZKQ_CERT_ISSUER, Form::kName}};

struct Options {
    std::vector<std::string> files;
    std::string name;
    int index = 0;
    bool is_raw = false;
    std::string output;
};

bool IsOid(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos &&
           text.find('.') != std::string::npos;
}

/// "subject:CN", one of the values of a name.
struct Component {
    bool is_subject;
    std::string type;
};

std::optional<Component> ComponentOf(const std::string& name)
{
    const size_t mark = name.find(kNameMark);
    const std::string side = name.substr(0, mark);
    if (mark == std::string::npos || (side != "subject" && side != "issuer"))
        return std::nullopt;
    return Component{side == "subject", name.substr(mark + 1)};
}

const FieldName* FindField(const Options& options)
{
    const FieldName* const found = std::find_if(std::begin(kFields), std::end(kFields), [&](const FieldName& field) {
        return options.name.empty() ? options.index == field.index : options.name == field.name;
    });
    return found == std::end(kFields) ? nullptr : found;
}

std::string CheckFieldName(const std::string& name)
{
    Options options;
    options.name = name;
    if (FindField(options) != nullptr || IsOid(name) || ComponentOf(name))
        return "";
    std::string all;
    for (const FieldName& field : kFields)
        all.append(field.name).append(", ");
    return "\"" + name + "\" is none of " + all + "subject:TYPE, issuer:TYPE and the OID of an extension";
}

std::string CheckFieldNumber(const std::string& text)
{
    Options options;
    const char* const end = text.data() + text.size();
    const bool is_number = std::from_chars(text.data(), end, options.index).ptr == end;
    return is_number && FindField(options) != nullptr ? "" : "No field has the number " + text;
}

std::string AllBytes(const std::string& bytes)
{
    return ShownBytes(bytes, bytes.size());
}

/// Takes a value as it is, and as it is shown.
using Print = std::function<void(const std::string& value, const std::string& shown)>;

void GiveComponent(const Certificate& cert, const Component& wanted, const std::string& file, const Print& print)
{
    bool is_there = false;
    for (const auto& [oid, value] : cert.Name(wanted.is_subject)) {
        if (wanted.type != oid && wanted.type != NameOf(kNameTypes, oid))
            continue;
        print(value, WithoutControls(value));
        is_there = true;
    }
    if (!is_there)
        throw Failure(file, "No " + wanted.type + " in the name");
}

void GiveExtension(const Certificate& cert, const std::string& oid, const std::string& file, const Print& print)
{
    bool is_there = false;
    for (const CertExtension& extension : cert.Extensions()) {
        if (extension.oid != oid)
            continue;
        if (!extension.is_good)
            throw Failure(file, "The extension " + oid + " is malformed");
        print(extension.value, extension.is_text ? WithoutControls(extension.value) : AllBytes(extension.value));
        is_there = true;
    }
    if (!is_there)
        throw Failure(file, "No extension " + oid);
}

void GiveField(const Certificate& cert, const Options& options, const std::string& file, const Print& print)
{
    if (const std::optional<Component> component = ComponentOf(options.name))
        return GiveComponent(cert, *component, file, print);
    if (IsOid(options.name))
        return GiveExtension(cert, options.name, file, print);
    const FieldName& field = *FindField(options);
    const bool is_name = field.form == Form::kName && !options.name.empty() && !options.is_raw;
    const std::string value = field.form == Form::kNumber ? std::to_string(cert.Number(field.index))
                              : is_name                   ? OneLine(cert, field.index == ZKQ_CERT_SUBJECT)
                                                          : cert.Field(field.index);
    const bool is_shown = is_name || field.form == Form::kNumber || field.form == Form::kText;
    print(value, is_shown ? value : AllBytes(value));
}

// --- each certificate of each file ---

void Complain(const std::string& text)
{
    FlushOutput(); // what was found before comes before it
    fprintf(stderr, "zkq: %s\n", text.c_str());
}

/// How a certificate is called: by its file, and its place in it if there are several.
using Action = std::function<void(const std::string& bytes, const std::string& name, bool is_one_of_many)>;

/// Does as much as it can; what fails is told, and fails the command in the end.
void ForEachCertificate(const std::vector<std::string>& files, const Action& action)
{
    bool has_failed = false;
    const auto attempt = [&has_failed](const std::function<void()>& part) {
        try {
            part();
        } catch (const Failure& failure) {
            Complain(failure.what());
            has_failed = true;
        }
    };
    for (const std::string& file : files) {
        std::vector<std::string> certificates;
        attempt([&] { certificates = CertificatesIn(file); });
        const std::string title = file == "-" ? "standard input" : file;
        for (size_t i = 0; i < certificates.size(); ++i) {
            const bool is_alone = certificates.size() == 1;
            const std::string name = is_alone ? title : title + "[" + std::to_string(i + 1) + "]";
            attempt([&] { action(certificates[i], name, !is_alone || files.size() > 1); });
        }
    }
    if (has_failed)
        throw CLI::RuntimeError(1);
}

void ShowAll(const Options& options)
{
    bool is_first = true;
    ForEachCertificate(options.files, [&](const std::string& bytes, const std::string& name, bool is_one_of_many) {
        const Certificate readable(bytes, name); // no title without a certificate
        if (is_one_of_many)
            PrintLine((is_first ? "" : "\n") + name + ":");
        is_first = false;
        Show(bytes, name);
    });
}

void PrintFields(const Options& options)
{
    ForEachCertificate(options.files, [&](const std::string& bytes, const std::string& name, bool is_one_of_many) {
        const Print print = [&](const std::string& value, const std::string& shown) {
            if (options.is_raw)
                return ::Print(value);
            PrintLine(is_one_of_many ? name + ": " + shown : shown);
        };
        GiveField(Certificate(bytes, name), options, name, print);
    });
}

void WriteDer(const Options& options)
{
    std::string all;
    for (const std::string& file : options.files) {
        const std::string title = file == "-" ? "standard input" : file;
        for (const std::string& bytes : CertificatesIn(file)) {
            const Certificate readable(bytes, title);
            all += DerOf(bytes, title);
        }
    }
    ByteSink sink(options.output); // nothing is written unless everything is good
    sink.Write(all);
    sink.Finish();
}

CLI::App* AddCommand(CLI::App& cert, const char* name, const char* help, Options& options)
{
    CLI::App* const command = cert.add_subcommand(name, help);
    command->add_option("FILE", options.files, "DER, PEM or bare Base64; \"-\" for standard input")
        ->required()
        ->type_name("");
    return command;
}

} // namespace

void AddCertCommands(CLI::App& app)
{
    CLI::App* const cert = app.add_subcommand("cert", "Show X.509 certificates");
    cert->require_subcommand(1);

    const auto shown = std::make_shared<Options>();
    AddCommand(*cert, "show", "Show what certificates say; nothing is verified", *shown)->callback([shown] {
        ShowAll(*shown);
    });

    const auto field = std::make_shared<Options>();
    CLI::App* const print = AddCommand(*cert, "field", "Print one field of certificates", *field);
    CLI::Option* const name =
        print->add_option("--name", field->name, "Such as subject, subject:CN, not-after, or an extension's OID");
    name->type_name("NAME")->check(CheckFieldName);
    CLI::Option* const index =
        print->add_option("--index", field->index, "The field's number, as programs use it: 1 to 11, 19 or 20");
    index->type_name("N")->check(CheckFieldNumber)->excludes(name);
    print->add_flag("--raw", field->is_raw, "The bytes as they are, without a line end");
    print->callback([field, name, index] {
        if (name->count() + index->count() == 0)
            throw CLI::RequiredError("--name or --index");
        PrintFields(*field);
    });

    const auto der = std::make_shared<Options>();
    CLI::App* const write = AddCommand(*cert, "der", "Write certificates in DER, one behind the other", *der);
    write->add_option("-o,--output", der->output, "Write to this file")->type_name("FILE");
    write->callback([der] { WriteDer(*der); });
}
