#include "client/transition_table.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <utility>

#include "client/scripted_messages.h"

namespace client_table {

namespace {

using Story = std::vector<std::string>;
using testing_support::kNoRequest;

enum Event : int {
    kCheckServicesEvent = 0,
    kCheckTimeEvent = 1,
    kStartDownloadEvent = 2,
    kResponseEvent = 3,
    kRetryTimerEvent = 4,
    kStartConnectorEvent = 5,
    kValidateEvent = 6,
    kStartUpdateEvent = 7,
    kConnectorEvent = 8,
    kClampEvent = 9,
    kImmobilizerEvent = 10,
    kVinEvent = 11,
    kAlertEvent = 12,
    kShutdownEvent = 13,
    kUnknownEvent = 14,
};

enum ConnectorInfo : int { kStatusInfo, kActivationInfo, kConnectionInfo, kUrlInfo };

const std::string kOtherVin = "VNTREL00000000002";

const std::string kWaiting = "I Vintrel Client waiting for a trigger";
const std::string kFailed = "E EndCertificateUpdate The TIV Certificate update failed!";
const std::string kUpdateNeeded = "I TIV certificate update needed.";
const std::string kNoUpdateNeeded = "I No TIV certificate update needed.";
const std::string kNoneAvailable = "I No TIV certificate available.";
const std::string kInvalid = "I Invalid TIV certificate.";
const std::string kDeleted = "I The TIV Certificate was deleted successfully";
const std::string kNotDeleted = "E Deleting the TIV certificate failed!";
const std::string kUnknownStatus = "E Unknown status code!";
const std::string kGetUrl = "I Get VTTL URL";
const std::string kServiceGood = "I Service check OK, continue.";
const std::string kRequestVin = "I Requesting VIN from the Immobilizer Service.";
const std::string kNoService = "I ServiceStatusCheck: Immobilizer service is not available";
const std::string kVinReceived = "I Received VIN from the Immobilizer Service: ";
const std::string kKoruVinReceived = "I Received VIN from the KORU: ";
const std::string kDownloadWaits =
    "I Certificate Download is waiting for correct Connection state...";
const std::string kDownloadRuns = "I Certificate Download is already ongoing";
const std::string kLimit = "I Retry limit exceeded. Stopping...";
const std::string kWrongStatus = "I CheckZemConnectorStatus: Wrong ZemConnector session status: ";

const std::string kNotUsable = "no usable connection";
const std::string kExchangeRuns = "exchange runs";
const std::string kMoreRetries = "retries left";
const std::string kTenthFailure = "tenth failure";

Story operator+(Story first, const Story& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// What an event that means the same in every state does there.
Story CommonStory(const Trigger& trigger) {
    static const std::map<int, std::string> statusLines = {
        {0, "I Zem-Connector: Idle"},
        {1, "I Zem-Connector: Starting"},
        {2, "I Zem-Connector was started successfully"},
        {3, "I Zem-Connector: Rejected"},
    };
    static const std::array<std::string, 4> connectionTexts = {"NotAvailable", "Disconnected",
                                                               "Ondemand", "Connected"};
    const std::string info = std::to_string(trigger.info);
    switch (trigger.event) {
        case kClampEvent:
            return {"I ClampStateChangeCb: state changed to " + info,
                    "I HandleClampControlEvent: Clamp 15 has changed state to " + info};
        case kImmobilizerEvent:
            return {"I ImmobilizerConnectionStateChangeCb: state changed to " + info,
                    "I Immobilizer Service connection state has changed to " + info};
        case kAlertEvent:
            return {"I TLS alert received for oid: " + kOid,
                    "I Received TLS alert for oid " + kOid + ", code 44"};
        case kShutdownEvent:
            return {"D Termination signal received",
                    "I Handling Vintrel Client termination request."};
        case kConnectorEvent:
            break;
        default:
            return {};
    }
    switch (trigger.info) {
        case kStatusInfo: {
            const auto line = statusLines.find(trigger.value);
            return line == statusLines.end() ? Story{} : Story{line->second};
        }
        case kConnectionInfo: {
            const auto index = static_cast<std::size_t>(trigger.value);
            return {"I Connection State changed to " +
                    (index < connectionTexts.size() ? connectionTexts.at(index) : "Unknown")};
        }
        case kActivationInfo:
        case kUrlInfo:
            return {};
        default:
            return {"E HandleZemConnectorEvent: Unknown eventInfo: " + info};
    }
}

Story EndStory() {
    return {"I OnTerminate", "I Vintrel Client Terminated.", "> Connector stopped",
            "> TlsAlerts.Stop", "> Adapter released"};
}

Story Deletion(const std::string& line) {
    return {kInvalid, line, kUpdateNeeded, "> CheckTrustStore", "> Delete", "+ kEventStartUpdate"};
}

Story Retry(const std::string& line, const std::string& seconds = "5") {
    return {line, "I Retrying in " + seconds + " seconds...",
            "+ kEventRetryTimer in " + seconds + "000 ms"};
}

Story UpdateBegins(const std::string& reason = "ACTIVATIONREASON_CLAMP30_DETECTED") {
    return {"I Updating the TIV Certificate", "I Activation reason: " + reason};
}

Story EcuMissing(const std::string& hardware, const std::string& software,
                 const std::string& part) {
    return UpdateBegins() +
           Story{"E ECU capabilities not available, hardwareVersion: '" + hardware +
                     "', softwareVersion: '" + software + "', partNumber: '" + part +
                     "'. Retrying in 10000 milliseconds...",
                 "+ kEventStartUpdate in 10000 ms"};
}

/// The steps of an update up to the request, as far as they get.
Story Steps(int count, const Story& end, const std::string& reason) {
    const std::string container = count == 2 ? kNoRequest : "container";
    const Story lines = {"I The CSR was generated successfully",
                         "I The TIVE Container was created successfully: '" + container + "'",
                         "I Protobuf was created successfully"};
    const Story calls = {"> GenerateCsr " + kVin, "> ConstructContainer"};
    Story story =
        UpdateBegins(reason) +
        Story{"I EcuHardwareVersion: H10", "I EcuSoftwareVersion: S20", "I EcuPartNumber: PART-30"};
    story.insert(story.end(), lines.begin(), lines.begin() + count);
    const auto events = std::find_if(end.begin(), end.end(),
                                     [](const std::string& item) { return item[0] == '+'; });
    story.insert(story.end(), end.begin(), events);
    story.insert(story.end(), calls.begin(), calls.begin() + std::min(count + 1, 2));
    story.insert(story.end(), events, end.end());
    return story;
}

Story Steps(int count, const Story& end) {
    return Steps(count, end, "ACTIVATIONREASON_CLAMP30_DETECTED");
}

Story GoodSteps(const std::string& reason) {
    return Steps(3, {"+ kEventStartDownload"}, reason);
}

class Rows {
public:
    explicit Rows(std::string state) : mState(std::move(state)) {}

    void Add(const Trigger& trigger, const std::string& when, const Story& given,
             const std::string& next, const Story& story) {
        mRows.push_back({mState, trigger, when, given, next, story, Kind::kOwn});
    }
    std::vector<Row> Take() { return std::move(mRows); }

private:
    std::string mState;
    std::vector<Row> mRows;
};

std::vector<Row> TriggerRows() {
    const Story byClamp = {"I Vintrel Client triggered by Clamp 15", "+ kEventStartConnector"};
    const Story byAlert = {"I Vintrel Client triggered by TLS Alert", "+ kEventStartConnector"};
    Rows rows(kWaitTrigger);
    rows.Add(On::Clamp(true), "Clamp 15 on", {}, kWaitZemConnector, byClamp);
    rows.Add(On::Clamp(true), "Clamp 15 on", {"Clamp 15 on"}, kWaitZemConnector, byClamp);
    rows.Add(On::Clamp(false), "Clamp 15 off", {"Clamp 15 on"}, "", {});
    rows.Add(On::Alert(), "Clamp 15 on, first alert", {"Clamp 15 on"}, kWaitZemConnector, byAlert);
    rows.Add(On::Alert(), "Clamp 15 on, first alert", {"alert handled", "clamp cycle"},
             kWaitZemConnector, byAlert);
    rows.Add(On::Alert(), "Clamp 15 off", {}, "", {"I TLS Alert ignored, because CLAMP15 is OFF"});
    rows.Add(On::Alert(), "alert handled before", {"alert handled"}, "",
             {"I TLS Alert ignored, already handled once"});
    rows.Add(On::Alert(), "alert handled before", {"alert handled", "Clamp 15 on"}, "",
             {"I TLS Alert ignored, already handled once"});
    return rows.Take();
}

std::vector<Row> ConnectorRows() {
    const Trigger start = On::Own(kStartConnectorEvent);
    const Story query = {kGetUrl, "> GetUrl"};
    const Story haveUrl = {"I Already have a URL, continue", "+ kEventCheckServices"};
    const std::string bad = "URL missing or unusable";
    Rows rows(kWaitZemConnector);
    rows.Add(start, "session not started", {}, "", {kWrongStatus + "0"});
    rows.Add(start, "session started", {"session started early"}, "", query);
    rows.Add(On::Status(0), "session not started", {}, "", {kWrongStatus + "0"});
    rows.Add(On::Status(1), "session not started", {}, "", {kWrongStatus + "1"});
    rows.Add(On::Status(7), "session not started", {}, "", {kWrongStatus + "0"});
    rows.Add(On::Status(2), "session started", {}, "", query);
    rows.Add(On::Status(2), "session started", {"session started"}, "", query);
    rows.Add(On::Status(7), "session started", {"session started"}, "", query);
    rows.Add(On::Status(2), "URL there already", {"URL there"}, kCheckServices, haveUrl);
    rows.Add(start, "URL there already", {"session started early", "URL there"}, kCheckServices,
             haveUrl);
    rows.Add(On::Url(), "URL good", {"session started"}, kCheckServices,
             {"I VTTL URL: '" + kUrl + "'", "+ kEventCheckServices"});
    rows.Add(On::NoUrl(), bad, {"session started"}, kWaitTrigger,
             {"E Error received for the URL!", "I VTTL URL: ''", "E No URL available", kWaiting});
    rows.Add(On::Url(""), bad, {"session started"}, kWaitTrigger,
             {"I VTTL URL: ''", "E No URL available", kWaiting});
    rows.Add(On::Url("backend"), bad, {"session started"}, kWaitTrigger,
             {"I VTTL URL: 'backend'", "E Invalid VTTL URL: 'backend'", kWaiting});
    return rows.Take();
}

std::vector<Row> ServiceRows() {
    const Trigger check = On::Own(kCheckServicesEvent);
    const Story query = {kServiceGood, kRequestVin, "> GetVin"};
    const Story dropped = {"- kEventCheckServices"};
    Rows rows(kCheckServices);
    rows.Add(check, "service connected", {"service connected early"}, kWaitVin, query);
    rows.Add(check, "service connected", {"service connected early", "two more checks pending"},
             kWaitVin, query + dropped);
    rows.Add(check, "service not connected", {}, "", {kNoService});
    rows.Add(check, "service not connected", {"two more checks pending"}, "",
             Story{kNoService} + dropped);
    rows.Add(On::Immobilizer(true), "service connected", {}, kWaitVin, query + dropped);
    rows.Add(On::Immobilizer(false), "service not connected", {}, "", Story{kNoService} + dropped);
    return rows.Take();
}

std::vector<Row> VinRows() {
    const std::string differ = "VINs differ";
    const auto different = [](const std::string& vin, const std::string& deletion) -> Story {
        return {kVinReceived + vin,
                kKoruVinReceived + kVin,
                "E Immobilizer VIN (" + vin + ") and KORU VIN (" + kVin + ") do not match!",
                "E Precheck Failed!",
                deletion,
                kWaiting,
                "> GetKoruVin",
                "> Delete"};
    };
    Rows rows(kWaitVin);
    rows.Add(On::Vin(), "VINs equal", {}, "",
             {kVinReceived + kVin, kKoruVinReceived + kVin, "I Precheck was completed successfully",
              "I Immobilizer VIN and KORU VIN match", "> GetKoruVin", "+ kEventCheckTime"});
    rows.Add(On::Vin(""), "a VIN empty", {}, kWaitTrigger,
             {"E Received an empty VIN from the Immobilizer Service.", kWaiting});
    rows.Add(On::Vin(), "a VIN empty", {"no KORU VIN"}, kWaitTrigger,
             {kVinReceived + kVin, "E No VIN received from the KORU.", kWaiting, "> GetKoruVin"});
    rows.Add(On::Vin(kOtherVin), differ, {}, kWaitTrigger, different(kOtherVin, kDeleted));
    rows.Add(On::Vin(kVin + " "), differ, {}, kWaitTrigger, different(kVin + " ", kDeleted));
    rows.Add(On::Vin(kOtherVin), differ, {"deletion fails"}, kWaitTrigger,
             different(kOtherVin, kNotDeleted));
    return rows.Take();
}

std::vector<Row> DecisionRows() {
    const Trigger time = On::Own(kCheckTimeEvent);
    const std::string matched = "VINs matched";
    const std::string none = "normal pass, no update required";
    const std::string due = "normal pass, update required";
    const std::string alert = "alert pass";
    const std::string look = "> CheckTrustStore";
    const std::string update = "+ kEventStartUpdate";
    const Story noUpdate = {kNoUpdateNeeded, kWaiting, look};
    const Story unknown = Story{kUnknownStatus} + noUpdate;
    const std::string& next = kStartUpdate;
    Rows rows(kWaitVin);
    rows.Add(time, "clock not set", {matched, "clock not set"}, "",
             {"I FsmStateWaitVin: System time is not set. Retrying in 10 seconds...",
              "+ kEventCheckTime in 10000 ms"});
    rows.Add(time, none, {matched, "status 0"}, kWaitTrigger, noUpdate);
    rows.Add(time, none, {matched, "status 1"}, kWaitTrigger, unknown);
    rows.Add(time, none, {matched, "status 3"}, kWaitTrigger, unknown);
    rows.Add(time, none, {matched, "status 8"}, kWaitTrigger, unknown);
    rows.Add(time, due, {matched, "status 2"}, next, {kNoneAvailable, kUpdateNeeded, look, update});
    rows.Add(time, due, {matched, "status 2", "factory reset"}, next,
             {kNoneAvailable, kUpdateNeeded, look, update});
    rows.Add(time, due, {matched, "status 4"}, next, Deletion(kDeleted));
    rows.Add(time, due, {matched, "status 4", "deletion fails"}, next, Deletion(kNotDeleted));
    rows.Add(time, due, {matched, "status 5"}, next, Deletion(kDeleted));
    rows.Add(time, due, {matched, "status 6"}, next, Deletion(kDeleted));
    rows.Add(time, due, {matched, "status 7"}, next, {kUpdateNeeded, look, update});
    rows.Add(time, due, {matched, "first status 4", "retries 1", "status 2"}, next,
             {kInvalid, kUpdateNeeded, look, update});
    rows.Add(time, due, {matched, "first status 2", "retries 1", "status 6"}, next,
             {kNoneAvailable, kDeleted, kUpdateNeeded, look, "> Delete", update});
    rows.Add(time, none, {matched, "first status 2", "retries 1", "status 0"}, kWaitTrigger,
             Story{kNoneAvailable} + noUpdate);
    rows.Add(time, none, {matched, "first status 7", "retries 1", "status 1"}, kWaitTrigger,
             noUpdate);
    rows.Add(time, alert, {matched, alert, "status 0"}, next, {look, update});
    rows.Add(time, alert, {matched, alert, "status 1"}, next, {look, update});
    rows.Add(time, alert, {matched, alert, "status 2"}, next, {look, update});
    rows.Add(time, alert, {matched, alert, "status 4"}, next, {look, update});
    rows.Add(time, alert, {matched, alert, "first status 0", "retries 1", "status 2"}, next,
             {"I Retry ongoing. Keep currect ActivationReason: ACTIVATIONREASON_FORCE_REACTIVATION",
              update});
    return rows.Take();
}

std::vector<Row> UpdateRows() {
    const Trigger start = On::Own(kStartUpdateEvent);
    const std::string missing = "ECU data missing";
    const std::string good = "all steps good";
    Rows rows(kStartUpdate);
    rows.Add(start, missing, {"no hardware version"}, "", EcuMissing("", "S20", "PART-30"));
    rows.Add(start, missing, {"no software version"}, "", EcuMissing("H10", "", "PART-30"));
    rows.Add(start, missing, {"no part number"}, "", EcuMissing("H10", "S20", ""));

    const std::vector<std::pair<Story, std::string>> reasons = {
        {{"first status 2"}, "ACTIVATIONREASON_CLAMP30_DETECTED"},
        {{"first status 2", "factory reset"}, "ACTIVATIONREASON_FACTORY_RESET"},
        {{"first status 4"}, "ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE"},
        {{"first status 5"}, "ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID"},
        {{"first status 6"}, "ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID"},
        {{"first status 7"}, "ACTIVATION_REASON_CERT_1YEAR_EXPIRATION"},
        {{"first status 2", "alert pass"}, "ACTIVATIONREASON_CLAMP30_DETECTED"},
        {{"first status 2", "alert pass", "factory reset"}, "ACTIVATIONREASON_CLAMP30_DETECTED"},
        {{"first status 0", "alert pass"}, "ACTIVATIONREASON_FORCE_REACTIVATION"},
        {{"first status 1", "alert pass"}, "ACTIVATIONREASON_FORCE_REACTIVATION"},
    };
    for (const auto& [given, reason] : reasons) {
        rows.Add(start, good, given, kDownload, GoodSteps(reason));
    }
    const std::vector<std::pair<std::string, std::string>> failures = {
        {"no CSR", "E Failed to generate the CSR!"},
        {"no container", "E Failed to create TIVE container!"},
        {"no request", "E Failed to create protobuffer!"},
    };
    int steps = 0;
    for (const auto& [given, line] : failures) {
        rows.Add(start, kMoreRetries, {given}, kRetry, Steps(steps, Retry(line)));
        rows.Add(start, kTenthFailure, {given, "retries 9"}, kWaitTrigger,
                 Steps(steps, {line, kLimit, kFailed, kWaiting}));
        ++steps;
    }
    return rows.Take();
}

/// The events that repeat the download test, in the three situations that it knows.
std::vector<Row> DownloadTestRows() {
    const std::string free = "usable connection, no exchange";
    const Story starts = {"I Certificate Update started, type = 0", "> exchange started"};
    const Story alertStarts = {"I Certificate Update started, type = 1", "> exchange started"};
    Rows rows(kDownload);
    rows.Add(On::Own(kStartDownloadEvent), kNotUsable, {"connection 1"}, "", {kDownloadWaits});
    rows.Add(On::Own(kStartDownloadEvent), free, {"connection 2"}, "", starts);
    rows.Add(On::Own(kStartDownloadEvent), free, {"connection 3", "alert pass"}, "", alertStarts);
    rows.Add(On::Own(kStartDownloadEvent), "exchange does not start",
             {"connection 3", "no exchange"}, kWaitTrigger,
             {"I Certificate Update started, type = 0", "E BackendRequestHandlerFsm start failed!",
              kFailed, kWaiting, "> exchange refused"});
    rows.Add(On::Connection(2), free, {}, "", starts);
    rows.Add(On::Connection(3), free, {}, "", starts);
    rows.Add(On::Connection(9), kNotUsable, {"connection 3"}, "", {kDownloadWaits});
    rows.Add(On::Connection(1), kNotUsable, {kExchangeRuns}, "", {kDownloadWaits});
    rows.Add(On::Connection(2), kExchangeRuns, {kExchangeRuns}, "", {kDownloadRuns});

    const std::vector<Trigger> triggers = {On::Own(kStartDownloadEvent),
                                           On::Status(0),
                                           On::Status(7),
                                           On::Activation(),
                                           On::Url(),
                                           On::UnknownInfo(),
                                           On::Alert()};
    for (const Trigger& trigger : triggers) {
        rows.Add(trigger, kNotUsable, {}, "", {kDownloadWaits});
        rows.Add(trigger, free, {"connection 3"}, "",
                 trigger.event == kAlertEvent ? alertStarts : starts);
        rows.Add(trigger, kExchangeRuns, {kExchangeRuns}, "", {kDownloadRuns});
    }
    return rows.Take();
}

std::vector<Row> ResponseRows() {
    const auto received = [](int code) {
        return Story{"I Backend response received, status: " + std::to_string(code)};
    };
    const std::string refused = "refused or unreadable";
    const std::string failed = "I Backend connection failed, retrying...";
    const Story given = {kExchangeRuns};
    Rows rows(kDownload);
    rows.Add(On::Response(0, "certificate chain"), "a certificate", given, kCheckAndStore,
             received(0) + Story{"I Received a TIV Certificate: 'chain'",
                                 "I Delay TIV validation by 3 seconds...",
                                 "+ kEventValidateCertificate in 3000 ms"});
    rows.Add(On::Response(0, "broken"), refused, given, kWaitTrigger,
             received(0) + Story{"E Unable to parse the Response!", kFailed, kWaiting});
    rows.Add(On::Response(9, "error text"), refused, given, kWaitTrigger,
             received(9) + Story{"I GenericError received!\ntext", kFailed, kWaiting});
    rows.Add(On::Response(9, "broken"), refused, given, kWaitTrigger,
             received(9) + Story{"E Failed to parse error response", kFailed, kWaiting});
    rows.Add(On::Response(8), kTenthFailure, {"retries 9", kExchangeRuns}, kWaitTrigger,
             received(8) + Story{failed, kLimit, kFailed, kWaiting});

    for (const int code : {1, 2, 3, 6, 7, 8, 10, 11}) {
        rows.Add(On::Response(code), kMoreRetries, given, kRetry, received(code) + Retry(failed));
    }
    const Story waits = {"5", "300", "300", "300", "300", "900", "900", "900"};
    for (std::size_t index = 0; index < waits.size(); ++index) {
        rows.Add(On::Response(2), kMoreRetries,
                 {"retries " + std::to_string(index + 1), kExchangeRuns}, kRetry,
                 received(2) + Retry(failed, waits[index]));
    }
    return rows.Take();
}

std::vector<Row> CheckRows() {
    const Trigger validate = On::Own(kValidateEvent);
    const std::string check = "> Check chain " + kVin;
    Rows rows(kCheckAndStore);
    rows.Add(validate, "valid and stored", {}, kWaitTrigger,
             {"I The TIV Certificate is valid",
              "I The TIV Certificate and the Key were stored successfully",
              "I EndCertificateUpdate The TIV Certificate was successfully updated", kWaiting,
              check, "> Store chain"});
    rows.Add(validate, "not valid", {"check fails"}, kWaitTrigger,
             {"E Checking the TIV Certificate failed!", kFailed, kWaiting, check});
    rows.Add(validate, "not stored", {"storing fails"}, kWaitTrigger,
             {"I The TIV Certificate is valid", "E Storing the TIV Certificate failed!", kFailed,
              kWaiting, check, "> Store chain"});
    return rows.Take();
}

std::vector<Row> RetryRows() {
    Rows rows(kRetry);
    rows.Add(On::Own(kRetryTimerEvent), "", {}, kWaitVin, {kRequestVin, "> GetVin"});
    return rows.Take();
}

/// The events that a state has rows of its own for.
bool IsOwnEvent(const std::string& state, int event) {
    static const std::map<std::string, std::set<int>> own = {
        {kWaitTrigger, {kClampEvent, kAlertEvent}},
        {kWaitZemConnector, {kStartConnectorEvent, kConnectorEvent}},
        {kCheckServices, {kCheckServicesEvent, kImmobilizerEvent}},
        {kWaitVin, {kVinEvent, kCheckTimeEvent}},
        {kStartUpdate, {kStartUpdateEvent}},
        {kDownload, {kStartDownloadEvent, kConnectorEvent, kAlertEvent, kResponseEvent}},
        {kCheckAndStore, {kValidateEvent}},
        {kRetry, {kRetryTimerEvent}},
    };
    return own.at(state).count(event) > 0;
}

std::vector<Row> CommonRows() {
    const std::vector<Trigger> triggers = {
        On::Status(2),          On::Status(7),    On::Activation(),
        On::Connection(3),      On::Url(),        On::UnknownInfo(),
        On::Clamp(true),        On::Clamp(false), On::Immobilizer(true),
        On::Immobilizer(false), On::Alert()};
    std::vector<Row> rows;
    for (const std::string& state : States()) {
        for (const Trigger& trigger : triggers) {
            if (!IsOwnEvent(state, trigger.event)) {
                rows.push_back({state, trigger, "", {}, "", {}, Kind::kCommon});
            }
        }
    }
    for (const Trigger& trigger : {On::Status(0), On::Status(1), On::Connection(0),
                                   On::Connection(1), On::Connection(2), On::Connection(9)}) {
        rows.push_back({kWaitTrigger, trigger, "", {}, "", {}, Kind::kCommon});
    }
    // Beside the URL and the status this state takes no interest in the connector either.
    for (const Trigger& trigger : {On::Activation(), On::Connection(3), On::UnknownInfo()}) {
        rows.push_back(
            {kWaitZemConnector, trigger, "", {"session started"}, "", {}, Kind::kCommon});
    }
    return rows;
}

/// The rows that end the machine, in every state.
std::vector<Row> EndRows() {
    std::vector<Row> rows;
    const auto add = [&rows](const std::string& state, const Trigger& trigger,
                             const std::string& when, const Story& given, const Story& story) {
        rows.push_back({state, trigger, when, given, kTerminated, story, Kind::kEnd});
    };
    const auto rejected = [&add](const std::string& state, const Story& given,
                                 const Story& lastLine) {
        Story story = EndStory();
        story.insert(story.begin() + 2, lastLine.begin(), lastLine.end());
        add(state, On::Status(3), "session rejected", given, story);
    };
    for (const std::string& state : States()) {
        for (int event = kCheckServicesEvent; event <= kUnknownEvent; ++event) {
            const bool common = event >= kConnectorEvent && event <= kShutdownEvent;
            if (!IsOwnEvent(state, event) && (!common || event == kVinEvent)) {
                add(state, event == kVinEvent ? On::Vin() : On::Own(event), "not expected", {},
                    Story{"E Unknown event " + std::to_string(event) + ", eventInfo: 0"} +
                        EndStory());
            }
        }
        add(state, On::Shutdown(), "", {}, EndStory() + Story{"exit"});
        rejected(state, {},
                 state == kWaitZemConnector ? Story{kWrongStatus + "3"}
                 : state == kDownload       ? Story{kDownloadWaits}
                                            : Story{});
    }
    add(kDownload, On::Shutdown(), "", {kExchangeRuns}, EndStory() + Story{"exit"});
    rejected(kDownload, {kExchangeRuns}, {kDownloadRuns});
    rejected(kDownload, {"connection 2"}, {"I Certificate Update started, type = 0"});
    return rows;
}

/// Before the start and after the end nothing is done, and the event is told.
std::vector<Row> FrameRows() {
    std::vector<Row> rows;
    for (const int event : {kCheckServicesEvent, kRetryTimerEvent, kResponseEvent, kUnknownEvent}) {
        const std::string number = std::to_string(event);
        rows.push_back({kNotStarted,
                        On::Own(event),
                        "",
                        {},
                        "",
                        {"E Error: no event expected in state FsmStateNotStarted, eventId: " +
                         number + ", eventInfo: 0"},
                        Kind::kCommon});
        rows.push_back({kTerminated,
                        On::Own(event),
                        "",
                        {},
                        "",
                        {"W no event expected in state FsmStateTerminated, eventId: " + number +
                         ", eventInfo: 0"},
                        Kind::kCommon});
    }
    return rows;
}

std::vector<Row> MakeTable() {
    std::vector<Row> table;
    for (auto& part : {TriggerRows(), ConnectorRows(), ServiceRows(), VinRows(), DecisionRows(),
                       UpdateRows(), DownloadTestRows(), ResponseRows(), CheckRows(), RetryRows(),
                       CommonRows(), EndRows(), FrameRows()}) {
        table.insert(table.end(), part.begin(), part.end());
    }
    for (Row& row : table) {
        row.story = CommonStory(row.trigger) + row.story;
    }
    return table;
}

/// The words of a text, each with a capital letter, put together.
std::string Camel(const std::string& text) {
    std::string result;
    bool start = true;
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        if (std::isalnum(byte) == 0) {
            start = true;
            continue;
        }
        result += start ? static_cast<char>(std::toupper(byte)) : letter;
        start = false;
    }
    return result;
}

}  // namespace

const std::vector<std::string>& States() {
    static const std::vector<std::string> states = {
        kWaitTrigger, kWaitZemConnector, kCheckServices, kWaitVin,
        kStartUpdate, kDownload,         kCheckAndStore, kRetry};
    return states;
}

std::string EventName(int event) {
    static const std::array<std::string, 14> names = {"kEventCheckServices",
                                                      "kEventCheckTime",
                                                      "kEventStartDownload",
                                                      "kEventBackendResponse",
                                                      "kEventRetryTimer",
                                                      "kEventStartConnector",
                                                      "kEventValidateCertificate",
                                                      "kEventStartUpdate",
                                                      "kEventZemConnector",
                                                      "kEventClampState",
                                                      "kEventImmobilizerConnection",
                                                      "kEventImmobilizerVin",
                                                      "kEventTlsAlert",
                                                      "kEventShutdown"};
    const auto index = static_cast<std::size_t>(event);
    return index < names.size() ? names.at(index) : "kEventUnknown";
}

std::string Row::Name() const {
    std::string name = Camel(state) + "_" + EventName(trigger.event).substr(6);
    if (trigger.info != 0) {
        name += std::to_string(trigger.info);
    }
    if (trigger.event == kConnectorEvent || trigger.event == kResponseEvent) {
        name += "Value" + std::to_string(trigger.value);
    }
    if (trigger.event == kConnectorEvent || trigger.event == kVinEvent ||
        trigger.event == kResponseEvent) {
        name += Camel(trigger.text == kUrl || trigger.text == kVin ? "" : trigger.text);
    }
    name += "_" + Camel(when);
    for (const std::string& word : given) {
        name += "_" + Camel(word);
    }
    return name;
}

const std::vector<Row>& Table() {
    static const std::vector<Row> table = MakeTable();
    return table;
}

}  // namespace client_table
