#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "timeline/event_emitter.h"
#include "timeline/log_line.h"
#include "timeline/phrase_interpreter.h"
#include "timeline/timeline_event.h"

namespace timeline {

/// Makes events of the lines of a log, line by line: states of each machine, triggers, decisions,
/// waits, passes. Its memory is bounded, however long the log is. Input is untrusted: no line has
/// to be well-formed, none makes it fail.
///
/// The order is that of the lines. Belongs to one thread; the receiver is called on it, during
/// `Consume` and `Finish`.
class LogInterpreter {
public:
    explicit LogInterpreter(EventReceiver receiver) : mEvents(std::move(receiver)) {}
    LogInterpreter(const LogInterpreter&) = delete;
    LogInterpreter& operator=(const LogInterpreter&) = delete;
    ~LogInterpreter() = default;

    void Consume(const LogLine& line);
    /// The log is at its end: an open pass is reported as it stands.
    void Finish();

    const LineCounts& GetCounts() const { return mCounts; }
    /// The moment of the line that was consumed last.
    const Moment& GetNow() const { return mEvents.GetNow(); }
    /// True if the service's lines are there but none at info: neither transitions nor triggers
    /// were logged.
    bool IsLevelTooLow() const { return mCounts.entries > 0 && mCounts.detailed == 0; }
    /// The last pass that the log shows, or null.
    std::shared_ptr<const Pass> GetLastPass() const { return mEvents.GetLastPass(); }

private:
    void FollowBoot();
    void FollowProcess(const LogLine& entry);
    void Advance(const LogLine& line);
    void Interpret(const LogLine& entry);
    bool InterpretTransition(std::string_view text);
    void EnterState(const std::string& machine, std::string_view state);
    void FollowClientState(std::string_view state);

    EventEmitter mEvents;
    LineCounts mCounts;
    PhraseInterpreter mPhrases{mEvents, mCounts};
    bool mAnyTime{false};
    std::uint32_t mProcessId{0};
    bool mStarting{false};
};

}  // namespace timeline
