#pragma once

#include <algorithm>
#include <chrono>

namespace service_access {

/// The waits between attempts to connect: they double from failure to failure up to a bound.
class Backoff {
public:
    Backoff(std::chrono::milliseconds first, std::chrono::milliseconds most)
        : mFirst(first), mMost(most), mNext(first) {}

    /// The wait after another failure.
    std::chrono::milliseconds Next() {
        const auto wait = mNext;
        mNext = std::min(2 * mNext, mMost);
        return wait;
    }

    /// What Next would return.
    std::chrono::milliseconds Upcoming() const { return mNext; }

    /// After a success.
    void Reset() { mNext = mFirst; }

private:
    std::chrono::milliseconds mFirst;
    std::chrono::milliseconds mMost;
    std::chrono::milliseconds mNext;
};

}  // namespace service_access
