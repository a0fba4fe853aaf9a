#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "testing/waiting.h"

namespace testing_support {

/// Keeps what happens, in order, and waits for it. Any thread.
class EventRecorder {
public:
    void Add(std::string event) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back(std::move(event));
        mChanged.notify_all();
    }

    /// All events, once there are at least so many or the hang guard has ended the wait.
    std::vector<std::string> Wait(std::size_t count) const {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, kHangGuard, [&] { return mEvents.size() >= count; });
        return mEvents;
    }

    std::vector<std::string> Events() const { return Wait(0); }

    /// Waits for the event behind the last one that this gave. Throws if none comes.
    std::string Next() {
        const std::vector<std::string> events = Wait(mNext + 1);
        if (events.size() <= mNext) {
            throw std::runtime_error("nothing more has happened");
        }
        return events[mNext++];
    }

    /// How many events `Next` has not given.
    std::size_t Waiting() const { return Events().size() - mNext; }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<std::string> mEvents;
    std::size_t mNext{0};
};

}  // namespace testing_support
