#include "fsm/fsm.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testing/captured_log.h"
#include "testing/recorder_fsm.h"
#include "testing/virtual_time_dispatcher.h"

namespace {

using testing_support::RecorderFsm;
using testing_support::TracedData;
using testing_support::VirtualTimeDispatcher;
using Lines = std::vector<std::string>;

class FsmTest : public testing::Test {
protected:
    testing_support::CapturedLog log;
    std::shared_ptr<VirtualTimeDispatcher> dispatcher =
        std::make_shared<VirtualTimeDispatcher>("Dispatcher", false);
    std::shared_ptr<RecorderFsm> machine = std::make_shared<RecorderFsm>();
};

TEST_F(FsmTest, TheFrameOfALifeIsLogged) {
    machine->Start(dispatcher);
    machine->StopFsm();
    machine.reset();
    const Lines expected{"I Recorder: State transition to FsmStateNotStarted",
                         "I AddFsm: Recorder",
                         "I Recorder: State transition to FsmStateRecording",
                         "D Recorder: StopFsm",
                         "I Dispatcher RemoveFsm: Recorder",
                         "I Recorder: State transition to FsmStateTerminated",
                         "D Recorder: ~Fsm"};
    EXPECT_EQ(log.Lines(), expected);
    log.Clear();
    dispatcher.reset();
    EXPECT_EQ(log.Lines(), (Lines{"I ~EventDispatcher", "D ~EventQueue"}));
}

TEST_F(FsmTest, StoppingTwiceOrUnstartedIsSilent) {
    int terminations = 0;
    machine->onTerminate = [&] {
        ++terminations;
        machine->StopFsm();
    };
    log.Clear();
    machine->StopFsm();
    EXPECT_EQ(log.Lines(), Lines{"D Recorder: StopFsm"});

    machine->Start(dispatcher);
    machine->StopFsm();
    machine->StopFsm();
    EXPECT_EQ(terminations, 1) << "also not once more from within";
    EXPECT_EQ(log.Count("State transition to FsmStateTerminated"), 1U);
}

TEST_F(FsmTest, AStopThatFailedMayBeRepeated) {
    machine->Start(dispatcher);
    machine->onTerminate = [] { throw std::runtime_error("not now"); };
    EXPECT_THROW(machine->StopFsm(), std::runtime_error);
    EXPECT_TRUE(dispatcher->IsFsmRegistered(machine));
    machine->onTerminate = nullptr;
    machine->StopFsm();
    EXPECT_FALSE(dispatcher->IsFsmRegistered(machine));
}

TEST_F(FsmTest, AMachineThatOnlyTheDispatcherOwnsSurvivesItsOwnStop) {
    machine->Start(dispatcher);
    fsm::Fsm* raw = machine.get();
    const std::weak_ptr<RecorderFsm> alive = machine;
    machine.reset();
    raw->StopFsm();
    EXPECT_TRUE(alive.expired());
    EXPECT_TRUE(log.Contains("I Recorder: State transition to FsmStateTerminated"));
}

TEST_F(FsmTest, TheTargetIsToldAndThenLetGo) {
    const auto target = std::make_shared<RecorderFsm>("Target");
    target->Start(dispatcher);
    machine->Start(dispatcher, target);
    machine->onTerminate = [&] { machine->RaiseEvent(target, 77, 5, nullptr); };
    machine->StopFsm();
    EXPECT_FALSE(machine->HasTarget());
    dispatcher->RunPending();
    EXPECT_EQ(target->events, (std::vector<RecorderFsm::Event>{{77, 5}}));

    target->RaiseEvent(nullptr, 1, 1, nullptr);
    EXPECT_FALSE(dispatcher->NextDelay().has_value()) << "no target, no report";
    EXPECT_TRUE(log.Lines('F').empty());
    target->StopFsm();
}

TEST_F(FsmTest, APayloadIsTakenOnceAndAsTheClassItHas) {
    struct Number : fsm::FsmEventData {
        explicit Number(int given) : value(given) {}
        const int value;
    };
    struct Derived : Number {
        using Number::Number;
    };
    std::vector<int> taken;
    int foreignDestroyed = 0;
    machine->onEvent = [&](int times, int) {
        for (; times > 0; --times) {
            const auto number = machine->TakeEventData<Number>();
            taken.push_back(number ? number->value : -1);
        }
    };
    machine->Start(dispatcher);
    machine->RaiseEvent(2, 0, std::make_unique<Number>(7));
    machine->RaiseEvent(1, 0, std::make_unique<Derived>(8));
    machine->RaiseEvent(1, 0, nullptr);
    machine->RaiseEvent(2, 0, std::make_unique<TracedData>([&] { ++foreignDestroyed; }));
    dispatcher->RunPending();
    EXPECT_EQ(taken, (std::vector<int>{7, -1, 8, -1, -1, -1}));
    EXPECT_EQ(foreignDestroyed, 1);
    EXPECT_EQ(log.Lines('E'), Lines(4, "Recorder: Event without its payload"));
}

TEST_F(FsmTest, WithoutADispatcherNothingButAFatalLineHappens) {
    machine->SetupFsm(nullptr, nullptr, 0);
    machine->RaiseEvent(1, 0, nullptr);
    machine->RaiseEvent(machine, 1, 0, nullptr);
    machine->RaiseTimerEvent(1, 0, 1, nullptr);
    machine->ConfigureIoDescriptor(0, fsm::EventDispatcher::kIoRead, true);
    machine->RaiseAsyncEvent(1, 0, nullptr);
    EXPECT_FALSE(machine->ClearAsyncEvents());
    EXPECT_EQ(machine->GetAsyncEventQueue(), nullptr);
    const Lines expected{"RecorderSetupFsm: No EventDispatcher",
                         "RecorderRaiseEvent: No EventDispatcher",
                         "RecorderRaiseEvent: No EventDispatcher",
                         "RecorderRaiseTimerEvent: No EventDispatcher",
                         "RecorderConfigureIoDescriptor: No EventDispatcher",
                         "RecorderGetAsyncEventQueue: No EventDispatcher",
                         "RecorderGetAsyncEventQueue: No EventDispatcher",
                         "RecorderGetAsyncEventQueue: No EventDispatcher"};
    EXPECT_EQ(log.Lines('F'), expected);

    log.Clear();
    machine->Start(dispatcher);
    machine->RaiseAsyncEvent(1, 0, nullptr);
    EXPECT_EQ(machine->GetAsyncEventQueue(), nullptr);
    EXPECT_EQ(log.Lines('F'), Lines(2, "RecorderGetAsyncEventQueue: No AsyncEventQueue"));
}

TEST_F(FsmTest, TheEndOfTheDispatcherReleasesMachinesThatReportToTheirOwners) {
    const std::weak_ptr<RecorderFsm> client = machine;
    const auto connector = std::make_shared<RecorderFsm>("Connector");
    machine->onEvent = [connector](int, int) {};
    machine->Start(dispatcher);
    connector->Start(dispatcher, machine);
    connector->RaiseEvent(machine, 1, 0, nullptr);
    machine.reset();
    dispatcher.reset();
    EXPECT_TRUE(client.expired());
    EXPECT_EQ(connector->GetDispatcher(), nullptr);
    connector->StopFsm();
}

}  // namespace
