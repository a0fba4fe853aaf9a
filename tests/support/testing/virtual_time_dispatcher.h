#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fsm/event_dispatcher.h"
#include "testing/waiting.h"

namespace testing_support {

/// The real dispatcher on a clock that only the test moves. Own it by a `std::shared_ptr`.
///
/// Once a machine has asked for the exit nothing more is delivered, as in the real loop.
/// `DispatchEvents` runs the real loop on the virtual clock.
class VirtualTimeDispatcher : public fsm::EventDispatcher {
public:
    explicit VirtualTimeDispatcher(std::string name, bool createAsyncQueue = true)
        : EventDispatcher(std::move(name), createAsyncQueue) {}

    TimePoint GetCurrentTime() const override { return mNow; }

    /// Delivers what is ready, descriptors and due events, until nothing is left; never waits and
    /// does not move the clock. False once a machine has asked for the exit. Machines that do not
    /// come to rest fail the test.
    bool RunPending();

    /// Moves the clock on, delivering each event at its own time.
    void AdvanceBy(std::chrono::milliseconds time);

    /// Time to the first pending event; none if there is none.
    std::optional<std::chrono::milliseconds> NextDelay() const;
    /// A pending event: receiver, id, info and due time in milliseconds from the beginning.
    using PendingEvent = std::tuple<std::string, int, int, std::int64_t>;
    std::vector<PendingEvent> Pending() const;
    /// Milliseconds from the beginning.
    std::int64_t Now() const { return Milliseconds(mNow); }

    /// Delivers the first pending event alone, and skips the time until it is due.
    void DeliverNext();
    /// Delivers the first event that came from another thread, alone.
    void DeliverAsync();

    /// Waits for descriptors (other threads' events among them) and delivers until the condition
    /// holds; the clock stands still. False after a time that only a hang takes.
    bool RunUntil(const std::function<bool()>& condition,
                  std::chrono::milliseconds hangGuard = kHangGuard);

protected:
    int Poll(std::vector<pollfd>& pollFds, int timeoutMillisec) override;

private:
    bool Step(int pollTimeout);

    static constexpr TimePoint kBeginning{std::chrono::hours(1)};

    static std::int64_t Milliseconds(TimePoint time) {
        return std::chrono::duration_cast<std::chrono::milliseconds>(time - kBeginning).count();
    }

    TimePoint mNow{kBeginning};
    std::optional<int> mPollTimeout;
    int mReady{0};
    bool mExited{false};
};

}  // namespace testing_support
