#include "someip/service_client.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/someip/hex.h"
#include "someip/field_server.h"
#include "someip/message.h"
#include "someip/watch_protocol.h"

namespace {

using namespace std::chrono_literals;
using someip::Bytes;
using someip::FieldServer;
using someip::Message;
using someip::MessageType;
using someip::ReturnCode;
using someip::ServiceClient;
using someip::ServiceDeployment;

constexpr auto kGuard = 30s;
constexpr std::uint16_t kFieldId = 0x8001;

ServiceDeployment Deployment() {
    ServiceDeployment service;
    service.name = "test::Service";
    service.serviceId = 0x1234;
    service.events["field"] = kFieldId;
    service.cycle = 20ms;
    service.ttl = 2000ms;
    return service;
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

/// Knows the service that the test sets.
class SettableLocator : public someip::ServiceLocator {
public:
    explicit SettableLocator(std::shared_ptr<Mailbox<ServiceDeployment>> next)
        : mNext(std::move(next)) {}

    std::optional<ServiceDeployment> Locate(const std::string& /*name*/,
                                            const std::string& /*instance*/) override {
        if (!mNext->IsEmpty()) {
            mService = mNext->Take();
        }
        return mService;
    }

private:
    std::shared_ptr<Mailbox<ServiceDeployment>> mNext;
    std::optional<ServiceDeployment> mService;
};

class ServiceClientTest : public testing::Test {
protected:
    void Deploy(const ServiceDeployment& service) { mDeployed->Put(service); }

    void MakeClient() {
        mClient =
            std::make_unique<ServiceClient>(mPool, std::make_unique<SettableLocator>(mDeployed),
                                            "test::Service", someip::kAnyInstance);
        mWatch = mClient->WatchAvailability([this](bool there) { mAvailability.Put(there); });
    }

    std::shared_ptr<ServiceClient::Registration> Subscribe() {
        return mClient->SubscribeEvent("field", [this](const Bytes& value) { mValues.Put(value); });
    }

    void OfferAndConnect(FieldServer& server) {
        server.Offer();
        Deploy(server.Deployment());
        MakeClient();
        EXPECT_TRUE(mAvailability.Take());
    }

    std::shared_ptr<someip::WorkerPool> mPool = std::make_shared<someip::WorkerPool>(2);
    std::shared_ptr<Mailbox<ServiceDeployment>> mDeployed =
        std::make_shared<Mailbox<ServiceDeployment>>();
    Mailbox<bool> mAvailability;
    Mailbox<Bytes> mValues;
    std::unique_ptr<ServiceClient> mClient;
    std::shared_ptr<ServiceClient::Registration> mWatch;
};

TEST_F(ServiceClientTest, SubscriberGetsTheCurrentValueAndEachChange) {
    FieldServer server(Deployment());
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
    FieldServer server(Deployment());
    OfferAndConnect(server);
    const auto subscription = Subscribe();
    const Bytes largest(someip::kMaxPayload, 0x5A);
    server.SetField(kFieldId, largest);
    mValues.TakeUntil(largest);
    EXPECT_THROW(server.SetField(kFieldId, Bytes(someip::kMaxPayload + 1, 0)), std::length_error);
}

TEST_F(ServiceClientTest, WithdrawalAndReturnAreReportedAndTheSubscriptionGoesOn) {
    FieldServer server(Deployment());
    server.SetField(kFieldId, Hex("01"));
    OfferAndConnect(server);
    const auto subscription = Subscribe();
    mValues.TakeUntil(Hex("01"));
    server.StopOffer();
    EXPECT_FALSE(mAvailability.Take());
    server.SetField(kFieldId, Hex("02"));
    server.Offer();
    EXPECT_TRUE(mAvailability.Take());
    mValues.TakeUntil(Hex("02"));
}

TEST_F(ServiceClientTest, ServiceThatMovesToAnotherPortIsFoundAgain) {
    auto server = std::make_unique<FieldServer>(Deployment());
    OfferAndConnect(*server);
    const auto subscription = Subscribe();
    server.reset();
    EXPECT_FALSE(mAvailability.Take());
    FieldServer next(Deployment());
    next.SetField(kFieldId, Hex("07"));
    next.Offer();
    Deploy(next.Deployment());
    EXPECT_TRUE(mAvailability.Take());
    mValues.TakeUntil(Hex("07"));
}

TEST_F(ServiceClientTest, ClosedClientIsForgottenByTheServerAtOnce) {
    ServiceDeployment patient = Deployment();
    patient.cycle = 10000ms;
    patient.ttl = 60000ms;
    FieldServer server(patient);
    OfferAndConnect(server);
    const auto subscription = Subscribe();
    server.SetField(kFieldId, Hex("01"));
    mValues.TakeUntil(Hex("01"));
    EXPECT_EQ(server.SubscriberCount(kFieldId), 1U);
    subscription->Close();
    mWatch->Close();
    mClient.reset();
    mWatch.reset();
    const auto end = std::chrono::steady_clock::now() + kGuard;
    while (server.SubscriberCount(kFieldId) != 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    EXPECT_EQ(server.SubscriberCount(kFieldId), 0U);
}

TEST_F(ServiceClientTest, CloseWaitsForARunningHandlerAndNoneFollows) {
    FieldServer server(Deployment());
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
    FieldServer server(Deployment());
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

/// A peer that answers as the test says, on a socket of its own.
class ScriptedPeer {
public:
    ScriptedPeer() : mSocket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (mSocket < 0 || ::bind(mSocket, generic, size) != 0 ||
            ::getsockname(mSocket, generic, &size) != 0) {
            throw std::runtime_error("no socket");
        }
        mPort = ntohs(address.sin_port);
    }

    ~ScriptedPeer() { ::close(mSocket); }
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    ServiceDeployment Service() const {
        ServiceDeployment service = Deployment();
        service.port = mPort;
        return service;
    }

    void SetPeer(const sockaddr_in& address) { mClient = address; }

    /// The next message, whose sender gets what Send sends.
    Message Receive() {
        pollfd ready{mSocket, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(std::chrono::milliseconds(kGuard).count())) != 1) {
            throw std::runtime_error("no request");
        }
        std::array<std::uint8_t, 2048> buffer{};
        socklen_t size = sizeof(mClient);
        const ssize_t count = ::recvfrom(mSocket, buffer.data(), buffer.size(), 0,
                                         reinterpret_cast<sockaddr*>(&mClient), &size);
        std::string problem;
        const auto message =
            someip::Decode(buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count), problem);
        if (!message) {
            throw std::runtime_error(problem);
        }
        return *message;
    }

    void Send(const Bytes& bytes, const ScriptedPeer* as = nullptr) const {
        ::sendto(as != nullptr ? as->mSocket : mSocket, bytes.data(), bytes.size(), 0,
                 reinterpret_cast<const sockaddr*>(&mClient), sizeof(mClient));
    }

    void Answer() {
        Message answer = Receive();
        answer.type = MessageType::kResponse;
        answer.payload.clear();
        Send(someip::Encode(answer));
    }

private:
    int mSocket;
    std::uint16_t mPort{0};
    sockaddr_in mClient{};
};

Message Notification(const Bytes& payload) {
    Message message;
    message.serviceId = 0x1234;
    message.methodId = kFieldId;
    message.type = MessageType::kNotification;
    message.payload = payload;
    return message;
}

TEST_F(ServiceClientTest, ServiceThatStopsAnsweringIsGoneAndComesBack) {
    ScriptedPeer peer;
    ServiceDeployment service = peer.Service();
    service.ttl = 300ms;
    Deploy(service);
    MakeClient();
    peer.Answer();
    EXPECT_TRUE(mAvailability.Take());
    EXPECT_FALSE(mAvailability.Take());
    Message last = peer.Receive();
    EXPECT_EQ(last.methodId, someip::kWatchMethod);
    // The requests of the silent time are answered late, then the newest one counts.
    auto answering = std::async(std::launch::async, [&] { return mAvailability.Take(); });
    while (answering.wait_for(0s) != std::future_status::ready) {
        peer.Answer();
    }
    EXPECT_TRUE(answering.get());
}

/// Finds the service at its third look only, and then no more.
class UnreliableLocator : public someip::ServiceLocator {
public:
    UnreliableLocator(ServiceDeployment service, std::promise<void>& done)
        : mService(std::move(service)), mDone(done) {}

    std::optional<ServiceDeployment> Locate(const std::string& /*name*/,
                                            const std::string& /*instance*/) override {
        const int look = ++mLooks;
        if (look == 3) {
            return mService;
        }
        if (look == 6) {
            mDone.set_value();
        }
        throw std::runtime_error("no deployment file");
    }

private:
    ServiceDeployment mService;
    std::promise<void>& mDone;
    int mLooks{0};
};

TEST_F(ServiceClientTest, AProblemThatLastsIsLoggedOnceAndAgainWhenItReturns) {
    const ScriptedPeer silent;
    std::promise<void> done;
    testing::internal::CaptureStderr();
    mClient = std::make_unique<ServiceClient>(
        mPool, std::make_unique<UnreliableLocator>(silent.Service(), done), "test::Service",
        someip::kAnyInstance);
    EXPECT_EQ(done.get_future().wait_for(kGuard), std::future_status::ready);
    mClient.reset();
    mPool->Join();
    const std::string log = testing::internal::GetCapturedStderr();
    std::size_t lines = 0;
    for (auto at = log.find("no deployment file"); at != std::string::npos;
         at = log.find("no deployment file", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(lines, 2U) << log;
}

TEST_F(ServiceClientTest, WhatIsNoValidMessageOfTheServiceIsDropped) {
    ScriptedPeer peer;
    ScriptedPeer stranger;
    Deploy(peer.Service());
    MakeClient();
    const auto subscription = Subscribe();
    peer.Answer();
    EXPECT_TRUE(mAvailability.Take());

    const Message good = Notification(Hex("AA"));
    std::vector<Message> unwanted(8, Notification(Hex("BB")));
    unwanted[0].serviceId = 0x1235;
    unwanted[1].methodId = 0x8002;
    unwanted[2].interfaceVersion = 2;
    unwanted[3].type = MessageType::kRequest;
    unwanted[4].returnCode = ReturnCode::kNotOk;
    unwanted[5].type = MessageType::kResponse;
    unwanted[6].methodId = someip::kAvailabilityEvent;
    unwanted[7].methodId = someip::kWatchMethod;
    for (const Message& message : unwanted) {
        peer.Send(someip::Encode(message));
    }
    Bytes cut = someip::Encode(good);
    cut.pop_back();
    peer.Send(cut);
    peer.Send({});
    peer.Send(someip::Encode(Notification(Hex("CC"))), &stranger);
    // A forged answer to a request that was never made doesn't take the service away.
    Message forged = Notification({});
    forged.methodId = someip::kWatchMethod;
    forged.type = MessageType::kError;
    forged.returnCode = ReturnCode::kNotReady;
    peer.Send(someip::Encode(forged));
    peer.Send(someip::Encode(good));
    EXPECT_EQ(mValues.Take(), Hex("AA"));
    EXPECT_TRUE(mValues.IsEmpty());
    EXPECT_TRUE(mAvailability.IsEmpty());
}

TEST_F(ServiceClientTest, ServerRefusesWhatItDoesNotServe) {
    FieldServer server(Deployment());
    server.Offer();
    ScriptedPeer client;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.Deployment().port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    client.SetPeer(address);

    Message request = Notification(someip::EncodeWatchRequest({1, 1000ms, {}}));
    request.type = MessageType::kRequest;
    request.methodId = someip::kWatchMethod;
    const struct {
        std::size_t payloadSize;
        std::uint16_t methodId;
        std::uint8_t version;
        MessageType type;
        ReturnCode code;
    } kCases[] = {
        {8, someip::kWatchMethod, 1, MessageType::kResponse, ReturnCode::kOk},
        {8, someip::kWatchMethod, 2, MessageType::kError, ReturnCode::kWrongInterfaceVersion},
        {8, 1, 1, MessageType::kError, ReturnCode::kUnknownMethod},
        {7, someip::kWatchMethod, 1, MessageType::kError, ReturnCode::kMalformedMessage},
    };
    for (const auto& expected : kCases) {
        Message sent = request;
        sent.methodId = expected.methodId;
        sent.interfaceVersion = expected.version;
        sent.payload.resize(expected.payloadSize);
        ++request.sessionId;
        sent.sessionId = request.sessionId;
        client.Send(Hex("00"));
        client.Send(someip::Encode(sent));
        const Message answer = client.Receive();
        EXPECT_EQ(answer.sessionId, sent.sessionId);
        EXPECT_EQ(answer.type, expected.type);
        EXPECT_EQ(answer.returnCode, expected.code);
    }
}

}  // namespace
