// What takes more than one event of the client machine: orders, retries, and the reason in the
// request. Each single transition is a row of the transition table.

#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/activation_reason.h"
#include "client/client_life.h"

namespace {

using namespace std::chrono_literals;
using client_table::kOid;
using testing::ElementsAre;
using testing_support::ClientLife;
using vintrel::StatusCode;

const std::string kWaiting = "I Vintrel Client waiting for a trigger";

std::vector<std::string> LastCalls(const ClientLife& life, int count) {
    return {life.unit.calls.end() - count, life.unit.calls.end()};
}

TEST(ClientStartTest, BuildsAndStartsItsCollaboratorsInOrder) {
    ClientLife life;
    ASSERT_TRUE(life.Start());
    EXPECT_THAT(life.unit.calls,
                ElementsAre("NewProcessLifecycleAdapter", "SystemTimeIf::Create", "NewHsm",
                            "TiveGeneratorIf::Create", "NewZemConnectorFsm", "TlsAlertsIf::Create",
                            "TlsAlerts.Start", "ClampControlIf::Create", "ImmobilizerIf::Create",
                            "EcuCapabilitiesIf::Create", "Adapter.Initialize vintrel-client",
                            "Connector.StartFsm", "Clamp.Subscribe", "Immobilizer.Init",
                            "Ecu.Initialize", "SystemTime.Initialize"));
    EXPECT_EQ(life.unit.transactionType, "QUBA-GenerateTIVCert-C003");
    EXPECT_THAT(life.OwnLines(), ElementsAre(kWaiting));
}

TEST(ClientStartTest, StartsNoInputWithoutAdapter) {
    ClientLife life;
    life.unit.withAdapter = false;
    EXPECT_FALSE(life.Start());
    EXPECT_THAT(life.OwnLines(), ElementsAre("E Not able initialize ProcessLifecycleAdapter!",
                                             "I OnTerminate", "I Vintrel Client Terminated."));
    EXPECT_EQ(life.unit.calls.back(), "TlsAlerts.Stop") << "nothing was started meanwhile";
    EXPECT_EQ(life.State(), client_table::kTerminated);
}

TEST(ClientStartTest, StartsNoInputIfTheConnectorDoesNotStart) {
    ClientLife life;
    life.unit.connectorStarts = false;
    EXPECT_FALSE(life.Start(true));
    EXPECT_THAT(LastCalls(life, 3),
                ElementsAre("Connector.StartFsm", "TlsAlerts.Stop", "Adapter released"));
    EXPECT_THAT(life.OwnLines(), ElementsAre("I OnTerminate", "I Vintrel Client Terminated."));
}

TEST(ClientStartTest, AFactoryResetDeletesBeforeTheInputsStart) {
    for (const bool fails : {false, true}) {
        ClientLife life;
        life.unit.deleteFails = fails;
        ASSERT_TRUE(life.Start(true));
        EXPECT_THAT(LastCalls(life, 6),
                    ElementsAre("Connector.StartFsm", "Delete", "Clamp.Subscribe",
                                "Immobilizer.Init", "Ecu.Initialize", "SystemTime.Initialize"));
        std::vector<std::string> lines = {"I Vintrel Client Factory Reset",
                                          "I The TIV Certificate was deleted successfully",
                                          kWaiting};
        if (fails) {
            lines = {lines[0], "E Deleting the TIV certificate failed!", "E Factory Reset failed!",
                     kWaiting};
        }
        EXPECT_EQ(life.OwnLines(), lines);
    }
}

TEST(ClientPassTest, SendsTheRequestToTheUrl) {
    ClientLife life;
    ASSERT_TRUE(life.Start());
    life.RunToExchange();
    ASSERT_TRUE(life.ExchangeRuns());
    EXPECT_EQ(life.LastRequest(), "reason=0 oid= ecu=C003,H10,S20,PART-30 container");
    const vintrel::UrlData& url = life.unit.exchanges.back()->urlData;
    EXPECT_EQ(url.host + " " + std::to_string(url.port) + " " + url.path, "backend 8080 /enrol");
}

TEST(ClientPassTest, OnlyTheExactOperationIdIsAnAlert) {
    ClientLife life;
    ASSERT_TRUE(life.Start());
    life.Happen("clamp on", "URL failed");
    for (const std::string& oid : {kOid + "s", kOid.substr(1), kOid.substr(0, 34), std::string()}) {
        life.Mark();
        life.client->TlsAlertNotifyCb(oid, tls_alert_if::ETlsAlertCode::kCertificateRevoked);
        life.dispatcher->RunPending();
        EXPECT_THAT(life.Story(),
                    ElementsAre("I TLS alert received for oid: " + oid,
                                "D Received TLS alert IGNORED for oid " + oid + ", code 44"));
    }
}

TEST(ClientPassTest, IsAlwaysInGoodHealth) {
    ClientLife life;
    life.Arrange(client_table::kRetry);
    life.Mark();
    EXPECT_EQ(life.client->ProcessLifecycleAdapterGetHealthStatus(), 0);
    EXPECT_THAT(life.OwnLines(), ElementsAre("D Get Health Status called."));
}

TEST(ClientRetryTest, RetriesNineTimesToTheMillisecondAndThenGivesUp) {
    ClientLife life;
    life.unit.status = StatusCode::CommonNameMismatch;
    ASSERT_TRUE(life.Start());
    life.RunToExchange();
    life.unit.status = StatusCode::NoCertificate;
    for (const auto wait : {5s, 5s, 300s, 300s, 300s, 300s, 900s, 900s, 900s}) {
        life.Happen("response 8");
        life.Advance(wait - 1ms);
        EXPECT_EQ(life.State(), client_table::kRetry);
        life.Advance(1ms);
        ASSERT_EQ(life.State(), client_table::kWaitVin);
        life.Happen("VIN");
    }
    life.Happen("response 8");
    EXPECT_EQ(life.State(), client_table::kWaitTrigger);
    EXPECT_EQ(life.dispatcher->NextDelay(), std::nullopt);
    EXPECT_EQ(life.unit.exchanges.size(), 10U);
    EXPECT_EQ(life.unit.CountCalls("GetUrl"), 1U) << "a retry keeps the URL";
    EXPECT_EQ(life.unit.CountCalls("Delete"), 1U);
    life.RunToExchange();
    life.Happen("response 2");
    EXPECT_EQ(life.dispatcher->NextDelay(), 5s) << "the next pass counts from the start";
}

/// What happens in a life, one step after the other, and what its requests are about.
struct ReasonCase {
    std::string name;
    bool reset;
    std::vector<std::string> steps;
};

void PrintTo(const ReasonCase& reasonCase, std::ostream* stream) {
    *stream << reasonCase.name;
}

/// The beginning of a request is an expectation; words that are none of these are the life's own.
void Do(ClientLife& life, const std::string& step) {
    if (step == "pass") {
        life.RunToExchange();
    } else if (step == "retry") {
        life.FailAttempt();
        life.Happen("VIN");
    } else if (step == "all known after 10 s") {
        life.unit.timeSet = true;
        life.unit.ecu.partNumber = "PART-30";
        life.Advance(10s);
    } else if (step == "deleted once") {
        EXPECT_EQ(life.unit.CountCalls("Delete"), 1U);
    } else if (step.rfind("reason=", 0) == 0) {
        EXPECT_TRUE(life.ExchangeRuns());
        EXPECT_EQ(life.LastRequest().substr(0, step.size()), step);
    } else {
        life.Apply(step);
    }
}

const std::string kAlertReason = "reason=1 oid=" + kOid + " ";
const std::string kOldWithOid = "reason=7 oid=" + kOid + " ";
const std::string kRefusal = "response refusal";

const std::vector<ReasonCase> kReasonCases = {
    {"ResetIsToldOnce", true, {"pass", "reason=4 ", kRefusal, "pass", "reason=0 oid= "}},
    {"ResetSurvivesARetry", true, {"pass", "retry", "reason=4 oid= "}},
    {"ResetWaitsForNoCertificate",
     true,
     {"status 7", "pass", "reason=7 ", kRefusal, "status 2", "pass", "reason=4 oid= "}},
    {"AlertPassLeavesTheReset",
     true,
     {"alert", "pass", "reason=0 ", kRefusal, "pass", "reason=4 oid= "}},
    {"AlertWithClampOffMarksTheNextPass", false, {"status 0", "alert", "pass", kAlertReason}},
    {"SecondAlertMarksTheNextPass",
     false,
     {"status 0", "clamp on", "URL failed", "alert", "URL failed", "alert", "pass", kAlertReason}},
    {"AlertInWaitZemConnector",
     false,
     {"status 7", "connection 3", "clamp on", "alert", "URL", "service up", "VIN", kAlertReason}},
    {"AlertInCheckServices",
     false,
     {"status 7", "connection 3", "clamp on", "URL", "alert", "service up", "VIN", kAlertReason}},
    {"AlertInTheWaitForTheClock",
     false,
     {"status 7", "clock not set", "pass", "alert", "all known after 10 s", kAlertReason}},
    {"AlertInTheWaitForEcuData",
     false,
     {"status 7", "no part number", "pass", "alert", "all known after 10 s", kOldWithOid}},
    {"AlertInTheExchange", false, {"status 7", "pass", "alert", "reason=7 oid= "}},
    {"AlertInTheExchangeTurnsItsRetry",
     false,
     {"status 7", "pass", "alert", "status 0", "retry", kOldWithOid}},
    {"AlertInTheExchangeEndsWithThePass",
     false,
     {"status 7", "pass", "alert", kRefusal, "pass", "reason=7 oid= "}},
    {"AlertInAPassIsNotTheOneOfItsClampCycle",
     false,
     {"status 7", "pass", "alert", kRefusal, "alert", "URL", "VIN", kAlertReason}},
    {"RetryKeepsTheReasonThoughItDeletes",
     false,
     {"status 7", "pass", "status 6", "retry", "deleted once", "reason=7 oid= "}},
    {"RetryOfAnAlertPass", false, {"status 0", "alert", "pass", "status 2", "retry", kAlertReason}},
    {"PassAfterARetryJudgesAnew",
     false,
     {"status 7", "pass", "retry", kRefusal, "status 5", "pass", "reason=2 oid= "}},
    {"NextPassJudgesAnew",
     false,
     {"status 5", "pass", "reason=2 ", kRefusal, "status 7", "pass", "reason=7 oid= "}},
};

class ActivationReasonCaseTest : public testing::TestWithParam<ReasonCase> {};

TEST_P(ActivationReasonCaseTest, IsInTheRequest) {
    ClientLife life;
    ASSERT_TRUE(life.Start(GetParam().reset));
    life.Happen("session started");
    for (const std::string& step : GetParam().steps) {
        Do(life, step);
    }
}

INSTANTIATE_TEST_SUITE_P(Client, ActivationReasonCaseTest, testing::ValuesIn(kReasonCases),
                         [](const auto& reasonCase) { return reasonCase.param.name; });

TEST(ActivationReasonTest, HasTheNamesOfTheLog) {
    const std::vector<std::string> names = {
        "ACTIVATIONREASON_CLAMP30_DETECTED",
        "ACTIVATIONREASON_FORCE_REACTIVATION",
        "ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID",
        "ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE",
        "ACTIVATIONREASON_FACTORY_RESET",
        "ACTIVATIONREASON_OTHER",
        "ACTIVATION_REASON_DATA_TAMPERED",
        "ACTIVATION_REASON_CERT_1YEAR_EXPIRATION",
        "ACTIVATION_REASON_DIAGNOSTIC_ROUTINE",
    };
    for (int value = 0; value <= 8; ++value) {
        EXPECT_EQ(vintrel::StatusToString(static_cast<vintrel::ActivationReason>(value)),
                  names.at(static_cast<std::size_t>(value)));
    }
    EXPECT_EQ(vintrel::StatusToString(static_cast<vintrel::ActivationReason>(9)), "");
    EXPECT_EQ(vintrel::StatusToString(static_cast<vintrel::ActivationReason>(-1)), "");
}

}  // namespace
