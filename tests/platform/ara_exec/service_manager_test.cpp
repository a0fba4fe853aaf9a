#include <cstdlib>
#include <stdexcept>

#include <gtest/gtest.h>

#include <ara/exec/application_client.h>
#include <ara/phm/health_channel.h>
#include <ara/phm/phm_client.h>
#include <ara/phm/supervision_entity.h>

#include "platform/ara_exec/notify_socket.h"

namespace {

using ara::exec::ApplicationState;

TEST(ServiceManagerTest, AHealthStatusIsTextForPeople) {
    const NotifySocket manager;
    ara::phm::HealthChannel(ara::phm::Phm_client("instance7")).ReportHealthStatus(4);
    EXPECT_EQ(manager.Receive(), "STATUS=instance7: health status 4");
}

TEST(ServiceManagerTest, TheWatchdogWaitsOnlyForWhoTakesUpSupervision) {
    const NotifySocket manager;
    ::setenv("WATCHDOG_USEC", "2500000", 1);
    EXPECT_FALSE(ara::exec::ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
    EXPECT_EQ(manager.Receive(), "READY=1\nWATCHDOG_USEC=0");
    const ara::phm::SupervisionEntity entity{ara::phm::Phm_client("instance7")};
    EXPECT_EQ(manager.Receive(), "WATCHDOG_USEC=2500000");
    entity.CheckpointReached(3, 4);
    EXPECT_EQ(manager.Receive().rfind("WATCHDOG_USEC=2500000\nWATCHDOG=1\n", 0), 0U);
    ::unsetenv("WATCHDOG_USEC");
}

TEST(ServiceManagerTest, ReportsSucceedWithoutAServiceManagerAndFailWithABrokenOne) {
    const ara::exec::ApplicationClient application;
    const ara::phm::SupervisionEntity entity{ara::phm::Phm_client("instance7")};

    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_FALSE(application.ReportApplicationState(ApplicationState::kRunning));
    EXPECT_NO_THROW(entity.CheckpointReached(1, 2));

    ::setenv("NOTIFY_SOCKET", "/nonexistent/notify", 1);
    EXPECT_TRUE(application.ReportApplicationState(ApplicationState::kRunning));
    EXPECT_THROW(entity.CheckpointReached(1, 2), std::runtime_error);
    ::unsetenv("NOTIFY_SOCKET");
}

}  // namespace
