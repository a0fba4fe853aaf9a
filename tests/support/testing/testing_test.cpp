#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "fsm/fsm.h"
#include "logging/qel_logging.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"
#include "testing/virtual_time_dispatcher.h"

namespace {

using namespace std::chrono_literals;
using qel_logging::QELLogging;
using testing_support::CapturedLog;
using testing_support::TemporaryDirectory;
using testing_support::VirtualTimeDispatcher;

TEST(CapturedLogTest, HoldsTheLinesOfAllThreadsAndLevels) {
    CapturedLog log;
    QELLogging::LogVerbose("first line");
    std::thread other([] { QELLogging::LogFatal("second line"); });
    EXPECT_TRUE(log.WaitFor("second line"));
    other.join();

    EXPECT_TRUE(log.Contains("V first line"));
    EXPECT_FALSE(log.Contains("V second line"));
    EXPECT_FALSE(log.Contains("F second")) << "a part is not the line";
    EXPECT_EQ(log.Count(" line"), 2U);
    EXPECT_FALSE(log.WaitFor(" line", 3, 0ms));

    log.Clear();
    EXPECT_TRUE(log.Lines().empty());
}

TEST(TemporaryDirectoryTest, GoesWithAllThatItHolds) {
    std::filesystem::path path;
    {
        const TemporaryDirectory directory;
        path = directory.Path();
        std::filesystem::create_directory(path / "inner");
        std::ofstream(directory.File("inner/file")) << "x";
        EXPECT_TRUE(std::filesystem::exists(path / "inner/file"));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

/// Notes when its events come, and raises a follow-up timer on event 1.
class Clock : public fsm::Fsm {
public:
    Clock() : Fsm("Clock") {}

    void Start(const std::shared_ptr<VirtualTimeDispatcher>& dispatcher) {
        mStart = dispatcher->GetCurrentTime();
        SetupFsm(dispatcher, nullptr, 0);
        SetFsmState(&Clock::FsmStateRunning, "FsmStateRunning");
    }

    std::vector<std::pair<int, std::chrono::milliseconds>> events;

protected:
    void OnTerminate() override {}

private:
    void FsmStateRunning(int eventId, int) {
        const auto elapsed = GetDispatcher()->GetCurrentTime() - mStart;
        events.emplace_back(eventId,
                            std::chrono::duration_cast<std::chrono::milliseconds>(elapsed));
        if (eventId == 1) {
            RaiseTimerEvent(2, 0, 50, nullptr);
        }
        if (eventId == 9) {
            GetDispatcher()->ExitDispatching(true);
        }
    }

    fsm::EventQueue::TimePoint mStart;
};

class VirtualTimeDispatcherTest : public testing::Test {
protected:
    VirtualTimeDispatcherTest() { clock->Start(dispatcher); }
    ~VirtualTimeDispatcherTest() override { clock->StopFsm(); }

    CapturedLog log;
    std::shared_ptr<VirtualTimeDispatcher> dispatcher =
        std::make_shared<VirtualTimeDispatcher>("Dispatcher");
    std::shared_ptr<Clock> clock = std::make_shared<Clock>();
};

TEST_F(VirtualTimeDispatcherTest, EachEventComesAtItsOwnTime) {
    EXPECT_EQ(dispatcher->NextDelay(), std::nullopt);
    clock->RaiseTimerEvent(1, 0, 100, nullptr);
    clock->RaiseTimerEvent(3, 0, 3600000, nullptr);
    EXPECT_EQ(dispatcher->NextDelay(), 100ms);
    EXPECT_TRUE(dispatcher->RunPending());
    EXPECT_TRUE(clock->events.empty()) << "the clock stands still by itself";

    dispatcher->AdvanceBy(1h);
    const decltype(clock->events) expected{{1, 100ms}, {2, 150ms}, {3, 3600000ms}};
    EXPECT_EQ(clock->events, expected);
}

TEST_F(VirtualTimeDispatcherTest, EventsOfOtherThreadsAreWaitedFor) {
    std::thread other([this] { clock->RaiseAsyncEvent(7, 0, nullptr); });
    EXPECT_TRUE(dispatcher->RunUntil([this] { return !clock->events.empty(); }));
    other.join();
    EXPECT_FALSE(dispatcher->RunUntil([] { return false; }, 0ms)) << "the hang guard";
}

TEST_F(VirtualTimeDispatcherTest, AfterTheExitNothingIsDelivered) {
    clock->RaiseEvent(9, 0, nullptr);
    EXPECT_FALSE(dispatcher->RunPending());
    clock->RaiseEvent(4, 0, nullptr);
    EXPECT_FALSE(dispatcher->RunPending());
    EXPECT_EQ(clock->events.size(), 1U);
}

}  // namespace
