#pragma once

#include <chrono>
#include <string>

#include "simulator/pki/authority.h"

namespace simulator::pki {

/// The two PKIs around a unit. On disk each authority is a file NAME.pem with its certificate and a
/// file NAME.key (mode 0600) with its private key.
struct Pki {
    /// "factory-root": what the backend trusts to have made a unit.
    Authority factoryRoot;
    /// "factory-ca": issues base certificates.
    Authority factoryCa;
    /// "product-root": what a unit trusts to issue client certificates.
    Authority productRoot;
    /// "product-ca": issues client certificates.
    Authority productCa;
};

/// Makes both PKIs in `directory`, which must not exist yet or be empty; it appears with all its
/// files or not at all. `pki_support::PkiError` on failure.
void CreatePki(const std::string& directory, std::chrono::system_clock::time_point now);

/// `pki_support::PkiError` when a file is missing or the files do not belong together.
Pki LoadPki(const std::string& directory);

/// A unit's base certificate: its private key and the chain from it to the factory CA, both in PEM.
struct UnitIdentity {
    std::string keyPem;
    std::string chainPem;
};

UnitIdentity IssueUnit(const Authority& factoryCa, const std::string& vin,
                       const std::string& suffix, std::chrono::system_clock::time_point now);

}  // namespace simulator::pki
