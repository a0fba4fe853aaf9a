#pragma once

#include <cstdint>
#include <vector>

#include <orv/services/diagnosticinfo/datatypes/dt_identification_data_struct.h>

namespace orv::services::diagnosticinfo {

/// Description of the service for the proxy templates.
struct DiagnosticInfo {
    static constexpr const char* kServiceName = "orv::services::diagnosticinfo::DiagnosticInfo";

    /// Field with the identification of the unit's controllers.
    struct identificationData {
        static constexpr const char* kName = "identificationData";
        using value_type = std::vector<datatypes::DT_identificationData_struct>;

        /// Throws a std::runtime_error that names the broken rule if the payload is no such value.
        static value_type Deserialize(const std::vector<std::uint8_t>& payload);
    };
};

}  // namespace orv::services::diagnosticinfo
