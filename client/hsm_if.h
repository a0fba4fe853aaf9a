#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/status_code.h"

namespace vintrel {

/// All that the client does with keys and certificates. Dispatcher thread only.
///
/// Mind the sense of the results: where a `bool` comes back, true means failed. The reason of a
/// failure stands in the log only.
class HsmIf {
public:
    virtual ~HsmIf() = default;

    /// Makes a fresh pending key pair and returns a signing request (PKCS#10, RFC 2986) for it;
    /// empty on failure. The accepted key and certificate are not touched.
    virtual std::vector<std::uint8_t> GenerateCsr(const std::string& vin) = 0;

    /// The VIN in the unit's base certificate; empty on failure.
    virtual std::string GetKoruVin() const = 0;

    /// Installs a chain and promotes the pending key. True means failed.
    virtual bool StoreTivCertificateToTrustStore(const std::string& certificateChain) const = 0;

    /// Removes the client certificate and its key. True means failed; nothing to remove is no
    /// failure.
    virtual bool DeleteTivCertificateFromTrustStore() const = 0;

    /// Checks a chain from the backend against the pending key. True means failed.
    virtual bool CheckTivCertificate(const std::string& certificateChain,
                                     const std::string& vin) = 0;

    /// Judges the stored certificate; the first check that fails gives the status.
    virtual StatusCode CheckTrustStoreTivValidity(const std::string& vin) = 0;
};

}  // namespace vintrel
