#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "client/immobilizer_if.h"
#include "testing/captured_log.h"
#include "testing/event_recorder.h"
#include "testing/temporary_directory.h"
#include "vehicle/immobilizer_client.h"
#include "vehicle/vehicle_services.h"

namespace vintrel {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using vehicle_test::VehicleServices;

class ImmobilizerTest : public ::testing::Test,
                        public ImmobilizerCbIf,
                        public immobilizerclient::ImmobilizerCallbackIf {
protected:
    void ImmobilizerVinReceivedCb(std::string vin) override { mEvents.Add("VIN " + vin); }
    void ImmobilizerConnectionStateChangeCb(bool connected) override {
        mEvents.Add(connected ? "connected" : "disconnected");
    }
    void ImmobilizerVinReceived(const std::string& vin) override { mEvents.Add("VIN " + vin); }
    void ConnectionStateNotification(bool connected) override {
        mEvents.Add(connected ? "connected" : "disconnected");
    }

    std::shared_ptr<ImmobilizerIf> Connected(VehicleServices& services) {
        services.Server().SetServiceAvailable("Immobilizer", true);
        services.Server().Start();
        auto immobilizer = ImmobilizerIf::Create(*this);
        EXPECT_TRUE(immobilizer->ImmobilizerInit());
        EXPECT_THAT(mEvents.Wait(1), ElementsAre("connected"));
        return immobilizer;
    }

    testing_support::EventRecorder mEvents;
    testing_support::CapturedLog mLog;
};

TEST_F(ImmobilizerTest, TheVinIsHandedOnUnchanged) {
    VehicleServices services;
    const auto immobilizer = Connected(services);
    std::size_t count = 1;
    const std::vector<std::string> vins{"WQUBAEXAMPLE00001", "x", " \\\" {}\n\u00e4 ",
                                        std::string(10000, 'v')};
    for (const auto& vin : vins) {
        services.Server().SetImmobilizerVin(vin);
        EXPECT_TRUE(immobilizer->GetVin());
        EXPECT_EQ("VIN " + vin, mEvents.Wait(++count).back());
    }
    EXPECT_THAT(mLog.Lines(), Contains("I Immobilizer: VIN received successfully").Times(4));
    EXPECT_THAT(
        mLog.Lines(),
        ::testing::IsSupersetOf({"I Immobilizer Client: Service connected",
                                 "I Immobilizer: Service Connection state changed to Connected"}));
    EXPECT_THAT(mLog.Lines(), ::testing::Not(Contains(::testing::HasSubstr("WQUBAEXAMPLE00001"))));
}

TEST_F(ImmobilizerTest, EveryUselessAnswerIsAnEmptyVinAndOneErrorLine) {
    VehicleServices services;
    const auto immobilizer = Connected(services);
    const std::string absent = "E Immobilizer Client: success callback returned empty vin element";
    const std::string status = "E Immobilizer Client: ErrorCb, response status: ";
    const std::string unreadable = "E Immobilizer Client: ErrorCb: ";
    std::size_t count = 1;
    const auto expectFailure = [&](const std::string& line) {
        EXPECT_TRUE(immobilizer->GetVin());
        EXPECT_EQ("VIN ", mEvents.Wait(++count).back());
        const auto lines = mLog.Lines();
        ASSERT_GE(lines.size(), 2U);
        EXPECT_THAT(lines[lines.size() - 2], StartsWith(line));
        EXPECT_EQ("E Immobilizer: FAILED to get VIN from Immobilizer Service!", lines.back());
    };
    expectFailure(absent);
    for (const auto* body :
         {R"({"items":[]})", R"({"items":[{"vehicleIdentificationNumber":null}]})"}) {
        services.Server().SetImmobilizerBody(body);
        expectFailure(absent);
    }
    for (const auto* body : {"", "{", "[]", "{}", R"({"items":{}})", R"({"items":[7]})",
                             R"({"items":[{"vehicleIdentificationNumber":7}]})"}) {
        services.Server().SetImmobilizerBody(body);
        expectFailure(unreadable);
    }
    services.Server().SetImmobilizerBody(std::string(5000, '['));
    expectFailure(unreadable + "JSON is nested too deeply");
    services.Server().SetImmobilizerBody(std::string(70000, ' '));
    expectFailure(unreadable + "body limit exceeded");
    services.Server().SetImmobilizerStatus(404);
    expectFailure(status + "404");
    services.Server().SetImmobilizerStatus(503);
    expectFailure(status + "503");
}

TEST_F(ImmobilizerTest, WithoutTheServiceNothingIsAskedAndNothingFollows) {
    VehicleServices services;
    services.Server().SetImmobilizerVin("V");
    const auto immobilizer = Connected(services);
    services.Server().SendRawEvent("{");
    services.Server().SetServiceAvailable("Immobilizer", false);
    EXPECT_THAT(mEvents.Wait(2), ElementsAre("connected", "disconnected"));
    EXPECT_FALSE(immobilizer->GetVin());
    EXPECT_EQ("E Immobilizer: Not connected to Immobilizer Service!", mLog.Lines().back());
    EXPECT_THAT(mLog.Lines(),
                ::testing::AllOf(
                    Contains(StartsWith("E Immobilizer Client: ServiceListener Error: ")),
                    Contains("I Immobilizer: Service Connection state changed to Disconnected")));
    services.Server().Stop();
    services.Server().SetServiceAvailable("Immobilizer", true);
    services.Server().Start();
    mEvents.Wait(3);
    EXPECT_TRUE(immobilizer->GetVin());
    EXPECT_THAT(mEvents.Wait(4), ElementsAre("connected", "disconnected", "connected", "VIN V"));
}

TEST_F(ImmobilizerTest, AQueryWithoutServiceOrAfterStopIsAnEmptyVin) {
    VehicleServices services;
    services.Server().SetServiceAvailable("Immobilizer", true);
    immobilizerclient::ImmobilizerClient client;
    client.GetImmobilizerVin();
    client.AssignCallback(this);
    client.GetImmobilizerVin();
    EXPECT_THAT(mEvents.Events(), ElementsAre("VIN "));
    EXPECT_EQ("E Immobilizer Client: Not ready", mLog.Lines().back());

    services.Server().Start();
    client.Start();
    mEvents.Wait(2);
    client.Stop();
    client.Stop();
    client.GetImmobilizerVin();
    EXPECT_THAT(mEvents.Events(), ElementsAre("VIN ", "connected", "VIN "));
    EXPECT_EQ("E Immobilizer Client: LumoAccess exception", mLog.Lines().back());
}

TEST_F(ImmobilizerTest, DestructionEndsAQueryUnderWayOnceAndForAll) {
    VehicleServices services;
    services.Server().SetImmobilizerSilent();
    auto immobilizer = Connected(services);
    EXPECT_TRUE(immobilizer->GetVin());
    immobilizer.reset();
    services.Server().SetServiceAvailable("Immobilizer", false);
    EXPECT_THAT(mEvents.Events(), ElementsAre("connected", "VIN "));
}

TEST_F(ImmobilizerTest, WithoutAUsableConfigurationItIsNeverConnected) {
    VehicleServices services;
    services.WriteConfig("{");
    auto immobilizer = ImmobilizerIf::Create(*this);
    EXPECT_THAT(mLog.Lines(), ElementsAre(StartsWith("E  Exception: client configuration " +
                                                     services.ConfigPath())));
    EXPECT_TRUE(immobilizer->ImmobilizerInit());
    EXPECT_FALSE(immobilizer->GetVin());
    immobilizer.reset();
    immobilizerclient::ImmobilizerClient client;
    client.GetImmobilizerVin();
    client.Stop();
    EXPECT_TRUE(mEvents.Events().empty());
}

}  // namespace vintrel
