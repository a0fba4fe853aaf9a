#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "platform/ara_exec/notify_socket.h"
#include "process/process_lifecycle_adapter_api_impl.h"
#include "testing/captured_log.h"
#include "testing/environment.h"
#include "testing/stream.h"
#include "testing/temporary_directory.h"

namespace {

using process_lifecycle_adapter::ProcessLifecycleAdapterApiImpl;
using process_lifecycle_adapter::ProcessState;

constexpr const char* kClass = "ProcessLifecycleAdapterApiImpl::";

class MockStateCallback : public process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf {
public:
    MOCK_METHOD(void, ProcessLifecycleAdapterStateRequested, (ProcessState, unsigned int),
                (override));
};

class ProcessLifecycleAdapterApiTest : public ::testing::Test {
protected:
    void Configure(const std::string& content) const { mDirectory.Write("unit-phm.ini", content); }

    static std::string Config(const std::string& entity, const std::string& checkpoint,
                              const std::string& cycle, const std::string& indications) {
        return "instance-id = in stance\nunknown = 1\nsupervision-entity-id=" + entity +
               "\ncheckpoint-id=" + checkpoint + "\nsupervision-cycle=" + cycle +
               "\nexpected-alive-indications=" + indications + "\n";
    }

    NotifySocket mManager;
    testing_support::TemporaryDirectory mDirectory;
    testing_support::CapturedLog mLog;
    MockStateCallback mStateCallback;
    ProcessLifecycleAdapterApiImpl mApi{mDirectory.Path().string() + "/"};
};

TEST_F(ProcessLifecycleAdapterApiTest, AConfiguredComponentReportsItsLifeToThePlatform) {
    Configure(Config("65535", "0", "20", "3"));
    mApi.Initialize("unit");
    EXPECT_EQ(mApi.GetIAmAliveTime(), 6);
    mApi.IAmAlive();
    EXPECT_TRUE(mLog.Contains("E IAmAlive called, the mSupervisionEntity has not been created"));
    mApi.Start();
    mApi.IAmAlive();
    mApi.Terminating();

    EXPECT_EQ(mManager.Receive(), "READY=1");
    EXPECT_EQ(mManager.Receive(),
              "WATCHDOG=1\nX_PHM_INSTANCE=instance\nX_PHM_SUPERVISION_ENTITY=65535\n"
              "X_PHM_CHECKPOINT=0");
    EXPECT_EQ(mManager.Receive(), "STOPPING=1");
    EXPECT_TRUE(mLog.Contains("W Config path " + mDirectory.File("unit-phm.ini")));
    EXPECT_TRUE(mLog.Contains("D Create Phm_client instance"));
    EXPECT_TRUE(mLog.Contains("V " + std::string(kClass) +
                              "IAmAlive, call CheckpointReached, supervision "
                              "id=65535, checkpoint id=0"));
}

TEST_F(ProcessLifecycleAdapterApiTest, AFaultyConfigurationGivesItsWarningAndNoSupervision) {
    struct Row {
        std::string config;
        std::string warning;  ///< behind "Configuration parameter "; empty for none
    };
    const std::vector<Row> rows{
        {"checkpoint-id=1\n", "\"instance-id\" not found from INI file"},
        {Config("", "1", "2", "1"), "\"supervision-entity-id\" not found from INI file"},
        {Config("65536", "1", "2", "1"), "\"supervision-entity-id\" was invalid"},
        {Config("1", "", "2", "1"), "\"checkpoint-id\" not found from INI file"},
        {Config("1", "-1", "2", "1"), "\"checkpoint-id\" was invalid"},
        {Config("1", "1", "", "1"), "\"supervision-cycle\" not found from INI file"},
        {Config("1", "1", "70000", "1"), "\"supervision-cycle\" was invalid"},
        {Config("1", "1", "2", ""), "\"expected-alive-indications\" not found from INI file"},
        {Config("1", "1", "2", "-65535"), "\"expected-alive-indications\" was invalid"},
        {Config("1", "abc", "2", "1"), ""},
        {Config("1", "1", "2", "99999999999"), ""},
    };
    for (const Row& row : rows) {
        ProcessLifecycleAdapterApiImpl api(mDirectory.Path().string() + "/");
        mLog.Clear();
        Configure(row.config);
        api.Initialize("unit");
        EXPECT_EQ(api.GetIAmAliveTime(), 0) << row.config;
        EXPECT_EQ(mLog.Contains("W Configuration parameter " + row.warning + " for component unit"),
                  !row.warning.empty())
            << row.config;
        api.Start();
        EXPECT_TRUE(mLog.Contains(
            "E ProcessLifecycleAdapter::Reading application configuration failed for unit"));
    }
}

TEST_F(ProcessLifecycleAdapterApiTest, TheAliveTimeIsZeroUnlessTheCycleHoldsItsIndications) {
    for (const auto& [cycle, indications] :
         {std::pair{"0", "1"}, std::pair{"1", "0"}, std::pair{"2", "3"}}) {
        Configure(Config("1", "1", cycle, indications));
        mApi.Initialize("unit");
        EXPECT_EQ(mApi.GetIAmAliveTime(), 0) << cycle << "/" << indications;
    }
}

TEST_F(ProcessLifecycleAdapterApiTest, ABrokenServiceManagerIsLoggedAndSurvived) {
    Configure(Config("1", "1", "2", "1"));
    const testing_support::EnvironmentVariable variable("NOTIFY_SOCKET", "/nonexistent/notify");
    mApi.Initialize("unit");
    mApi.Start();
    mApi.IAmAlive();
    EXPECT_TRUE(mLog.Contains("E ReportApplicationState to kRunning failed."));
    EXPECT_TRUE(mLog.Contains("D " + std::string(kClass) +
                              "IAmAlive, CheckpointReached exception: cannot report the "
                              "checkpoint: No such file or directory"));
}

TEST_F(ProcessLifecycleAdapterApiTest, StateRequestsReachTheApplicationAndItsAnswerTheManager) {
    const testing_support::EnvironmentVariable variable("ARA_STM_DIR", mDirectory.Path());
    // Confirming from within the request is what an application does that has nothing to prepare.
    EXPECT_CALL(mStateCallback, ProcessLifecycleAdapterStateRequested)
        .Times(2)
        .WillRepeatedly([this](ProcessState state, unsigned int sequence) {
            mApi.StateChanged(state, sequence);
        });
    mApi.Initialize("unit", &mStateCallback);
    const auto manager = testing_support::Stream::ToPath(mDirectory.File("unit.sock"));
    manager.Send("REQUEST 3 kOff\nREQUEST 4 kPrepSD\nREQUEST 5 kOn\n");
    EXPECT_EQ(manager.ReadLine(), "STATE 4 kPrepSD 0");
    EXPECT_EQ(manager.ReadLine(), "STATE 5 kOn 0");
    EXPECT_TRUE(mLog.Contains("E " + std::string(kClass) +
                              "StateChangeRequested, Invalid state requested: kOff"));
    EXPECT_TRUE(
        mLog.Contains("I " + std::string(kClass) + "StateChangeRequested new state: kPrepSD"));
    EXPECT_TRUE(mLog.Contains("I " + std::string(kClass) + "StateChanged: 2 seq: 4"));
}

TEST_F(ProcessLifecycleAdapterApiTest, AConfirmationNeedsAKnownStateAndAComponentClient) {
    mApi.StateChanged(static_cast<ProcessState>(3), 1);
    EXPECT_TRUE(mLog.Contains("E " + std::string(kClass) + "StateChanged: Invalid state: 3"));
    mApi.StateChanged(ProcessState::kOn, 1);
    EXPECT_TRUE(mLog.Contains("E " + std::string(kClass) +
                              "StateChanged: Component Client uninitialized, "
                              "cannot notify new state"));
    const testing_support::EnvironmentVariable variable("ARA_STM_DIR", mDirectory.Path());
    mApi.Initialize("sub/unit", &mStateCallback);
    EXPECT_TRUE(mLog.Contains("E " + std::string(kClass) +
                              "Initialize could not create ComponentClient: "
                              "'sub/unit' is no component name"));
}

}  // namespace
