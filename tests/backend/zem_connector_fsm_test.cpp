#include "backend/zem_connector_fsm.h"

#include <limits>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "event_recorder.h"
#include "socket_pair.h"
#include "testing/captured_log.h"
#include "testing/virtual_time_dispatcher.h"

namespace vintrel {

using qel_logging::EQELLogLevel;
using testing::ElementsAre;
using testing_support::CapturedLog;
using testing_support::VirtualTimeDispatcher;
using zem_connector::SessionStatus;
using SCConnectionState = ZemConnectorFsmIf::SCConnectionState;

namespace {

constexpr const char* kOperation = "QUBA-GenerateTIVCert-C003.COSendCSR";
constexpr int kTargetEvent = 8;
constexpr int kClientEvent = 1;

/// What the library answers, and what it was asked.
struct Script {
    SessionStatus startStatus{SessionStatus::kStarted};
    bool accept{true};
    std::vector<std::string> calls;
    std::vector<zem_connector::ZemSocketCallbackIf*> sockets;
};

class ScriptedConnector : public zem_connector::ZemConnector {
public:
    explicit ScriptedConnector(Script& script) : ZemConnector(nullptr, nullptr), mScript(script) {}
    ScriptedConnector(const ScriptedConnector&) = delete;
    ScriptedConnector& operator=(const ScriptedConnector&) = delete;
    ~ScriptedConnector() override { mScript.calls.emplace_back("gone"); }

    SessionStatus Start() override { return mScript.startStatus; }
    void Stop() override { mScript.calls.emplace_back("stop"); }
    bool SubscribeTransactionTypeState(std::string type,
                                       zem_connector::ZemServiceControllerCallbackIf* /*callback*/,
                                       unsigned int options) override {
        mScript.calls.push_back("subscribe " + type + " " + std::to_string(options));
        return false;
    }
    bool GetInvocationUrl(std::string operation,
                          zem_connector::ZemServiceControllerCallbackIf* /*callback*/) override {
        mScript.calls.push_back("url " + operation);
        return mScript.accept;
    }
    bool SocketConnect(std::string operation, std::string host, unsigned short port,
                       zem_connector::ZemSocketCallbackIf* callback) override {
        mScript.calls.push_back("socket " + operation + " " + host + ":" + std::to_string(port));
        mScript.sockets.push_back(callback);
        return mScript.accept;
    }

private:
    Script& mScript;
};

class ScriptedFactory : public FsmFactory {
public:
    explicit ScriptedFactory(Script& script) : mScript(script) {}

    std::unique_ptr<zem_connector::ZemConnector> NewZemConnector(
        zem_connector::ZemSessionCallbackIf* /*sessionCallback*/,
        zem_connector::ZemPubSubCallbackIf* pubSubCallback) const override {
        EXPECT_EQ(pubSubCallback, nullptr);
        return std::make_unique<ScriptedConnector>(mScript);
    }

private:
    Script& mScript;
};

}  // namespace

class ZemConnectorFsmTest : public testing::Test {
protected:
    void SetUp() override {
        mTarget->StartFsm(mDispatcher);
        mClient->StartFsm(mDispatcher);
    }

    bool Start(SessionStatus status = SessionStatus::kStarted) {
        mScript.startStatus = status;
        const bool started = mMachine->StartFsm(mDispatcher, mTarget, kTargetEvent);
        mDispatcher->RunPending();
        return started;
    }

    void StartReadyToConnect() {
        Start();
        Call([this] { mMachine->ZemSCActivationState({}); });
        mTarget->events.clear();
        mScript.calls.clear();
    }

    /// A callback on a thread of the library, and all that follows from it.
    template <typename Callback>
    void Call(const Callback& callback) {
        std::thread(callback).join();
        mDispatcher->RunPending();
    }

    void CallStatus(int status) {
        Call([=] { mMachine->ZemConnectorStatus(static_cast<SessionStatus>(status)); });
    }

    void CallUrl(std::uint8_t result, const std::string& operation, const std::string& url) {
        Call([&] { mMachine->ZemSCInvocationURL({result, operation, url}); });
    }

    bool Connect() { return mMachine->Connect("host", 443, mClient, kClientEvent); }

    bool Logged(EQELLogLevel level, const std::string& text) const {
        return mLog.Contains(level, "ZemConnectorFsm: " + text);
    }

    std::vector<int> TargetInfos() const {
        std::vector<int> infos;
        for (const auto& event : mTarget->events) {
            EXPECT_EQ(event.id, kTargetEvent);
            infos.push_back(event.info);
        }
        return infos;
    }

    CapturedLog mLog;
    Script mScript;
    ScriptedFactory mFactory{mScript};
    std::shared_ptr<VirtualTimeDispatcher> mDispatcher =
        std::make_shared<VirtualTimeDispatcher>("EventDispatcher", true);
    std::shared_ptr<EventRecorder> mTarget = std::make_shared<EventRecorder>();
    std::shared_ptr<EventRecorder> mClient = std::make_shared<EventRecorder>();
    std::shared_ptr<ZemConnectorFsm> mMachine = std::make_shared<ZemConnectorFsm>(mFactory, "type");
};

TEST_F(ZemConnectorFsmTest, AStartedSessionIsSubscribedToAndReported) {
    EXPECT_TRUE(Start(SessionStatus::kStarted));
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateConnectorStarted");
    EXPECT_THAT(mScript.calls, ElementsAre("subscribe type 0"));
    EXPECT_TRUE(Logged(EQELLogLevel::kInfo, "Zem-Connector status: Started"));
    ASSERT_THAT(TargetInfos(), ElementsAre(0));
    const auto& report = mTarget->events[0].As<ZemConnectorFsmIf::StateUpdateEventData>();
    EXPECT_EQ(report.status, SessionStatus::kStarted);
    EXPECT_EQ(report.connectionState, SCConnectionState::kNotAvailable);
    EXPECT_FALSE(report.activated);
}

TEST_F(ZemConnectorFsmTest, ASessionRejectedAtOnceFailsTheStartWithoutAReport) {
    EXPECT_FALSE(Start(SessionStatus::kRejected));
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateTerminated");
    EXPECT_THAT(mScript.calls, ElementsAre("stop", "gone"));
    EXPECT_TRUE(mTarget->events.empty());
}

TEST_F(ZemConnectorFsmTest, AnIdleSessionLeavesTheMachineNotStarted) {
    EXPECT_TRUE(Start(SessionStatus::kIdle));
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateNotStarted");
    EXPECT_THAT(TargetInfos(), ElementsAre(0));
    CallStatus(2);
    EXPECT_THAT(TargetInfos(), ElementsAre(0));
}

TEST_F(ZemConnectorFsmTest, EachSessionChangeIsReportedAndARejectionEndsTheMachine) {
    EXPECT_TRUE(Start(SessionStatus::kStarting));
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateConnectorStarting");
    CallStatus(2);
    CallStatus(2);
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateConnectorStarted");
    EXPECT_THAT(mScript.calls, ElementsAre("subscribe type 0", "subscribe type 0"));
    CallStatus(7);
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "Invalid connector status: 7"));
    CallStatus(0);
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateConnectorStarted");
    CallStatus(3);
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateTerminated");
    ASSERT_THAT(TargetInfos(), ElementsAre(0, 0, 0, 0, 0));
    EXPECT_EQ(mTarget->events[4].As<ZemConnectorFsmIf::StateUpdateEventData>().status,
              SessionStatus::kRejected);
    EXPECT_EQ(mScript.calls.back(), "gone");
}

TEST_F(ZemConnectorFsmTest, ActivationAndConnectionAreKeptAndReported) {
    Start();
    zem_connector::SCActivationStateUpdate activation;
    activation.transactionType = "type";
    Call([&] { mMachine->ZemSCActivationState(activation); });
    ZemConnectorFsm::SCConnectionStateUpdate connection;
    connection.transactionType = "type";
    connection.connectionState = SCConnectionState::kOnDemand;
    Call([&] { mMachine->ZemSCConnectionState(connection); });
    Call([&] { mMachine->ZemSCSessionStatus(zem_connector::SCSessionStatus::kActive); });
    ASSERT_THAT(TargetInfos(), ElementsAre(0, 1, 2));
    const auto& report = mTarget->events[2].As<ZemConnectorFsmIf::StateUpdateEventData>();
    EXPECT_TRUE(report.activated);
    EXPECT_EQ(report.connectionState, SCConnectionState::kOnDemand);
    EXPECT_TRUE(Logged(EQELLogLevel::kInfo, "'type' Activation State changed to Activated"));
    EXPECT_TRUE(Logged(EQELLogLevel::kInfo, "'type' Connection State changed to OnDemand"));
    connection.connectionState = static_cast<SCConnectionState>(9);
    Call([&] { mMachine->ZemSCConnectionState(connection); });
    EXPECT_TRUE(Logged(EQELLogLevel::kInfo, "'type' Connection State changed to Unknown"));
    activation.disabledReasons.emplace_back();
    Call([&] { mMachine->ZemSCActivationState(activation); });
    EXPECT_TRUE(Logged(EQELLogLevel::kInfo, "'type' Activation State changed to Disabled"));
}

TEST_F(ZemConnectorFsmTest, OnlyOneUrlQueryRunsAtATime) {
    StartReadyToConnect();
    mMachine->GetUrl();
    mMachine->GetUrl();
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "URL query already pending."));
    CallUrl(0, kOperation, "https://a");
    mScript.accept = false;
    mMachine->GetUrl();
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "GetInvocationUrl failed."));
    mScript.accept = true;
    mMachine->GetUrl();
    EXPECT_EQ(mScript.calls, std::vector<std::string>(3, std::string("url ") + kOperation));
    ASSERT_THAT(TargetInfos(), ElementsAre(3));
    const auto& report = mTarget->events[0].As<ZemConnectorFsmIf::InvocationUrlEventData>();
    EXPECT_EQ(report.url, "https://a");
    EXPECT_TRUE(report.success);
}

TEST_F(ZemConnectorFsmTest, AFailedOrMisdirectedUrlIsDeliveredAsAFailure) {
    StartReadyToConnect();
    mMachine->GetUrl();
    CallUrl(1, "elsewhere", "x");
    mMachine->GetUrl();
    CallUrl(0, "other", "https://a");
    ASSERT_THAT(TargetInfos(), ElementsAre(3, 3));
    EXPECT_TRUE(
        Logged(EQELLogLevel::kError, "Received URL for incorrect OperationTypeId: 'elsewhere'!"))
        << "both are checked in any case";
    EXPECT_FALSE(mTarget->events[0].As<ZemConnectorFsmIf::InvocationUrlEventData>().success);
    const auto& second = mTarget->events[1].As<ZemConnectorFsmIf::InvocationUrlEventData>();
    EXPECT_FALSE(second.success);
    EXPECT_EQ(second.url, "https://a");
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "Error received for the URL!"));
    EXPECT_TRUE(Logged(EQELLogLevel::kInfo, "Received URL: https://a"));
    EXPECT_TRUE(
        Logged(EQELLogLevel::kError, "Received URL for incorrect OperationTypeId: 'other'!"));
}

TEST_F(ZemConnectorFsmTest, AUrlThatComesTwiceEndsTheMachineWhichThenRefusesEverything) {
    StartReadyToConnect();
    mMachine->GetUrl();
    CallUrl(0, kOperation, "https://a");
    CallUrl(0, kOperation, "https://a");
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateTerminated");
    EXPECT_THAT(TargetInfos(), ElementsAre(3));
    mLog.Clear();
    mMachine->GetUrl();
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "GetInvocationUrl failed."));
    EXPECT_FALSE(Connect());
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "SocketConnect() failed!"));
    CallStatus(2);
    EXPECT_EQ(mTarget->events.size(), 1U);
}

TEST_F(ZemConnectorFsmTest, ConnectNeedsASessionAndActivation) {
    Start(SessionStatus::kStarting);
    Call([this] { mMachine->ZemSCActivationState({}); });
    EXPECT_FALSE(Connect());
    EXPECT_TRUE(Logged(EQELLogLevel::kError,
                       "Connection refused because of the Zem-Connector status: Starting"));
    CallStatus(2);
    Call([this] { mMachine->ZemSCActivationState({0, 0, 0, "type", {{1, 1}}}); });
    EXPECT_FALSE(Connect());
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "Activation State is Disabled!"));
    EXPECT_TRUE(mScript.sockets.empty());
}

TEST_F(ZemConnectorFsmTest, AnAttemptThatTheLibraryRefusesDoesNotUseUpItsId) {
    StartReadyToConnect();
    mScript.accept = false;
    EXPECT_FALSE(Connect());
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "SocketConnect() failed!"));
    mScript.accept = true;
    EXPECT_TRUE(Connect());
    EXPECT_TRUE(Logged(EQELLogLevel::kInfo, "SocketConnectCb_0_ started."));
    EXPECT_EQ(mScript.calls[1], std::string("socket ") + kOperation + " host:443");
    SocketPair pair;
    Call([&] { mScript.sockets[0]->ZemSocketResult({0, pair.Give()}); });
    EXPECT_TRUE(pair.OtherEndClosed()) << "an answer to the refused attempt";
    EXPECT_TRUE(mClient->events.empty());
}

TEST_F(ZemConnectorFsmTest, ARepeatedResultLeavesItsSocketToTheOwner) {
    StartReadyToConnect();
    ASSERT_TRUE(Connect());
    SocketPair pair;
    const int socket = pair.Give();
    std::thread([&] {
        mScript.sockets[0]->ZemSocketResult({0, socket});
        mScript.sockets[0]->ZemSocketResult({0, socket});
    }).join();
    mDispatcher->RunPending();
    Call([&] { mScript.sockets[0]->ZemSocketResult({0, socket}); });
    EXPECT_FALSE(pair.OtherEndClosed());
    EXPECT_EQ(mLog.Count("Unexpected socket result dropped"), 2U);
    mClient->events.clear();
    EXPECT_TRUE(pair.OtherEndClosed());
    EXPECT_EQ(mLog.Count("close() failed"), 0U);
}

TEST_F(ZemConnectorFsmTest, AttemptsEndIndependently) {
    StartReadyToConnect();
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(Connect());
    SocketPair pair;
    Call([&] { mScript.sockets[1]->ZemSocketResult({0, pair.Give()}); });
    Call([&] { mScript.sockets[0]->ZemSocketResult({5, -1}); });
    EXPECT_TRUE(mLog.Contains(EQELLogLevel::kInfo, "SocketConnectCb_1_: Connection established"));
    EXPECT_TRUE(mLog.Contains(EQELLogLevel::kError, "SocketConnectCb_0_: Connection failed: 5"));
    EXPECT_TRUE(Logged(EQELLogLevel::kInfo, "SocketConnectCb_1_ ended."));

    ASSERT_EQ(mClient->events.size(), 2U);
    EXPECT_EQ(mClient->events[0].id, kClientEvent);
    EXPECT_EQ(mClient->events[0].info, 0);
    using Result = ZemConnectorFsmIf::SocketConnectEventData;
    EXPECT_EQ(mClient->events[0].As<Result>().socketStatus, 0);
    EXPECT_EQ(mClient->events[1].As<Result>().socketStatus, 5);
    EXPECT_FALSE(pair.OtherEndClosed());
    mClient->events.clear();
    EXPECT_TRUE(pair.OtherEndClosed()) << "the socket belongs to the communicator";
}

TEST_F(ZemConnectorFsmTest, ASocketResultThatComesTwiceIsDroppedAndItsSocketClosed) {
    StartReadyToConnect();
    ASSERT_TRUE(Connect());
    SocketPair first;
    SocketPair early;
    SocketPair late;
    std::thread([&] {
        mScript.sockets[0]->ZemSocketResult({0, first.Give()});
        mScript.sockets[0]->ZemSocketResult({0, early.Give()});
    }).join();
    EXPECT_TRUE(early.OtherEndClosed());
    mDispatcher->RunPending();
    Call([&] { mScript.sockets[0]->ZemSocketResult({0, late.Give()}); });
    EXPECT_TRUE(late.OtherEndClosed());
    EXPECT_EQ(mClient->events.size(), 1U);
    EXPECT_FALSE(first.OtherEndClosed());
    EXPECT_EQ(mLog.Count("SocketConnectCb_0_: Unexpected socket result dropped"), 2U);
    mMachine->RaiseCallbackEvent(4, 77);
    mDispatcher->RunPending();
    EXPECT_TRUE(Logged(EQELLogLevel::kWarning, "Socket result dropped, no such attempt: 77"));
}

TEST_F(ZemConnectorFsmTest, TheEndClosesSocketsThatNobodyHasTaken) {
    StartReadyToConnect();
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(Connect());
    SocketPair waiting;
    SocketPair late;
    std::thread([&] { mScript.sockets[0]->ZemSocketResult({0, waiting.Give()}); }).join();
    mMachine->StopFsm();
    EXPECT_THAT(mScript.calls, testing::Contains("stop"));
    EXPECT_TRUE(waiting.OtherEndClosed());
    Call([&] { mScript.sockets[1]->ZemSocketResult({0, late.Give()}); });
    EXPECT_TRUE(late.OtherEndClosed());
    EXPECT_TRUE(mClient->events.empty());
    Call([&] { mScript.sockets[1]->ZemSocketResult({0, std::numeric_limits<int>::max()}); });
    EXPECT_TRUE(mLog.Contains(EQELLogLevel::kError,
                              "SocketConnectCb_1_: Failed to close the SocketFileDescriptor!"));
}

TEST_F(ZemConnectorFsmTest, AnUnknownEventEndsTheMachine) {
    Start();
    mDispatcher->RaiseEvent(nullptr, mMachine, 5, 0, nullptr);
    mDispatcher->RunPending();
    EXPECT_TRUE(Logged(EQELLogLevel::kError, "Unknown event 5!"));
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateTerminated");
}

TEST_F(ZemConnectorFsmTest, AMachineThatIsDroppedWithoutItsEndStopsTheLibrary) {
    StartReadyToConnect();
    ASSERT_TRUE(Connect());
    mDispatcher.reset();
    mMachine.reset();
    EXPECT_THAT(mScript.calls, testing::IsSupersetOf({"stop", "gone"}));
}

}  // namespace vintrel
