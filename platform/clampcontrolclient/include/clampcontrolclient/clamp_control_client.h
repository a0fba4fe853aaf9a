#pragma once

#include <memory>
#include <string>

#include <clampcontrolclient/clamp_control_callback_if.h>

namespace clampcontrolclient {

/// Client of the clamp control service. It finds the service by the configuration file
/// /var/run/qel/config/wexa-client/ClientConfig.json, or by the one that the environment variable
/// WEXA_CLIENT_CONFIG names. It keeps connecting by itself until it is stopped.
///
/// Every operation may be called from any thread, from within a callback too.
class ClampControlClient {
public:
    ClampControlClient();

    /// Stops.
    virtual ~ClampControlClient();

    ClampControlClient(const ClampControlClient&) = delete;
    ClampControlClient& operator=(const ClampControlClient&) = delete;

    /// Begins to talk to the service. If the configuration is unusable, that is logged, and the
    /// client never gets connected.
    virtual void Start();

    /// Ends the client. When this returns, no callback runs (but the one from which it is called)
    /// and none will.
    virtual void Stop();

    /// Sets the receiver, not owned, or none by null. When this returns, the former receiver is not
    /// called any more, apart from the callback from which it is called.
    virtual void AssignCallback(ClampControlCallbackIf* callback);

    /// Subscribes to the clamp state. Blocks until the service has answered, but no longer than the
    /// configured time limit; returns at once when the connection is lost or not there. Returns the
    /// id of the subscription, empty if there is none.
    virtual std::string SubscribeClampState();

    /// Ends a subscription. Does not block. An unknown id is ignored.
    virtual void UnsubscribeClampState(const std::string& subscription);

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace clampcontrolclient
