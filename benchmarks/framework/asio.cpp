// The work on Boost.Asio.

#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include "benchmarks/framework/contender.h"

namespace framework_bench {

namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using std::chrono::milliseconds;

/// As many threads run the loop.
constexpr int kThreads = 1;

struct Number {
    std::uint64_t value;
};

/// Watches the idle descriptor.
class Worker {
public:
    explicit Worker(asio::io_context& loop) : mLoop(loop), mWatched(loop, mIdle.Duplicate()) {
        mWatched.async_wait(asio::posix::stream_descriptor::wait_read, [](error_code) {});
    }

protected:
    asio::io_context& mLoop;

private:
    IdleDescriptor mIdle;
    asio::posix::stream_descriptor mWatched;
};

class Counter : public Worker {
public:
    Counter(asio::io_context& loop, std::uint64_t count, bool postNext)
        : Worker(loop), mSequence(count), mPostNext(postNext) {}

    void Post(std::uint64_t number) {
        asio::post(mLoop, [this, data = std::make_unique<Number>(Number{number})] {
            Handle(data->value);
        });
    }
    const Sequence& Result() const { return mSequence; }

private:
    void Handle(std::uint64_t number) {
        if (!mSequence.Take(number)) {
            mLoop.stop();
        } else if (mPostNext) {
            Post(number + 1);
        }
    }

    Sequence mSequence;
    bool mPostNext;
};

class TimerUser : public Worker {
public:
    using Worker::Worker;

    void SetAll() {
        for (std::size_t index = 0; index < mTimers.Size(); ++index) {
            auto timer =
                std::make_unique<asio::steady_timer>(mLoop, milliseconds(mTimers.Delay(index)));
            asio::steady_timer& waiting = *timer;
            // Lives until it has fired.
            waiting.async_wait([this, index, kept = std::move(timer)](error_code error) {
                if (!error && !mTimers.Fired(index)) {
                    mLoop.stop();
                }
            });
        }
    }
    const TimerSet& Result() const { return mTimers; }

private:
    TimerSet mTimers;
};

class AsyncReceiver : public Worker {
public:
    AsyncReceiver(asio::io_context& loop, const AsyncWork& work, Credits& credits)
        : Worker(loop), mSequence(work.events), mCredits(credits) {}

    void PostFromAnyThread(std::uint64_t number) {
        asio::post(mLoop, [this, data = std::make_unique<Number>(Number{number})] {
            Handle(data->value);
        });
    }
    const Sequence& Result() const { return mSequence; }

private:
    void Handle(std::uint64_t number) {
        const bool more = mSequence.Take(number);
        mCredits.Give();
        if (!more) {
            mLoop.stop();
        }
    }

    Sequence mSequence;
    Credits& mCredits;
};

class StreamReader : public Worker {
public:
    StreamReader(asio::io_context& loop, std::size_t readSize)
        : Worker(loop),
          mReadSize(readSize),
          mSocket(loop, asio::local::stream_protocol(), mStream.TakeNearEnd()) {}

    void Start() {
        mStream.Start();
        Read();
    }
    const ByteStream& Result() const { return mStream; }

private:
    void Read() {
        std::unique_ptr<unsigned char[]> data(new unsigned char[mReadSize]);
        const auto buffer = asio::buffer(data.get(), mReadSize);
        mSocket.async_read_some(
            buffer, [this, taken = std::move(data)](error_code error, std::size_t size) {
                if (error || !mStream.Take(taken.get(), size)) {
                    mLoop.stop();
                } else {
                    Read();
                }
            });
    }

    ByteStream mStream;
    std::size_t mReadSize;
    asio::local::stream_protocol::socket mSocket;
};

class Idler : public Worker {
public:
    explicit Idler(asio::io_context& loop) : Worker(loop), mTimer(loop) {}

    void SetTimer() {
        mTimer.expires_after(milliseconds(kIdleTimerMillisec));
        mTimer.async_wait([this](error_code error) {
            if (!error) {
                ++mFired;
                SetTimer();
            }
        });
    }
    void EndFromAnyThread() {
        asio::post(mLoop, [this] { mLoop.stop(); });
    }
    std::uint64_t Fired() const { return mFired; }

private:
    asio::steady_timer mTimer;
    std::uint64_t mFired{0};
};

class Asio : public Contender {
public:
    double SelfPost() override { return Count(kSelfPosts, 1); }
    double Drain() override { return Count(kDrainEvents, kDrainEvents); }

    double Timers() override {
        asio::io_context loop(kThreads);
        TimerUser user(loop);
        Stopwatch watch;
        watch.Start();
        user.SetAll();
        loop.run();
        watch.Pause();
        user.Result().CheckComplete();
        return watch.Nanoseconds() / static_cast<double>(kTimers);
    }

    double SetAndClear(bool oldestFirst) override {
        asio::io_context loop(kThreads);
        const Worker worker(loop);
        std::vector<std::unique_ptr<asio::steady_timer>> timers(kClearedTimers);
        int cleared = 0;
        Stopwatch watch;
        watch.Start();
        for (auto& timer : timers) {
            timer = std::make_unique<asio::steady_timer>(loop, milliseconds(kClearedTimerMillisec));
            timer->async_wait([&cleared](error_code error) {
                cleared += error == asio::error::operation_aborted ? 1 : 0;
            });
        }
        for (std::size_t i = 0; i < timers.size(); ++i) {
            timers[oldestFirst ? i : timers.size() - 1 - i].reset();
        }
        // Here the handlers are told, and given back.
        loop.poll();
        watch.Pause();
        Check(cleared == kClearedTimers, "not every timer was cleared");
        return watch.Nanoseconds() / kClearedTimers;
    }

    double Async(const AsyncWork& work) override {
        asio::io_context loop(kThreads);
        Credits credits(work.lots, work.lotSize);
        AsyncReceiver receiver(loop, work, credits);
        const double time = TimeAsync(
            work, credits, [&](std::uint64_t number) { receiver.PostFromAnyThread(number); },
            [&] { loop.run(); });
        receiver.Result().CheckComplete();
        return time;
    }

    double ReadStream(std::size_t readSize) override {
        asio::io_context loop(kThreads);
        StreamReader reader(loop, readSize);
        reader.Start();
        loop.run();
        reader.Result().CheckComplete();
        return reader.Result().NanosecondsPerRead(readSize);
    }

    IdleFigures IdleWithTimer() override {
        asio::io_context loop(kThreads);
        Idler idler(loop);
        idler.SetTimer();
        const IdleFigures figures = ObserveIdling(loop, idler, kIdleTimerWindow);
        CheckIdleTimer(figures, idler.Fired());
        return figures;
    }

    IdleFigures Idle() override {
        asio::io_context loop(kThreads);
        Idler idler(loop);
        return ObserveIdling(loop, idler, kIdleWindow);
    }

private:
    static double Count(std::uint64_t count, std::uint64_t posted) {
        asio::io_context loop(kThreads);
        Counter counter(loop, count, posted < count);
        Stopwatch watch;
        watch.Start();
        for (std::uint64_t number = 0; number < posted; ++number) {
            counter.Post(number);
        }
        loop.run();
        watch.Pause();
        counter.Result().CheckComplete();
        return watch.Nanoseconds() / static_cast<double>(count);
    }

    static IdleFigures ObserveIdling(asio::io_context& loop, Idler& idler, int windowMillisec) {
        return IdleObserver(windowMillisec)
            .Observe([&] { loop.run(); }, [&] { idler.EndFromAnyThread(); });
    }
};

}  // namespace

std::unique_ptr<Contender> MakeAsio() {
    return std::make_unique<Asio>();
}

}  // namespace framework_bench
