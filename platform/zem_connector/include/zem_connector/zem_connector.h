#pragma once

#include <memory>
#include <string>

#include <zem_connector/session_status.h>
#include <zem_connector/zem_pub_sub_callback_if.h>
#include <zem_connector/zem_service_controller_callback_if.h>
#include <zem_connector/zem_session_callback_if.h>
#include <zem_connector/zem_socket_callback_if.h>

namespace zem_connector {

/// A process's access to the vehicle's link to the backend.
///
/// The operations may be called from any one thread at a time and never block for long. All
/// callbacks come on threads of the library, never from inside an operation. Callback objects are
/// not owned; they must live until their one answer, or until `Stop` has returned. An operation
/// that returns false has no effect, and its callback is not called.
class ZemConnector {
public:
    /// Both may be null.
    ZemConnector(ZemSessionCallbackIf* sessionCallback, ZemPubSubCallbackIf* pubSubCallback);
    ZemConnector(const ZemConnector&) = delete;
    ZemConnector& operator=(const ZemConnector&) = delete;
    /// As `Stop`.
    virtual ~ZemConnector();

    /// Opens the session; returns its present status. Changes come by `ZemConnectorStatus`.
    virtual SessionStatus Start();

    /// Ends the session and all pending operations. No callback runs or starts afterwards; if
    /// called from inside one, that is the last. Waits only for a callback that is running.
    /// Connections that the library relays are closed, too.
    virtual void Stop();

    /// Subscribes to the activation and connection state of a transaction type: the current state
    /// and each change. The third argument is reserved, 0. False: not started, rejected at
    /// the start or stopped, or a null callback.
    virtual bool SubscribeTransactionTypeState(std::string transactionType,
                                               ZemServiceControllerCallbackIf* callback,
                                               unsigned int options);

    /// Queries the URL of an operation. True: exactly one `ZemSCInvocationURL` follows.
    virtual bool GetInvocationUrl(std::string operationId,
                                  ZemServiceControllerCallbackIf* callback);

    /// Connects a stream socket on behalf of an operation. True: exactly one `ZemSocketResult`
    /// follows. The library may put TLS between the socket and the peer, and then relays the bytes
    /// until either side ends.
    virtual bool SocketConnect(std::string operationId, std::string host, unsigned short port,
                               ZemSocketCallbackIf* callback);

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace zem_connector
