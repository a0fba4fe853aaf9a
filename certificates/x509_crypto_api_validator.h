#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <orv/sec/crypto/i_crypto_service_provider.h>
#include <orv/sec/crypto/operation/i_certificate_handler.h>
#include <orv/sec/crypto/store/i_trust_store.h>

#include "certificates/x509_validator_if.h"

namespace vintrel {

/// `X509ValidatorIf` on the crypto library. Public keys of certificates are read, and signatures
/// verified, through one scratch certificate in the client store, which stays there.
class X509CryptoApiValidator : public X509ValidatorIf {
public:
    /// Throws `std::runtime_error` when the library or one of its objects is unavailable.
    X509CryptoApiValidator();
    ~X509CryptoApiValidator() override;
    X509CryptoApiValidator(const X509CryptoApiValidator&) = delete;
    X509CryptoApiValidator& operator=(const X509CryptoApiValidator&) = delete;

    /// Releases all objects of the library; no other operation may follow.
    void Deinit();

    std::vector<std::string> SplitCertificateChain(std::string certificateChain) const override;
    std::string EncodePemToDer(const std::string& pem) const override;
    bool ValidateCertificatePath(const std::vector<std::string>& certificates,
                                 const std::string& rootCertificate, const std::string& commonName,
                                 std::chrono::system_clock::time_point now) const override;
    bool CheckCertificatePublicKey(const std::string& certificate,
                                   const std::string& publicKey) const override;
    std::string GetCertificateCommonName(const std::string& certificate) const override;
    bool CheckCertificateValidityTime(const std::string& certificate,
                                      std::chrono::system_clock::time_point now) const override;
    bool VerifySignature(const std::string& certificate, const std::vector<std::uint8_t>& content,
                         const std::vector<std::uint8_t>& signature,
                         const std::string& algorithm) const override;

private:
    void Init();
    bool StoreTempCertificate(const std::string& certificate) const;
    /// Stores the certificate in the scratch slot and gives the handle of its key, or null after a
    /// failure, which has been logged under the name of the operation.
    std::shared_ptr<const orv::sec::crypto::common::IKeyID> StoreAndMakeKeyHandle(
        const std::string& certificate, const char* operation) const;

    std::shared_ptr<orv::sec::crypto::ICryptoServiceProvider> mCryptoLib;
    std::shared_ptr<orv::sec::crypto::operation::ICertificateHandler> mCertificateHandler;
    std::shared_ptr<orv::sec::crypto::store::ITrustStore> mTempTrustStore;
};

/// A time as text in UTC, "2026/11/21 08:15:00 UTC"; parts of a second are cut off toward the
/// epoch.
std::string timePointToString(std::chrono::system_clock::time_point time);

}  // namespace vintrel
