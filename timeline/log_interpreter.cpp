#include "timeline/log_interpreter.h"

#include <algorithm>
#include <array>

namespace timeline {

namespace {

using std::string_view;

constexpr string_view kClient = "VintrelClientFsm";
constexpr string_view kTransition = ": State transition to ";
constexpr string_view kWaitTrigger = "FsmStateWaitTrigger";
constexpr string_view kNotStarted = "FsmStateNotStarted";
constexpr string_view kTerminated = "FsmStateTerminated";
/// Of each process: its first machine has no name yet.
constexpr string_view kFirstEntry = "FsmBaseClass: State transition to FsmStateNotStarted";
/// Lines of several threads may be some milliseconds out of order without any jump.
constexpr std::int64_t kDisorder = 1000;
/// No unit is quiet for so long; its clock was set.
constexpr std::int64_t kLongestSilence = std::int64_t{30} * 24 * 3600 * 1000;

constexpr std::array<string_view, 10> kClientStates{
    kNotStarted,        "FsmStateWaitTrigger",    "FsmStateWaitZemConnector",
    "FsmStateWaitVin",  "FsmStateCheckServices",  "FsmStateDownloadCertificate",
    kTerminated,        "StartCertificateUpdate", "FsmStateCheckAndStoreTiv",
    "FsmRetryProcedure"};

bool IsStateOf(string_view machine, string_view state) {
    return IsName(machine) && IsName(state) &&
           (machine != kClient ||
            std::find(kClientStates.begin(), kClientStates.end(), state) != kClientStates.end());
}

}  // namespace

void LogInterpreter::Consume(const LogLine& line) {
    switch (line.kind) {
        case LineKind::kEntry:
            ++mCounts.entries;
            FollowProcess(line);
            Advance(line);
            Interpret(line);
            break;
        case LineKind::kContinuation:
            ++mCounts.continuations;
            break;
        case LineKind::kTruncated:
            ++mCounts.truncated;
            break;
        case LineKind::kInterleaved:
            ++mCounts.interleaved;
            break;
        case LineKind::kBoot:
            FollowBoot();
            break;
        case LineKind::kForeign:
            ++mCounts.foreign;
            break;
    }
}

void LogInterpreter::Finish() {
    OpenPass* const open = mEvents.FindPass();
    const std::string* const state = mEvents.FindLane(std::string(kClient));
    if (open != nullptr && open->outcome == PassOutcome::kRunning && state != nullptr) {
        open->outcomeDetail = "in " + *state;
    }
    mEvents.ClosePass();
}

void LogInterpreter::FollowBoot() {
    mEvents.CutPass("the machine was started anew");
    mEvents.ClearLanes();
    mEvents.MarkProcess("machine started");
    mProcessId = 0;
}

/// A new process ends the pass of the one before, at that one's last line: the clock of the new one
/// may be far off.
void LogInterpreter::FollowProcess(const LogLine& entry) {
    const bool constructed = entry.text == kFirstEntry;
    const bool another = entry.processId != 0 && mProcessId != 0 && entry.processId != mProcessId;
    if (entry.processId != 0) {
        mProcessId = entry.processId;
    }
    if (!constructed && !another) {
        return;
    }
    mEvents.CutPass("the service was started anew");
    mEvents.ClearLanes();
    mStarting = true;
}

void LogInterpreter::Advance(const LogLine& line) {
    const Moment before = mEvents.GetNow();
    Moment now{before.axis, line.time, line.base};
    if (line.base == TimeBase::kNone) {
        ++now.axis;
        mEvents.SetNow(now);
        return;
    }
    if (!mAnyTime) {
        mAnyTime = true;
        mEvents.SetNow(now);
        return;
    }
    const bool comparable = before.base == line.base;
    const std::int64_t passed = comparable ? line.time - before.time : 0;
    const bool jumped = !comparable || passed < -kDisorder || passed > kLongestSilence;
    now.axis += jumped ? 1 : std::max<std::int64_t>(passed, 0);
    if (!jumped && passed < 0) {
        now.time = before.time;
    }
    mEvents.SetNow(now);
    if (jumped) {
        mEvents.MarkJump(passed);
    }
}

void LogInterpreter::Interpret(const LogLine& entry) {
    if (entry.severity >= Severity::kInfo) {
        ++mCounts.detailed;
    }
    if (mStarting) {
        mStarting = false;
        mEvents.MarkProcess("service started");
    }
    if (!InterpretTransition(entry.text) && !mPhrases.Interpret(entry.text) &&
        entry.severity <= Severity::kError) {
        mEvents.Mark(Tone::kError, Limited(entry.text));
    }
}

bool LogInterpreter::InterpretTransition(string_view text) {
    const std::size_t at = text.find(kTransition);
    if (at == string_view::npos) {
        return false;
    }
    const string_view machine = text.substr(0, at);
    const string_view state = text.substr(at + kTransition.size());
    if (text == kFirstEntry) {
        return true;
    }
    if (!IsStateOf(machine, state)) {
        --mCounts.entries;
        ++mCounts.truncated;
        return true;
    }
    EnterState(std::string(machine), state);
    return true;
}

void LogInterpreter::EnterState(const std::string& machine, string_view state) {
    if (machine == kClient) {
        FollowClientState(state);
    }
    const bool passing = machine != kClient && state == kTerminated;
    mEvents.SetLane(machine, passing ? std::string() : std::string(state));
}

void LogInterpreter::FollowClientState(string_view state) {
    if (state == kWaitTrigger) {
        mEvents.ClosePass();
    } else if (state == kTerminated) {
        mEvents.CutPass("the client machine ended");
    } else if (state != kNotStarted) {
        mEvents.CurrentPass();
    }
}

}  // namespace timeline
