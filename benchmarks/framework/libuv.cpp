// The work on libuv. It has no queue of events: what is posted waits in a deque that an idle handle
// works off, one round of the loop at a time, and what comes from another thread in a locked one.

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <uv.h>

#include "benchmarks/framework/contender.h"

namespace framework_bench {

namespace {

struct Number {
    std::uint64_t value;
};

void CheckUv(int result, const std::string& call) {
    Check(result >= 0, call + ": " + (result < 0 ? uv_strerror(result) : ""));
}

class Loop {
public:
    Loop() { CheckUv(uv_loop_init(&mLoop), "uv_loop_init"); }
    ~Loop() { uv_loop_close(&mLoop); }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    uv_loop_t* Get() { return &mLoop; }
    void Run() { uv_run(&mLoop, UV_RUN_DEFAULT); }
    void Exit() { uv_stop(&mLoop); }

    /// Closes all handles; the owner of one calls it while it is still whole.
    void CloseHandles() {
        uv_walk(
            &mLoop,
            [](uv_handle_t* handle, void* /*unused*/) {
                if (uv_is_closing(handle) == 0) {
                    uv_close(handle, nullptr);
                }
            },
            nullptr);
        while (uv_run(&mLoop, UV_RUN_DEFAULT) != 0) {
        }
    }

private:
    uv_loop_t mLoop{};
};

/// Watches the idle descriptor. Who derives from it and has handles of its own closes them, too.
class Worker {
public:
    explicit Worker(Loop& loop) : mLoop(loop) {
        CheckUv(uv_poll_init(mLoop.Get(), &mPoll, mIdle.Get()), "uv_poll_init");
        CheckUv(uv_poll_start(&mPoll, UV_READABLE, [](uv_poll_t*, int, int) {}), "uv_poll_start");
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker() { mLoop.CloseHandles(); }

protected:
    Loop& mLoop;

private:
    IdleDescriptor mIdle;
    uv_poll_t mPoll{};
};

class Counter : public Worker {
public:
    Counter(Loop& loop, std::uint64_t count, bool postNext)
        : Worker(loop), mSequence(count), mPostNext(postNext) {
        CheckUv(uv_idle_init(mLoop.Get(), &mDeliver), "uv_idle_init");
        mDeliver.data = this;
    }
    ~Counter() { mLoop.CloseHandles(); }

    void Post(std::uint64_t number) {
        mQueue.push_back(std::make_unique<Number>(Number{number}));
        uv_idle_start(&mDeliver,
                      [](uv_idle_t* idle) { static_cast<Counter*>(idle->data)->Deliver(); });
    }
    const Sequence& Result() const { return mSequence; }

private:
    void Deliver() {
        // What is posted meanwhile waits for the next round, so that descriptors are served.
        for (std::size_t left = mQueue.size(); left > 0; --left) {
            const std::unique_ptr<Number> number = std::move(mQueue.front());
            mQueue.pop_front();
            Handle(number->value);
        }
        if (mQueue.empty()) {
            uv_idle_stop(&mDeliver);
        }
    }

    void Handle(std::uint64_t number) {
        if (!mSequence.Take(number)) {
            mLoop.Exit();
        } else if (mPostNext) {
            Post(number + 1);
        }
    }

    Sequence mSequence;
    bool mPostNext;
    std::deque<std::unique_ptr<Number>> mQueue;
    uv_idle_t mDeliver{};
};

class TimerUser : public Worker {
public:
    using Worker::Worker;

    void SetAll() {
        for (std::size_t index = 0; index < mTimers.Size(); ++index) {
            auto* timer = new Timer{{}, this, index};
            uv_timer_init(mLoop.Get(), &timer->handle);
            timer->handle.data = timer;
            // The delay counts from now, not from when the loop last woke up.
            uv_update_time(mLoop.Get());
            uv_timer_start(&timer->handle, &TimerUser::Fire,
                           static_cast<std::uint64_t>(mTimers.Delay(index)), 0);
        }
    }
    const TimerSet& Result() const { return mTimers; }

private:
    /// Lives until it has fired and is closed.
    struct Timer {
        uv_timer_t handle;
        TimerUser* user;
        std::size_t index;
    };

    static void Fire(uv_timer_t* handle) {
        const auto* timer = static_cast<Timer*>(handle->data);
        TimerUser& user = *timer->user;
        const bool more = user.mTimers.Fired(timer->index);
        uv_close(reinterpret_cast<uv_handle_t*>(handle),
                 [](uv_handle_t* closed) { delete static_cast<Timer*>(closed->data); });
        if (!more) {
            user.mLoop.Exit();
        }
    }

    TimerSet mTimers;
};

/// Takes numbers, or the wish to end, from another thread.
template <typename Data>
class Inbox {
public:
    Inbox(Loop& loop, std::function<void(Data)> handle) : mHandle(std::move(handle)) {
        const uv_async_cb deliver = [](uv_async_t* async) {
            static_cast<Inbox*>(async->data)->Deliver();
        };
        CheckUv(uv_async_init(loop.Get(), &mWake, deliver), "uv_async_init");
        mWake.data = this;
    }

    void Post(Data data) {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mQueue.push_back(std::move(data));
        }
        uv_async_send(&mWake);
    }

private:
    /// One wake-up may stand for many.
    void Deliver() {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mBatch.swap(mQueue);
        }
        for (Data& data : mBatch) {
            mHandle(std::move(data));
        }
        mBatch.clear();
    }

    std::function<void(Data)> mHandle;
    std::mutex mMutex;
    std::deque<Data> mQueue;
    std::deque<Data> mBatch;
    uv_async_t mWake{};
};

class AsyncReceiver : public Worker {
public:
    AsyncReceiver(Loop& loop, const AsyncWork& work, Credits& credits)
        : Worker(loop),
          mSequence(work.events),
          mCredits(credits),
          mInbox(loop, [this](std::unique_ptr<Number> number) { Handle(std::move(number)); }) {}
    ~AsyncReceiver() { mLoop.CloseHandles(); }

    void PostFromAnyThread(std::uint64_t number) {
        mInbox.Post(std::make_unique<Number>(Number{number}));
    }
    const Sequence& Result() const { return mSequence; }

private:
    void Handle(std::unique_ptr<Number> number) {
        const bool more = mSequence.Take(number->value);
        number.reset();
        mCredits.Give();
        if (!more) {
            mLoop.Exit();
        }
    }

    Sequence mSequence;
    Credits& mCredits;
    Inbox<std::unique_ptr<Number>> mInbox;
};

class StreamReader : public Worker {
public:
    StreamReader(Loop& loop, std::size_t readSize) : Worker(loop), mReadSize(readSize) {
        CheckUv(uv_pipe_init(mLoop.Get(), &mSocket, 0), "uv_pipe_init");
        CheckUv(uv_pipe_open(&mSocket, mStream.TakeNearEnd()), "uv_pipe_open");
        mSocket.data = this;
    }
    ~StreamReader() { mLoop.CloseHandles(); }

    void Start() {
        mStream.Start();
        const uv_alloc_cb allocate = [](uv_handle_t* handle, std::size_t /*hint*/,
                                        uv_buf_t* buffer) {
            *buffer = static_cast<StreamReader*>(handle->data)->NewBuffer();
        };
        const uv_read_cb take = [](uv_stream_t* stream, ssize_t size, const uv_buf_t* /*buffer*/) {
            static_cast<StreamReader*>(stream->data)->Handle(size);
        };
        uv_read_start(reinterpret_cast<uv_stream_t*>(&mSocket), allocate, take);
    }
    const ByteStream& Result() const { return mStream; }

private:
    uv_buf_t NewBuffer() {
        mBuffer.reset(new char[mReadSize]);
        return uv_buf_init(mBuffer.get(), static_cast<unsigned int>(mReadSize));
    }

    void Handle(ssize_t size) {
        const std::unique_ptr<char[]> data = std::move(mBuffer);
        if (size == 0) {
            return;
        }
        if (size < 0 || !mStream.Take(reinterpret_cast<const unsigned char*>(data.get()),
                                      static_cast<std::size_t>(size))) {
            uv_read_stop(reinterpret_cast<uv_stream_t*>(&mSocket));
            mLoop.Exit();
        }
    }

    ByteStream mStream;
    std::size_t mReadSize;
    std::unique_ptr<char[]> mBuffer;
    uv_pipe_t mSocket{};
};

class Idler : public Worker {
public:
    explicit Idler(Loop& loop) : Worker(loop), mInbox(loop, [this](bool) { mLoop.Exit(); }) {
        CheckUv(uv_timer_init(mLoop.Get(), &mTimer), "uv_timer_init");
        mTimer.data = this;
    }
    ~Idler() { mLoop.CloseHandles(); }

    void StartTimer() {
        uv_timer_start(
            &mTimer, [](uv_timer_t* timer) { ++static_cast<Idler*>(timer->data)->mFired; },
            kIdleTimerMillisec, kIdleTimerMillisec);
    }
    void EndFromAnyThread() { mInbox.Post(true); }
    std::uint64_t Fired() const { return mFired; }

private:
    Inbox<bool> mInbox;
    uv_timer_t mTimer{};
    std::uint64_t mFired{0};
};

class Libuv : public Contender {
public:
    double SelfPost() override { return Count(kSelfPosts, 1); }
    double Drain() override { return Count(kDrainEvents, kDrainEvents); }

    double Timers() override {
        Loop loop;
        TimerUser user(loop);
        Stopwatch watch;
        watch.Start();
        user.SetAll();
        loop.Run();
        watch.Pause();
        user.Result().CheckComplete();
        return watch.Nanoseconds() / static_cast<double>(kTimers);
    }

    double SetAndClear(bool oldestFirst) override {
        Loop loop;
        const Worker worker(loop);
        std::vector<uv_timer_t*> timers(kClearedTimers);
        int cleared = 0;
        Stopwatch watch;
        watch.Start();
        for (uv_timer_t*& timer : timers) {
            timer = new uv_timer_t{};
            timer->data = &cleared;
            uv_timer_init(loop.Get(), timer);
            uv_timer_start(
                timer, [](uv_timer_t*) {}, kClearedTimerMillisec, 0);
        }
        for (std::size_t i = 0; i < timers.size(); ++i) {
            Clear(timers[oldestFirst ? i : timers.size() - 1 - i]);
        }
        // Here the handles are given back.
        uv_run(loop.Get(), UV_RUN_NOWAIT);
        watch.Pause();
        Check(cleared == kClearedTimers, "not every timer was cleared");
        return watch.Nanoseconds() / kClearedTimers;
    }

    double Async(const AsyncWork& work) override {
        Loop loop;
        Credits credits(work.lots, work.lotSize);
        AsyncReceiver receiver(loop, work, credits);
        const double time = TimeAsync(
            work, credits, [&](std::uint64_t number) { receiver.PostFromAnyThread(number); },
            [&] { loop.Run(); });
        receiver.Result().CheckComplete();
        return time;
    }

    double ReadStream(std::size_t readSize) override {
        Loop loop;
        StreamReader reader(loop, readSize);
        reader.Start();
        loop.Run();
        reader.Result().CheckComplete();
        return reader.Result().NanosecondsPerRead(readSize);
    }

    IdleFigures IdleWithTimer() override {
        Loop loop;
        Idler idler(loop);
        idler.StartTimer();
        const IdleFigures figures = ObserveIdling(loop, idler, kIdleTimerWindow);
        CheckIdleTimer(figures, idler.Fired());
        return figures;
    }

    IdleFigures Idle() override {
        Loop loop;
        Idler idler(loop);
        return ObserveIdling(loop, idler, kIdleWindow);
    }

private:
    static double Count(std::uint64_t count, std::uint64_t posted) {
        Loop loop;
        Counter counter(loop, count, posted < count);
        Stopwatch watch;
        watch.Start();
        for (std::uint64_t number = 0; number < posted; ++number) {
            counter.Post(number);
        }
        loop.Run();
        watch.Pause();
        counter.Result().CheckComplete();
        return watch.Nanoseconds() / static_cast<double>(count);
    }

    static void Clear(uv_timer_t* timer) {
        uv_timer_stop(timer);
        uv_close(reinterpret_cast<uv_handle_t*>(timer), [](uv_handle_t* closed) {
            ++*static_cast<int*>(closed->data);
            delete reinterpret_cast<uv_timer_t*>(closed);
        });
    }

    static IdleFigures ObserveIdling(Loop& loop, Idler& idler, int windowMillisec) {
        return IdleObserver(windowMillisec)
            .Observe([&] { loop.Run(); }, [&] { idler.EndFromAnyThread(); });
    }
};

}  // namespace

std::unique_ptr<Contender> MakeLibuv() {
    return std::make_unique<Libuv>();
}

}  // namespace framework_bench
