#pragma once

#include <cstdint>
#include <vector>

#include <orv/services/diagnosticinfo/diagnostic_info.h>

namespace diagnosticinfo_host {

using IdentificationData =
    orv::services::diagnosticinfo::DiagnosticInfo::identificationData::value_type;

/// Payload of a notification of the field identificationData: what its Deserialize reads.
std::vector<std::uint8_t> SerializeIdentificationData(const IdentificationData& records);

}  // namespace diagnosticinfo_host
