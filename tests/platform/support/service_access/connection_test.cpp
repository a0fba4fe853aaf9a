#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <service_access/backoff.h>
#include <service_access/connection.h>
#include <service_access/server.h>
#include <service_access/service_names.h>

#include "testing/event_recorder.h"
#include "testing/temporary_directory.h"

namespace service_access {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using testing_support::Gate;
using testing_support::kHangGuard;

class ConnectionTest : public ::testing::Test {
protected:
    ConnectionTest() {
        mConfig.socketPath = mPath;
        mConfig.reconnectInitial = milliseconds(1);
        mConfig.reconnectMax = milliseconds(4);
        mConfig.queryTimeLimit = kHangGuard;
        mConfig.subscribeTimeLimit = kHangGuard;
        mConfig.maxMessageBytes = 4096;
    }

    ServiceObserver Observer() {
        ServiceObserver observer;
        observer.available = [this] { mEvents.Add("available"); };
        observer.unavailable = [this] { mEvents.Add("unavailable"); };
        observer.error = [this](const std::exception& error) {
            mEvents.Add(std::string("error: ") + error.what());
        };
        observer.subscribed = [this] { mEvents.Add("subscribed"); };
        observer.elementChanged = [this](const std::string& element, bool value) {
            mEvents.Add(element + (value ? " on" : " off"));
        };
        return observer;
    }

    /// A started connection that has seen the service `name` come.
    std::unique_ptr<Connection> Connected(const std::string& name) {
        mServer.SetServiceAvailable(name, true);
        auto connection = std::make_unique<Connection>(mConfig);
        connection->AddObserver(name, Observer());
        connection->Start();
        EXPECT_THAT(mEvents.Wait(1), ElementsAre("available"));
        return connection;
    }

    Connection::QueryHandler RecordAnswer() {
        return [this](const QueryResult& result) {
            mEvents.Add(result.failure.empty() ? std::to_string(result.status) : result.failure);
        };
    }

    const testing_support::TemporaryDirectory mDirectory;
    const std::string mPath = mDirectory.File("access.sock");
    testing_support::EventRecorder mEvents;
    Server mServer{mPath};
    ClientConfig mConfig;
};

TEST(BackoffTest, DoublesUpToItsBoundAndStartsSmallAfterASuccess) {
    Backoff backoff(milliseconds(100), milliseconds(2000));
    std::vector<long> waits;
    for (int i = 0; i < 7; ++i) {
        waits.push_back(backoff.Next().count());
    }
    EXPECT_THAT(waits, ElementsAre(100, 200, 400, 800, 1600, 2000, 2000));
    EXPECT_EQ(2000, backoff.Upcoming().count());
    backoff.Reset();
    EXPECT_EQ(100, backoff.Upcoming().count());
    EXPECT_EQ(100, backoff.Next().count());
}

TEST_F(ConnectionTest, RegistryEventsArriveInOrderEvenIfACallbackBlocksForLong) {
    mServer.Start();
    const auto connection = Connected("Some");
    Gate release;
    ServiceObserver slow;
    slow.available = [&release] { release.Pass(); };
    connection->AddObserver("Some", slow);
    mServer.SetServiceAvailable("Other", true);
    std::vector<std::string> expected{"available"};
    for (int i = 0; i < 300; ++i) {
        mServer.SetServiceAvailable("Some", i % 2 == 1);
        expected.emplace_back(i % 2 == 1 ? "available" : "unavailable");
    }
    release.Open();
    EXPECT_EQ(expected, mEvents.Wait(expected.size()));
}

TEST_F(ConnectionTest, MessagesThatCantBeUnderstoodAreErrorsAndTheChannelGoesOn) {
    mServer.Start();
    const auto connection = Connected("Some");
    const std::vector<std::string> bad{
        "",
        "{",
        "[]",
        "7",
        "{}",
        R"({"type":7})",
        R"({"type":"service"})",
        R"({"type":"service","name":"","available":true})",
        R"({"type":"service","name":"Some","available":0})",
        R"({"type":"service","name":")" + std::string(129, 'x') + R"(","available":true})",
        R"({"type":"element","service":"Some","element":"e","value":"on"})",
        R"({"type":"subscribed","request":-1,"subscription":"s"})",
        R"({"type":"refused","request":"1"})",
        std::string(1000, '[') + std::string(1000, ']'),
    };
    for (const auto& text : bad) {
        mServer.SendRawEvent(text);
    }
    mServer.SendRawEvent(R"({"type":"news","of":"a later version"})");
    mServer.SetServiceAvailable("Some", false);
    const auto events = mEvents.Wait(bad.size() + 2);
    ASSERT_EQ(bad.size() + 2, events.size());
    for (std::size_t i = 1; i <= bad.size(); ++i) {
        EXPECT_THAT(events[i], StartsWith("error: ")) << bad[i - 1];
    }
    EXPECT_EQ("unavailable", events.back());
}

TEST_F(ConnectionTest, AMessageThatIsNoTextOrTooLongIsAnErrorAndTheChannelIsMadeAnew) {
    mServer.Start();
    const auto connection = Connected("Some");
    std::size_t count = 1;
    for (const auto& text : {std::string("\xff"), std::string(mConfig.maxMessageBytes + 1, ' ')}) {
        mServer.SendRawEvent(text);
        const auto events = mEvents.Wait(count += 3);
        ASSERT_EQ(count, events.size());
        EXPECT_THAT(events[count - 3], StartsWith("error: "));
        EXPECT_EQ("unavailable", events[count - 2]);
        EXPECT_EQ("available", events[count - 1]);
    }
}

TEST_F(ConnectionTest, ASubscriptionIsGivenBackByItsOwnerOrIfNobodyWaitsForIt) {
    mServer.SetClampState(true);
    mServer.Start();
    const auto connection = Connected(kClampControlService);
    auto id = connection->Subscribe(kClampControlService, kClamp15Element);
    mServer.SetClampState(true);
    connection->Unsubscribe("unknown");
    connection->Unsubscribe(id);
    EXPECT_EQ("", connection->Subscribe(kClampControlService, "Clamp30"));
    EXPECT_EQ(0U, mServer.ClampSubscriptionCount());

    id = connection->Subscribe(kClampControlService, kClamp15Element);
    mServer.SendRawEvent(R"({"type":"subscribed","request":4711,"subscription":")" + id + "\"}");
    mServer.SetServiceAvailable("Marker", true);
    connection->AddObserver("Marker", Observer());
    EXPECT_THAT(mEvents.Wait(6), ElementsAre("available", "subscribed", "Clamp15 on", "subscribed",
                                             "Clamp15 on", "available"));
    EXPECT_EQ("", connection->Subscribe("None", "None"));
    EXPECT_EQ(0U, mServer.ClampSubscriptionCount());
}

TEST_F(ConnectionTest, ABlockedSubscriberReturnsOnLossStopAndTimeLimit) {
    mServer.Start();
    const auto connection = Connected(kClampControlService);
    const auto subscribe = [&connection] {
        return connection->Subscribe(kClampControlService, kClamp15Element);
    };
    mServer.SetClampSubscriptionAnswer(SubscriptionAnswer::kSilent);
    auto lost = std::async(std::launch::async, subscribe);
    mServer.Stop();
    EXPECT_EQ("", lost.get());
    mServer.Start();
    mEvents.Wait(3);
    auto stopped = std::async(std::launch::async, subscribe);
    connection->Stop();
    EXPECT_EQ("", stopped.get());

    mConfig.subscribeTimeLimit = milliseconds(1);
    Connection impatient(mConfig);
    impatient.AddObserver(kClampControlService, Observer());
    impatient.Start();
    mEvents.Wait(4);
    EXPECT_EQ("", impatient.Subscribe(kClampControlService, kClamp15Element));
}

TEST_F(ConnectionTest, AQueryWithoutAServerFails) {
    Connection connection(mConfig);
    connection.Query("Immobilizer", "fields=5", RecordAnswer());
    EXPECT_EQ("No such file or directory", mEvents.Next());
}

TEST_F(ConnectionTest, StopEndsEveryQueryOnceAndRefusesFurtherOnes) {
    mServer.SetServiceAvailable("Immobilizer", true);
    mServer.SetImmobilizerSilent();
    mServer.Start();
    Connection connection(mConfig);
    for (int i = 0; i < 64; ++i) {
        connection.Query("Immobilizer", "fields=5", RecordAnswer());
    }
    EXPECT_THROW(connection.Query("Immobilizer", "fields=5", RecordAnswer()), std::runtime_error);
    connection.Stop();
    EXPECT_EQ(std::vector<std::string>(64, "the query was cancelled"), mEvents.Events());
    EXPECT_THROW(connection.Query("Immobilizer", "fields=5", RecordAnswer()), std::runtime_error);
    EXPECT_EQ("", connection.Subscribe("Some", "element"));
}

TEST_F(ConnectionTest, ACallbackMayStopOrDestroyItsConnection) {
    mServer.SetServiceAvailable("Some", true);
    mServer.SetServiceAvailable("Immobilizer", true);
    mServer.SetImmobilizerSilent();
    mServer.Start();
    for (const bool destroy : {false, true}) {
        auto connection = std::make_unique<Connection>(mConfig);
        Gate begin;
        Gate done;
        ServiceObserver observer;
        observer.available = [&] {
            begin.Pass();
            connection->Query("Immobilizer", "fields=5", RecordAnswer());
            destroy ? connection.reset() : connection->Stop();
            mEvents.Add("ended");
            done.Open();
        };
        connection->AddObserver("Some", observer);
        connection->Start();
        begin.Open();
        done.Pass();
    }
    EXPECT_THAT(mEvents.Events(), ElementsAre("the query was cancelled", "ended",
                                              "the query was cancelled", "ended"));
}

TEST_F(ConnectionTest, NothingIsCalledAfterStopWheneverItComes) {
    mServer.SetServiceAvailable("Immobilizer", true);
    mServer.SetServiceAvailable(kClampControlService, true);
    mServer.Start();
    std::atomic<bool> storm{true};
    std::thread stormThread([&] {
        for (bool on = false; storm; on = !on) {
            mServer.SetServiceAvailable("Immobilizer", on);
            mServer.SetClampState(on);
        }
    });
    for (int round = 0; round < 30; ++round) {
        std::atomic<bool> stopped{false};
        std::atomic<int> late{0};
        std::atomic<int> answers{0};
        const auto check = [&] { late += stopped ? 1 : 0; };
        ServiceObserver observer;
        observer.available = check;
        observer.unavailable = check;
        observer.elementChanged = [&](const std::string&, bool) { check(); };
        Connection connection(mConfig);
        connection.AddObserver("Immobilizer", observer);
        connection.AddObserver(kClampControlService, observer);
        connection.Start();
        auto subscriber = std::async(std::launch::async, [&connection] {
            connection.Subscribe(kClampControlService, kClamp15Element);
        });
        for (int query = 0; query < round; ++query) {
            connection.Query("Immobilizer", "fields=5", [&](const QueryResult&) {
                check();
                ++answers;
            });
        }
        connection.Stop();
        stopped = true;
        subscriber.get();
        EXPECT_EQ(round, answers);
        EXPECT_EQ(0, late);
    }
    storm = false;
    stormThread.join();
}

}  // namespace service_access
