#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "fsm/fsm_event_data.h"
#include "fsm/owning_thread.h"

namespace fsm {

class Fsm;

/// Pending events in the order of their due times, first in first out at equal times; with that
/// also the timer service.
///
/// The queue keeps the receivers of its events alive. It belongs to the thread that made it, or
/// from `EventDispatcher::DispatchEvents` on to the one that runs the loop; debug builds assert
/// that.
class EventQueue {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    explicit EventQueue(std::string name);
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;
    virtual ~EventQueue();

    /// Queues an event that is due `msec` milliseconds from now, which may be negative. `from`
    /// serves the log only and may be null.
    virtual void RaiseTimerEvent(const std::shared_ptr<Fsm>& from, std::shared_ptr<Fsm> to,
                                 int eventId, int eventInfo, std::unique_ptr<FsmEventData> data,
                                 int msec);

    /// The clock of the queue, which must be monotonic; overridden to run on virtual time.
    virtual TimePoint GetCurrentTime() const;

    /// Queues an event that is due now. `from` serves the log only and may be null.
    void RaiseEvent(const std::shared_ptr<Fsm>& from, std::shared_ptr<Fsm> to, int eventId,
                    int eventInfo, std::unique_ptr<FsmEventData> data);

    /// Removes the earliest event of that receiver, id and, if given, info, or with `all` every
    /// one. True if anything was removed.
    bool ClearEvent(const std::shared_ptr<Fsm>& fsm, int eventId, bool all);
    bool ClearEvent(const std::shared_ptr<Fsm>& fsm, int eventId, int eventInfo, bool all);

    /// Time to the first event in whole milliseconds as `poll` takes it: -1 without an event, 0 if
    /// one is due or less than a millisecond away.
    int NextTimeoutMillisec() const;

    /// Hands out the first event if it is due, that is less than a millisecond away; else false.
    bool PopNextEvent(std::shared_ptr<Fsm>& fsm, int& eventId, int& eventInfo,
                      std::unique_ptr<FsmEventData>& data);

    /// Whether an event was raised or cleared since the last call.
    bool EventQueueModified();

    const std::string& GetName() const { return mName; }

protected:
    friend class Fsm;

    struct EventQueueEvent {
        EventQueueEvent(std::shared_ptr<Fsm>&& receiver, int id, int info,
                        std::unique_ptr<FsmEventData>&& payload, TimePoint due)
            : fsm(std::move(receiver)),
              eventId(id),
              eventInfo(info),
              data(std::move(payload)),
              time(due) {}

        std::shared_ptr<Fsm> fsm;
        int eventId;
        int eventInfo;
        std::unique_ptr<FsmEventData> data;
        TimePoint time;
    };

    struct CompareEvents {
        bool operator()(const EventQueueEvent& a, const EventQueueEvent& b) const {
            return a.time < b.time;
        }
    };

    using Events = std::multiset<EventQueueEvent, CompareEvents>;

    const Events& PendingEvents() const { return mEvents; }

    /// As `RaiseEvent`; there is a receiver.
    void Raise(const Fsm* from, std::shared_ptr<Fsm>&& to, int eventId, int eventInfo,
               std::unique_ptr<FsmEventData>&& data);

    /// The first event if it is due, else an empty handle.
    Events::node_type TakeDueEvent();

    /// Whether the caller is on the thread that the queue belongs to.
    bool IsOwnThread() const { return mThread.IsCurrent(); }
    void AdoptThread() { mThread.Adopt(); }

private:
    TimePoint ReadClock() const { return mLatestTime = GetCurrentTime(); }
    bool IsKnownToBeDue(const EventQueueEvent& event) const { return event.time <= mLatestTime; }
    void Insert(std::shared_ptr<Fsm>&& to, int eventId, int eventInfo,
                std::unique_ptr<FsmEventData>&& data, TimePoint time);
    template <typename Matches>
    bool ClearIf(Matches matches, bool all);

    std::string mName;
    Events mEvents;
    bool mModified{false};
    /// The last reading of the clock: what is due by then is due without another reading.
    mutable TimePoint mLatestTime{TimePoint::min()};
    OwningThread mThread;
};

}  // namespace fsm
