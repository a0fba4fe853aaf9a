#include "backend/zem_connector_fsm.h"

#include <utility>

#include "fsm/event_dispatcher.h"
#include "logging/qel_logging.h"

namespace vintrel {

using qel_logging::QELLogging;
using zem_connector::SCActivationStateUpdate;
using zem_connector::SCSessionStatus;
using zem_connector::SCUrlResult;
using zem_connector::SessionStatus;

namespace {

constexpr const char* kOperationId = "QUBA-GenerateTIVCert-C003.COSendCSR";
constexpr std::size_t kMaxRetiredSocketConnectCbs = 32;

}  // namespace

ZemConnectorFsm::SocketConnectCbData::SocketConnectCbData(std::shared_ptr<fsm::Fsm> receiver,
                                                          int receiverEvent, ZemConnectorFsm* fsm,
                                                          int id)
    : client(std::move(receiver)),
      clientEvent(receiverEvent),
      callback(fsm, kSocketConnectCbEndEvent, id) {}

ZemConnectorFsm::ZemConnectorFsm(const FsmFactory& factory, const std::string& transactionType)
    : ZemConnectorFsmIf("ZemConnectorFsm"), mFactory(factory), mTransactionType(transactionType) {}

ZemConnectorFsm::~ZemConnectorFsm() {
    if (mConnector) {
        mConnector->Stop();
    }
}

bool ZemConnectorFsm::StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                               std::shared_ptr<fsm::Fsm> target, int targetEvent) {
    SetupFsm(dispatcher, std::move(target), targetEvent);
    mConnector = mFactory.NewZemConnector(this, nullptr);
    const SessionStatus status = mConnector ? mConnector->Start() : SessionStatus::kRejected;
    if (status == SessionStatus::kRejected) {
        StopFsm();
        return false;
    }
    ZemConnectorStatusChange(status);
    return true;
}

void ZemConnectorFsm::GetUrl() {
    if (mUrlQueryPending) {
        QELLogging::LogError(mLogName, "URL query already pending.");
        return;
    }
    if (!mConnector || !mConnector->GetInvocationUrl(kOperationId, this)) {
        QELLogging::LogError(mLogName, "GetInvocationUrl failed.");
        return;
    }
    mUrlQueryPending = true;
}

bool ZemConnectorFsm::Connect(const std::string& host, unsigned short port,
                              std::shared_ptr<fsm::Fsm> client, int clientEvent) {
    if (mConnectorStatus != SessionStatus::kStarted) {
        QELLogging::LogError(mLogName, "Connection refused because of the Zem-Connector status: ",
                             to_string(mConnectorStatus));
        return false;
    }
    if (!mActivated) {
        QELLogging::LogError(mLogName, "Activation State is Disabled!");
        return false;
    }
    const int id = mNextSocketCbId;
    auto& attempt = mSocketConnectCbs[id];
    attempt = std::make_unique<SocketConnectCbData>(std::move(client), clientEvent, this, id);
    if (!mConnector || !mConnector->SocketConnect(kOperationId, host, port, &attempt->callback)) {
        QELLogging::LogError(mLogName, "SocketConnect() failed!");
        // The library may know the callback all the same.
        Retire(std::move(attempt));
        mSocketConnectCbs.erase(id);
        return false;
    }
    QELLogging::LogInfo(mLogName, attempt->callback.GetTraceName(), " started.");
    ++mNextSocketCbId;
    return true;
}

void ZemConnectorFsm::ZemConnectorStatus(SessionStatus status) {
    RaiseAsyncEvent(kZemConnectorStatusEvent, static_cast<int>(status), nullptr);
}

void ZemConnectorFsm::ZemSCSessionStatus(SCSessionStatus /*status*/) {}

void ZemConnectorFsm::ZemSCInvocationURL(SCUrlResult result) {
    auto data = std::make_unique<ZemScInvocationUrlResultData>();
    data->SetUrlResult(result);
    RaiseAsyncEvent(kUrlQueryResultEvent, 0, std::move(data));
}

void ZemConnectorFsm::ZemSCActivationState(SCActivationStateUpdate update) {
    auto data = std::make_unique<ZemScActivationStateData>();
    data->SetActivationStateUpdate(update);
    RaiseAsyncEvent(kActivationStateEvent, 0, std::move(data));
}

void ZemConnectorFsm::ZemSCConnectionState(SCConnectionStateUpdate update) {
    auto data = std::make_unique<ZemScConnectionStateData>();
    data->SetConnectionStateUpdate(update);
    RaiseAsyncEvent(kConnectionStateEvent, 0, std::move(data));
}

void ZemConnectorFsm::RaiseCallbackEvent(int eventId, int eventInfo) {
    RaiseAsyncEvent(eventId, eventInfo, nullptr);
}

const char* ZemConnectorFsm::to_string(SessionStatus status) {
    switch (status) {
        case SessionStatus::kIdle:
            return "Idle";
        case SessionStatus::kStarting:
            return "Starting";
        case SessionStatus::kStarted:
            return "Started";
        case SessionStatus::kRejected:
            return "Rejected";
    }
    return "Unknown";
}

const char* ZemConnectorFsm::to_string(SCConnectionState state) {
    switch (state) {
        case SCConnectionState::kNotAvailable:
            return "NotAvailable";
        case SCConnectionState::kDisconnected:
            return "Disconnected";
        case SCConnectionState::kOnDemand:
            return "OnDemand";
        case SCConnectionState::kConnected:
            return "Connected";
    }
    return "Unknown";
}

void ZemConnectorFsm::FsmStateConnectorStarting(int eventId, int eventInfo) {
    switch (eventId) {
        case kActivationStateEvent:
            ActivationStateChange();
            break;
        case kConnectionStateEvent:
            ConnectionStateChange();
            break;
        default:
            DefaultEventHandler(eventId, eventInfo);
            break;
    }
}

void ZemConnectorFsm::FsmStateConnectorStarted(int eventId, int eventInfo) {
    FsmStateConnectorStarting(eventId, eventInfo);
}

void ZemConnectorFsm::DefaultEventHandler(int eventId, int eventInfo) {
    switch (eventId) {
        case kZemConnectorStatusEvent:
            ZemConnectorStatusChange(static_cast<SessionStatus>(eventInfo));
            break;
        case kUrlQueryResultEvent:
            UrlQueryResultEventHandler();
            break;
        case kSocketConnectCbEndEvent:
            SocketConnectCbEndEventHandler(eventInfo);
            break;
        default:
            QELLogging::LogError(mLogName, "Unknown event ", eventId, "!");
            StopFsm();
            break;
    }
}

void ZemConnectorFsm::ZemConnectorStatusChange(SessionStatus status) {
    switch (status) {
        case SessionStatus::kStarted:
            mConnector->SubscribeTransactionTypeState(mTransactionType, this, 0);
            SetFsmState(&ZemConnectorFsm::FsmStateConnectorStarted, "FsmStateConnectorStarted");
            break;
        case SessionStatus::kStarting:
            SetFsmState(&ZemConnectorFsm::FsmStateConnectorStarting, "FsmStateConnectorStarting");
            break;
        case SessionStatus::kIdle:
        case SessionStatus::kRejected:
            break;
        default:
            QELLogging::LogError(mLogName, "Invalid connector status: ", static_cast<int>(status));
            return;
    }
    mConnectorStatus = status;
    QELLogging::LogInfo(mLogName, "Zem-Connector status: ", to_string(status));
    ReportState(kInfoStatusUpdate);
    if (status == SessionStatus::kRejected) {
        StopFsm();
    }
}

void ZemConnectorFsm::UrlQueryResultEventHandler() {
    const auto data = TakeEventData<ZemScInvocationUrlResultData>();
    if (!mUrlQueryPending) {
        StopFsm();
        return;
    }
    mUrlQueryPending = false;
    SCUrlResult result;
    result.result = 1;
    if (data) {
        result = data->GetUrlResult();
    }
    bool success = true;
    if (result.result != 0) {
        QELLogging::LogError(mLogName, "Error received for the URL!");
        success = false;
    } else {
        QELLogging::LogInfo(mLogName, "Received URL: ", result.url);
    }
    if (result.operationTypeId != kOperationId) {
        QELLogging::LogError(mLogName, "Received URL for incorrect OperationTypeId: '",
                             result.operationTypeId, "'!");
        success = false;
    }
    auto report = std::make_unique<InvocationUrlEventData>();
    report->url = result.url;
    report->success = success;
    RaiseEvent(mTarget, mTargetEvent, kInfoInvocationUrl, std::move(report));
}

void ZemConnectorFsm::ActivationStateChange() {
    const auto data = TakeEventData<ZemScActivationStateData>();
    if (!data) {
        return;
    }
    const SCActivationStateUpdate update = data->GetActivationStateUpdate();
    mActivated = update.disabledReasons.empty();
    QELLogging::LogInfo(mLogName, "'", update.transactionType, "' Activation State changed to ",
                        (mActivated ? "Activated" : "Disabled"));
    ReportState(kInfoActivationUpdate);
}

void ZemConnectorFsm::ConnectionStateChange() {
    const auto data = TakeEventData<ZemScConnectionStateData>();
    if (!data) {
        return;
    }
    const SCConnectionStateUpdate update = data->GetConnectionStateUpdate();
    mConnectionState = update.connectionState;
    QELLogging::LogInfo(mLogName, "'", update.transactionType, "' Connection State changed to ",
                        to_string(mConnectionState));
    ReportState(kInfoConnectionUpdate);
}

void ZemConnectorFsm::SocketConnectCbEndEventHandler(int id) {
    const auto found = mSocketConnectCbs.find(id);
    if (found == mSocketConnectCbs.end() || !found->second->callback.HasResult()) {
        QELLogging::LogWarning(mLogName, "Socket result dropped, no such attempt: ", id);
        return;
    }
    std::unique_ptr<SocketConnectCbData> attempt = std::move(found->second);
    mSocketConnectCbs.erase(found);

    SocketConnectCb& callback = attempt->callback;
    QELLogging::LogInfo(mLogName, callback.GetTraceName(), " ended.");
    auto report = std::make_unique<SocketConnectEventData>();
    report->streamCommunicator = fsm::FsmStreamCommunicatorIf::Create(
        callback.GetSocketFileDescriptor(), "FsmStreamCommunicator");
    callback.SetSocketFileDescriptor(-1);
    report->socketStatus = callback.GetSocketStatus();
    RaiseEvent(attempt->client, attempt->clientEvent, 0, std::move(report));
    Retire(std::move(attempt));
}

void ZemConnectorFsm::Retire(std::unique_ptr<SocketConnectCbData> attempt) {
    attempt->client.reset();
    attempt->callback.Abandon();
    mRetiredSocketConnectCbs.push_back(std::move(attempt));
    if (mRetiredSocketConnectCbs.size() > kMaxRetiredSocketConnectCbs) {
        mRetiredSocketConnectCbs.pop_front();
    }
}

void ZemConnectorFsm::ReportState(Info info) {
    auto data = std::make_unique<StateUpdateEventData>();
    data->status = mConnectorStatus;
    data->connectionState = mConnectionState;
    data->activated = mActivated;
    RaiseEvent(mTarget, mTargetEvent, info, std::move(data));
}

void ZemConnectorFsm::OnTerminate() {
    QELLogging::LogInfo(mLogName, "OnTerminate");
    if (mConnector) {
        mConnector->Stop();
        mConnector.reset();
    }
    for (auto& entry : mSocketConnectCbs) {
        Retire(std::move(entry.second));
    }
    mSocketConnectCbs.clear();
}

}  // namespace vintrel
