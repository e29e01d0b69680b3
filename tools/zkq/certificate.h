// Certificates in files, and what the library tells of them.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

/// The certificates in a file, as the library takes them: each one of a PEM file, whatever stands around them, or the
/// whole file.
std::vector<std::string> CertificatesIn(const std::string& file);

/// The bytes of a certificate in DER.
std::string DerOf(const std::string& certificate, const std::string& name);

struct CertExtension {
    std::string oid;
    bool is_critical;
    bool is_good;      ///< its value could be read
    bool is_text;      ///< the value is a text, not bytes
    std::string value; ///< without the NUL of a text
};

class Certificate {
public:
    /// Fails, with this name, for what the library refuses.
    Certificate(const std::string& bytes, const std::string& name);

    int Number(int index) const;
    /// A text without its NUL, or bytes.
    std::string Field(int index) const;
    /// Types, as OIDs, and values, in the charset of the terminal, in the certificate's order.
    std::vector<std::pair<std::string, std::string>> Name(bool is_subject) const;
    std::vector<CertExtension> Extensions() const;

private:
    struct Release {
        void operator()(void* ctx) const;
    };

    std::string name_;
    std::unique_ptr<void, Release> ctx_;
};
