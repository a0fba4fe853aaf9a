// The program entry with a scripted client in the place of the real one, put in by the linker.

#include "client/program.h"

#include <functional>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "client/vintrel_client_fsm_if.h"
#include "fsm/event_dispatcher.h"
#include "testing/captured_log.h"

namespace {

using testing_support::CapturedLog;

bool gStarts = true;
bool gFactoryReset = false;
bool gDispatcherOutlives = false;
std::function<void(fsm::EventDispatcher&)> gOnEvent;

class ScriptedClient : public vintrel::VintrelClientFsmIf {
public:
    ScriptedClient() : VintrelClientFsmIf("ScriptedClient") {}
    ~ScriptedClient() override { gDispatcherOutlives = !mGivenDispatcher.expired(); }

    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher) override {
        mGivenDispatcher = dispatcher;
        if (!gStarts) {
            return false;
        }
        SetupFsm(dispatcher, nullptr, 0);
        SetFsmState(&ScriptedClient::FsmStateRunning, "FsmStateRunning");
        RaiseEvent(0, 0, nullptr);
        return true;
    }

protected:
    void OnTerminate() override {}

private:
    std::weak_ptr<fsm::EventDispatcher> mGivenDispatcher;

    void FsmStateRunning(int, int) { gOnEvent(*GetDispatcher()); }
};

int RunWith(const std::vector<const char*>& arguments) {
    gFactoryReset = false;
    return vintrel::RunProgram(static_cast<int>(arguments.size()), arguments.data());
}

void Exit(fsm::EventDispatcher& dispatcher) {
    dispatcher.ExitDispatching(true);
}

TEST(ProgramTest, OnlyTheExactLastArgumentAsksForAReset) {
    gStarts = true;
    gOnEvent = Exit;
    const CapturedLog log;
    const std::vector<std::pair<std::vector<const char*>, bool>> rows = {
        {{"prog"}, false},
        {{"prog", "-reset"}, true},
        {{"prog", "x", "-reset"}, true},
        {{"prog", "-reset", "x"}, false},
        {{"prog", "-reset "}, false},
        {{"prog", "-resetx"}, false},
        {{"prog", "-RESET"}, false},
        {{"prog", ""}, false},
        {{"-reset"}, false},
    };
    for (const auto& [arguments, reset] : rows) {
        EXPECT_EQ(RunWith(arguments), 0);
        EXPECT_EQ(gFactoryReset, reset) << arguments.back();
    }
    EXPECT_EQ(RunWith({}), 0);
}

TEST(ProgramTest, TheEndOfDispatchingGivesStatusAndLine) {
    gStarts = true;
    CapturedLog log;
    gOnEvent = Exit;
    EXPECT_EQ(RunWith({"prog"}), 0);
    EXPECT_TRUE(log.Contains("I Vintrel Client started."));
    EXPECT_TRUE(log.Contains("I Vintrel Client version: 2.20.9-support-0.7.2"));

    gOnEvent = [](fsm::EventDispatcher& dispatcher) { dispatcher.ExitDispatching(false); };
    EXPECT_EQ(RunWith({"prog"}), 0);
    EXPECT_TRUE(log.Contains("E Dispatcher Error!"));

    gOnEvent = [](fsm::EventDispatcher&) { throw std::runtime_error("broken"); };
    EXPECT_EQ(RunWith({"prog"}), 1);
    EXPECT_TRUE(log.Contains("E Dispatcher Error, exception: broken"));

    gOnEvent = [](fsm::EventDispatcher&) { throw 1; };
    EXPECT_EQ(RunWith({"prog"}), 1);
    EXPECT_TRUE(log.Contains("E Dispatcher Error! Unknown exception!"));
}

TEST(ProgramTest, AFailedStartIsFatalInTheLogAndStatusZero) {
    gStarts = false;
    CapturedLog log;
    EXPECT_EQ(RunWith({"prog"}), 0);
    EXPECT_TRUE(log.Contains("F Failed to start Vintrel Client!"));
    EXPECT_FALSE(log.Contains("I Vintrel Client started."));
    EXPECT_TRUE(gDispatcherOutlives) << "the client goes before the dispatcher";
}

}  // namespace

namespace vintrel {

std::unique_ptr<VintrelClientFsmIf> VintrelClientFsmIf::Create(bool factoryReset) {
    gFactoryReset = factoryReset;
    return std::make_unique<ScriptedClient>();
}

}  // namespace vintrel
