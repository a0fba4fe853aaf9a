// The client machine among scripted neighbours, on virtual time.

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"
#include "client/scripted_unit.h"
#include "client/vintrel_client_fsm.h"
#include "testing/captured_log.h"
#include "testing/virtual_time_dispatcher.h"

namespace {

using namespace std::chrono_literals;
using qel_logging::EQELLogLevel;
using testing::ElementsAre;
using testing_support::CapturedLog;
using testing_support::ScriptedUnit;
using testing_support::VirtualTimeDispatcher;
using vintrel::ReturnCode;
using vintrel::StatusCode;
using zem_connector::SessionStatus;
using ConnectionState = vintrel::ZemConnectorFsmIf::SCConnectionState;
using Request = domain::backend::proto::QUBACOKoruVintrelRequestV1;

const std::string kVin = "VNTREL00000000001";
const std::string kOid = "QUBA-TokenManagement.COTokenRequest";
const std::string kUrl = "http://backend:8080/enrol";

std::string CertificateBody(const std::string& certificate) {
    domain::backend::proto::QUBACTKoruCertificateResponseV2 response;
    response.set_certificate(certificate);
    return response.SerializeAsString();
}

/// The states of a pass, in the order in which it meets them.
enum class Stage {
    kWaitTrigger,
    kWaitConnector,
    kCheckServices,
    kWaitVin,
    kUpdateWaitsForEcu,
    kDownloadWaits,
    kDownloadRuns,
    kValidationDelay,
    kRetryWait,
};

const std::vector<Stage> kAllStages = {
    Stage::kWaitTrigger,  Stage::kWaitConnector,     Stage::kCheckServices,
    Stage::kWaitVin,      Stage::kUpdateWaitsForEcu, Stage::kDownloadWaits,
    Stage::kDownloadRuns, Stage::kValidationDelay,   Stage::kRetryWait,
};

class ClientMachineTest : public testing::Test {
protected:
    ~ClientMachineTest() override {
        client.reset();
        unit.connector.reset();
        unit.exchanges.clear();
        dispatcher.reset();
    }

    bool Start(bool factoryReset = false) {
        client = std::make_shared<vintrel::VintrelClientFsm>(unit, factoryReset);
        sessionStarted = false;
        return client->StartFsm(dispatcher);
    }

    /// Starts the machine and brings it to the given stage of a normal pass.
    void DriveTo(Stage stage) {
        ASSERT_TRUE(Start());
        if (stage != Stage::kWaitTrigger) {
            Clamp(true);
        }
        if (stage > Stage::kWaitConnector) {
            AnswerUrl();
        }
        if (stage > Stage::kCheckServices) {
            ImmobilizerUp(true);
        }
        if (stage <= Stage::kWaitVin) {
            return;
        }
        if (stage == Stage::kUpdateWaitsForEcu) {
            unit.ecuCapabilities.partNumber.clear();
        }
        AnswerVin();
        if (stage > Stage::kDownloadWaits) {
            Connection(ConnectionState::kConnected);
        }
        if (stage == Stage::kValidationDelay) {
            Answer(ReturnCode::kSuccess, CertificateBody("chain"));
        } else if (stage == Stage::kRetryWait) {
            Answer(ReturnCode::kTimeout);
        }
    }

    void Clamp(bool on) {
        client->ClampStateChangeCb(on);
        dispatcher->RunPending();
    }
    void Alert(const std::string& oid = kOid) {
        client->TlsAlertNotifyCb(oid, tls_alert_if::ETlsAlertCode::kCertificateRevoked);
        dispatcher->RunPending();
    }
    void AnswerUrl(const std::string& url = kUrl, bool success = true) {
        if (!sessionStarted) {
            unit.connector->ReportStatus(SessionStatus::kStarted);
            sessionStarted = true;
        }
        unit.connector->ReportUrl(url, success);
        dispatcher->RunPending();
    }
    void ImmobilizerUp(bool up) {
        client->ImmobilizerConnectionStateChangeCb(up);
        dispatcher->RunPending();
    }
    void AnswerVin(const std::string& vin = kVin) {
        client->ImmobilizerVinReceivedCb(vin);
        dispatcher->RunPending();
    }
    void Connection(ConnectionState state) {
        unit.connector->ReportConnection(state);
        dispatcher->RunPending();
    }
    void Answer(ReturnCode code, const std::string& response = {}) {
        ASSERT_FALSE(unit.exchanges.empty());
        unit.exchanges.back()->Answer(code, response);
        dispatcher->RunPending();
    }
    void Raise(int eventId, int eventInfo) {
        dispatcher->RaiseEvent(nullptr, client, eventId, eventInfo, nullptr);
        dispatcher->RunPending();
    }

    /// A whole normal pass up to the running exchange, from the waiting state.
    void RunPassToExchange() {
        Clamp(true);
        AnswerUrl();
        ImmobilizerUp(true);
        AnswerVin();
        Connection(ConnectionState::kOnDemand);
    }

    Request LastRequest() const {
        Request request;
        EXPECT_FALSE(unit.exchanges.empty());
        EXPECT_TRUE(request.ParseFromString(unit.exchanges.back()->request));
        return request;
    }

    bool InState(const std::string& state) const { return client->GetStateName() == state; }

    bool Logged(EQELLogLevel level, const std::string& text) const {
        return log.Contains(level, "VintrelClientFsm: " + text);
    }
    bool LoggedInfo(const std::string& text) const { return Logged(EQELLogLevel::kInfo, text); }
    bool LoggedError(const std::string& text) const { return Logged(EQELLogLevel::kError, text); }

    CapturedLog log;
    ScriptedUnit unit;
    bool sessionStarted{false};
    std::shared_ptr<VirtualTimeDispatcher> dispatcher =
        std::make_shared<VirtualTimeDispatcher>("EventDispatcher", true);
    std::shared_ptr<vintrel::VintrelClientFsm> client;
};

TEST_F(ClientMachineTest, BuildsAndStartsItsCollaboratorsInOrder) {
    ASSERT_TRUE(Start());
    EXPECT_THAT(unit.calls,
                ElementsAre("NewProcessLifecycleAdapter", "SystemTimeIf::Create", "NewHsm",
                            "TiveGeneratorIf::Create", "NewZemConnectorFsm", "TlsAlertsIf::Create",
                            "TlsAlerts.Start", "ClampControlIf::Create", "ImmobilizerIf::Create",
                            "EcuCapabilitiesIf::Create", "Adapter.Initialize vintrel-client",
                            "Connector.StartFsm", "Clamp.Subscribe", "Immobilizer.Init",
                            "Ecu.Initialize", "SystemTime.Initialize"));
    EXPECT_EQ(unit.transactionType, "QUBA-GenerateTIVCert-C003");
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));
    EXPECT_EQ(client->ProcessLifecycleAdapterGetHealthStatus(), 0);
}

TEST_F(ClientMachineTest, StartsNoInputWhenTheConnectorOrTheAdapterFails) {
    unit.connectorStarts = false;
    EXPECT_FALSE(Start());
    EXPECT_EQ(unit.CountCalls("Clamp.Subscribe"), 0U);
    EXPECT_EQ(unit.CountCalls("TlsAlerts.Stop"), 1U);
    EXPECT_TRUE(InState("FsmStateTerminated"));

    unit.connectorStarts = true;
    unit.withAdapter = false;
    EXPECT_FALSE(Start());
    EXPECT_EQ(unit.CountCalls("Connector.StartFsm"), 1U);
    EXPECT_TRUE(LoggedError("Not able initialize ProcessLifecycleAdapter!"));
}

TEST_F(ClientMachineTest, FactoryResetDeletesAndTellsTheBackendOnce) {
    ASSERT_TRUE(Start(true));
    EXPECT_EQ(unit.CountCalls("Delete"), 1U);
    EXPECT_TRUE(LoggedInfo("Vintrel Client Factory Reset"));

    RunPassToExchange();
    EXPECT_EQ(LastRequest().activation_reason(), 4);
    Answer(ReturnCode::kHttpError);

    RunPassToExchange();
    EXPECT_EQ(LastRequest().activation_reason(), 0) << "the reset is told once";
}

TEST_F(ClientMachineTest, FactoryResetThatFailsIsNoObstacleAndStaysForALaterPass) {
    unit.deleteFails = true;
    ASSERT_TRUE(Start(true));
    EXPECT_TRUE(LoggedError("Factory Reset failed!"));
    Clamp(true);
    Alert();
    AnswerUrl();
    ImmobilizerUp(true);
    AnswerVin();
    Connection(ConnectionState::kConnected);
    EXPECT_EQ(LastRequest().activation_reason(), 0) << "an alert pass leaves the reset unused";
    Answer(ReturnCode::kHttpError);

    RunPassToExchange();
    EXPECT_EQ(LastRequest().activation_reason(), 4);
    EXPECT_EQ(LastRequest().operationtypeid(), "") << "the alert ended with its pass";
}

TEST_F(ClientMachineTest, APassEndsWithTheStoredCertificate) {
    ASSERT_TRUE(Start());
    RunPassToExchange();
    const Request request = LastRequest();
    EXPECT_EQ(request.activation_reason(), 0);
    EXPECT_EQ(request.csr_container(), "container");
    EXPECT_EQ(request.ecu_capability().diagnostic_address(), "C003");
    EXPECT_EQ(request.ecu_capability().hw_version(), "H10");
    EXPECT_EQ(request.ecu_capability().sw_version(), "S20");
    EXPECT_EQ(request.ecu_capability().part_number(), "PART-30");
    EXPECT_TRUE(request.has_sim_card_data());
    EXPECT_EQ(request.operationtypeid(), "");
    EXPECT_EQ(unit.exchanges.back()->urlData.port, 8080);

    Answer(ReturnCode::kSuccess, CertificateBody("chain"));
    EXPECT_TRUE(InState("FsmStateCheckAndStoreTiv"));
    EXPECT_EQ(dispatcher->NextDelay(), 3000ms);
    dispatcher->AdvanceBy(3000ms);
    EXPECT_EQ(unit.CountCalls("Check chain " + kVin), 1U);
    EXPECT_EQ(unit.CountCalls("Store chain"), 1U);
    EXPECT_EQ(unit.CountCalls("Delete"), 0U);
    EXPECT_TRUE(LoggedInfo("EndCertificateUpdate The TIV Certificate was successfully updated"));
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));

    unit.status = StatusCode::Ok;
    Clamp(false);
    Clamp(true);
    AnswerUrl();
    AnswerVin();
    EXPECT_TRUE(LoggedInfo("No TIV certificate update needed."));
    EXPECT_EQ(unit.exchanges.size(), 1U);
}

struct Decision {
    StatusCode status;
    bool deletes;
    bool updates;
    int reason;
    std::string line;
};

TEST_F(ClientMachineTest, TheStatusOfTheStoredCertificateDecides) {
    const std::vector<Decision> decisions = {
        {StatusCode::Ok, false, false, 5, ""},
        {static_cast<StatusCode>(1), false, false, 5, "Unknown status code!"},
        {StatusCode::NoCertificate, false, true, 0, "No TIV certificate available."},
        {static_cast<StatusCode>(3), false, false, 5, "Unknown status code!"},
        {StatusCode::CommonNameMismatch, true, true, 3, "Invalid TIV certificate."},
        {StatusCode::PathInvalid, true, true, 2, "Invalid TIV certificate."},
        {StatusCode::KeyMismatch, true, true, 2, "Invalid TIV certificate."},
        {StatusCode::ExpiresWithinYear, false, true, 7, ""},
        {static_cast<StatusCode>(8), false, false, 5, "Unknown status code!"},
    };
    ASSERT_TRUE(Start());
    for (const Decision& decision : decisions) {
        SCOPED_TRACE(static_cast<int>(decision.status));
        unit.status = decision.status;
        unit.calls.clear();
        unit.exchanges.clear();
        log.Clear();
        RunPassToExchange();
        EXPECT_EQ(unit.CountCalls("Delete"), decision.deletes ? 1U : 0U);
        ASSERT_EQ(unit.exchanges.size(), decision.updates ? 1U : 0U);
        if (decision.updates) {
            EXPECT_EQ(LastRequest().activation_reason(), decision.reason);
            Answer(ReturnCode::kHttpError);
        }
        if (decision.line == "Unknown status code!") {
            EXPECT_TRUE(LoggedError(decision.line));
        } else {
            for (const std::string line :
                 {"No TIV certificate available.", "Invalid TIV certificate."}) {
                EXPECT_EQ(LoggedInfo(line), line == decision.line) << line;
            }
        }
        EXPECT_TRUE(InState("FsmStateWaitTrigger"));
    }
}

TEST_F(ClientMachineTest, RetriesNineTimesOnTheFixedTableAndThenGivesUp) {
    unit.status = StatusCode::CommonNameMismatch;
    DriveTo(Stage::kDownloadRuns);
    unit.status = StatusCode::NoCertificate;
    const std::vector<std::chrono::seconds> waits = {5s,   5s,   300s, 300s, 300s,
                                                     300s, 900s, 900s, 900s};
    for (const auto wait : waits) {
        Answer(ReturnCode::kTransferError);
        ASSERT_TRUE(InState("FsmRetryProcedure"));
        EXPECT_EQ(dispatcher->NextDelay(), wait);
        dispatcher->AdvanceBy(wait);
        ASSERT_TRUE(InState("FsmStateWaitVin"));
        AnswerVin();
        EXPECT_EQ(LastRequest().activation_reason(), 3) << "kept from the first attempt";
    }
    Answer(ReturnCode::kEmptyResponse);
    EXPECT_TRUE(LoggedInfo("Retry limit exceeded. Stopping..."));
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));
    EXPECT_EQ(unit.exchanges.size(), 10U);
    EXPECT_EQ(unit.CountCalls("Delete"), 1U);
    EXPECT_EQ(unit.CountCalls("GetUrl"), 1U) << "a retry keeps the URL";

    Clamp(true);
    AnswerUrl();
    AnswerVin();
    EXPECT_EQ(LastRequest().activation_reason(), 0);
    Answer(ReturnCode::kConnectRefused);
    EXPECT_EQ(dispatcher->NextDelay(), 5s) << "a new pass counts from the start";
}

TEST_F(ClientMachineTest, OnlyTheAttemptsThatMaySucceedLaterAreRetried) {
    const std::vector<std::pair<ReturnCode, bool>> rows = {
        {ReturnCode::kSuccess, false},         {ReturnCode::kInternalError, true},
        {ReturnCode::kTimeout, true},          {ReturnCode::kConnectRefused, true},
        {ReturnCode::kConnectionFailed, true}, {ReturnCode::kTransferError, true},
        {ReturnCode::kHttpError, false},       {ReturnCode::kEmptyResponse, true},
        {ReturnCode::kUnknownPayload, true},
    };
    for (const auto& [code, retries] : rows) {
        SCOPED_TRACE(static_cast<int>(code));
        unit.exchanges.clear();
        DriveTo(Stage::kDownloadRuns);
        Answer(code, "\xff not a message");
        EXPECT_TRUE(InState(retries ? "FsmRetryProcedure" : "FsmStateWaitTrigger"));
        client->StopFsm();
        dispatcher->ClearEvent(client, 4, true);
    }
    EXPECT_TRUE(LoggedError("Unable to parse the Response!"));
    EXPECT_TRUE(LoggedError("Failed to parse error response"));
}

TEST_F(ClientMachineTest, ARefusalIsLoggedWithTheBackendsReason) {
    DriveTo(Stage::kDownloadRuns);
    Answer(ReturnCode::kHttpError);
    EXPECT_TRUE(
        LoggedInfo("GenericError received!\nErrorCode: 0\nErrorDescription: \nTransactionId: \n"));
    EXPECT_TRUE(LoggedError("EndCertificateUpdate The TIV Certificate update failed!"));
}

TEST_F(ClientMachineTest, FailuresBeforeTheExchangeAreRetried) {
    const auto failWith = [this](const std::string& line, auto&& spoil) {
        SCOPED_TRACE(line);
        DriveTo(Stage::kWaitVin);
        spoil();
        AnswerVin();
        EXPECT_TRUE(LoggedError(line));
        EXPECT_TRUE(InState("FsmRetryProcedure"));
        client->StopFsm();
    };
    failWith("Failed to generate the CSR!", [this] { unit.csr.clear(); });
    unit.csr = {1};
    failWith("Failed to create TIVE container!", [this] { unit.container.clear(); });
}

TEST_F(ClientMachineTest, FailuresBehindTheExchangeAreNotRetried) {
    DriveTo(Stage::kValidationDelay);
    unit.checkFails = true;
    dispatcher->AdvanceBy(3000ms);
    EXPECT_TRUE(LoggedError("Checking the TIV Certificate failed!"));
    EXPECT_EQ(unit.CountCalls("Store chain"), 0U);
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));

    unit.checkFails = false;
    unit.storeFails = true;
    RunPassToExchange();
    Answer(ReturnCode::kSuccess, CertificateBody("chain"));
    dispatcher->AdvanceBy(3000ms);
    EXPECT_TRUE(LoggedError("Storing the TIV Certificate failed!"));
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));

    unit.exchangeStarts = false;
    RunPassToExchange();
    EXPECT_TRUE(LoggedError("BackendRequestHandlerFsm start failed!"));
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));
    EXPECT_EQ(dispatcher->NextDelay(), std::nullopt);
}

TEST_F(ClientMachineTest, WaitsForTheClockAndForTheEcuDataWithoutCountingRetries) {
    unit.timeSet = false;
    DriveTo(Stage::kWaitVin);
    AnswerVin();
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(InState("FsmStateWaitVin"));
        EXPECT_EQ(dispatcher->NextDelay(), 10s);
        dispatcher->AdvanceBy(10s);
    }
    EXPECT_TRUE(LoggedInfo("FsmStateWaitVin: System time is not set. Retrying in 10 seconds..."));
    unit.timeSet = true;
    unit.ecuCapabilities.softwareVersion.clear();
    dispatcher->AdvanceBy(10s);
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(InState("StartCertificateUpdate"));
        EXPECT_EQ(dispatcher->NextDelay(), 10s);
        dispatcher->AdvanceBy(10s);
    }
    EXPECT_TRUE(LoggedError(
        "ECU capabilities not available, hardwareVersion: 'H10', softwareVersion: '', partNumber: "
        "'PART-30'. Retrying in 10000 milliseconds..."));
    unit.ecuCapabilities.softwareVersion = "S21";
    dispatcher->AdvanceBy(10s);
    Connection(ConnectionState::kConnected);
    EXPECT_EQ(LastRequest().ecu_capability().sw_version(), "S21");
    Answer(ReturnCode::kTimeout);
    EXPECT_EQ(dispatcher->NextDelay(), 5s);
}

TEST_F(ClientMachineTest, AnUnusableUrlOrVinEndsThePass) {
    ASSERT_TRUE(Start());
    const auto expectBack = [this](const std::string& line) {
        EXPECT_TRUE(LoggedError(line));
        EXPECT_TRUE(InState("FsmStateWaitTrigger"));
    };
    Clamp(true);
    AnswerUrl(kUrl, false);
    expectBack("No URL available");
    EXPECT_TRUE(LoggedError("Error received for the URL!"));
    Clamp(true);
    AnswerUrl("backend");
    expectBack("Invalid VTTL URL: 'backend'");

    ImmobilizerUp(true);
    Clamp(true);
    AnswerUrl();
    AnswerVin("");
    expectBack("Received an empty VIN from the Immobilizer Service.");
    unit.koruVin.clear();
    Clamp(true);
    AnswerUrl();
    AnswerVin();
    expectBack("No VIN received from the KORU.");
    EXPECT_EQ(unit.CountCalls("Delete"), 0U);

    unit.koruVin = "VNTREL00000000002";
    Clamp(true);
    AnswerUrl();
    AnswerVin();
    expectBack(
        "Immobilizer VIN (VNTREL00000000001) and KORU VIN (VNTREL00000000002) do not match!");
    EXPECT_EQ(unit.CountCalls("Delete"), 1U) << "a foreign certificate does not stay";
    EXPECT_EQ(unit.CountCalls("GetUrl"), 5U) << "every pass asks anew";
}

TEST_F(ClientMachineTest, WaitsForTheSessionTheServiceAndTheConnection) {
    ASSERT_TRUE(Start());
    Clamp(true);
    EXPECT_TRUE(LoggedInfo("CheckZemConnectorStatus: Wrong ZemConnector session status: 0"));
    EXPECT_EQ(unit.CountCalls("GetUrl"), 0U);
    AnswerUrl();
    EXPECT_TRUE(LoggedInfo("ServiceStatusCheck: Immobilizer service is not available"));
    ImmobilizerUp(false);
    EXPECT_TRUE(InState("FsmStateCheckServices"));
    ImmobilizerUp(true);
    EXPECT_EQ(unit.CountCalls("GetVin"), 1U);
    ImmobilizerUp(false);
    ImmobilizerUp(true);
    EXPECT_EQ(unit.CountCalls("GetVin"), 1U);
    Connection(ConnectionState::kDisconnected);
    AnswerVin();
    EXPECT_TRUE(LoggedInfo("Certificate Download is waiting for correct Connection state..."));
    EXPECT_TRUE(unit.exchanges.empty());
    Connection(ConnectionState::kOnDemand);
    EXPECT_TRUE(LoggedInfo("Connection State changed to Ondemand"));
    EXPECT_EQ(unit.exchanges.size(), 1U);
    Alert();
    Connection(ConnectionState::kConnected);
    EXPECT_EQ(unit.exchanges.size(), 1U);
    EXPECT_TRUE(LoggedInfo("Certificate Download is already ongoing"));
}

TEST_F(ClientMachineTest, AnAlertTriggersOncePerClampCycleAndForcesTheUpdate) {
    unit.status = StatusCode::Ok;
    ASSERT_TRUE(Start());
    Alert("some.other.operation");
    EXPECT_TRUE(log.Contains(EQELLogLevel::kDebug,
                             "VintrelClientFsm: Received TLS alert IGNORED for oid "
                             "some.other.operation, code 44"));
    Alert();
    EXPECT_TRUE(LoggedInfo("TLS Alert ignored, because CLAMP15 is OFF"));

    // The ignored alert has marked the next pass.
    RunPassToExchange();
    EXPECT_EQ(LastRequest().activation_reason(), 1);
    EXPECT_EQ(LastRequest().operationtypeid(), kOid);
    EXPECT_TRUE(LoggedInfo("Certificate Update started, type = 1"));
    Answer(ReturnCode::kHttpError);

    Alert();
    EXPECT_TRUE(LoggedInfo("Vintrel Client triggered by TLS Alert"));
    AnswerUrl();
    AnswerVin();
    Answer(ReturnCode::kTimeout);
    dispatcher->AdvanceBy(5s);
    AnswerVin();
    EXPECT_TRUE(InState("FsmStateDownloadCertificate"));
    EXPECT_EQ(unit.exchanges.size(), 3U);
    EXPECT_TRUE(LoggedInfo(
        "Retry ongoing. Keep currect ActivationReason: ACTIVATIONREASON_FORCE_REACTIVATION"));
    Answer(ReturnCode::kHttpError);
    EXPECT_EQ(unit.CountCalls("Delete"), 0U);

    Alert();
    EXPECT_TRUE(LoggedInfo("TLS Alert ignored, already handled once"));
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));
    Clamp(false);
    Clamp(true);
    AnswerUrl();
    AnswerVin();
    EXPECT_EQ(LastRequest().activation_reason(), 1) << "marked by the alert before";
    Answer(ReturnCode::kHttpError);
    unit.status = StatusCode::NoCertificate;
    Alert();
    AnswerUrl();
    AnswerVin();
    EXPECT_EQ(LastRequest().activation_reason(), 0);
}

TEST_F(ClientMachineTest, EventsThatMeanTheSameEverywhereDisturbNoState) {
    for (const Stage stage : kAllStages) {
        SCOPED_TRACE(static_cast<int>(stage));
        unit.ecuCapabilities.partNumber = "PART-30";
        unit.exchanges.clear();
        DriveTo(stage);
        const std::string state = client->GetStateName();
        const auto delay = dispatcher->NextDelay();
        const std::size_t exchanges = unit.exchanges.size();
        Clamp(false);
        if (stage != Stage::kWaitTrigger) {
            Clamp(true);
        }
        unit.connector->ReportActivation();
        unit.connector->ReportUnknownInfo(9);
        dispatcher->RunPending();
        if (stage != Stage::kCheckServices) {
            ImmobilizerUp(true);
        }
        ImmobilizerUp(false);
        if (stage != Stage::kDownloadWaits) {
            Connection(ConnectionState::kConnected);
        }
        if (stage != Stage::kWaitTrigger) {
            Alert();
        }
        EXPECT_EQ(client->GetStateName(), state);
        EXPECT_EQ(dispatcher->NextDelay(), delay);
        EXPECT_EQ(unit.exchanges.size(), exchanges);
        client->StopFsm();
    }
    EXPECT_TRUE(LoggedError("HandleZemConnectorEvent: Unknown eventInfo: 9"));
}

TEST_F(ClientMachineTest, AnUnexpectedEventEndsTheMachineButNotTheLoop) {
    const int checkTime = 1;
    const int startDownload = 2;
    const int immobilizerVin = 11;
    for (const Stage stage : kAllStages) {
        SCOPED_TRACE(static_cast<int>(stage));
        unit.ecuCapabilities.partNumber = "PART-30";
        DriveTo(stage);
        const bool isDownload = client->GetStateName() == "FsmStateDownloadCertificate";
        const int eventId = stage == Stage::kWaitVin ? startDownload
                            : isDownload             ? checkTime
                                                     : immobilizerVin;
        log.Clear();
        Raise(eventId, 5);
        EXPECT_TRUE(LoggedError("Unknown event " + std::to_string(eventId) + ", eventInfo: 5"));
        EXPECT_TRUE(InState("FsmStateTerminated"));
        EXPECT_EQ(log.Count("EventDispatcher ExitDispatching"), 0U);
    }
}

TEST_F(ClientMachineTest, TerminationEndsMachineAndLoopFromEveryState) {
    for (const Stage stage : kAllStages) {
        SCOPED_TRACE(static_cast<int>(stage));
        unit.ecuCapabilities.partNumber = "PART-30";
        unit.calls.clear();
        log.Clear();
        dispatcher = std::make_shared<VirtualTimeDispatcher>("EventDispatcher", true);
        DriveTo(stage);
        client->ProcessLifecycleAdapterTerminate();
        EXPECT_TRUE(dispatcher->DispatchEvents());
        EXPECT_TRUE(InState("FsmStateTerminated"));
        EXPECT_EQ(log.Count("EventDispatcher ExitDispatching"), 1U);
        EXPECT_EQ(unit.CountCalls("TlsAlerts.Stop"), 1U);
        EXPECT_EQ(unit.CountCalls("Connector stopped"), 1U);
        EXPECT_EQ(unit.CountCalls("Adapter released"), 1U);
        client.reset();
        unit.connector.reset();
        unit.exchanges.clear();
    }
}

TEST_F(ClientMachineTest, ATerminationRequestIsNeverLost) {
    client = std::make_shared<vintrel::VintrelClientFsm>(unit, false);
    client->ProcessLifecycleAdapterTerminate();
    client->ClampStateChangeCb(true);
    client->TlsAlertNotifyCb(kOid, tls_alert_if::ETlsAlertCode::kDecryptError);
    ASSERT_TRUE(client->StartFsm(dispatcher)) << "early callbacks are harmless";
    EXPECT_TRUE(dispatcher->DispatchEvents());
    EXPECT_TRUE(InState("FsmStateTerminated"));

    dispatcher = std::make_shared<VirtualTimeDispatcher>("EventDispatcher", true);
    DriveTo(Stage::kWaitConnector);
    for (int count = 0; count < 70000; ++count) {
        client->ClampStateChangeCb(true);
    }
    client->ProcessLifecycleAdapterTerminate();
    log.Clear();
    EXPECT_TRUE(dispatcher->DispatchEvents());
    EXPECT_EQ(log.Count("VintrelClientFsm: Handling Vintrel Client termination request."), 1U);
}

TEST_F(ClientMachineTest, ARejectedSessionEndsTheMachineWithoutStartingAnythingMore) {
    for (const Stage stage : kAllStages) {
        SCOPED_TRACE(static_cast<int>(stage));
        unit.ecuCapabilities.partNumber = "PART-30";
        unit.exchanges.clear();
        DriveTo(stage);
        if (stage == Stage::kDownloadWaits) {
            // Both in the queue: the rejection stands before the state that would allow a start.
            unit.connector->ReportStatus(SessionStatus::kRejected);
            unit.connector->ReportConnection(ConnectionState::kConnected);
        } else {
            unit.connector->ReportStatus(SessionStatus::kRejected);
        }
        const std::size_t exchanges = unit.exchanges.size();
        dispatcher->RunPending();
        EXPECT_TRUE(InState("FsmStateTerminated"));
        EXPECT_EQ(unit.exchanges.size(), exchanges);
        client->ClampStateChangeCb(true);
        client->ImmobilizerVinReceivedCb(kVin);
        dispatcher->AdvanceBy(1000s);
        EXPECT_TRUE(InState("FsmStateTerminated"));
    }
}

TEST_F(ClientMachineTest, AServiceThatComesUpJustBeforeTheCheckIsAskedOnce) {
    DriveTo(Stage::kCheckServices);
    // The check and the connection are both pending; the one drops the other.
    dispatcher->RaiseEvent(nullptr, client, 0, 0, nullptr);
    client->ImmobilizerConnectionStateChangeCb(true);
    dispatcher->RunPending();
    EXPECT_TRUE(InState("FsmStateWaitVin"));
    EXPECT_EQ(unit.CountCalls("GetVin"), 1U);
}

TEST_F(ClientMachineTest, AnAlertDuringTheExchangeTurnsTheRetryIntoAnAlertPass) {
    unit.status = StatusCode::ExpiresWithinYear;
    DriveTo(Stage::kDownloadRuns);
    Alert();
    Answer(ReturnCode::kTimeout);
    unit.status = StatusCode::Ok;
    dispatcher->AdvanceBy(5s);
    AnswerVin();
    ASSERT_EQ(unit.exchanges.size(), 2U);
    EXPECT_EQ(LastRequest().activation_reason(), 7) << "kept from the first attempt";
    EXPECT_EQ(LastRequest().operationtypeid(), kOid);
    Answer(ReturnCode::kHttpError);

    // It came outside of the waiting state, so this cycle's alert is still to come.
    Alert();
    EXPECT_TRUE(LoggedInfo("Vintrel Client triggered by TLS Alert"));
}

TEST_F(ClientMachineTest, ARetryMayEndThePassEarly) {
    unit.deleteFails = true;
    unit.status = StatusCode::KeyMismatch;
    DriveTo(Stage::kRetryWait);
    EXPECT_TRUE(LoggedError("Deleting the TIV certificate failed!"));
    unit.status = StatusCode::Ok;
    dispatcher->AdvanceBy(5s);
    AnswerVin();
    EXPECT_TRUE(LoggedInfo("No TIV certificate update needed."));
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));

    unit.status = StatusCode::NoCertificate;
    RunPassToExchange();
    Answer(ReturnCode::kTimeout);
    dispatcher->AdvanceBy(5s);
    AnswerVin("VNTREL00000000009");
    EXPECT_TRUE(InState("FsmStateWaitTrigger"));
    EXPECT_EQ(dispatcher->NextDelay(), std::nullopt);
}

TEST_F(ClientMachineTest, EachSessionStatusIsToldAndOnlyValidOnesCount) {
    ASSERT_TRUE(Start());
    Clamp(true);
    const auto report = [this](int status) {
        unit.connector->ReportStatus(static_cast<SessionStatus>(status));
        dispatcher->RunPending();
    };
    report(0);
    EXPECT_TRUE(LoggedInfo("Zem-Connector: Idle"));
    report(1);
    EXPECT_TRUE(LoggedInfo("Zem-Connector: Starting"));
    EXPECT_TRUE(LoggedInfo("CheckZemConnectorStatus: Wrong ZemConnector session status: 1"));
    report(2);
    EXPECT_TRUE(LoggedInfo("Zem-Connector was started successfully"));
    EXPECT_EQ(unit.CountCalls("GetUrl"), 1U);
    report(7);
    EXPECT_EQ(unit.CountCalls("GetUrl"), 2U) << "the invalid one changed nothing";
    report(3);
    EXPECT_TRUE(LoggedInfo("Zem-Connector: Rejected"));
    EXPECT_TRUE(InState("FsmStateTerminated"));
}

TEST_F(ClientMachineTest, TellsTheStoryOfAPassInItsOrder) {
    DriveTo(Stage::kValidationDelay);
    dispatcher->AdvanceBy(3000ms);
    client->ProcessLifecycleAdapterTerminate();
    dispatcher->DispatchEvents();
    const std::vector<std::string> story = {
        "Vintrel Client waiting for a trigger",
        "ClampStateChangeCb: state changed to 1",
        "HandleClampControlEvent: Clamp 15 has changed state to 1",
        "Vintrel Client triggered by Clamp 15",
        "VTTL URL: '" + kUrl + "'",
        "ImmobilizerConnectionStateChangeCb: state changed to 1",
        "Service check OK, continue.",
        "Requesting VIN from the Immobilizer Service.",
        "Received VIN from the Immobilizer Service: " + kVin,
        "Received VIN from the KORU: " + kVin,
        "Precheck was completed successfully",
        "Immobilizer VIN and KORU VIN match",
        "No TIV certificate available.",
        "TIV certificate update needed.",
        "Updating the TIV Certificate",
        "Activation reason: ACTIVATIONREASON_CLAMP30_DETECTED",
        "EcuHardwareVersion: H10",
        "EcuSoftwareVersion: S20",
        "EcuPartNumber: PART-30",
        "The CSR was generated successfully",
        "The TIVE Container was created successfully: 'container'",
        "Protobuf was created successfully",
        "Certificate Download is waiting for correct Connection state...",
        "Certificate Update started, type = 0",
        "Backend response received, status: 0",
        "Received a TIV Certificate: 'chain'",
        "Delay TIV validation by 3 seconds...",
        "The TIV Certificate is valid",
        "The TIV Certificate and the Key were stored successfully",
        "EndCertificateUpdate The TIV Certificate was successfully updated",
        "Termination signal received",
        "Handling Vintrel Client termination request.",
        "OnTerminate",
        "Vintrel Client Terminated.",
    };
    auto expected = story.begin();
    for (const CapturedLog::Line& line : log.Lines()) {
        if (expected != story.end() && line.text == "VintrelClientFsm: " + *expected) {
            ++expected;
        }
    }
    EXPECT_EQ(expected, story.end()) << "missing or out of order: " << *expected;
    const std::vector<std::string> end(unit.calls.end() - 3, unit.calls.end());
    EXPECT_THAT(end, ElementsAre("Connector stopped", "TlsAlerts.Stop", "Adapter released"));
}

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
