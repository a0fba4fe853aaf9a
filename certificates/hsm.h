#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "certificates/client_cert_initializer_api.h"
#include "certificates/x509_validator_if.h"
#include "client/hsm_if.h"

namespace vintrel {

/// `HsmIf` on the secure store and the X.509 validator. It caches nothing: every call reads the
/// store. A certificate has the common name VIN + ":C003".
class Hsm : public HsmIf {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    /// Throws `std::runtime_error` when the crypto library or one of its objects is unavailable.
    Hsm();
    /// With another source of the current time than the system clock; `clock` must be callable.
    explicit Hsm(Clock clock);

    std::vector<std::uint8_t> GenerateCsr(const std::string& vin) override;
    std::string GetKoruVin() const override;
    bool StoreTivCertificateToTrustStore(const std::string& certificateChain) const override;
    bool DeleteTivCertificateFromTrustStore() const override;
    bool CheckTivCertificate(const std::string& certificateChain, const std::string& vin) override;
    StatusCode CheckTrustStoreTivValidity(const std::string& vin) override;

private:
    std::string GetCommonName(const std::string& vin) const;
    /// True when the two are equal.
    bool CompareCommonNames(const std::string& derived, const std::string& fromCertificate) const;

    std::shared_ptr<orv::tee::ClientCertInitializerAPI> mClientCertApi;
    std::shared_ptr<X509ValidatorIf> mX509Validator;
    Clock mClock;
};

}  // namespace vintrel
