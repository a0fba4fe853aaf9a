#pragma once

#include <memory>

#include "client/ecu_capabilities.h"

namespace vintrel {

/// Source of the unit's identity. Dispatcher thread only.
class EcuCapabilitiesIf {
public:
    virtual ~EcuCapabilitiesIf() = default;

    static std::shared_ptr<EcuCapabilitiesIf> Create();

    /// To be called once before anything else.
    virtual void Initialize() = 0;

    /// The values that have arrived so far; never waits.
    virtual EcuCapabilities GetEcuCapabilities() = 0;
};

}  // namespace vintrel
