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

    /// As `RaiseAsyncEvent`, but an event that cannot be accepted leaves `data` to the caller, and
    /// the line about it is returned (else nothing), to be logged when the caller has left its
    /// locks: the log may take its time.
    std::string OfferAsyncEvent(std::shared_ptr<Fsm> fsm, int eventId, int eventInfo,
                                std::unique_ptr<FsmEventData>& data);

    /// As `ClearAsyncEvent`, but leaves the removed events, and the line about a failure, to the
    /// caller.
    std::deque<eventQueueEvent> TakeAsyncEvents(const Predicate& predicate, bool all,
                                                std::string& failure);

    /// Logs what one of these operations has returned, unless it is empty.
    static void LogFailure(const std::string& failure);

protected:
    void OnTerminate() override;

private:
    void StateDispatchEvents(int eventId, int eventInfo);
    std::string TakeEvent(eventQueueEvent& event);
    std::string RemovePipeBytes(std::size_t count);
    void CloseEnd(int& descriptor);
    std::string FailureText(const char* function, const char* text) const;
    std::string FailureText(const char* function, const char* text, ssize_t result) const;

    unsigned int mSequence{0};
    int mReadEnd{-1};
    int mWriteEnd{-1};
    std::mutex mMutex;
    std::deque<eventQueueEvent> mEvents;
};

}  // namespace fsm
