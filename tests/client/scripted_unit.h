#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "client/backend_response_event_data.h"
#include "client/clamp_control_cb_if.h"
#include "client/ecu_capabilities.h"
#include "client/fsm_factory.h"
#include "client/immobilizer_cb_if.h"
#include "client/status_code.h"
#include "client/tls_alerts_cb_if.h"
#include "client/transition_table.h"
#include "client/zem_connector_fsm_if.h"

namespace testing_support {

/// A connector machine that reports nothing by itself.
class ScriptedConnectorFsm : public vintrel::ZemConnectorFsmIf {
public:
    ScriptedConnectorFsm() : ZemConnectorFsmIf("ScriptedConnectorFsm") {}

    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                  std::shared_ptr<fsm::Fsm> target, int targetEvent) override;
    void GetUrl() override;
    bool Connect(const std::string&, unsigned short, std::shared_ptr<fsm::Fsm>, int) override {
        return false;
    }

protected:
    void OnTerminate() override;

private:
    void FsmStateRunning(int, int) {}
};

/// A backend exchange that the test ends with an answer of its choice.
class ScriptedExchangeFsm : public vintrel::BackendRequestHandlerFsmIf {
public:
    ScriptedExchangeFsm() : BackendRequestHandlerFsmIf("ScriptedExchangeFsm") {}

    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                  std::shared_ptr<fsm::Fsm> target, int targetEvent, std::string requestBody,
                  std::shared_ptr<vintrel::ZemConnectorFsmIf> connectorFsm,
                  const vintrel::UrlData& url) override;

    void Answer(vintrel::ReturnCode code, const std::string& response = {});

protected:
    void OnTerminate() override {}

private:
    void FsmStateRunning(int, int) {}
};

/// Everything around one client machine, scripted: what the neighbours answer, and what they saw.
///
/// One exists at a time; the `Create` functions of the collaborators find it. It must outlive the
/// machine.
class ScriptedUnit : public vintrel::FsmFactory {
public:
    ScriptedUnit();
    ScriptedUnit(const ScriptedUnit&) = delete;
    ScriptedUnit& operator=(const ScriptedUnit&) = delete;
    ~ScriptedUnit();

    static ScriptedUnit& Current();

    std::shared_ptr<vintrel::BackendRequestHandlerFsmIf> NewBackendRequestHandlerFsm()
        const override;
    std::shared_ptr<vintrel::HsmIf> NewHsm() const override;
    std::shared_ptr<vintrel::ZemConnectorFsmIf> NewZemConnectorFsm(
        const std::string& name) const override;
    std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
    NewProcessLifecycleAdapter(
        process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* callback) const override;

    /// A neighbour's thread calls back; false if such an event comes another way.
    bool CallBack(const client_table::Trigger& trigger) const;

    // What the neighbours answer in their troubles.
    bool Has(const std::string& trouble) const { return troubles.count(trouble) > 0; }
    std::string KoruVin() const { return Has("no KORU VIN") ? "" : koruVin; }
    std::string Container() const;
    vintrel::EcuCapabilities Ecu() const;

    /// The neighbours that were called, in order.
    std::vector<std::string> calls;

    /// What happens while the connector machine is being stopped.
    std::function<void()> atConnectorStop;

    bool withAdapter{true};

    /// As the transition table has them: "no CSR" and so on.
    std::set<std::string> troubles;
    vintrel::StatusCode status{vintrel::StatusCode::NoCertificate};
    std::string koruVin{"VNTREL00000000001"};
    std::string container{"container"};
    vintrel::EcuCapabilities ecu{"H10", "S20", "PART-30"};

    process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* lifecycle{nullptr};
    vintrel::ClampControlCbIf* clamp{nullptr};
    vintrel::ImmobilizerCbIf* immobilizer{nullptr};
    vintrel::TlsAlertsCbIf* alerts{nullptr};

    mutable std::vector<std::shared_ptr<ScriptedExchangeFsm>> exchanges;
};

/// Notes that a neighbour was called; returns its answer.
template <typename Answer = bool>
Answer Noted(const std::string& call, Answer answer = {}) {
    ScriptedUnit::Current().calls.push_back(call);
    return answer;
}

}  // namespace testing_support
