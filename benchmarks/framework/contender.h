#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "benchmarks/framework/harness.h"

namespace framework_bench {

/// One way to do the work. Each operation sets up afresh, does the work once, checks it, and
/// returns nanoseconds of CPU time for one unit of it (an event, a timer, a read) unless stated.
///
/// In each the receiver gets a payload of its own from the heap, and one descriptor beside that
/// never becomes ready is watched.
class Contender {
public:
    Contender() = default;
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;
    virtual ~Contender() = default;

    /// `kSelfPosts` events, each posted by the handler of the one before.
    virtual double SelfPost() = 0;
    /// `kDrainEvents` events posted, then delivered.
    virtual double Drain() = 0;
    /// The timers of a `TimerSet` set, then waited for.
    virtual double Timers() = 0;
    /// `kClearedTimers` timers set, then cleared: the oldest first, or the newest.
    virtual double SetAndClear(bool oldestFirst) = 0;
    /// Events from a foreign thread.
    virtual double Async(const AsyncWork& work) = 0;
    /// A `ByteStream` received in reads of that size, each handed over in a buffer of its own.
    virtual double ReadStream(std::size_t readSize) = 0;
    /// A loop that does nothing but serve a timer of `kIdleTimerMillisec`.
    virtual IdleFigures IdleWithTimer() = 0;
    /// A loop that has nothing to do.
    virtual IdleFigures Idle() = 0;
};

/// The framework of this project.
std::unique_ptr<Contender> MakeOurs();
/// System calls and containers in the framework's protocol, and nothing around them.
std::unique_ptr<Contender> MakeBare();
std::unique_ptr<Contender> MakeLibuv();
std::unique_ptr<Contender> MakeAsio();

/// A log line of a level that is not enabled; nanoseconds each.
double TimeDisabledLogLine();
/// The test of a level alone: by the facade, and as one load of a number.
double TimeLevelTest();
double TimeAtomicLevelTest();

}  // namespace framework_bench
