#pragma once

namespace clampcontrolclient {

/// Receiver of what the clamp control service reports. All operations are called on one thread of
/// the library, in the order of the events.
class ClampControlCallbackIf {
public:
    virtual ~ClampControlCallbackIf() = default;

    /// The service came or went. With the service all subscriptions go.
    virtual void ConnectionStateNotification(bool connected) = 0;

    /// Clamp 15 is on or off: once after each subscription, if the state is known, and then at each
    /// change.
    virtual void ClampControlNotification(bool state) = 0;

    /// The service accepted a subscription.
    virtual void ClampControlSubscribedNotification() = 0;
};

}  // namespace clampcontrolclient
