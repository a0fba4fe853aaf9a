#pragma once

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>

#include <zem_connector/zem_connector.h>
#include <zem_connector/zem_service_controller_callback_if.h>
#include <zem_connector/zem_session_callback_if.h>

#include "backend/socket_connect_cb.h"
#include "client/fsm_factory.h"
#include "client/zem_connector_fsm_if.h"

namespace vintrel {

/// The connector library as a state machine.
///
/// The library calls back on threads of its own; each callback becomes an asynchronous event, and
/// all the rest happens on the dispatcher thread. A callback that comes before `StartFsm` or after
/// the end of the machine is dropped.
///
/// | State                        | Event                              | Then                    |
/// |------------------------------|------------------------------------|-------------------------|
/// | FsmStateNotStarted           | `StartFsm`, by the session status  | one of the two below    |
/// | FsmStateConnectorStarting,   | session status                     | by the status; rejected |
/// | FsmStateConnectorStarted     |                                    | ends the machine        |
/// |                              | URL, activation, connection, socket| the same                |
/// |                              | URL not requested, unknown event   | the end                 |
class ZemConnectorFsm : public ZemConnectorFsmIf,
                        public zem_connector::ZemSessionCallbackIf,
                        public zem_connector::ZemServiceControllerCallbackIf {
public:
    using SCConnectionState = ZemServiceControllerCallbackIf::SCConnectionState;

    /// `factory` makes the library object and must outlive the machine.
    ZemConnectorFsm(const FsmFactory& factory, const std::string& transactionType);
    ZemConnectorFsm(const ZemConnectorFsm&) = delete;
    ZemConnectorFsm& operator=(const ZemConnectorFsm&) = delete;
    ~ZemConnectorFsm() override;

    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                  std::shared_ptr<fsm::Fsm> target, int targetEvent) override;
    void GetUrl() override;
    bool Connect(const std::string& host, unsigned short port, std::shared_ptr<fsm::Fsm> client,
                 int clientEvent) override;

    void ZemConnectorStatus(zem_connector::SessionStatus status) override;
    void ZemSCSessionStatus(zem_connector::SCSessionStatus status) override;
    void ZemSCInvocationURL(zem_connector::SCUrlResult result) override;
    void ZemSCActivationState(zem_connector::SCActivationStateUpdate update) override;
    void ZemSCConnectionState(SCConnectionStateUpdate update) override;

    /// For `SocketConnectCb`: an event without payload from a thread of the library.
    void RaiseCallbackEvent(int eventId, int eventInfo);

    /// The names that stand in the log.
    static const char* to_string(zem_connector::SessionStatus status);
    static const char* to_string(SCConnectionState state);

protected:
    void OnTerminate() override;

private:
    enum EventId : int {
        kZemConnectorStatusEvent = 0,
        kUrlQueryResultEvent = 1,
        kActivationStateEvent = 2,
        kConnectionStateEvent = 3,
        kSocketConnectCbEndEvent = 4,
    };

    struct SocketConnectCbData {
        std::shared_ptr<fsm::Fsm> client;
        int clientEvent;
        SocketConnectCb callback;

        SocketConnectCbData(std::shared_ptr<fsm::Fsm> receiver, int receiverEvent,
                            ZemConnectorFsm* fsm, int id);
    };

    class ZemScInvocationUrlResultData : public fsm::FsmEventData {
    public:
        void SetUrlResult(const zem_connector::SCUrlResult& result) { mResult = result; }
        zem_connector::SCUrlResult GetUrlResult() const { return mResult; }

    private:
        zem_connector::SCUrlResult mResult;
    };

    class ZemScActivationStateData : public fsm::FsmEventData {
    public:
        void SetActivationStateUpdate(const zem_connector::SCActivationStateUpdate& update) {
            mUpdate = update;
        }
        zem_connector::SCActivationStateUpdate GetActivationStateUpdate() const { return mUpdate; }

    private:
        zem_connector::SCActivationStateUpdate mUpdate;
    };

    class ZemScConnectionStateData : public fsm::FsmEventData {
    public:
        void SetConnectionStateUpdate(const SCConnectionStateUpdate& update) { mUpdate = update; }
        SCConnectionStateUpdate GetConnectionStateUpdate() const { return mUpdate; }

    private:
        SCConnectionStateUpdate mUpdate;
    };

    void FsmStateConnectorStarting(int eventId, int eventInfo);
    void FsmStateConnectorStarted(int eventId, int eventInfo);
    void DefaultEventHandler(int eventId, int eventInfo);

    void ZemConnectorStatusChange(zem_connector::SessionStatus status);
    void UrlQueryResultEventHandler();
    void ActivationStateChange();
    void ConnectionStateChange();
    void SocketConnectCbEndEventHandler(int id);

    /// Raises the present state to the target.
    void ReportState(Info info);

    /// Keeps the callback object of an attempt that has ended for a while: a library that answers
    /// twice must not call a destroyed object.
    void Retire(std::unique_ptr<SocketConnectCbData> attempt);

    const FsmFactory& mFactory;
    std::shared_ptr<zem_connector::ZemConnector> mConnector;
    zem_connector::SessionStatus mConnectorStatus{zem_connector::SessionStatus::kIdle};
    bool mUrlQueryPending{false};
    std::unordered_map<int, std::unique_ptr<SocketConnectCbData>> mSocketConnectCbs;
    std::string mTransactionType;
    SCConnectionState mConnectionState{SCConnectionState::kNotAvailable};
    bool mActivated{false};
    int mNextSocketCbId{0};

    std::deque<std::unique_ptr<SocketConnectCbData>> mRetiredSocketConnectCbs;
};

}  // namespace vintrel
