#pragma once

#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <sched.h>
#include <semaphore.h>
#include <sys/types.h>

/// What all contenders share: how much work an item is, and how it is timed and checked. Nothing in
/// here belongs to one of them.
namespace framework_bench {

constexpr std::uint64_t kSelfPosts = 100'000;
constexpr std::uint64_t kDrainEvents = 100'000;
constexpr std::uint64_t kAsyncEvents = 100'000;
constexpr std::uint64_t kPingPongs = 20'000;
constexpr std::size_t kTimers = 100'000;
constexpr int kMaxTimerMillisec = 50;
constexpr int kClearedTimers = 10'000;
constexpr int kClearedTimerMillisec = 60'000;
constexpr std::uint64_t kStreamBytes = 64ULL << 20U;
constexpr int kIdleTimerMillisec = 100;

/// The work was not done as the item asks.
class CheckFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline void Check(bool good, std::string_view what) {
    if (!good) {
        throw CheckFailure(std::string(what));
    }
}

/// As `Check`, for a system call that must not fail.
void CheckCall(long result, const std::string& call);

/// CPU time of this thread or of the process, in nanoseconds: what others do on the machine
/// meanwhile is not in it.
class Stopwatch {
public:
    explicit Stopwatch(clockid_t clock = CLOCK_THREAD_CPUTIME_ID) : mClock(clock) {}

    void Start() { mStart = Now(); }
    void Pause() { mTotal += Now() - mStart; }
    double Nanoseconds() const { return static_cast<double>(mTotal); }

private:
    std::int64_t Now() const {
        timespec time{};
        clock_gettime(mClock, &time);
        return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
    }

    clockid_t mClock;
    std::int64_t mStart{0};
    std::int64_t mTotal{0};
};

/// Checks that the numbers 0, 1, 2 ... arrive in this order.
class Sequence {
public:
    explicit Sequence(std::uint64_t count) : mCount(count) {}

    /// True while more are to come.
    bool Take(std::uint64_t number) {
        mInOrder = mInOrder && number == mNext;
        ++mNext;
        return mNext < mCount;
    }
    void CheckComplete() const;

private:
    std::uint64_t mCount;
    std::uint64_t mNext{0};
    bool mInOrder{true};
};

/// The timers of the item `timers`: their delays, and the order in which they fired.
class TimerSet {
public:
    TimerSet();

    std::size_t Size() const { return mDelays.size(); }
    int Delay(std::size_t index) const { return mDelays[index]; }

    /// True while more are to come.
    bool Fired(std::size_t index) {
        mFired.push_back(index);
        return mFired.size() < mDelays.size();
    }

    /// Each has fired once, and none before one that was set earlier with no longer a delay.
    void CheckComplete() const;

private:
    std::vector<int> mDelays;
    std::vector<std::size_t> mFired;
};

/// A descriptor that never becomes ready.
class IdleDescriptor {
public:
    IdleDescriptor();
    ~IdleDescriptor();
    IdleDescriptor(const IdleDescriptor&) = delete;
    IdleDescriptor& operator=(const IdleDescriptor&) = delete;

    int Get() const { return mDescriptor; }
    /// A copy for who closes what it is given.
    int Duplicate() const;

private:
    int mDescriptor;
};

/// Keeps this thread, and those that it starts, on one CPU.
class OneCpu {
public:
    OneCpu();
    ~OneCpu();
    OneCpu(const OneCpu&) = delete;
    OneCpu& operator=(const OneCpu&) = delete;

private:
    cpu_set_t mBefore{};
};

/// How many events a foreign thread may have outstanding. They are given back in lots, so that the
/// two threads do not run in lockstep unless there is but one.
class Credits {
public:
    Credits(unsigned int lots, std::uint64_t lotSize);
    ~Credits();
    Credits(const Credits&) = delete;
    Credits& operator=(const Credits&) = delete;

    /// Foreign thread: waits for the right to raise one event.
    void Take();
    /// The loop's thread: one event has been handled.
    void Give();

private:
    sem_t mLots{};
    std::uint64_t mLotSize;
    std::uint64_t mTaken{0};
    std::uint64_t mGiven{0};
};

/// The two ways of the asynchronous items.
struct AsyncWork {
    std::uint64_t events;
    unsigned int lots;
    std::uint64_t lotSize;
};
constexpr AsyncWork kAsyncFlood{kAsyncEvents, 4, 256};
constexpr AsyncWork kAsyncPingPong{kPingPongs, 1, 1};

/// Runs `raise(number)` for each event of the work in a foreign thread and `loop` in this one, both
/// on one CPU; returns the CPU time of an event in nanoseconds.
template <typename Raise, typename Loop>
double TimeAsync(const AsyncWork& work, Credits& credits, const Raise& raise, const Loop& loop) {
    const OneCpu pinned;
    Stopwatch watch(CLOCK_PROCESS_CPUTIME_ID);
    watch.Start();
    std::thread foreign([&] {
        for (std::uint64_t number = 0; number < work.events; ++number) {
            credits.Take();
            raise(number);
        }
    });
    loop();
    foreign.join();
    watch.Pause();
    return watch.Nanoseconds() / static_cast<double>(work.events);
}

/// A socket pair whose near end is read. The far end is filled from the same thread whenever all
/// has been read, while the clock stands.
class ByteStream {
public:
    ByteStream();
    ~ByteStream();
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;

    /// Gives the near end to the caller.
    int TakeNearEnd() { return std::exchange(mNearEnd, -1); }

    void Start() { mWatch.Start(); }

    /// Checks what was read and refills; true while more is to come. At the end the clock stands.
    bool Take(const unsigned char* data, std::size_t size);
    void CheckComplete() const;

    /// CPU time of one read of that many bytes, in nanoseconds.
    double NanosecondsPerRead(std::size_t size) const;

private:
    void Fill();

    int mNearEnd{-1};
    int mFarEnd{-1};
    std::vector<unsigned char> mPattern;
    std::uint64_t mRead{0};
    std::uint64_t mFilled{0};
    bool mIntact{true};
    Stopwatch mWatch;
};

/// What an idle loop costs.
struct IdleFigures {
    double wakeUps;
    double cpuMicrosec;
};

/// Watches the thread that makes it from another one while it idles.
class IdleObserver {
public:
    explicit IdleObserver(int windowMillisec);

    /// Runs `loop` in this thread; when the window is over, calls `stop` from the other one.
    template <typename Loop, typename Stop>
    IdleFigures Observe(const Loop& loop, const Stop& stop) {
        IdleFigures figures{};
        std::thread observer([&] {
            figures = Measure();
            stop();
        });
        loop();
        observer.join();
        Check(figures.wakeUps >= 0, "the kernel does not tell how often the thread has slept");
        return figures;
    }

private:
    IdleFigures Measure() const;
    /// How often the thread has slept so far; -1 if it cannot be told.
    double WakeUps() const;
    double CpuMicrosec() const;

    int mWindowMillisec;
    pid_t mThread;
    clockid_t mClock{};
};

/// Time to watch a loop with a 100 ms timer, and one with nothing due, in milliseconds.
constexpr int kIdleTimerWindow = 550;
constexpr int kIdleWindow = 250;

/// Checks the wake-ups of the loop with the timer: one for each time it fired.
void CheckIdleTimer(const IdleFigures& figures, std::uint64_t fired);

}  // namespace framework_bench
