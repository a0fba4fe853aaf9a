#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "fsm/event_dispatcher.h"
#include "fsm/fsm_event_data.h"

namespace fsm {

/// Base of all state machines. A state is a member function `void (int eventId, int eventInfo)`; a
/// transition stores another one and takes effect for the next event.
///
/// A machine is always owned by a `std::shared_ptr` before `SetupFsm`. It belongs to the dispatcher
/// thread, except for `RaiseAsyncEvent` and `ClearAsyncEvents`, which any thread may call while it
/// knows the object to be alive. The derived start operation calls `SetupFsm` and then leaves
/// `FsmStateNotStarted`.
class Fsm : public std::enable_shared_from_this<Fsm> {
public:
    using StateMethod = void (Fsm::*)(int eventId, int eventInfo);
    using Invoker = void (*)(Fsm& fsm, StateMethod state, int eventId, int eventInfo);

    Fsm();
    explicit Fsm(std::string name);
    Fsm(const Fsm&) = delete;
    Fsm& operator=(const Fsm&) = delete;
    virtual ~Fsm();

    /// Orderly end: `OnTerminate`, then `Terminate`. Without a dispatcher it does nothing, so it
    /// may be called twice, and from within `OnTerminate`.
    virtual void StopFsm();

    /// Registers the machine with the dispatcher, then `SetTarget`. Once, before the machine leaves
    /// `FsmStateNotStarted`; without a dispatcher only a line at Fatal level is written.
    void SetupFsm(const std::shared_ptr<EventDispatcher>& dispatcher, std::shared_ptr<Fsm> target,
                  int targetEvent);

    /// Sets the machine that this one reports to, and the event id of the reports. The target is
    /// kept alive until another one is set or this machine stops; null ends the reporting. What was
    /// raised before still reaches the former target. Dispatcher thread, or before `SetupFsm`.
    void SetTarget(std::shared_ptr<Fsm> target, int targetEvent);

    /// Only before the machine is known to another thread.
    void SetName(std::string name);
    const std::string& GetName() const { return mName; }
    const std::string& GetStateName() const { return mStateName; }

    /// Delivers an event to the current state. Only the dispatcher calls it.
    void InvokeStateMethod(int eventId, int eventInfo) {
        mInvoke(*this, mState, eventId, eventInfo);
    }

    /// The dispatcher, or null before `SetupFsm`, after the end and after that of the dispatcher.
    /// Dispatcher thread only.
    std::shared_ptr<EventDispatcher> GetDispatcher() const;

    /// The dispatcher's asynchronous queue; null, with a line at Fatal level, if there is none.
    /// Dispatcher thread only.
    std::shared_ptr<AsyncEventQueueIf> GetAsyncEventQueue() const;

    /// Raises an event that is due now, to this machine or to `target`. With a null target the
    /// event is dropped. Without a dispatcher it is lost with a line at Fatal level.
    void RaiseEvent(int eventId, int eventInfo, std::unique_ptr<FsmEventData> data);
    void RaiseEvent(const std::shared_ptr<Fsm>& target, int eventId, int eventInfo,
                    std::unique_ptr<FsmEventData> data);

    /// Raises an event to this machine that is due `msec` milliseconds from now.
    void RaiseTimerEvent(int eventId, int eventInfo, int msec, std::unique_ptr<FsmEventData> data);

    /// Raises an event from any thread, through the asynchronous queue. Before `SetupFsm` and after
    /// the end of the machine or the dispatcher it is lost with a line at Fatal level.
    void RaiseAsyncEvent(int eventId, int eventInfo, std::unique_ptr<FsmEventData> data);
    void RaiseAsyncEvent(const std::shared_ptr<Fsm>& target, int eventId, int eventInfo,
                         std::unique_ptr<FsmEventData> data) const;

    /// Removes this machine's entries, all or those of one id, from the asynchronous queue; true if
    /// there were any. Any thread.
    bool ClearAsyncEvents();
    bool ClearAsyncEvents(int eventId);

    /// Switches one request for a descriptor that this machine watches on or off, from the next
    /// wait on (`EventDispatcher::AddIoDescriptor` watches it). The descriptor stays the caller's.
    /// Dispatcher thread. For a descriptor that is not watched, an unknown `type` or without a
    /// dispatcher nothing changes but a line at Fatal level.
    void ConfigureIoDescriptor(int ioDescriptor, EventDispatcher::IoEventType type, bool enable);

protected:
    /// The frame states: they log the event and ignore it.
    virtual void FsmStateNotStarted(int eventId, int eventInfo);
    virtual void FsmStateTerminated(int eventId, int eventInfo);

    /// The derived class's clean-up; the dispatcher is still there, and so is `mTarget`.
    virtual void OnTerminate() = 0;

    /// Changes the state, also to itself. `name` is the name of the state method.
    template <typename Machine>
    void SetFsmState(void (Machine::*state)(int, int), std::string_view name) {
        const Invoker invoker = &InvokeAs<Machine>;
        const StateMethod method = static_cast<StateMethod>(state);
        EnterState(method, invoker, name);
    }

    /// Whether `state` is the current state, also for the two frame states.
    template <typename Machine>
    bool IsFsmState(void (Machine::*state)(int, int)) const {
        return mState == static_cast<StateMethod>(state);
    }

    /// Takes the payload of the event that the state method is handling, once, as the class that
    /// this event brings.
    ///
    /// Null, with a line at Error level, if the event has brought no payload, one of another class
    /// (it is destroyed), or one that was taken before. A state method then does what it does when
    /// that event reports a failure; an event that can't report one it ignores.
    template <typename Data>
    std::unique_ptr<Data> TakeEventData() const {
        std::unique_ptr<FsmEventData> data = TakeAnyEventData();
        auto* const expected = dynamic_cast<Data*>(data.get());
        if (expected == nullptr) {
            LogMissingEventData();
            return nullptr;
        }
        static_cast<void>(data.release());
        return std::unique_ptr<Data>(expected);
    }

    /// Releases the target, unregisters the machine and enters `FsmStateTerminated`. Events that
    /// are still pending for the machine are delivered to that state.
    void Terminate();

private:
    friend class EventDispatcher;

    /// Calls the state method through the class that has it, whose `Fsm` part need not be at its
    /// start: there GCC's UBSan rejects the plain `(this->*mState)(...)`.
    template <typename Machine>
    static void InvokeAs(Fsm& fsm, StateMethod state, int eventId, int eventInfo) {
        const auto method = static_cast<void (Machine::*)(int, int)>(state);
        (static_cast<Machine&>(fsm).*method)(eventId, eventInfo);
    }

    void EnterState(StateMethod state, Invoker invoker, std::string_view name);
    std::unique_ptr<FsmEventData> TakeAnyEventData() const;
    void LogMissingEventData() const;
    template <typename Action>
    bool EnterAsyncDoor(const Action& action) const;
    bool ClearAsyncEventsIf(const AsyncEventQueueIf::Predicate& predicate);
    EventDispatcher* DispatcherFor(const char* function) const;
    bool IsOnDispatcherThread() const;
    void LogFailure(const char* function, const char* text) const;

    StateMethod mState;
    std::string mStateName;
    std::weak_ptr<EventDispatcher> mDispatcher;
    /// The same, for calls that it outlives; good as long as `mDispatcher` has not expired.
    EventDispatcher* mDispatcherAddress{nullptr};

protected:
    std::shared_ptr<Fsm> mTarget;
    int mTargetEvent{0};
    std::string mName;
    std::string mLogName;

private:
    Invoker mInvoke;
    bool mStopping{false};

    /// Guards `mAsyncDoor`. Held while a foreign thread is inside the door, so that the machine
    /// stays registered, hence alive, as long.
    mutable std::mutex mAsyncDoorMutex;
    std::shared_ptr<AsyncEventDoor> mAsyncDoor;
};

}  // namespace fsm
