#pragma once

#include <chrono>
#include <string>

#include <openssl_support/openssl_ptr.h>

namespace simulator::pki {

using openssl_support::PkeyPtr;
using openssl_support::X509Ptr;

/// Validity period of a certificate.
struct Validity {
    std::chrono::system_clock::time_point notBefore;
    std::chrono::system_clock::time_point notAfter;
};

/// A new P-256 key. `pki_support::PkiError` on failure.
PkeyPtr GenerateKey();

/// A certification authority: a certificate with its private key. Issues certificates with random
/// serial numbers, signed with ECDSA and SHA-256. Throws `pki_support::PkiError` on failure. One
/// thread at a time.
class Authority {
public:
    /// Contents of an end entity's certificate besides the fixed extensions.
    struct EndEntity {
        std::string commonName;
        /// Not owned.
        EVP_PKEY* publicKey = nullptr;
        Validity validity;
        /// For TLS clients (RFC 5280, id-kp-clientAuth); otherwise for signatures of any purpose.
        bool isTlsClient = false;
    };

    /// The key must belong to the certificate, and the certificate must be a CA's.
    Authority(X509Ptr certificate, PkeyPtr key);

    /// A new root CA with a self-signed certificate.
    static Authority CreateRoot(const std::string& commonName, const Validity& validity);
    /// A new subordinate CA of this one, for end entities only (path length 0).
    Authority CreateIssuing(const std::string& commonName, const Validity& validity) const;

    /// Issues an end entity's certificate.
    X509Ptr Issue(const EndEntity& endEntity) const;

    /// Both live as long as the authority.
    X509& Certificate() const { return *mCertificate; }
    EVP_PKEY& Key() const { return *mKey; }

private:
    X509Ptr mCertificate;
    PkeyPtr mKey;
};

}  // namespace simulator::pki
