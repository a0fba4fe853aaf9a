#include "fsm/fsm.h"

#include <cassert>
#include <utility>
#include <vector>

#include "fsm/async_event_queue.h"
#include "logging/qel_logging.h"

namespace fsm {

using qel_logging::QELLogging;

namespace {

/// True for the time of a call, however that ends.
class ScopedFlag {
public:
    explicit ScopedFlag(bool& flag) : mFlag(flag) { mFlag = true; }
    ~ScopedFlag() { mFlag = false; }
    ScopedFlag(const ScopedFlag&) = delete;
    ScopedFlag& operator=(const ScopedFlag&) = delete;

private:
    bool& mFlag;
};

}  // namespace

Fsm::Fsm() : Fsm("FsmBaseClass") {}

Fsm::Fsm(std::string name) : mState(&Fsm::FsmStateNotStarted), mInvoke(&InvokeAs<Fsm>) {
    SetName(std::move(name));
    SetFsmState(&Fsm::FsmStateNotStarted, "FsmStateNotStarted");
}

Fsm::~Fsm() {
    QELLogging::LogDebug(mLogName, "~Fsm");
}

void Fsm::SetName(std::string name) {
    mName = std::move(name);
    mLogName = mName + ": ";
}

void Fsm::SetupFsm(const std::shared_ptr<EventDispatcher>& dispatcher, std::shared_ptr<Fsm> target,
                   int targetEvent) {
    if (dispatcher == nullptr) {
        LogFailure("SetupFsm", ": No EventDispatcher");
        return;
    }
    const std::shared_ptr<Fsm> self = shared_from_this();
    mDispatcher = dispatcher;
    mDispatcherAddress = dispatcher.get();
    dispatcher->AddFsm(self);
    {
        const std::lock_guard<std::mutex> lock(mAsyncDoorMutex);
        mAsyncDoor = dispatcher->mAsyncDoor;
    }
    SetTarget(std::move(target), targetEvent);
}

void Fsm::SetTarget(std::shared_ptr<Fsm> target, int targetEvent) {
    assert(IsOnDispatcherThread());
    mTarget.swap(target);
    mTargetEvent = targetEvent;
}

void Fsm::EnterState(StateMethod state, Invoker invoker, std::string_view name) {
    assert(IsOnDispatcherThread());
    QELLogging::LogInfo(mLogName, "State transition to ", name);
    mState = state;
    mInvoke = invoker;
    mStateName = name;
}

std::shared_ptr<EventDispatcher> Fsm::GetDispatcher() const {
    return mDispatcher.lock();
}

bool Fsm::IsOnDispatcherThread() const {
    const std::shared_ptr<EventDispatcher> dispatcher = GetDispatcher();
    return dispatcher == nullptr || dispatcher->IsOwnThread();
}

EventDispatcher* Fsm::DispatcherFor(const char* function) const {
    if (mDispatcher.expired()) {
        LogFailure(function, ": No EventDispatcher");
        return nullptr;
    }
    return mDispatcherAddress;
}

std::shared_ptr<AsyncEventQueueIf> Fsm::GetAsyncEventQueue() const {
    const EventDispatcher* dispatcher = DispatcherFor("GetAsyncEventQueue");
    if (dispatcher == nullptr) {
        return nullptr;
    }
    std::shared_ptr<AsyncEventQueueIf> queue = dispatcher->GetAsyncEventQueue();
    if (queue == nullptr) {
        LogFailure("GetAsyncEventQueue", ": No AsyncEventQueue");
    }
    return queue;
}

void Fsm::RaiseEvent(int eventId, int eventInfo, std::unique_ptr<FsmEventData> data) {
    if (EventDispatcher* dispatcher = DispatcherFor("RaiseEvent")) {
        dispatcher->Raise(this, shared_from_this(), eventId, eventInfo, std::move(data));
    }
}

void Fsm::RaiseEvent(const std::shared_ptr<Fsm>& target, int eventId, int eventInfo,
                     std::unique_ptr<FsmEventData> data) {
    if (target == nullptr) {
        return;
    }
    if (EventDispatcher* dispatcher = DispatcherFor("RaiseEvent")) {
        dispatcher->Raise(this, std::shared_ptr<Fsm>(target), eventId, eventInfo, std::move(data));
    }
}

void Fsm::RaiseTimerEvent(int eventId, int eventInfo, int msec,
                          std::unique_ptr<FsmEventData> data) {
    if (EventDispatcher* dispatcher = DispatcherFor("RaiseTimerEvent")) {
        const std::shared_ptr<Fsm> self = shared_from_this();
        dispatcher->RaiseTimerEvent(self, self, eventId, eventInfo, std::move(data), msec);
    }
}

template <typename Action>
bool Fsm::EnterAsyncDoor(const Action& action) const {
    auto state = AsyncEventDoor::State::kNoDispatcher;
    {
        const std::lock_guard<std::mutex> lock(mAsyncDoorMutex);
        if (mAsyncDoor != nullptr) {
            state = mAsyncDoor->Enter(action);
        }
    }
    if (state == AsyncEventDoor::State::kNoDispatcher) {
        LogFailure("GetAsyncEventQueue", ": No EventDispatcher");
    } else if (state == AsyncEventDoor::State::kNoQueue) {
        LogFailure("GetAsyncEventQueue", ": No AsyncEventQueue");
    }
    return state == AsyncEventDoor::State::kOpen;
}

void Fsm::RaiseAsyncEvent(int eventId, int eventInfo, std::unique_ptr<FsmEventData> data) {
    std::string failure;
    EnterAsyncDoor([&](AsyncEventQueue& queue) {
        // Behind the open door the machine is registered, so this is never its last reference.
        failure = queue.OfferAsyncEvent(weak_from_this().lock(), eventId, eventInfo, data);
    });
    AsyncEventQueue::LogFailure(failure);
}

void Fsm::RaiseAsyncEvent(const std::shared_ptr<Fsm>& target, int eventId, int eventInfo,
                          std::unique_ptr<FsmEventData> data) const {
    if (target == nullptr) {
        return;
    }
    std::string failure;
    EnterAsyncDoor([&](AsyncEventQueue& queue) {
        failure = queue.OfferAsyncEvent(target, eventId, eventInfo, data);
    });
    AsyncEventQueue::LogFailure(failure);
}

bool Fsm::ClearAsyncEvents() {
    return ClearAsyncEventsIf(
        [this](const std::shared_ptr<Fsm>& fsm, int, int) { return fsm.get() == this; });
}

bool Fsm::ClearAsyncEvents(int eventId) {
    return ClearAsyncEventsIf([this, eventId](const std::shared_ptr<Fsm>& fsm, int id, int) {
        return fsm.get() == this && id == eventId;
    });
}

bool Fsm::ClearAsyncEventsIf(const AsyncEventQueueIf::Predicate& predicate) {
    // The payloads outlive the locks: their destructors may call anything.
    std::vector<std::unique_ptr<FsmEventData>> payloads;
    std::string failure;
    EnterAsyncDoor([&](AsyncEventQueue& queue) {
        // The references to this machine do not: only behind the door none of them is the last.
        for (AsyncEventQueue::eventQueueEvent& event :
             queue.TakeAsyncEvents(predicate, true, failure)) {
            payloads.push_back(std::move(event.data));
        }
    });
    AsyncEventQueue::LogFailure(failure);
    return !payloads.empty();
}

void Fsm::ConfigureIoDescriptor(int ioDescriptor, EventDispatcher::IoEventType type, bool enable) {
    if (EventDispatcher* dispatcher = DispatcherFor("ConfigureIoDescriptor")) {
        dispatcher->ConfigureIoDescriptor(shared_from_this(), ioDescriptor, type, enable);
    }
}

std::unique_ptr<FsmEventData> Fsm::TakeAnyEventData() const {
    return mDispatcher.expired() ? nullptr : mDispatcherAddress->TakeEventData();
}

void Fsm::LogMissingEventData() const {
    QELLogging::LogError(mLogName, "Event without its payload");
}

void Fsm::StopFsm() {
    QELLogging::LogDebug(mLogName, "StopFsm");
    if (mStopping || GetDispatcher() == nullptr) {
        return;
    }
    // The registration may be the last owner.
    const std::shared_ptr<Fsm> self = shared_from_this();
    const ScopedFlag stopping(mStopping);
    OnTerminate();
    Terminate();
}

void Fsm::Terminate() {
    const std::shared_ptr<Fsm> self = shared_from_this();
    // Other threads first: behind an open door the machine must be registered. What they raise from
    // here on is lost.
    {
        const std::lock_guard<std::mutex> lock(mAsyncDoorMutex);
        mAsyncDoor.reset();
    }
    mTarget.reset();
    if (const auto dispatcher = GetDispatcher()) {
        dispatcher->RemoveFsm(self);
    } else {
        LogFailure("Terminate", ": No EventDispatcher");
    }
    SetFsmState(&Fsm::FsmStateTerminated, "FsmStateTerminated");
    mDispatcher.reset();
}

void Fsm::FsmStateNotStarted(int eventId, int eventInfo) {
    QELLogging::LogError(mName, ": Error: no event expected in state FsmStateNotStarted, eventId: ",
                         eventId, ", eventInfo: ", eventInfo);
}

void Fsm::FsmStateTerminated(int eventId, int eventInfo) {
    QELLogging::LogWarning(mName,
                           ": no event expected in state FsmStateTerminated, eventId: ", eventId,
                           ", eventInfo: ", eventInfo);
}

void Fsm::LogFailure(const char* function, const char* text) const {
    QELLogging::LogFatal(mName, function, text);
}

}  // namespace fsm
