#include "fsm/event_queue.h"

#include <algorithm>
#include <cassert>
#include <limits>
#include <utility>

#include "fsm/fsm.h"
#include "logging/qel_logging.h"

namespace fsm {

using qel_logging::QELLogging;

namespace {

/// An event with less than a millisecond to go counts as due, since `poll` cannot wait for less.
constexpr std::chrono::nanoseconds kDueMargin{999999};

const char* SenderName(const Fsm* from) {
    return from == nullptr ? "NOFSM" : from->GetName().c_str();
}

}  // namespace

EventQueue::EventQueue(std::string name) : mName(std::move(name)) {}

EventQueue::~EventQueue() {
    QELLogging::LogDebug("~EventQueue");
}

void EventQueue::RaiseEvent(const std::shared_ptr<Fsm>& from, std::shared_ptr<Fsm> to, int eventId,
                            int eventInfo, std::unique_ptr<FsmEventData> data) {
    if (to == nullptr) {
        QELLogging::LogFatal(mName, " RaiseEvent: no receiver");
        return;
    }
    Raise(from.get(), std::move(to), eventId, eventInfo, std::move(data));
}

void EventQueue::Raise(const Fsm* from, std::shared_ptr<Fsm>&& to, int eventId, int eventInfo,
                       std::unique_ptr<FsmEventData>&& data) {
    QELLogging::LogVerbose(mName, " EVENT raised ", SenderName(from), " -> ", to->GetName(),
                           ", eventId ", eventId, " eventInfo ", eventInfo);
    Insert(std::move(to), eventId, eventInfo, std::move(data), ReadClock());
}

void EventQueue::RaiseTimerEvent(const std::shared_ptr<Fsm>& from, std::shared_ptr<Fsm> to,
                                 int eventId, int eventInfo, std::unique_ptr<FsmEventData> data,
                                 int msec) {
    if (to == nullptr) {
        QELLogging::LogFatal(mName, " RaiseTimerEvent: no receiver");
        return;
    }
    QELLogging::LogVerbose(mName, " EVENT raised ", SenderName(from.get()), " -> ", to->GetName(),
                           ", eventId ", eventId, " eventInfo ", eventInfo, " msec ", msec);
    Insert(std::move(to), eventId, eventInfo, std::move(data),
           ReadClock() + std::chrono::milliseconds(msec));
}

void EventQueue::Insert(std::shared_ptr<Fsm>&& to, int eventId, int eventInfo,
                        std::unique_ptr<FsmEventData>&& data, TimePoint time) {
    assert(IsOwnThread());
    // Most events are the last to fall due; with the end as hint these need no search. Behind equal
    // keys the new element is placed in either case.
    mEvents.emplace_hint(mEvents.end(), std::move(to), eventId, eventInfo, std::move(data), time);
    mModified = true;
}

EventQueue::TimePoint EventQueue::GetCurrentTime() const {
    return std::chrono::steady_clock::now();
}

bool EventQueue::ClearEvent(const std::shared_ptr<Fsm>& fsm, int eventId, bool all) {
    return ClearIf(
        [receiver = fsm.get(), eventId](const EventQueueEvent& event) {
            return event.fsm.get() == receiver && event.eventId == eventId;
        },
        all);
}

bool EventQueue::ClearEvent(const std::shared_ptr<Fsm>& fsm, int eventId, int eventInfo, bool all) {
    return ClearIf(
        [receiver = fsm.get(), eventId, eventInfo](const EventQueueEvent& event) {
            return event.fsm.get() == receiver && event.eventId == eventId &&
                   event.eventInfo == eventInfo;
        },
        all);
}

template <typename Matches>
bool EventQueue::ClearIf(Matches matches, bool all) {
    assert(IsOwnThread());
    // What is removed is destroyed after the walk: a destructor may come back to this queue.
    Events::node_type first;
    Events others;
    for (auto event = mEvents.begin(); event != mEvents.end();) {
        const auto next = std::next(event);
        if (matches(*event)) {
            mModified = true;
            if (!all) {
                first = mEvents.extract(event);
                return true;
            }
            others.insert(others.end(), mEvents.extract(event));
        }
        event = next;
    }
    return !others.empty();
}

int EventQueue::NextTimeoutMillisec() const {
    if (mEvents.empty()) {
        return -1;
    }
    const EventQueueEvent& first = *mEvents.begin();
    if (IsKnownToBeDue(first)) {
        return 0;
    }
    const std::chrono::nanoseconds delta = first.time - ReadClock();
    if (delta < -kDueMargin) {
        return 0;
    }
    const auto millisec = std::chrono::duration_cast<std::chrono::milliseconds>(delta).count();
    return static_cast<int>(
        std::min<std::chrono::milliseconds::rep>(millisec, std::numeric_limits<int>::max()));
}

EventQueue::Events::node_type EventQueue::TakeDueEvent() {
    assert(IsOwnThread());
    if (mEvents.empty()) {
        return {};
    }
    const EventQueueEvent& first = *mEvents.begin();
    if (!IsKnownToBeDue(first) && first.time - ReadClock() > kDueMargin) {
        return {};
    }
    return mEvents.extract(mEvents.begin());
}

bool EventQueue::PopNextEvent(std::shared_ptr<Fsm>& fsm, int& eventId, int& eventInfo,
                              std::unique_ptr<FsmEventData>& data) {
    Events::node_type node = TakeDueEvent();
    if (node.empty()) {
        return false;
    }
    EventQueueEvent& event = node.value();
    fsm = std::move(event.fsm);
    eventId = event.eventId;
    eventInfo = event.eventInfo;
    data = std::move(event.data);
    return true;
}

bool EventQueue::EventQueueModified() {
    return std::exchange(mModified, false);
}

}  // namespace fsm
