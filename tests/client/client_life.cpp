#include "client/client_life.h"

#include <algorithm>
#include <iterator>
#include <map>

#include <poll.h>

#include "client/scripted_messages.h"
#include "fsm/async_event_queue.h"

namespace testing_support {

using client_table::On;
using client_table::Trigger;
using vintrel::ReturnCode;
using vintrel::StatusCode;
using vintrel::ZemConnectorFsmIf;

namespace {

/// The machine never stands in `FsmStateWaitZemConnector` with a URL at hand, but it has a guard
/// for it. An explicit instantiation may name a private member.
std::string& UrlOf(vintrel::VintrelClientFsm& client);
template <std::string vintrel::VintrelClientFsm::*Url>
struct UrlDoor {
    friend std::string& UrlOf(vintrel::VintrelClientFsm& client) { return client.*Url; }
};
template struct UrlDoor<&vintrel::VintrelClientFsm::mUrl>;

const std::string kOwnPrefix = "VintrelClientFsm: ";
const std::string kTransition = "State transition to ";

std::string LevelLetter(qel_logging::EQELLogLevel level) {
    static const std::map<qel_logging::EQELLogLevel, std::string> letters = {
        {qel_logging::EQELLogLevel::kFatal, "F "},   {qel_logging::EQELLogLevel::kError, "E "},
        {qel_logging::EQELLogLevel::kWarning, "W "}, {qel_logging::EQELLogLevel::kInfo, "I "},
        {qel_logging::EQELLogLevel::kDebug, "D "},   {qel_logging::EQELLogLevel::kVerbose, "V "},
    };
    return letters.at(level);
}

using Change = void (*)(ScriptedUnit& unit);

/// What a neighbour may be like.
const std::map<std::string, Change>& Neighbours() {
    static const std::map<std::string, Change> neighbours = {
        {"check fails", [](ScriptedUnit& unit) { unit.checkFails = true; }},
        {"clock not set", [](ScriptedUnit& unit) { unit.timeSet = false; }},
        {"deletion fails", [](ScriptedUnit& unit) { unit.deleteFails = true; }},
        {"no CSR", [](ScriptedUnit& unit) { unit.csr.clear(); }},
        {"no KORU VIN", [](ScriptedUnit& unit) { unit.koruVin.clear(); }},
        {"no container", [](ScriptedUnit& unit) { unit.container.clear(); }},
        {"no exchange", [](ScriptedUnit& unit) { unit.exchangeStarts = false; }},
        {"no hardware version",
         [](ScriptedUnit& unit) { unit.ecuCapabilities.hardwareVersion = ""; }},
        {"no part number", [](ScriptedUnit& unit) { unit.ecuCapabilities.partNumber = ""; }},
        {"no request", [](ScriptedUnit& unit) { unit.container = kNoRequest; }},
        {"no software version",
         [](ScriptedUnit& unit) { unit.ecuCapabilities.softwareVersion = ""; }},
        {"storing fails", [](ScriptedUnit& unit) { unit.storeFails = true; }},
    };
    return neighbours;
}

bool StartsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

std::unique_ptr<fsm::FsmEventData> ConnectorData(const Trigger& trigger) {
    if (trigger.info == ZemConnectorFsmIf::kInfoInvocationUrl) {
        auto data = std::make_unique<ZemConnectorFsmIf::InvocationUrlEventData>();
        data->url = trigger.text;
        data->success = trigger.value == 1;
        return data;
    }
    auto data = std::make_unique<ZemConnectorFsmIf::StateUpdateEventData>();
    if (trigger.info == ZemConnectorFsmIf::kInfoStatusUpdate) {
        data->status = static_cast<zem_connector::SessionStatus>(trigger.value);
    } else {
        data->connectionState = static_cast<ZemConnectorFsmIf::SCConnectionState>(trigger.value);
    }
    return data;
}

}  // namespace

std::multiset<SteppedDispatcher::Pending> SteppedDispatcher::AllPending() const {
    std::multiset<Pending> pending;
    for (const auto& event : PendingEvents()) {
        pending.insert({event.eventId, event.time});
    }
    return pending;
}

void SteppedDispatcher::DeliverNext() {
    mSkipped +=
        std::max(PendingEvents().begin()->time - GetCurrentTime(), TimePoint::duration::zero());
    std::shared_ptr<fsm::Fsm> machine;
    int eventId = 0;
    int eventInfo = 0;
    std::unique_ptr<fsm::FsmEventData> data;
    if (PopNextEvent(machine, eventId, eventInfo, data)) {
        Invoke(*machine, eventId, eventInfo, std::move(data));
    }
}

void SteppedDispatcher::DeliverAsync() {
    std::dynamic_pointer_cast<fsm::AsyncEventQueue>(GetAsyncEventQueue())
        ->InvokeStateMethod(0, POLLIN);
}

ClientLife::~ClientLife() {
    client.reset();
    unit.connector.reset();
    unit.exchanges.clear();
    dispatcher.reset();
}

bool ClientLife::Start(bool factoryReset) {
    client = std::make_shared<vintrel::VintrelClientFsm>(unit, factoryReset);
    return client->StartFsm(dispatcher);
}

void ClientLife::Arrange(const std::string& state, const std::vector<std::string>& given) {
    const bool factoryReset = std::count(given.begin(), given.end(), "factory reset") > 0;
    client = std::make_shared<vintrel::VintrelClientFsm>(unit, factoryReset);
    if (state == client_table::kNotStarted) {
        return;
    }
    client->StartFsm(dispatcher);
    for (const std::string& word : given) {
        ApplyBefore(word);
    }
    DriveTo(state);
    for (const std::string& word : given) {
        ApplyThere(word);
    }
}

/// What has its effect before the state is reached.
void ClientLife::ApplyBefore(const std::string& word) {
    const int number = word.back() - '0';
    if (word == "alert pass") {
        Happen(On::Alert());
    } else if (word == "service connected early") {
        Happen(On::Immobilizer(true));
    } else if (word == "session started early") {
        Happen(On::Status(2));
    } else if (StartsWith(word, "connection ")) {
        Happen(On::Connection(number));
    } else if (StartsWith(word, "first status ")) {
        unit.status = static_cast<StatusCode>(number);
    } else if (StartsWith(word, "retries ")) {
        mRetriesBefore = number;
    }
}

/// What has its effect in the state, or in what follows.
void ClientLife::ApplyThere(const std::string& word) {
    static const std::map<std::string, std::vector<Trigger>> events = {
        {"Clamp 15 on", {On::Clamp(true), On::NoUrl()}},
        {"alert handled", {On::Clamp(true), On::NoUrl(), On::Alert(), On::NoUrl()}},
        {"clamp cycle", {On::Clamp(false), On::Clamp(true), On::NoUrl()}},
        {"exchange runs", {On::Connection(3)}},
        {"session started", {On::Status(2)}},
    };
    if (const auto happened = events.find(word); happened != events.end()) {
        Happen(happened->second);
    } else if (const auto change = Neighbours().find(word); change != Neighbours().end()) {
        change->second(unit);
    } else if (StartsWith(word, "status ")) {
        unit.status = static_cast<StatusCode>(word.back() - '0');
    } else if (word == "VINs matched") {
        Deliver(On::Vin());
    } else if (word == "URL there") {
        UrlOf(*client) = client_table::kUrl;
    } else if (word == "two more checks pending") {
        dispatcher->RaiseEvent(nullptr, client, 0, 0, nullptr);
        dispatcher->RaiseEvent(nullptr, client, 0, 0, nullptr);
    }
}

void ClientLife::DriveTo(const std::string& target) {
    if (target == client_table::kTerminated) {
        client->StopFsm();
    }
    constexpr int kMostSteps = 100;
    for (int step = 0; step < kMostSteps && (State() != target || mRetriesBefore > 0); ++step) {
        if (mRetriesBefore > 0 && State() == client_table::kWaitVin) {
            Deliver(On::Connection(3));
            for (; mRetriesBefore > 0; --mRetriesBefore) {
                Happen(On::Vin());
                FailAttempt();
            }
        } else {
            GoOn(target);
        }
    }
}

/// Delivers what takes the machine one event further on the straight way.
void ClientLife::GoOn(const std::string& target) {
    namespace table = client_table;
    if (dispatcher->NextTimeoutMillisec() == 0) {
        dispatcher->DeliverNext();
    } else if (State() == table::kWaitTrigger) {
        Deliver(On::Clamp(true));
    } else if (State() == table::kWaitZemConnector) {
        Deliver(On::Url());
    } else if (State() == table::kCheckServices) {
        Deliver(On::Immobilizer(true));
    } else if (State() == table::kWaitVin) {
        Deliver(On::Vin());
    } else if (State() == table::kDownload && unit.exchanges.empty()) {
        Deliver(On::Connection(3));
    } else {
        Deliver(target == table::kRetry ? On::Response(2) : On::Response(0, "certificate chain"));
    }
}

void ClientLife::Deliver(const Trigger& trigger) {
    constexpr auto code = tls_alert_if::ETlsAlertCode::kCertificateRevoked;
    const std::string name = client_table::EventName(trigger.event);
    if (name == "kEventZemConnector") {
        dispatcher->Invoke(*client, trigger.event, trigger.info, ConnectorData(trigger));
        return;
    }
    if (name == "kEventBackendResponse" && ExchangeRuns()) {
        unit.exchanges.back()->Answer(static_cast<ReturnCode>(trigger.value), trigger.text);
        dispatcher->DeliverNext();
        return;
    }
    if (name == "kEventClampState") {
        client->ClampStateChangeCb(trigger.info == 1);
    } else if (name == "kEventImmobilizerConnection") {
        client->ImmobilizerConnectionStateChangeCb(trigger.info == 1);
    } else if (name == "kEventImmobilizerVin") {
        client->ImmobilizerVinReceivedCb(trigger.text);
    } else if (name == "kEventTlsAlert") {
        client->TlsAlertNotifyCb(trigger.text, code);
    } else if (name == "kEventShutdown") {
        client->ProcessLifecycleAdapterTerminate();
    } else {
        const auto pending = dispatcher->AllPending();
        if (!pending.empty() && pending.begin()->event == trigger.event) {
            mMarkedPending.erase(mMarkedPending.find(*pending.begin()));
            dispatcher->DeliverNext();
        } else {
            dispatcher->Invoke(*client, trigger.event, trigger.info, nullptr);
        }
        return;
    }
    dispatcher->DeliverAsync();
}

void ClientLife::Happen(const Trigger& trigger) {
    Deliver(trigger);
    dispatcher->RunPending();
}

void ClientLife::Happen(const std::vector<Trigger>& triggers) {
    for (const Trigger& trigger : triggers) {
        Happen(trigger);
    }
}

void ClientLife::RunToExchange() {
    Happen({On::Clamp(true), On::Status(2), On::Url(), On::Immobilizer(true), On::Vin(),
            On::Connection(2)});
}

void ClientLife::FailAttempt(int code) {
    Happen(On::Response(code));
    if (const auto delay = dispatcher->NextDelay()) {
        Advance(*delay);
    }
}

void ClientLife::Mark() {
    log.Clear();
    unit.calls.clear();
    mMarkedExchanges = unit.exchanges.size();
    mMarkedPending = dispatcher->AllPending();
}

std::vector<std::string> ClientLife::OwnLines() const {
    std::vector<std::string> lines;
    for (const CapturedLog::Line& line : log.Lines()) {
        const bool own = StartsWith(line.text, kOwnPrefix);
        const std::string text = own ? line.text.substr(kOwnPrefix.size()) : "";
        // These two are every machine's.
        if (own && text != "StopFsm" && !StartsWith(text, kTransition)) {
            lines.push_back(LevelLetter(line.level) + text);
        }
    }
    return lines;
}

std::vector<std::string> ClientLife::Entered() const {
    std::vector<std::string> states;
    for (const std::string& text : log.Lines(qel_logging::EQELLogLevel::kInfo)) {
        if (StartsWith(text, kOwnPrefix + kTransition)) {
            states.push_back(text.substr(kOwnPrefix.size() + kTransition.size()));
        }
    }
    return states;
}

std::vector<std::string> ClientLife::Story() const {
    std::vector<std::string> story = OwnLines();
    for (const std::string& call : unit.calls) {
        story.push_back("> " + call);
    }
    if (unit.exchanges.size() > mMarkedExchanges) {
        story.emplace_back(ExchangeRuns() ? "> exchange started" : "> exchange refused");
    }
    const auto pending = dispatcher->AllPending();
    std::vector<SteppedDispatcher::Pending> changed;
    std::set_difference(mMarkedPending.begin(), mMarkedPending.end(), pending.begin(),
                        pending.end(), std::back_inserter(changed));
    for (const auto& dropped : changed) {
        story.push_back("- " + client_table::EventName(dropped.event));
    }
    changed.clear();
    std::set_difference(pending.begin(), pending.end(), mMarkedPending.begin(),
                        mMarkedPending.end(), std::back_inserter(changed));
    for (const auto& raised : changed) {
        const auto delay = std::chrono::duration_cast<std::chrono::milliseconds>(
            raised.time - dispatcher->GetCurrentTime());
        story.push_back("+ " + client_table::EventName(raised.event) +
                        (delay.count() == 0 ? "" : " in " + std::to_string(delay.count()) + " ms"));
    }
    if (log.Contains(qel_logging::EQELLogLevel::kInfo, "EventDispatcher ExitDispatching")) {
        story.emplace_back("exit");
    }
    return story;
}

bool ClientLife::ExchangeRuns() const {
    return !unit.exchanges.empty() && unit.exchanges.back()->GetStateName() == "FsmStateRunning";
}

std::string ClientLife::LastRequest() const {
    return unit.exchanges.empty() ? "" : unit.exchanges.back()->request;
}

}  // namespace testing_support
