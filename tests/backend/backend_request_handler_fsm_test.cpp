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

/// A connector machine that keeps the one attempt for the test to end.
class ScriptedConnectorFsm : public ZemConnectorFsmIf {
public:
    ScriptedConnectorFsm() : ZemConnectorFsmIf("ScriptedConnectorFsm") {}

    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> /*dispatcher*/,
                  std::shared_ptr<fsm::Fsm> /*target*/, int /*targetEvent*/) override {
        return true;
    }
    void GetUrl() override {}
    bool Connect(const std::string& host, unsigned short port, std::shared_ptr<fsm::Fsm> client,
                 int clientEvent) override {
        peer = host + ":" + std::to_string(port);
        mClient = std::move(client);
        mClientEvent = clientEvent;
        return true;
    }

    void EndAttempt(fsm::EventDispatcher& dispatcher, int status,
                    std::shared_ptr<fsm::FsmStreamCommunicatorIf> communicator) {
        auto data = std::make_unique<SocketConnectEventData>();
        data->streamCommunicator = std::move(communicator);
        data->socketStatus = status;
        EndAttempt(dispatcher, std::move(data));
    }
    void EndAttempt(fsm::EventDispatcher& dispatcher, std::unique_ptr<fsm::FsmEventData> data) {
        dispatcher.RaiseEvent(nullptr, mClient, mClientEvent, 0, std::move(data));
        mClient.reset();
    }

    std::string peer;

protected:
    void OnTerminate() override {}

private:
    std::shared_ptr<fsm::Fsm> mClient;
    int mClientEvent{0};
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

    void Start(const std::string& body = "body") {
        ASSERT_TRUE(mHandler->StartFsm(mDispatcher, mTarget, kTargetEvent, body, mConnector,
                                       {"backend", 8443, "/api?x"}));
        mDispatcher->RunPending();
    }

    void Connect() {
        mConnector->EndAttempt(*mDispatcher, 0,
                               fsm::FsmStreamCommunicatorIf::Create(mPair.Give(), "Communicator"));
        mDispatcher->RunPending();
    }

    void StartAndConnect(const std::string& body = "body") {
        Start(body);
        Connect();
    }

    void StartAndSendBody() {
        StartAndConnect();
        mPair.Read();
        Answer("HTTP/1.1 100 Continue\r\n\r\n");
        ASSERT_EQ(mPair.Read(), "body");
    }

    void Answer(const std::string& bytes) {
        ASSERT_EQ(mPair.Write(bytes), bytes.size());
        mDispatcher->RunPending();
    }

    void ClosePeer() {
        mPair.ClosePeer();
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

    void ExpectRunning() {
        EXPECT_TRUE(mTarget->events.empty());
        EXPECT_NE(mHandler->GetStateName(), "FsmStateTerminated");
    }

    bool Logged(char level, const std::string& text) const {
        return mLog.Contains(level + (" BackendRequestHandler: " + text));
    }

    testing_support::CapturedLog mLog;
    SocketPair mPair;
    std::shared_ptr<VirtualTimeDispatcher> mDispatcher =
        std::make_shared<VirtualTimeDispatcher>("EventDispatcher", false);
    std::shared_ptr<RecorderFsm> mTarget = std::make_shared<RecorderFsm>();
    std::shared_ptr<ScriptedConnectorFsm> mConnector = std::make_shared<ScriptedConnectorFsm>();
    std::shared_ptr<BackendRequestHandlerFsm> mHandler =
        std::make_shared<BackendRequestHandlerFsm>();
};

TEST_F(BackendRequestHandlerFsmTest, AWholeExchangeIsExactOnTheWire) {
    StartAndConnect("four");
    EXPECT_EQ(mConnector->peer, "backend:8443");
    EXPECT_EQ(mPair.Read(),
              "PUT /api?x HTTP/1.1\r\n"
              "Host: backend\r\n"
              "Content-Type: application/QUBA_CO_KoruVintrelRequest_v1+proto\r\n"
              "Accept: application/QUBA_CT_KoruCertificateResponse_v2+proto;"
              "application/GenericError_v2+proto\r\n"
              "Expect: 100-continue\r\n"
              "Connection: close\r\n"
              "Content-Length: 4\r\n"
              "\r\n");
    Answer("HTTP/1.1 100 Con");
    EXPECT_EQ(mPair.Read(), "");
    Answer("tinue\r\n\r");
    Answer("\n");
    EXPECT_EQ(mPair.Read(), "four");

    const std::string body = std::string("b\0d", 3) + std::string(5000, 'y');
    const std::string response = Response("200 OK", kCertificateType, body);
    Answer(response.substr(0, 10));
    Answer(response.substr(10));
    ExpectRunning();
    ClosePeer();
    ExpectEnd(ReturnCode::kSuccess, body);
    EXPECT_TRUE(Logged('I', "HTTP response received successfully"));
    const std::vector<std::string> debug = mLog.Lines('D');
    EXPECT_THAT(debug, testing::Contains(testing::HasSubstr("Sent Header \n-----\nPUT /api?x")));
    EXPECT_THAT(debug, testing::Contains(testing::AllOf(testing::HasSubstr("Received Response"),
                                                        testing::HasSubstr("100 Continue"))));
    EXPECT_THAT(debug, testing::Contains(testing::AllOf(testing::HasSubstr("Received Response"),
                                                        testing::HasSubstr("200 OK"))));
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

TEST_F(BackendRequestHandlerFsmTest, ASocketOrCommunicatorThatIsNoneEndsTheExchange) {
    const std::shared_ptr<fsm::FsmStreamCommunicatorIf> dead = std::make_shared<DeadCommunicator>();
    const auto missing = decltype(dead)();
    const std::tuple<int, decltype(missing), ReturnCode, const char*> rows[] = {
        {-1, missing, ReturnCode::kConnectionFailed, "Connection failed!"},
        {0, missing, ReturnCode::kInternalError, "Cannot start FsmStreamCommunicator!"},
        {0, dead, ReturnCode::kInternalError, "Cannot start FsmStreamCommunicator!"}};
    for (const auto& [status, communicator, code, line] : rows) {
        mTarget->Clear();
        mLog.Clear();
        mHandler = std::make_shared<BackendRequestHandlerFsm>();
        Start();
        mConnector->EndAttempt(*mDispatcher, status, communicator);
        mDispatcher->RunPending();
        ExpectEnd(code);
        EXPECT_TRUE(Logged('E', line));
    }
}

TEST_F(BackendRequestHandlerFsmTest, AnAnswerInPiecesThatIsNoHttpCountsAsIncomplete) {
    StartAndConnect();
    Answer("ICY 100");
    Answer(" OK\r\n\r\n");
    ExpectRunning();
    mDispatcher->AdvanceBy(std::chrono::seconds(30));
    ExpectEnd(ReturnCode::kTimeout);
}

TEST_F(BackendRequestHandlerFsmTest, AnEventWithoutItsPayloadEndsTheExchange) {
    Start();
    mConnector->EndAttempt(*mDispatcher, nullptr);
    mDispatcher->RunPending();
    ExpectEnd(ReturnCode::kConnectionFailed);

    mTarget->Clear();
    mHandler = std::make_shared<BackendRequestHandlerFsm>();
    StartAndConnect();
    mDispatcher->RaiseEvent(nullptr, mHandler, 2, fsm::FsmStreamCommunicatorIf::eReadContinuedData,
                            nullptr);
    mDispatcher->RunPending();
    ExpectEnd(ReturnCode::kInternalError);
}

TEST_F(BackendRequestHandlerFsmTest, AnUnknownEventEndsTheExchange) {
    StartAndSendBody();
    mDispatcher->RaiseEvent(nullptr, mHandler, 9, 0, nullptr);
    mDispatcher->RunPending();
    ExpectEnd(ReturnCode::kInternalError);
    EXPECT_TRUE(Logged('E', "Unknown event 9!"));
}

TEST_F(BackendRequestHandlerFsmTest, AResponseWithoutEndStopsAt16MiB) {
    StartAndSendBody();
    const std::string piece(32768, 'x');
    std::size_t sent = 0;
    while (mTarget->events.empty()) {
        const std::size_t written = mPair.Write(piece);
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

struct FinalResponse {
    std::string bytes;
    ReturnCode code;
    std::string response;
    /// The one line at error level, if there is one.
    std::string error;
};

void PrintTo(const FinalResponse& response, std::ostream* stream) {
    *stream << response.bytes;
}

class FinalResponses : public BackendRequestHandlerFsmTest,
                       public testing::WithParamInterface<FinalResponse> {};

TEST_P(FinalResponses, DecideTheResult) {
    const auto& [bytes, code, response, error] = GetParam();
    StartAndSendBody();
    Answer(bytes);
    ClosePeer();
    ExpectEnd(code, response);
    EXPECT_EQ(mLog.Lines('E').size(), error.empty() ? 0U : 1U);
    EXPECT_TRUE(error.empty() || Logged('E', error));
}

const std::vector<FinalResponse> kFinalResponses = {
    {Response("200 OK", kCertificateType, "c"), ReturnCode::kSuccess, "c", ""},
    {"HTTP/1.1 200 OK\r\nX-Any: " + std::string(kCertificateType) +
         "\r\nContent-Length: 99\r\n\r\nc",
     ReturnCode::kSuccess, "c", ""},
    {Response("200 OK", kCertificateType, ""), ReturnCode::kEmptyResponse, "",
     "Empty HTTP Response received!"},
    {Response("200 OK", "text/html", "x"), ReturnCode::kUnknownPayload, "", ""},
    {Response("403 Forbidden", kErrorType, "e"), ReturnCode::kHttpError, "e",
     "Unexpected HTTP response: 403!"},
    {Response("500 Oops", kCertificateType, "x"), ReturnCode::kHttpError, "",
     "Unexpected HTTP response: 500!"},
    {"ICY 200 OK\r\n\r\nx", ReturnCode::kHttpError, "", "Unexpected HTTP response: 100!"},
    {"", ReturnCode::kHttpError, "", "Unexpected HTTP response: 4095!"},
};

INSTANTIATE_TEST_SUITE_P(Table, FinalResponses, testing::ValuesIn(kFinalResponses));

}  // namespace vintrel
