#pragma once

#include <cstdint>
#include <string>

namespace vintrel {

/// Why the unit requests a certificate; sent to the backend as an int32.
enum ActivationReason : std::int32_t {
    ACTIVATIONREASON_CLAMP30_DETECTED = 0,
    ACTIVATIONREASON_FORCE_REACTIVATION = 1,
    ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID = 2,
    ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE = 3,
    ACTIVATIONREASON_FACTORY_RESET = 4,
    ACTIVATIONREASON_OTHER = 5,
    ACTIVATION_REASON_DATA_TAMPERED = 6,
    ACTIVATION_REASON_CERT_1YEAR_EXPIRATION = 7,
    ACTIVATION_REASON_DIAGNOSTIC_ROUTINE = 8,
};

/// The name of a reason as it stands in the log. A value outside the enumeration gives an empty
/// text.
const std::string& StatusToString(ActivationReason reason);

}  // namespace vintrel
