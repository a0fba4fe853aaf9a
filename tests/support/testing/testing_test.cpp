#include <filesystem>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "logging/qel_logging.h"
#include "testing/captured_log.h"
#include "testing/event_recorder.h"
#include "testing/recorder_fsm.h"
#include "testing/temporary_directory.h"
#include "testing/virtual_time_dispatcher.h"

namespace {

using namespace std::chrono_literals;
using qel_logging::QELLogging;
using testing_support::CapturedLog;
using testing_support::RecorderFsm;
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

TEST(EventRecorderTest, GivesEachEventOnceAndAllOfThemAgain) {
    testing_support::EventRecorder events;
    std::thread other([&] {
        for (const char* const event : {"1", "2", "3"}) {
            events.Add(event);
        }
    });
    EXPECT_EQ(events.Next(), "1");
    EXPECT_EQ(events.Wait(3), (std::vector<std::string>{"1", "2", "3"}));
    other.join();
    EXPECT_EQ(events.Waiting(), 2U);
    EXPECT_EQ(events.Next(), "2");
    EXPECT_EQ(events.Events().size(), 3U);
}

TEST(GateTest, HoldsUntilItIsOpenedAndCounts) {
    testing_support::Gate there;
    testing_support::Gate back;
    std::thread other([&] {
        there.Pass();
        back.Open();
        back.Open();
    });
    EXPECT_EQ(back.Openings(), 0);
    there.Open();
    EXPECT_TRUE(back.Pass());
    other.join();
    EXPECT_EQ(back.Openings(), 2);
}

TEST(TemporaryDirectoryTest, GoesWithAllThatItHolds) {
    std::filesystem::path path;
    {
        const testing_support::TemporaryDirectory directory;
        path = directory.Path();
        std::filesystem::create_directory(path / "inner");
        const std::string bytes("x\0\n", 3);
        EXPECT_EQ(testing_support::ReadFile(directory.Write("inner/file", bytes)), bytes);
        EXPECT_EQ(directory.Read("missing"), "");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

class VirtualTimeDispatcherTest : public testing::Test {
protected:
    VirtualTimeDispatcherTest() {
        machine->onEvent = [this](int eventId, int) {
            events.emplace_back(eventId, dispatcher->GetCurrentTime() - start);
            if (eventId == 1) {
                machine->RaiseTimerEvent(2, 0, 50, nullptr);
            }
            if (eventId == 9) {
                dispatcher->ExitDispatching(true);
            }
        };
        machine->Start(dispatcher);
    }
    ~VirtualTimeDispatcherTest() override { machine->StopFsm(); }

    CapturedLog log;
    std::shared_ptr<VirtualTimeDispatcher> dispatcher =
        std::make_shared<VirtualTimeDispatcher>("Dispatcher");
    const fsm::EventQueue::TimePoint start = dispatcher->GetCurrentTime();
    std::shared_ptr<RecorderFsm> machine = std::make_shared<RecorderFsm>();
    std::vector<std::pair<int, fsm::EventQueue::TimePoint::duration>> events;
};

TEST_F(VirtualTimeDispatcherTest, EachEventComesAtItsOwnTime) {
    EXPECT_EQ(dispatcher->NextDelay(), std::nullopt);
    machine->RaiseTimerEvent(1, 0, 100, nullptr);
    machine->RaiseTimerEvent(3, 0, 3600000, nullptr);
    EXPECT_EQ(dispatcher->NextDelay(), 100ms);
    EXPECT_TRUE(dispatcher->RunPending());
    EXPECT_TRUE(events.empty()) << "the clock stands still by itself";

    dispatcher->AdvanceBy(1h);
    const decltype(events) expected{{1, 100ms}, {2, 150ms}, {3, 3600000ms}};
    EXPECT_EQ(events, expected);
}

TEST_F(VirtualTimeDispatcherTest, EventsOfOtherThreadsAreWaitedFor) {
    std::thread other([this] { machine->RaiseAsyncEvent(7, 0, nullptr); });
    EXPECT_TRUE(dispatcher->RunUntil([this] { return !events.empty(); }));
    other.join();
    EXPECT_FALSE(dispatcher->RunUntil([] { return false; }, 0ms)) << "the hang guard";
}

TEST_F(VirtualTimeDispatcherTest, AfterTheExitNothingIsDelivered) {
    machine->RaiseEvent(9, 0, nullptr);
    EXPECT_FALSE(dispatcher->RunPending());
    machine->RaiseEvent(4, 0, nullptr);
    EXPECT_FALSE(dispatcher->RunPending());
    EXPECT_EQ(events.size(), 1U);
}

}  // namespace
