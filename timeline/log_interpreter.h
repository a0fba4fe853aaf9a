#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "timeline/log_line.h"
#include "timeline/timeline_event.h"

namespace timeline {

/// Lanes that are no state machines.
inline constexpr const char* kPassLane = "Passes";
inline constexpr const char* kEventLane = "Events";
inline constexpr const char* kWaitLane = "Waiting";
inline constexpr const char* kReasonLane = "Activation reason";

/// Makes events out of the lines of a log, as they come: the states of each machine, what
/// triggered, what was decided, waits, passes. Needs a bounded memory, however long the log is, and
/// believes nothing that it reads to be well-formed or complete.
///
/// The order is that of the lines. Belongs to one thread.
class LogInterpreter {
public:
    explicit LogInterpreter(EventReceiver receiver) : mReceiver(std::move(receiver)) {}

    void Consume(const LogLine& line);
    /// The log is at its end: a pass that is under way is reported as it stands.
    void Finish();

    const LineCounts& GetCounts() const { return mCounts; }
    /// The moment of the line that was consumed last.
    const Moment& GetNow() const { return mNow; }
    /// True if the service's lines are there but none at info: neither transitions nor triggers
    /// were logged.
    bool IsLevelTooLow() const { return mCounts.entries > 0 && mCounts.detailed == 0; }
    /// The last pass that the log shows, or null.
    std::shared_ptr<const Pass> GetLastPass() const { return mLastPass; }

private:
    struct Phrase;

    void FollowProcess(const LogLine& entry);
    void Advance(const LogLine& line);
    void ReportJump(std::int64_t milliseconds);
    void Interpret(const LogLine& entry);
    bool InterpretTransition(std::string_view text);
    bool InterpretPhrase(std::string_view text);
    void EnterState(const std::string& machine, std::string_view state);
    void FollowClientState(std::string_view state);

    void Emit(EventKind kind, std::string lane, std::string text, Tone tone = Tone::kPlain,
              std::int64_t length = 0);
    void Mark(Tone tone, std::string text);
    void MarkProcess(std::string text);
    void SetLane(const std::string& lane, std::string text);
    void EndLanes();

    Pass& OpenPass(std::string_view trigger, bool beginSeen);
    /// The pass under way; if its beginning is not in the log it is made here.
    Pass& CurrentPass();
    void ClosePass();
    void CutPass(std::string_view why);
    void Fail(std::string cause);
    void NoteWaitFor(std::string_view what);
    void Wait(std::int64_t milliseconds, std::string text);

    // What to do about a phrase: `rest` is the text behind it, `says` the phrase's own word for it.
    void OnProcessEnd(std::string_view rest, std::string_view says);
    void OnMachineEnd(std::string_view rest, std::string_view says);
    void OnTrigger(std::string_view rest, std::string_view says);
    void OnAlert(std::string_view rest, std::string_view says);
    void OnWaitingForTrigger(std::string_view rest, std::string_view says);
    void OnLaneValue(std::string_view rest, std::string_view says);
    void OnSwitch(std::string_view rest, std::string_view says);
    void OnMark(std::string_view rest, std::string_view says);
    void OnBadMark(std::string_view rest, std::string_view says);
    void OnHold(std::string_view rest, std::string_view says);
    void OnClockNotSet(std::string_view rest, std::string_view says);
    void OnEcuMissing(std::string_view rest, std::string_view says);
    void OnVinQuery(std::string_view rest, std::string_view says);
    void OnWhy(std::string_view rest, std::string_view says);
    void OnNoUpdate(std::string_view rest, std::string_view says);
    void OnReason(std::string_view rest, std::string_view says);
    void OnCause(std::string_view rest, std::string_view says);
    void OnHttpStatus(std::string_view rest, std::string_view says);
    void OnBackendResponse(std::string_view rest, std::string_view says);
    void OnFailure(std::string_view rest, std::string_view says);
    void OnVinsDiffer(std::string_view rest, std::string_view says);
    void OnUnexpectedEvent(std::string_view rest, std::string_view says);
    void OnRetry(std::string_view rest, std::string_view says);
    void OnRetryLimit(std::string_view rest, std::string_view says);
    void OnValidationDelay(std::string_view rest, std::string_view says);
    void OnUpdated(std::string_view rest, std::string_view says);
    void OnUpdateFailed(std::string_view rest, std::string_view says);
    void OnDropped(std::string_view rest, std::string_view says);
    void OnNothing(std::string_view rest, std::string_view says);

    EventReceiver mReceiver;
    LineCounts mCounts;
    Moment mNow;
    bool mAnyTime{false};
    std::uint32_t mProcessId{0};
    bool mStarting{false};
    /// What each lane shows.
    std::map<std::string, std::string> mLanes;

    std::optional<Pass> mPass;
    std::uint64_t mPassCount{0};
    std::shared_ptr<const Pass> mLastPass;
    /// What the attempt under way will have failed by.
    std::string mCause;
    /// What the check of the stored certificate said.
    std::string mWhy;
    std::string mHttpStatus;
    bool mRetryPending{false};
    bool mRetryLimit{false};
    std::uint32_t mRetries{0};
};

}  // namespace timeline
