#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "fsm/async_event_queue_if.h"
#include "fsm/fsm.h"

namespace fsm {

/// The asynchronous queue: a locked deque of events, and a pipe with one byte of value 0 per entry
/// that wakes the dispatcher.
///
/// The pipe's capacity limits the number of outstanding events.
class AsyncEventQueue : public AsyncEventQueueIf, public Fsm {
public:
    struct eventQueueEvent {
        std::shared_ptr<Fsm> fsm;
        int eventId;
        int eventInfo;
        std::unique_ptr<FsmEventData> data;
        unsigned int sequence;
    };

    explicit AsyncEventQueue(std::string name);
    ~AsyncEventQueue() override;

    bool Initialize(std::shared_ptr<EventDispatcher> dispatcher) override;
    void RaiseAsyncEvent(std::shared_ptr<Fsm> fsm, int eventId, int eventInfo,
                         std::unique_ptr<FsmEventData> data) override;
    bool ClearAsyncEvent(Predicate predicate, bool all) override;
    void Stop() override;

    /// As `RaiseAsyncEvent`, but an event that cannot be accepted leaves `data` to the caller.
    void OfferAsyncEvent(std::shared_ptr<Fsm> fsm, int eventId, int eventInfo,
                         std::unique_ptr<FsmEventData>& data);

    /// As `ClearAsyncEvent`, but leaves the removed events to the caller.
    std::deque<eventQueueEvent> TakeAsyncEvents(const Predicate& predicate, bool all);

protected:
    void OnTerminate() override;

private:
    void StateDispatchEvents(int eventId, int eventInfo);
    bool TakeEvent(eventQueueEvent& event);
    void RemovePipeBytes(std::size_t count);
    void CloseEnd(int& descriptor);
    void LogFailure(const char* function, const std::string& text) const;

    unsigned int mSequence{0};
    int mReadEnd{-1};
    int mWriteEnd{-1};
    std::mutex mMutex;
    std::deque<eventQueueEvent> mEvents;
};

}  // namespace fsm
