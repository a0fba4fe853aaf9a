#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

/// The client machine's transition table, transitions.json. The machine's tests go through its
/// cases; the model of the simulated lives follows its rows.
///
/// In a state a trigger does what it does everywhere, and then what the first row says that has the
/// trigger and whose conditions hold. What it does is a story of items: "I text" is a line of the
/// machine with the letter of its level, "> call" a call to a neighbour, "+ kEventX" or "+ kEventX
/// in 5000 ms" raises an event, "- kEventX" drops one that is pending, "! fact: value" notes a
/// fact,
/// "= State" enters a state, "~ function" lets a function write its lines, "exit" ends the loop,
/// and
/// "@name" is a story that several rows share. A fact's name in braces stands for its value.
namespace client_table {

inline const std::string kNotStarted = "FsmStateNotStarted";
inline const std::string kWaitTrigger = "FsmStateWaitTrigger";
inline const std::string kWaitZemConnector = "FsmStateWaitZemConnector";
inline const std::string kCheckServices = "FsmStateCheckServices";
inline const std::string kWaitVin = "FsmStateWaitVin";
inline const std::string kDownload = "FsmStateDownloadCertificate";
inline const std::string kRetry = "FsmRetryProcedure";
inline const std::string kTerminated = "FsmStateTerminated";

inline const std::string kVin = "VNTREL00000000001";
inline const std::string kUrl = "http://backend:8080/enrol";
inline const std::string kOid = "QUBA-TokenManagement.COTokenRequest";

using Words = std::vector<std::string>;
using Facts = std::map<std::string, std::string>;
using See = std::function<void(const std::string& item)>;

/// One event on its way to the machine, with what it brings.
struct Trigger {
    int event{0};
    int info{0};
    int value{0};      ///< session status, connection state, return code, or 1 for a good URL
    std::string text;  ///< URL, VIN, oid or response
    bool bare{false};  ///< the payload is missing
};

/// The trigger of this name; an event's own name means that event alone.
Trigger TriggerOf(const std::string& name);

/// The name of such a trigger, by event, info and, where several differ by it, value; that of the
/// event if there is none.
std::string NameOf(const Trigger& trigger);

/// "kEventClampState" and so on.
std::string EventName(int event);
int EventId(const std::string& name);

/// The facts of a machine that has just been made.
const Facts& FirstFacts();
/// The facts of a word for the unit, as "status 2", and of each that is known as a trouble.
const Facts& FactsOf(const std::string& word);
const std::map<std::string, Facts>& Troubles();

/// Tells a story, item by item in the order in which they happen.
void Tell(const Words& story, Facts& facts, const See& see);
/// Tells what the thread that raises a trigger writes.
void TellRaising(const std::string& trigger, Facts& facts, const See& see);
/// Tells what a trigger leads to in a state; returns the state it leads to, maybe the same.
std::string Follow(const std::string& state, const std::string& trigger, Facts& facts,
                   const See& see);

/// One row in one situation.
struct Case {
    std::string name;  ///< unique, of letters and digits
    std::string state;
    std::string on;
    /// The situation, in the words that `ClientLife` knows: what has happened before the state was
    /// reached, and what in it.
    Words given;
    Words in;
    std::string to;  ///< where it leads, maybe the same state
    Words story;     ///< by kind: lines, calls, dropped and raised events, the exit
};

/// All cases of the table. To these it adds for each state the events that the state only notes, as
/// every state does, and those that it does not expect.
std::vector<Case> Cases();

}  // namespace client_table
