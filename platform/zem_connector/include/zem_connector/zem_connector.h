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
/// not owned; they must live until their one answer, or until `Stop` has returned.
class ZemConnector {
public:
    ZemConnector(ZemSessionCallbackIf* sessionCallback, ZemPubSubCallbackIf* pubSubCallback);
    ZemConnector(const ZemConnector&) = delete;
    ZemConnector& operator=(const ZemConnector&) = delete;
    virtual ~ZemConnector();

    /// Opens the session; returns its present status. Changes come by `ZemConnectorStatus`.
    virtual SessionStatus Start();

    /// Ends the session and all that is under way. No callback runs or comes afterwards, unless
    /// it is called from inside one: then that is the last. Waits for a callback that runs, and
    /// for nothing else. Sockets that the library carries bytes for end, too.
    virtual void Stop();

    /// Asks for the activation and connection state of a transaction type: the present one, and
    /// each change. The third argument is reserved, 0.
    virtual bool SubscribeTransactionTypeState(std::string transactionType,
                                               ZemServiceControllerCallbackIf* callback,
                                               unsigned int options);

    /// Asks for the URL of an operation. True: exactly one `ZemSCInvocationURL` follows.
    virtual bool GetInvocationUrl(std::string operationId,
                                  ZemServiceControllerCallbackIf* callback);

    /// Connects a stream socket on behalf of an operation. True: exactly one `ZemSocketResult`
    /// follows. The library may protect the connection, and then carries the bytes until either
    /// side ends.
    virtual bool SocketConnect(std::string operationId, std::string host, unsigned short port,
                               ZemSocketCallbackIf* callback);

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace zem_connector
