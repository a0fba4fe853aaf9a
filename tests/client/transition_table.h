#pragma once

#include <string>
#include <vector>

namespace client_table {

inline const std::string kNotStarted = "FsmStateNotStarted";
inline const std::string kWaitTrigger = "FsmStateWaitTrigger";
inline const std::string kWaitZemConnector = "FsmStateWaitZemConnector";
inline const std::string kCheckServices = "FsmStateCheckServices";
inline const std::string kWaitVin = "FsmStateWaitVin";
inline const std::string kStartUpdate = "StartCertificateUpdate";
inline const std::string kDownload = "FsmStateDownloadCertificate";
inline const std::string kCheckAndStore = "FsmStateCheckAndStoreTiv";
inline const std::string kRetry = "FsmRetryProcedure";
inline const std::string kTerminated = "FsmStateTerminated";

inline const std::string kVin = "VNTREL00000000001";
inline const std::string kUrl = "http://backend:8080/enrol";
inline const std::string kOid = "QUBA-TokenManagement.COTokenRequest";

/// The states in which the machine works, in the order in which a pass meets them.
const std::vector<std::string>& States();

/// One event on its way to the machine, with what it brings.
struct Trigger {
    int event{0};
    int info{0};
    int value{0};        ///< session status, connection state or return code
    std::string text{};  ///< URL, VIN, oid or response
};

/// What a trigger is named in the table.
struct On {
    static Trigger Own(int event) { return {event}; }
    static Trigger Response(int code, const std::string& body = {}) { return {3, 0, code, body}; }
    static Trigger Status(int status) { return {8, 0, status}; }
    static Trigger Activation() { return {8, 1}; }
    static Trigger Connection(int state) { return {8, 2, state}; }
    static Trigger Url(const std::string& url = kUrl) { return {8, 3, 1, url}; }
    static Trigger NoUrl() { return {8, 3, 0, kUrl}; }
    static Trigger UnknownInfo() { return {8, 9}; }
    static Trigger Clamp(bool on) { return {9, on ? 1 : 0}; }
    static Trigger Immobilizer(bool connected) { return {10, connected ? 1 : 0}; }
    static Trigger Vin(const std::string& vin = kVin) { return {11, 0, 0, vin}; }
    static Trigger Alert(const std::string& oid = kOid) { return {12, 0, 0, oid}; }
    static Trigger Shutdown() { return {13}; }
};

/// "kEventClampState" and so on.
std::string EventName(int event);

enum class Kind {
    kOwn,     ///< the state does something about the event
    kCommon,  ///< the event is only noted, as in every state
    kEnd,     ///< the event ends the machine
};

/// One row of the machine's transition table: what one event does in one state.
///
/// The story is what is to be seen, whole: the machine's own lines ("I text", by level), then the
/// calls to its neighbours ("> call"), then what became of its pending events ("+ kEventX", "+
/// kEventX in 5000 ms", "- kEventX"), and "exit" for the end of the loop.
struct Row {
    std::string state;
    Trigger trigger;
    /// The condition, in the words of the page; rows may share it.
    std::string when;
    /// What brings the condition about, in the words that `ClientLife` knows.
    std::vector<std::string> given;
    /// Empty if the machine stays where it is.
    std::string next;
    std::vector<std::string> story;
    Kind kind{Kind::kOwn};

    /// A name for the row, unique in the table, of letters and digits.
    std::string Name() const;
};

const std::vector<Row>& Table();

}  // namespace client_table
