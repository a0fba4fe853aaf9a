#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/vintrel_client_fsm.h"
#include "lives/backend.h"
#include "lives/client_model.h"
#include "lives/connector_library.h"
#include "lives/oracle.h"
#include "lives/random.h"
#include "testing/virtual_time_dispatcher.h"

namespace lives {

/// The real dispatcher on virtual time. It lets the world act before each of its steps, and shows
/// the timers that are set.
class SimulatedDispatcher : public testing_support::VirtualTimeDispatcher {
public:
    SimulatedDispatcher(Oracle& oracle, std::function<void()> beforeStep)
        : VirtualTimeDispatcher("EventDispatcher"),
          mOracle(oracle),
          mBeforeStep(std::move(beforeStep)) {}

    void RaiseTimerEvent(const std::shared_ptr<fsm::Fsm>& from, std::shared_ptr<fsm::Fsm> to,
                         int eventId, int eventInfo, std::unique_ptr<fsm::FsmEventData> data,
                         int msec) override;

protected:
    int Poll(std::vector<pollfd>& pollFds, int timeoutMillisec) override {
        mBeforeStep();
        return VirtualTimeDispatcher::Poll(pollFds, timeoutMillisec);
    }

private:
    Oracle& mOracle;
    std::function<void()> mBeforeStep;
};

/// Everything around the client machine in one life, and the one who decides what it does next.
class World : public testing_support::ScriptedUnit {
public:
    World(std::uint64_t seed, std::vector<std::string>* story);
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    /// Lives from the constructor to the end of the loop, or to the first violation.
    void Live();
    /// The end of the program: client first, then dispatcher. All machines must go.
    void Destroy();

    std::shared_ptr<vintrel::HsmIf> NewHsm() const override;
    std::shared_ptr<vintrel::ZemConnectorFsmIf> NewZemConnectorFsm(
        const std::string& name) const override;
    std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
    NewProcessLifecycleAdapter(
        process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* callback) const override;
    std::shared_ptr<vintrel::BackendRequestHandlerFsmIf> NewBackendRequestHandlerFsm()
        const override;

    mutable Oracle oracle;
    std::uint64_t steps{0};

private:
    bool Fails(const std::string& point);
    bool Construct();
    bool Start();
    void RunLoop();
    void Act();
    void BeforeStep();
    void Reroll();
    bool Help();
    void HelpExchange();
    void Disturb();
    void DisturbGrossly();
    bool Run();
    void Wait();

    void Happen(const client_table::Trigger& trigger);
    void Happen(const std::string& trigger) { Happen(client_table::TriggerOf(trigger)); }
    void Alert();
    void Terminate();
    void Session(int status);
    void Activation(bool on);
    void Connection(int state);
    void Url();
    void Socket();
    bool HasSession() const { return mLibrary.controller != nullptr; }

    /// Does something from outside and compares what it leads to with what it must lead to.
    template <typename Action, typename Expected>
    void Do(const std::string& what, Action action, Expected expected) {
        oracle.Tell(what);
        action();
        oracle.Check(expected);
    }
    /// The library calls back, which leads to an event for the connector machine.
    template <typename Action>
    void FromLibrary(const std::string& what, Action action, const Event& event) {
        Do(what, action, [&] { mConnectorModel->Post(event); });
    }

    Random mRandom;
    ConnectorLibrary mLibrary;
    Backend mBackend;
    std::shared_ptr<SimulatedDispatcher> mDispatcher;
    std::shared_ptr<vintrel::VintrelClientFsm> mClient;
    mutable std::weak_ptr<fsm::Fsm> mConnector;
    mutable std::weak_ptr<fsm::Fsm> mExchange;
    std::shared_ptr<ConnectorModel> mConnectorModel;
    std::shared_ptr<ClientModel> mModel;

    std::uint32_t mTrouble;
    /// The place where things mostly go wrong, in some lives.
    std::string mBroken;
    std::uint32_t mUnrest;
    bool mFactoryReset;
    bool mStoreOpens;
    bool mTerminatedInConstructor;
    bool mTerminatedAtEnd;
    bool mInLoop{false};
    std::optional<std::chrono::milliseconds> mWait;
    std::uint64_t mStepsAtRest{0};
};

}  // namespace lives
