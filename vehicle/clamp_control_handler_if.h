#pragma once

namespace nuro_common {

/// Subscribes to the clamp control service and forwards its notifications.
class ClampControlHandlerIf {
public:
    virtual ~ClampControlHandlerIf() = default;

    /// Starts the client; notifications of the connection follow. Always true. To be called once.
    virtual bool ClampControlInit() = 0;

    /// Begins to subscribe, on a thread of its own and until the service accepts; former attempts
    /// end first. Always true, and returns without waiting for the service. Any thread.
    virtual bool SubscribeNB() = 0;
};

}  // namespace nuro_common
