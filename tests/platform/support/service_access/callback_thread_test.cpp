#include <future>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <service_access/callback_thread.h>

#include "testing/event_recorder.h"

namespace service_access {

using testing_support::EventRecorder;
using testing_support::Gate;

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
    Gate posted;
    thread->Post([&] {
        posted.Pass();
        thread.reset();
        events.Add("destroyed");
    });
    thread->Post([&events] { events.Add("second"); });
    posted.Open();
    EXPECT_EQ((std::vector<std::string>{"second", "destroyed"}), events.Wait(2));
}

TEST(CallbackThreadTest, WaitForRunningTaskWaitsForThatTaskButNotForItself) {
    EventRecorder events;
    CallbackThread thread;
    Gate running;
    Gate mayEnd;
    thread.Post([&] {
        thread.WaitForRunningTask();
        running.Open();
        mayEnd.Pass();
        events.Add("ended");
    });
    running.Pass();
    auto waiting = std::async(std::launch::async, [&] {
        thread.WaitForRunningTask();
        return events.Events().size();
    });
    mayEnd.Open();
    EXPECT_EQ(1U, waiting.get());
}

}  // namespace service_access
