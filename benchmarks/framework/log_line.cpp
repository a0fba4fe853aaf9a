#include <atomic>
#include <string>

#include "benchmarks/framework/contender.h"
#include "logging/qel_logging.h"

namespace framework_bench {

namespace {

using qel_logging::EQELLogLevel;
using qel_logging::QELLogging;

constexpr int kLines = 1'000'000;

/// Nothing of what stands before may be left out or put off.
void Barrier() {
    asm volatile("" ::: "memory");
}

template <typename Line>
double TimeLines(const Line& line) {
    Stopwatch watch;
    watch.Start();
    for (int i = 0; i < kLines; ++i) {
        line(i);
        Barrier();
    }
    watch.Pause();
    return watch.Nanoseconds() / kLines;
}

}  // namespace

double TimeDisabledLogLine() {
    const std::string name = "EventDispatcher";
    return TimeLines([&name](int i) {
        QELLogging::LogVerbose(name, " EVENT raised, eventId ", i, " eventInfo ", i);
    });
}

double TimeLevelTest() {
    bool enabled = false;
    const double time = TimeLines([&enabled](int /*i*/) {
        enabled = enabled || QELLogging::IsEnabled(EQELLogLevel::kVerbose);
    });
    Check(!enabled, "the level is enabled");
    return time;
}

double TimeAtomicLevelTest() {
    std::atomic<EQELLogLevel> level{EQELLogLevel::kWarning};
    bool enabled = false;
    const double time = TimeLines([&level, &enabled](int /*i*/) {
        enabled = enabled || level.load(std::memory_order_relaxed) >= EQELLogLevel::kVerbose;
    });
    Check(!enabled, "the level is enabled");
    return time;
}

}  // namespace framework_bench
