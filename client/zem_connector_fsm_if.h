#pragma once

#include <memory>
#include <string>

#include <zem_connector/session_status.h>
#include <zem_connector/zem_service_controller_callback_if.h>

#include "fsm/fsm.h"
#include "fsm/fsm_event_data.h"
#include "fsm/fsm_stream_communicator_if.h"

namespace vintrel {

/// The vehicle's link to the backend as a machine: session, URL and sockets.
///
/// All reports go to the target given to `StartFsm`, under its event id, with an `Info` as
/// event info. Dispatcher thread only.
class ZemConnectorFsmIf : public fsm::Fsm {
public:
    using fsm::Fsm::Fsm;

    using SCConnectionState = zem_connector::ZemServiceControllerCallbackIf::SCConnectionState;

    /// The event infos of the reports to the target.
    enum Info : int {
        kInfoStatusUpdate = 0,
        kInfoActivationUpdate = 1,
        kInfoConnectionUpdate = 2,
        kInfoInvocationUrl = 3,
    };

    /// Payload of the three state reports: a snapshot at the moment of raising.
    class StateUpdateEventData : public fsm::FsmEventData {
    public:
        zem_connector::SessionStatus status{};
        SCConnectionState connectionState{};
        bool activated{false};
    };

    /// Payload of `kInfoInvocationUrl`. With `success` false the URL must not be used.
    class InvocationUrlEventData : public fsm::FsmEventData {
    public:
        std::string url;
        bool success{false};
    };

    /// Payload of the event that a `Connect` leads to. The communicator is usable if
    /// `socketStatus` is 0.
    class SocketConnectEventData : public fsm::FsmEventData {
    public:
        std::shared_ptr<fsm::FsmStreamCommunicatorIf> streamCommunicator;
        int socketStatus{0};
    };

    /// Registers the machine and opens the session. False if the session was rejected.
    virtual bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                          std::shared_ptr<fsm::Fsm> target, int targetEvent) = 0;

    /// Asks for the invocation URL; the answer is a later event with `kInfoInvocationUrl`. A
    /// refused query is logged and gets no answer.
    virtual void GetUrl() = 0;

    /// Asks for a connected socket. True means that exactly one event `clientEvent` with info 0
    /// and a `SocketConnectEventData` will reach `client`; false, that none will.
    virtual bool Connect(const std::string& host, unsigned short port,
                         std::shared_ptr<fsm::Fsm> client, int clientEvent) = 0;
};

}  // namespace vintrel
