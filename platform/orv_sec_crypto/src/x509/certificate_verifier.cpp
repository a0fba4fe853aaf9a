#include "x509/certificate_verifier.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <openssl/core_names.h>
#include <openssl/x509v3.h>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

using openssl_support::OpenSslPtr;

namespace {

using NameConstraintsPtr = OpenSslPtr<NAME_CONSTRAINTS, NAME_CONSTRAINTS_free>;

constexpr int kMinSecurityBits = 112;
constexpr int kMinRsaBits = 2048;

// Extended key usage, alternative names and policies say what a certificate may be used for. They
// don't restrict the path, and what the unit uses it for is not for a path check to judge.
constexpr std::array<int, 8> kExaminedExtensions = {
    NID_basic_constraints,        NID_key_usage,
    NID_name_constraints,         NID_ext_key_usage,
    NID_subject_alt_name,         NID_certificate_policies,
    NID_authority_key_identifier, NID_subject_key_identifier};

bool HasUnknownCriticalExtension(const X509& certificate) {
    for (int index = 0; index < X509_get_ext_count(&certificate); ++index) {
        X509_EXTENSION* extension = X509_get_ext(&certificate, index);
        if (X509_EXTENSION_get_critical(extension) == 0) {
            continue;
        }
        const int nid = OBJ_obj2nid(X509_EXTENSION_get_object(extension));
        if (std::find(kExaminedExtensions.begin(), kExaminedExtensions.end(), nid) ==
            kExaminedExtensions.end()) {
            return true;
        }
    }
    return false;
}

bool IsStrongKey(const X509& certificate) {
    const EVP_PKEY* key = X509_get0_pubkey(&certificate);
    if (key == nullptr || EVP_PKEY_get_security_bits(key) < kMinSecurityBits) {
        return false;
    }
    if (EVP_PKEY_is_a(key, "EC") == 1) {
        // RFC 5480 has named curves only; explicit parameters let the holder choose a weak one.
        int isExplicit = 0;
        return EVP_PKEY_get_int_param(key, OSSL_PKEY_PARAM_EC_DECODED_FROM_EXPLICIT_PARAMS,
                                      &isExplicit) == 1 &&
               isExplicit == 0;
    }
    return EVP_PKEY_is_a(key, "ED25519") == 1 || EVP_PKEY_is_a(key, "ED448") == 1 ||
           EVP_PKEY_get_bits(key) >= kMinRsaBits;
}

bool HasStrongSignature(X509& certificate) {
    int securityBits = 0;
    std::uint32_t flags = 0;
    return X509_get_signature_info(&certificate, nullptr, nullptr, &securityBits, &flags) == 1 &&
           (flags & X509_SIG_INFO_VALID) != 0 && securityBits >= kMinSecurityBits;
}

std::string FindFaultOfOne(X509& certificate) {
    if ((X509_get_extension_flags(&certificate) & EXFLAG_INVALID) != 0) {
        return "an extension is invalid";
    }
    if (HasUnknownCriticalExtension(certificate)) {
        return "a critical extension is unknown";
    }
    if (!IsStrongKey(certificate)) {
        return "the key is invalid or too short";
    }
    return {};
}

std::string FindConstraintFault(X509& certificate, X509& issuer) {
    // A self-issued certificate, as at a key change of a CA, does not count for the path length.
    const bool countsAsIntermediate = X509_check_ca(&certificate) != 0 &&
                                      (X509_get_extension_flags(&certificate) & EXFLAG_SI) == 0;
    if (countsAsIntermediate && X509_get_pathlen(&issuer) == 0) {
        return "the issuer may issue to end entities only";
    }
    const NameConstraintsPtr constraints(static_cast<NAME_CONSTRAINTS*>(
        X509_get_ext_d2i(&issuer, NID_name_constraints, nullptr, nullptr)));
    if (constraints != nullptr &&
        NAME_CONSTRAINTS_check(&certificate, constraints.get()) != X509_V_OK) {
        return "the subject violates the issuer's name constraints";
    }
    return {};
}

std::string FindFault(X509& certificate, X509& issuer) {
    for (X509* one : {&certificate, &issuer}) {
        std::string fault = FindFaultOfOne(*one);
        if (!fault.empty()) {
            return fault;
        }
    }
    if (!HasStrongSignature(certificate)) {
        return "the signature algorithm is unknown or too weak";
    }
    // 1 is a CA by basic constraints of an X.509 v3 certificate; other values guess at old ones.
    if (X509_check_ca(&issuer) != 1) {
        return "the issuer is no certification authority";
    }
    const int issued = X509_check_issued(&issuer, &certificate);
    if (issued != X509_V_OK) {
        return X509_verify_cert_error_string(issued);
    }
    if (X509_verify(&certificate, X509_get0_pubkey(&issuer)) != 1) {
        return "the signature is not the issuer's";
    }
    return FindConstraintFault(certificate, issuer);
}

}  // namespace

std::string FindVerificationFault(X509& certificate, X509& issuer) {
    std::string fault = FindFault(certificate, issuer);
    ForgetOpenSslErrors();
    return fault;
}

}  // namespace orv::sec::crypto
