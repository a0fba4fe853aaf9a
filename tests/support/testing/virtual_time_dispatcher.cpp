#include "testing/virtual_time_dispatcher.h"

#include <algorithm>

#include <gtest/gtest.h>
#include <poll.h>

#include "fsm/async_event_queue.h"

namespace testing_support {

namespace {

constexpr int kMaxSteps = 1000000;

/// A condition may depend on what no descriptor tells, so a wait is cut into slices.
constexpr int kSliceMillisec = 20;

}  // namespace

bool VirtualTimeDispatcher::RunPending() {
    for (int steps = 0; steps < kMaxSteps; ++steps) {
        if (!Step(0)) {
            return !mExited;
        }
    }
    ADD_FAILURE() << "the machines do not come to rest";
    return !mExited;
}

/// One step of the real loop; true if it may have left something to do.
bool VirtualTimeDispatcher::Step(int pollTimeout) {
    if (mExited) {
        return false;
    }
    const bool due = NextTimeoutMillisec() == 0;
    mReady = 0;
    mPollTimeout = pollTimeout;
    mExited = !DispatchStep();
    mPollTimeout.reset();
    return !mExited && (due || mReady > 0);
}

void VirtualTimeDispatcher::AdvanceBy(std::chrono::milliseconds time) {
    const TimePoint end = mNow + time;
    RunPending();
    while (!mExited && !PendingEvents().empty() && PendingEvents().begin()->time <= end) {
        mNow = std::max(mNow, PendingEvents().begin()->time);
        RunPending();
    }
    mNow = end;
    RunPending();
}

std::optional<std::chrono::milliseconds> VirtualTimeDispatcher::NextDelay() const {
    if (PendingEvents().empty()) {
        return std::nullopt;
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(PendingEvents().begin()->time -
                                                                 mNow);
}

std::vector<VirtualTimeDispatcher::PendingEvent> VirtualTimeDispatcher::Pending() const {
    std::vector<PendingEvent> pending;
    for (const EventQueueEvent& event : PendingEvents()) {
        pending.emplace_back(event.fsm->GetName(), event.eventId, event.eventInfo,
                             Milliseconds(event.time));
    }
    return pending;
}

void VirtualTimeDispatcher::DeliverNext() {
    mNow = std::max(mNow, PendingEvents().begin()->time);
    std::shared_ptr<fsm::Fsm> machine;
    int eventId = 0;
    int eventInfo = 0;
    std::unique_ptr<fsm::FsmEventData> data;
    if (PopNextEvent(machine, eventId, eventInfo, data)) {
        Invoke(*machine, eventId, eventInfo, std::move(data));
    }
}

void VirtualTimeDispatcher::DeliverAsync() {
    std::dynamic_pointer_cast<fsm::AsyncEventQueue>(GetAsyncEventQueue())
        ->InvokeStateMethod(0, POLLIN);
}

bool VirtualTimeDispatcher::RunUntil(const std::function<bool()>& condition,
                                     std::chrono::milliseconds hangGuard) {
    const auto end = std::chrono::steady_clock::now() + hangGuard;
    RunPending();
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        mReady = 0;
        if (!Step(kSliceMillisec) && mReady == 0) {
            // Without descriptors, or after the exit, the step does not wait.
            std::vector<pollfd> none;
            EventDispatcher::Poll(none, 1);
        }
        RunPending();
    }
    return true;
}

int VirtualTimeDispatcher::Poll(std::vector<pollfd>& pollFds, int timeoutMillisec) {
    mReady = EventDispatcher::Poll(pollFds, mPollTimeout.value_or(timeoutMillisec));
    return mReady;
}

}  // namespace testing_support
