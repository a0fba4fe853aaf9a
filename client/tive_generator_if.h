#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vintrel {

/// Wraps a payload into a container signed with the unit's factory key. Dispatcher thread only.
class TiveGeneratorIf {
public:
    virtual ~TiveGeneratorIf() = default;

    static std::shared_ptr<TiveGeneratorIf> Create();

    /// The finished container as text; empty on failure, which has been logged.
    virtual std::string ConstructContainer(const std::vector<std::uint8_t>& payload) = 0;
};

}  // namespace vintrel
