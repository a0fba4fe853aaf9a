#include "client/activation_reason.h"

#include <array>
#include <cstddef>

namespace vintrel {

const std::string& StatusToString(ActivationReason reason) {
    static const std::array<std::string, 9> StatusStrings = {
        "ACTIVATIONREASON_CLAMP30_DETECTED",
        "ACTIVATIONREASON_FORCE_REACTIVATION",
        "ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID",
        "ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE",
        "ACTIVATIONREASON_FACTORY_RESET",
        "ACTIVATIONREASON_OTHER",
        "ACTIVATION_REASON_DATA_TAMPERED",
        "ACTIVATION_REASON_CERT_1YEAR_EXPIRATION",
        "ACTIVATION_REASON_DIAGNOSTIC_ROUTINE",
    };
    static const std::string unknown;
    const auto index = static_cast<std::size_t>(reason);
    return index < StatusStrings.size() ? StatusStrings.at(index) : unknown;
}

}  // namespace vintrel
