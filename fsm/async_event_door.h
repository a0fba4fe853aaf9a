#pragma once

#include <memory>
#include <mutex>

#include "fsm/async_event_queue_if.h"

namespace fsm {

class AsyncEventQueue;

/// What machines and foreign threads see of a dispatcher's asynchronous queue.
///
/// Machines share it with their dispatcher. A foreign thread uses the queue only inside `Enter`,
/// and the dispatcher shuts the door before it stops or drops the queue. So a foreign thread never
/// holds the last reference to the dispatcher, the queue or what they keep alive, and never ends up
/// destroying machines on its own stack.
class AsyncEventDoor {
public:
    enum class State { kOpen, kNoQueue, kNoDispatcher };

    /// Runs `action` with the queue, if there is one, and returns what was found. Any thread. The
    /// action runs under the door's lock and must not come back to this door, so what it takes out
    /// of the queue to be destroyed outlives it in the caller.
    template <typename Action>
    State Enter(const Action& action) {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (!mDispatcherAlive) {
            return State::kNoDispatcher;
        }
        if (mQueue == nullptr) {
            return State::kNoQueue;
        }
        action(*mQueue);
        return State::kOpen;
    }

    /// The queue, or null while there is none. Any thread; for use on the dispatcher's only.
    std::shared_ptr<AsyncEventQueueIf> Queue() const;
    /// Lets threads in to this queue. Dispatcher thread, as what follows.
    void Open(std::shared_ptr<AsyncEventQueue> queue);

    /// Takes the queue away. When it returns, no thread is using the queue through this door.
    std::shared_ptr<AsyncEventQueue> Shut();

    /// As `Shut`, for a dispatcher that is being destroyed.
    std::shared_ptr<AsyncEventQueue> ShutForever();

private:
    mutable std::mutex mMutex;
    std::shared_ptr<AsyncEventQueue> mQueue;
    bool mDispatcherAlive{true};
};

}  // namespace fsm
