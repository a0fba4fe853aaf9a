#include "backend/backend_request_handler_fsm.h"

#include <tuple>

#include <gmock/gmock.h>

#include "fsm/fsm_stream_communicator.h"
#include "socket_pair.h"
#include "testing/captured_log.h"
#include "testing/recorder_fsm.h"
#include "testing/virtual_time_dispatcher.h"

namespace vintrel {

using testing_support::RecorderFsm;
using testing_support::VirtualTimeDispatcher;

namespace {

constexpr int kTargetEvent = 3;
constexpr const char* kCertificateType = "application/QUBA_CT_KoruCertificateResponse_v2+proto";
constexpr const char* kErrorType = "application/GenericError_v2+proto";

/// A connector machine that accepts the one attempt.
class ScriptedConnectorFsm : public ZemConnectorFsmIf {
public:
    ScriptedConnectorFsm() : ZemConnectorFsmIf("ScriptedConnectorFsm") {}

    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> /*dispatcher*/,
                  std::shared_ptr<fsm::Fsm> /*target*/, int /*targetEvent*/) override {
        return true;
    }
    void GetUrl() override {}
    bool Connect(const std::string& /*host*/, unsigned short /*port*/,
                 std::shared_ptr<fsm::Fsm> machine, int event) override {
        client = std::move(machine);
        clientEvent = event;
        return true;
    }

    std::shared_ptr<fsm::Fsm> client;
    int clientEvent{0};

protected:
    void OnTerminate() override {}
};

std::string Response(const std::string& status, const std::string& type, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\nContent-Type: " + type + "\r\n\r\n" + body;
}

}  // namespace

class BackendRequestHandlerFsmTest : public testing::Test {
protected:
    void SetUp() override {
        mTarget->Start(mDispatcher);
        mTarget->KeepPayloads();
    }

    /// A new exchange.
    void Start() {
        mTarget->Clear();
        mPair = std::make_unique<SocketPair>();
        mHandler = std::make_shared<BackendRequestHandlerFsm>();
        ASSERT_TRUE(mHandler->StartFsm(mDispatcher, mTarget, kTargetEvent, "body", mConnector,
                                       {"backend", 8443, "/api?x"}));
        mDispatcher->RunPending();
    }

    /// The attempt ends with this socket, or with an event that says nothing.
    void EndAttempt(std::unique_ptr<ZemConnectorFsmIf::SocketConnectEventData> data) {
        mDispatcher->RaiseEvent(nullptr, std::exchange(mConnector->client, nullptr),
                                mConnector->clientEvent, 0, std::move(data));
        mDispatcher->RunPending();
    }
    void EndAttempt(std::shared_ptr<fsm::FsmStreamCommunicatorIf> communicator) {
        auto data = std::make_unique<ZemConnectorFsmIf::SocketConnectEventData>();
        data->streamCommunicator = std::move(communicator);
        data->socketStatus = 0;
        EndAttempt(std::move(data));
    }

    void Connect() {
        EndAttempt(fsm::FsmStreamCommunicatorIf::Create(mPair->Give(), "Communicator"));
    }

    void StartAndConnect() {
        Start();
        Connect();
    }

    void StartAndSendBody() {
        StartAndConnect();
        mPair->Read();
        Answer("HTTP/1.1 100 Continue\r\n\r\n");
        ASSERT_EQ(mPair->Read(), "body");
    }

    void Answer(const std::string& bytes) {
        ASSERT_EQ(mPair->Write(bytes), bytes.size());
        mDispatcher->RunPending();
    }

    void ClosePeer() {
        mPair->ClosePeer();
        mDispatcher->RunPending();
    }

    /// The one report, after which nothing of the exchange is left.
    void ExpectEnd(ReturnCode code, const std::string& response = {}) {
        ASSERT_EQ(mTarget->events, (std::vector<RecorderFsm::Event>{{kTargetEvent, 0}}));
        const auto& data = mTarget->Payload<BackendResponseEventData>(0);
        EXPECT_EQ(data.returnCode, code);
        EXPECT_EQ(data.response, response);
        EXPECT_EQ(mHandler->GetStateName(), "FsmStateTerminated");
        EXPECT_FALSE(mDispatcher->NextDelay().has_value()) << "the time limit must be gone";
        EXPECT_EQ(mHandler.use_count(), 1);
    }

    bool Logged(char level, const std::string& text) const {
        return mLog.Contains(level + (" BackendRequestHandler: " + text));
    }

    testing_support::CapturedLog mLog;
    std::unique_ptr<SocketPair> mPair;
    std::shared_ptr<VirtualTimeDispatcher> mDispatcher =
        std::make_shared<VirtualTimeDispatcher>("EventDispatcher", false);
    std::shared_ptr<RecorderFsm> mTarget = std::make_shared<RecorderFsm>();
    std::shared_ptr<ScriptedConnectorFsm> mConnector = std::make_shared<ScriptedConnectorFsm>();
    std::shared_ptr<BackendRequestHandlerFsm> mHandler =
        std::make_shared<BackendRequestHandlerFsm>();
};

TEST_F(BackendRequestHandlerFsmTest, TheHeadersOfTheExchangeAreLogged) {
    StartAndSendBody();
    const std::string body = std::string("b\0d", 3);
    Answer(Response("200 OK", kCertificateType, body));
    ClosePeer();
    ExpectEnd(ReturnCode::kSuccess, body);
    const auto hasHeader = [](const std::string& what, const std::string& header) {
        return testing::Contains(testing::StartsWith(what + "\n-----\n" + header));
    };
    EXPECT_THAT(mLog.Lines('D'),
                testing::AllOf(
                    hasHeader("BackendRequestHandler: Sent Header ", "PUT /api?x"),
                    hasHeader("BackendRequestHandler: Received Response", "HTTP/1.1 100 Continue"),
                    hasHeader("BackendRequestHandler: Received Response", "HTTP/1.1 200 OK")));
}

TEST_F(BackendRequestHandlerFsmTest, TheHeaderOfTheInterimResponseServesAnIncompleteFinalOne) {
    StartAndConnect();
    Answer("HTTP/1.1 100 Continue\r\nContent-Type: " + std::string(kErrorType) + "\r\n\r\n");
    ClosePeer();
    ExpectEnd(ReturnCode::kHttpError);
    EXPECT_TRUE(Logged('E', "Unexpected HTTP response: 4095!"));
    EXPECT_FALSE(Logged('I', "Unknown type of payload received"));
}

TEST_F(BackendRequestHandlerFsmTest, WithoutAConnectorItDoesNotStart) {
    EXPECT_FALSE(mHandler->StartFsm(mDispatcher, mTarget, kTargetEvent, "body", nullptr, {}));
    mDispatcher->AdvanceBy(std::chrono::minutes(1));
    EXPECT_TRUE(mTarget->events.empty());
    EXPECT_TRUE(Logged('E', "zemConnectorFsm is null"));
}

/// A communicator that does not start.
class DeadCommunicator : public fsm::FsmStreamCommunicator {
public:
    DeadCommunicator() : FsmStreamCommunicator(-1, "Communicator") {}
    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> /*dispatcher*/,
                  std::shared_ptr<fsm::Fsm> /*target*/, int /*targetEvent*/) override {
        return false;
    }
};

TEST_F(BackendRequestHandlerFsmTest, ACommunicatorThatIsNoneEndsTheExchange) {
    const std::shared_ptr<fsm::FsmStreamCommunicatorIf> communicators[] = {
        nullptr, std::make_shared<DeadCommunicator>()};
    for (const auto& communicator : communicators) {
        mLog.Clear();
        Start();
        EndAttempt(communicator);
        ExpectEnd(ReturnCode::kInternalError);
        EXPECT_TRUE(Logged('E', "Cannot start FsmStreamCommunicator!"));
    }
}

TEST_F(BackendRequestHandlerFsmTest, AnAnswerInPiecesThatIsNoHttpCountsAsIncomplete) {
    StartAndConnect();
    Answer("ICY 100");
    Answer(" OK\r\n\r\n");
    EXPECT_TRUE(mTarget->events.empty());
    mDispatcher->AdvanceBy(std::chrono::seconds(30));
    ExpectEnd(ReturnCode::kTimeout);
}

TEST_F(BackendRequestHandlerFsmTest, AnEventWithoutItsPayloadOrMeaningEndsTheExchange) {
    Start();
    EndAttempt(std::unique_ptr<ZemConnectorFsmIf::SocketConnectEventData>());
    ExpectEnd(ReturnCode::kConnectionFailed);
    for (const int event : {2, 9}) {
        StartAndConnect();
        mDispatcher->RaiseEvent(nullptr, mHandler, event,
                                fsm::FsmStreamCommunicatorIf::eReadContinuedData, nullptr);
        mDispatcher->RunPending();
        ExpectEnd(ReturnCode::kInternalError);
        EXPECT_TRUE(Logged('E', "Unknown event " + std::to_string(event) + "!"));
    }
}

TEST_F(BackendRequestHandlerFsmTest, AResponseWithoutEndStopsAt16MiB) {
    StartAndSendBody();
    const std::string piece(32768, 'x');
    std::size_t sent = 0;
    while (mTarget->events.empty()) {
        const std::size_t written = mPair->Write(piece);
        ASSERT_GT(written, 0U);
        sent += written;
        ASSERT_LT(sent, std::size_t{17} * 1024 * 1024);
        mDispatcher->RunPending();
        mLog.Clear();
    }
    EXPECT_GT(sent, std::size_t{16} * 1024 * 1024);
    ExpectEnd(ReturnCode::kTransferError);
}

TEST_F(BackendRequestHandlerFsmTest, AClientThatLetsGoDuringTheExchangeLeavesNothingBehind) {
    Start();
    const std::weak_ptr<BackendRequestHandlerFsm> handler = mHandler;
    mHandler.reset();
    EXPECT_EQ(mConnector.use_count(), 1) << "machines that hold each other would never go";
    mDispatcher->AdvanceBy(std::chrono::seconds(30));
    Connect();
    EXPECT_TRUE(handler.expired());
}

TEST_F(BackendRequestHandlerFsmTest, TheTypeMayStandAnywhereInTheHeaderAndCountsBehindTheStatus) {
    const std::string type = kCertificateType;
    const std::tuple<std::string, ReturnCode, std::string> responses[] = {
        {"HTTP/1.1 200 OK\r\nX-Any: " + type + "\r\n\r\nc", ReturnCode::kSuccess, "c"},
        {Response("500 Oops", kCertificateType, "x"), ReturnCode::kHttpError, ""},
        {"ICY 200 OK\r\n\r\nx", ReturnCode::kHttpError, ""}};
    for (const auto& [bytes, code, response] : responses) {
        SCOPED_TRACE(bytes);
        StartAndSendBody();
        Answer(bytes);
        ClosePeer();
        ExpectEnd(code, response);
    }
}

}  // namespace vintrel
