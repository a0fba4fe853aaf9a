#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orv::sec::tive {

/// Data of an application that travel with a payload under the container's signature. A record
/// whose members all are empty or zero adds nothing to the container.
struct AuxiliaryData {
    /// Names the kind of data.
    std::string type;
    /// The version of that kind.
    std::uint32_t version = 0;
    std::vector<std::uint8_t> data;
    /// Human-readable.
    std::string description;
};

}  // namespace orv::sec::tive
