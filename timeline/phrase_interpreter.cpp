#include "timeline/phrase_interpreter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>
#include <vector>

#include "timeline/text_fields.h"

namespace timeline {

namespace {

using std::string_view;

constexpr std::size_t kMaxNameSize = 48;
constexpr std::size_t kMaxTextSize = 200;
constexpr std::size_t kMaxKindsOfCause = 8;
constexpr int kRetries = 9;

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
/// The log's number for an answer whose status line is not HTTP.
constexpr std::uint32_t kUnknownHttpStatus = 255;

bool EndsWith(string_view text, string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// The number that the text begins with; false if there is none or it has no end.
bool LeadingNumber(string_view text, std::uint32_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end != text.data();
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

std::string CauseOf(const OpenPass& pass) {
    return pass.cause.empty() ? "cause not in the log" : pass.cause;
}

}  // namespace

bool IsName(string_view text) {
    return !text.empty() && text.size() <= kMaxNameSize &&
           std::all_of(text.begin(), text.end(), [](char character) {
               return (character >= 'a' && character <= 'z') ||
                      (character >= 'A' && character <= 'Z') ||
                      (character >= '0' && character <= '9') || character == '_' ||
                      character == '/';
           });
}

std::string Limited(string_view text) {
    if (text.size() <= kMaxTextSize) {
        return std::string(text);
    }
    return std::string(text.substr(0, kMaxTextSize)) + "...";
}

struct PhraseInterpreter::Phrase {
    string_view start;
    void (PhraseInterpreter::*act)(string_view rest, string_view label);
    string_view label;
};

/// The first phrase that a text begins with counts.
struct PhraseInterpreter::Table {
    using I = PhraseInterpreter;
    static constexpr std::array kPhrases{
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
};

bool PhraseInterpreter::Interpret(string_view text) {
    const auto* const phrase =
        std::find_if(Table::kPhrases.begin(), Table::kPhrases.end(),
                     [&](const Phrase& candidate) { return StartsWith(text, candidate.start); });
    if (phrase == Table::kPhrases.end()) {
        return false;
    }
    (this->*phrase->act)(text.substr(phrase->start.size()), phrase->label);
    return true;
}

/// The pass has failed, and the client waits for the next trigger. Where the lines that report so
/// are not logged, it ends here.
void PhraseInterpreter::Fail(std::string cause) {
    OpenPass& pass = mEvents.CurrentPass();
    pass.outcome = PassOutcome::kFailed;
    pass.outcomeDetail = std::move(cause);
    if (mCounts.detailed == 0) {
        mEvents.ClosePass();
    }
}

void PhraseInterpreter::NoteWaitFor(string_view what) {
    CountKind(mEvents.CurrentPass().waits, std::string(what));
}

void PhraseInterpreter::OnProcessEnd(string_view /*rest*/, string_view label) {
    mEvents.CutPass("the service ended");
    mEvents.ClearLanes();
    mEvents.MarkProcess(std::string(label));
}

void PhraseInterpreter::OnMachineEnd(string_view /*rest*/, string_view label) {
    if (!label.empty()) {
        mEvents.MarkProcess(std::string(label));
    }
    mEvents.CutPass(label.empty() ? "the client machine ended" : label);
}

void PhraseInterpreter::OnTrigger(string_view /*rest*/, string_view label) {
    mEvents.BeginPass(label, true);
    mEvents.Mark(Tone::kTrigger, "triggered by " + std::string(label));
}

void PhraseInterpreter::OnAlert(string_view rest, string_view label) {
    constexpr string_view kDuringPass = ", TLS alert meanwhile";
    const std::size_t code = rest.rfind(", code ");
    const string_view behind = code == string_view::npos ? string_view{} : rest.substr(code);
    mEvents.Mark(Tone::kTrigger, std::string(label) + Limited(behind));
    OpenPass* const pass = mEvents.FindPass();
    if (pass != nullptr && !EndsWith(pass->trigger, kDuringPass)) {
        pass->trigger += kDuringPass;
    }
}

void PhraseInterpreter::OnWaitingForTrigger(string_view /*rest*/, string_view /*label*/) {
    mEvents.ClosePass();
}

void PhraseInterpreter::OnLaneValue(string_view rest, string_view label) {
    if (IsName(rest)) {
        mEvents.SetLane(std::string(label), std::string(rest));
    }
}

void PhraseInterpreter::OnSwitch(string_view rest, string_view label) {
    if (rest == "0" || rest == "1") {
        mEvents.SetLane(std::string(label), rest == "1" ? "on" : "off");
    }
}

void PhraseInterpreter::OnMark(string_view /*rest*/, string_view label) {
    mEvents.Mark(Tone::kPlain, std::string(label));
}

void PhraseInterpreter::OnBadMark(string_view /*rest*/, string_view label) {
    mEvents.Mark(Tone::kBad, std::string(label));
}

void PhraseInterpreter::OnHold(string_view /*rest*/, string_view label) {
    NoteWaitFor(label);
    mEvents.Mark(Tone::kPlain, "waits for: " + std::string(label));
}

void PhraseInterpreter::OnClockNotSet(string_view /*rest*/, string_view label) {
    NoteWaitFor("set clock");
    mEvents.Wait(10000, std::string(label) + ", asked again in 10 s");
}

void PhraseInterpreter::OnEcuMissing(string_view /*rest*/, string_view label) {
    NoteWaitFor(label);
    mEvents.Wait(10000, std::string(label) + " missing, asked again in 10 s");
}

void PhraseInterpreter::OnVinQuery(string_view /*rest*/, string_view /*label*/) {
    OpenPass& pass = mEvents.CurrentPass();
    if (std::exchange(pass.retryPending, false)) {
        ++pass.attempts;
    }
}

void PhraseInterpreter::OnWhy(string_view /*rest*/, string_view label) {
    if (OpenPass* const pass = mEvents.FindPass()) {
        pass->why = label;
    }
}

void PhraseInterpreter::OnNoUpdate(string_view /*rest*/, string_view /*label*/) {
    OpenPass& pass = mEvents.CurrentPass();
    pass.outcome = PassOutcome::kNoUpdateNeeded;
    if (pass.decision.empty()) {
        pass.decision = "no update (certificate in order)";
    }
    mEvents.Mark(Tone::kGood, "no update needed");
}

void PhraseInterpreter::OnReason(string_view rest, string_view /*label*/) {
    const auto* const reason = std::find_if(kReasons.begin(), kReasons.end(),
                                            [&](const ReasonText& r) { return r.name == rest; });
    if (reason == kReasons.end()) {
        return;
    }
    OpenPass& pass = mEvents.CurrentPass();
    pass.attempts = std::max(pass.attempts, 1U);
    const bool notYet = reason->number == "7" && !pass.why.empty();
    const std::string why = notYet ? pass.why : std::string(reason->why);
    const std::string text = "reason " + std::string(reason->number) + " (" + why + ")";
    pass.decision = "update, " + text;
    mEvents.SetLane(kReasonLane, text);
}

void PhraseInterpreter::OnCause(string_view /*rest*/, string_view label) {
    mEvents.CurrentPass().cause = label;
    mEvents.Mark(Tone::kBad, std::string(label));
}

void PhraseInterpreter::OnHttpStatus(string_view rest, string_view /*label*/) {
    // Numbers beyond these stand for an answer without a readable status.
    constexpr std::uint32_t kLeastStatus = 100;
    constexpr std::uint32_t kGreatestStatus = 599;
    std::uint32_t status = 0;
    const bool readable = LeadingNumber(rest, status) && status >= kLeastStatus &&
                          status <= kGreatestStatus && status != kUnknownHttpStatus;
    OpenPass& pass = mEvents.CurrentPass();
    pass.httpStatus = readable ? "HTTP " + std::to_string(status) : "no readable status";
    pass.cause = std::string(kExchangeFailures[kRefused]) + " (" + pass.httpStatus + ")";
}

void PhraseInterpreter::OnBackendResponse(string_view rest, string_view /*label*/) {
    std::uint32_t code = 0;
    if (!LeadingNumber(rest, code)) {
        return;
    }
    OpenPass& pass = mEvents.CurrentPass();
    if (code == 0) {
        mEvents.Mark(Tone::kPlain, "the backend answered");
        return;
    }
    const string_view failure =
        code < kExchangeFailures.size() ? kExchangeFailures.at(code) : string_view{};
    pass.cause = failure.empty() ? "exchange ended with status " + std::to_string(code)
                                 : std::string(failure);
    if (code == kRefused && !pass.httpStatus.empty()) {
        pass.cause += " (" + pass.httpStatus + ")";
    }
    mEvents.Mark(Tone::kBad, pass.cause);
}

void PhraseInterpreter::OnFailure(string_view /*rest*/, string_view label) {
    mEvents.Mark(Tone::kBad, std::string(label));
    Fail(std::string(label));
}

void PhraseInterpreter::OnVinsDiffer(string_view rest, string_view /*label*/) {
    const std::string text =
        "VINs differ: immobilizer (" + Limited(rest.substr(0, rest.rfind(" do not match!")));
    mEvents.Mark(Tone::kBad, text);
    Fail(text);
}

void PhraseInterpreter::OnUnexpectedEvent(string_view /*rest*/, string_view label) {
    mEvents.MarkProcess("client machine ends: " + std::string(label));
    mEvents.CutPass(label);
}

void PhraseInterpreter::OnRetry(string_view rest, string_view /*label*/) {
    std::uint32_t seconds = 0;
    if (!LeadingNumber(rest, seconds)) {
        return;
    }
    OpenPass& pass = mEvents.CurrentPass();
    CountKind(pass.causes, CauseOf(pass));
    pass.retryPending = true;
    const std::string number = std::to_string(++pass.retries);
    // The first retries of a pass whose beginning is missing are missing, too.
    const std::string which =
        pass.beginSeen ? "retry " + number + " of " + std::to_string(kRetries) : "retry";
    mEvents.Wait(std::int64_t{seconds} * 1000, which + " in " + std::to_string(seconds) + " s");
}

void PhraseInterpreter::OnRetryLimit(string_view /*rest*/, string_view /*label*/) {
    mEvents.CurrentPass().retryLimit = true;
}

void PhraseInterpreter::OnValidationDelay(string_view rest, string_view /*label*/) {
    std::uint32_t seconds = 0;
    if (LeadingNumber(rest, seconds)) {
        mEvents.Wait(std::int64_t{seconds} * 1000,
                     "answer is checked in " + std::to_string(seconds) + " s");
    }
}

void PhraseInterpreter::OnUpdated(string_view /*rest*/, string_view label) {
    mEvents.CurrentPass().outcome = PassOutcome::kStored;
    mEvents.Mark(Tone::kGood, std::string(label));
}

void PhraseInterpreter::OnUpdateFailed(string_view /*rest*/, string_view label) {
    OpenPass& pass = mEvents.CurrentPass();
    const std::string cause = CauseOf(pass);
    CountKind(pass.causes, cause);
    mEvents.Mark(Tone::kBad, std::string(label));
    Fail(pass.retryLimit ? "retry limit exceeded, last by: " + cause : cause);
}

void PhraseInterpreter::OnDropped(string_view rest, string_view label) {
    std::uint32_t count = 0;
    if (LeadingNumber(rest, count)) {
        mCounts.dropped += count;
        mEvents.Mark(Tone::kError, std::string(label) + std::to_string(count));
    }
}

void PhraseInterpreter::OnNothing(string_view /*rest*/, string_view /*label*/) {}

}  // namespace timeline
