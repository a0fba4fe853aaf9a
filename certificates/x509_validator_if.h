#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vintrel {

/// Looks inside X.509 certificates (RFC 5280), which are raw bytes in the crypto library's format.
/// Dispatcher thread only. Operations report a failure by false or an empty result and log its
/// reason; a `bool` is true on success.
class X509ValidatorIf {
public:
    virtual ~X509ValidatorIf() = default;

    /// Throws `std::runtime_error` when the crypto library is unavailable.
    static std::shared_ptr<X509ValidatorIf> CreateX509Validator();

    /// The certificates of a chain, in its order.
    virtual std::vector<std::string> SplitCertificateChain(std::string certificateChain) const = 0;

    virtual std::string EncodePemToDer(const std::string& pem) const = 0;

    /// Whether each certificate is verified by the next one, and the last one by the root
    /// certificate, which may be a bundle. Root and common name must not be empty; name and time
    /// are not used otherwise. An empty list passes.
    virtual bool ValidateCertificatePath(const std::vector<std::string>& certificates,
                                         const std::string& rootCertificate,
                                         const std::string& commonName,
                                         std::chrono::system_clock::time_point now) const = 0;

    /// Whether the certificate's public key is `publicKey`, byte for byte.
    virtual bool CheckCertificatePublicKey(const std::string& certificate,
                                           const std::string& publicKey) const = 0;

    /// The common name by which the certificate identifies the unit.
    virtual std::string GetCertificateCommonName(const std::string& certificate) const = 0;

    /// Whether the certificate is valid now and 365 days from now.
    virtual bool CheckCertificateValidityTime(const std::string& certificate,
                                              std::chrono::system_clock::time_point now) const = 0;

    /// Whether the signature over `content` was made with the certificate's key. `algorithm` is
    /// ignored: the scheme is always EMSA1(SHA-256).
    virtual bool VerifySignature(const std::string& certificate,
                                 const std::vector<std::uint8_t>& content,
                                 const std::vector<std::uint8_t>& signature,
                                 const std::string& algorithm) const = 0;
};

}  // namespace vintrel
