// Certificates as they lie in memory.
#pragma once

#include <stddef.h>

#include "asn1.h"

inline constexpr int kCertMagic = 0x5AA55AA5;
inline constexpr int kMaxComponents = 32;
inline constexpr int kMaxExtensions = 32;
inline constexpr size_t kMaxKeyBytes = 1024; ///< of the public key, and of the signature
inline constexpr size_t kTimeTextSize = 32;

inline constexpr char kRsaKeyOid[] = "1.2.840.113549.1.1.1";
inline constexpr char kEcKeyOid[] = "1.2.840.10045.2.1";

/// A component of a name.
struct ONEDN_st {
    char OID[kOidTextSize];
    char* Value; ///< in the local code page
};
using ONEDN = ONEDN_st;

struct ONEEXTENSION_st {
    char OID[kOidTextSize];
    int bCritical;
    unsigned char* Value;
    int ValueLength;
};
using ONEEXTENSION = ONEEXTENSION_st;

/// A certificate. Callers hold it as void*.
struct X509_st {
    int Magic; ///< kCertMagic while it is open
    int Version;
    char* SN;
    char SignAlgOid[kOidTextSize];
    ONEDN Issuer[kMaxComponents];
    int Count_Issuer;
    ONEDN Subject[kMaxComponents];
    int Count_Subject;
    char StartTime[kTimeTextSize];
    char StopTime[kTimeTextSize];
    char PKAlg[kOidTextSize];
    char PKParam[kOidTextSize];
    unsigned char PublicKey[kMaxKeyBytes];
    int PublicKeyLength;
    ONEEXTENSION Extension[kMaxExtensions];
    int Count_Extension;
    char SignAlgOid_Data[kOidTextSize];
    unsigned char SignData[kMaxKeyBytes];
    int SignDataLength;
    unsigned char* IssuerDN;
    int IssuerDN_Length;
    unsigned char* SubjectDN;
    int SubjectDN_Length;
};
using X509 = X509_st;
static_assert(sizeof(ONEDN) == 136 && offsetof(ONEDN, Value) == 128);
static_assert(sizeof(ONEEXTENSION) == 152 && offsetof(ONEEXTENSION, bCritical) == 128 &&
              offsetof(ONEEXTENSION, Value) == 136 && offsetof(ONEEXTENSION, ValueLength) == 144);
static_assert(offsetof(X509, Version) == 4 && offsetof(X509, SN) == 8 && offsetof(X509, SignAlgOid) == 16 &&
              offsetof(X509, Issuer) == 144 && offsetof(X509, Count_Issuer) == 4496 &&
              offsetof(X509, Subject) == 4504 && offsetof(X509, Count_Subject) == 8856 &&
              offsetof(X509, StartTime) == 8860 && offsetof(X509, StopTime) == 8892 && offsetof(X509, PKAlg) == 8924 &&
              offsetof(X509, PKParam) == 9052 && offsetof(X509, PublicKey) == 9180 &&
              offsetof(X509, PublicKeyLength) == 10204 && offsetof(X509, Extension) == 10208 &&
              offsetof(X509, Count_Extension) == 15072 && offsetof(X509, SignAlgOid_Data) == 15076 &&
              offsetof(X509, SignData) == 15204 && offsetof(X509, SignDataLength) == 16228 &&
              offsetof(X509, IssuerDN) == 16232 && offsetof(X509, IssuerDN_Length) == 16240 &&
              offsetof(X509, SubjectDN) == 16248 && offsetof(X509, SubjectDN_Length) == 16256 && sizeof(X509) == 16264);

/// Fills a record of zeros from a certificate in DER; 0 or an errno value, which leaves what was read in the record.
int ParseCertificate(Bytes der, X509* cert);
