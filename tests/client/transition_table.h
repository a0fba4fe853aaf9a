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

/// One event on its way to the machine, with what it brings.
struct Trigger {
    int event{0};
    int info{0};
    int value{0};      ///< session status, connection state, return code, or 1 for a good URL
    std::string text;  ///< URL, VIN, oid or response
    bool bare{false};  ///< the payload is missing
};

/// The trigger of this name in transitions.json; an event's own name means that event alone.
Trigger TriggerOf(const std::string& name);

/// "kEventClampState" and so on.
std::string EventName(int event);

/// One row of the machine's transition table, transitions.json: what a trigger does in a state.
///
/// In the file a state has its own rows; "notes", the triggers that it only notes as every state
/// does; and "ends", those that it does not expect. "@" stands before the name of a story that
/// several rows share, and each trigger brings its own story along.
struct Row {
    std::string name;  ///< unique, of letters and digits
    std::string state;
    std::string on;
    /// The situation, in the words that `ClientLife` knows: what has happened before the state was
    /// reached, and what in it.
    std::vector<std::string> given;
    std::vector<std::string> in;
    std::string to;  ///< where it leads, maybe the same state
    /// What is to be seen, whole: the machine's own lines ("I text", by level), then the calls to
    /// its neighbours ("> call"), then what became of its pending events ("- kEventX", "+ kEventX",
    /// "+ kEventX in 5000 ms"), and "exit" for the end of the loop.
    std::vector<std::string> story;
};

std::vector<Row> Table();

}  // namespace client_table
