#include <future>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <service_access/callback_thread.h>

#include "platform/support/service_access/event_recorder.h"

namespace service_access {

using service_access_test::EventRecorder;
using service_access_test::kHangGuard;

TEST(CallbackThreadTest, StopRunsWhatWasPostedAndNothingAfterwards) {
    EventRecorder events;
    CallbackThread thread;
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(thread.Post([&events, i] { events.Add(std::to_string(i)); }));
    }
    thread.Stop();
    const auto seen = events.Events();
    ASSERT_EQ(100U, seen.size());
    EXPECT_EQ("0", seen.front());
    EXPECT_EQ("99", seen.back());
    EXPECT_FALSE(thread.Post([&events] { events.Add("late"); }));
}

TEST(CallbackThreadTest, AnExceptionEndsItsTaskOnly) {
    EventRecorder events;
    CallbackThread thread;
    thread.Post([] { throw std::runtime_error("boom"); });
    thread.Post([] { throw 1; });
    thread.Post([&events] { events.Add("still here"); });
    EXPECT_EQ(1U, events.Wait(1).size());
}

TEST(CallbackThreadTest, ATaskMayDestroyItsOwnThread) {
    EventRecorder events;
    auto thread = std::make_unique<CallbackThread>();
    std::promise<void> posted;
    thread->Post([&thread, &events, ready = posted.get_future().share()] {
        ready.wait();
        thread.reset();
        events.Add("destroyed");
    });
    thread->Post([&events] { events.Add("second"); });
    posted.set_value();
    EXPECT_EQ((std::vector<std::string>{"second", "destroyed"}), events.Wait(2));
}

TEST(CallbackThreadTest, WaitForRunningTaskWaitsForThatTaskButNotForItself) {
    EventRecorder events;
    CallbackThread thread;
    std::promise<void> running;
    std::promise<void> mayEnd;
    thread.Post([&] {
        thread.WaitForRunningTask();
        running.set_value();
        mayEnd.get_future().wait();
        events.Add("ended");
    });
    running.get_future().wait();
    auto waiting = std::async(std::launch::async, [&] {
        thread.WaitForRunningTask();
        return events.Events().size();
    });
    mayEnd.set_value();
    ASSERT_EQ(std::future_status::ready, waiting.wait_for(kHangGuard));
    EXPECT_EQ(1U, waiting.get());
}

}  // namespace service_access
