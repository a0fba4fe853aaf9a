#include "timeline/log_interpreter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

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
constexpr string_view kBeforeLog = "unknown (not in the log)";
/// Lines of several threads may be some milliseconds out of order without any jump.
constexpr std::int64_t kDisorder = 1000;
/// No unit is quiet for so long; its clock was set.
constexpr std::int64_t kLongestSilence = std::int64_t{30} * 24 * 3600 * 1000;
constexpr std::size_t kMaxLanes = 24;
constexpr std::size_t kMaxNameSize = 48;
constexpr std::size_t kMaxTextSize = 200;
constexpr std::size_t kMaxKindsOfCause = 8;
constexpr int kRetries = 9;

constexpr std::array<string_view, 10> kClientStates{
    kNotStarted,        "FsmStateWaitTrigger",    "FsmStateWaitZemConnector",
    "FsmStateWaitVin",  "FsmStateCheckServices",  "FsmStateDownloadCertificate",
    kTerminated,        "StartCertificateUpdate", "FsmStateCheckAndStoreTiv",
    "FsmRetryProcedure"};

struct ReasonText {
    string_view name;
    string_view number;
    string_view why;
};

constexpr std::array<ReasonText, 9> kReasons{
    {{"ACTIVATIONREASON_CLAMP30_DETECTED", "0", "no certificate stored"},
     {"ACTIVATIONREASON_FORCE_REACTIVATION", "1", "forced by a TLS alert"},
     {"ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID", "2", "path or key of the certificate wrong"},
     {"ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE", "3", "certificate of another common name"},
     {"ACTIVATIONREASON_FACTORY_RESET", "4", "factory reset"},
     {"ACTIVATIONREASON_OTHER", "5", "other"},
     {"ACTIVATION_REASON_DATA_TAMPERED", "6", "data tampered with"},
     {"ACTIVATION_REASON_CERT_1YEAR_EXPIRATION", "7", "certificate ends within a year"},
     {"ACTIVATION_REASON_DIAGNOSTIC_ROUTINE", "8", "diagnostic routine"}}};

/// How an exchange ended, by the number in the log; 0 is no failure, 9 has its HTTP status.
constexpr std::array<string_view, 12> kExchangeFailures{"",
                                                        "internal error of the exchange",
                                                        "no complete answer within 30 s",
                                                        "",
                                                        "",
                                                        "",
                                                        "connector refused to connect",
                                                        "connection failed",
                                                        "transfer failed",
                                                        "refused by the backend",
                                                        "empty answer",
                                                        "answer of an unknown type"};
constexpr std::uint32_t kRefused = 9;
/// What the log says of an answer whose status line is no HTTP.
constexpr std::uint32_t kUnknownHttpStatus = 255;

bool StartsWith(string_view text, string_view start) {
    return text.substr(0, start.size()) == start;
}

bool EndsWith(string_view text, string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string Limited(string_view text) {
    if (text.size() <= kMaxTextSize) {
        return std::string(text);
    }
    return std::string(text.substr(0, kMaxTextSize)) + "...";
}

/// The number that the text begins with; false if there is none or it has no end.
bool LeadingNumber(string_view text, std::uint32_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end != text.data();
}

bool IsName(string_view text) {
    return !text.empty() && text.size() <= kMaxNameSize &&
           std::all_of(text.begin(), text.end(), [](char character) {
               return (character >= 'a' && character <= 'z') ||
                      (character >= 'A' && character <= 'Z') ||
                      (character >= '0' && character <= '9') || character == '_' ||
                      character == '/';
           });
}

void CountKind(std::vector<std::pair<std::string, std::uint32_t>>& kinds, const std::string& kind) {
    const auto known = std::find_if(kinds.begin(), kinds.end(),
                                    [&](const auto& entry) { return entry.first == kind; });
    if (known != kinds.end()) {
        ++known->second;
    } else if (kinds.size() < kMaxKindsOfCause) {
        kinds.emplace_back(kind, 1);
    }
}

}  // namespace

struct LogInterpreter::Phrase {
    string_view start;
    void (LogInterpreter::*act)(string_view rest, string_view says);
    string_view says;
};

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
            CutPass("the machine was started anew");
            EndLanes();
            MarkProcess("machine started");
            mProcessId = 0;
            break;
        case LineKind::kForeign:
            ++mCounts.foreign;
            break;
    }
}

void LogInterpreter::Finish() {
    if (!mPass) {
        return;
    }
    if (mPass->outcome == PassOutcome::kRunning) {
        const auto state = mLanes.find(std::string(kClient));
        if (state != mLanes.end()) {
            mPass->outcomeDetail = "in " + state->second;
        }
    }
    ClosePass();
}

/// A new process ends the pass of the one before, at the last that was seen of it: what its own
/// clock shows may be far off.
void LogInterpreter::FollowProcess(const LogLine& entry) {
    const bool constructed = entry.text == kFirstEntry;
    const bool another = entry.processId != 0 && mProcessId != 0 && entry.processId != mProcessId;
    if (entry.processId != 0) {
        mProcessId = entry.processId;
    }
    if (!constructed && !another) {
        return;
    }
    CutPass("the service was started anew");
    EndLanes();
    mStarting = true;
}

void LogInterpreter::Advance(const LogLine& line) {
    const Moment before = mNow;
    mNow.base = line.base;
    mNow.time = line.time;
    if (line.base == TimeBase::kNone) {
        ++mNow.axis;
        return;
    }
    if (!mAnyTime) {
        mAnyTime = true;
        return;
    }
    if (before.base != line.base) {
        ++mNow.axis;
        ReportJump(0);
        return;
    }
    const std::int64_t passed = line.time - before.time;
    if (passed < -kDisorder || passed > kLongestSilence) {
        ++mNow.axis;
        ReportJump(passed);
    } else if (passed < 0) {
        mNow.time = before.time;
    } else {
        mNow.axis += passed;
    }
}

void LogInterpreter::ReportJump(std::int64_t milliseconds) {
    if (mPass) {
        mPass->clockJumped = true;
    }
    Emit(EventKind::kJump, kEventLane, milliseconds < 0 ? "clock set back" : "clock set forward",
         Tone::kPlain, milliseconds);
}

void LogInterpreter::Interpret(const LogLine& entry) {
    if (entry.severity >= Severity::kInfo) {
        ++mCounts.detailed;
    }
    if (mStarting) {
        mStarting = false;
        MarkProcess("service started");
    }
    if (!InterpretTransition(entry.text) && !InterpretPhrase(entry.text) &&
        entry.severity <= Severity::kError) {
        Mark(Tone::kError, Limited(entry.text));
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
    const bool known = machine != kClient || std::find(kClientStates.begin(), kClientStates.end(),
                                                       state) != kClientStates.end();
    if (!IsName(machine) || !IsName(state) || !known) {
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
    SetLane(machine, passing ? std::string() : std::string(state));
}

void LogInterpreter::FollowClientState(string_view state) {
    if (state == kWaitTrigger) {
        ClosePass();
    } else if (state == kTerminated) {
        CutPass("the client machine ended");
    } else if (state != kNotStarted) {
        CurrentPass();
    }
}

bool LogInterpreter::InterpretPhrase(string_view text) {
    using I = LogInterpreter;
    // The first that the text begins with counts.
    static const std::array kPhrases{
        // The client machine, in the order of a pass.
        Phrase{"VintrelClientFsm: Vintrel Client triggered by Clamp 15", &I::OnTrigger, "Clamp 15"},
        Phrase{"VintrelClientFsm: Vintrel Client triggered by TLS Alert", &I::OnTrigger,
               "TLS alert"},
        Phrase{"VintrelClientFsm: Received TLS alert for oid ", &I::OnAlert, "TLS alert"},
        Phrase{"VintrelClientFsm: TLS Alert ignored, because CLAMP15 is OFF", &I::OnMark,
               "TLS alert ignored: Clamp 15 is off"},
        Phrase{"VintrelClientFsm: TLS Alert ignored, already handled once", &I::OnMark,
               "TLS alert ignored: one was handled in this clamp cycle"},
        Phrase{"VintrelClientFsm: HandleClampControlEvent: Clamp 15 has changed state to ",
               &I::OnSwitch, "Clamp 15"},
        Phrase{"VintrelClientFsm: Immobilizer Service connection state has changed to ",
               &I::OnSwitch, "Immobilizer"},
        Phrase{"VintrelClientFsm: Connection State changed to ", &I::OnLaneValue, "Connection"},
        Phrase{"VintrelClientFsm: CheckZemConnectorStatus: Wrong ZemConnector session status",
               &I::OnHold, "connector session"},
        Phrase{"VintrelClientFsm: Invalid VTTL URL: '", &I::OnFailure, "URL invalid"},
        Phrase{"VintrelClientFsm: No URL available", &I::OnFailure, "no URL from the connector"},
        Phrase{"VintrelClientFsm: ServiceStatusCheck: Immobilizer service is not available",
               &I::OnHold, "immobilizer service"},
        Phrase{"VintrelClientFsm: Requesting VIN from the Immobilizer Service.", &I::OnVinQuery,
               ""},
        Phrase{"VintrelClientFsm: Received an empty VIN from the Immobilizer Service.",
               &I::OnFailure, "empty VIN from the immobilizer"},
        Phrase{"VintrelClientFsm: No VIN received from the KORU.", &I::OnFailure,
               "no VIN in the base certificate"},
        Phrase{"VintrelClientFsm: Immobilizer VIN (", &I::OnVinsDiffer, ""},
        Phrase{"VintrelClientFsm: Precheck Failed!", &I::OnNothing, ""},
        Phrase{"VintrelClientFsm: FsmStateWaitVin: System time is not set.", &I::OnClockNotSet,
               "clock not set"},
        Phrase{"The Certificate is not valid yet", &I::OnWhy, "certificate not valid yet"},
        Phrase{"VintrelClientFsm: No TIV certificate update needed.", &I::OnNoUpdate, ""},
        Phrase{"VintrelClientFsm: Activation reason: ", &I::OnReason, ""},
        Phrase{"VintrelClientFsm: ECU capabilities not available, ", &I::OnEcuMissing,
               "identity of the ECU"},
        Phrase{"VintrelClientFsm: Failed to generate the CSR!", &I::OnCause, "CSR failed"},
        Phrase{"VintrelClientFsm: Failed to create TIVE container!", &I::OnCause,
               "container failed"},
        Phrase{"VintrelClientFsm: Failed to create protobuffer!", &I::OnCause, "request failed"},
        Phrase{"VintrelClientFsm: Certificate Download is waiting for correct Connection state",
               &I::OnHold, "usable connection"},
        Phrase{"VintrelClientFsm: Certificate Update started, type = ", &I::OnMark,
               "exchange with the backend started"},
        Phrase{"VintrelClientFsm: BackendRequestHandlerFsm start failed!", &I::OnCause,
               "exchange could not start"},
        Phrase{"BackendRequestHandler: Unexpected HTTP response: ", &I::OnHttpStatus, ""},
        Phrase{"VintrelClientFsm: Backend response received, status: ", &I::OnBackendResponse, ""},
        Phrase{"VintrelClientFsm: Unable to parse the Response!", &I::OnCause, "answer unreadable"},
        Phrase{"VintrelClientFsm: Failed to parse error response", &I::OnNothing, ""},
        Phrase{"VintrelClientFsm: Delay TIV validation by ", &I::OnValidationDelay, ""},
        Phrase{"VintrelClientFsm: Checking the TIV Certificate failed!", &I::OnCause,
               "received certificate does not check"},
        Phrase{"VintrelClientFsm: Storing the TIV Certificate failed!", &I::OnCause,
               "received certificate could not be stored"},
        Phrase{"VintrelClientFsm: Retry limit exceeded. Stopping...", &I::OnRetryLimit, ""},
        Phrase{"VintrelClientFsm: Retrying in ", &I::OnRetry, ""},
        Phrase{"VintrelClientFsm: EndCertificateUpdate The TIV Certificate was successfully",
               &I::OnUpdated, "certificate stored"},
        Phrase{"VintrelClientFsm: EndCertificateUpdate The TIV Certificate update failed!",
               &I::OnUpdateFailed, "update failed"},
        Phrase{"VintrelClientFsm: Vintrel Client waiting for a trigger", &I::OnWaitingForTrigger,
               ""},
        // Outside of passes.
        Phrase{"VintrelClientFsm: The TIV Certificate was deleted successfully", &I::OnMark,
               "stored certificate deleted"},
        Phrase{"VintrelClientFsm: Deleting the TIV certificate failed!", &I::OnBadMark,
               "stored certificate could not be deleted"},
        Phrase{"VintrelClientFsm: Vintrel Client Factory Reset", &I::OnMark, "factory reset"},
        Phrase{"VintrelClientFsm: Zem-Connector: Rejected", &I::OnUnexpectedEvent,
               "connector session rejected"},
        Phrase{"VintrelClientFsm: Unknown event ", &I::OnUnexpectedEvent,
               "event that no state expects"},
        Phrase{"VintrelClientFsm: Handling Vintrel Client termination request.", &I::OnMachineEnd,
               "termination request"},
        Phrase{"VintrelClientFsm: Vintrel Client Terminated.", &I::OnMachineEnd, ""},
        Phrase{"Failed to start Vintrel Client!", &I::OnBadMark, "service failed to start"},
        Phrase{"log lines dropped: ", &I::OnDropped, "log lines dropped: "},
        Phrase{"~EventDispatcher", &I::OnProcessEnd, "service ended"},
    };
    const auto* const phrase =
        std::find_if(kPhrases.begin(), kPhrases.end(),
                     [&](const Phrase& candidate) { return StartsWith(text, candidate.start); });
    if (phrase == kPhrases.end()) {
        return false;
    }
    (this->*phrase->act)(text.substr(phrase->start.size()), phrase->says);
    return true;
}

void LogInterpreter::Emit(EventKind kind, std::string lane, std::string text, Tone tone,
                          std::int64_t length) {
    mReceiver({kind, tone, mNow, std::move(lane), std::move(text), length, nullptr});
}

void LogInterpreter::Mark(Tone tone, std::string text) {
    Emit(EventKind::kMark, kEventLane, std::move(text), tone);
}

void LogInterpreter::MarkProcess(std::string text) {
    Emit(EventKind::kProcess, kEventLane, std::move(text));
}

void LogInterpreter::SetLane(const std::string& lane, std::string text) {
    const auto known = mLanes.find(lane);
    if (known == mLanes.end() && mLanes.size() >= kMaxLanes) {
        return;
    }
    mLanes[lane] = text;
    Emit(EventKind::kState, lane, std::move(text));
}

void LogInterpreter::EndLanes() {
    for (auto& [lane, text] : mLanes) {
        if (!text.empty()) {
            text.clear();
            Emit(EventKind::kState, lane, {});
        }
    }
}

Pass& LogInterpreter::OpenPass(string_view trigger, bool beginSeen) {
    ClosePass();
    mPass.emplace();
    mPass->number = ++mPassCount;
    mPass->begin = mNow;
    mPass->beginSeen = beginSeen;
    mPass->trigger = trigger;
    mCause.clear();
    mWhy.clear();
    mHttpStatus.clear();
    mRetryPending = false;
    mRetryLimit = false;
    mRetries = 0;
    Emit(EventKind::kPassBegin, kPassLane, "pass " + std::to_string(mPassCount));
    return *mPass;
}

Pass& LogInterpreter::CurrentPass() {
    return mPass ? *mPass : OpenPass(kBeforeLog, false);
}

void LogInterpreter::ClosePass() {
    if (!mPass) {
        return;
    }
    const bool waiting = mPass->outcome == PassOutcome::kRunning && mPass->outcomeDetail.empty();
    if (waiting) {
        mPass->outcome = PassOutcome::kUnknown;
    }
    mPass->end = mNow;
    mLastPass = std::make_shared<const Pass>(std::move(*mPass));
    mPass.reset();
    mReceiver({EventKind::kPassEnd, Tone::kPlain, mNow, kPassLane, OutcomeText(*mLastPass), 0,
               mLastPass});
    if (mLanes.count(kReasonLane) != 0) {
        SetLane(kReasonLane, {});
    }
}

void LogInterpreter::CutPass(string_view why) {
    if (mPass && mPass->outcome == PassOutcome::kRunning) {
        mPass->outcome = PassOutcome::kCutOff;
        mPass->outcomeDetail = why;
    }
    ClosePass();
}

/// The pass has failed and will wait for the next trigger. Where the lines that tell so are not
/// logged, it ends here.
void LogInterpreter::Fail(std::string cause) {
    Pass& pass = CurrentPass();
    pass.outcome = PassOutcome::kFailed;
    pass.outcomeDetail = std::move(cause);
    if (mCounts.detailed == 0) {
        ClosePass();
    }
}

void LogInterpreter::NoteWaitFor(string_view what) {
    CountKind(CurrentPass().waits, std::string(what));
}

void LogInterpreter::Wait(std::int64_t milliseconds, std::string text) {
    Emit(EventKind::kWait, kWaitLane, std::move(text), Tone::kPlain, milliseconds);
}

void LogInterpreter::OnProcessEnd(string_view /*rest*/, string_view says) {
    CutPass("the service ended");
    EndLanes();
    MarkProcess(std::string(says));
}

void LogInterpreter::OnMachineEnd(string_view /*rest*/, string_view says) {
    if (!says.empty()) {
        MarkProcess(std::string(says));
    }
    CutPass(says.empty() ? "the client machine ended" : says);
}

void LogInterpreter::OnTrigger(string_view /*rest*/, string_view says) {
    OpenPass(says, true);
    Mark(Tone::kTrigger, "triggered by " + std::string(says));
}

void LogInterpreter::OnAlert(string_view rest, string_view says) {
    constexpr string_view kDuringPass = ", TLS alert meanwhile";
    const std::size_t code = rest.rfind(", code ");
    const string_view behind = code == string_view::npos ? string_view{} : rest.substr(code);
    Mark(Tone::kTrigger, std::string(says) + Limited(behind));
    if (mPass && !EndsWith(mPass->trigger, kDuringPass)) {
        mPass->trigger += kDuringPass;
    }
}

void LogInterpreter::OnWaitingForTrigger(string_view /*rest*/, string_view /*says*/) {
    ClosePass();
}

void LogInterpreter::OnLaneValue(string_view rest, string_view says) {
    if (IsName(rest)) {
        SetLane(std::string(says), std::string(rest));
    }
}

void LogInterpreter::OnSwitch(string_view rest, string_view says) {
    if (rest == "0" || rest == "1") {
        SetLane(std::string(says), rest == "1" ? "on" : "off");
    }
}

void LogInterpreter::OnMark(string_view /*rest*/, string_view says) {
    Mark(Tone::kPlain, std::string(says));
}

void LogInterpreter::OnBadMark(string_view /*rest*/, string_view says) {
    Mark(Tone::kBad, std::string(says));
}

void LogInterpreter::OnHold(string_view /*rest*/, string_view says) {
    NoteWaitFor(says);
    Mark(Tone::kPlain, "waits for: " + std::string(says));
}

void LogInterpreter::OnClockNotSet(string_view /*rest*/, string_view says) {
    NoteWaitFor("set clock");
    Wait(10000, std::string(says) + ", asked again in 10 s");
}

void LogInterpreter::OnEcuMissing(string_view /*rest*/, string_view says) {
    NoteWaitFor(says);
    Wait(10000, std::string(says) + " missing, asked again in 10 s");
}

void LogInterpreter::OnVinQuery(string_view /*rest*/, string_view /*says*/) {
    Pass& pass = CurrentPass();
    if (mRetryPending) {
        mRetryPending = false;
        ++pass.attempts;
    }
}

void LogInterpreter::OnWhy(string_view /*rest*/, string_view says) {
    mWhy = says;
}

void LogInterpreter::OnNoUpdate(string_view /*rest*/, string_view /*says*/) {
    Pass& pass = CurrentPass();
    pass.outcome = PassOutcome::kNoUpdateNeeded;
    if (pass.decision.empty()) {
        pass.decision = "no update (certificate in order)";
    }
    Mark(Tone::kGood, "no update needed");
}

void LogInterpreter::OnReason(string_view rest, string_view /*says*/) {
    const auto* const reason = std::find_if(kReasons.begin(), kReasons.end(),
                                            [&](const ReasonText& r) { return r.name == rest; });
    if (reason == kReasons.end()) {
        return;
    }
    Pass& pass = CurrentPass();
    pass.attempts = std::max(pass.attempts, 1U);
    const bool notYet = reason->number == "7" && !mWhy.empty();
    const std::string why = notYet ? mWhy : std::string(reason->why);
    const std::string text = "reason " + std::string(reason->number) + " (" + why + ")";
    pass.decision = "update, " + text;
    SetLane(kReasonLane, text);
}

void LogInterpreter::OnCause(string_view /*rest*/, string_view says) {
    CurrentPass();
    mCause = says;
    Mark(Tone::kBad, mCause);
}

void LogInterpreter::OnHttpStatus(string_view rest, string_view /*says*/) {
    // Numbers beyond these stand for an answer without a readable status.
    constexpr std::uint32_t kLeastStatus = 100;
    constexpr std::uint32_t kGreatestStatus = 599;
    std::uint32_t status = 0;
    const bool readable = LeadingNumber(rest, status) && status >= kLeastStatus &&
                          status <= kGreatestStatus && status != kUnknownHttpStatus;
    CurrentPass();
    mHttpStatus = readable ? "HTTP " + std::to_string(status) : "no readable status";
    mCause = std::string(kExchangeFailures[kRefused]) + " (" + mHttpStatus + ")";
}

void LogInterpreter::OnBackendResponse(string_view rest, string_view /*says*/) {
    std::uint32_t code = 0;
    if (!LeadingNumber(rest, code)) {
        return;
    }
    CurrentPass();
    if (code == 0) {
        Mark(Tone::kPlain, "the backend answered");
        return;
    }
    const string_view failure =
        code < kExchangeFailures.size() ? kExchangeFailures.at(code) : string_view{};
    mCause = failure.empty() ? "exchange ended with status " + std::to_string(code)
                             : std::string(failure);
    if (code == kRefused && !mHttpStatus.empty()) {
        mCause += " (" + mHttpStatus + ")";
    }
    Mark(Tone::kBad, mCause);
}

void LogInterpreter::OnFailure(string_view /*rest*/, string_view says) {
    Mark(Tone::kBad, std::string(says));
    Fail(std::string(says));
}

void LogInterpreter::OnVinsDiffer(string_view rest, string_view /*says*/) {
    const std::string text =
        "VINs differ: immobilizer (" + Limited(rest.substr(0, rest.rfind(" do not match!")));
    Mark(Tone::kBad, text);
    Fail(text);
}

void LogInterpreter::OnUnexpectedEvent(string_view /*rest*/, string_view says) {
    MarkProcess("client machine ends: " + std::string(says));
    CutPass(says);
}

void LogInterpreter::OnRetry(string_view rest, string_view /*says*/) {
    std::uint32_t seconds = 0;
    if (!LeadingNumber(rest, seconds)) {
        return;
    }
    Pass& pass = CurrentPass();
    CountKind(pass.causes, mCause.empty() ? "cause not in the log" : mCause);
    mRetryPending = true;
    const std::string number = std::to_string(++mRetries);
    // The first retries of a pass whose beginning is missing are missing, too.
    const std::string which =
        pass.beginSeen ? "retry " + number + " of " + std::to_string(kRetries) : "retry";
    Wait(std::int64_t{seconds} * 1000, which + " in " + std::to_string(seconds) + " s");
}

void LogInterpreter::OnRetryLimit(string_view /*rest*/, string_view /*says*/) {
    CurrentPass();
    mRetryLimit = true;
}

void LogInterpreter::OnValidationDelay(string_view rest, string_view /*says*/) {
    std::uint32_t seconds = 0;
    if (LeadingNumber(rest, seconds)) {
        Wait(std::int64_t{seconds} * 1000,
             "answer is checked in " + std::to_string(seconds) + " s");
    }
}

void LogInterpreter::OnUpdated(string_view /*rest*/, string_view says) {
    CurrentPass().outcome = PassOutcome::kStored;
    Mark(Tone::kGood, std::string(says));
}

void LogInterpreter::OnUpdateFailed(string_view /*rest*/, string_view says) {
    Pass& pass = CurrentPass();
    const std::string cause = mCause.empty() ? "cause not in the log" : mCause;
    CountKind(pass.causes, cause);
    Mark(Tone::kBad, std::string(says));
    Fail(mRetryLimit ? "retry limit exceeded, last by: " + cause : cause);
}

void LogInterpreter::OnDropped(string_view rest, string_view says) {
    std::uint32_t count = 0;
    if (LeadingNumber(rest, count)) {
        mCounts.dropped += count;
        Mark(Tone::kError, std::string(says) + std::to_string(count));
    }
}

void LogInterpreter::OnNothing(string_view /*rest*/, string_view /*says*/) {}

}  // namespace timeline
