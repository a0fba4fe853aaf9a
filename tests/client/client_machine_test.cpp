// What neither a row of the transition table tells about the client machine nor a simulated life:
// other threads, the bounds of an alert's name, and names.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "client/activation_reason.h"
#include "client/client_life.h"

namespace {

using client_table::kOid;
using testing::ElementsAre;
using testing_support::ClientLife;
using vintrel::VintrelClientFsm;

TEST(ClientAlertTest, OnlyTheExactOperationIdIsAnAlert) {
    ClientLife life;
    ASSERT_TRUE(life.Start());
    life.Happen("clamp on", "URL failed");
    for (const std::string& oid : {kOid + "s", kOid.substr(1), kOid.substr(0, 34), std::string()}) {
        life.Mark();
        life.client->TlsAlertNotifyCb(oid, tls_alert_if::ETlsAlertCode::kCertificateRevoked);
        life.dispatcher->RunPending();
        EXPECT_THAT(life.Story(),
                    ElementsAre("I TLS alert received for oid: " + oid,
                                "D Received TLS alert IGNORED for oid " + oid + ", code 44"));
    }
}

TEST(ClientHealthTest, IsAlwaysGood) {
    ClientLife life;
    life.Arrange(client_table::kRetry);
    life.Mark();
    EXPECT_EQ(life.client->ProcessLifecycleAdapterGetHealthStatus(), 0);
    EXPECT_THAT(life.OwnLines(), ElementsAre("D Get Health Status called."));
}

TEST(ActivationReasonTest, HasTheNamesOfTheLog) {
    std::vector<std::string> names;
    for (int value = -1; value <= 9; ++value) {
        names.push_back(vintrel::StatusToString(static_cast<vintrel::ActivationReason>(value)));
    }
    EXPECT_THAT(
        names,
        ElementsAre("", "ACTIVATIONREASON_CLAMP30_DETECTED", "ACTIVATIONREASON_FORCE_REACTIVATION",
                    "ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID",
                    "ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE", "ACTIVATIONREASON_FACTORY_RESET",
                    "ACTIVATIONREASON_OTHER", "ACTIVATION_REASON_DATA_TAMPERED",
                    "ACTIVATION_REASON_CERT_1YEAR_EXPIRATION",
                    "ACTIVATION_REASON_DIAGNOSTIC_ROUTINE", ""));
}

const std::string kRequestLine = "VintrelClientFsm: Handling Vintrel Client termination request.";

/// All that a foreign thread may call, but for the termination.
void CallEverything(VintrelClientFsm& client) {
    client.ClampStateChangeCb(true);
    client.ImmobilizerConnectionStateChangeCb(true);
    client.ImmobilizerVinReceivedCb(client_table::kVin);
    client.TlsAlertNotifyCb(kOid, tls_alert_if::ETlsAlertCode::kDecryptError);
    EXPECT_EQ(client.ProcessLifecycleAdapterGetHealthStatus(), 0);
}

/// The loop ends, and the machine with it.
void ExpectEnd(ClientLife& life) {
    EXPECT_FALSE(life.dispatcher->RunPending());
    EXPECT_EQ(life.State(), client_table::kTerminated);
}

TEST(ClientTerminationTest, IsHeardBeforeTheMachineHasAnOwner) {
    ClientLife life;
    auto owned = std::make_unique<VintrelClientFsm>(life.unit, false);
    std::thread([&owned] {
        CallEverything(*owned);
        owned->ProcessLifecycleAdapterTerminate();
    }).join();
    life.client = std::move(owned);
    ASSERT_TRUE(life.client->StartFsm(life.dispatcher));
    ExpectEnd(life);
}

TEST(ClientTerminationTest, IsHeardBehindAFullQueue) {
    ClientLife life;
    life.Arrange(client_table::kWaitVin);
    // One byte of the pipe for each event.
    constexpr int kQueueSize = 65536;
    for (int count = 0; count < kQueueSize; ++count) {
        life.client->ClampStateChangeCb(true);
    }
    EXPECT_EQ(life.log.Count("error writing pipe"), 0U);
    life.client->ProcessLifecycleAdapterTerminate();
    EXPECT_EQ(life.log.Count("error writing pipe"), 1U) << "only the request is lost";
    life.log.Clear();
    ExpectEnd(life);
    EXPECT_EQ(life.log.Count(kRequestLine), 1U);
    EXPECT_EQ(life.log.Count("HandleClampControlEvent"), 1U) << "the request goes before the rest";
}

TEST(ClientTerminationTest, IsHeardWhileTheMachineEndsOtherwise) {
    for (const char* const end : {"session rejected", "VIN"}) {
        ClientLife life;
        life.Arrange(client_table::kCheckServices);
        life.unit.atConnectorStop = [&life] {
            std::thread([&life] { life.client->ProcessLifecycleAdapterTerminate(); }).join();
        };
        life.Happen(end);
        ExpectEnd(life);
    }
}

TEST(ClientEndTest, LateAndConcurrentCallbacksAreHarmless) {
    ClientLife life;
    life.Arrange(client_table::kDownload, {}, {"connection 3"});
    std::atomic<bool> done{false};
    std::atomic<int> rounds{0};
    std::thread caller([&] {
        while (!done) {
            CallEverything(*life.client);
            ++rounds;
        }
    });
    const auto callsGoOn = [&rounds, seen = 0]() mutable {
        return seen == 0 ? (seen = rounds + 2) == 0 : rounds > seen;
    };
    EXPECT_TRUE(life.dispatcher->RunUntil(callsGoOn));
    life.client->StopFsm();
    EXPECT_TRUE(life.dispatcher->RunUntil(callsGoOn));
    life.dispatcher.reset();
    for (const int last = rounds; rounds < last + 2;) {
        std::this_thread::yield();
    }
    done = true;
    caller.join();
    EXPECT_EQ(life.State(), client_table::kTerminated);
    EXPECT_GT(life.log.Count("VintrelClientFsmGetAsyncEventQueue: No EventDispatcher"), 0U);
}

}  // namespace
