#include <optional>

#include <gmock/gmock.h>

#include "client/clamp_control_if.h"
#include "testing/captured_log.h"
#include "testing/event_recorder.h"
#include "vehicle/vehicle_services.h"

namespace vintrel {

using ::testing::Contains;
using ::testing::ElementsAre;
using vehicle_test::VehicleServices;

class ClampControlTest : public ::testing::Test, public ClampControlCbIf {
protected:
    void ClampStateChangeCb(bool clamp15On) override { mStates.Add(clamp15On ? "on" : "off"); }

    testing_support::EventRecorder mStates;
    testing_support::CapturedLog mLog;
};

TEST_F(ClampControlTest, TheStateIsReportedAtOnceAtEachChangeAndAfterEachReconnection) {
    VehicleServices services;
    auto clampControl = ClampControlIf::Create(*this);
    EXPECT_TRUE(clampControl->Subscribe());
    services.Server().SetServiceAvailable("ClampControl", true);
    services.Server().SetClampState(false);
    services.Server().Start();
    EXPECT_THAT(mStates.Wait(1), ElementsAre("off"));
    services.Server().SetClampState(true);
    EXPECT_THAT(mStates.Wait(2), ElementsAre("off", "on"));
    services.Server().Stop();
    services.Server().Start();
    EXPECT_THAT(mStates.Wait(3), ElementsAre("off", "on", "on"));
    services.Server().SetServiceAvailable("ClampControl", false);
    services.Server().SetClampState(false);
    services.Server().SetServiceAvailable("ClampControl", true);
    EXPECT_THAT(mStates.Wait(4), ElementsAre("off", "on", "on", "off"));
    EXPECT_THAT(mLog.Lines(), Contains("I ClampControlWexaImpl: Subscribed to Clamp 15"));

    services.Server().SetClampState(std::nullopt);
    EXPECT_EQ(1U, services.Server().ClampSubscriptionCount());
    clampControl.reset();
    EXPECT_EQ(0U, services.Server().ClampSubscriptionCount());
    EXPECT_EQ(4U, mStates.Events().size()) << "an unknown state is not reported";
}

}  // namespace vintrel
