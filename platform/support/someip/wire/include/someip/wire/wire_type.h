#pragma once

#include <cstdint>

namespace someip {

/// Wire types of PRS_SOMEIP: 0 to 3 are base types of 1, 2, 4 and 8 bytes; 4 has a length field of
/// the configured size; 5, 6 and 7 have one of 1, 2 and 4 bytes.
enum class WireType : std::uint8_t {
    kBase8 = 0,
    kBase16 = 1,
    kBase32 = 2,
    kBase64 = 3,
    kConfiguredLength = 4,
    kLength8 = 5,
    kLength16 = 6,
    kLength32 = 7,
};

}  // namespace someip
