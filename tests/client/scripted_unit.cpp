#include "client/scripted_unit.h"

#include <algorithm>

#include "client/clamp_control_if.h"
#include "client/ecu_capabilities_if.h"
#include "client/immobilizer_if.h"
#include "client/system_time_if.h"
#include "client/tive_generator_if.h"
#include "client/tls_alerts_if.h"
#include "fsm/event_dispatcher.h"

namespace testing_support {

namespace {

ScriptedUnit* gCurrent = nullptr;

class ScriptedHsm : public vintrel::HsmIf {
public:
    std::vector<std::uint8_t> GenerateCsr(const std::string& vin) override {
        unit().Note("GenerateCsr " + vin);
        return unit().csr;
    }
    std::string GetKoruVin() const override {
        unit().Note("GetKoruVin");
        return unit().koruVin;
    }
    bool StoreTivCertificateToTrustStore(const std::string& chain) const override {
        unit().Note("Store " + chain);
        return unit().storeFails;
    }
    bool DeleteTivCertificateFromTrustStore() const override {
        unit().Note("Delete");
        return unit().deleteFails;
    }
    bool CheckTivCertificate(const std::string& chain, const std::string& vin) override {
        unit().Note("Check " + chain + " " + vin);
        return unit().checkFails;
    }
    vintrel::StatusCode CheckTrustStoreTivValidity(const std::string&) override {
        unit().Note("CheckTrustStore");
        return unit().status;
    }

private:
    static ScriptedUnit& unit() { return ScriptedUnit::Current(); }
};

class ScriptedAdapter : public process_lifecycle_adapter::ProcessLifecycleAdapterIf {
public:
    using Callback = process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf;
    using StateCallback = process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf;

    ~ScriptedAdapter() override { ScriptedUnit::Current().Note("Adapter released"); }
    void Initialize(const std::string& name, Callback*) override {
        ScriptedUnit::Current().Note("Adapter.Initialize " + name);
    }
    void Initialize(const std::string&, Callback*, StateCallback*) override {}
    void NotifyInit(const std::string&, StateCallback*) override {}
    void Configure(const ConfigParams&) override {}
    void StateChanged(process_lifecycle_adapter::ProcessState, unsigned int) override {}
    void StateChanged(bool) override {}
};

class ScriptedTime : public vintrel::SystemTimeIf {
public:
    void Initialize() override { ScriptedUnit::Current().Note("SystemTime.Initialize"); }
    bool IsSystemTimeSet() const override { return ScriptedUnit::Current().timeSet; }
};

class ScriptedTive : public vintrel::TiveGeneratorIf {
public:
    std::string ConstructContainer(const std::vector<std::uint8_t>&) override {
        ScriptedUnit::Current().Note("ConstructContainer");
        return ScriptedUnit::Current().container;
    }
};

class ScriptedAlerts : public vintrel::TlsAlertsIf {
public:
    void Start(vintrel::TlsAlertsCbIf* callback) override {
        ScriptedUnit::Current().alerts = callback;
        ScriptedUnit::Current().Note("TlsAlerts.Start");
    }
    void Stop() override { ScriptedUnit::Current().Note("TlsAlerts.Stop"); }
};

class ScriptedClamp : public vintrel::ClampControlIf {
public:
    bool Subscribe() override {
        ScriptedUnit::Current().Note("Clamp.Subscribe");
        return true;
    }
};

class ScriptedImmobilizer : public vintrel::ImmobilizerIf {
public:
    bool ImmobilizerInit() override {
        ScriptedUnit::Current().Note("Immobilizer.Init");
        return true;
    }
    bool GetVin() override {
        ScriptedUnit::Current().Note("GetVin");
        return true;
    }
};

class ScriptedEcu : public vintrel::EcuCapabilitiesIf {
public:
    void Initialize() override { ScriptedUnit::Current().Note("Ecu.Initialize"); }
    vintrel::EcuCapabilities GetEcuCapabilities() override {
        return ScriptedUnit::Current().ecuCapabilities;
    }
};

}  // namespace

bool ScriptedConnectorFsm::StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                                    std::shared_ptr<fsm::Fsm> target, int targetEvent) {
    ScriptedUnit::Current().Note("Connector.StartFsm");
    if (!ScriptedUnit::Current().connectorStarts) {
        return false;
    }
    SetupFsm(dispatcher, std::move(target), targetEvent);
    SetFsmState(&ScriptedConnectorFsm::FsmStateRunning, "FsmStateRunning");
    return true;
}

void ScriptedConnectorFsm::GetUrl() {
    ScriptedUnit::Current().Note("GetUrl");
}

bool ScriptedConnectorFsm::Connect(const std::string&, unsigned short, std::shared_ptr<fsm::Fsm>,
                                   int) {
    return false;
}

void ScriptedConnectorFsm::OnTerminate() {
    ScriptedUnit::Current().Note("Connector stopped");
    if (ScriptedUnit::Current().atConnectorStop) {
        ScriptedUnit::Current().atConnectorStop();
    }
}

void ScriptedConnectorFsm::FsmStateRunning(int, int) {}

std::unique_ptr<ScriptedConnectorFsm::StateUpdateEventData> ScriptedConnectorFsm::NewStateUpdate()
    const {
    return std::make_unique<StateUpdateEventData>();
}

void ScriptedConnectorFsm::ReportStatus(zem_connector::SessionStatus status) {
    auto data = NewStateUpdate();
    data->status = status;
    RaiseEvent(mTarget, mTargetEvent, kInfoStatusUpdate, std::move(data));
}

void ScriptedConnectorFsm::ReportActivation() {
    RaiseEvent(mTarget, mTargetEvent, kInfoActivationUpdate, NewStateUpdate());
}

void ScriptedConnectorFsm::ReportConnection(SCConnectionState state) {
    auto data = NewStateUpdate();
    data->connectionState = state;
    RaiseEvent(mTarget, mTargetEvent, kInfoConnectionUpdate, std::move(data));
}

void ScriptedConnectorFsm::ReportUrl(const std::string& url, bool success) {
    auto data = std::make_unique<InvocationUrlEventData>();
    data->url = url;
    data->success = success;
    RaiseEvent(mTarget, mTargetEvent, kInfoInvocationUrl, std::move(data));
}

void ScriptedConnectorFsm::ReportUnknownInfo(int info) {
    RaiseEvent(mTarget, mTargetEvent, info, nullptr);
}

bool ScriptedExchangeFsm::StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                                   std::shared_ptr<fsm::Fsm> target, int targetEvent,
                                   std::string requestBody,
                                   std::shared_ptr<vintrel::ZemConnectorFsmIf>,
                                   const vintrel::UrlData& url) {
    if (!ScriptedUnit::Current().exchangeStarts) {
        return false;
    }
    request = std::move(requestBody);
    urlData = url;
    SetupFsm(dispatcher, std::move(target), targetEvent);
    SetFsmState(&ScriptedExchangeFsm::FsmStateRunning, "FsmStateRunning");
    return true;
}

void ScriptedExchangeFsm::FsmStateRunning(int, int) {}

void ScriptedExchangeFsm::Answer(vintrel::ReturnCode code, const std::string& response) {
    auto data = std::make_unique<vintrel::BackendResponseEventData>();
    data->returnCode = code;
    data->response = response;
    RaiseEvent(mTarget, mTargetEvent, 0, std::move(data));
    StopFsm();
}

ScriptedUnit::ScriptedUnit() {
    gCurrent = this;
}

ScriptedUnit::~ScriptedUnit() {
    gCurrent = nullptr;
}

ScriptedUnit& ScriptedUnit::Current() {
    return *gCurrent;
}

std::size_t ScriptedUnit::CountCalls(const std::string& call) const {
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
}

std::shared_ptr<vintrel::BackendRequestHandlerFsmIf> ScriptedUnit::NewBackendRequestHandlerFsm()
    const {
    exchanges.push_back(std::make_shared<ScriptedExchangeFsm>());
    return exchanges.back();
}

std::shared_ptr<vintrel::HsmIf> ScriptedUnit::NewHsm() const {
    Current().Note("NewHsm");
    if (atNewHsm) {
        atNewHsm();
    }
    return std::make_shared<ScriptedHsm>();
}

std::shared_ptr<vintrel::ZemConnectorFsmIf> ScriptedUnit::NewZemConnectorFsm(
    const std::string& name) const {
    Current().Note("NewZemConnectorFsm");
    transactionType = name;
    connector = std::make_shared<ScriptedConnectorFsm>();
    return connector;
}

std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
ScriptedUnit::NewProcessLifecycleAdapter(
    process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* callback) const {
    Current().Note("NewProcessLifecycleAdapter");
    Current().lifecycle = callback;
    if (!withAdapter) {
        return nullptr;
    }
    return std::make_shared<ScriptedAdapter>();
}

}  // namespace testing_support

namespace vintrel {

using testing_support::ScriptedUnit;

std::shared_ptr<SystemTimeIf> SystemTimeIf::Create() {
    ScriptedUnit::Current().Note("SystemTimeIf::Create");
    return std::make_shared<testing_support::ScriptedTime>();
}

std::shared_ptr<TiveGeneratorIf> TiveGeneratorIf::Create() {
    ScriptedUnit::Current().Note("TiveGeneratorIf::Create");
    return std::make_shared<testing_support::ScriptedTive>();
}

std::shared_ptr<TlsAlertsIf> TlsAlertsIf::Create() {
    ScriptedUnit::Current().Note("TlsAlertsIf::Create");
    return std::make_shared<testing_support::ScriptedAlerts>();
}

std::shared_ptr<ClampControlIf> ClampControlIf::Create(ClampControlCbIf& callback) {
    ScriptedUnit::Current().Note("ClampControlIf::Create");
    ScriptedUnit::Current().clamp = &callback;
    return std::make_shared<testing_support::ScriptedClamp>();
}

std::shared_ptr<ImmobilizerIf> ImmobilizerIf::Create(ImmobilizerCbIf& callback) {
    ScriptedUnit::Current().Note("ImmobilizerIf::Create");
    ScriptedUnit::Current().immobilizer = &callback;
    return std::make_shared<testing_support::ScriptedImmobilizer>();
}

std::shared_ptr<EcuCapabilitiesIf> EcuCapabilitiesIf::Create() {
    ScriptedUnit::Current().Note("EcuCapabilitiesIf::Create");
    return std::make_shared<testing_support::ScriptedEcu>();
}

}  // namespace vintrel
