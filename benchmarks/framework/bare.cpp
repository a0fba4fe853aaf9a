// System calls and containers in the framework's protocol, and nothing around them: events in a
// multiset ordered by due time, payloads and receivers owned by the events, one `poll` before each
// run of due events that leave the queue alone, one pipe byte for each event of another thread.

#include <array>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "benchmarks/framework/contender.h"

namespace framework_bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::nanoseconds kDueMargin{999'999};

struct Payload {
    Payload() = default;
    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;
    virtual ~Payload() = default;
};

struct Number : Payload {
    explicit Number(std::uint64_t number) : value(number) {}
    const std::uint64_t value;
};

struct Bytes : Payload {
    std::vector<unsigned char> data;
};

class Receiver : public std::enable_shared_from_this<Receiver> {
public:
    Receiver() = default;
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    virtual ~Receiver() = default;
    virtual void Handle(int id, int info) = 0;
};

class Loop {
public:
    void Watch(int descriptor, int id, std::shared_ptr<Receiver> receiver) {
        mPollFds.push_back({descriptor, POLLIN, 0});
        mWatched.push_back({id, std::move(receiver)});
    }

    void Post(std::shared_ptr<Receiver> receiver, int id, int info, std::unique_ptr<Payload> data) {
        Insert(std::move(receiver), id, info, std::move(data), ReadClock());
    }

    void PostLater(std::shared_ptr<Receiver> receiver, int id, int info,
                   std::unique_ptr<Payload> data, int millisec) {
        Insert(std::move(receiver), id, info, std::move(data),
               ReadClock() + std::chrono::milliseconds(millisec));
    }

    bool Clear(const Receiver* receiver, int id) {
        for (auto event = mEvents.begin(); event != mEvents.end(); ++event) {
            if (event->receiver.get() == receiver && event->id == id) {
                // Destroyed when the queue is whole again.
                const auto removed = mEvents.extract(event);
                mModified = true;
                return true;
            }
        }
        return false;
    }

    bool IsEmpty() const { return mEvents.empty(); }

    std::unique_ptr<Payload> TakeData() { return std::move(mData); }

    void Deliver(Receiver& receiver, int id, int info, std::unique_ptr<Payload> data) {
        mData = std::move(data);
        receiver.Handle(id, info);
    }

    void Exit() { mExit = true; }

    void Run() {
        while (!mExit) {
            const int ready = poll(mPollFds.data(), mPollFds.size(), Timeout());
            if (ready < 0) {
                continue;
            }
            if (ready > 0) {
                ServeDescriptors();
            }
            DeliverDue();
        }
    }

private:
    struct Event {
        std::shared_ptr<Receiver> receiver;
        int id;
        int info;
        std::unique_ptr<Payload> data;
        Clock::time_point time;
    };

    struct Earlier {
        bool operator()(const Event& a, const Event& b) const { return a.time < b.time; }
    };

    struct Watched {
        int id;
        std::shared_ptr<Receiver> receiver;
    };

    void Insert(std::shared_ptr<Receiver> receiver, int id, int info, std::unique_ptr<Payload> data,
                Clock::time_point time) {
        mEvents.insert(mEvents.end(), Event{std::move(receiver), id, info, std::move(data), time});
        mModified = true;
    }

    Clock::time_point ReadClock() {
        mLatestTime = Clock::now();
        return mLatestTime;
    }

    /// Time to the first event; the clock is read only if the event was not due before.
    std::chrono::nanoseconds TimeToFirst() {
        const Clock::time_point due = mEvents.begin()->time;
        return due <= mLatestTime ? std::chrono::nanoseconds::zero() : due - ReadClock();
    }

    int Timeout() {
        if (mEvents.empty()) {
            return -1;
        }
        const std::chrono::nanoseconds left = TimeToFirst();
        return left < -kDueMargin
                   ? 0
                   : static_cast<int>(
                         std::chrono::duration_cast<std::chrono::milliseconds>(left).count());
    }

    void ServeDescriptors() {
        for (std::size_t i = 0; i < mPollFds.size() && !mExit; ++i) {
            if (mPollFds[i].revents == 0) {
                continue;
            }
            // It may give itself up while it runs.
            const std::shared_ptr<Receiver> receiver = mWatched[i].receiver;
            Deliver(*receiver, mWatched[i].id, mPollFds[i].revents, nullptr);
        }
    }

    void DeliverDue() {
        mModified = false;
        while (!mExit && !mModified && !mEvents.empty() && TimeToFirst() <= kDueMargin) {
            auto node = mEvents.extract(mEvents.begin());
            Event& event = node.value();
            Deliver(*event.receiver, event.id, event.info, std::move(event.data));
            mData.reset();
        }
    }

    std::vector<pollfd> mPollFds;
    std::vector<Watched> mWatched;
    std::multiset<Event, Earlier> mEvents;
    std::unique_ptr<Payload> mData;
    Clock::time_point mLatestTime{Clock::time_point::min()};
    bool mModified{false};
    bool mExit{false};
};

/// The door for other threads: a locked deque with one byte in a pipe for each entry.
class AsyncQueue : public Receiver {
public:
    explicit AsyncQueue(Loop& loop) : mLoop(loop) {
        CheckCall(pipe2(mPipe.data(), O_CLOEXEC | O_NONBLOCK), "pipe2");
    }
    ~AsyncQueue() override {
        close(mPipe[0]);
        close(mPipe[1]);
    }

    void Start() { mLoop.Watch(mPipe[0], 0, shared_from_this()); }

    void Post(std::shared_ptr<Receiver> receiver, int id, int info, std::unique_ptr<Payload> data) {
        const std::lock_guard<std::mutex> lock(mMutex);
        const unsigned char command = 0;
        if (write(mPipe[1], &command, 1) == 1) {
            mEvents.push_back({std::move(receiver), id, info, std::move(data)});
        }
    }

    void Handle(int /*id*/, int /*info*/) override {
        Event event;
        if (Pop(event)) {
            mLoop.Deliver(*event.receiver, event.id, event.info, std::move(event.data));
        }
    }

private:
    struct Event {
        std::shared_ptr<Receiver> receiver;
        int id;
        int info;
        std::unique_ptr<Payload> data;
    };

    bool Pop(Event& event) {
        const std::lock_guard<std::mutex> lock(mMutex);
        unsigned char command = 0;
        if (read(mPipe[0], &command, 1) != 1 || command != 0 || mEvents.empty()) {
            return false;
        }
        event = std::move(mEvents.front());
        mEvents.pop_front();
        return true;
    }

    Loop& mLoop;
    std::array<int, 2> mPipe{-1, -1};
    std::mutex mMutex;
    std::deque<Event> mEvents;
};

/// A receiver that watches the idle descriptor, and takes numbers.
class Worker : public Receiver {
public:
    explicit Worker(Loop& loop) : mLoop(loop) {}

    void Start() { mLoop.Watch(mIdle.Get(), 0, shared_from_this()); }

protected:
    std::uint64_t TakeNumber() {
        return std::unique_ptr<Number>(static_cast<Number*>(mLoop.TakeData().release()))->value;
    }

    Loop& mLoop;

private:
    IdleDescriptor mIdle;
};

class Counter : public Worker {
public:
    Counter(Loop& loop, std::uint64_t count, bool postNext)
        : Worker(loop), mSequence(count), mPostNext(postNext) {}

    void Post(std::uint64_t number) {
        mLoop.Post(shared_from_this(), 1, 0, std::make_unique<Number>(number));
    }
    const Sequence& Result() const { return mSequence; }

    void Handle(int /*id*/, int /*info*/) override {
        const std::uint64_t number = TakeNumber();
        if (!mSequence.Take(number)) {
            mLoop.Exit();
        } else if (mPostNext) {
            Post(number + 1);
        }
    }

private:
    Sequence mSequence;
    bool mPostNext;
};

class TimerUser : public Worker {
public:
    using Worker::Worker;

    void SetAll() {
        for (std::size_t index = 0; index < mTimers.Size(); ++index) {
            mLoop.PostLater(shared_from_this(), 1, 0, std::make_unique<Number>(index),
                            mTimers.Delay(index));
        }
    }
    const TimerSet& Result() const { return mTimers; }

    void Handle(int /*id*/, int /*info*/) override {
        if (!mTimers.Fired(TakeNumber())) {
            mLoop.Exit();
        }
    }

private:
    TimerSet mTimers;
};

class AsyncReceiver : public Worker {
public:
    AsyncReceiver(Loop& loop, const AsyncWork& work, Credits& credits)
        : Worker(loop), mSequence(work.events), mCredits(credits) {}

    const Sequence& Result() const { return mSequence; }

    void Handle(int /*id*/, int /*info*/) override {
        const bool more = mSequence.Take(TakeNumber());
        mCredits.Give();
        if (!more) {
            mLoop.Exit();
        }
    }

private:
    Sequence mSequence;
    Credits& mCredits;
};

/// Reads a socket; what it has read goes to the target as an event.
class SocketReader : public Receiver {
public:
    SocketReader(Loop& loop, int socket, std::size_t readSize, std::shared_ptr<Receiver> target)
        : mLoop(loop), mSocket(socket), mBuffer(readSize), mTarget(std::move(target)) {}
    ~SocketReader() override { close(mSocket); }

    void Start() { mLoop.Watch(mSocket, 0, shared_from_this()); }

    void Handle(int /*id*/, int /*info*/) override {
        const std::size_t size = mBuffer.size();
        const ssize_t result = recv(mSocket, mBuffer.data(), size, 0);
        Check(result > 0, "recv gives no bytes");
        mBuffer.resize(static_cast<std::size_t>(result));
        auto payload = std::make_unique<Bytes>();
        payload->data = std::move(mBuffer);
        mLoop.Post(mTarget, 1, 0, std::move(payload));
        mBuffer.resize(size);
    }

private:
    Loop& mLoop;
    int mSocket;
    std::vector<unsigned char> mBuffer;
    std::shared_ptr<Receiver> mTarget;
};

class StreamReader : public Worker {
public:
    using Worker::Worker;

    void StartReading(std::size_t readSize) {
        Start();
        std::make_shared<SocketReader>(mLoop, mStream.TakeNearEnd(), readSize, shared_from_this())
            ->Start();
        mStream.Start();
    }
    const ByteStream& Result() const { return mStream; }

    void Handle(int /*id*/, int /*info*/) override {
        const std::unique_ptr<Bytes> bytes(static_cast<Bytes*>(mLoop.TakeData().release()));
        if (!mStream.Take(bytes->data.data(), bytes->data.size())) {
            mLoop.Exit();
        }
    }

private:
    ByteStream mStream;
};

class Idler : public Worker {
public:
    using Worker::Worker;

    static constexpr int kTimer = 1;
    static constexpr int kEnd = 2;

    void SetTimer() { mLoop.PostLater(shared_from_this(), kTimer, 0, nullptr, kIdleTimerMillisec); }
    std::uint64_t Fired() const { return mFired; }

    void Handle(int id, int /*info*/) override {
        if (id == kEnd) {
            mLoop.Exit();
            return;
        }
        ++mFired;
        SetTimer();
    }

private:
    std::uint64_t mFired{0};
};

class Bare : public Contender {
public:
    double SelfPost() override { return Count(kSelfPosts, 1); }
    double Drain() override { return Count(kDrainEvents, kDrainEvents); }

    double Timers() override {
        Loop loop;
        const auto user = std::make_shared<TimerUser>(loop);
        user->Start();
        Stopwatch watch;
        watch.Start();
        user->SetAll();
        loop.Run();
        watch.Pause();
        user->Result().CheckComplete();
        return watch.Nanoseconds() / static_cast<double>(kTimers);
    }

    double SetAndClear(bool oldestFirst) override {
        Loop loop;
        const auto receiver = std::make_shared<Counter>(loop, 1, false);
        receiver->Start();
        int cleared = 0;
        Stopwatch watch;
        watch.Start();
        for (int id = 0; id < kClearedTimers; ++id) {
            loop.PostLater(receiver, id, 0, std::make_unique<Number>(0), kClearedTimerMillisec);
        }
        for (int id = 0; id < kClearedTimers; ++id) {
            const int toClear = oldestFirst ? id : kClearedTimers - 1 - id;
            cleared += loop.Clear(receiver.get(), toClear) ? 1 : 0;
        }
        watch.Pause();
        Check(cleared == kClearedTimers && loop.IsEmpty(), "not every timer was cleared");
        return watch.Nanoseconds() / kClearedTimers;
    }

    double Async(const AsyncWork& work) override {
        Loop loop;
        const auto queue = std::make_shared<AsyncQueue>(loop);
        queue->Start();
        Credits credits(work.lots, work.lotSize);
        const auto receiver = std::make_shared<AsyncReceiver>(loop, work, credits);
        receiver->Start();
        const double time = TimeAsync(
            work, credits,
            [&](std::uint64_t number) {
                queue->Post(receiver, 1, 0, std::make_unique<Number>(number));
            },
            [&] { loop.Run(); });
        receiver->Result().CheckComplete();
        return time;
    }

    double ReadStream(std::size_t readSize) override {
        Loop loop;
        const auto reader = std::make_shared<StreamReader>(loop);
        reader->StartReading(readSize);
        loop.Run();
        reader->Result().CheckComplete();
        return reader->Result().NanosecondsPerRead(readSize);
    }

    IdleFigures IdleWithTimer() override {
        Loop loop;
        const auto idler = std::make_shared<Idler>(loop);
        idler->SetTimer();
        const IdleFigures figures = ObserveIdling(loop, idler, kIdleTimerWindow);
        CheckIdleTimer(figures, idler->Fired());
        return figures;
    }

    IdleFigures Idle() override {
        Loop loop;
        return ObserveIdling(loop, std::make_shared<Idler>(loop), kIdleWindow);
    }

private:
    static double Count(std::uint64_t count, std::uint64_t posted) {
        Loop loop;
        const auto counter = std::make_shared<Counter>(loop, count, posted < count);
        counter->Start();
        Stopwatch watch;
        watch.Start();
        for (std::uint64_t number = 0; number < posted; ++number) {
            counter->Post(number);
        }
        loop.Run();
        watch.Pause();
        counter->Result().CheckComplete();
        return watch.Nanoseconds() / static_cast<double>(count);
    }

    static IdleFigures ObserveIdling(Loop& loop, const std::shared_ptr<Idler>& idler,
                                     int windowMillisec) {
        const auto queue = std::make_shared<AsyncQueue>(loop);
        queue->Start();
        idler->Start();
        return IdleObserver(windowMillisec)
            .Observe([&] { loop.Run(); }, [&] { queue->Post(idler, Idler::kEnd, 0, nullptr); });
    }
};

}  // namespace

std::unique_ptr<Contender> MakeBare() {
    return std::make_unique<Bare>();
}

}  // namespace framework_bench
