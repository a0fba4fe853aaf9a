#include "client/vintrel_client_fsm.h"

#include "logging/qel_logging.h"

namespace vintrel {

using qel_logging::QELLogging;
using zem_connector::SessionStatus;

namespace {

const std::string kTransactionType = "QUBA-GenerateTIVCert-C003";
const std::string kTlsAlertOid = "QUBA-TokenManagement.COTokenRequest";
const std::string kComponentName = "vintrel-client";
const std::string kDiagnosticAddress = "C003";

}  // namespace

std::unique_ptr<VintrelClientFsmIf> VintrelClientFsmIf::Create(bool factoryReset) {
    static const FsmFactory factory;
    return std::make_unique<VintrelClientFsm>(factory, factoryReset);
}

VintrelClientFsm::VintrelClientFsm(const FsmFactory& factory, bool factoryReset)
    : mFsmFactory(factory) {
    SetName("VintrelClientFsm");
    mProcessLifecycleAdapter = factory.NewProcessLifecycleAdapter(this);
    mSystemTime = SystemTimeIf::Create();
    mHsm = factory.NewHsm();
    mTiveGenerator = TiveGeneratorIf::Create();
    mZemConnector = factory.NewZemConnectorFsm(kTransactionType);
    mFactoryReset = factoryReset;
    mRequestParams.diagnostic_address = kDiagnosticAddress;
    mRequestParams.activation_reason = ACTIVATIONREASON_OTHER;
    mTlsAlerts = TlsAlertsIf::Create();
    mTlsAlerts->Start(this);
    mClampControl = ClampControlIf::Create(*this);
    mImmobilizer = ImmobilizerIf::Create(*this);
    mEcuCapabilities = EcuCapabilitiesIf::Create();
}

bool VintrelClientFsm::StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher) {
    SetupFsm(dispatcher, nullptr, 0);
    if (!InitializePLA()) {
        StopFsm();
        return false;
    }
    if (!mZemConnector->StartFsm(dispatcher, shared_from_this(), kEventZemConnector)) {
        StopFsm();
        return false;
    }
    if (mFactoryReset) {
        QELLogging::LogInfo(mLogName, "Vintrel Client Factory Reset");
        if (DeleteTivCertificateFromTrustStore()) {
            QELLogging::LogError(mLogName, "Factory Reset failed!");
        }
    }
    mClampControl->Subscribe();
    mImmobilizer->ImmobilizerInit();
    mEcuCapabilities->Initialize();
    mSystemTime->Initialize();
    StartWaitingForTriggers();
    if (mTerminationRequested) {
        // Its own event may have come before there was a queue to take it.
        RaiseEvent(kEventShutdown, 0, nullptr);
    }
    return true;
}

bool VintrelClientFsm::InitializePLA() {
    if (!mProcessLifecycleAdapter) {
        QELLogging::LogError(mLogName, "Not able initialize ProcessLifecycleAdapter!");
        return false;
    }
    mProcessLifecycleAdapter->Initialize(kComponentName, this);
    return true;
}

void VintrelClientFsm::ClampStateChangeCb(bool clamp15On) {
    const int state = clamp15On ? 1 : 0;
    QELLogging::LogInfo(mLogName, "ClampStateChangeCb", ": state changed to ", state);
    RaiseAsyncEvent(kEventClampState, state, nullptr);
}

void VintrelClientFsm::ImmobilizerConnectionStateChangeCb(bool connected) {
    const int state = connected ? 1 : 0;
    QELLogging::LogInfo(mLogName, "ImmobilizerConnectionStateChangeCb", ": state changed to ",
                        state);
    RaiseAsyncEvent(kEventImmobilizerConnection, state, nullptr);
}

void VintrelClientFsm::ImmobilizerVinReceivedCb(std::string vin) {
    auto data = std::make_unique<StringEventData>();
    data->text = std::move(vin);
    RaiseAsyncEvent(kEventImmobilizerVin, 0, std::move(data));
}

void VintrelClientFsm::ProcessLifecycleAdapterTerminate() {
    QELLogging::LogDebug(mLogName, "Termination signal received");
    mTerminationRequested = true;
    RaiseAsyncEvent(kEventShutdown, 0, nullptr);
}

int VintrelClientFsm::ProcessLifecycleAdapterGetHealthStatus() {
    QELLogging::LogDebug(mLogName, "Get Health Status called.");
    return 0;
}

void VintrelClientFsm::TlsAlertNotifyCb(std::string oid, tls_alert_if::ETlsAlertCode code) {
    QELLogging::LogInfo(mLogName, "TLS alert received for oid: ", oid);
    if (oid != kTlsAlertOid) {
        QELLogging::LogDebug(mLogName, "Received TLS alert IGNORED for oid ", oid, ", code ",
                             static_cast<unsigned int>(code));
        return;
    }
    auto data = std::make_unique<TlsAlertData>();
    data->oid = std::move(oid);
    data->code = code;
    RaiseAsyncEvent(kEventTlsAlert, 0, std::move(data));
}

void VintrelClientFsm::OnTerminate() {
    QELLogging::LogInfo(mLogName, "OnTerminate");
    if (mZemConnector) {
        mZemConnector->StopFsm();
    }
    if (mTlsAlerts) {
        mTlsAlerts->Stop();
    }
    mTlsAlerts.reset();
    mProcessLifecycleAdapter.reset();
    if (mTerminationRequested) {
        // The request met an end of the machine that does not end the loop by itself, and with
        // the adapter gone no second one can come.
        GetDispatcher()->ExitDispatching(true);
    }
    QELLogging::LogInfo(mLogName, "Vintrel Client Terminated.");
}

const char* VintrelClientFsm::to_string(SCConnectionState state) {
    switch (state) {
        case SCConnectionState::kNotAvailable:
            return "NotAvailable";
        case SCConnectionState::kDisconnected:
            return "Disconnected";
        case SCConnectionState::kOnDemand:
            return "Ondemand";
        case SCConnectionState::kConnected:
            return "Connected";
    }
    return "Unknown";
}

void VintrelClientFsm::FsmStateWaitTrigger(int eventId, int eventInfo) {
    const bool handled = AsyncEventHandler(eventId, eventInfo);
    if (HasEnded()) {
        return;
    }
    if (eventId == kEventClampState) {
        if (mClamp15On) {
            QELLogging::LogInfo(mLogName, "Vintrel Client triggered by Clamp 15");
            StartPass();
        }
    } else if (eventId == kEventTlsAlert) {
        HandleTlsAlertTrigger();
    } else if (!handled) {
        DefaultEventHandler(eventId, eventInfo);
    }
}

void VintrelClientFsm::HandleTlsAlertTrigger() {
    if (!mClamp15On) {
        QELLogging::LogInfo(mLogName, "TLS Alert ignored, because CLAMP15 is OFF");
        return;
    }
    if (mTlsAlertHandled) {
        QELLogging::LogInfo(mLogName, "TLS Alert ignored, already handled once");
        return;
    }
    QELLogging::LogInfo(mLogName, "Vintrel Client triggered by TLS Alert");
    mTlsAlertHandled = true;
    StartPass();
}

void VintrelClientFsm::StartPass() {
    RaiseEvent(kEventStartConnector, 0, nullptr);
    SetFsmState(&VintrelClientFsm::FsmStateWaitZemConnector, "FsmStateWaitZemConnector");
}

void VintrelClientFsm::FsmStateWaitZemConnector(int eventId, int eventInfo) {
    const bool handled = AsyncEventHandler(eventId, eventInfo);
    if (eventId != kEventStartConnector && eventId != kEventZemConnector) {
        if (!handled) {
            DefaultEventHandler(eventId, eventInfo);
        }
        return;
    }
    if (eventInfo == ZemConnectorFsmIf::kInfoInvocationUrl) {
        HandleInvocationUrl();
        return;
    }
    if (eventInfo != ZemConnectorFsmIf::kInfoStatusUpdate || !CheckZemConnectorStatus()) {
        return;
    }
    if (mUrl.empty()) {
        QELLogging::LogInfo(mLogName, "Get VTTL URL");
        mZemConnector->GetUrl();
        return;
    }
    QELLogging::LogInfo(mLogName, "Already have a URL, continue");
    RaiseEvent(kEventCheckServices, 0, nullptr);
    SetFsmState(&VintrelClientFsm::FsmStateCheckServices, "FsmStateCheckServices");
}

void VintrelClientFsm::HandleInvocationUrl() {
    auto [url, updateType] = HandleInvocationUrlEvent();
    mUrl = std::move(url);
    if (mUpdateType != kUpdateTypeTlsAlert) {
        mUpdateType = updateType;
    }
    if (mUrl.empty()) {
        QELLogging::LogError(mLogName, "No URL available");
        StartWaitingForTriggers();
        return;
    }
    if (!GetUrlData(mUrl, mUrlData)) {
        QELLogging::LogError(mLogName, "Invalid VTTL URL: '", mUrl, "'");
        StartWaitingForTriggers();
        return;
    }
    RaiseEvent(kEventCheckServices, 0, nullptr);
    SetFsmState(&VintrelClientFsm::FsmStateCheckServices, "FsmStateCheckServices");
}

std::pair<std::string, std::int32_t> VintrelClientFsm::HandleInvocationUrlEvent() {
    const auto data = TakeEventData<ZemConnectorFsmIf::InvocationUrlEventData>();
    std::string url;
    if (data && data->success) {
        url = std::move(data->url);
    } else {
        QELLogging::LogError(mLogName, "Error received for the URL!");
    }
    QELLogging::LogInfo(mLogName, "VTTL URL: '", url, "'");
    return {std::move(url), kUpdateTypeNormal};
}

bool VintrelClientFsm::CheckZemConnectorStatus() const {
    if (mZemSessionStatus == SessionStatus::kStarted) {
        return true;
    }
    QELLogging::LogInfo(
        mLogName, "CheckZemConnectorStatus",
        ": Wrong ZemConnector session status: ", static_cast<int>(mZemSessionStatus));
    return false;
}

void VintrelClientFsm::FsmStateCheckServices(int eventId, int eventInfo) {
    const bool handled = AsyncEventHandler(eventId, eventInfo);
    if (HasEnded()) {
        return;
    }
    if (eventId != kEventCheckServices && eventId != kEventImmobilizerConnection) {
        if (!handled) {
            DefaultEventHandler(eventId, eventInfo);
        }
        return;
    }
    GetDispatcher()->ClearEvent(shared_from_this(), kEventCheckServices, false);
    if (!ServiceStatusCheck()) {
        return;
    }
    QELLogging::LogInfo(mLogName, "Service check OK, continue.");
    StartImmobilizerVinQuery();
}

bool VintrelClientFsm::ServiceStatusCheck() {
    if (!mImmobilizerConnected) {
        QELLogging::LogInfo(mLogName, "ServiceStatusCheck",
                            ": Immobilizer service is not available");
    }
    return mImmobilizerConnected;
}

void VintrelClientFsm::StartImmobilizerVinQuery() {
    mImmobilizerVin.clear();
    mKoruVin.clear();
    QELLogging::LogInfo(mLogName, "Requesting VIN from the Immobilizer Service.");
    mImmobilizer->GetVin();
    SetFsmState(&VintrelClientFsm::FsmStateWaitVin, "FsmStateWaitVin");
}

void VintrelClientFsm::FsmStateWaitVin(int eventId, int eventInfo) {
    const bool handled = AsyncEventHandler(eventId, eventInfo);
    if (HasEnded()) {
        return;
    }
    if (eventId == kEventImmobilizerVin) {
        HandleImmobilizerVin();
    } else if (eventId == kEventCheckTime) {
        HandleCheckTime();
    } else if (!handled) {
        DefaultEventHandler(eventId, eventInfo);
    }
}

void VintrelClientFsm::HandleImmobilizerVin() {
    const auto data = TakeEventData<StringEventData>();
    if (!data || data->text.empty()) {
        QELLogging::LogError(mLogName, "Received an empty VIN from the Immobilizer Service.");
        StartWaitingForTriggers();
        return;
    }
    mImmobilizerVin = data->text;
    QELLogging::LogInfo(mLogName, "Received VIN from the Immobilizer Service: ", mImmobilizerVin);
    mKoruVin = mHsm->GetKoruVin();
    if (mKoruVin.empty()) {
        QELLogging::LogError(mLogName, "No VIN received from the KORU.");
        StartWaitingForTriggers();
        return;
    }
    QELLogging::LogInfo(mLogName, "Received VIN from the KORU: ", mKoruVin);
    if (!PreCheck()) {
        DeleteTivCertificateFromTrustStore();
        StartWaitingForTriggers();
        return;
    }
    QELLogging::LogInfo(mLogName, "Immobilizer VIN and KORU VIN match");
    RaiseEvent(kEventCheckTime, 0, nullptr);
}

bool VintrelClientFsm::PreCheck() const {
    if (mImmobilizerVin == mKoruVin) {
        QELLogging::LogInfo(mLogName, "Precheck was completed successfully");
        return true;
    }
    QELLogging::LogError(mLogName, "Immobilizer VIN (", mImmobilizerVin, ") and KORU VIN (",
                         mKoruVin, ") do not match!");
    QELLogging::LogError(mLogName, "Precheck Failed!");
    return false;
}

bool VintrelClientFsm::AsyncEventHandler(int eventId, int eventInfo) {
    if (mTerminationRequested && eventId != kEventShutdown) {
        // Its own event may have been lost to a full queue.
        RaiseEvent(kEventShutdown, 0, nullptr);
    }
    switch (eventId) {
        case kEventZemConnector:
            HandleZemConnectorEvent(eventInfo);
            return true;
        case kEventClampState:
            HandleClampControlEvent(eventId, eventInfo);
            return true;
        case kEventImmobilizerConnection:
            HandleImmobilizerConnectionEvent(eventInfo);
            return true;
        case kEventTlsAlert:
            HandleTlsAlert();
            return true;
        case kEventShutdown:
            HandleShutdownEvent();
            return true;
        default:
            return false;
    }
}

void VintrelClientFsm::DefaultEventHandler(int eventId, int eventInfo) {
    QELLogging::LogError(mLogName, "Unknown event ", eventId, ", eventInfo: ", eventInfo);
    StopFsm();
}

void VintrelClientFsm::HandleClampControlEvent(int eventId, int eventInfo) {
    if (eventId != kEventClampState) {
        QELLogging::LogError(mLogName, "HandleClampControlEvent", ": Unknown event: ", eventId,
                             ", eventInfo: ", eventInfo);
        return;
    }
    mClamp15On = eventInfo == 1;
    QELLogging::LogInfo(mLogName, "HandleClampControlEvent", ": Clamp 15 has changed state to ",
                        (mClamp15On ? 1 : 0));
    if (!mClamp15On) {
        mTlsAlertHandled = false;
        mClamp15OffSeen = false;
    }
}

void VintrelClientFsm::HandleImmobilizerConnectionEvent(int eventInfo) {
    mImmobilizerConnected = eventInfo == 1;
    QELLogging::LogInfo(mLogName, "Immobilizer Service connection state has changed to ",
                        (mImmobilizerConnected ? 1 : 0));
}

void VintrelClientFsm::HandleZemConnectorEvent(int eventInfo) {
    switch (eventInfo) {
        case ZemConnectorFsmIf::kInfoStatusUpdate:
            if (const auto data = TakeEventData<ZemConnectorFsmIf::StateUpdateEventData>()) {
                HandleZemConnectorSessionStatus(data->status);
            }
            break;
        case ZemConnectorFsmIf::kInfoConnectionUpdate:
            if (const auto data = TakeEventData<ZemConnectorFsmIf::StateUpdateEventData>()) {
                HandleZemConnectorConnectionState(data->connectionState);
            }
            break;
        case ZemConnectorFsmIf::kInfoActivationUpdate:
        case ZemConnectorFsmIf::kInfoInvocationUrl:
            break;
        default:
            QELLogging::LogError(mLogName, "HandleZemConnectorEvent",
                                 ": Unknown eventInfo: ", eventInfo);
            break;
    }
}

void VintrelClientFsm::HandleZemConnectorSessionStatus(SessionStatus status) {
    switch (status) {
        case SessionStatus::kIdle:
            QELLogging::LogInfo(mLogName, "Zem-Connector: Idle");
            break;
        case SessionStatus::kStarting:
            QELLogging::LogInfo(mLogName, "Zem-Connector: Starting");
            break;
        case SessionStatus::kStarted:
            QELLogging::LogInfo(mLogName, "Zem-Connector was started successfully");
            break;
        case SessionStatus::kRejected:
            QELLogging::LogInfo(mLogName, "Zem-Connector: Rejected");
            StopFsm();
            break;
        default:
            return;
    }
    mZemSessionStatus = status;
}

void VintrelClientFsm::HandleZemConnectorConnectionState(SCConnectionState state) {
    mConnectionState = state;
    QELLogging::LogInfo(mLogName, "Connection State changed to ", to_string(state));
}

void VintrelClientFsm::HandleTlsAlert() {
    const auto data = TakeEventData<TlsAlertData>();
    if (!data) {
        return;
    }
    QELLogging::LogInfo(mLogName, "Received TLS alert for oid ", data->oid, ", code ",
                        static_cast<unsigned int>(data->code));
    mRequestParams.operationTypeId = data->oid;
    mUpdateType = kUpdateTypeTlsAlert;
}

void VintrelClientFsm::HandleShutdownEvent() {
    QELLogging::LogInfo(mLogName, "Handling Vintrel Client termination request.");
    mTerminationRequested = false;
    GetDispatcher()->ExitDispatching(true);
    StopFsm();
}

void VintrelClientFsm::StartWaitingForTriggers() {
    mRequestBody.clear();
    mRetryOngoing = false;
    mRetryCount = 0;
    mRequestParams.operationTypeId.clear();
    mUpdateType = kUpdateTypeNormal;
    mUrl.clear();
    mUrlData = UrlData{};
    QELLogging::LogInfo(mLogName, "Vintrel Client waiting for a trigger");
    SetFsmState(&VintrelClientFsm::FsmStateWaitTrigger, "FsmStateWaitTrigger");
}

bool VintrelClientFsm::DeleteTivCertificateFromTrustStore() const {
    if (mHsm->DeleteTivCertificateFromTrustStore()) {
        QELLogging::LogError(mLogName, "Deleting the TIV certificate failed!");
        return true;
    }
    QELLogging::LogInfo(mLogName, "The TIV Certificate was deleted successfully");
    return false;
}

bool VintrelClientFsm::HasEnded() const {
    return GetDispatcher() == nullptr;
}

}  // namespace vintrel
