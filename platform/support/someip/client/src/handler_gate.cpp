#include "handler_gate.h"

#include <exception>

#include <someip/log/incident.h>

namespace someip {

void HandlerGate::Run(const std::function<void()>& handler) {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mClosed) {
            return;
        }
        mRunning = true;
        mRunner = std::this_thread::get_id();
    }
    try {
        handler();
    } catch (const std::exception& exception) {
        Log().Error(std::string("handler failed: ") + exception.what());
    }
    Leave();
}

void HandlerGate::Leave() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mRunning = false;
    mIdle.notify_all();
}

void HandlerGate::Close() {
    std::unique_lock<std::mutex> lock(mMutex);
    mClosed = true;
    if (mRunning && mRunner == std::this_thread::get_id()) {
        return;
    }
    mIdle.wait(lock, [this] { return !mRunning; });
}

}  // namespace someip
