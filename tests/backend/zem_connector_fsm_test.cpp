#include "backend/zem_connector_fsm.h"

#include <limits>
#include <thread>

#include <gmock/gmock.h>

#include "socket_pair.h"
#include "testing/captured_log.h"
#include "testing/recorder_fsm.h"
#include "testing/virtual_time_dispatcher.h"

namespace vintrel {

using testing_support::RecorderFsm;
using testing_support::VirtualTimeDispatcher;
using zem_connector::SessionStatus;
using Events = std::vector<RecorderFsm::Event>;
using SCConnectionState = ZemConnectorFsmIf::SCConnectionState;

namespace {

constexpr const char* kOperation = "QUBA-GenerateTIVCert-C003.COSendCSR";
constexpr int kTargetEvent = 8;
constexpr int kClientEvent = 1;

/// What the library answers, and what it was asked.
struct Script {
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

    SessionStatus Start() override { return SessionStatus::kStarted; }
    void Stop() override { mScript.calls.emplace_back("stop"); }
    bool SubscribeTransactionTypeState(std::string, zem_connector::ZemServiceControllerCallbackIf*,
                                       unsigned int) override {
        return false;
    }
    bool GetInvocationUrl(std::string, zem_connector::ZemServiceControllerCallbackIf*) override {
        return true;
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
        for (const auto& machine : {mTarget, mClient}) {
            machine->Start(mDispatcher);
            machine->KeepPayloads();
        }
    }

    void StartReadyToConnect() {
        EXPECT_TRUE(mMachine->StartFsm(mDispatcher, mTarget, kTargetEvent));
        Call([this] { mMachine->ZemSCActivationState({}); });
        mTarget->Clear();
        mScript.calls.clear();
    }

    /// A callback on a thread of the library, and all that follows from it.
    template <typename Callback>
    void Call(const Callback& callback) {
        std::thread(callback).join();
        mDispatcher->RunPending();
    }

    /// The result of the first attempt.
    void EndFirst(int socket) { mScript.sockets[0]->ZemSocketResult({0, socket}); }

    bool Connect() { return mMachine->Connect("host", 443, mClient, kClientEvent); }

    bool Logged(char level, const std::string& text) const {
        return mLog.Contains(level + (" ZemConnectorFsm: " + text));
    }

    testing_support::CapturedLog mLog;
    Script mScript;
    ScriptedFactory mFactory{mScript};
    std::shared_ptr<VirtualTimeDispatcher> mDispatcher =
        std::make_shared<VirtualTimeDispatcher>("EventDispatcher", true);
    std::shared_ptr<RecorderFsm> mTarget = std::make_shared<RecorderFsm>();
    std::shared_ptr<RecorderFsm> mClient = std::make_shared<RecorderFsm>();
    std::shared_ptr<ZemConnectorFsm> mMachine = std::make_shared<ZemConnectorFsm>(mFactory, "type");
};

TEST_F(ZemConnectorFsmTest, AnAttemptThatTheLibraryRefusesDoesNotUseUpItsId) {
    StartReadyToConnect();
    mScript.accept = false;
    EXPECT_FALSE(Connect());
    EXPECT_TRUE(Logged('E', "SocketConnect() failed!"));
    mScript.accept = true;
    EXPECT_TRUE(Connect());
    EXPECT_TRUE(Logged('I', "SocketConnectCb_0_ started."));
    EXPECT_EQ(mScript.calls.back(), std::string("socket ") + kOperation + " host:443");
    SocketPair pair;
    Call([&] { EndFirst(pair.Give()); });
    EXPECT_TRUE(pair.OtherEndClosed()) << "an answer to the refused attempt";
    EXPECT_TRUE(mClient->events.empty());
}

TEST_F(ZemConnectorFsmTest, EachReportTellsTheWholeState) {
    StartReadyToConnect();
    ZemConnectorFsm::SCConnectionStateUpdate update;
    update.connectionState = static_cast<SCConnectionState>(9);
    Call([&] { mMachine->ZemSCConnectionState(update); });
    EXPECT_TRUE(Logged('I', "'' Connection State changed to Unknown"));
    ASSERT_EQ(mTarget->events, (Events{{kTargetEvent, 2}}));
    const auto& report = mTarget->Payload<ZemConnectorFsmIf::StateUpdateEventData>(0);
    EXPECT_EQ(report.status, SessionStatus::kStarted);
    EXPECT_EQ(report.connectionState, update.connectionState);
    EXPECT_TRUE(report.activated);
}

TEST_F(ZemConnectorFsmTest, AnEventWithoutItsPayloadIsAFailedQueryOrNothingAndAnUnknownOneTheEnd) {
    StartReadyToConnect();
    mMachine->GetUrl();
    for (const int event : {1, 2, 3}) {
        mMachine->RaiseCallbackEvent(event, 0);
    }
    mDispatcher->RunPending();
    ASSERT_EQ(mTarget->events.size(), 1U);
    EXPECT_FALSE(mTarget->Payload<ZemConnectorFsmIf::InvocationUrlEventData>(0).success);
    EXPECT_EQ(mLog.Count("ZemConnectorFsm: Event without its payload"), 3U);
    EXPECT_TRUE(Connect()) << "still activated";
    mMachine->RaiseCallbackEvent(5, 0);
    mDispatcher->RunPending();
    EXPECT_TRUE(Logged('E', "Unknown event 5!"));
    EXPECT_EQ(mMachine->GetStateName(), "FsmStateTerminated");
}

TEST_F(ZemConnectorFsmTest, AResultThatComesAgainIsDroppedAndItsSocketClosedUnlessItIsInUse) {
    StartReadyToConnect();
    ASSERT_TRUE(Connect());
    SocketPair first;
    SocketPair early;
    SocketPair late;
    const int socket = first.Give();
    std::thread([&] {
        for (const int again : {socket, socket, early.Give()}) {
            EndFirst(again);
        }
    }).join();
    EXPECT_TRUE(early.OtherEndClosed());
    mDispatcher->RunPending();
    Call([&] { EndFirst(socket); });
    Call([&] { EndFirst(late.Give()); });
    EXPECT_TRUE(late.OtherEndClosed());
    EXPECT_EQ(mLog.Count("SocketConnectCb_0_: Unexpected socket result dropped"), 4U);
    EXPECT_EQ(mClient->events.size(), 1U);
    EXPECT_FALSE(first.OtherEndClosed());
    mClient->Clear();
    EXPECT_TRUE(first.OtherEndClosed());
    EXPECT_EQ(mLog.Count("close() failed"), 0U);
    mMachine->RaiseCallbackEvent(4, 77);
    mDispatcher->RunPending();
    EXPECT_TRUE(Logged('W', "Socket result dropped, no such attempt: 77"));
}

TEST_F(ZemConnectorFsmTest, TheEndClosesSocketsThatNobodyHasTaken) {
    StartReadyToConnect();
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(Connect());
    SocketPair waiting;
    SocketPair late;
    std::thread([&] { EndFirst(waiting.Give()); }).join();
    mMachine->StopFsm();
    EXPECT_THAT(mScript.calls, testing::Contains("stop"));
    EXPECT_TRUE(waiting.OtherEndClosed());
    Call([&] { mScript.sockets[1]->ZemSocketResult({0, late.Give()}); });
    EXPECT_TRUE(late.OtherEndClosed());
    EXPECT_TRUE(mClient->events.empty());
    Call([&] { mScript.sockets[1]->ZemSocketResult({0, std::numeric_limits<int>::max()}); });
    EXPECT_TRUE(mLog.Contains("E SocketConnectCb_1_: Failed to close the SocketFileDescriptor!"));
}

TEST_F(ZemConnectorFsmTest, AMachineThatIsDroppedWithoutItsEndStopsTheLibrary) {
    StartReadyToConnect();
    ASSERT_TRUE(Connect());
    mDispatcher.reset();
    mMachine.reset();
    EXPECT_THAT(mScript.calls, testing::IsSupersetOf({"stop", "gone"}));
}

}  // namespace vintrel
