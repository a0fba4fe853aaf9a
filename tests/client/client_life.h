#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "client/scripted_unit.h"
#include "client/transition_table.h"
#include "client/vintrel_client_fsm.h"
#include "testing/captured_log.h"
#include "testing/virtual_time_dispatcher.h"

namespace testing_support {

/// One client machine among scripted neighbours: brings it into a situation, delivers events, and
/// tells what was to be seen. Triggers are named as in transitions.json.
class ClientLife {
public:
    ClientLife() = default;
    ClientLife(const ClientLife&) = delete;
    ClientLife& operator=(const ClientLife&) = delete;
    ~ClientLife();

    bool Start(bool factoryReset = false);

    /// Makes the situation fit a word: a trigger that happens, "status N", "retries N", or what a
    /// neighbour is like.
    void Apply(const std::string& word);
    /// Brings a machine that was not started into a state; some words apply before it is reached,
    /// the others there.
    void Arrange(const std::string& state, const std::vector<std::string>& given = {},
                 const std::vector<std::string>& there = {});

    /// Delivers exactly this event, or all that follows from it too.
    void Deliver(const std::string& trigger);
    template <typename... Triggers>
    void Happen(const Triggers&... triggers) {
        ((Deliver(triggers), dispatcher->RunPending()), ...);
    }

    /// Forgets what was seen.
    void Mark();
    /// Whether such an event was pending at the mark, beside one that has been delivered.
    bool WasPending(const std::string& event) const;
    /// What was to be seen since the mark, as a case of the table states it.
    std::vector<std::string> Story() const;
    /// How many states were entered since the mark.
    std::size_t Entered() const;
    /// The machine's own lines since the mark, "I text" by level.
    std::vector<std::string> OwnLines() const;

    const std::string& State() const { return client->GetStateName(); }
    bool ExchangeRuns() const;

    CapturedLog log;
    ScriptedUnit unit;
    std::shared_ptr<VirtualTimeDispatcher> dispatcher =
        std::make_shared<VirtualTimeDispatcher>("EventDispatcher", true);
    std::shared_ptr<vintrel::VintrelClientFsm> client;

private:
    /// Due time in milliseconds, and id.
    using DueEvent = std::pair<std::int64_t, int>;
    /// The pending events, of whatever machine.
    std::multiset<DueEvent> AllPending() const;

    void DriveTo(const std::string& target);
    void GoOn(const std::string& target);

    void DeliverOwn(const client_table::Trigger& trigger);

    int mRetriesBefore{0};
    std::size_t mMarkedExchanges{0};
    std::multiset<DueEvent> mMarkedPending;
};

}  // namespace testing_support
