#include "client/scripted_unit.h"

#include "client/clamp_control_if.h"
#include "client/ecu_capabilities_if.h"
#include "client/immobilizer_if.h"
#include "client/scripted_messages.h"
#include "client/system_time_if.h"
#include "client/tive_generator_if.h"
#include "client/tls_alerts_if.h"
#include "fsm/event_dispatcher.h"

namespace testing_support {

namespace {

ScriptedUnit* gCurrent = nullptr;

ScriptedUnit& Unit() {
    return *gCurrent;
}

class ScriptedHsm : public vintrel::HsmIf {
public:
    std::vector<std::uint8_t> GenerateCsr(const std::string& vin) override {
        return Noted("GenerateCsr " + vin, Unit().Has("no CSR") ? std::vector<std::uint8_t>()
                                                                : std::vector<std::uint8_t>(3, 1));
    }
    std::string GetKoruVin() const override { return Noted("GetKoruVin", Unit().KoruVin()); }
    bool StoreTivCertificateToTrustStore(const std::string& chain) const override {
        return Noted("Store " + chain, Unit().Has("storing fails"));
    }
    bool DeleteTivCertificateFromTrustStore() const override {
        return Noted("Delete", Unit().Has("deletion fails"));
    }
    bool CheckTivCertificate(const std::string& chain, const std::string& vin) override {
        return Noted("Check " + chain + " " + vin, Unit().Has("check fails"));
    }
    vintrel::StatusCode CheckTrustStoreTivValidity(const std::string&) override {
        return Noted("CheckTrustStore", Unit().status);
    }
};

class ScriptedAdapter : public process_lifecycle_adapter::ProcessLifecycleAdapterIf {
public:
    using Callback = process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf;
    using StateCallback = process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf;

    ~ScriptedAdapter() override { Noted("Adapter released"); }
    void Initialize(const std::string& name, Callback*) override {
        Noted("Adapter.Initialize " + name);
    }
    void Initialize(const std::string&, Callback*, StateCallback*) override {}
    void NotifyInit(const std::string&, StateCallback*) override {}
    void Configure(const ConfigParams&) override {}
    void StateChanged(process_lifecycle_adapter::ProcessState, unsigned int) override {}
    void StateChanged(bool) override {}
};

class ScriptedTime : public vintrel::SystemTimeIf {
public:
    void Initialize() override { Noted("SystemTime.Initialize"); }
    bool IsSystemTimeSet() const override { return !Unit().Has("clock not set"); }
};

class ScriptedTive : public vintrel::TiveGeneratorIf {
public:
    std::string ConstructContainer(const std::vector<std::uint8_t>&) override {
        return Noted("ConstructContainer", Unit().Container());
    }
};

class ScriptedAlerts : public vintrel::TlsAlertsIf {
public:
    void Start(vintrel::TlsAlertsCbIf* callback) override {
        Unit().alerts = callback;
        Noted("TlsAlerts.Start");
    }
    void Stop() override { Noted("TlsAlerts.Stop"); }
};

class ScriptedClamp : public vintrel::ClampControlIf {
public:
    bool Subscribe() override { return Noted("Clamp.Subscribe", true); }
};

class ScriptedImmobilizer : public vintrel::ImmobilizerIf {
public:
    bool ImmobilizerInit() override { return Noted("Immobilizer.Init", true); }
    bool GetVin() override { return Noted("GetVin", true); }
};

class ScriptedEcu : public vintrel::EcuCapabilitiesIf {
public:
    void Initialize() override { Noted("Ecu.Initialize"); }
    vintrel::EcuCapabilities GetEcuCapabilities() override { return Unit().Ecu(); }
};

}  // namespace

bool ScriptedConnectorFsm::StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                                    std::shared_ptr<fsm::Fsm> target, int targetEvent) {
    Noted("Connector.StartFsm");
    SetupFsm(dispatcher, std::move(target), targetEvent);
    SetFsmState(&ScriptedConnectorFsm::FsmStateRunning, "FsmStateRunning");
    return true;
}

void ScriptedConnectorFsm::GetUrl() {
    Noted("GetUrl");
}

void ScriptedConnectorFsm::OnTerminate() {
    Noted("Connector stopped");
    if (Unit().atConnectorStop) {
        Unit().atConnectorStop();
    }
}

bool ScriptedExchangeFsm::StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                                   std::shared_ptr<fsm::Fsm> target, int targetEvent, std::string,
                                   std::shared_ptr<vintrel::ZemConnectorFsmIf>,
                                   const vintrel::UrlData&) {
    if (Unit().Has("no exchange")) {
        return false;
    }

    SetupFsm(dispatcher, std::move(target), targetEvent);
    SetFsmState(&ScriptedExchangeFsm::FsmStateRunning, "FsmStateRunning");
    return true;
}

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

bool ScriptedUnit::CallBack(const client_table::Trigger& trigger) const {
    using Callback = void (*)(const ScriptedUnit&, const client_table::Trigger&);
    static const std::map<std::string, Callback> callbacks = {
        {"kEventClampState",
         [](auto& unit, auto& event) { unit.clamp->ClampStateChangeCb(event.info == 1); }},
        {"kEventImmobilizerConnection",
         [](auto& unit, auto& event) {
             unit.immobilizer->ImmobilizerConnectionStateChangeCb(event.info == 1);
         }},
        {"kEventImmobilizerVin",
         [](auto& unit, auto& event) { unit.immobilizer->ImmobilizerVinReceivedCb(event.text); }},
        {"kEventTlsAlert",
         [](auto& unit, auto& event) {
             unit.alerts->TlsAlertNotifyCb(event.text,
                                           static_cast<tls_alert_if::ETlsAlertCode>(event.value));
         }},
        {"kEventShutdown",
         [](auto& unit, auto&) { unit.lifecycle->ProcessLifecycleAdapterTerminate(); }},
    };
    const auto callback = callbacks.find(client_table::EventName(trigger.event));
    if (trigger.bare || callback == callbacks.end()) {
        return false;
    }
    callback->second(*this, trigger);
    return true;
}

std::string ScriptedUnit::Container() const {
    return Has("no container") ? "" : Has("no request") ? kNoRequest : container;
}

vintrel::EcuCapabilities ScriptedUnit::Ecu() const {
    return {Has("no hardware version") ? "" : ecu.hardwareVersion,
            Has("no software version") ? "" : ecu.softwareVersion,
            Has("no part number") ? "" : ecu.partNumber};
}

std::shared_ptr<vintrel::BackendRequestHandlerFsmIf> ScriptedUnit::NewBackendRequestHandlerFsm()
    const {
    return exchanges.emplace_back(std::make_shared<ScriptedExchangeFsm>());
}

std::shared_ptr<vintrel::HsmIf> ScriptedUnit::NewHsm() const {
    Noted("NewHsm");

    return std::make_shared<ScriptedHsm>();
}

std::shared_ptr<vintrel::ZemConnectorFsmIf> ScriptedUnit::NewZemConnectorFsm(
    const std::string&) const {
    return Noted("NewZemConnectorFsm", std::make_shared<ScriptedConnectorFsm>());
}

std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
ScriptedUnit::NewProcessLifecycleAdapter(
    process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* callback) const {
    Noted("NewProcessLifecycleAdapter");
    Unit().lifecycle = callback;
    return withAdapter ? std::make_shared<ScriptedAdapter>() : nullptr;
}

}  // namespace testing_support

namespace vintrel {

using testing_support::Noted;

std::shared_ptr<SystemTimeIf> SystemTimeIf::Create() {
    return Noted("SystemTimeIf::Create", std::make_shared<testing_support::ScriptedTime>());
}

std::shared_ptr<TiveGeneratorIf> TiveGeneratorIf::Create() {
    return Noted("TiveGeneratorIf::Create", std::make_shared<testing_support::ScriptedTive>());
}

std::shared_ptr<TlsAlertsIf> TlsAlertsIf::Create() {
    return Noted("TlsAlertsIf::Create", std::make_shared<testing_support::ScriptedAlerts>());
}

std::shared_ptr<ClampControlIf> ClampControlIf::Create(ClampControlCbIf& callback) {
    testing_support::Unit().clamp = &callback;
    return Noted("ClampControlIf::Create", std::make_shared<testing_support::ScriptedClamp>());
}

std::shared_ptr<ImmobilizerIf> ImmobilizerIf::Create(ImmobilizerCbIf& callback) {
    testing_support::Unit().immobilizer = &callback;
    return Noted("ImmobilizerIf::Create", std::make_shared<testing_support::ScriptedImmobilizer>());
}

std::shared_ptr<EcuCapabilitiesIf> EcuCapabilitiesIf::Create() {
    return Noted("EcuCapabilitiesIf::Create", std::make_shared<testing_support::ScriptedEcu>());
}

}  // namespace vintrel
