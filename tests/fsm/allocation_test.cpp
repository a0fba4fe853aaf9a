#include <array>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fsm/fsm_event_data_stream_communicator.h"
#include "fsm/fsm_stream_communicator_if.h"
#include "logging/qel_logging.h"
#include "testing/recorder_fsm.h"

namespace {

using fsm::EventDispatcher;
using fsm::FsmEventData;
using qel_logging::QELLogging;

constexpr int kRounds = 100;

/// How often this thread has allocated.
thread_local std::size_t gAllocations = 0;

/// Changes its state with each event, and asks for what the test wants next.
class BusyMachine : public fsm::Fsm {
public:
    BusyMachine() : Fsm("BusyMachine") {}

    void Start(const std::shared_ptr<EventDispatcher>& dispatcher) {
        SetupFsm(dispatcher, nullptr, 0);
        SetFsmState(&BusyMachine::FsmStateWithALongName, "FsmStateWithALongName");
    }

    std::function<void(EventDispatcher&)> onEvent = [](EventDispatcher&) {};
    int events{0};

protected:
    void OnTerminate() override {}

private:
    void FsmStateWithALongName(int, int) {
        ++events;
        SetFsmState(&BusyMachine::FsmStateWithALongName, "FsmStateWithALongName");
        onEvent(*GetDispatcher());
    }
};

/// Without a registration of the application no level of the log is enabled.
class AllocationTest : public testing::Test {
protected:
    AllocationTest() { machine->Start(dispatcher); }
    ~AllocationTest() override {
        machine->StopFsm();
        dispatcher->TerminateDispatching();
    }

    /// How many allocations a round of the work takes once it has found its pace.
    template <typename Work>
    double PerRound(const Work& work) {
        work();
        work();
        const std::size_t before = gAllocations;
        for (int round = 0; round < kRounds; ++round) {
            work();
        }
        return static_cast<double>(gAllocations - before) / kRounds;
    }

    std::shared_ptr<EventDispatcher> dispatcher = std::make_shared<EventDispatcher>("D");
    std::shared_ptr<BusyMachine> machine = std::make_shared<BusyMachine>();
};

TEST_F(AllocationTest, AnEventTakesItsNodeAndItsPayload) {
    EXPECT_EQ(PerRound([&] {
                  machine->RaiseEvent(1, 0, std::make_unique<FsmEventData>());
                  dispatcher->DispatchStep();
              }),
              2);
    EXPECT_EQ(machine->events, kRounds + 2);
}

TEST_F(AllocationTest, ATimerThatIsClearedTakesItsNode) {
    EXPECT_EQ(PerRound([&] {
                  machine->RaiseTimerEvent(1, 0, 60000, nullptr);
                  EXPECT_TRUE(dispatcher->ClearEvent(machine, 1, true));
              }),
              1);
}

TEST_F(AllocationTest, AnAsynchronousEventTakesItsPayloadAndItsShareOfTheQueue) {
    EXPECT_LT(PerRound([&] {
                  machine->RaiseAsyncEvent(1, 0, std::make_unique<FsmEventData>());
                  dispatcher->DispatchStep();
              }),
              1.2);
    EXPECT_EQ(machine->events, kRounds + 2);
}

TEST_F(AllocationTest, AReadTakesTheBufferThePayloadAndTheEventOfItsReport) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const auto communicator = fsm::FsmStreamCommunicatorIf::Create(ends[0], "Communicator");
    ASSERT_TRUE(communicator->StartFsm(dispatcher, machine, 1));
    ASSERT_TRUE(communicator->SetupReadContinued(64));
    machine->onEvent = [](EventDispatcher& current) { current.TakeEventData(); };
    EXPECT_EQ(PerRound([&] {
                  ASSERT_EQ(send(ends[1], "bytes", 5, MSG_NOSIGNAL), 5);
                  dispatcher->DispatchStep();
              }),
              3);
    EXPECT_EQ(machine->events, kRounds + 2);
    communicator->StopFsm();
    close(ends[1]);
}

TEST_F(AllocationTest, ALineThatIsNotEnabledTakesNothing) {
    const std::string name(100, 'n');
    EXPECT_EQ(PerRound([&] {
                  QELLogging::LogDebug(name, " a text that is longer than a short string ", 4711);
                  QELLogging::LogVerbose("a text that is longer than a short string");
                  QELLogging::LogInfo(name);
              }),
              0);
}

}  // namespace

void* operator new(std::size_t size) {
    ++gAllocations;
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
