#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace someip {

/// Admits calls of a handler until it is closed. After `Close` has returned, the handler neither
/// runs nor will run, except that a handler which calls `Close` itself finishes its own run. Any
/// thread.
class HandlerGate {
public:
    /// Runs `handler` unless the gate is closed; logs an exception out of it. Calls must not
    /// overlap.
    void Run(const std::function<void()>& handler);

    /// Waits for a run on another thread. May be called several times and from several threads.
    void Close();

private:
    void Leave();

    std::mutex mMutex;
    std::condition_variable mIdle;
    bool mClosed{false};
    bool mRunning{false};
    std::thread::id mRunner;
};

}  // namespace someip
