#pragma once

#include <string>

namespace pki_support {

/// The common name by which a certificate identifies a unit: VIN ":" suffix.
struct VehicleIdentity {
    std::string vin;
    std::string suffix;
};

/// 17 digits and capital letters without I, O and Q (ISO 3779).
bool IsVin(const std::string& text);

/// 1 to 32 ASCII letters and digits.
bool IsSuffix(const std::string& text);

/// Splits a common name at its first ":". `PkiError` when a part is not as above.
VehicleIdentity ParseCommonName(const std::string& commonName);

}  // namespace pki_support
