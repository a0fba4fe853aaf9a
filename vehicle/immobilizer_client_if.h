#pragma once

#include "vehicle/immobilizer_callback_if.h"

namespace immobilizerclient {

/// Client of the immobilizer service.
class ImmobilizerClientIf {
public:
    virtual ~ImmobilizerClientIf() = default;

    /// Begins to look for the service; notifications of the connection follow.
    virtual void Start() = 0;

    /// Ends the client; when this returns, no callback comes any more.
    virtual void Stop() = 0;

    /// Sets the receiver, not owned, or none by null. To be called before Start.
    virtual void AssignCallback(ImmobilizerCallbackIf* callback) = 0;

    /// Asks for the VIN and returns at once. Exactly one ImmobilizerVinReceived follows, unless the
    /// client has no access to the vehicle's services at all and thus never reports a connection.
    virtual void GetImmobilizerVin() = 0;
};

}  // namespace immobilizerclient
