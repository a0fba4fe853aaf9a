#include "certificates/x509_crypto_api_validator.h"

#include <ctime>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include <orv/sec/crypto/common/crypto_allocator.h>
#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/common/i_cert_id.h>
#include <orv/sec/crypto/common/i_key_id.h>
#include <orv/sec/crypto/operation/i_digital_signature.h>

#include "certificates/certificate_ids.h"
#include "certificates/crypto_api_instance.h"
#include "certificates/library_results.h"
#include "certificates/library_values.h"
#include "logging/qel_logging.h"

namespace vintrel {

namespace {

using orv::sec::crypto::common::ByteVector;
using orv::sec::crypto::common::CryptoResultCode;
using qel_logging::QELLogging;
using std::chrono::system_clock;

constexpr std::chrono::hours kOneYear{365 * 24};

void LogError(const char* operation, const char* text) {
    QELLogging::LogError(operation, text);
}

/// The clock counts nanoseconds and ends in 2262, certificates may not (RFC 5280 has 9999 for "no
/// end"): what lies beyond either end of the clock becomes that end.
system_clock::time_point FromEpochSeconds(std::int64_t seconds) {
    using std::chrono::duration_cast;
    constexpr auto kFirst =
        duration_cast<std::chrono::seconds>(system_clock::time_point::min().time_since_epoch());
    constexpr auto kLast =
        duration_cast<std::chrono::seconds>(system_clock::time_point::max().time_since_epoch());
    const std::chrono::seconds sinceEpoch(seconds);
    if (sinceEpoch < kFirst) {
        return system_clock::time_point::min();
    }
    if (sinceEpoch > kLast) {
        return system_clock::time_point::max();
    }
    return system_clock::time_point(sinceEpoch);
}

system_clock::time_point OneYearAfter(system_clock::time_point time) {
    return time > system_clock::time_point::max() - kOneYear ? system_clock::time_point::max()
                                                             : time + kOneYear;
}

/// Takes any date of a certificate, also one that the clock doesn't reach.
std::string EpochSecondsToString(std::int64_t time) {
    const std::time_t seconds = time;
    std::tm brokenDown{};
    if (::gmtime_r(&seconds, &brokenDown) == nullptr) {
        QELLogging::LogError("timePointToStringError: gmtime returned nullptr");
        return {};
    }
    std::ostringstream text;
    text << std::put_time(&brokenDown, "%Y/%m/%d %H:%M:%S UTC");
    return text.str();
}

}  // namespace

std::shared_ptr<X509ValidatorIf> X509ValidatorIf::CreateX509Validator() {
    return std::make_shared<X509CryptoApiValidator>();
}

X509CryptoApiValidator::X509CryptoApiValidator() {
    try {
        Init();
    } catch (...) {
        Deinit();
        throw;
    }
}

void X509CryptoApiValidator::Init() {
    mCryptoLib = CryptoApiInstance::GetCryptoApiInstance();
    if (!mCryptoLib) {
        throw std::runtime_error("Crypto API initialization failed");
    }
    mCertificateHandler =
        RequireObject(mCryptoLib->createCertificateHandler(), "createCertificateHandler failed",
                      "createCertificateHandler returned null");
    const auto manager =
        RequireObject(mCryptoLib->createTrustStoreManager(), "createTrustStoreManager failed",
                      "createTrustStoreManager returned null");
    // A null store is reported by each operation that needs it.
    mTempTrustStore = RequireValue(FindOrCreateTrustStore(*manager, kKeyIdTiv),
                                   "Failed to create temporary trust store");
}

X509CryptoApiValidator::~X509CryptoApiValidator() {
    Deinit();
}

void X509CryptoApiValidator::Deinit() {
    mTempTrustStore.reset();
    mCertificateHandler.reset();
    mCryptoLib.reset();
}

std::vector<std::string> X509CryptoApiValidator::SplitCertificateChain(
    std::string certificateChain) const {
    const auto chain =
        TakeValue(mCertificateHandler->splitCertificatesChain(ToLibraryBytes(certificateChain)),
                  "SplitCertificateChain", ": splitCertificatesChain failed: ");
    if (!chain) {
        return {};
    }
    std::vector<std::string> certificates;
    certificates.reserve(chain->size());
    for (const ByteVector& certificate : *chain) {
        certificates.push_back(ToPlainString(certificate));
    }
    return certificates;
}

std::string X509CryptoApiValidator::EncodePemToDer(const std::string& pem) const {
    const auto der =
        TakeValue(mCertificateHandler->pemToDer(
                      ToLibraryBytes(pem), orv::sec::crypto::operation::PemFormat::kCertificate),
                  "EncodePemToDer", ": pemToDer failed: ");
    return der ? ToPlainString(*der) : std::string();
}

bool X509CryptoApiValidator::ValidateCertificatePath(const std::vector<std::string>& certificates,
                                                     const std::string& rootCertificate,
                                                     const std::string& commonName,
                                                     system_clock::time_point /*now*/) const {
    constexpr const char* kOperation = "ValidateCertificatePath";
    if (rootCertificate.empty()) {
        LogError(kOperation, ": provided root certificate is empty");
        return false;
    }
    if (commonName.empty()) {
        LogError(kOperation, ": provided common name is empty");
        return false;
    }
    for (std::size_t i = 0; i < certificates.size(); ++i) {
        const std::string& issuer =
            i + 1 < certificates.size() ? certificates[i + 1] : rootCertificate;
        const CryptoResultCode code = mCertificateHandler->verifyCertificate(
            ToLibraryBytes(certificates[i]), ToLibraryBytes(issuer));
        if (code != CryptoResultCode::kSuccess) {
            LogFailure(kOperation, ": verifyCertificate failed: ", code, FailureLevel::kInfo);
            return false;
        }
    }
    return true;
}

bool X509CryptoApiValidator::CheckCertificatePublicKey(const std::string& certificate,
                                                       const std::string& publicKey) const {
    constexpr const char* kOperation = "CheckCertificatePublicKey";
    if (publicKey.empty()) {
        LogError(kOperation, ": Invalid public key");
        return false;
    }
    const auto keyHandle = StoreAndMakeKeyHandle(certificate, kOperation);
    if (!keyHandle) {
        return false;
    }
    const auto certificateKey = TakeValue(mTempTrustStore->loadPublicKey(keyHandle), kOperation,
                                          ": loadPublicKey failed: ");
    if (!certificateKey) {
        return false;
    }
    if (*certificateKey != ToLibraryBytes(publicKey)) {
        LogError(kOperation, ": The Certificate and the Key do not match!");
        return false;
    }
    QELLogging::LogInfo(kOperation, ": The Certificate and the Key match");
    return true;
}

std::string X509CryptoApiValidator::GetCertificateCommonName(const std::string& certificate) const {
    return TakeValue(
               mCertificateHandler->getCertificateIssuerCommonName(ToLibraryBytes(certificate)),
               "GetCertificateCommonName",
               ": getCertificateIssuerCommonName failed: ", FailureLevel::kInfo)
        .value_or(std::string());
}

bool X509CryptoApiValidator::CheckCertificateValidityTime(const std::string& certificate,
                                                          system_clock::time_point now) const {
    constexpr const char* kOperation = "CheckCertificateValidityTime";
    const ByteVector bytes = ToLibraryBytes(certificate);
    const auto notBefore =
        TakeValue(mCertificateHandler->getCertificateNotBeforeDate(bytes), kOperation,
                  ": getCertificateNotBeforeDate failed: ", FailureLevel::kInfo);
    if (!notBefore) {
        return false;
    }
    const auto notAfter =
        TakeValue(mCertificateHandler->getCertificateNotAfterDate(bytes), kOperation,
                  ": getCertificateNotAfterDate failed: ", FailureLevel::kInfo);
    if (!notAfter) {
        return false;
    }
    QELLogging::LogInfo("X509CryptoApiValidator: Current system time is ", timePointToString(now));
    QELLogging::LogInfo("X509CryptoApiValidator: The TIV Certificate is valid from ",
                        EpochSecondsToString(*notBefore));
    QELLogging::LogInfo("X509CryptoApiValidator: The TIV Certificate expires at ",
                        EpochSecondsToString(*notAfter));
    if (now < FromEpochSeconds(*notBefore)) {
        QELLogging::LogInfo("The Certificate is not valid yet");
        return false;
    }
    if (FromEpochSeconds(*notAfter) < OneYearAfter(now)) {
        QELLogging::LogInfo("The Certificate expires in less than one year");
        return false;
    }
    QELLogging::LogInfo("The Certificate is currently valid");
    return true;
}

bool X509CryptoApiValidator::VerifySignature(const std::string& certificate,
                                             const std::vector<std::uint8_t>& content,
                                             const std::vector<std::uint8_t>& signature,
                                             const std::string& /*algorithm*/) const {
    constexpr const char* kOperation = "VerifySignature";
    const auto keyHandle = StoreAndMakeKeyHandle(certificate, kOperation);
    if (!keyHandle) {
        return false;
    }
    const auto verifier = TakeObject(
        mCryptoLib->createDigitalSignature(
            {orv::sec::crypto::operation::SignatureAlgorithm::kEcdsaSha256, keyHandle}),
        kOperation, ": createDigitalSignature failed: ", ": createDigitalSignature returned null");
    if (!verifier) {
        return false;
    }
    const CryptoResultCode code =
        verifier->verify(ToLibraryBytes(signature), ToLibraryBytes(content));
    if (code != CryptoResultCode::kSuccess) {
        LogFailure(kOperation, ": verification failed: ", code);
        return false;
    }
    QELLogging::LogInfo(kOperation, ": verification succeeded");
    return true;
}

bool X509CryptoApiValidator::StoreTempCertificate(const std::string& certificate) const {
    constexpr const char* kOperation = "StoreTempCertificate";
    if (certificate.empty()) {
        LogError(kOperation, ": certificate is empty");
        return false;
    }
    if (!mTempTrustStore) {
        LogError(kOperation, ": temporary trust store is null");
        return false;
    }
    const auto handle = TakeObject(mTempTrustStore->makeCertId(kKeyIdTivTmp), kOperation,
                                   ": makeCertId failed: ", ": makeCertId returned nullptr");
    if (!handle) {
        return false;
    }
    const CryptoResultCode code =
        mTempTrustStore->storeCertificate(handle, ToLibraryBytes(certificate));
    if (code != CryptoResultCode::kSuccess) {
        LogFailure(kOperation, ": storeCertificate: ", code);
        return false;
    }
    return true;
}

std::shared_ptr<const orv::sec::crypto::common::IKeyID>
X509CryptoApiValidator::StoreAndMakeKeyHandle(const std::string& certificate,
                                              const char* operation) const {
    if (!StoreTempCertificate(certificate)) {
        LogError(operation, ": StoreTempCertificate failed");
        return nullptr;
    }
    return TakeObject(mTempTrustStore->makeKeyId(kKeyIdTivTmp), operation,
                      ": makeKeyId failed: ", ": makeKeyId returned null");
}

std::string timePointToString(system_clock::time_point time) {
    return EpochSecondsToString(
        std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count());
}

}  // namespace vintrel
