#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace service_access_test {

/// Only keeps a broken test from hanging.
inline constexpr std::chrono::seconds kHangGuard{60};

/// Collects events from any thread, in order, and waits for them.
class EventRecorder {
public:
    void Add(const std::string& event) {
        const std::lock_guard lock(mMutex);
        mEvents.push_back(event);
        mChanged.notify_all();
    }

    /// The events so far, once there are at least `count`.
    std::vector<std::string> Wait(std::size_t count) const {
        std::unique_lock lock(mMutex);
        mChanged.wait_for(lock, kHangGuard, [&] { return mEvents.size() >= count; });
        return mEvents;
    }

    std::vector<std::string> Events() const { return Wait(0); }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<std::string> mEvents;
};

}  // namespace service_access_test
