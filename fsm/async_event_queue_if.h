#pragma once

#include <functional>
#include <memory>

#include "fsm/fsm_event_data.h"

namespace fsm {

class EventDispatcher;
class Fsm;

/// The door from other threads into the dispatcher thread.
class AsyncEventQueueIf {
public:
    using Predicate =
        std::function<bool(const std::shared_ptr<Fsm>& fsm, int eventId, int eventInfo)>;

    AsyncEventQueueIf() = default;
    AsyncEventQueueIf(const AsyncEventQueueIf&) = delete;
    AsyncEventQueueIf& operator=(const AsyncEventQueueIf&) = delete;
    virtual ~AsyncEventQueueIf() = default;

    /// Opens the queue on this dispatcher. Dispatcher thread, once. False if the pipe can't be
    /// made; the queue has then stopped.
    virtual bool Initialize(std::shared_ptr<EventDispatcher> dispatcher) = 0;

    /// Hands an event over to the dispatcher thread. Any thread. An event that cannot be accepted
    /// is logged and lost.
    virtual void RaiseAsyncEvent(std::shared_ptr<Fsm> fsm, int eventId, int eventInfo,
                                 std::unique_ptr<FsmEventData> data) = 0;

    /// Removes the first event that the predicate accepts, or with `all` every one; true if there
    /// was one. Any thread. The predicate runs under the queue's lock and must not call the queue.
    virtual bool ClearAsyncEvent(Predicate predicate, bool all) = 0;

    /// Closes the queue; events that are still in it are not delivered. Dispatcher thread.
    virtual void Stop() = 0;
};

}  // namespace fsm
