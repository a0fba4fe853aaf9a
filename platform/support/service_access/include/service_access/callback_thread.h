#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <thread>

namespace service_access {

/// A thread that runs tasks one after another, in the order in which they were posted. It keeps
/// callbacks of users off the thread that serves the sockets.
///
/// An exception out of a task is logged and ends that task only. Every operation may be called from
/// any thread, from within a task too.
class CallbackThread {
public:
    CallbackThread();

    /// Stops. May run within a task.
    ~CallbackThread();

    CallbackThread(const CallbackThread&) = delete;
    CallbackThread& operator=(const CallbackThread&) = delete;

    /// Returns false, and drops the task, once Stop was called.
    bool Post(std::function<void()> task);

    /// Runs what was posted before and returns when no task runs and none will any more. Within a
    /// task the rest is run then and there, and the calling task is the last one.
    void Stop();

    /// Returns when the task that runs at the moment has ended; at once within a task.
    void WaitForRunningTask() const;

    /// The number of tasks that wait.
    std::size_t QueueLength() const;

private:
    struct State;
    std::shared_ptr<State> mState;
    std::thread mThread;
};

}  // namespace service_access
