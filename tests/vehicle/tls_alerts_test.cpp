#include "vehicle/tls_alerts.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <vonta_socket/unix_stream_client_connector.h>

#include "platform/support/service_access/event_recorder.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"
#include "vehicle/socks_tls_alert_client_impl.h"
#include "vonta_socket_host/stream_server.h"

/// Gets the limit, by the steady clock, of the next wait that has one; from there on only a
/// notification ends that wait.
static std::atomic<std::promise<std::chrono::nanoseconds>*> gNextWait{nullptr};

// With --wrap=pthread_cond_clockwait the linker binds calls of it to the second, and the first to
// the C library's.
extern "C" int RealWait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                        const timespec* limit) __asm__("__real_pthread_cond_clockwait");
extern "C" int Wait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                    const timespec* limit) __asm__("__wrap_pthread_cond_clockwait");

extern "C" int Wait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                    const timespec* limit) {
    auto* const begun = gNextWait.exchange(nullptr);
    if (begun == nullptr) {
        return RealWait(condition, mutex, clock, limit);
    }
    begun->set_value(std::chrono::seconds(limit->tv_sec) +
                     std::chrono::nanoseconds(limit->tv_nsec));
    return pthread_cond_wait(condition, mutex);
}

namespace {

using service_access_test::EventRecorder;
using socks_rux::SocksTlsAlertClientImpl;
using testing::InSequence;
using testing::NiceMock;
using testing::Return;
using tls_alert_if::ETlsAlertCode;
using vonta_socket::StreamCommunicatorIf;
using vonta_socket::UnixStreamClientConnector;

constexpr std::chrono::seconds kHangGuard{30};

class MockSocksClient : public socks_rux::SocksTlsAlertClientIf {
public:
    MOCK_METHOD(unsigned int, StartListening, (socks_rux::SocksTlsAlertClientCallbackIf*),
                (override));
    MOCK_METHOD(void, StopListening, (), (override));
};

class MockClient : public vintrel::TlsAlertsCbIf {
public:
    MOCK_METHOD(void, TlsAlertNotifyCb, (std::string, ETlsAlertCode), (override));
};

class MockAlertReceiver : public socks_rux::SocksTlsAlertClientCallbackIf {
public:
    MOCK_METHOD(void, SocksTlsAlertOccured, (std::string, ETlsAlertCode), (override));
    MOCK_METHOD(void, SocksTlsAlertError, (), (override));
};

std::shared_ptr<MockSocksClient>& SharedSocksClient() {
    static std::shared_ptr<MockSocksClient> client;
    return client;
}

/// Makes connections as the test says.
class ScriptedConnector : public vonta_socket::StreamClientConnectorIf {
public:
    using Script = std::function<std::shared_ptr<StreamCommunicatorIf>()>;

    explicit ScriptedConnector(Script script) : mScript(std::move(script)) {}
    std::shared_ptr<StreamCommunicatorIf> Connect() override { return mScript(); }

private:
    Script mScript;
};

class TlsAlertsTest : public testing::Test {
protected:
    ~TlsAlertsTest() override { SharedSocksClient().reset(); }

    bool HasLine(char level, const std::string& text) const {
        return mLog.Contains(level + (" TlsAlerts: " + text));
    }

    testing_support::CapturedLog mLog;
    std::shared_ptr<MockSocksClient> mSocks = SharedSocksClient() =
        std::make_shared<NiceMock<MockSocksClient>>();
    MockClient mClient;
    vintrel::TlsAlerts mAlerts;
};

TEST_F(TlsAlertsTest, StartListensAndTellsTheFilterAndTheResult) {
    EXPECT_CALL(*mSocks, StartListening(&mAlerts)).WillOnce(Return(0U)).WillOnce(Return(2U));
    mAlerts.Start(&mClient);
    EXPECT_TRUE(HasLine('D', "Setting Filter for 44"));
    EXPECT_TRUE(HasLine('D', "Setting Filter for 200"));
    EXPECT_TRUE(HasLine('D', "Setting Filter for 51"));
    EXPECT_TRUE(HasLine('I', "Connected to Socks-RUX!"));
    mAlerts.Start(&mClient);
    EXPECT_TRUE(HasLine('E', "Failed to connect to Socks-RUX!"));
}

TEST_F(TlsAlertsTest, OnlyTheThreeCodesOfTheFilterReachTheClient) {
    mAlerts.Start(&mClient);
    for (const unsigned int code : {44U, 51U, 200U}) {
        EXPECT_CALL(mClient, TlsAlertNotifyCb("op", static_cast<ETlsAlertCode>(code)));
        mAlerts.SocksTlsAlertOccured("op", static_cast<ETlsAlertCode>(code));
    }
    EXPECT_TRUE(HasLine('I', "Received Alert: OperationId='op', TlsAlertCode=51"));
    EXPECT_TRUE(HasLine('D', "TLS alert accepted"));
    mLog.Clear();
    // 300 differs from 44 in its higher bits only, which the line does not show.
    for (const unsigned int code : {42U, 300U}) {
        mAlerts.SocksTlsAlertOccured("op", static_cast<ETlsAlertCode>(code));
    }
    EXPECT_TRUE(HasLine('I', "Received Alert: OperationId='op', TlsAlertCode=42"));
    EXPECT_TRUE(HasLine('I', "Received Alert: OperationId='op', TlsAlertCode=44"));
    EXPECT_TRUE(HasLine('D', "TLS alert ignored"));
    EXPECT_FALSE(HasLine('D', "TLS alert accepted"));
}

TEST_F(TlsAlertsTest, AnAlertAfterStopIsLostWithAWarning) {
    mAlerts.Start(&mClient);
    EXPECT_CALL(*mSocks, StopListening());
    EXPECT_CALL(mClient, TlsAlertNotifyCb).Times(0);
    mAlerts.Stop();
    mAlerts.SocksTlsAlertOccured("op", ETlsAlertCode::kCertificateRevoked);
    EXPECT_TRUE(HasLine('W', "Callback not set, TLS Alert is ignored"));
}

class SocksTlsAlertClientTest : public testing::Test {
protected:
    std::shared_ptr<StreamCommunicatorIf> ConnectToDaemon() const {
        return UnixStreamClientConnector(mPath, -1, "test").Connect();
    }

    void ExpectSubscriptions(std::size_t total) {
        ASSERT_TRUE(mDaemon.WaitForSubscriptions(total, kHangGuard));
    }

    testing_support::TemporaryDirectory mDirectory;
    std::string mPath = mDirectory.File("alerts");
    vonta_socket::host::StreamServer mDaemon{mPath};
    MockAlertReceiver mReceiver;
    SocksTlsAlertClientImpl mClient{std::make_shared<UnixStreamClientConnector>(mPath, -1, "test")};
};

TEST_F(SocksTlsAlertClientTest, AlertsArriveAsTheDaemonSentThem) {
    std::promise<void> received;
    {
        const InSequence sequence;
        EXPECT_CALL(mReceiver, SocksTlsAlertOccured("first", ETlsAlertCode::kDecryptError));
        EXPECT_CALL(mReceiver, SocksTlsAlertOccured("", static_cast<ETlsAlertCode>(255)))
            .WillOnce([&] { received.set_value(); });
    }
    ASSERT_EQ(mClient.StartListening(&mReceiver), socks_rux::kStartOk);
    EXPECT_EQ(mClient.StartListening(&mReceiver), socks_rux::kAlreadyListening);
    ExpectSubscriptions(1);
    mDaemon.BroadcastAlert("first", 51);
    mDaemon.BroadcastAlert("", 255);
    EXPECT_EQ(received.get_future().wait_for(kHangGuard), std::future_status::ready);
}

TEST_F(SocksTlsAlertClientTest, AnythingButAnAlertDropsTheConnectionAndSubscribesAnew) {
    const std::vector<std::vector<std::uint8_t>> streams{
        {1}, {3}, {2, 0, 0, 0x10, 1}, {2, 0x40, 0, 0, 0}, {2, 0xFF, 0xFF, 0xFF, 0xFF}};
    EXPECT_CALL(mReceiver, SocksTlsAlertError()).Times(static_cast<int>(streams.size()) + 1);
    EXPECT_CALL(mReceiver, SocksTlsAlertOccured).Times(0);
    mClient.StartListening(&mReceiver);
    std::size_t subscriptions = 0;
    for (const auto& stream : streams) {
        ExpectSubscriptions(++subscriptions);
        mDaemon.Broadcast(stream);
    }
    ExpectSubscriptions(++subscriptions);
    mDaemon.Broadcast({2, 0, 0, 0, 2, 'o'});
    mDaemon.DropConnections();
    ExpectSubscriptions(++subscriptions);
}

TEST_F(SocksTlsAlertClientTest, AnAlertInSingleBytesArrivesAndHalfAnAlertIsNoHindranceToAStop) {
    std::promise<void> received;
    EXPECT_CALL(mReceiver, SocksTlsAlertOccured("op", ETlsAlertCode::kCertificateRevoked))
        .WillOnce([&] { received.set_value(); });
    EXPECT_CALL(mReceiver, SocksTlsAlertError()).Times(0);
    mClient.StartListening(&mReceiver);
    ExpectSubscriptions(1);
    for (const std::uint8_t byte :
         std::vector<std::uint8_t>{2, 0, 0, 0, 2, 'o', 'p', 44, 2, 0, 0}) {
        EXPECT_EQ(mDaemon.Broadcast({byte}), 1U);
    }
    EXPECT_EQ(received.get_future().wait_for(kHangGuard), std::future_status::ready);
}

TEST_F(SocksTlsAlertClientTest, AStopDuringAReadIsNoErrorAndAStartFollowsAtOnce) {
    MockAlertReceiver second;
    std::promise<void> received;
    EXPECT_CALL(mReceiver, SocksTlsAlertError()).Times(0);
    EXPECT_CALL(second, SocksTlsAlertError()).Times(0);
    EXPECT_CALL(second, SocksTlsAlertOccured).WillOnce([&] { received.set_value(); });
    mClient.StartListening(&mReceiver);
    ExpectSubscriptions(1);
    mClient.StopListening();
    ASSERT_EQ(mClient.StartListening(&second), socks_rux::kStartOk);
    ExpectSubscriptions(2);
    mDaemon.BroadcastAlert("op", 44);
    EXPECT_EQ(received.get_future().wait_for(kHangGuard), std::future_status::ready);
}

TEST_F(SocksTlsAlertClientTest, TheReceiverMayStopButNotRestartTheListening) {
    std::promise<unsigned int> restarted;
    EXPECT_CALL(mReceiver, SocksTlsAlertOccured).WillOnce([&] {
        mClient.StopListening();
        restarted.set_value(mClient.StartListening(&mReceiver));
    });
    mClient.StartListening(&mReceiver);
    ExpectSubscriptions(1);
    mDaemon.BroadcastAlert("op", 44);
    auto result = restarted.get_future();
    ASSERT_EQ(result.wait_for(kHangGuard), std::future_status::ready);
    EXPECT_EQ(result.get(), socks_rux::kAlreadyListening);
}

TEST_F(SocksTlsAlertClientTest, AStopEndsTheTenSecondsBetweenTwoAttempts) {
    const auto inTenSeconds = [] {
        return std::chrono::steady_clock::now().time_since_epoch() + std::chrono::seconds(10);
    };
    std::promise<std::chrono::nanoseconds> begun;
    gNextWait = &begun;
    int attempts = 0;
    {
        SocksTlsAlertClientImpl client(
            std::make_shared<ScriptedConnector>([&]() -> std::shared_ptr<StreamCommunicatorIf> {
                ++attempts;
                return nullptr;
            }));
        const std::chrono::nanoseconds earliest = inTenSeconds();
        client.StartListening(&mReceiver);
        const std::chrono::nanoseconds limit = begun.get_future().get();
        EXPECT_LE(earliest, limit);
        EXPECT_LE(limit, inTenSeconds());
        client.StopListening();
    }
    EXPECT_EQ(attempts, 1);
}

/// A connection that the daemon has closed already.
class ClosedConnection : public StreamCommunicatorIf {
public:
    ClosedConnection(EventRecorder& calls, bool takesRequest)
        : mCalls(calls), mTakesRequest(takesRequest) {}

    void Close() override { mCalls.Add("close"); }
    std::size_t Write(const std::vector<std::uint8_t>& data) override {
        mCalls.Add("write " + std::to_string(data.at(0)));
        return mTakesRequest ? data.size() : 0;
    }
    bool Read(std::vector<std::uint8_t>& /*data*/) override {
        mCalls.Add("read");
        return false;
    }

private:
    EventRecorder& mCalls;
    bool mTakesRequest;
};

TEST_F(SocksTlsAlertClientTest, ADaemonThatAcceptsAndClosesIsCalledAnewInTheSameOrder) {
    EventRecorder calls;
    std::weak_ptr<StreamCommunicatorIf> former;
    int attempts = 0;
    EXPECT_CALL(mReceiver, SocksTlsAlertError()).WillOnce([&] { calls.Add("error"); });
    SocksTlsAlertClientImpl client(
        std::make_shared<ScriptedConnector>([&]() -> std::shared_ptr<StreamCommunicatorIf> {
            EXPECT_TRUE(former.expired()) << "something is left of the last connection";
            calls.Add("connect");
            if (++attempts == 3) {
                return nullptr;
            }
            auto connection = std::make_shared<ClosedConnection>(calls, attempts == 1);
            former = connection;
            return connection;
        }));
    client.StartListening(&mReceiver);
    EXPECT_THAT(calls.Wait(9), testing::ElementsAre("connect", "write 1", "read", "error", "close",
                                                    "connect", "write 1", "close", "connect"));
    client.StopListening();
    EXPECT_EQ(calls.Events().size(), 9U) << "no connection, nothing to close";
}

TEST_F(SocksTlsAlertClientTest, AnAlertInTheMomentOfTheStopEndsBeforeTheDestruction) {
    std::promise<void> alerted;
    std::promise<void> stopped;
    bool ended = false;
    EXPECT_CALL(mReceiver, SocksTlsAlertError()).Times(0);
    EXPECT_CALL(mReceiver, SocksTlsAlertOccured).WillOnce([&] {
        alerted.set_value();
        stopped.get_future().wait();
        ended = true;
    });
    {
        SocksTlsAlertClientImpl client(
            std::make_shared<UnixStreamClientConnector>(mPath, -1, "test"));
        client.StartListening(&mReceiver);
        ExpectSubscriptions(1);
        mDaemon.BroadcastAlert("during", 44);
        mDaemon.BroadcastAlert("behind", 44);
        alerted.get_future().wait();
        client.StopListening();
        stopped.set_value();
    }
    EXPECT_TRUE(ended);
}

TEST_F(SocksTlsAlertClientTest, AStopAndAStartDuringAnAttemptLeaveOneListener) {
    std::promise<void> connecting;
    std::promise<void> stopped;
    std::atomic<int> attempts{0};
    SocksTlsAlertClientImpl client(std::make_shared<ScriptedConnector>([&] {
        if (++attempts == 1) {
            connecting.set_value();
            stopped.get_future().wait();
        }
        return ConnectToDaemon();
    }));
    client.StartListening(&mReceiver);
    connecting.get_future().wait();
    client.StopListening();
    auto start = std::async(std::launch::async, [&] { return client.StartListening(&mReceiver); });
    stopped.set_value();
    ASSERT_EQ(start.wait_for(kHangGuard), std::future_status::ready);
    EXPECT_EQ(start.get(), socks_rux::kStartOk);
    ExpectSubscriptions(1);
    EXPECT_EQ(attempts, 2);
    EXPECT_EQ(mDaemon.GetSubscriberCount(), 1U);
}

TEST_F(SocksTlsAlertClientTest, AConnectionMadeDuringAStopIsClosedUnused) {
    std::promise<void> connecting;
    std::promise<void> stopped;
    std::shared_ptr<StreamCommunicatorIf> connection;
    {
        SocksTlsAlertClientImpl client(std::make_shared<ScriptedConnector>([&] {
            connecting.set_value();
            stopped.get_future().wait();
            connection = ConnectToDaemon();
            return connection;
        }));
        client.StartListening(&mReceiver);
        connecting.get_future().wait();
        client.StopListening();
        stopped.set_value();
    }
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(connection->Write({1}), 0U);
    EXPECT_EQ(mDaemon.GetSubscriberCount(), 0U);
}

}  // namespace

// Takes the place of the system's own, which the linker then leaves out.
std::shared_ptr<socks_rux::SocksTlsAlertClientIf> vintrel::CreateSocksTlsAlertClient() {
    return SharedSocksClient();
}
