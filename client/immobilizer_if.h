#pragma once

#include <memory>

#include "client/immobilizer_cb_if.h"

namespace vintrel {

/// The vehicle's immobilizer service, which knows the VIN. Dispatcher thread only.
class ImmobilizerIf {
public:
    virtual ~ImmobilizerIf() = default;

    /// `callback` must outlive the returned object.
    static std::shared_ptr<ImmobilizerIf> Create(ImmobilizerCbIf& callback);

    /// To be called once; from then on the connection state is reported.
    virtual bool ImmobilizerInit() = 0;

    /// Asks for the VIN. After true exactly one `ImmobilizerVinReceivedCb` follows; false means
    /// that the service is not connected, and nothing follows.
    virtual bool GetVin() = 0;
};

}  // namespace vintrel
