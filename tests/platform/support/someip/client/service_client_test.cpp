#include <atomic>
#include <filesystem>
#include <future>
#include <string>

#include <gtest/gtest.h>

#include <someip/client/service_client.h>
#include <someip/server/field_server.h>
#include <someip/wire/message.h>

#include "platform/support/someip/test_service.h"
#include "testing/captured_log.h"
#include "testing/event_recorder.h"
#include "testing/temporary_directory.h"

namespace {

using namespace std::chrono_literals;
using someip::Deployment;
using someip::FieldServer;
using someip::ServiceClient;
using test_service::ClientDeployment;
using test_service::kFieldId;
using test_service::ProviderDeployment;
using testing_support::EventRecorder;
using testing_support::Gate;
using Bytes = someip::Bytes;

/// Passes over repetitions, which a field's initial value may have.
void AwaitValue(EventRecorder& values, const std::string& wanted) {
    while (values.Next() != wanted) {
    }
}

class ServiceClientTest : public testing::Test {
protected:
    void Deploy(const Deployment& deployment) {
        std::filesystem::rename(mDirectory.Write("next", someip::FormatDeployment(deployment)),
                                mDirectory.File("Deployment.json"));
    }

    void MakeClient() {
        mClient = std::make_unique<ServiceClient>(
            std::make_shared<someip::ClientNode>(mPool, mDirectory.File("Deployment.json")),
            "test::Service", someip::kAnyInstance);
        mWatch = mClient->WatchAvailability(mNoteAvailability);
    }

    std::shared_ptr<ServiceClient::Registration> Subscribe() {
        return mClient->SubscribeEvent("field", NoteIn(mValues));
    }

    /// Notes each value as text.
    static ServiceClient::PayloadHandler NoteIn(EventRecorder& values) {
        return [&values](const Bytes& value) { values.Add({value.begin(), value.end()}); };
    }

    void OfferAndConnect(FieldServer& server) {
        server.Offer();
        Deploy(ClientDeployment());
        MakeClient();
        EXPECT_EQ(mAvailability.Next(), "up");
    }

    testing_support::TemporaryDirectory mDirectory;
    std::shared_ptr<someip::WorkerPool> mPool = std::make_shared<someip::WorkerPool>(2);
    EventRecorder mAvailability;
    const ServiceClient::AvailabilityHandler mNoteAvailability{
        [this](bool there) { mAvailability.Add(there ? "up" : "down"); }};
    EventRecorder mValues;
    std::unique_ptr<ServiceClient> mClient;
    std::shared_ptr<ServiceClient::Registration> mWatch;
};

TEST_F(ServiceClientTest, SubscriberGetsTheCurrentValueAndEachChange) {
    FieldServer server(ProviderDeployment());
    server.SetField(kFieldId, {'1'});
    OfferAndConnect(server);
    const auto subscription = Subscribe();
    AwaitValue(mValues, "1");
    server.SetField(kFieldId, {'2'});
    AwaitValue(mValues, "2");
    EXPECT_EQ(server.SubscriberCount(kFieldId), 1U);

    EventRecorder others;
    const auto second = mClient->SubscribeEvent("field", NoteIn(others));
    EXPECT_EQ(others.Next(), "2");
    second->Close();
}

TEST_F(ServiceClientTest, LargestPayloadArrivesAndALargerOneIsRefused) {
    FieldServer server(ProviderDeployment());
    OfferAndConnect(server);
    const Bytes largest(someip::kMaxPayload, 0x5A);
    server.SetField(kFieldId, largest);
    const auto subscription = Subscribe();
    AwaitValue(mValues, {largest.begin(), largest.end()});
    EXPECT_THROW(server.SetField(kFieldId, Bytes(someip::kMaxPayload + 1, 0)), std::length_error);
    EXPECT_THROW(server.SetField(kFieldId + 1, {}), std::out_of_range);
}

TEST_F(ServiceClientTest, WithdrawalAndReturnAreReportedAndTheSubscriptionGoesOn) {
    auto server = std::make_unique<FieldServer>(ProviderDeployment());
    server->SetField(kFieldId, {'1'});
    OfferAndConnect(*server);
    const auto subscription = Subscribe();
    AwaitValue(mValues, "1");
    server->StopOffer();
    EXPECT_EQ(mAvailability.Next(), "down");
    server->SetField(kFieldId, {'2'});
    server->Offer();
    EXPECT_EQ(mAvailability.Next(), "up");
    AwaitValue(mValues, "2");
    server.reset();
    EXPECT_EQ(mAvailability.Next(), "down");
    server = std::make_unique<FieldServer>(ProviderDeployment());
    server->SetField(kFieldId, {'3'});
    server->Offer();
    EXPECT_EQ(mAvailability.Next(), "up");
    AwaitValue(mValues, "3");
}

TEST_F(ServiceClientTest, FileThatChangesWhileTheServiceIsAwayCountsAtOnce) {
    Deployment elsewhere = ClientDeployment();
    elsewhere.network.sdPort = 30491;
    Deploy(elsewhere);
    MakeClient();
    FieldServer server(ProviderDeployment());
    server.SetField(kFieldId, {'7'});
    server.Offer();
    const auto subscription = Subscribe();
    Deploy(ClientDeployment());
    EXPECT_EQ(mAvailability.Next(), "up");
    AwaitValue(mValues, "7");
    // While it is there, the file is left alone; it counts when the service has gone.
    Deploy(elsewhere);
    server.SetField(kFieldId, {'8'});
    AwaitValue(mValues, "8");
    EXPECT_EQ(mAvailability.Waiting(), 0U);
    server.StopOffer();
    EXPECT_EQ(mAvailability.Next(), "down");
    Deployment provider = ProviderDeployment();
    provider.network.sdPort = 30491;
    FieldServer other(provider);
    other.Offer();
    EXPECT_EQ(mAvailability.Next(), "up");
}

TEST_F(ServiceClientTest, LeavesNothingBehindThoughTheFileHasChangedMeanwhile) {
    FieldServer server(ProviderDeployment());
    OfferAndConnect(server);
    const auto subscription = Subscribe();
    for (const char value : {'1', '2', '3'}) {
        Deploy(ClientDeployment());
        server.SetField(kFieldId, {static_cast<std::uint8_t>(value)});
        AwaitValue(mValues, {value});
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
        EXPECT_TRUE(
            testing_support::WaitUntil([&] { return server.SubscriberCount(kFieldId) == count; }));
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
    server.SetField(kFieldId, {'1'});
    OfferAndConnect(server);
    Gate entered;
    Gate leave;
    std::atomic<bool> left{false};
    const auto subscription = mClient->SubscribeEvent("field", [&](const Bytes&) {
        entered.Open();
        leave.Pass();
        left = true;
    });
    entered.Pass();
    server.SetField(kFieldId, {'2'});
    auto closing = std::async(std::launch::async, [&] {
        subscription->Close();
        return left.load();
    });
    leave.Open();
    EXPECT_TRUE(closing.get());
    const int runs = entered.Openings();
    // A later subscriber hears the next value, the closed one doesn't.
    const auto other = Subscribe();
    server.SetField(kFieldId, {'3'});
    AwaitValue(mValues, "3");
    EXPECT_EQ(entered.Openings(), runs);
}

TEST_F(ServiceClientTest, HandlerMayCloseItsOwnRegistration) {
    FieldServer server(ProviderDeployment());
    server.SetField(kFieldId, {'1'});
    OfferAndConnect(server);
    Gate subscribed;
    Gate closed;
    std::shared_ptr<ServiceClient::Registration> registration;
    registration = mClient->SubscribeEvent("field", [&](const Bytes&) {
        subscribed.Pass();
        registration->Close();
        closed.Open();
    });
    subscribed.Open();
    closed.Pass();
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
    mDirectory.Write("unrelated", "x");
    std::filesystem::remove(mDirectory.File("Deployment.json"));
    ASSERT_TRUE(log.WaitFor("can't open", 2));
    unknown.network.address = "192.0.2.200";
    Deploy(unknown);
    ASSERT_TRUE(log.WaitFor("SOME/IP network: no interface has the address 192.0.2.200"));
    Deploy(ClientDeployment());
    FieldServer server(ProviderDeployment());
    server.Offer();
    EXPECT_EQ(mAvailability.Next(), "up");
    EXPECT_EQ(log.Count("can't open"), 2U);
    EXPECT_EQ(log.Count("is not deployed"), 1U);
    EXPECT_EQ(log.Count("SOME/IP network"), 1U);
}

TEST_F(ServiceClientTest, DeploymentInADirectoryThatComesLateIsFound) {
    const std::string directory = mDirectory.File("late");
    mClient = std::make_unique<ServiceClient>(
        std::make_shared<someip::ClientNode>(mPool, directory + "/Deployment.json"),
        "test::Service", "1");
    mWatch = mClient->WatchAvailability(mNoteAvailability);
    FieldServer server(ProviderDeployment());
    server.Offer();
    Deploy(ClientDeployment());
    std::filesystem::create_directory(directory);
    std::filesystem::rename(mDirectory.File("Deployment.json"), directory + "/Deployment.json");
    EXPECT_EQ(mAvailability.Next(), "up");
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
