#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/x509.h>

/// Good and bad keys, certificates, signing requests and signed containers, made with OpenSSL.
/// Whatever OpenSSL refuses to make is a std::runtime_error.
namespace testing_support {

using Key = std::shared_ptr<EVP_PKEY>;

/// "P-256" or another curve, or "RSA" with the number of bits ("RSA2048").
Key MakeKey(const std::string& type = "P-256");
std::string PrivateKeyPem(const Key& key);
/// SubjectPublicKeyInfo (RFC 5280).
std::string PublicKeyDer(const Key& key);
Key ReadPublicKey(const unsigned char* der, std::size_t size);
template <typename Bytes>
Key ReadPublicKey(const Bytes& der) {
    return ReadPublicKey(der.data(), der.size());
}

/// A certificate with its private key.
struct Identity {
    Key key;
    std::shared_ptr<X509> certificate;

    std::string Pem() const;
    std::string Der() const;
};

struct CertificateTraits {
    using TimePoint = std::chrono::system_clock::time_point;

    /// No common name at all without a value.
    std::optional<std::string> commonName = "VNTREL00000000001:C003";
    TimePoint notBefore = std::chrono::system_clock::now() - std::chrono::hours(1);
    TimePoint notAfter = std::chrono::system_clock::now() + std::chrono::hours(24 * 730);
    /// Instead of `notAfter` what RFC 5280 has for "no end", the last second of 9999.
    bool hasNoEnd = false;
    bool isCa = false;
    std::optional<int> pathLength;
    /// As in an OpenSSL configuration; "" leaves the extension out, no value means what fits
    /// `isCa`.
    std::optional<std::string> keyUsage;
    std::string extendedKeyUsage;
    /// By name, as in an OpenSSL configuration: added to the above and to the key identifiers, or
    /// instead of them; "" leaves the extension out.
    std::map<std::string, std::string> extensions;
    /// "sha256", "sha1" ...
    std::string digest = "sha256";
    long serial = 4711;
    /// A new key of `keyType` if empty.
    Key key;
    std::string keyType = "P-256";
    bool hasBrokenSignature = false;
};

/// Traits of a CA.
CertificateTraits CaTraits(const std::string& commonName);

Identity SelfSigned(const CertificateTraits& traits);
Identity IssuedBy(const Identity& issuer, const CertificateTraits& traits);

/// The certificates' PEM, one after the other: a chain or a bundle.
std::string PemOf(const std::vector<Identity>& identities);

/// A PKCS #10 request (RFC 2986) in DER for `key`; signed by `signer` where that is given.
std::string MakeRequest(const Key& key, const std::string& commonName, const Key& signer = nullptr);

/// The key of a request, which must be for the common name and signed with that key.
Key ReadRequest(const std::vector<std::uint8_t>& der, const std::string& commonName);

/// A container (CMS SignedData, RFC 5652, in PEM) around `payload`, signed by `signer`, with the
/// certificates of `others` beside the signer's.
std::string MakeContainer(const std::string& payload, const Identity& signer,
                          const std::vector<Identity>& others,
                          const std::string& digest = "sha256");

/// Root, intermediate and leaf as the factory makes them for a unit, or the product PKI for a
/// client certificate: `commonName` is the leaf's.
struct Family {
    explicit Family(const std::string& name = "Factory",
                    const std::string& commonName = "VNTREL00000000001:C003");

    Identity root;
    Identity intermediate;
    Identity leaf;

    /// Leaf and intermediate.
    std::string ChainPem() const { return PemOf({leaf, intermediate}); }
};

}  // namespace testing_support
