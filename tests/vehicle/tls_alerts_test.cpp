#include "vehicle/tls_alerts.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <pthread.h>

#include <vonta_socket/unix_stream_client_connector.h>

#include "testing/captured_log.h"
#include "testing/environment.h"
#include "testing/event_recorder.h"
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

using testing_support::EventRecorder;
using testing_support::Gate;
using tls_alert_if::ETlsAlertCode;
using vonta_socket::StreamCommunicatorIf;
using vonta_socket::UnixStreamClientConnector;

class MockClient : public vintrel::TlsAlertsCbIf {
public:
    MOCK_METHOD(void, TlsAlertNotifyCb, (std::string, ETlsAlertCode), (override));
};

class TlsAlertsTest : public testing::Test {
protected:
    bool HasLine(char level, const std::string& text) const {
        return mLog.Contains(level + (" TlsAlerts: " + text));
    }

    const testing_support::TemporaryDirectory mNoDaemon;
    const testing_support::EnvironmentVariable mVariable{"VONTA_SOCKET_DIR", mNoDaemon.Path()};
    testing_support::CapturedLog mLog;
    MockClient mClient;
    vintrel::TlsAlerts mAlerts;
};

TEST_F(TlsAlertsTest, ItListensFromTheStartToTheStop) {
    mAlerts.Start(&mClient);
    EXPECT_TRUE(HasLine('D', "Setting Filter for 44"));
    EXPECT_TRUE(HasLine('D', "Setting Filter for 200"));
    EXPECT_TRUE(HasLine('D', "Setting Filter for 51"));
    EXPECT_TRUE(HasLine('I', "Connected to Socks-RUX!"));
    mAlerts.Start(&mClient);
    EXPECT_TRUE(HasLine('E', "Failed to connect to Socks-RUX!"));
    mAlerts.Stop();
    EXPECT_CALL(mClient, TlsAlertNotifyCb).Times(0);
    mAlerts.SocksTlsAlertOccured("op", ETlsAlertCode::kCertificateRevoked);
    EXPECT_TRUE(HasLine('W', "Callback not set, TLS Alert is ignored"));
    mLog.Clear();
    mAlerts.Start(&mClient);
    EXPECT_TRUE(HasLine('I', "Connected to Socks-RUX!"));
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

/// Makes connections as the test says.
class ScriptedConnector : public vonta_socket::StreamClientConnectorIf {
public:
    using Script = std::function<std::shared_ptr<StreamCommunicatorIf>()>;

    explicit ScriptedConnector(Script script) : mScript(std::move(script)) {}
    std::shared_ptr<StreamCommunicatorIf> Connect() override { return mScript(); }

private:
    Script mScript;
};

class SocksTlsAlertClientTest : public testing::Test,
                                protected socks_rux::SocksTlsAlertClientCallbackIf {
protected:
    ~SocksTlsAlertClientTest() override {
        mClient.reset();
        EXPECT_EQ(mEvents.Waiting(), 0U) << mEvents.Next();
    }

    void SocksTlsAlertOccured(std::string operationId, ETlsAlertCode code) override {
        mEvents.Add(operationId + " " + std::to_string(static_cast<int>(code)));
        if (mAtAlert) {
            mAtAlert();
        }
    }
    void SocksTlsAlertError() override { mEvents.Add("error"); }

    std::shared_ptr<StreamCommunicatorIf> ConnectToDaemon() const {
        return UnixStreamClientConnector(mPath, -1, "test").Connect();
    }

    /// Replaces the client by one that connects so.
    void ConnectBy(ScriptedConnector::Script script) {
        mClient.emplace(std::make_shared<ScriptedConnector>(std::move(script)));
    }

    /// Starts the client, once it is subscribed.
    void Subscribe() {
        ASSERT_EQ(mClient->StartListening(this), socks_rux::kStartOk);
        ExpectSubscriptions(1);
    }

    void ExpectSubscriptions(std::size_t total) {
        ASSERT_TRUE(mDaemon.WaitForSubscriptions(total, testing_support::kHangGuard));
    }

    testing_support::TemporaryDirectory mDirectory;
    std::string mPath = mDirectory.File("alerts");
    vonta_socket::host::StreamServer mDaemon{mPath};
    EventRecorder mEvents;
    std::function<void()> mAtAlert;
    std::optional<socks_rux::SocksTlsAlertClientImpl> mClient{
        std::make_shared<UnixStreamClientConnector>(mPath, -1, "test")};
};

TEST_F(SocksTlsAlertClientTest, AnythingButAnAlertDropsTheConnectionAndSubscribesAnew) {
    const std::vector<std::vector<std::uint8_t>> streams{
        {1}, {3}, {2, 0, 0, 0x10, 1}, {2, 0x40, 0, 0, 0}, {2, 0xFF, 0xFF, 0xFF, 0xFF}};
    Subscribe();
    std::size_t subscriptions = 1;
    for (const auto& stream : streams) {
        mDaemon.Broadcast(stream);
        EXPECT_EQ(mEvents.Next(), "error");
        ExpectSubscriptions(++subscriptions);
    }
    mDaemon.Broadcast({2, 0, 0, 0, 2, 'o'});
    mDaemon.DropConnections();
    EXPECT_EQ(mEvents.Next(), "error");
    ExpectSubscriptions(++subscriptions);
}

TEST_F(SocksTlsAlertClientTest, AlertsArriveAsTheDaemonSentThemAndHalfAnAlertHindersNoStop) {
    Subscribe();
    EXPECT_EQ(mClient->StartListening(this), socks_rux::kAlreadyListening);
    mDaemon.BroadcastAlert("", 255);
    for (const int byte : {2, 0, 0, 0, 2, int{'o'}, int{'p'}, 44, 2, 0, 0}) {
        EXPECT_EQ(mDaemon.Broadcast({static_cast<std::uint8_t>(byte)}), 1U);
    }
    EXPECT_EQ(mEvents.Next(), " 255");
    EXPECT_EQ(mEvents.Next(), "op 44");
}

TEST_F(SocksTlsAlertClientTest, AStopDuringAReadIsNoErrorAndAStartFollowsAtOnce) {
    Subscribe();
    mClient->StopListening();
    ASSERT_EQ(mClient->StartListening(this), socks_rux::kStartOk);
    ExpectSubscriptions(2);
    mDaemon.BroadcastAlert("op", 44);
    EXPECT_EQ(mEvents.Next(), "op 44");
}

TEST_F(SocksTlsAlertClientTest, TheReceiverMayStopButNotRestartTheListening) {
    mAtAlert = [this] {
        mClient->StopListening();
        mEvents.Add(std::to_string(mClient->StartListening(this)));
    };
    Subscribe();
    mDaemon.BroadcastAlert("op", 44);
    EXPECT_EQ(mEvents.Next(), "op 44");
    EXPECT_EQ(mEvents.Next(), std::to_string(socks_rux::kAlreadyListening));
}

TEST_F(SocksTlsAlertClientTest, AStopEndsTheTenSecondsBetweenTwoAttempts) {
    const auto inTenSeconds = [] {
        return std::chrono::steady_clock::now().time_since_epoch() + std::chrono::seconds(10);
    };
    std::promise<std::chrono::nanoseconds> begun;
    gNextWait = &begun;
    int attempts = 0;
    ConnectBy([&] {
        ++attempts;
        return nullptr;
    });
    const std::chrono::nanoseconds earliest = inTenSeconds();
    mClient->StartListening(this);
    const std::chrono::nanoseconds limit = begun.get_future().get();
    EXPECT_LE(earliest, limit);
    EXPECT_LE(limit, inTenSeconds());
    mClient->StopListening();
    mClient.reset();
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
    std::weak_ptr<StreamCommunicatorIf> former;
    int attempts = 0;
    ConnectBy([&]() -> std::shared_ptr<StreamCommunicatorIf> {
        EXPECT_TRUE(former.expired()) << "something is left of the last connection";
        mEvents.Add("connect");
        if (++attempts == 3) {
            return nullptr;
        }
        auto connection = std::make_shared<ClosedConnection>(mEvents, attempts == 1);
        former = connection;
        return connection;
    });
    mClient->StartListening(this);
    for (const char* const call : {"connect", "write 1", "read", "error", "close", "connect",
                                   "write 1", "close", "connect"}) {
        EXPECT_EQ(mEvents.Next(), call);
    }
    mClient.reset();
}

TEST_F(SocksTlsAlertClientTest, AnAlertInTheMomentOfTheStopEndsBeforeTheDestruction) {
    Gate stopped;
    mAtAlert = [&] {
        stopped.Pass();
        mEvents.Add("ended");
    };
    Subscribe();
    mDaemon.BroadcastAlert("during", 44);
    mDaemon.BroadcastAlert("behind", 44);
    EXPECT_EQ(mEvents.Next(), "during 44");
    mClient->StopListening();
    stopped.Open();
    mClient.reset();
    EXPECT_EQ(mEvents.Events().back(), "ended");
    mEvents.Next();
}

TEST_F(SocksTlsAlertClientTest, AStopAndAStartDuringAnAttemptLeaveOneListener) {
    Gate connecting;
    Gate stopped;
    std::vector<std::shared_ptr<StreamCommunicatorIf>> connections;
    ConnectBy([&] {
        connecting.Open();
        stopped.Pass();
        connections.push_back(ConnectToDaemon());
        return connections.back();
    });
    mClient->StartListening(this);
    connecting.Pass();
    mClient->StopListening();
    auto start = std::async(std::launch::async, [&] { return mClient->StartListening(this); });
    stopped.Open();
    EXPECT_EQ(start.get(), socks_rux::kStartOk);
    ExpectSubscriptions(1);
    EXPECT_EQ(mDaemon.GetSubscriberCount(), 1U);
    mClient.reset();
    ASSERT_EQ(connections.size(), 2U);
    EXPECT_EQ(connections.front()->Write({1}), 0U) << "made during the stop, so closed unused";
}

}  // namespace
