#include "lives/world.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "backend/backend_request_handler_fsm.h"
#include "backend/zem_connector_fsm.h"

namespace lives {

using zem_connector::SessionStatus;
using ConnectionState = vintrel::ZemConnectorFsmIf::SCConnectionState;

namespace {

const std::string kTransaction = "QUBA-GenerateTIVCert-C003";
const std::string kOperation = "QUBA-GenerateTIVCert-C003.COSendCSR";

constexpr std::uint64_t kMaxStepsToRest = 5000;
constexpr std::uint32_t kMaxActs = 400;

/// Where things can go wrong: the unit's troubles, and what else can.
const std::vector<std::string> kTroubles{
    "no KORU VIN", "clock not set", "no hardware version", "no software version", "no part number",
    "no CSR",      "no container",  "check fails",         "storing fails",       "deletion fails"};
const std::vector<std::string> kPoints{"URL", "VIN", "connect", "socket", "backend", "activation"};

/// A life that has gone wrong goes no further.
class Stopped : public std::exception {};

}  // namespace

void SimulatedDispatcher::RaiseTimerEvent(const std::shared_ptr<fsm::Fsm>& from,
                                          std::shared_ptr<fsm::Fsm> to, int eventId, int eventInfo,
                                          std::unique_ptr<fsm::FsmEventData> data, int msec) {
    mOracle.SeeTimer(to->GetName(), eventId, msec);
    VirtualTimeDispatcher::RaiseTimerEvent(from, std::move(to), eventId, eventInfo, std::move(data),
                                           msec);
}

World::World(std::uint64_t seed, std::vector<std::string>* story)
    : oracle(*this), mRandom(seed), mBackend(mRandom, oracle) {
    mDispatcher = std::make_shared<SimulatedDispatcher>(oracle, [this] { BeforeStep(); });
    oracle.KeepStory(story);
    oracle.clock = [this] { return mDispatcher->Now(); };
    oracle.realState = [this](const MachineModel& model) -> std::string {
        if (&model == mModel.get()) {
            return mClient ? mClient->GetStateName() : std::string();
        }
        const auto machine = (&model == mConnectorModel.get() ? mConnector : mExchange).lock();
        return machine ? machine->GetStateName() : std::string();
    };
    mTrouble = mRandom.Pick({0U, 0U, 1U, 3U, 10U, 30U});
    if (mRandom.OneIn(3)) {
        const auto& points = mRandom.OneIn(2) ? kTroubles : kPoints;
        mBroken = points[mRandom.Below(static_cast<std::uint32_t>(points.size()))];
    }
    mUnrest = mRandom.Pick({0U, 1U, 5U, 20U});
    mFactoryReset = mRandom.OneIn(4);
    mStoreOpens = !mRandom.OneIn(200);
    mTerminatedInConstructor = mRandom.OneIn(200);
    mTerminatedAtEnd = mRandom.OneIn(20);
    withAdapter = !mRandom.OneIn(200);
    mLibrary.startStatus = static_cast<SessionStatus>(
        mRandom.OneIn(30) ? mRandom.Pick({0, 1, 3}) : 1 + static_cast<int>(mRandom.Below(2)));
}

World::~World() = default;

bool World::Fails(const std::string& point) {
    return mRandom.Percent(point == mBroken ? 97 : mTrouble);
}

std::shared_ptr<vintrel::HsmIf> World::NewHsm() const {
    auto hsm = ScriptedUnit::NewHsm();
    if (mTerminatedInConstructor) {
        lifecycle->ProcessLifecycleAdapterTerminate();
    }
    if (!mStoreOpens) {
        throw std::runtime_error("no secure store");
    }
    return hsm;
}

std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
World::NewProcessLifecycleAdapter(
    process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* callback) const {
    auto adapter = ScriptedUnit::NewProcessLifecycleAdapter(callback);
    if (!adapter || !mTerminatedAtEnd) {
        return adapter;
    }
    const auto pointer = adapter.get();
    return {pointer, [adapter, callback](auto*) mutable {
                callback->ProcessLifecycleAdapterTerminate();
                adapter.reset();
            }};
}

std::shared_ptr<vintrel::ZemConnectorFsmIf> World::NewZemConnectorFsm(
    const std::string& name) const {
    testing_support::Noted("NewZemConnectorFsm " + name);
    auto machine = std::make_shared<vintrel::ZemConnectorFsm>(*this, name);
    mConnector = machine;
    return machine;
}

std::shared_ptr<vintrel::BackendRequestHandlerFsmIf> World::NewBackendRequestHandlerFsm() const {
    const auto running = mExchange.lock();
    if (running && running->GetStateName() != "FsmStateTerminated") {
        oracle.Violate("a second exchange");
    }
    if (Has("no exchange")) {
        return ScriptedUnit::NewBackendRequestHandlerFsm();
    }
    auto exchange = std::make_shared<vintrel::BackendRequestHandlerFsm>();
    mExchange = exchange;
    return exchange;
}

void World::Live() {
    try {
        Reroll();
        if (Construct() && Start()) {
            RunLoop();
        }
    } catch (const Stopped&) {
        return;
    }
}

bool World::Construct() {
    oracle.Tell("constructor");
    mConnectorModel = std::make_shared<ConnectorModel>(oracle, mLibrary);
    mModel = std::make_shared<ClientModel>(oracle, *this, mConnectorModel, mFactoryReset);
    mModel->lateTermination = mTerminatedAtEnd;
    oracle.machines = {mModel, mConnectorModel};
    oracle.terminationRequested = mTerminatedInConstructor;
    try {
        mClient = std::make_shared<vintrel::VintrelClientFsm>(*this, mFactoryReset);
    } catch (const std::runtime_error&) {
        if (mStoreOpens) {
            oracle.Violate("the constructor throws");
        }
    }
    oracle.Check([this] { mModel->Construct(mStoreOpens, mTerminatedInConstructor); });
    return mClient != nullptr;
}

bool World::Start() {
    if (mRandom.OneIn(200)) {
        Terminate();
    }
    oracle.Tell("StartFsm");
    const bool started = mClient->StartFsm(mDispatcher);
    oracle.Check([this, started] {
        if (mModel->Start() != started) {
            oracle.Violate("StartFsm has another result");
        }
    });
    return started;
}

void World::RunLoop() {
    mInLoop = true;
    const std::uint32_t acts = 1 + mRandom.Below(mRandom.OneIn(3) ? 40 : kMaxActs);
    bool goesOn = Run();
    for (std::uint32_t act = 0; goesOn && act < acts; ++act) {
        Act();
        goesOn = Run();
        if (goesOn && mModel->Ended() && mRandom.OneIn(10)) {
            break;
        }
    }
    if (goesOn && !mModel->Ended()) {
        Terminate();
        goesOn = Run();
    }
    if (!goesOn && mModel->Ended() && mRandom.OneIn(3)) {
        Happen("clamp on");
        Happen("service down");
    }
}

/// Runs the machines until they rest; false if the loop has ended.
bool World::Run() {
    bool goesOn = false;
    try {
        mStepsAtRest = steps;
        if (mWait) {
            mDispatcher->AdvanceBy(*std::exchange(mWait, std::nullopt));
        }
        goesOn = mDispatcher->RunPending();
        oracle.Flush();
    } catch (const Stopped&) {
        throw;
    } catch (const std::exception& exception) {
        oracle.Flush();
        if (!oracle.exceptionExpected) {
            oracle.Violate(std::string("exception: ") + exception.what());
        }
        return false;
    }
    if (oracle.exceptionExpected) {
        oracle.Violate("the exception is missing");
    }
    if (goesOn == oracle.terminationRequested) {
        oracle.Violate(goesOn ? "the loop goes on after the termination request"
                              : "the loop ends without a termination request");
    }
    if (goesOn) {
        oracle.CheckRest(mDispatcher->Pending());
        mBackend.Read();
    }
    if (oracle.Violated()) {
        throw Stopped();
    }
    return goesOn;
}

void World::BeforeStep() {
    oracle.Flush();
    if (oracle.Violated()) {
        throw Stopped();
    }
    ++steps;
    if (steps - mStepsAtRest > kMaxStepsToRest) {
        oracle.Violate("the machines do not come to rest");
    }
    if (mInLoop && mRandom.Percent(mUnrest)) {
        Disturb();
    } else if (mInLoop && mRandom.OneIn(1500)) {
        DisturbGrossly();
    }
}

void World::Act() {
    Reroll();
    const std::uint32_t stimuli = mRandom.OneIn(10) ? 1 + mRandom.Below(4) : 1;
    for (std::uint32_t i = 0; i < stimuli; ++i) {
        if (mModel->Ended() || mRandom.Percent(2 * mUnrest) || !Help()) {
            Disturb();
        }
    }
}

void World::Reroll() {
    troubles.clear();
    for (const std::string& trouble : kTroubles) {
        if (Fails(trouble)) {
            troubles.insert(trouble);
        }
    }
    if (mRandom.OneIn(300)) {
        troubles.insert("no exchange");
    }
    koruVin = client_table::TriggerOf(mRandom.OneIn(50) ? "VIN other" : "VIN").text;
    ecu.softwareVersion = "S" + std::to_string(mRandom.Below(100));
    container = "container " + std::to_string(mRandom.Below(1000)) +
                std::string(mRandom.OneIn(200) ? 200000 : 0, 'x');
    mLibrary.acceptsUrlQuery = mBroken == "URL" ? !mRandom.OneIn(20) : !mRandom.OneIn(200);
    mLibrary.acceptsSocket = !Fails("connect");
    status = static_cast<vintrel::StatusCode>(
        mRandom.OneIn(30) ? mRandom.Pick({1, 3, 8}) : mRandom.Pick({0, 2, 2, 2, 4, 5, 6, 7, 7}));
}

/// Does what the machine waits for; false if there is nothing like that.
bool World::Help() {
    const std::string& state = mModel->State();
    if (state == "FsmStateWaitTrigger") {
        if (mModel->ClampOn() && mRandom.OneIn(3)) {
            Alert();
        } else {
            Happen(mRandom.OneIn(8) ? "clamp off" : "clamp on");
        }
    } else if (state == "FsmStateWaitZemConnector") {
        mLibrary.owesUrl ? Url() : Session(mRandom.OneIn(10) ? 1 : 2);
    } else if (state == "FsmStateCheckServices") {
        Happen("service up");
    } else if (state == "FsmStateWaitVin" && mModel->owesVin > 0) {
        if (mRandom.OneIn(500)) {
            // The service was not there to take the question.
            mModel->owesVin = 0;
            return false;
        }
        Happen(Fails("VIN") ? mRandom.Pick({"VIN empty", "VIN other"}) : "VIN");
    } else if (state == "FsmStateDownloadCertificate") {
        HelpExchange();
    } else if (mDispatcher->NextDelay()) {
        Wait();
    } else {
        // Nothing will ever come.
        Terminate();
    }
    return true;
}

void World::HelpExchange() {
    const bool usable = mModel->ConnectionUsable();
    if (!mModel->InExchange() && !usable && HasSession()) {
        if (!mConnectorModel->Activated() && !Fails("activation")) {
            Activation(true);
        }
        Connection(mRandom.Pick({2, 3}));
    } else if (!mLibrary.owesSockets.empty() && !mRandom.OneIn(20)) {
        Socket();
    } else if (mRandom.OneIn(50) || !mBackend.Step()) {
        if (!mConnectorModel->Activated() && HasSession()) {
            Activation(true);
        }
        Wait();
    }
}

void World::Disturb() {
    static const std::vector<std::function<void(World&)>> kDisturbances = {
        [](World& world) {
            world.Happen(world.mRandom.Pick({"clamp on", "clamp off"}));
        },
        [](World& world) { world.Happen(world.mRandom.OneIn(3) ? "service down" : "service up"); },
        [](World& world) { world.mModel->Ended() ? void() : world.Alert(); },
        [](World& world) { world.Activation(!world.Fails("activation")); },
        [](World& world) { world.Connection(static_cast<int>(world.mRandom.Below(4))); },
        [](World& world) {
            world.Session(world.mRandom.OneIn(10) ? world.mRandom.Pick({0, 1, 7}) : 2);
        },
        [](World& world) { world.mLibrary.owesUrl ? world.Url() : void(); },
        [](World& world) { world.mLibrary.owesSockets.empty() ? void() : world.Socket(); },
        [](World& world) { world.mBackend.Step(); },
        [](World& world) { world.mRandom.OneIn(20) ? world.DisturbGrossly() : void(); },
    };
    kDisturbances[mRandom.Below(10)](*this);
}

/// What rarely happens, since it mostly ends a life.
void World::DisturbGrossly() {
    const std::uint32_t what = mRandom.Below(5);
    if (what == 0) {
        Terminate();
    } else if (what == 2) {
        Happen(mRandom.Pick({"VIN", "VIN other", "VIN empty"}));
    } else if (what == 3) {
        Url();
    } else {
        Session(3);
    }
}

void World::Wait() {
    const auto next = mDispatcher->NextDelay();
    std::chrono::milliseconds time(mRandom.Below(100000));
    if (next && !mRandom.OneIn(20)) {
        time = *next;
        if (mRandom.OneIn(4)) {
            time = std::max(std::chrono::milliseconds(0), time - std::chrono::milliseconds(1));
        } else if (mRandom.OneIn(4)) {
            time = std::chrono::milliseconds(
                mRandom.Below(static_cast<std::uint32_t>(time.count() + 1)));
        }
    }
    oracle.Tell("wait " + std::to_string(time.count()) + " ms");
    mWait = time;
}

void World::Happen(const client_table::Trigger& trigger) {
    Do(
        client_table::NameOf(trigger) + " " + trigger.text, [&] { CallBack(trigger); },
        [&] { mModel->CalledBack(trigger); });
}

void World::Alert() {
    client_table::Trigger alert = client_table::TriggerOf("alert");
    alert.text += mRandom.OneIn(5) ? "s" : "";
    alert.value = mRandom.Pick({44, 51, 200});
    Happen(alert);
}

void World::Terminate() {
    if (!mModel->Ended() && !oracle.terminationRequested) {
        oracle.terminationRequested = true;
        Happen("shutdown");
    }
}

void World::Session(int sessionStatus) {
    if (mLibrary.session != nullptr) {
        const auto given = static_cast<SessionStatus>(sessionStatus);
        FromLibrary("session status " + std::to_string(sessionStatus),
                    [&] { mLibrary.session->ZemConnectorStatus(given); },
                    {nullptr, 0, sessionStatus});
    }
}

void World::Activation(bool on) {
    zem_connector::SCActivationStateUpdate update;
    update.transactionType = kTransaction;
    if (!on) {
        update.disabledReasons.push_back({1, 2});
    }
    if (HasSession()) {
        FromLibrary(std::string("activation ") + (on ? "on" : "off"),
                    [&] { mLibrary.controller->ZemSCActivationState(update); },
                    {nullptr, 2, 0, 0, on});
    }
}

void World::Connection(int state) {
    zem_connector::ZemServiceControllerCallbackIf::SCConnectionStateUpdate update;
    update.transactionType = kTransaction;
    update.connectionState = static_cast<ConnectionState>(state);
    if (HasSession()) {
        FromLibrary("connection state " + std::to_string(state),
                    [&] { mLibrary.controller->ZemSCConnectionState(update); },
                    {nullptr, 3, 0, state});
    }
}

void World::Url() {
    if (!HasSession()) {
        return;
    }
    mLibrary.owesUrl = false;
    zem_connector::SCUrlResult result;
    result.url = kUrls[mRandom.Below(4)].text;
    const std::uint32_t failure = Fails("URL") ? mRandom.Below(4) : 4;
    result.result = failure == 0 ? 1 : 0;
    result.operationTypeId = failure == 1 ? "another" : kOperation;
    if (failure == 2) {
        result.url.clear();
    } else if (failure == 3) {
        result.url = kUrls[4 + mRandom.Below(5)].text;
    }
    const bool good = failure > 1;
    FromLibrary("URL '" + result.url + "', " + (good ? "good" : "bad"),
                [&] { mLibrary.controller->ZemSCInvocationURL(result); },
                {nullptr, 1, 0, result.result, good, result.url});
}

void World::Socket() {
    const ConnectorLibrary::Attempt attempt = mLibrary.owesSockets.front();
    mLibrary.owesSockets.pop_front();
    zem_connector::SocketResult result;
    std::shared_ptr<Wire> wire;
    result.status = Fails("socket") ? 113 : 0;
    if (result.status == 0 || mRandom.OneIn(4)) {
        result.socketFileDescriptor = mBackend.Connect(!Fails("backend"));
        wire = mBackend.CurrentWire();
    }
    Do(
        "socket " + std::to_string(attempt.id) + ", status " + std::to_string(result.status),
        [&] { attempt.callback->ZemSocketResult(result); },
        [&] { mConnectorModel->SocketResult(attempt.id, result.status, wire); });
}

void World::Destroy() {
    oracle.Flush();
    mBackend.Close();
    oracle.EndLife();
    mModel.reset();
    mConnectorModel.reset();
    mClient.reset();
    mDispatcher.reset();
    oracle.clock = nullptr;
    exchanges.clear();
    if (oracle.machinesAlive != 0) {
        oracle.Violate(std::to_string(oracle.machinesAlive) + " machines are left");
    }
}

}  // namespace lives
