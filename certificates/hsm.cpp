#include "certificates/hsm.h"

#include <utility>

#include "certificates/certificate_ids.h"
#include "logging/qel_log_entry.h"
#include "logging/qel_logging.h"

namespace vintrel {

namespace {

using orv::tee::MockTeeError;
using qel_logging::QELLogging;

constexpr char kCommonNameSeparator = ':';
constexpr const char* kCommonNameSuffix = "C003";
constexpr const char* kSignatureAlgorithm = "EMSA1(SHA-256)";

}  // namespace

Hsm::Hsm() : Hsm([] { return std::chrono::system_clock::now(); }) {}

Hsm::Hsm(Clock clock)
    : mClientCertApi(orv::tee::ClientCertInitializerAPI::get_instance()),
      mX509Validator(X509ValidatorIf::CreateX509Validator()),
      mClock(std::move(clock)) {}

std::vector<std::uint8_t> Hsm::GenerateCsr(const std::string& vin) {
    if (vin.empty()) {
        QELLogging::LogError("Provided VIN is empty");
        return {};
    }
    if (mClientCertApi->generate_private_key(kKeyIdTivCsr) != MockTeeError::kSuccess) {
        QELLogging::LogError("Failed to generate the Keys!");
        return {};
    }
    QELLogging::LogInfo("The Keys were generated successfully");
    auto csr = mClientCertApi->generate_csr(GetCommonName(vin), kKeyIdTivCsr);
    if (csr.empty()) {
        QELLogging::LogError("Generated CSR was empty!");
        return {};
    }
    QELLogging::LogInfo("The CSR was generated successfully");
    return csr;
}

std::string Hsm::GetKoruVin() const {
    constexpr const char* kOperation = "GetKoruVin";
    const auto certificates =
        mX509Validator->SplitCertificateChain(mClientCertApi->get_client_cert(kCertIdBase));
    if (certificates.empty()) {
        QELLogging::LogError(kOperation, ": Certificate parsing failed");
        return {};
    }
    const std::string commonName = mX509Validator->GetCertificateCommonName(certificates.front());
    if (commonName.empty()) {
        QELLogging::LogError(kOperation, ": Can't get a certificate common name");
        return {};
    }
    const auto separator = commonName.find(kCommonNameSeparator);
    std::string vin =
        separator == std::string::npos ? std::string() : commonName.substr(0, separator);
    if (vin.empty()) {
        QELLogging::LogError(kOperation, ": VIN parsing failed from certificate common name: '",
                             commonName, "'");
        return {};
    }
    QELLogging::LogInfo(kOperation, ": Returning VIN: '", vin, "' from certificate common name: '",
                        commonName, "', certificate ID: '", kCertIdBase, "'");
    return vin;
}

bool Hsm::StoreTivCertificateToTrustStore(const std::string& certificateChain) const {
    return mClientCertApi->set_client_cert_and_move_key(certificateChain, kKeyIdTivCsr,
                                                        kKeyIdTiv) != MockTeeError::kSuccess;
}

bool Hsm::DeleteTivCertificateFromTrustStore() const {
    return mClientCertApi->set_client_cert_and_move_key(std::string(), std::string(), kKeyIdTiv) !=
           MockTeeError::kSuccess;
}

bool Hsm::CheckTivCertificate(const std::string& certificateChain, const std::string& vin) {
    const auto certificates = mX509Validator->SplitCertificateChain(certificateChain);
    if (certificates.empty()) {
        return true;
    }
    const std::string derived = GetCommonName(vin);
    const std::string fromCertificate =
        mX509Validator->GetCertificateCommonName(certificates.front());
    if (fromCertificate.empty() || !CompareCommonNames(derived, fromCertificate)) {
        return true;
    }
    const std::string publicKey = mClientCertApi->get_public_key(kKeyIdTivCsr);
    if (!mX509Validator->CheckCertificatePublicKey(certificates.front(), publicKey)) {
        return true;
    }
    const auto now = mClock();
    const std::string rootBundle = mClientCertApi->get_root_cert_bundle(kTrustStoreIdKoru);
    return !mX509Validator->ValidateCertificatePath(certificates, rootBundle, derived, now);
}

StatusCode Hsm::CheckTrustStoreTivValidity(const std::string& vin) {
    constexpr const char* kOperation = "CheckTrustStoreTivValidity";
    const auto certificates =
        mX509Validator->SplitCertificateChain(mClientCertApi->get_client_cert(kCertIdTiv));
    if (certificates.empty()) {
        return StatusCode::NoCertificate;
    }
    const std::string& certificate = certificates.front();
    const std::string derived = GetCommonName(vin);
    const std::string fromCertificate = mX509Validator->GetCertificateCommonName(certificate);
    if (fromCertificate.empty() || !CompareCommonNames(derived, fromCertificate)) {
        return StatusCode::CommonNameMismatch;
    }
    const std::string publicKey = mClientCertApi->get_public_key(kKeyIdTiv);
    if (!mX509Validator->CheckCertificatePublicKey(certificate, publicKey)) {
        return StatusCode::KeyMismatch;
    }
    // Proof of possession: the stored key still signs, and pairs with the certificate.
    const std::vector<std::uint8_t> content(vin.begin(), vin.end());
    const auto signature =
        mClientCertApi->generate_signature(kKeyIdTiv, content, kSignatureAlgorithm);
    if (!mX509Validator->VerifySignature(certificate, content, signature, kSignatureAlgorithm)) {
        QELLogging::LogError(kOperation, ": Signature verification failed");
        return StatusCode::KeyMismatch;
    }
    QELLogging::LogDebug(kOperation, ": Signature verification passed");
    const auto now = mClock();
    const std::string rootBundle = mClientCertApi->get_root_cert_bundle(kTrustStoreIdKoru);
    if (!mX509Validator->ValidateCertificatePath(certificates, rootBundle, derived, now)) {
        return StatusCode::PathInvalid;
    }
    return mX509Validator->CheckCertificateValidityTime(certificate, now)
               ? StatusCode::Ok
               : StatusCode::ExpiresWithinYear;
}

std::string Hsm::GetCommonName(const std::string& vin) const {
    return vin + kCommonNameSeparator + kCommonNameSuffix;
}

bool Hsm::CompareCommonNames(const std::string& derived, const std::string& fromCertificate) const {
    QELLogging::LogInfo("CN derived from the VIN: ", derived);
    QELLogging::LogInfo("CN from the Certificate: ", fromCertificate);
    if (derived != fromCertificate) {
        QELLogging::LogInfo("The CN from the Certificate and the CN derived from VIN do not match");
        return false;
    }
    QELLogging::LogInfo("The CN from the Certificate and the CN derived from VIN match");
    return true;
}

}  // namespace vintrel
