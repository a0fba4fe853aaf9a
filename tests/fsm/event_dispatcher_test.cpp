#include "fsm/event_dispatcher.h"

#include <array>
#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <posix/unique_fd.h>

#include "testing/captured_log.h"
#include "testing/recorder_fsm.h"
#include "testing/virtual_time_dispatcher.h"

/// The timeouts that poll(2) was called with.
static std::vector<int>& PollTimeouts() {
    static std::vector<int> timeouts;
    return timeouts;
}

// With --wrap=poll the linker binds calls of poll(2) to the second, and the first to poll(2).
extern "C" int RealPoll(pollfd* pollFds, nfds_t count, int timeoutMillisec) __asm__("__real_poll");
extern "C" int NotedPoll(pollfd* pollFds, nfds_t count, int timeoutMillisec) __asm__("__wrap_poll");

extern "C" int NotedPoll(pollfd* pollFds, nfds_t count, int timeoutMillisec) {
    PollTimeouts().push_back(timeoutMillisec);
    return RealPoll(pollFds, count, timeoutMillisec);
}

namespace {

using fsm::EventDispatcher;
using posix::UniqueFd;
using testing_support::RecorderFsm;
using testing_support::TracedData;
using Events = std::vector<RecorderFsm::Event>;

/// A pipe with one byte in it: its read end is ready.
class ReadyPipe {
public:
    ReadyPipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        mReader = UniqueFd(ends[0]);
        mWriter = UniqueFd(ends[1]);
        EXPECT_EQ(write(ends[1], "x", 1), 1);
    }

    int Reader() const { return mReader.Get(); }
    void Drain() const {
        char byte = 0;
        EXPECT_EQ(read(Reader(), &byte, 1), 1);
    }
    void CloseWriter() { mWriter = UniqueFd(); }

private:
    UniqueFd mReader;
    UniqueFd mWriter;
};

class FailingDispatcher : public EventDispatcher {
public:
    using EventDispatcher::EventDispatcher;
    int fails = 0;

protected:
    int Poll(std::vector<pollfd>& pollFds, int timeoutMillisec) override {
        if (fails-- > 0) {
            errno = EINTR;
            return -1;
        }
        return EventDispatcher::Poll(pollFds, timeoutMillisec);
    }
};

class EventDispatcherTest : public testing::Test {
protected:
    EventDispatcherTest() {
        first->Start(dispatcher);
        second->Start(dispatcher);
    }

    void Watch(const std::shared_ptr<RecorderFsm>& machine, int ioDescriptor, int eventId) {
        dispatcher->AddIoDescriptor(machine, ioDescriptor, eventId);
        machine->ConfigureIoDescriptor(ioDescriptor, EventDispatcher::kIoRead, true);
    }

    testing_support::CapturedLog log;
    ReadyPipe pipeA;
    ReadyPipe pipeB;
    std::shared_ptr<FailingDispatcher> dispatcher =
        std::make_shared<FailingDispatcher>("Disp", false);
    std::shared_ptr<RecorderFsm> first = std::make_shared<RecorderFsm>("First");
    std::shared_ptr<RecorderFsm> second = std::make_shared<RecorderFsm>("Second");
};

TEST_F(EventDispatcherTest, DescriptorsGoBeforeEventsAndBothAreLogged) {
    Watch(first, pipeA.Reader(), 10);
    Watch(first, pipeB.Reader(), 11);
    first->RaiseEvent(1, 2, nullptr);
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events, (Events{{10, 1}, {11, 1}, {1, 2}}));
    const std::vector<std::string> expected{
        "Disp EVENT raised First -> First, eventId 1 eventInfo 2",
        "Disp EVENT dispatch <IOEVENT> -> First, eventId 10 eventInfo POLLIN  (0x00000001)",
        "Disp EVENT dispatch <IOEVENT> -> First, eventId 11 eventInfo POLLIN  (0x00000001)",
        "Disp EVENT dispatch <EVENT QUEUE> -> First, eventId 1 eventInfo 2"};
    EXPECT_EQ(log.Lines('V'), expected);
}

TEST_F(EventDispatcherTest, AHandlerThatRaisesEndsTheStepAndOneThatDoesNotGoesOn) {
    first->onEvent = [this](int eventId, int) {
        if (eventId == 2) {
            first->RaiseEvent(5, 0, nullptr);
        }
    };
    for (const int id : {1, 2, 3, 4}) {
        first->RaiseEvent(id, 0, nullptr);
    }
    EXPECT_TRUE(dispatcher->DispatchStep()) << "without descriptors nothing blocks";
    EXPECT_EQ(first->events, (Events{{1, 0}, {2, 0}}));
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events.size(), 5U);
}

TEST_F(EventDispatcherTest, ARemovalCutsTheWalkShortButNotTheStep) {
    Watch(first, pipeA.Reader(), 10);
    Watch(second, pipeB.Reader(), 11);
    first->onEvent = [this](int eventId, int) {
        if (eventId == 10) {
            dispatcher->RemoveIoDescriptor(first, pipeA.Reader());
        }
    };
    first->RaiseEvent(1, 0, nullptr);
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events, (Events{{10, 1}, {1, 0}}));
    EXPECT_TRUE(second->events.empty());
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(second->events, (Events{{11, 1}})) << "what was ready is ready still";
}

TEST_F(EventDispatcherTest, AMachineStoppedByAnotherInTheSameWalkHearsNothingMore) {
    Watch(first, pipeA.Reader(), 10);
    Watch(second, pipeB.Reader(), 11);
    first->onEvent = [this](int, int) { second->StopFsm(); };
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events.size(), 2U);
    EXPECT_TRUE(second->events.empty());
}

TEST_F(EventDispatcherTest, AReportAlreadyMadeReachesADescriptorDisabledInTheSameWalk) {
    Watch(first, pipeA.Reader(), 10);
    Watch(second, pipeB.Reader(), 11);
    first->onEvent = [this](int, int) {
        second->ConfigureIoDescriptor(pipeB.Reader(), EventDispatcher::kIoDisable, true);
    };
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(second->events.size(), 1U) << "once, and then it is out of poll";
    first->onEvent = [this](int, int) {
        second->ConfigureIoDescriptor(pipeB.Reader(), EventDispatcher::kIoDisable, false);
    };
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(second->events.size(), 2U) << "and back again with what was asked of it";
}

TEST_F(EventDispatcherTest, TheExitStopsTheWalkAndLeavesTheQueue) {
    Watch(first, pipeA.Reader(), 10);
    Watch(second, pipeB.Reader(), 11);
    first->onEvent = [this](int, int) { dispatcher->ExitDispatching(true); };
    first->RaiseEvent(1, 0, nullptr);
    EXPECT_TRUE(dispatcher->DispatchEvents());
    EXPECT_EQ(first->events, (Events{{10, 1}}));
    EXPECT_TRUE(second->events.empty());
    EXPECT_TRUE(log.Contains("I Disp ExitDispatching"));

    pipeA.Drain();
    first->onEvent = [this](int, int) { dispatcher->ExitDispatching(false); };
    second->RaiseEvent(2, 0, nullptr);
    EXPECT_FALSE(dispatcher->DispatchEvents());
    EXPECT_EQ(second->events, (Events{{11, 1}})) << "the exit is seen after each delivery";
}

TEST_F(EventDispatcherTest, AFailedPollIsOneLineAndAnotherRound) {
    Watch(first, pipeA.Reader(), 10);
    first->RaiseEvent(1, 0, nullptr);
    dispatcher->fails = 1;
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_TRUE(first->events.empty());
    EXPECT_TRUE(log.Contains("D Disp poll result -1 errno: " + std::to_string(EINTR)));
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events.size(), 2U);
}

TEST(DispatcherWaitTest, PollWaitsForTheFirstEventAndWithoutOneWithoutLimit) {
    const ReadyPipe pipe;
    const auto dispatcher = std::make_shared<testing_support::VirtualTimeDispatcher>("Disp", false);
    const auto machine = std::make_shared<RecorderFsm>();
    machine->Start(dispatcher);
    dispatcher->AddIoDescriptor(machine, pipe.Reader(), 10);
    machine->ConfigureIoDescriptor(pipe.Reader(), EventDispatcher::kIoRead, true);
    PollTimeouts().clear();
    EXPECT_TRUE(dispatcher->DispatchStep());
    machine->RaiseTimerEvent(1, 0, 2500, nullptr);
    EXPECT_TRUE(dispatcher->DispatchStep());
    machine->RaiseEvent(2, 0, nullptr);
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(PollTimeouts(), (std::vector<int>{-1, 2500, 0}));
}

TEST_F(EventDispatcherTest, AHangupIsReportedUnasked) {
    dispatcher->AddIoDescriptor(first, pipeA.Reader(), 10);
    pipeA.Drain();
    pipeA.CloseWriter();
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events, (Events{{10, POLLHUP}}));
}

TEST_F(EventDispatcherTest, TwoMachinesMayWatchOneDescriptorEachInItsOwnWay) {
    Watch(first, pipeA.Reader(), 10);
    Watch(second, pipeA.Reader(), 20);
    second->ConfigureIoDescriptor(pipeA.Reader(), EventDispatcher::kIoRead, false);
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events, (Events{{10, 1}}));
    EXPECT_TRUE(second->events.empty());
}

TEST_F(EventDispatcherTest, ADisabledNegativeDescriptorWatchesNobodyElses) {
    Watch(first, ~pipeA.Reader(), 10);
    EXPECT_TRUE(
        log.Contains("F Disp AddIoDescriptor: IO descriptor must not be negative : FSM First"));
    first->ConfigureIoDescriptor(~pipeA.Reader(), EventDispatcher::kIoDisable, true);
    first->RaiseEvent(1, 0, nullptr);
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events, (Events{{1, 0}}));
}

TEST_F(EventDispatcherTest, AMachineDroppedInItsOwnStateMethodLivesUntilItReturns) {
    Watch(first, pipeA.Reader(), 10);
    second->RaiseEvent(1, 0, nullptr);
    for (std::shared_ptr<RecorderFsm>* const machine : {&first, &second}) {
        (*machine)->onEvent = [machine](int, int) {
            const std::weak_ptr<RecorderFsm> alive = *machine;
            (*machine)->StopFsm();
            machine->reset();
            EXPECT_FALSE(alive.expired());
        };
    }
    const std::weak_ptr<RecorderFsm> watching = first;
    const std::weak_ptr<RecorderFsm> queued = second;
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_TRUE(watching.expired());
    EXPECT_TRUE(queued.expired());
}

#ifndef NDEBUG
TEST_F(EventDispatcherTest, OtherThreadsAreTurnedAwayByAssertions) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto onOtherThread = [](const std::function<void()>& call) { std::thread(call).join(); };
    EXPECT_DEATH(onOtherThread([this] { first->RaiseEvent(1, 0, nullptr); }), "IsOwnThread");
    EXPECT_DEATH(onOtherThread([this] { first->StopFsm(); }), "Thread");
}
#endif

TEST_F(EventDispatcherTest, APayloadGoesToTheHandlerOrIsDestroyedBehindIt) {
    int destroyed = 0;
    const auto payload = [&] { return std::make_unique<TracedData>([&] { ++destroyed; }); };
    std::unique_ptr<fsm::FsmEventData> taken;
    first->onEvent = [&](int eventId, int) {
        if (eventId == 1) {
            taken = dispatcher->TakeEventData();
        }
    };
    first->RaiseEvent(1, 0, payload());
    first->RaiseEvent(2, 0, payload());
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(destroyed, 1);
    EXPECT_NE(taken, nullptr);
    EXPECT_EQ(dispatcher->TakeEventData(), nullptr);
}

TEST_F(EventDispatcherTest, MisuseIsLoggedAtFatalLevelAndHasNoEffect) {
    const auto stranger = std::make_shared<RecorderFsm>("Stranger");
    const int fd = pipeA.Reader();
    const std::string number = std::to_string(fd);
    EXPECT_TRUE(dispatcher->IsFsmRegistered(first));
    EXPECT_FALSE(dispatcher->IsFsmRegistered(stranger));
    EXPECT_TRUE(log.Contains("D Disp IsFsmRegistered: Stranger"));
    dispatcher->RemoveFsm(stranger);
    dispatcher->AddIoDescriptor(stranger, fd, 0);
    dispatcher->RemoveIoDescriptor(stranger, fd);
    dispatcher->RemoveIoDescriptor(first, fd);
    dispatcher->ConfigureIoDescriptor(stranger, fd, EventDispatcher::kIoRead, true);
    dispatcher->ConfigureIoDescriptor(first, fd, EventDispatcher::kIoRead, true);
    Watch(first, fd, 10);
    dispatcher->AddIoDescriptor(first, fd, 99);
    dispatcher->ConfigureIoDescriptor(first, fd, static_cast<EventDispatcher::IoEventType>(4),
                                      true);
    const std::string configure = "Disp ConfigureIoDescriptor: FSM ";
    const std::vector<std::string> expected{
        "Disp RemoveFsm: fsm Stranger not found",
        "Disp AddIoDescriptor: FSM Stranger not found",
        "Disp RemoveIoDescriptor: fsm Stranger not found",
        "Disp RemoveIoDescriptor " + number + " not found",
        configure + "Stranger FSM not found",
        configure + "First IO descriptor not found",
        "Disp AddIoDescriptor: FSM First cannot add IO descriptor again",
        configure + "First unknown event type in ioData set: 4",
        configure + "First unknown event type in PollStruct set: 4"};
    EXPECT_EQ(log.Lines('F'), expected);
    EXPECT_TRUE(dispatcher->DispatchStep());
    EXPECT_EQ(first->events, (Events{{10, 1}}));
}

TEST(IoEventTest, FlagsAreTestedAndNamed) {
    EXPECT_EQ(fsm::PollFlagString(0), "");
    EXPECT_EQ(fsm::PollFlagString(5), "POLLIN POLLOUT ");
    EXPECT_EQ(fsm::PollFlagString(0x203d), "POLLIN POLLOUT POLLHUP POLLERR POLLNVAL POLLRDHUP ");
    EXPECT_TRUE(fsm::IoEventReadable(1) && fsm::IoEventWritable(4) && fsm::IoEventError(8));
    EXPECT_TRUE(fsm::IoEventHangup(16) && fsm::IoEventInvalid(32) && fsm::IoEventRdhup(0x2000));
    EXPECT_FALSE(fsm::IoEventReadable(~1) || fsm::IoEventHangup(~16) || fsm::IoEventRdhup(16));
    EXPECT_EQ(fsm::SetNonBlocking(-1), -1);
}

}  // namespace
