// What takes more than one event of the client machine: orders, whole passes, retries, and what a
// pass leaves to the next one. Each single transition is a row of the transition table.

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/activation_reason.h"
#include "client/client_life.h"

namespace {

using namespace std::chrono_literals;
using client_table::kOid;
using client_table::kUrl;
using client_table::kVin;
using client_table::On;
using testing::ElementsAre;
using testing_support::ClientLife;
using vintrel::StatusCode;

const std::string kWaiting = "I Vintrel Client waiting for a trigger";

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
    const std::vector<std::string> end(life.unit.calls.end() - 3, life.unit.calls.end());
    EXPECT_THAT(end, ElementsAre("Connector.StartFsm", "TlsAlerts.Stop", "Adapter released"));
    EXPECT_THAT(life.OwnLines(), ElementsAre("I OnTerminate", "I Vintrel Client Terminated."));
}

TEST(ClientStartTest, AFactoryResetDeletesBeforeTheInputsStart) {
    ClientLife life;
    ASSERT_TRUE(life.Start(true));
    const std::vector<std::string> end(life.unit.calls.end() - 6, life.unit.calls.end());
    EXPECT_THAT(end, ElementsAre("Connector.StartFsm", "Delete", "Clamp.Subscribe",
                                 "Immobilizer.Init", "Ecu.Initialize", "SystemTime.Initialize"));
    EXPECT_THAT(life.OwnLines(),
                ElementsAre("I Vintrel Client Factory Reset",
                            "I The TIV Certificate was deleted successfully", kWaiting));
}

TEST(ClientStartTest, AFactoryResetThatFailsIsNoObstacle) {
    ClientLife life;
    life.unit.deleteFails = true;
    ASSERT_TRUE(life.Start(true));
    EXPECT_THAT(life.OwnLines(), ElementsAre("I Vintrel Client Factory Reset",
                                             "E Deleting the TIV certificate failed!",
                                             "E Factory Reset failed!", kWaiting));
}

TEST(ClientPassTest, TellsTheWholeStoryOfAPass) {
    ClientLife life;
    ASSERT_TRUE(life.Start());
    life.RunToExchange();
    ASSERT_TRUE(life.ExchangeRuns());
    EXPECT_EQ(life.LastRequest(), "reason=0 oid= ecu=C003,H10,S20,PART-30 container");
    EXPECT_EQ(life.unit.exchanges.back()->urlData.host, "backend");
    EXPECT_EQ(life.unit.exchanges.back()->urlData.port, 8080);
    EXPECT_EQ(life.unit.exchanges.back()->urlData.path, "/enrol");
    life.Happen(On::Response(0, "certificate chain"));
    life.Advance(2999ms);
    EXPECT_EQ(life.State(), client_table::kCheckAndStore);
    life.Advance(1ms);
    EXPECT_THAT(
        life.OwnLines(),
        ElementsAre(
            kWaiting, "I ClampStateChangeCb: state changed to 1",
            "I HandleClampControlEvent: Clamp 15 has changed state to 1",
            "I Vintrel Client triggered by Clamp 15",
            "I CheckZemConnectorStatus: Wrong ZemConnector session status: 0",
            "I Zem-Connector was started successfully", "I Get VTTL URL",
            "I VTTL URL: '" + kUrl + "'",
            "I ServiceStatusCheck: Immobilizer service is not available",
            "I ImmobilizerConnectionStateChangeCb: state changed to 1",
            "I Immobilizer Service connection state has changed to 1",
            "I Service check OK, continue.", "I Requesting VIN from the Immobilizer Service.",
            "I Received VIN from the Immobilizer Service: " + kVin,
            "I Received VIN from the KORU: " + kVin, "I Precheck was completed successfully",
            "I Immobilizer VIN and KORU VIN match", "I No TIV certificate available.",
            "I TIV certificate update needed.", "I Updating the TIV Certificate",
            "I Activation reason: ACTIVATIONREASON_CLAMP30_DETECTED", "I EcuHardwareVersion: H10",
            "I EcuSoftwareVersion: S20", "I EcuPartNumber: PART-30",
            "I The CSR was generated successfully",
            "I The TIVE Container was created successfully: 'container'",
            "I Protobuf was created successfully",
            "I Certificate Download is waiting for correct Connection state...",
            "I Connection State changed to Ondemand", "I Certificate Update started, type = 0",
            "I Backend response received, status: 0", "I Received a TIV Certificate: 'chain'",
            "I Delay TIV validation by 3 seconds...", "I The TIV Certificate is valid",
            "I The TIV Certificate and the Key were stored successfully",
            "I EndCertificateUpdate The TIV Certificate was successfully updated", kWaiting));
    EXPECT_EQ(life.State(), client_table::kWaitTrigger);
}

TEST(ClientPassTest, WaitsForTheClockAndForTheEcuDataWithoutLimit) {
    ClientLife life;
    life.unit.timeSet = false;
    life.unit.ecuCapabilities.partNumber.clear();
    ASSERT_TRUE(life.Start());
    life.RunToExchange();
    for (const std::string& state : {client_table::kWaitVin, client_table::kStartUpdate}) {
        for (int round = 0; round < 20; ++round) {
            EXPECT_EQ(life.State(), state);
            EXPECT_EQ(life.dispatcher->NextDelay(), 10s);
            life.Advance(10s);
        }
        if (state == client_table::kWaitVin) {
            life.unit.timeSet = true;
            life.Advance(10s);
        }
    }
    life.unit.ecuCapabilities.partNumber = "PART-31";
    life.Advance(10s);
    EXPECT_EQ(life.LastRequest(), "reason=0 oid= ecu=C003,H10,S20,PART-31 container");
    life.Happen(On::Response(2));
    EXPECT_EQ(life.dispatcher->NextDelay(), 5s) << "no retry was counted";
}

TEST(ClientPassTest, OnlyTheExactOperationIdIsAnAlert) {
    ClientLife life;
    ASSERT_TRUE(life.Start());
    life.Happen({On::Clamp(true), On::NoUrl()});
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
    life.Arrange(client_table::kRetry, {});
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
        life.Happen(On::Response(8));
        life.Advance(wait - 1ms);
        EXPECT_EQ(life.State(), client_table::kRetry);
        life.Advance(1ms);
        ASSERT_EQ(life.State(), client_table::kWaitVin);
        life.Happen(On::Vin());
    }
    life.Happen(On::Response(8));
    EXPECT_EQ(life.State(), client_table::kWaitTrigger);
    EXPECT_EQ(life.dispatcher->NextDelay(), std::nullopt);
    EXPECT_EQ(life.unit.exchanges.size(), 10U);
    EXPECT_EQ(life.unit.CountCalls("GetUrl"), 1U) << "a retry keeps the URL";
    EXPECT_EQ(life.unit.CountCalls("Delete"), 1U);
    life.RunToExchange();
    life.Happen(On::Response(2));
    EXPECT_EQ(life.dispatcher->NextDelay(), 5s) << "the next pass counts from the start";
}

TEST(ClientRetryTest, ARetryThatEndsEarlyLeavesNoCountToTheNextPass) {
    const std::vector<std::function<void(ClientLife&)>> ends = {
        [](ClientLife& life) {
            life.unit.status = StatusCode::Ok;
            life.Happen(On::Vin());
        },
        [](ClientLife& life) { life.Happen(On::Vin("")); },
        [](ClientLife& life) { life.Happen(On::Vin("VNTREL00000000009")); },
    };
    for (const auto& end : ends) {
        ClientLife life;
        life.Arrange(client_table::kWaitVin, {"retries 3"});
        end(life);
        ASSERT_EQ(life.State(), client_table::kWaitTrigger);
        EXPECT_EQ(life.dispatcher->NextDelay(), std::nullopt);
        life.unit.status = StatusCode::NoCertificate;
        life.RunToExchange();
        for (const auto wait : {5s, 5s, 300s}) {
            life.Happen(On::Response(2));
            EXPECT_EQ(life.dispatcher->NextDelay(), wait);
            life.Advance(wait);
            life.Happen(On::Vin());
        }
    }
}

TEST(ClientPassTest, LeavesNothingOfItselfToTheNextPass) {
    ClientLife life;
    life.Arrange(client_table::kDownload, {"alert pass", "no exchange"});
    life.dispatcher->RunPending();
    life.Happen(On::Connection(3));
    ASSERT_EQ(life.State(), client_table::kWaitTrigger);
    life.unit.exchangeStarts = true;
    life.Mark();
    life.RunToExchange();
    EXPECT_EQ(life.unit.CountCalls("GetUrl"), 1U);
    EXPECT_TRUE(life.ExchangeRuns());
    EXPECT_EQ(life.OwnLines().back(), "I Certificate Download is already ongoing");
    EXPECT_EQ(*(life.OwnLines().rbegin() + 2), "I Certificate Update started, type = 0");
    EXPECT_EQ(life.LastRequest(), "reason=0 oid= ecu=C003,H10,S20,PART-30 container");
}

/// What happens up to the last request of a life, and how that request begins.
struct ReasonCase {
    std::string name;
    bool reset;
    std::vector<std::function<void(ClientLife&)>> steps;
    std::string reasonAndOid;
};

void PrintTo(const ReasonCase& reasonCase, std::ostream* stream) {
    *stream << reasonCase.name;
}

using Step = std::function<void(ClientLife&)>;

Step Store(StatusCode status) {
    return [status](ClientLife& life) { life.unit.status = status; };
}

template <typename... Triggers>
Step Happens(Triggers... triggers) {
    return [=](ClientLife& life) { life.Happen({triggers...}); };
}

Step Passes(const std::string& request) {
    return [request](ClientLife& life) {
        life.RunToExchange();
        EXPECT_EQ(life.LastRequest().substr(0, request.size()), request);
        life.Happen(On::Response(9, "error refused"));
    };
}

const std::vector<ReasonCase>& ReasonCases() {
    const Step none = Store(StatusCode::NoCertificate);
    const Step good = Store(StatusCode::Ok);
    const Step old = Store(StatusCode::ExpiresWithinYear);
    const Step alert = Happens(On::Alert());
    const Step trigger = Happens(On::Connection(3), On::Clamp(true));
    const Step url = Happens(On::Url());
    const Step service = Happens(On::Immobilizer(true));
    const Step vin = Happens(On::Vin());
    const Step refuse = Happens(On::Response(9, "error refused"));
    const Step pass = [](ClientLife& life) { life.RunToExchange(); };
    const Step retry = [](ClientLife& life) {
        life.FailAttempt();
        life.Happen(On::Vin());
    };
    const Step noTime = [](ClientLife& life) { life.unit.timeSet = false; };
    const Step noEcuData = [](ClientLife& life) { life.unit.ecuCapabilities.partNumber.clear(); };
    const Step waitForBoth = [](ClientLife& life) {
        life.unit.timeSet = true;
        life.unit.ecuCapabilities.partNumber = "PART-30";
        life.Advance(10s);
    };
    const Step handled = Happens(On::Clamp(true), On::NoUrl(), On::Alert(), On::NoUrl());
    const Step deletedOnce = [](ClientLife& life) {
        EXPECT_EQ(life.unit.CountCalls("Delete"), 1U);
    };
    const std::string alertReason = "reason=1 oid=" + kOid;
    const std::string oldWithOid = "reason=7 oid=" + kOid;
    static const std::vector<ReasonCase> cases = {
        {"ResetIsToldOnce", true, {Passes("reason=4 "), pass}, "reason=0 oid="},
        {"ResetSurvivesARetry", true, {pass, retry}, "reason=4 oid="},
        {"ResetWaitsForNoCertificate",
         true,
         {old, Passes("reason=7 "), none, pass},
         "reason=4 oid="},
        {"AlertPassLeavesTheReset", true, {alert, Passes("reason=0 "), pass}, "reason=4 oid="},
        {"AlertWithClampOffMarksTheNextPass", false, {good, alert, pass}, alertReason},
        {"SecondAlertMarksTheNextPass", false, {good, handled, alert, pass}, alertReason},
        {"AlertInWaitZemConnector", false, {old, trigger, alert, url, service, vin}, alertReason},
        {"AlertInCheckServices", false, {old, trigger, url, alert, service, vin}, alertReason},
        {"AlertInTheWaitForTheClock",
         false,
         {old, noTime, trigger, url, service, vin, alert, waitForBoth},
         alertReason},
        {"AlertInTheWaitForEcuData",
         false,
         {old, noEcuData, trigger, url, service, vin, alert, waitForBoth},
         oldWithOid},
        {"AlertInTheExchange", false, {old, pass, alert}, "reason=7 oid="},
        {"AlertInTheExchangeTurnsItsRetry", false, {old, pass, alert, good, retry}, oldWithOid},
        {"AlertInTheExchangeEndsWithThePass",
         false,
         {old, pass, alert, refuse, pass},
         "reason=7 oid="},
        {"AlertInAPassIsNotTheOneOfItsClampCycle",
         false,
         {old, pass, alert, refuse, alert, url, vin},
         alertReason},
        {"RetryKeepsTheReasonThoughItDeletes",
         false,
         {old, pass, Store(StatusCode::KeyMismatch), retry, deletedOnce},
         "reason=7 oid="},
        {"RetryOfAnAlertPass", false, {good, alert, pass, none, retry}, alertReason},
        {"PassAfterARetryJudgesAnew",
         false,
         {old, pass, retry, refuse, Store(StatusCode::PathInvalid), pass},
         "reason=2 oid="},
        {"NextPassJudgesAnew",
         false,
         {Store(StatusCode::PathInvalid), Passes("reason=2 "), old, pass},
         "reason=7 oid="},
    };
    return cases;
}

class ActivationReasonCaseTest : public testing::TestWithParam<ReasonCase> {};

TEST_P(ActivationReasonCaseTest, IsInTheRequest) {
    ClientLife life;
    ASSERT_TRUE(life.Start(GetParam().reset));
    life.Happen(On::Status(2));
    for (const Step& step : GetParam().steps) {
        step(life);
    }
    ASSERT_TRUE(life.ExchangeRuns());
    EXPECT_EQ(life.LastRequest(), GetParam().reasonAndOid + " ecu=C003,H10,S20,PART-30 container");
}

INSTANTIATE_TEST_SUITE_P(Client, ActivationReasonCaseTest, testing::ValuesIn(ReasonCases()),
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
