#pragma once

#include <chrono>
#include <string>

#include "simulator/pki/authority.h"

namespace simulator::pki {

/// The two PKIs around a unit. On disk each authority is a file NAME.pem with its certificate and a
/// file NAME.key (mode 0600) with its private key.
struct Pki {
    /// "factory-root": the backend's trust anchor for units.
    Authority factoryRoot;
    /// "factory-ca": issues base certificates.
    Authority factoryCa;
    /// "product-root": a unit's trust anchor for client certificates.
    Authority productRoot;
    /// "product-ca": issues client certificates.
    Authority productCa;
};

/// Creates both PKIs in `directory`, which must not exist or be empty; it appears atomically with
/// all its files. Throws `pki_support::PkiError`.
void CreatePki(const std::string& directory, std::chrono::system_clock::time_point now);

/// Throws `pki_support::PkiError` if a file is missing or the files do not match.
Pki LoadPki(const std::string& directory);

/// A unit's base certificate: its private key and the chain from it to the factory CA, both in PEM.
struct UnitIdentity {
    std::string keyPem;
    std::string chainPem;
};

/// Issues a base certificate with a new key, CN=`vin`:`suffix`. Throws `pki_support::PkiError` if
/// the VIN or suffix is malformed.
UnitIdentity IssueUnit(const Authority& factoryCa, const std::string& vin,
                       const std::string& suffix, std::chrono::system_clock::time_point now);

}  // namespace simulator::pki
