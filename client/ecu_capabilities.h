#pragma once

#include <string>

namespace vintrel {

/// Identity of the control unit, as its diagnostic service publishes it. A string is empty while
/// its value has not arrived.
struct EcuCapabilities {
    std::string hardwareVersion;
    std::string softwareVersion;
    std::string partNumber;
};

}  // namespace vintrel
