#include <memory>
#include <utility>

#include "benchmarks/framework/contender.h"
#include "fsm/event_dispatcher.h"
#include "fsm/fsm.h"
#include "fsm/fsm_event_data_stream_communicator.h"
#include "fsm/fsm_stream_communicator_if.h"

namespace framework_bench {

namespace {

using fsm::EventDispatcher;
using fsm::Fsm;
using fsm::FsmEventData;

struct Number : FsmEventData {
    explicit Number(std::uint64_t number) : value(number) {}
    const std::uint64_t value;
};

/// A machine with one working state, which watches the idle descriptor.
class Machine : public Fsm {
public:
    explicit Machine(const char* name) : Fsm(name) {}

protected:
    template <typename Derived>
    void Start(const std::shared_ptr<EventDispatcher>& dispatcher,
               void (Derived::*state)(int, int)) {
        SetupFsm(dispatcher, nullptr, 0);
        dispatcher->AddIoDescriptor(shared_from_this(), mIdle.Get(), 0);
        ConfigureIoDescriptor(mIdle.Get(), EventDispatcher::kIoRead, true);
        SetFsmState(state, "StateWorking");
    }
    void OnTerminate() override {}

    void Finish() {
        const std::shared_ptr<EventDispatcher> dispatcher = GetDispatcher();
        StopFsm();
        dispatcher->ExitDispatching(true);
    }

private:
    IdleDescriptor mIdle;
};

/// Counts what it gets, and posts itself the next event if it is to.
class Counter : public Machine {
public:
    Counter(std::uint64_t count, bool postNext)
        : Machine("Counter"), mSequence(count), mPostNext(postNext) {}

    void StartFsm(const std::shared_ptr<EventDispatcher>& dispatcher) {
        Start(dispatcher, &Counter::StateCounting);
    }
    void Post(std::uint64_t number) { RaiseEvent(1, 0, std::make_unique<Number>(number)); }
    const Sequence& Result() const { return mSequence; }

private:
    void StateCounting(int /*eventId*/, int /*eventInfo*/) {
        const std::uint64_t number = TakeEventData<Number>()->value;
        if (!mSequence.Take(number)) {
            Finish();
        } else if (mPostNext) {
            Post(number + 1);
        }
    }

    Sequence mSequence;
    bool mPostNext;
};

class TimerUser : public Machine {
public:
    TimerUser() : Machine("TimerUser") {}

    void StartFsm(const std::shared_ptr<EventDispatcher>& dispatcher) {
        Start(dispatcher, &TimerUser::StateWaiting);
    }
    void SetAll() {
        for (std::size_t index = 0; index < mTimers.Size(); ++index) {
            RaiseTimerEvent(1, 0, mTimers.Delay(index), std::make_unique<Number>(index));
        }
    }
    const TimerSet& Result() const { return mTimers; }

private:
    void StateWaiting(int /*eventId*/, int /*eventInfo*/) {
        if (!mTimers.Fired(TakeEventData<Number>()->value)) {
            Finish();
        }
    }

    TimerSet mTimers;
};

/// Handles what a foreign thread raises.
class AsyncReceiver : public Machine {
public:
    AsyncReceiver(const AsyncWork& work, Credits& credits)
        : Machine("AsyncReceiver"), mSequence(work.events), mCredits(credits) {}

    void StartFsm(const std::shared_ptr<EventDispatcher>& dispatcher) {
        Start(dispatcher, &AsyncReceiver::StateReceiving);
    }
    const Sequence& Result() const { return mSequence; }

private:
    void StateReceiving(int /*eventId*/, int /*eventInfo*/) {
        const bool more = mSequence.Take(TakeEventData<Number>()->value);
        mCredits.Give();
        if (!more) {
            Finish();
        }
    }

    Sequence mSequence;
    Credits& mCredits;
};

/// Reads a stream through a communicator.
class StreamReader : public Machine {
public:
    StreamReader() : Machine("StreamReader") {}

    void StartFsm(const std::shared_ptr<EventDispatcher>& dispatcher, std::size_t readSize) {
        Start(dispatcher, &StreamReader::StateReading);
        mCommunicator = fsm::FsmStreamCommunicatorIf::Create(mStream.TakeNearEnd(), "Stream");
        mCommunicator->StartFsm(dispatcher, shared_from_this(), 1);
        mCommunicator->SetupReadContinued(readSize);
        mStream.Start();
    }
    const ByteStream& Result() const { return mStream; }

private:
    void StateReading(int /*eventId*/, int eventInfo) {
        Check(eventInfo == fsm::FsmStreamCommunicatorIf::eReadContinuedData, "no data came");
        const auto payload = TakeEventData<fsm::FsmEventDataStreamCommunicator>();
        if (!mStream.Take(payload->data.data(), payload->data.size())) {
            mCommunicator->StopFsm();
            Finish();
        }
    }

    ByteStream mStream;
    std::shared_ptr<fsm::FsmStreamCommunicatorIf> mCommunicator;
};

/// Idles, with a timer or without, until it is told to end.
class Idler : public Machine {
public:
    Idler() : Machine("Idler") {}

    void StartFsm(const std::shared_ptr<EventDispatcher>& dispatcher, bool withTimer) {
        Start(dispatcher, &Idler::StateIdling);
        if (withTimer) {
            SetTimer();
        }
    }
    void EndFromAnyThread() { RaiseAsyncEvent(kEnd, 0, nullptr); }
    std::uint64_t Fired() const { return mFired; }

private:
    static constexpr int kTimer = 1;
    static constexpr int kEnd = 2;

    void SetTimer() { RaiseTimerEvent(kTimer, 0, kIdleTimerMillisec, nullptr); }

    void StateIdling(int eventId, int /*eventInfo*/) {
        if (eventId == kEnd) {
            Finish();
            return;
        }
        ++mFired;
        SetTimer();
    }

    std::uint64_t mFired{0};
};

std::shared_ptr<EventDispatcher> MakeDispatcher(bool createAsyncQueue) {
    return std::make_shared<EventDispatcher>("EventDispatcher", createAsyncQueue);
}

class Ours : public Contender {
public:
    double SelfPost() override { return Count(kSelfPosts, 1); }
    double Drain() override { return Count(kDrainEvents, kDrainEvents); }

    double Timers() override {
        const auto dispatcher = MakeDispatcher(false);
        const auto machine = std::make_shared<TimerUser>();
        machine->StartFsm(dispatcher);
        Stopwatch watch;
        watch.Start();
        machine->SetAll();
        dispatcher->DispatchEvents();
        watch.Pause();
        machine->Result().CheckComplete();
        return watch.Nanoseconds() / static_cast<double>(kTimers);
    }

    double SetAndClear(bool oldestFirst) override {
        const auto dispatcher = MakeDispatcher(false);
        const auto machine = std::make_shared<Counter>(1, false);
        machine->StartFsm(dispatcher);
        int cleared = 0;
        Stopwatch watch;
        watch.Start();
        for (int id = 0; id < kClearedTimers; ++id) {
            machine->RaiseTimerEvent(id, 0, kClearedTimerMillisec, std::make_unique<Number>(0));
        }
        for (int id = 0; id < kClearedTimers; ++id) {
            const int toClear = oldestFirst ? id : kClearedTimers - 1 - id;
            cleared += dispatcher->ClearEvent(machine, toClear, false) ? 1 : 0;
        }
        watch.Pause();
        Check(cleared == kClearedTimers && dispatcher->NextTimeoutMillisec() == -1,
              "not every timer was cleared");
        machine->StopFsm();
        return watch.Nanoseconds() / kClearedTimers;
    }

    double Async(const AsyncWork& work) override {
        const auto dispatcher = MakeDispatcher(true);
        Credits credits(work.lots, work.lotSize);
        const auto machine = std::make_shared<AsyncReceiver>(work, credits);
        machine->StartFsm(dispatcher);
        const double time = TimeAsync(
            work, credits,
            [&](std::uint64_t number) {
                machine->RaiseAsyncEvent(1, 0, std::make_unique<Number>(number));
            },
            [&] { dispatcher->DispatchEvents(); });
        machine->Result().CheckComplete();
        return time;
    }

    double ReadStream(std::size_t readSize) override {
        const auto dispatcher = MakeDispatcher(false);
        const auto machine = std::make_shared<StreamReader>();
        machine->StartFsm(dispatcher, readSize);
        dispatcher->DispatchEvents();
        machine->Result().CheckComplete();
        return machine->Result().NanosecondsPerRead(readSize);
    }

    IdleFigures IdleWithTimer() override {
        const auto machine = std::make_shared<Idler>();
        const IdleFigures figures = ObserveIdling(machine, true, kIdleTimerWindow);
        CheckIdleTimer(figures, machine->Fired());
        return figures;
    }

    IdleFigures Idle() override {
        const auto machine = std::make_shared<Idler>();
        return ObserveIdling(machine, false, kIdleWindow);
    }

private:
    /// Posts the first events and counts until all have come; each further one is posted by the
    /// handler of the one before.
    static double Count(std::uint64_t count, std::uint64_t posted) {
        const auto dispatcher = MakeDispatcher(false);
        const auto machine = std::make_shared<Counter>(count, posted < count);
        machine->StartFsm(dispatcher);
        Stopwatch watch;
        watch.Start();
        for (std::uint64_t number = 0; number < posted; ++number) {
            machine->Post(number);
        }
        dispatcher->DispatchEvents();
        watch.Pause();
        machine->Result().CheckComplete();
        return watch.Nanoseconds() / static_cast<double>(count);
    }

    static IdleFigures ObserveIdling(const std::shared_ptr<Idler>& machine, bool withTimer,
                                     int windowMillisec) {
        const auto dispatcher = MakeDispatcher(true);
        machine->StartFsm(dispatcher, withTimer);
        return IdleObserver(windowMillisec)
            .Observe([&] { dispatcher->DispatchEvents(); }, [&] { machine->EndFromAnyThread(); });
    }
};

}  // namespace

std::unique_ptr<Contender> MakeOurs() {
    return std::make_unique<Ours>();
}

}  // namespace framework_bench
