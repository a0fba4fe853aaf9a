#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "timeline/explain_printer.h"
#include "timeline/log_reader.h"

namespace timeline {

namespace {

/// What --explain says of a log, up to the sums.
std::string Explain(const std::string& log) {
    std::ostringstream output;
    ExplainPrinter printer(output);
    LogReader reader({}, [&](const Event& event) { printer.Print(event); });
    reader.Feed(log);
    reader.Finish();
    return output.str();
}

/// Lines of the client machine, without times.
std::string ClientLog(const std::vector<std::string>& texts) {
    std::string log;
    for (const std::string& text : texts) {
        log += "info    VT VintrelClientFsm: " + text + "\n";
    }
    return log;
}

struct Story {
    std::vector<std::string> behindTrigger;
    /// Behind the trigger, up to the length.
    std::string says;
};

const std::string kWaiting = "Vintrel Client waiting for a trigger";
const std::string kUpdate = "Activation reason: ACTIVATIONREASON_CLAMP30_DETECTED";
const std::string kDecided = "update, reason 0 (no certificate stored); 1 attempt; ";
const std::string kFailed = "EndCertificateUpdate The TIV Certificate update failed!";

TEST(LogInterpreterTest, SaysHowAPassEnded) {
    const std::vector<Story> stories{
        {{"No URL available", kWaiting},
         "no decision; 0 attempts; failed: no URL from the connector"},
        {{"Invalid VTTL URL: 'x'", kWaiting}, "no decision; 0 attempts; failed: URL invalid"},
        {{"Received an empty VIN from the Immobilizer Service.", kWaiting},
         "no decision; 0 attempts; failed: empty VIN from the immobilizer"},
        {{"No VIN received from the KORU.", kWaiting},
         "no decision; 0 attempts; failed: no VIN in the base certificate"},
        {{kUpdate, "BackendRequestHandlerFsm start failed!", kFailed, kWaiting},
         kDecided + "failed: exchange could not start"},
        {{kUpdate, "Backend response received, status: 0", "Unable to parse the Response!", kFailed,
          kWaiting},
         kDecided + "failed: answer unreadable"},
        {{kUpdate, "Storing the TIV Certificate failed!", kFailed, kWaiting},
         kDecided + "failed: received certificate could not be stored"},
        {{kUpdate, kFailed, kWaiting}, kDecided + "failed: cause not in the log"},
        {{kUpdate, "Unknown event 7, eventInfo: 0", "Vintrel Client Terminated."},
         kDecided + "cut off: event that no state expects"},
        {{"Zem-Connector: Rejected", "Vintrel Client Terminated."},
         "no decision; 0 attempts; cut off: connector session rejected"},
        {{kUpdate, "Handling Vintrel Client termination request."},
         kDecided + "cut off: termination request"},
        {{"State transition to FsmStateWaitVin"},
         "no decision; 0 attempts; still running at the end of the log, in FsmStateWaitVin"},
        {{"State transition to FsmStateWaitVin", kWaiting},
         "no decision; 0 attempts; ended, the log does not say how"},
        {{"Activation reason: ACTIVATION_REASON_CERT_1YEAR_EXPIRATION",
          "EndCertificateUpdate The TIV Certificate was successfully updated", kWaiting},
         "update, reason 7 (certificate ends within a year); 1 attempt; certificate stored"},
    };
    for (const Story& story : stories) {
        std::vector<std::string> texts{"Vintrel Client triggered by Clamp 15"};
        texts.insert(texts.end(), story.behindTrigger.begin(), story.behindTrigger.end());
        const std::string wanted = "(no time) pass 1: Clamp 15; " + story.says + "; no times";
        EXPECT_THAT(Explain(ClientLog(texts)), testing::HasSubstr(wanted));
    }
}

TEST(LogInterpreterTest, CountsTheAttemptsOfAnExhaustedPass) {
    std::vector<std::string> texts{"Vintrel Client triggered by TLS Alert"};
    for (int attempt = 1; attempt <= 10; ++attempt) {
        texts.insert(
            texts.end(),
            {"Requesting VIN from the Immobilizer Service.",
             "Requesting VIN from the Immobilizer Service.",
             "Received TLS alert for oid QUBA-TokenManagement.COTokenRequest, code 44",
             "FsmStateWaitVin: System time is not set. Retrying in 10 seconds...", kUpdate,
             attempt < 3 ? "Failed to generate the CSR!" : "Backend response received, status: 2"});
        texts.emplace_back(attempt < 10 ? "Retrying in 5 seconds..."
                                        : "Retry limit exceeded. Stopping...");
    }
    texts.insert(texts.end(), {kFailed, kWaiting});
    EXPECT_EQ(Explain(ClientLog(texts)),
              "(no time) pass 1: TLS alert, TLS alert meanwhile; update, reason 0 (no certificate "
              "stored); 10 attempts; failed: retry limit exceeded, last by: no complete answer "
              "within 30 s; no times; attempts failed by: 2 x CSR failed, 8 x no complete answer "
              "within 30 s; waited for: 10 x set clock\n");
}

TEST(LogInterpreterTest, AJournalTellsARestartByTheProcess) {
    const std::string text = "info    VT VintrelClientFsm: Vintrel Client triggered by Clamp 15\n";
    // Half a second of disorder is no jump of the clock.
    EXPECT_EQ(
        Explain("[   10.000000] unit vintrel-client[81]: " + text +
                "[    9.500000] unit vintrel-client[82]: " + text +
                "-- Boot 5f1c8d2b7c1e4b0e9e54f6d3a2b1c0d9 --\n"
                "[    3.000000] unit vintrel-client[80]: " +
                text),
        "[10.000 s after start] pass 1: Clamp 15; no decision; 0 attempts; cut off: the "
        "service was started anew; 0.000 s\n"
        "[10.000 s after start] -- service started\n"
        "[10.000 s after start] pass 2: Clamp 15; no decision; 0 attempts; cut off: the "
        "machine was started anew; 0.000 s\n"
        "[10.000 s after start] -- machine started\n"
        "[3.000 s after start] -- clock set back by 7.000 s\n"
        "[3.000 s after start] pass 3: Clamp 15; no decision; 0 attempts; ended, the log does "
        "not say how; 0.000 s\n");
}

/// The states that a log gives the lanes, "LANE=TEXT".
std::vector<std::string> States(const std::string& log) {
    std::vector<std::string> states;
    LogReader reader({}, [&](const Event& event) {
        EXPECT_LE(event.text.size(), 203U);
        if (event.kind == EventKind::kState) {
            states.push_back(event.lane + "=" + event.text);
        }
    });
    reader.Feed(log);
    reader.Finish();
    return states;
}

TEST(LogInterpreterTest, LanesEndWithThePassAndTheProcess) {
    const std::string log =
        ClientLog({"Vintrel Client triggered by Clamp 15"}) +
        "info    VT The Certificate is not valid yet\n" +
        ClientLog({"Activation reason: ACTIVATION_REASON_CERT_1YEAR_EXPIRATION",
                   "HandleClampControlEvent: Clamp 15 has changed state to 1", kWaiting,
                   "HandleClampControlEvent: Clamp 15 has changed state to 0"}) +
        "info    VT ~EventDispatcher\ninfo    VT ~EventDispatcher\n";
    EXPECT_THAT(States(log), testing::ElementsAre(
                                 "Activation reason=reason 7 (certificate not valid yet)",
                                 "Clamp 15=on", "Activation reason=", "Clamp 15=off", "Clamp 15="));
}

TEST(LogInterpreterTest, ALogCannotMakeLanesOrTextsWithoutEnd) {
    std::string log = "error   VT " + std::string(1000, 'x') + "\n";
    for (int machine = 0; machine < 30; ++machine) {
        log += "info    VT M" + std::to_string(machine) + ": State transition to FsmStateA\n";
    }
    EXPECT_EQ(States(log).size(), 24U);
}

TEST(LogInterpreterTest, ALogOfErrorsAloneHasTheStatusOfARefusal) {
    EXPECT_THAT(
        Explain("error   VT BackendRequestHandler: Unexpected HTTP response: 403!\n"
                "error   VT VintrelClientFsm: EndCertificateUpdate The TIV Certificate update "
                "failed!\n"),
        testing::HasSubstr("failed: refused by the backend (HTTP 403);"));
}

}  // namespace

}  // namespace timeline
