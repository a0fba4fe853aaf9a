#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/tive_generator_if.h"

namespace vintrel {

/// `TiveGeneratorIf` on the container library: the payload is signed with the unit's base key in
/// the key-management store, and that key's certificate chain goes along. It keeps nothing between
/// calls.
class TiveGeneratorFndTive : public TiveGeneratorIf {
public:
    /// Throws `std::runtime_error` when the crypto library can't be initialised.
    std::string ConstructContainer(const std::vector<std::uint8_t>& payload) override;

private:
    static const std::string kAuxiliaryType;
    static const std::vector<std::uint8_t> kAuxiliaryBytes;
    static const std::string kAuxiliaryDescription;
};

}  // namespace vintrel
