#pragma once

#include <chrono>
#include <string>

#include <openssl_support/openssl_ptr.h>

namespace simulator::pki {

using openssl_support::PkeyPtr;
using openssl_support::X509Ptr;

struct Validity {
    std::chrono::system_clock::time_point notBefore;
    std::chrono::system_clock::time_point notAfter;
};

/// A new P-256 key. `pki_support::PkiError` on failure.
PkeyPtr GenerateKey();

/// A certification authority: a certificate with its private key. Its certificates have random
/// serial numbers and are signed by ECDSA with SHA-256. Failures are `pki_support::PkiError`. One
/// thread at a time.
class Authority {
public:
    /// What an end entity's certificate holds besides the fixed extensions.
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

    static Authority CreateRoot(const std::string& commonName, const Validity& validity);
    /// An authority below this one that issues to end entities only.
    Authority CreateIssuing(const std::string& commonName, const Validity& validity) const;

    X509Ptr Issue(const EndEntity& endEntity) const;

    X509& Certificate() const { return *mCertificate; }
    EVP_PKEY& Key() const { return *mKey; }

private:
    X509Ptr mCertificate;
    PkeyPtr mKey;
};

}  // namespace simulator::pki
