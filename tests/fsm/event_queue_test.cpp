#include "fsm/event_queue.h"

#include <climits>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "testing/captured_log.h"
#include "testing/recorder_fsm.h"

namespace {

using namespace std::chrono_literals;
using testing_support::RecorderFsm;

class QueueOnTestClock : public fsm::EventQueue {
public:
    QueueOnTestClock() : EventQueue("Queue") {}
    TimePoint GetCurrentTime() const override { return now; }
    TimePoint now{1h};
};

class EventQueueTest : public testing::Test {
protected:
    void Raise(int eventId, int eventInfo = 0) {
        queue.RaiseEvent(nullptr, machine, eventId, eventInfo, nullptr);
    }
    void RaiseTimer(int eventId, int msec) {
        queue.RaiseTimerEvent(nullptr, machine, eventId, 0, nullptr, msec);
    }
    bool Pop(int& eventId) {
        int eventInfo = 0;
        std::shared_ptr<fsm::Fsm> fsm;
        std::unique_ptr<fsm::FsmEventData> data;
        return queue.PopNextEvent(fsm, eventId, eventInfo, data);
    }
    std::vector<int> PopAll() {
        std::vector<int> ids;
        for (int id = 0; Pop(id);) {
            ids.push_back(id);
        }
        return ids;
    }

    testing_support::CapturedLog log;
    std::shared_ptr<RecorderFsm> machine = std::make_shared<RecorderFsm>();
    QueueOnTestClock queue;
};

TEST_F(EventQueueTest, EventsComeByDueTimeAndTiesInTheOrderOfRaising) {
    RaiseTimer(1, 10);
    Raise(2);
    RaiseTimer(3, 0);
    Raise(4);
    RaiseTimer(5, -5);
    RaiseTimer(6, 10);
    RaiseTimer(7, -5);
    EXPECT_EQ(PopAll(), (std::vector<int>{5, 7, 2, 3, 4}));
    queue.now += 10ms;
    Raise(8);
    EXPECT_EQ(PopAll(), (std::vector<int>{1, 6, 8}));
}

TEST_F(EventQueueTest, AnEventIsDueWhenLessThanAMillisecondRemains) {
    EXPECT_EQ(queue.NextTimeoutMillisec(), -1);
    RaiseTimer(1, 3);
    queue.now += 1ns;
    EXPECT_EQ(queue.NextTimeoutMillisec(), 2) << "truncated, not rounded";
    queue.now += 2ms - 1ns;
    EXPECT_EQ(queue.NextTimeoutMillisec(), 1);
    EXPECT_EQ(PopAll(), std::vector<int>{});
    queue.now += 1ns;
    EXPECT_EQ(queue.NextTimeoutMillisec(), 0);
    EXPECT_EQ(PopAll(), std::vector<int>{1});

    RaiseTimer(2, -100000);
    EXPECT_EQ(queue.NextTimeoutMillisec(), 0);
    EXPECT_EQ(PopAll(), std::vector<int>{2});
    RaiseTimer(3, INT_MAX);
    EXPECT_EQ(queue.NextTimeoutMillisec(), INT_MAX);
}

TEST_F(EventQueueTest, ClearRemovesTheEarliestMatchOrAll) {
    const auto other = std::make_shared<RecorderFsm>("Other");
    RaiseTimer(1, 20);
    Raise(1, 5);
    Raise(1, 6);
    Raise(2);
    queue.RaiseEvent(nullptr, other, 1, 5, nullptr);
    EXPECT_TRUE(queue.EventQueueModified());
    EXPECT_FALSE(queue.EventQueueModified());

    EXPECT_FALSE(queue.ClearEvent(machine, 3, true));
    EXPECT_FALSE(queue.ClearEvent(machine, 1, 7, true));
    EXPECT_FALSE(queue.EventQueueModified()) << "nothing was removed";
    EXPECT_TRUE(queue.ClearEvent(machine, 1, 6, false));
    EXPECT_TRUE(queue.EventQueueModified());
    EXPECT_TRUE(queue.ClearEvent(machine, 1, false));
    queue.now += 20ms;
    EXPECT_EQ(PopAll(), (std::vector<int>{2, 1, 1})) << "the other machine's and the timer";

    Raise(1);
    RaiseTimer(1, 5);
    EXPECT_TRUE(queue.ClearEvent(machine, 1, true));
    EXPECT_EQ(queue.NextTimeoutMillisec(), -1);
    EXPECT_EQ(machine.use_count(), 1) << "what is removed lets go of its machine";
}

TEST_F(EventQueueTest, ADestroyedPayloadMayComeBackToTheQueue) {
    for (int i = 0; i < 2; ++i) {
        auto data = std::make_unique<testing_support::TracedData>([this] {
            Raise(9);
            queue.ClearEvent(machine, 2, true);
        });
        queue.RaiseEvent(nullptr, machine, 1, 0, std::move(data));
        Raise(2);
    }
    EXPECT_TRUE(queue.ClearEvent(machine, 1, true));
    EXPECT_EQ(PopAll(), (std::vector<int>{9, 9}));
}

TEST_F(EventQueueTest, RaisesAreLoggedAndOneWithoutReceiverIsRefused) {
    queue.RaiseEvent(nullptr, machine, 1, 2, nullptr);
    queue.RaiseTimerEvent(machine, machine, 3, 4, nullptr, -5);
    const std::vector<std::string> expected{
        "Queue EVENT raised NOFSM -> Recorder, eventId 1 eventInfo 2",
        "Queue EVENT raised Recorder -> Recorder, eventId 3 eventInfo 4 msec -5"};
    EXPECT_EQ(log.Lines('V'), expected);

    queue.RaiseEvent(machine, nullptr, 1, 0, nullptr);
    EXPECT_TRUE(log.Contains("F Queue RaiseEvent: no receiver"));
    EXPECT_EQ(PopAll(), (std::vector<int>{3, 1}));
}

}  // namespace
