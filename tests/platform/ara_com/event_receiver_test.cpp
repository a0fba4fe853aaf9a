#include <atomic>
#include <memory>
#include <optional>

#include <gmock/gmock.h>

#include <ara/com/find_service_handle.h>
#include <ara/com/internal/proxy/event_receiver.h>
#include <someip/server/field_server.h>

#include "platform/support/someip/test_service.h"
#include "testing/environment.h"
#include "testing/temporary_directory.h"
#include "testing/waiting.h"

namespace {

using ac::com::cpp_binding::Event_cache_update_policy;
using ara::com::internal::proxy::EventReceiver;
using test_service::kFieldId;
using testing_support::Gate;

/// A receiver of a field of one byte, connected to a server.
class EventReceiverTest : public testing::Test {
protected:
    EventReceiverTest() {
        mDirectory.Write("Deployment.json",
                         someip::FormatDeployment(test_service::ClientDeployment()));
        Gate found;
        mServer.Offer();
        const ara::com::FindServiceHandle search("test::Service", "1", [&](const auto& handles) {
            if (!handles.empty() && !mHandle) {
                mHandle = handles.front();
                found.Open();
            }
        });
        found.Pass();
    }

    /// A receiver whose handler fulfils `Await` when it has been called for that value.
    std::unique_ptr<EventReceiver> Receiver() {
        auto receiver = std::make_unique<EventReceiver>(
            *mHandle, "field", [this](const std::vector<std::uint8_t>& payload) {
                mLatest = payload.at(0);
                return std::make_shared<const int>(payload.at(0));
            });
        receiver->SetReceiveHandler([this] { mHandled = mLatest.load(); });
        return receiver;
    }

    void PublishAndAwait(int value) {
        mServer.SetField(kFieldId, {static_cast<std::uint8_t>(value)});
        ASSERT_TRUE(testing_support::WaitUntil([&] { return mHandled == value; }));
    }

    static std::vector<int> Cache(const EventReceiver& receiver) {
        std::vector<int> values;
        for (const auto& sample : receiver.GetCachedSamples()) {
            values.push_back(*std::static_pointer_cast<const int>(sample));
        }
        return values;
    }

    testing_support::TemporaryDirectory mDirectory;
    const testing_support::EnvironmentVariable mVariable{"SOMEIP_DEPLOYMENT",
                                                         mDirectory.File("Deployment.json")};
    someip::FieldServer mServer{test_service::ProviderDeployment()};
    std::optional<ara::com::ServiceHandle> mHandle;
    std::atomic<int> mLatest{-1};
    std::atomic<int> mHandled{-1};
};

TEST_F(EventReceiverTest, NewestPolicyReplacesTheCacheByTheNewestSamples) {
    const auto receiver = Receiver();
    receiver->Subscribe(Event_cache_update_policy::kNewestN, 3);
    EXPECT_FALSE(receiver->Update());
    for (int value = 1; value <= 5; ++value) {
        PublishAndAwait(value);
    }
    EXPECT_TRUE(receiver->Update());
    EXPECT_THAT(Cache(*receiver), testing::ElementsAre(3, 4, 5));
    EXPECT_FALSE(receiver->Update());
    PublishAndAwait(6);
    EXPECT_TRUE(receiver->Update());
    EXPECT_THAT(Cache(*receiver), testing::ElementsAre(6));
    receiver->Cleanup();
    EXPECT_THAT(Cache(*receiver), testing::IsEmpty());
}

TEST_F(EventReceiverTest, LastPolicyKeepsOlderSamplesWhileThereIsRoom) {
    const auto receiver = Receiver();
    receiver->Subscribe(Event_cache_update_policy::kLastN, 2);
    PublishAndAwait(1);
    receiver->Update();
    PublishAndAwait(2);
    receiver->Update();
    EXPECT_EQ(Cache(*receiver).back(), 2);
    PublishAndAwait(3);
    EXPECT_TRUE(receiver->Update());
    receiver->Cleanup();
    EXPECT_THAT(Cache(*receiver), testing::ElementsAre(2, 3));
}

TEST_F(EventReceiverTest, UnsubscribedReceiverHearsNothingUntilItSubscribesAgain) {
    const auto receiver = Receiver();
    receiver->Subscribe(Event_cache_update_policy::kNewestN, 20);
    PublishAndAwait(1);
    receiver->Unsubscribe();
    EXPECT_FALSE(receiver->Update());
    mHandled = -1;
    mServer.SetField(kFieldId, {2});
    receiver->Subscribe(Event_cache_update_policy::kNewestN, 20);
    PublishAndAwait(3);
    EXPECT_TRUE(receiver->Update());
    EXPECT_EQ(Cache(*receiver).back(), 3);
}

TEST_F(EventReceiverTest, HandlerMayEndItsReceiver) {
    auto receiver = Receiver();
    Gate ended;
    receiver->SetReceiveHandler([&] {
        if (receiver) {
            receiver->Unsubscribe();
            receiver.reset();
            ended.Open();
        }
    });
    mServer.SetField(kFieldId, {1});
    receiver->Subscribe(Event_cache_update_policy::kNewestN, 20);
    ended.Pass();
    EXPECT_FALSE(receiver);
}

}  // namespace
