#include <cstdlib>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <zem_connector/zem_connector.h>
#include <zem_connector_host/connector_file.h>
#include <zem_connector_host/socket_status.h>

#include "callback_recorder.h"
#include "tcp_listener.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"

namespace zem_connector {

using host::ConnectorFile;
using SCConnectionState = ZemServiceControllerCallbackIf::SCConnectionState;

class ZemConnectorTest : public testing::Test {
protected:
    void SetUp() override {
        mFile.transactionTypes["type"] = {true, SCConnectionState::kOnDemand};
        mFile.invocationUrls["type.op"] = "https://backend/x";
    }

    /// What the next connector takes for its file.
    static std::string UseFile(const std::string& path) {
        setenv("ZEM_CONNECTOR_CONFIG", path.c_str(), 1);
        return path;
    }

    void WriteFile() { mFile.WriteAtomically(mPath); }
    void WriteInPlace(const std::string& text) { mDirectory.Write("ZemConnector.json", text); }

    SessionStatus StartWith(SessionStatus status) {
        mFile.sessionStatus = status;
        mFile.WriteAtomically(mPath);
        return mConnector.Start();
    }

    void ExpectSubscribed(const std::string& activation, int connection) {
        ASSERT_TRUE(mConnector.SubscribeTransactionTypeState("type", &mRecorder, 0));
        EXPECT_EQ(mRecorder.Next().substr(0, 10), "controller");
        EXPECT_EQ(mRecorder.Next(), "activation type " + activation);
        EXPECT_EQ(mRecorder.Next(), "connection type " + std::to_string(connection));
    }

    testing_support::TemporaryDirectory mDirectory;
    testing_support::CapturedLog mLog;
    std::string mPath = UseFile(mDirectory.File("ZemConnector.json"));
    ConnectorFile mFile;
    CallbackRecorder mRecorder;
    ZemConnector mConnector{&mRecorder, nullptr};
};

TEST_F(ZemConnectorTest, ARejectedSessionRefusesEverything) {
    EXPECT_EQ(StartWith(SessionStatus::kRejected), SessionStatus::kRejected);
    EXPECT_FALSE(mConnector.SubscribeTransactionTypeState("type", &mRecorder, 0));
    EXPECT_FALSE(mConnector.GetInvocationUrl("type.op", &mRecorder));
    EXPECT_FALSE(mConnector.SocketConnect("type.op", "127.0.0.1", 1, &mRecorder));
}

TEST_F(ZemConnectorTest, AnIdleSessionMayStillComeAndAUrlQueryWaitsForIt) {
    mFile.urlTimeout = std::chrono::minutes(10);
    EXPECT_EQ(StartWith(SessionStatus::kIdle), SessionStatus::kStarting);
    ASSERT_TRUE(mConnector.GetInvocationUrl("type.op", &mRecorder));
    mFile.sessionStatus = SessionStatus::kStarted;
    WriteFile();
    EXPECT_EQ(mRecorder.Next(), "session 2");
    EXPECT_EQ(mRecorder.Next(), "url 0 type.op https://backend/x");
}

TEST_F(ZemConnectorTest, AFileThatComesLaterInADirectoryThatComesLaterBringsTheSession) {
    const std::string directory = mDirectory.File("later");
    const std::string file = UseFile(directory + "/file.json");
    ZemConnector connector(&mRecorder, nullptr);
    EXPECT_EQ(connector.Start(), SessionStatus::kStarting);
    EXPECT_GT(mLog.Count(file + ": No such file or directory; the last good state stays"), 0U);
    ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    mFile.WriteAtomically(file);
    EXPECT_EQ(mRecorder.Next(), "session 2");
}

TEST_F(ZemConnectorTest, ASubscriberGetsThePresentStateAndThenEachChange) {
    StartWith(SessionStatus::kStarted);
    ExpectSubscribed("on", 2);
    mFile.transactionTypes["type"].connectionState = SCConnectionState::kConnected;
    WriteFile();
    EXPECT_EQ(mRecorder.Next(), "connection type 3");
    mFile.transactionTypes["type"].activated = false;
    WriteInPlace(mFile.ToJson());
    EXPECT_EQ(mRecorder.Next(), "activation type off");
    mFile.transactionTypes.clear();
    WriteFile();
    EXPECT_EQ(mRecorder.Next(), "connection type 0");
    ExpectSubscribed("off", 0);
    mFile.sessionStatus = SessionStatus::kRejected;
    WriteFile();
    EXPECT_EQ(mRecorder.Next(), "session 3");
}

TEST_F(ZemConnectorTest, ABadFileLeavesTheLastGoodState) {
    StartWith(SessionStatus::kStarted);
    WriteInPlace("{\"sessionStatus\": \"star");
    ExpectSubscribed("on", 2);
    WriteInPlace(std::string(ConnectorFile::kMaxSize + 1, ' '));
    ASSERT_EQ(unlink(mPath.c_str()), 0);
    ASSERT_EQ(mkfifo(mPath.c_str(), 0600), 0);
    ExpectSubscribed("on", 2);
    ASSERT_EQ(unlink(mPath.c_str()), 0);
    mFile.transactionTypes["type"].activated = false;
    WriteFile();
    EXPECT_EQ(mRecorder.Next(), "activation type off");
    EXPECT_GT(mLog.Count("the last good state stays"), 0U);
}

TEST_F(ZemConnectorTest, AUrlQueryIsAnsweredOnceWhetherKnownOrNot) {
    StartWith(SessionStatus::kStarted);
    ASSERT_TRUE(mConnector.GetInvocationUrl("type.op", &mRecorder));
    EXPECT_EQ(mRecorder.Next(), "url 0 type.op https://backend/x");
    ASSERT_TRUE(mConnector.GetInvocationUrl("other.op", &mRecorder));
    EXPECT_EQ(mRecorder.Next(), "url 1 other.op ");
    EXPECT_FALSE(mConnector.GetInvocationUrl("type.op", nullptr));
}

TEST_F(ZemConnectorTest, AUrlQueryFailsIfNoSessionComesInTime) {
    mFile.urlTimeout = std::chrono::milliseconds(1);
    StartWith(SessionStatus::kStarting);
    EXPECT_EQ(mLog.Count("The URL of type.op says https, but its sockets are in clear"), 1U);
    ASSERT_TRUE(mConnector.GetInvocationUrl("type.op", &mRecorder));
    EXPECT_EQ(mRecorder.Next(), "url 1 type.op ");
}

TEST_F(ZemConnectorTest, AConnectedSocketIsHandedOverReadyForUse) {
    TcpListener listener;
    StartWith(SessionStatus::kStarted);
    ASSERT_TRUE(mConnector.SocketConnect("type.op", "localhost", listener.Port(), &mRecorder));
    ASSERT_EQ(mRecorder.Next(), "socket 0");
    const testing_support::Stream client(mRecorder.Socket());
    EXPECT_EQ(fcntl(client.Get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(fcntl(client.Get(), F_GETFL) & O_NONBLOCK, 0);
    int noDelay = 0;
    socklen_t size = sizeof(noDelay);
    EXPECT_EQ(getsockopt(client.Get(), IPPROTO_TCP, TCP_NODELAY, &noDelay, &size), 0);
    EXPECT_NE(noDelay, 0);

    listener.Accept().Send("x");
    EXPECT_EQ(client.Read(1), "x");
}

TEST_F(ZemConnectorTest, AnAttemptThatMakesNoSenseIsRefused) {
    StartWith(SessionStatus::kStarted);
    EXPECT_FALSE(mConnector.SocketConnect("type.op", "", 80, &mRecorder));
    EXPECT_FALSE(mConnector.SocketConnect("type.op", std::string(256, 'a'), 80, &mRecorder));
    EXPECT_FALSE(mConnector.SocketConnect("type.op", "localhost", 0, &mRecorder));
    EXPECT_FALSE(mConnector.SocketConnect("type.op", "localhost", 80, nullptr));
}

TEST_F(ZemConnectorTest, AfterStopNothingComesWhateverWasUnderWay) {
    TcpListener listener(0);
    listener.StopAnswering();
    StartWith(SessionStatus::kStarted);
    for (int round = 0; round < 50; ++round) {
        CallbackRecorder recorder;
        ZemConnector connector(&recorder, nullptr);
        ASSERT_EQ(connector.Start(), SessionStatus::kStarted);
        connector.SubscribeTransactionTypeState("type", &recorder, 0);
        connector.GetInvocationUrl("type.op", &recorder);
        connector.SocketConnect("type.op", "127.0.0.1", listener.Port(), &recorder);
        if (round % 2 == 0) {
            EXPECT_EQ(recorder.Next(), "controller 1");
        }
        connector.Stop();
        const std::size_t waiting = recorder.Waiting();
        WriteFile();
        EXPECT_FALSE(connector.GetInvocationUrl("type.op", &recorder));
        EXPECT_EQ(connector.Start(), SessionStatus::kRejected);
        EXPECT_EQ(recorder.Waiting(), waiting);
    }
}

TEST_F(ZemConnectorTest, ACallbackMayStopOrDestroyTheConnectorAndIsTheLastOne) {
    StartWith(SessionStatus::kStarted);
    for (const bool destroys : {false, true}) {
        CallbackRecorder recorder;
        auto connector = std::make_unique<ZemConnector>(nullptr, nullptr);
        recorder.inCallback = [&] { destroys ? connector.reset() : connector->Stop(); };
        connector->Start();
        connector->SubscribeTransactionTypeState("type", &recorder, 0);
        EXPECT_EQ(recorder.Next(), "controller 1");
        if (!destroys) {
            connector->Stop();
        }
        EXPECT_EQ(recorder.Waiting(), 0U);
    }
}

}  // namespace zem_connector
