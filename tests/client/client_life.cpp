#include "client/client_life.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace testing_support {

using client_table::Trigger;
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

ClientLife::~ClientLife() {
    client.reset();
    unit.exchanges.clear();
    dispatcher.reset();
}

bool ClientLife::Start(bool factoryReset) {
    client = std::make_shared<vintrel::VintrelClientFsm>(unit, factoryReset);
    return client->StartFsm(dispatcher);
}

void ClientLife::Arrange(const std::string& state, const std::vector<std::string>& given,
                         const std::vector<std::string>& there) {
    const bool factoryReset = std::count(given.begin(), given.end(), "factory reset") > 0;
    if (state == client_table::kNotStarted) {
        client = std::make_shared<vintrel::VintrelClientFsm>(unit, factoryReset);
        return;
    }
    Start(factoryReset);
    for (const std::string& word : given) {
        Apply(word);
    }
    DriveTo(state);
    for (const std::string& word : there) {
        Apply(word);
    }
}

void ClientLife::Apply(const std::string& word) {
    const int number = word.back() - '0';
    if (StartsWith(word, "status ")) {
        unit.status = static_cast<vintrel::StatusCode>(number);
    } else if (StartsWith(word, "retries ")) {
        mRetriesBefore = number;
    } else if (client_table::Troubles().count(word) > 0) {
        unit.troubles.insert(word);
    } else if (word == "VIN matches") {
        Deliver("VIN");
    } else if (word == "URL there") {
        UrlOf(*client) = client_table::kUrl;
    } else if (word == "two more checks pending") {
        dispatcher->RaiseEvent(nullptr, client, 0, 0, nullptr);
        dispatcher->RaiseEvent(nullptr, client, 0, 0, nullptr);
    } else if (word != "factory reset") {  // of which the constructor was told
        Happen(word);
    }
}

void ClientLife::DriveTo(const std::string& target) {
    if (target == client_table::kTerminated) {
        client->StopFsm();
    }
    constexpr int kMostSteps = 100;
    for (int step = 0; step < kMostSteps && (State() != target || mRetriesBefore > 0); ++step) {
        if (mRetriesBefore == 0 || State() != client_table::kWaitVin) {
            GoOn(target);
            continue;
        }
        Deliver("connection 3");
        for (; mRetriesBefore > 0; --mRetriesBefore) {
            Happen("VIN");
            Happen("response 2");
            if (const auto delay = dispatcher->NextDelay()) {
                dispatcher->AdvanceBy(*delay);
            }
        }
    }
}

/// Delivers what takes the machine one event further on the straight way.
void ClientLife::GoOn(const std::string& target) {
    static const std::map<std::string, std::string> triggers = {
        {client_table::kWaitTrigger, "clamp on"},
        {client_table::kWaitZemConnector, "URL"},
        {client_table::kCheckServices, "service up"},
        {client_table::kWaitVin, "VIN"},
    };
    if (dispatcher->NextTimeoutMillisec() == 0) {
        dispatcher->DeliverNext();
    } else if (const auto trigger = triggers.find(State()); trigger != triggers.end()) {
        Deliver(trigger->second);
    } else if (State() == client_table::kDownload && unit.exchanges.empty()) {
        Deliver("connection 3");
    } else {
        Deliver(target == client_table::kRetry ? "response 2" : "response certificate");
    }
}

void ClientLife::Deliver(const std::string& trigger) {
    const Trigger event = client_table::TriggerOf(trigger);
    const std::string name = client_table::EventName(event.event);
    if (event.bare) {
        dispatcher->Invoke(*client, event.event, event.info, nullptr);
    } else if (unit.CallBack(event)) {
        dispatcher->DeliverAsync();
    } else if (name == "kEventZemConnector") {
        dispatcher->Invoke(*client, event.event, event.info, ConnectorData(event));
    } else if (name == "kEventBackendResponse" && ExchangeRuns()) {
        unit.exchanges.back()->Answer(static_cast<vintrel::ReturnCode>(event.value), event.text);
        dispatcher->DeliverNext();
    } else {
        DeliverOwn(event);
    }
}

void ClientLife::DeliverOwn(const Trigger& trigger) {
    const auto pending = AllPending();
    if (pending.empty() || pending.begin()->second != trigger.event) {
        dispatcher->Invoke(*client, trigger.event, trigger.info, nullptr);
        return;
    }
    mMarkedPending.erase(mMarkedPending.find(*pending.begin()));
    dispatcher->DeliverNext();
}

void ClientLife::Mark() {
    log.Clear();
    unit.calls.clear();
    mMarkedExchanges = unit.exchanges.size();
    mMarkedPending = AllPending();
}

bool ClientLife::WasPending(const std::string& event) const {
    return std::any_of(
        mMarkedPending.begin(), mMarkedPending.end(),
        [id = client_table::EventId(event)](const auto& pending) { return pending.second == id; });
}

std::multiset<ClientLife::DueEvent> ClientLife::AllPending() const {
    std::multiset<DueEvent> pending;
    for (const auto& [receiver, event, info, due] : dispatcher->Pending()) {
        pending.insert({due, event});
    }
    return pending;
}

std::vector<std::string> ClientLife::OwnLines() const {
    std::vector<std::string> lines;
    for (const std::string& line : log.Lines()) {
        const bool own = StartsWith(line.substr(2), kOwnPrefix);
        const std::string text = own ? line.substr(2 + kOwnPrefix.size()) : "";
        // These two are every machine's.
        if (own && text != "StopFsm" && !StartsWith(text, kTransition)) {
            lines.push_back(line.substr(0, 2) + text);
        }
    }
    return lines;
}

std::size_t ClientLife::Entered() const {
    return log.Count(kOwnPrefix + kTransition);
}

std::vector<std::string> ClientLife::Story() const {
    std::vector<std::string> story = OwnLines();
    for (const std::string& call : unit.calls) {
        story.push_back("> " + call);
    }
    if (unit.exchanges.size() > mMarkedExchanges) {
        story.emplace_back(ExchangeRuns() ? "> exchange started" : "> exchange refused");
    }
    const auto pending = AllPending();
    std::vector<DueEvent> changed;
    std::set_difference(mMarkedPending.begin(), mMarkedPending.end(), pending.begin(),
                        pending.end(), std::back_inserter(changed));
    for (const auto& [due, event] : changed) {
        story.push_back("- " + client_table::EventName(event));
    }
    changed.clear();
    std::set_difference(pending.begin(), pending.end(), mMarkedPending.begin(),
                        mMarkedPending.end(), std::back_inserter(changed));
    for (const auto& [due, event] : changed) {
        const std::int64_t delay = due - dispatcher->Now();
        story.push_back("+ " + client_table::EventName(event) +
                        (delay == 0 ? "" : " in " + std::to_string(delay) + " ms"));
    }
    if (log.Contains("I EventDispatcher ExitDispatching")) {
        story.emplace_back("exit");
    }
    return story;
}

bool ClientLife::ExchangeRuns() const {
    return !unit.exchanges.empty() && unit.exchanges.back()->GetStateName() == "FsmStateRunning";
}

}  // namespace testing_support
