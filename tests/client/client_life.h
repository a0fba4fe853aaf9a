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

/// The virtual dispatcher, able to deliver one single event.
class SteppedDispatcher : public VirtualTimeDispatcher {
public:
    struct Pending {
        int event;
        TimePoint time;

        bool operator<(const Pending& other) const {
            return time != other.time ? time < other.time : event < other.event;
        }
    };

    using VirtualTimeDispatcher::VirtualTimeDispatcher;

    TimePoint GetCurrentTime() const override {
        return VirtualTimeDispatcher::GetCurrentTime() + mSkipped;
    }

    /// The pending events, of whatever machine.
    std::multiset<Pending> AllPending() const;

    /// Delivers the first pending event, and skips the time until it is due. That time is unknown
    /// to `AdvanceBy` and `NextDelay`.
    void DeliverNext();

    /// Delivers the first event that came from another thread.
    void DeliverAsync();

private:
    std::chrono::nanoseconds mSkipped{0};
};

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
    /// The states that were entered since the mark.
    std::vector<std::string> Entered() const;
    /// The machine's own lines since the mark, "I text" by level.
    std::vector<std::string> OwnLines() const;

    const std::string& State() const { return client->GetStateName(); }
    bool ExchangeRuns() const;

    CapturedLog log;
    ScriptedUnit unit;
    std::shared_ptr<SteppedDispatcher> dispatcher =
        std::make_shared<SteppedDispatcher>("EventDispatcher", true);
    std::shared_ptr<vintrel::VintrelClientFsm> client;

private:
    void DriveTo(const std::string& target);
    void GoOn(const std::string& target);
    /// An exchange that fails, up to the VIN query of its retry.
    void FailAttempt();

    void DeliverOwn(const client_table::Trigger& trigger);

    int mRetriesBefore{0};
    std::size_t mMarkedExchanges{0};
    std::multiset<SteppedDispatcher::Pending> mMarkedPending;
};

}  // namespace testing_support
