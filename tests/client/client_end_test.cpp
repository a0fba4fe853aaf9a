// How the client machine ends: a termination request at every bad moment, a session that is
// rejected or gone, and callbacks that come when they may not.

#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>

#include <gtest/gtest.h>

#include "backend/backend_request_handler_fsm.h"
#include "backend/zem_connector_fsm.h"
#include "client/client_life.h"

namespace {

using client_table::kOid;
using client_table::kVin;
using testing_support::ClientLife;
using testing_support::ScriptedUnit;
using vintrel::VintrelClientFsm;

constexpr auto kAlertCode = tls_alert_if::ETlsAlertCode::kDecryptError;
const std::string kRequestLine = "VintrelClientFsm: Handling Vintrel Client termination request.";

/// All that a foreign thread may call.
void CallEverything(VintrelClientFsm& client) {
    client.ClampStateChangeCb(true);
    client.ImmobilizerConnectionStateChangeCb(true);
    client.ImmobilizerVinReceivedCb(kVin);
    client.TlsAlertNotifyCb(kOid, kAlertCode);
    EXPECT_EQ(client.ProcessLifecycleAdapterGetHealthStatus(), 0);
}

/// The loop ends, and the machine with it.
void ExpectEnd(ClientLife& life) {
    EXPECT_FALSE(life.dispatcher->RunPending());
    EXPECT_EQ(life.State(), client_table::kTerminated);
}

std::ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

TEST(ClientTerminationTest, IsHeardFromWithinTheConstructor) {
    ClientLife life;
    life.unit.atNewHsm = [&life] { life.unit.lifecycle->ProcessLifecycleAdapterTerminate(); };
    ASSERT_TRUE(life.Start());
    ExpectEnd(life);
    EXPECT_EQ(life.log.Count(kRequestLine), 1U);
}

TEST(ClientTerminationTest, IsHeardBeforeTheMachineHasAnOwner) {
    ClientLife life;
    auto owned = std::make_unique<VintrelClientFsm>(life.unit, false);
    std::thread([&owned] { CallEverything(*owned); }).join();
    std::thread([&owned] { owned->ProcessLifecycleAdapterTerminate(); }).join();
    life.client = std::move(owned);
    ASSERT_TRUE(life.client->StartFsm(life.dispatcher));
    ExpectEnd(life);
}

TEST(ClientTerminationTest, IsHeardBetweenStartAndLoop) {
    ClientLife life;
    ASSERT_TRUE(life.Start());
    life.client->ProcessLifecycleAdapterTerminate();
    EXPECT_TRUE(life.dispatcher->DispatchEvents());
    EXPECT_EQ(life.log.Count(kRequestLine), 1U);
}

TEST(ClientTerminationTest, IsHeardBehindAFullQueue) {
    ClientLife life;
    life.Arrange(client_table::kWaitVin);
    for (int count = 0; count < 70000; ++count) {
        life.client->ClampStateChangeCb(true);
    }
    life.client->ProcessLifecycleAdapterTerminate();
    life.log.Clear();
    ExpectEnd(life);
    EXPECT_EQ(life.log.Count(kRequestLine), 1U);
    EXPECT_LT(life.log.Count("HandleClampControlEvent"), 70000U) << "the request does not queue up";
}

TEST(ClientTerminationTest, IsHeardWhileTheMachineEndsOtherwise) {
    for (const bool rejected : {true, false}) {
        ClientLife life;
        life.Arrange(client_table::kCheckServices);
        life.unit.atConnectorStop = [&life] {
            std::thread([&life] { life.client->ProcessLifecycleAdapterTerminate(); }).join();
        };
        if (rejected) {
            life.unit.connector->ReportStatus(zem_connector::SessionStatus::kRejected);
        } else {
            life.client->ImmobilizerVinReceivedCb(kVin);
        }
        ExpectEnd(life);
    }
}

TEST(ClientTerminationTest, WaitsForNoTimer) {
    ClientLife life;
    life.Arrange(client_table::kRetry, {"retries 6"});
    life.client->ProcessLifecycleAdapterTerminate();
    EXPECT_FALSE(life.dispatcher->RunPending());
    EXPECT_EQ(life.dispatcher->NextDelay(), std::chrono::seconds(900)) << "still pending";
}

TEST(ClientEndTest, ARejectionWhileTheStoreIsReadStartsNothingMore) {
    for (const int connection : {2, 3}) {
        ClientLife life;
        life.Arrange(client_table::kStartUpdate, {"connection " + std::to_string(connection)});
        life.unit.connector->ReportStatus(zem_connector::SessionStatus::kRejected);
        EXPECT_TRUE(life.dispatcher->RunPending()) << "the loop goes on";
        EXPECT_EQ(life.State(), client_table::kTerminated);
        EXPECT_TRUE(life.unit.exchanges.empty());
        EXPECT_EQ(life.log.Count("No EventDispatcher"), 0U);
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

TEST(ClientEndTest, ARunningExchangeLeaksNothing) {
    std::weak_ptr<VintrelClientFsm> client;
    std::weak_ptr<testing_support::ScriptedExchangeFsm> exchange;
    const auto descriptors = CountDescriptors();
    {
        ClientLife life;
        life.Arrange(client_table::kDownload, {}, {"connection 3"});
        ASSERT_TRUE(life.ExchangeRuns());
        client = life.client;
        exchange = life.unit.exchanges.back();
        life.client->ProcessLifecycleAdapterTerminate();
        EXPECT_FALSE(life.dispatcher->RunPending());
    }
    EXPECT_TRUE(client.expired());
    EXPECT_TRUE(exchange.expired());
    EXPECT_EQ(CountDescriptors(), descriptors);
}

class QuietLibrary : public zem_connector::ZemConnector {
public:
    QuietLibrary() : ZemConnector(nullptr, nullptr) {}

    zem_connector::SessionStatus Start() override { return zem_connector::SessionStatus::kStarted; }
    void Stop() override {}
    bool SubscribeTransactionTypeState(std::string, zem_connector::ZemServiceControllerCallbackIf*,
                                       unsigned int) override {
        return true;
    }
    bool GetInvocationUrl(std::string, zem_connector::ZemServiceControllerCallbackIf*) override {
        return true;
    }
};

/// The real connector machine and the real exchange between the client and a quiet library.
class UnitWithRealConnector : public ScriptedUnit {
public:
    std::shared_ptr<vintrel::ZemConnectorFsmIf> NewZemConnectorFsm(
        const std::string& name) const override {
        connectorFsm = std::make_shared<vintrel::ZemConnectorFsm>(*this, name);
        return connectorFsm;
    }
    std::unique_ptr<zem_connector::ZemConnector> NewZemConnector(
        zem_connector::ZemSessionCallbackIf*, zem_connector::ZemPubSubCallbackIf*) const override {
        return std::make_unique<QuietLibrary>();
    }
    std::shared_ptr<vintrel::BackendRequestHandlerFsmIf> NewBackendRequestHandlerFsm()
        const override {
        return std::make_shared<vintrel::BackendRequestHandlerFsm>();
    }

    mutable std::shared_ptr<vintrel::ZemConnectorFsm> connectorFsm;
};

class EndedConnectorTest : public testing::Test {
protected:
    ~EndedConnectorTest() override { dispatcher->TerminateDispatching(); }

    void SetUp() override { ASSERT_TRUE(client->StartFsm(dispatcher)); }
    void Trigger() {
        client->ClampStateChangeCb(true);
        dispatcher->RunPending();
    }

    testing_support::CapturedLog log;
    UnitWithRealConnector unit;
    std::shared_ptr<testing_support::VirtualTimeDispatcher> dispatcher =
        std::make_shared<testing_support::VirtualTimeDispatcher>("EventDispatcher", true);
    std::shared_ptr<VintrelClientFsm> client = std::make_shared<VintrelClientFsm>(unit, false);
};

TEST_F(EndedConnectorTest, WithoutAnAnswerToItsQueryTheClientWaitsForTheEnd) {
    dispatcher->RunPending();
    unit.connectorFsm->StopFsm();
    Trigger();
    EXPECT_EQ(client->GetStateName(), client_table::kWaitZemConnector);
    client->ProcessLifecycleAdapterTerminate();
    EXPECT_FALSE(dispatcher->RunPending());
    EXPECT_EQ(client->GetStateName(), client_table::kTerminated);
}

TEST_F(EndedConnectorTest, WithoutAConnectionTheClientRetries) {
    Trigger();
    unit.connectorFsm->ZemSCInvocationURL(
        {0, "QUBA-GenerateTIVCert-C003.COSendCSR", client_table::kUrl});
    unit.connectorFsm->ZemSCConnectionState(
        {0, 0, 0, "", vintrel::ZemConnectorFsm::SCConnectionState::kConnected});
    dispatcher->RunPending();
    client->ImmobilizerConnectionStateChangeCb(true);
    dispatcher->RunPending();
    unit.connectorFsm->StopFsm();
    client->ImmobilizerVinReceivedCb(kVin);
    dispatcher->RunPending();
    EXPECT_TRUE(log.Contains(qel_logging::EQELLogLevel::kInfo,
                             "VintrelClientFsm: Backend response received, status: 6"));
    EXPECT_EQ(client->GetStateName(), client_table::kRetry);
}

}  // namespace
