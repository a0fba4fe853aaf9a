#pragma once

#include <cstdint>
#include <vector>

#include <eb/com/optional.h>

namespace orv::services::diagnosticinfo::datatypes {

/// Identification of one control unit. The byte arrays hold text.
struct DT_identificationData_struct {
    eb::com::optional<std::uint32_t> identifier;
    eb::com::optional<std::uint16_t> diagnosticAddress;
    eb::com::optional<std::vector<std::uint8_t>> swVersion;
    eb::com::optional<std::vector<std::uint8_t>> hwVersion;
    eb::com::optional<std::vector<std::uint8_t>> partNumber;
};

}  // namespace orv::services::diagnosticinfo::datatypes
