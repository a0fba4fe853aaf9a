#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <someip/client/service_client.h>
#include <someip/server/field_server.h>
#include <someip/wire/message.h>

#include "platform/support/someip/hex.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"

namespace {

using namespace std::chrono_literals;
using someip::Deployment;
using someip::FieldServer;
using someip::LoopbackEnd;
using someip::ServiceClient;
using Bytes = someip::Bytes;

constexpr auto kGuard = 30s;
constexpr std::uint16_t kFieldId = 0x8001;

/// With times to live that no test sees the end of.
Deployment ProviderDeployment() {
    someip::ServiceDeployment service;
    service.name = "test::Service";
    service.serviceId = 0x1234;
    service.events["field"] = {kFieldId, 1};
    someip::NetworkDeployment network = someip::LoopbackNetwork(LoopbackEnd::kProvider);
    network.timing.ttl = 1h;
    return {network, {service}};
}

Deployment ClientDeployment() {
    Deployment deployment = ProviderDeployment();
    deployment.network.address = someip::LoopbackNetwork(LoopbackEnd::kClient).address;
    return deployment;
}

/// What handlers report, in order.
template <typename T>
class Mailbox {
public:
    void Put(T value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mValues.push_back(std::move(value));
        mChanged.notify_all();
    }

    T Take() {
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mChanged.wait_for(lock, kGuard, [this] { return !mValues.empty(); })) {
            throw std::runtime_error("nothing came");
        }
        T value = std::move(mValues.front());
        mValues.pop_front();
        return value;
    }

    /// Passes over repetitions, which a field's initial value may have.
    void TakeUntil(const T& wanted) {
        while (!(Take() == wanted)) {
        }
    }

    bool IsEmpty() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mValues.empty();
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<T> mValues;
};

class ServiceClientTest : public testing::Test {
protected:
    void Deploy(const Deployment& deployment) {
        std::ofstream(mDirectory.File("next")) << someip::FormatDeployment(deployment);
        std::filesystem::rename(mDirectory.File("next"), mDirectory.File("Deployment.json"));
    }

    void MakeClient() {
        mClient = std::make_unique<ServiceClient>(
            std::make_shared<someip::ClientNode>(mPool, mDirectory.File("Deployment.json")),
            "test::Service", someip::kAnyInstance);
        mWatch = mClient->WatchAvailability([this](bool there) { mAvailability.Put(there); });
    }

    std::shared_ptr<ServiceClient::Registration> Subscribe() {
        return mClient->SubscribeEvent("field", [this](const Bytes& value) { mValues.Put(value); });
    }

    void OfferAndConnect(FieldServer& server) {
        server.Offer();
        Deploy(ClientDeployment());
        MakeClient();
        EXPECT_TRUE(mAvailability.Take());
    }

    testing_support::TemporaryDirectory mDirectory;
    std::shared_ptr<someip::WorkerPool> mPool = std::make_shared<someip::WorkerPool>(2);
    Mailbox<bool> mAvailability;
    Mailbox<Bytes> mValues;
    std::unique_ptr<ServiceClient> mClient;
    std::shared_ptr<ServiceClient::Registration> mWatch;
};

TEST_F(ServiceClientTest, SubscriberGetsTheCurrentValueAndEachChange) {
    FieldServer server(ProviderDeployment());
    server.SetField(kFieldId, Hex("01"));
    OfferAndConnect(server);
    const auto subscription = Subscribe();
    mValues.TakeUntil(Hex("01"));
    server.SetField(kFieldId, Hex("02"));
    mValues.TakeUntil(Hex("02"));
    EXPECT_EQ(server.SubscriberCount(kFieldId), 1U);

    Mailbox<Bytes> others;
    const auto second =
        mClient->SubscribeEvent("field", [&](const Bytes& value) { others.Put(value); });
    EXPECT_EQ(others.Take(), Hex("02"));
    second->Close();
}

TEST_F(ServiceClientTest, LargestPayloadArrivesAndALargerOneIsRefused) {
    FieldServer server(ProviderDeployment());
    OfferAndConnect(server);
    const Bytes largest(someip::kMaxPayload, 0x5A);
    server.SetField(kFieldId, largest);
    const auto subscription = Subscribe();
    mValues.TakeUntil(largest);
    EXPECT_THROW(server.SetField(kFieldId, Bytes(someip::kMaxPayload + 1, 0)), std::length_error);
    EXPECT_THROW(server.SetField(kFieldId + 1, {}), std::out_of_range);
}

TEST_F(ServiceClientTest, WithdrawalAndReturnAreReportedAndTheSubscriptionGoesOn) {
    auto server = std::make_unique<FieldServer>(ProviderDeployment());
    server->SetField(kFieldId, Hex("01"));
    OfferAndConnect(*server);
    const auto subscription = Subscribe();
    mValues.TakeUntil(Hex("01"));
    server->StopOffer();
    EXPECT_FALSE(mAvailability.Take());
    server->SetField(kFieldId, Hex("02"));
    server->Offer();
    EXPECT_TRUE(mAvailability.Take());
    mValues.TakeUntil(Hex("02"));
    server.reset();
    EXPECT_FALSE(mAvailability.Take());
    server = std::make_unique<FieldServer>(ProviderDeployment());
    server->SetField(kFieldId, Hex("03"));
    server->Offer();
    EXPECT_TRUE(mAvailability.Take());
    mValues.TakeUntil(Hex("03"));
}

TEST_F(ServiceClientTest, FileThatChangesWhileTheServiceIsAwayCountsAtOnce) {
    Deployment elsewhere = ClientDeployment();
    elsewhere.network.sdPort = 30491;
    Deploy(elsewhere);
    MakeClient();
    FieldServer server(ProviderDeployment());
    server.SetField(kFieldId, Hex("07"));
    server.Offer();
    const auto subscription = Subscribe();
    Deploy(ClientDeployment());
    EXPECT_TRUE(mAvailability.Take());
    mValues.TakeUntil(Hex("07"));
    // While it is there, the file is left alone; it counts when the service has gone.
    Deploy(elsewhere);
    server.SetField(kFieldId, Hex("08"));
    mValues.TakeUntil(Hex("08"));
    EXPECT_TRUE(mAvailability.IsEmpty());
    server.StopOffer();
    EXPECT_FALSE(mAvailability.Take());
    Deployment provider = ProviderDeployment();
    provider.network.sdPort = 30491;
    FieldServer other(provider);
    other.Offer();
    EXPECT_TRUE(mAvailability.Take());
}

TEST_F(ServiceClientTest, LeavesNothingBehindThoughTheFileHasChangedMeanwhile) {
    FieldServer server(ProviderDeployment());
    OfferAndConnect(server);
    const auto subscription = Subscribe();
    for (const char* const value : {"01", "02", "03"}) {
        Deploy(ClientDeployment());
        server.SetField(kFieldId, Hex(value));
        mValues.TakeUntil(Hex(value));
    }
    subscription->Close();
    mWatch->Close();
    mClient.reset();
    mPool->Join();  // returns once no socket, timer or watch is left
}

TEST_F(ServiceClientTest, WhatIsLeftIsForgottenByTheServerAtOnce) {
    FieldServer server(ProviderDeployment());
    OfferAndConnect(server);
    const auto awaitSubscribers = [&server](std::size_t count) {
        const auto end = std::chrono::steady_clock::now() + kGuard;
        while (server.SubscriberCount(kFieldId) != count &&
               std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_EQ(server.SubscriberCount(kFieldId), count);
    };
    auto subscription = Subscribe();
    awaitSubscribers(1);
    subscription->Close();
    awaitSubscribers(0);
    subscription = Subscribe();
    awaitSubscribers(1);
    mWatch->Close();
    mClient.reset();
    awaitSubscribers(0);
}

TEST_F(ServiceClientTest, CloseWaitsForARunningHandlerAndNoneFollows) {
    FieldServer server(ProviderDeployment());
    server.SetField(kFieldId, Hex("01"));
    OfferAndConnect(server);
    std::promise<void> entered;
    std::promise<void> leave;
    auto mayLeave = leave.get_future();
    std::atomic<int> runs{0};
    std::atomic<bool> left{false};
    const auto subscription = mClient->SubscribeEvent("field", [&](const Bytes&) {
        if (runs.fetch_add(1) == 0) {
            entered.set_value();
        }
        mayLeave.wait();
        left = true;
    });
    ASSERT_EQ(entered.get_future().wait_for(kGuard), std::future_status::ready);
    server.SetField(kFieldId, Hex("02"));
    auto closing = std::async(std::launch::async, [&] {
        subscription->Close();
        return left.load();
    });
    leave.set_value();
    EXPECT_TRUE(closing.get());
    const int runsAtClose = runs;
    // A later subscriber hears the next value, the closed one doesn't.
    const auto other = Subscribe();
    server.SetField(kFieldId, Hex("03"));
    mValues.TakeUntil(Hex("03"));
    EXPECT_EQ(runs, runsAtClose);
}

TEST_F(ServiceClientTest, HandlerMayCloseItsOwnRegistration) {
    FieldServer server(ProviderDeployment());
    server.SetField(kFieldId, Hex("01"));
    OfferAndConnect(server);
    std::promise<void> closed;
    std::shared_ptr<ServiceClient::Registration> registration;
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    registration = mClient->SubscribeEvent("field", [&](const Bytes&) {
        const std::lock_guard<std::mutex> handlerLock(mutex);
        registration->Close();
        closed.set_value();
    });
    lock.unlock();
    EXPECT_EQ(closed.get_future().wait_for(kGuard), std::future_status::ready);
    registration->Close();
}

TEST_F(ServiceClientTest, AProblemThatLastsIsLoggedOnceAndAgainWhenItReturns) {
    const testing_support::CapturedLog log;
    MakeClient();
    ASSERT_TRUE(log.WaitFor("can't open '" + mDirectory.File("Deployment.json")));
    Deployment unknown = ClientDeployment();
    unknown.services.clear();
    Deploy(unknown);
    ASSERT_TRUE(log.WaitFor("test::Service is not deployed"));
    Deploy(unknown);
    std::ofstream(mDirectory.File("unrelated")) << "x";
    std::filesystem::remove(mDirectory.File("Deployment.json"));
    ASSERT_TRUE(log.WaitFor("can't open", 2));
    unknown.network.address = "192.0.2.200";
    Deploy(unknown);
    ASSERT_TRUE(log.WaitFor("SOME/IP network: no interface has the address 192.0.2.200"));
    Deploy(ClientDeployment());
    FieldServer server(ProviderDeployment());
    server.Offer();
    EXPECT_TRUE(mAvailability.Take());
    EXPECT_EQ(log.Count("can't open"), 2U);
    EXPECT_EQ(log.Count("is not deployed"), 1U);
    EXPECT_EQ(log.Count("SOME/IP network"), 1U);
}

TEST_F(ServiceClientTest, DeploymentInADirectoryThatComesLateIsFound) {
    const std::string directory = mDirectory.File("late");
    mClient = std::make_unique<ServiceClient>(
        std::make_shared<someip::ClientNode>(mPool, directory + "/Deployment.json"),
        "test::Service", "1");
    mWatch = mClient->WatchAvailability([this](bool there) { mAvailability.Put(there); });
    FieldServer server(ProviderDeployment());
    server.Offer();
    Deploy(ClientDeployment());
    std::filesystem::create_directory(directory);
    std::filesystem::rename(mDirectory.File("Deployment.json"), directory + "/Deployment.json");
    EXPECT_TRUE(mAvailability.Take());
}

TEST(FieldServerNetwork, ThatIsNotToBeHadIsAnError) {
    const FieldServer first(ProviderDeployment());
    EXPECT_THROW(FieldServer second(ProviderDeployment()), std::runtime_error) << "port in use";
    Deployment deployment = ProviderDeployment();
    deployment.network.interfaceName = "no-such-interface";
    EXPECT_THROW(FieldServer server(deployment), std::runtime_error);
    deployment = ProviderDeployment();
    deployment.network.sdPort = 30491;
    deployment.services[0].port = 30490;
    EXPECT_THROW(FieldServer server(deployment), std::runtime_error) << "service's port in use";
}

}  // namespace
