#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace someip {

/// Lets a handler run on other threads until it is closed. After `Close` has returned, the handler
/// neither runs nor will run; only when `Close` is called from the handler itself does that one
/// run go on to its end.
class HandlerGate {
public:
    /// Runs `handler` unless the gate is closed. Calls must not overlap.
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
