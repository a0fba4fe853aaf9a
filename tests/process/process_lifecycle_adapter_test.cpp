#include "process/process_lifecycle_adapter.h"

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <signal.h>

#include "process/process_lifecycle_adapter_impl.h"
#include "testing/captured_log.h"
#include "testing/waiting.h"

namespace {

using process_lifecycle_adapter::ProcessLifecycleAdapterImpl;
using process_lifecycle_adapter::ProcessState;
using testing::An;
using testing::InSequence;
using testing::NiceMock;
using testing::Return;

constexpr unsigned short kEndless = 65535;  ///< almost two hours

class MockApi : public process_lifecycle_adapter::ProcessLifecycleAdapterApiIf {
public:
    MOCK_METHOD(void, Initialize, (const std::string&), (override));
    MOCK_METHOD(void, Initialize,
                (const std::string&,
                 process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf*),
                (override));
    MOCK_METHOD(void, Start, (), (override));
    MOCK_METHOD(unsigned short, GetIAmAliveTime, (), (override));
    MOCK_METHOD(void, IAmAlive, (), (override));
    MOCK_METHOD(void, Terminating, (), (override));
    MOCK_METHOD(void, StateChanged, (ProcessState, unsigned int), (override));
    MOCK_METHOD(void, StateChanged, (bool), (override));
};

class MockApplication : public process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf {
public:
    MOCK_METHOD(void, ProcessLifecycleAdapterTerminate, (), (override));
    MOCK_METHOD(int, ProcessLifecycleAdapterGetHealthStatus, (), (override));
};

class ProcessLifecycleAdapterTest : public ::testing::Test {
protected:
    ProcessLifecycleAdapterTest() {
        ON_CALL(*mApi, GetIAmAliveTime()).WillByDefault(Return(kEndless));
        mAdapter = std::make_unique<ProcessLifecycleAdapterImpl>(
            nullptr, [this] { return std::move(mOwnedApi); });
    }

    std::unique_ptr<NiceMock<MockApi>> mOwnedApi = std::make_unique<NiceMock<MockApi>>();
    MockApi* mApi = mOwnedApi.get();
    testing_support::CapturedLog mLog;
    NiceMock<MockApplication> mApplication;
    testing_support::Gate mDone;
    std::unique_ptr<ProcessLifecycleAdapterImpl> mAdapter;
};

TEST_F(ProcessLifecycleAdapterTest, AHealthyApplicationIsReportedAliveUntilItIsNot) {
    const InSequence sequence;
    EXPECT_CALL(*mApi, Initialize("unit"));
    EXPECT_CALL(*mApi, GetIAmAliveTime()).WillOnce(Return(static_cast<unsigned short>(1)));
    EXPECT_CALL(*mApi, Start());
    EXPECT_CALL(mApplication, ProcessLifecycleAdapterGetHealthStatus()).WillOnce(Return(0));
    EXPECT_CALL(*mApi, IAmAlive());
    EXPECT_CALL(mApplication, ProcessLifecycleAdapterGetHealthStatus()).WillOnce([this] {
        mDone.Open();
        return 1;
    });
    mAdapter->Initialize("unit", &mApplication);
    mDone.Pass();
    EXPECT_TRUE(mLog.Contains("D ProcessKeepAliveSignalling, aliveTime =1"));
    EXPECT_EQ(mLog.Count("ProcessKeepAliveSignalling, call IAmAlive()"), 1U);
}

TEST_F(ProcessLifecycleAdapterTest, ASigtermRightBeforeTheEndTellsThePlatformAndTheApplication) {
    const InSequence sequence;
    EXPECT_CALL(*mApi, GetIAmAliveTime()).WillOnce(Return(static_cast<unsigned short>(0)));
    EXPECT_CALL(*mApi, Start()).Times(0);
    EXPECT_CALL(*mApi, Terminating());
    EXPECT_CALL(mApplication, ProcessLifecycleAdapterTerminate());
    mAdapter->Initialize("unit", &mApplication);
    ::raise(SIGTERM);
    mAdapter.reset();
}

TEST_F(ProcessLifecycleAdapterTest, ASecondTerminationOnlyLogs) {
    EXPECT_CALL(*mApi, Terminating()).Times(1);
    EXPECT_CALL(mApplication, ProcessLifecycleAdapterTerminate()).Times(1);
    mAdapter->Initialize("unit", &mApplication);
    mAdapter->Terminate();
    mAdapter->Terminate();
    EXPECT_EQ(mLog.Count("ProcessLifecycleAdapterImpl::Terminate"), 2U);
}

TEST_F(ProcessLifecycleAdapterTest, TheReportToThePlatformCanBeSwitchedOff) {
    EXPECT_CALL(*mApi, Terminating()).Times(0);
    EXPECT_CALL(mApplication, ProcessLifecycleAdapterTerminate());
    mAdapter->Configure({false});
    mAdapter->Initialize("unit", &mApplication);
    mAdapter->Terminate();
}

TEST_F(ProcessLifecycleAdapterTest, TerminationDuringTheWaitEndsTheKeepAliveThreadAtOnce) {
    EXPECT_CALL(*mApi, IAmAlive()).WillOnce([this] { mDone.Open(); });
    mAdapter->Initialize("unit", &mApplication);
    mDone.Pass();
    mAdapter->Terminate();
    mAdapter.reset();
}

TEST_F(ProcessLifecycleAdapterTest, AnotherInitializeEndsTheThreadOfTheFirst) {
    testing_support::Gate second;
    EXPECT_CALL(*mApi, Start()).Times(2);
    EXPECT_CALL(*mApi, IAmAlive()).WillOnce([this] { mDone.Open(); }).WillOnce([&] {
        second.Open();
    });
    mAdapter->Initialize("unit", &mApplication);
    mDone.Pass();
    mAdapter->Initialize("unit", nullptr);
    second.Pass();
}

TEST_F(ProcessLifecycleAdapterTest, SigtermBeforeInitializeIsAWarning) {
    mAdapter->Terminate();
    EXPECT_TRUE(mLog.Contains("W Cannot notify Terminating, adapter not instantiated"));
    EXPECT_NO_THROW(mAdapter->StateChanged(ProcessState::kOn, 1));
}

TEST_F(ProcessLifecycleAdapterTest, WithoutAnApplicationThereIsNoIndication) {
    EXPECT_CALL(
        *mApi, Initialize("unit",
                          An<process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf*>()))
        .Times(0);
    EXPECT_CALL(*mApi, Start()).WillOnce([this] { mDone.Open(); });
    EXPECT_CALL(*mApi, IAmAlive()).Times(0);
    EXPECT_CALL(*mApi, StateChanged(ProcessState::kPrepSD, 9U));
    mAdapter->NotifyInit("unit", nullptr);
    mDone.Pass();
    mAdapter->StateChanged(ProcessState::kPrepSD, 9);
}

TEST(ProcessLifecycleAdapterHandleTest, TheRealAdapterTellsWhomItWasMadeFor) {
    const testing_support::CapturedLog log;
    NiceMock<MockApplication> application;
    EXPECT_CALL(application, ProcessLifecycleAdapterTerminate());
    {
        process_lifecycle_adapter::ProcessLifecycleAdapter adapter(&application);
        adapter.Initialize("component-without-a-file", nullptr);
        ::raise(SIGTERM);
    }
    EXPECT_TRUE(log.Contains("W Config path /etc/component-without-a-file-phm.ini"));
    EXPECT_TRUE(
        log.Contains("D ProcessLifecycleAdapterApiImpl::Terminating, "
                     "ReportApplicationState kTerminating"));
}

}  // namespace
