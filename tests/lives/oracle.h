#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/scripted_unit.h"
#include "logging/qel_logging_if.h"
#include "testing/virtual_time_dispatcher.h"

namespace lives {

class MachineModel;
class ExchangeModel;

/// One connection between the exchange and the backend, as both ends must see it.
struct Wire {
    std::string toBackend;  ///< what the exchange has to have written
    bool cut{false};        ///< the last of it did not fit into the socket's buffer
    std::string toMachine;  ///< what the backend has written and the exchange has not yet read
    bool backendGone{false};
    bool backendHalfClosed{false};
    bool reset{false};  ///< the backend went with bytes unread; the exchange is yet to see it
};

/// An event as the tables have it: for whom, what comes with it, and when.
struct Event {
    std::shared_ptr<MachineModel> to{};
    int id{0};
    int info{0};
    int number{0};
    bool good{false};
    std::string text{};
    std::shared_ptr<Wire> wire{};
    std::int64_t due{0};
};

using PendingEvent = testing_support::VirtualTimeDispatcher::PendingEvent;

/// Watches a life and says at each step whether it may go that way.
///
/// What can be seen of the machines comes in as it happens: lines of the log, calls to the
/// neighbours, timers. It is cut at each delivery of an event, which the dispatcher's own lines
/// show. The models, which hold the transition tables, are then given the same event and say, line
/// by line, what it must have led to; they keep queues of their own, so that no event may come too
/// early, too late, in another order or not at all. Times are in milliseconds from the life's
/// beginning.
class Oracle {
public:
    explicit Oracle(testing_support::ScriptedUnit& unit) : mUnit(unit) {}

    void SeeLine(qel_logging::EQELLogLevel level, const std::string& text);
    void SeeTimer(const std::string& machine, int eventId, int msec);

    /// Notes what is about to happen from outside. Ends what came before.
    void Tell(const std::string& what);
    /// Compares what has been seen since with what the model expects.
    void Check(const std::function<void()>& model);
    /// Ends the delivery that is under way, if any.
    void Flush();
    /// To be called when the machines have come to rest.
    void CheckRest(const std::vector<PendingEvent>& pending);
    /// From here on nothing is expected but that all machines go.
    void EndLife();

    void Violate(const std::string& text);
    bool Violated() const { return !mViolation.empty(); }
    const std::string& Violation() const { return mViolation; }
    void KeepStory(std::vector<std::string>* story) { mStory = story; }

    // For the models.
    void Expect(const std::string& observation);
    void Raise(Event event);
    void RaiseTimer(Event event, int msec);
    bool Drop(const MachineModel* to, int eventId);
    void Post(Event event) { mPosted.push_back(std::move(event)); }

    std::function<std::int64_t()> clock;
    /// The state in which the machine of this name really is; empty for one that is gone.
    std::function<std::string(const MachineModel&)> realState;

    std::vector<std::shared_ptr<MachineModel>> machines;
    std::shared_ptr<ExchangeModel> exchange;
    bool terminationRequested{false};
    bool exceptionExpected{false};
    std::uint64_t passes{0};
    int machinesAlive{0};

private:
    void TakeCalls();
    void See(std::string observation);
    void BeginDelivery(const std::string& line, std::size_t name);
    void Deliver();
    std::shared_ptr<MachineModel> TakeDue();
    void Story(const std::string& text);

    testing_support::ScriptedUnit& mUnit;
    std::deque<std::string> mSeen;
    std::deque<Event> mQueue;
    std::deque<Event> mPosted;
    enum class Delivery { kNone, kQueue, kPosted, kDescriptor } mDelivery{Delivery::kNone};
    /// When that which is being looked at began; the clock may have gone on since.
    std::int64_t mNow{0};
    std::string mReceiver;
    int mEventId{0};
    int mEventInfo{0};
    bool mEnded{false};
    std::string mViolation;
    std::vector<std::string>* mStory{nullptr};
};

}  // namespace lives
