#include "fsm/async_event_queue.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ara_log_host/sink.h>

#include "testing/captured_log.h"
#include "testing/recorder_fsm.h"
#include "testing/virtual_time_dispatcher.h"

namespace {

bool gPipesFail = false;

using testing_support::CapturedLog;
using testing_support::Gate;
using testing_support::RecorderFsm;
using testing_support::TracedData;
using testing_support::VirtualTimeDispatcher;
using Events = std::vector<RecorderFsm::Event>;

/// In the order in which the next calls get them.
std::array<int, 2> LowestFreeDescriptors() {
    const int first = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int second = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(first);
    close(second);
    return {first, second};
}

int LowestFreeDescriptor() {
    return LowestFreeDescriptors()[0];
}

class AsyncEventQueueTest : public testing::Test {
protected:
    AsyncEventQueueTest() { machine->Start(dispatcher); }

    /// Raises as many events as the pipe takes.
    std::size_t FillPipe() {
        const int capacity = fcntl(writeEnd, F_SETPIPE_SZ, 4096);
        EXPECT_GT(capacity, 0);
        for (int i = 0; i < capacity; ++i) {
            machine->RaiseAsyncEvent(1, i, nullptr);
        }
        return static_cast<std::size_t>(capacity);
    }

    CapturedLog log;
    /// The first machine makes the queue, whose pipe gets the lowest free descriptors.
    const std::array<int, 2> ends = LowestFreeDescriptors();
    const int readEnd = ends[0];
    const int writeEnd = ends[1];
    std::shared_ptr<VirtualTimeDispatcher> dispatcher =
        std::make_shared<VirtualTimeDispatcher>("D", true);
    std::shared_ptr<RecorderFsm> machine = std::make_shared<RecorderFsm>();
};

TEST_F(AsyncEventQueueTest, EventsComeInOrderOneInEachRound) {
    std::thread other([this] {
        for (int i = 0; i < 3; ++i) {
            machine->RaiseAsyncEvent(1, i, nullptr);
        }
    });
    other.join();
    dispatcher->DispatchStep();
    EXPECT_EQ(machine->events, (Events{{1, 0}}));
    dispatcher->RunPending();
    EXPECT_EQ(machine->events, (Events{{1, 0}, {1, 1}, {1, 2}}));
    EXPECT_TRUE(log.Contains(
        "V D/AsyncEventQueue EVENT async dispatch #2 -> Recorder, eventId 1 eventInfo 2"));
    const auto lines = log.Lines('V');
    const std::string start = "D/AsyncEventQueue EVENT async raised #0 by 0x";
    ASSERT_EQ(lines.at(0).substr(0, start.size()), start);
    EXPECT_EQ(lines.at(0).substr(start.size() + 16), " -> Recorder, eventId 1 eventInfo 0");
    EXPECT_NE(fcntl(readEnd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(writeEnd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(AsyncEventQueueTest, AStateMethodMayRaiseAndAskForTheExit) {
    machine->onEvent = [this](int eventId, int) {
        if (eventId == 1) {
            machine->RaiseAsyncEvent(machine, 2, 0, nullptr);
        } else {
            dispatcher->ExitDispatching(true);
        }
    };
    machine->RaiseAsyncEvent(1, 0, nullptr);
    machine->RaiseAsyncEvent(nullptr, 3, 0, nullptr);
    EXPECT_TRUE(dispatcher->DispatchEvents());
    EXPECT_EQ(machine->events.size(), 2U);

    log.Clear();
    machine->RaiseAsyncEvent(4, 0, nullptr);
    EXPECT_TRUE(log.Contains("F RecorderGetAsyncEventQueue: No AsyncEventQueue"));
}

TEST_F(AsyncEventQueueTest, AFullPipeLosesTheEventAndNothingElse) {
    const std::size_t capacity = FillPipe();
    EXPECT_TRUE(log.Lines('E').empty());
    bool destroyed = false;
    machine->RaiseAsyncEvent(2, 0, std::make_unique<TracedData>([&] {
                                 // A destructor may come back: no lock is held.
                                 destroyed = !machine->ClearAsyncEvents(2);
                             }));
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(
        log.Lines('E'),
        (std::vector<std::string>{"D/AsyncEventQueue RaiseAsyncEvent error writing pipe: -1"}));
    dispatcher->RunPending();
    EXPECT_EQ(machine->events.size(), capacity);
}

TEST_F(AsyncEventQueueTest, ASlowLogOfALostEventHoldsNobodyUp) {
    const std::size_t capacity = FillPipe();
    // The line about the lost event is held up until the dispatcher's thread has gone on.
    Gate lineReached;
    Gate dispatched;
    const auto holdUp = [&](ara::log::LogLevel, const std::string&) {
        lineReached.Open();
        dispatched.Pass();
    };
    auto previous = ara_log_host::ExchangeSink({holdUp, ara::log::LogLevel::kError});
    std::thread other([this] { machine->RaiseAsyncEvent(2, 0, nullptr); });
    lineReached.Pass();
    dispatcher->RunPending();
    machine->RaiseAsyncEvent(3, 0, nullptr);
    EXPECT_TRUE(machine->ClearAsyncEvents(3));
    dispatched.Open();
    other.join();
    ara_log_host::ExchangeSink(std::move(previous));
    EXPECT_EQ(machine->events.size(), capacity);
}

TEST_F(AsyncEventQueueTest, MachinesMayEndWhileAnEventIsUnderWay) {
    const std::weak_ptr<RecorderFsm> alive = machine;
    machine->RaiseAsyncEvent(1, 0, nullptr);
    machine->RaiseAsyncEvent(2, 0, nullptr);
    machine->onEvent = [&](int, int) {
        machine->StopFsm();
        machine.reset();
        EXPECT_FALSE(alive.expired());
    };
    dispatcher->RunPending();
    EXPECT_TRUE(alive.expired());
    EXPECT_TRUE(
        log.Contains("W Recorder: no event expected in state FsmStateTerminated, eventId: 2, "
                     "eventInfo: 0"));
}

TEST_F(AsyncEventQueueTest, ClearingTakesAsManyBytesAsEvents) {
    const auto other = std::make_shared<RecorderFsm>("Other");
    other->Start(dispatcher);
    for (const int id : {1, 2, 1}) {
        machine->RaiseAsyncEvent(id, 0, nullptr);
        other->RaiseAsyncEvent(id, 0, nullptr);
    }
    EXPECT_FALSE(machine->ClearAsyncEvents(3));
    EXPECT_TRUE(machine->ClearAsyncEvents(1));
    const auto isOthersFirst = [&](const std::shared_ptr<fsm::Fsm>& fsm, int id, int) {
        return fsm == other && id == 1;
    };
    EXPECT_TRUE(machine->GetAsyncEventQueue()->ClearAsyncEvent(isOthersFirst, false));
    dispatcher->RunPending();
    EXPECT_EQ(machine->events, (Events{{2, 0}}));
    EXPECT_EQ(other->events, (Events{{2, 0}, {1, 0}}));
    machine->RaiseAsyncEvent(
        5, 0, std::make_unique<TracedData>([&] { machine->RaiseAsyncEvent(6, 0, nullptr); }));
    machine->RaiseAsyncEvent(5, 1, nullptr);
    EXPECT_TRUE(machine->ClearAsyncEvents());
    dispatcher->RunPending();
    EXPECT_EQ(machine->events, (Events{{2, 0}, {6, 0}})) << "a destructor may raise";
    EXPECT_FALSE(machine->ClearAsyncEvents());
    EXPECT_TRUE(log.Lines('E').empty()) << "no byte is left over";
}

TEST_F(AsyncEventQueueTest, StrangeBytesInThePipeAreReported) {
    const unsigned char strange = 7;
    const unsigned char event = 0;
    ASSERT_EQ(write(writeEnd, &strange, 1), 1);
    machine->RaiseAsyncEvent(1, 0, nullptr);
    EXPECT_TRUE(machine->ClearAsyncEvents()) << "the strange byte is put back as one of the reads";
    ASSERT_EQ(write(writeEnd, &event, 1), 1);
    dispatcher->RunPending();
    const std::string prefix = "D/AsyncEventQueue StateDispatchEvents reading pipe, ";
    EXPECT_EQ(log.Lines('E'),
              (std::vector<std::string>{prefix + "but no event", prefix + "unknown command: 7",
                                        prefix + "but no event"}));
}

TEST_F(AsyncEventQueueTest, AfterTheStopRaisingFailsAndNothingIsDelivered) {
    const auto queue = machine->GetAsyncEventQueue();
    machine->RaiseAsyncEvent(1, 0, nullptr);
    queue->Stop();
    queue->RaiseAsyncEvent(machine, 2, 0, nullptr);
    EXPECT_EQ(
        log.Lines('E'),
        (std::vector<std::string>{"D/AsyncEventQueue RaiseAsyncEvent error writing pipe: -1"}));
    dispatcher->RunPending();
    EXPECT_TRUE(machine->events.empty());
    EXPECT_EQ(LowestFreeDescriptor(), readEnd) << "the pipe is closed";
}

TEST_F(AsyncEventQueueTest, WithoutAStopThePipeIsClosedAllTheSame) {
    machine->RaiseAsyncEvent(1, 0, nullptr);
    const std::weak_ptr<RecorderFsm> alive = machine;
    machine.reset();
    dispatcher.reset();
    EXPECT_EQ(LowestFreeDescriptor(), readEnd);
    EXPECT_TRUE(log.Contains("D D/AsyncEventQueue: ~AsyncEventQueue"));
    EXPECT_TRUE(alive.expired());
}

TEST(AsyncEventQueueWithoutPipeTest, StaysShutAndClosesNothing) {
    const CapturedLog log;
    const auto dispatcher = std::make_shared<VirtualTimeDispatcher>("D");
    const auto machine = std::make_shared<RecorderFsm>();
    gPipesFail = true;
    machine->Start(dispatcher);
    gPipesFail = false;

    EXPECT_TRUE(log.Contains("I D/AsyncEventQueue: State transition to FsmStateTerminated"));
    EXPECT_TRUE(log.Lines('E').empty());
    machine->RaiseAsyncEvent(1, 0, nullptr);
    EXPECT_TRUE(log.Contains("E D/AsyncEventQueue RaiseAsyncEvent error writing pipe: -1"));
    machine->StopFsm();
    EXPECT_GE(fcntl(STDIN_FILENO, F_GETFD), 0) << "what was never opened is never closed";
}

TEST(AsyncEventQueueWithoutPipeTest, NeedsADispatcher) {
    const CapturedLog log;
    EXPECT_FALSE(std::make_shared<fsm::AsyncEventQueue>("Q")->Initialize(nullptr));
    EXPECT_TRUE(log.Contains("F QSetupFsm: No EventDispatcher"));
}

/// Foreign threads raise and clear all the time, while machine and dispatcher come and go.
TEST(AsyncDoorTest, EveryMomentOfALifeStandsForeignThreads) {
    constexpr int kRounds = 21;
    const CapturedLog log;
    const auto home = std::this_thread::get_id();
    for (int round = 0; round < kRounds; ++round) {
        bool destroyedAtHome = false;
        std::atomic<bool> stop{false};
        std::atomic<int> raised{0};
        std::weak_ptr<RecorderFsm> alive;
        {
            auto unowned = std::make_unique<RecorderFsm>();
            unowned->onDestroy = [&] { destroyedAtHome = std::this_thread::get_id() == home; };
            RecorderFsm* const seen = unowned.get();
            const auto hammer = [&stop, &raised, seen] {
                while (!stop) {
                    seen->RaiseAsyncEvent(1, 0, std::make_unique<fsm::FsmEventData>());
                    seen->ClearAsyncEvents(2);
                    ++raised;
                }
            };
            std::thread one(hammer);
            std::thread two(hammer);
            const auto waitForRaises = [&raised] {
                EXPECT_TRUE(testing_support::WaitUntil(
                    [&, start = raised.load()] { return raised >= start + 4; }));
            };
            auto dispatcher = std::make_shared<VirtualTimeDispatcher>("D");
            waitForRaises();
            const std::shared_ptr<RecorderFsm> machine = std::move(unowned);
            alive = machine;
            waitForRaises();
            machine->Start(dispatcher);
            // One round at a time: the queue never runs dry as long as the others raise.
            while (machine->events.empty()) {
                dispatcher->DispatchStep();
            }
            if (round % 3 == 0) {
                machine->StopFsm();
            } else if (round % 3 == 1) {
                dispatcher->TerminateDispatching();
            }
            waitForRaises();
            dispatcher.reset();
            waitForRaises();
            stop = true;
            one.join();
            two.join();
        }
        EXPECT_TRUE(alive.expired());
        EXPECT_TRUE(destroyedAtHome);
    }
    EXPECT_GT(log.Count("RecorderGetAsyncEventQueue: No EventDispatcher"), 0U);
}

}  // namespace

/// Stands before the C library's: a process that has run out of descriptors, as far as we see.
extern "C" int pipe2(int* ends, int flags) noexcept {
    if (gPipesFail) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_pipe2, ends, flags));
}
