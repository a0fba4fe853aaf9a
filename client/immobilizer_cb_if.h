#pragma once

#include <string>

namespace vintrel {

/// Receiver of what the immobilizer service reports.
class ImmobilizerCbIf {
public:
    /// Called on a library thread; an empty VIN reports a failure.
    virtual void ImmobilizerVinReceivedCb(std::string vin) = 0;

    /// Called on a library thread.
    virtual void ImmobilizerConnectionStateChangeCb(bool connected) = 0;

    virtual ~ImmobilizerCbIf() = default;
};

}  // namespace vintrel
