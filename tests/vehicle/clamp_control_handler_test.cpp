#include "vehicle/clamp_control_handler.h"

#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <clampcontrolclient/clamp_control_client.h>

#include "testing/captured_log.h"
#include "testing/event_recorder.h"
#include "vehicle/clamp_control_wexa_impl.h"

namespace {

using clampcontrolclient::ClampControlCallbackIf;

/// What the scripted client below does and has done.
struct Script {
    testing_support::EventRecorder calls;
    std::function<void(ClampControlCallbackIf&)> atStart;
    std::function<void()> atRelease;
    std::mutex mutex;
    std::deque<std::function<std::string()>> answers;
    // Held while a notification runs, so that taking the callback away waits for it.
    std::recursive_mutex callbackMutex;
    ClampControlCallbackIf* callback = nullptr;

    void Answer(std::function<std::string()> answer) {
        const std::lock_guard lock(mutex);
        answers.push_back(std::move(answer));
    }

    void Notify(const std::function<void(ClampControlCallbackIf&)>& notification) {
        const std::lock_guard lock(callbackMutex);
        if (callback != nullptr) {
            notification(*callback);
        }
    }

    void NotifyConnected(bool connected) {
        Notify([connected](auto& each) { each.ConnectionStateNotification(connected); });
    }
};

Script* script = nullptr;

}  // namespace

/// A scripted client in the place of the library's. It refuses what has no answer in the script.
namespace clampcontrolclient {

class ClampControlClient::Impl {};

ClampControlClient::ClampControlClient() = default;
ClampControlClient::~ClampControlClient() = default;

void ClampControlClient::Start() {
    script->calls.Add("start");
    if (script->atStart) {
        script->Notify(script->atStart);
    }
}

void ClampControlClient::Stop() {
    script->calls.Add("stop");
}

void ClampControlClient::AssignCallback(ClampControlCallbackIf* callback) {
    if (callback == nullptr && script->atRelease) {
        script->atRelease();
    }
    const std::lock_guard lock(script->callbackMutex);
    script->callback = callback;
    script->calls.Add(callback == nullptr ? "no callback" : "callback");
}

std::string ClampControlClient::SubscribeClampState() {
    script->calls.Add("subscribe");
    std::function<std::string()> answer;
    {
        const std::lock_guard lock(script->mutex);
        if (script->answers.empty()) {
            return {};
        }
        answer = std::move(script->answers.front());
        script->answers.pop_front();
    }
    return answer();
}

void ClampControlClient::UnsubscribeClampState(const std::string& subscription) {
    script->calls.Add("unsubscribe " + subscription);
}

}  // namespace clampcontrolclient

namespace nuro_common {

using ::testing::ElementsAre;
using testing_support::EventRecorder;
using testing_support::Gate;

class HandlerCallback : public ClampControlHandlerCbIf {
public:
    void ClampStateChangeCb(const std::string& clampName, bool state) override {
        mEvents.Add(clampName + (state ? " on" : " off"));
    }
    void ClampControlConnectionStateChangeCb(bool connected) override {
        mEvents.Add(connected ? "connected" : "disconnected");
    }
    void ClampSubscribedCb() override { mEvents.Add("subscribed"); }

    EventRecorder mEvents;
};

class ClampControlHandlerTest : public ::testing::Test {
protected:
    ClampControlHandlerTest() { script = &mScript; }
    ~ClampControlHandlerTest() override { script = nullptr; }

    std::vector<std::string> Calls(std::size_t count) const { return mScript.calls.Wait(count); }

    Script mScript;
    testing_support::CapturedLog mLog;
    HandlerCallback mCallback;
};

TEST_F(ClampControlHandlerTest, NotificationsAreLoggedAndHandedUp) {
    ClampControlHandler handler(&mCallback);
    ClampControlHandler nobody(nullptr);
    for (auto* each : {&handler, &nobody}) {
        each->ConnectionStateNotification(true);
        each->ConnectionStateNotification(false);
        each->ClampControlNotification(true);
        each->ClampControlNotification(false);
        each->ClampControlSubscribedNotification();
    }
    EXPECT_THAT(mCallback.mEvents.Events(), ElementsAre("connected", "disconnected", "Clamp15 on",
                                                        "Clamp15 off", "subscribed"));
    const std::string connection =
        "D ClampControlHandler: Clamp Control Service connection state has changed to ";
    const std::string state = "D ClampControlHandler: Received a Clamp Control state notification";
    const auto lines = mLog.Lines();
    ASSERT_EQ(10U, lines.size());
    EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 5),
                ElementsAre(connection + "1", connection + "0", state, state,
                            "D ClampControlHandler: Received a Clamp Control subscribed "
                            "notification"));
}

TEST_F(ClampControlHandlerTest, ARefusalIsTriedAgainUntilTheServiceAccepts) {
    mScript.Answer([] { return ""; });
    mScript.Answer([] { return "id"; });
    {
        ClampControlHandler handler(&mCallback);
        EXPECT_TRUE(handler.SubscribeNB());
        EXPECT_TRUE(mLog.WaitFor("I ClampControlHandlerNB: Subscribed to Clamp Control"));
    }
    EXPECT_THAT(Calls(5),
                ElementsAre("subscribe", "subscribe", "unsubscribe id", "no callback", "stop"));
    EXPECT_THAT(mLog.Lines(),
                ElementsAre("E ClampControlHandler: FAILED to subscribe to Clamp Control!",
                            "E ClampControlHandlerNB: FAILED to subscribe to Clamp Control!",
                            "I ClampControlHandler: Subscribed to Clamp Control",
                            "I ClampControlHandlerNB: Subscribed to Clamp Control"));
}

TEST_F(ClampControlHandlerTest, AnExceptionEndsTheAttemptsUntilTheNextSubscription) {
    mScript.Answer([]() -> std::string { throw std::runtime_error("no way"); });
    mScript.Answer([] { return "id"; });
    ClampControlHandler handler(&mCallback);
    handler.SubscribeNB();
    EXPECT_TRUE(mLog.WaitFor("W ClampControlHandlerNB: Exception while subscribing: no way"));
    handler.SubscribeNB();
    EXPECT_TRUE(mLog.WaitFor("I ClampControlHandlerNB: Subscribed to Clamp Control"));
    EXPECT_THAT(Calls(2), ElementsAre("subscribe", "subscribe"));
}

TEST_F(ClampControlHandlerTest, ANewSubscriptionWaitsForTheFormerAttempt) {
    Gate release;
    mScript.Answer([&release] {
        release.Pass();
        return "";
    });
    mScript.Answer([] { return "second"; });
    {
        ClampControlHandler handler(&mCallback);
        handler.SubscribeNB();
        Calls(1);
        auto again = std::async(std::launch::async, [&handler] { handler.SubscribeNB(); });
        release.Open();
        again.get();
        Calls(2);
        EXPECT_TRUE(mLog.WaitFor("I ClampControlHandlerNB: Subscribed to Clamp Control"));
    }
    EXPECT_THAT(Calls(5),
                ElementsAre("subscribe", "subscribe", "unsubscribe second", "no callback", "stop"));
}

TEST_F(ClampControlHandlerTest, DestructionWaitsForAnAttemptThatBlocksAndEndsItsSubscription) {
    Gate release;
    mScript.Answer([&release] {
        release.Pass();
        return "late";
    });
    auto handler = std::make_unique<ClampControlHandler>(&mCallback);
    handler->SubscribeNB();
    Calls(1);
    auto destruction = std::async(std::launch::async, [&handler] { handler.reset(); });
    release.Open();
    destruction.get();
    EXPECT_THAT(Calls(4), ElementsAre("subscribe", "unsubscribe late", "no callback", "stop"));
}

class ClampCallback : public vintrel::ClampControlCbIf {
public:
    void ClampStateChangeCb(bool clamp15On) override { mEvents.Add(clamp15On ? "on" : "off"); }

    EventRecorder mEvents;
};

class ClampControlWexaImplTest : public ClampControlHandlerTest {
protected:
    ClampCallback mClamp;
};

TEST_F(ClampControlWexaImplTest, OnlyTheFirstSubscribeStartsTheClient) {
    vintrel::ClampControlWexaImpl clampControl(mClamp);
    EXPECT_TRUE(clampControl.Subscribe());
    EXPECT_FALSE(clampControl.Subscribe());
    EXPECT_THAT(Calls(2), ElementsAre("callback", "start"));
    EXPECT_THAT(mLog.Lines(),
                ElementsAre("I ClampControlWexaImpl:Subscribe", "I ClampControlWexaImpl:Subscribe",
                            "I ClampControlWexaImpl: Already subscribed to Clamp 15"));
}

TEST_F(ClampControlWexaImplTest, AStateThatComesWithinTheStartIsDropped) {
    mScript.atStart = [](ClampControlCallbackIf& each) { each.ClampControlNotification(true); };
    vintrel::ClampControlWexaImpl clampControl(mClamp);
    clampControl.Subscribe();
    EXPECT_TRUE(mClamp.mEvents.Events().empty());
    mScript.Notify([](ClampControlCallbackIf& each) { each.ClampControlNotification(true); });
    clampControl.ClampStateChangeCb("any name", false);
    EXPECT_THAT(mClamp.mEvents.Events(), ElementsAre("on", "off"));
}

TEST_F(ClampControlWexaImplTest, EachNewConnectionSubscribesAndALostOneDoesNothing) {
    mScript.Answer([] { return "first"; });
    mScript.Answer([] { return "second"; });
    vintrel::ClampControlWexaImpl clampControl(mClamp);
    clampControl.Subscribe();
    for (const bool connected : {true, false, true}) {
        mScript.NotifyConnected(connected);
        Calls(3);
    }
    EXPECT_THAT(Calls(4), ElementsAre("callback", "start", "subscribe", "subscribe"));
    const std::string text = "I ClampControlWexaImpl: Wexa service connection state changed to ";
    EXPECT_THAT(mLog.Lines(), ::testing::IsSupersetOf({text + "1", text + "0", text + "1"}));
}

TEST_F(ClampControlWexaImplTest, AttemptsGoOnWhateverTheConnectionDoesOnTheSubscribeThread) {
    for (const bool connected : {false, true}) {
        mScript.Answer([this, connected] {
            mScript.NotifyConnected(connected);
            return "";
        });
    }
    mScript.Answer([] { return "id"; });
    auto clampControl = std::make_unique<vintrel::ClampControlWexaImpl>(mClamp);
    clampControl->Subscribe();
    mScript.NotifyConnected(true);
    EXPECT_TRUE(mLog.WaitFor("I ClampControlHandlerNB: Subscribed to Clamp Control"));
    clampControl.reset();
    EXPECT_THAT(Calls(8), ElementsAre("callback", "start", "subscribe", "subscribe", "subscribe",
                                      "unsubscribe id", "no callback", "stop"));
}

TEST_F(ClampControlWexaImplTest, AServiceThatConnectsInTheMomentOfDestructionIsLeftAlone) {
    // The subscribe thread is gone by then, the callback is still there.
    mScript.atRelease = [this] { std::thread([this] { mScript.NotifyConnected(true); }).join(); };
    auto clampControl = std::make_unique<vintrel::ClampControlWexaImpl>(mClamp);
    clampControl->Subscribe();
    clampControl.reset();
    EXPECT_THAT(Calls(4), ElementsAre("callback", "start", "no callback", "stop"));
}

}  // namespace nuro_common
