#include "fsm/async_event_queue.h"

#include <array>
#include <iomanip>
#include <sstream>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "fsm/io_event.h"
#include "logging/qel_logging.h"

namespace fsm {

using qel_logging::EQELLogLevel;
using qel_logging::QELLogging;

namespace {

constexpr unsigned char kEventInQueue = 0;

std::string ThreadText() {
    std::ostringstream text;
    text << "0x" << std::hex << std::setw(16) << std::setfill('0') << std::this_thread::get_id();
    return text.str();
}

}  // namespace

AsyncEventQueue::AsyncEventQueue(std::string name) : Fsm(std::move(name)) {}

AsyncEventQueue::~AsyncEventQueue() {
    QELLogging::LogDebug(mLogName, "~AsyncEventQueue");
    CloseEnd(mReadEnd);
    CloseEnd(mWriteEnd);
}

bool AsyncEventQueue::Initialize(std::shared_ptr<EventDispatcher> dispatcher) {
    SetupFsm(dispatcher, nullptr, 0);
    if (dispatcher == nullptr) {
        return false;
    }
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        StopFsm();
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mReadEnd = ends[0];
        mWriteEnd = ends[1];
    }
    // Everything below relies on pipe ends that never block.
    if (SetNonBlocking(ends[0]) != 0 || SetNonBlocking(ends[1]) != 0) {
        StopFsm();
        return false;
    }
    dispatcher->AddIoDescriptor(shared_from_this(), ends[0], 0);
    dispatcher->ConfigureIoDescriptor(shared_from_this(), ends[0], EventDispatcher::kIoRead, true);
    SetFsmState(&AsyncEventQueue::StateDispatchEvents, "StateDispatchEvents");
    return true;
}

void AsyncEventQueue::RaiseAsyncEvent(std::shared_ptr<Fsm> fsm, int eventId, int eventInfo,
                                      std::unique_ptr<FsmEventData> data) {
    LogFailure(OfferAsyncEvent(std::move(fsm), eventId, eventInfo, data));
}

std::string AsyncEventQueue::OfferAsyncEvent(std::shared_ptr<Fsm> fsm, int eventId, int eventInfo,
                                             std::unique_ptr<FsmEventData>& data) {
    if (fsm == nullptr) {
        return FailureText("RaiseAsyncEvent", " no receiver");
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    const ssize_t written = write(mWriteEnd, &kEventInQueue, 1);
    if (written != 1) {
        return FailureText("RaiseAsyncEvent", " error writing pipe: ", written);
    }
    if (QELLogging::IsEnabled(EQELLogLevel::kVerbose)) {
        QELLogging::LogVerbose(mName, " EVENT async raised #", mSequence, " by ", ThreadText(),
                               " -> ", fsm->GetName(), ", eventId ", eventId, " eventInfo ",
                               eventInfo);
    }
    mEvents.push_back({std::move(fsm), eventId, eventInfo, std::move(data), mSequence});
    ++mSequence;
    return {};
}

void AsyncEventQueue::StateDispatchEvents(int /*eventId*/, int /*eventInfo*/) {
    eventQueueEvent event;
    if (const std::string failure = TakeEvent(event); !failure.empty()) {
        LogFailure(failure);
        return;
    }
    QELLogging::LogVerbose(mName, " EVENT async dispatch #", event.sequence, " -> ",
                           event.fsm->GetName(), ", eventId ", event.eventId, " eventInfo ",
                           event.eventInfo);
    if (const auto dispatcher = GetDispatcher()) {
        dispatcher->Invoke(*event.fsm, event.eventId, event.eventInfo, std::move(event.data));
    }
}

std::string AsyncEventQueue::TakeEvent(eventQueueEvent& event) {
    const std::lock_guard<std::mutex> lock(mMutex);
    unsigned char command = 0;
    const ssize_t result = read(mReadEnd, &command, 1);
    if (result != 1) {
        return FailureText("StateDispatchEvents", " error reading pipe: ", result);
    }
    if (command != kEventInQueue) {
        return FailureText("StateDispatchEvents", " reading pipe, unknown command: ", command);
    }
    if (mEvents.empty()) {
        return FailureText("StateDispatchEvents", " reading pipe, but no event");
    }
    event = std::move(mEvents.front());
    mEvents.pop_front();
    return {};
}

bool AsyncEventQueue::ClearAsyncEvent(Predicate predicate, bool all) {
    std::string failure;
    const std::deque<eventQueueEvent> removed = TakeAsyncEvents(predicate, all, failure);
    LogFailure(failure);
    return !removed.empty();
}

std::deque<AsyncEventQueue::eventQueueEvent> AsyncEventQueue::TakeAsyncEvents(
    const Predicate& predicate, bool all, std::string& failure) {
    // Outlives the lock: the destructors of payloads and machines may call anything.
    std::deque<eventQueueEvent> removed;
    const std::lock_guard<std::mutex> lock(mMutex);
    for (auto event = mEvents.begin(); event != mEvents.end();) {
        if (!predicate(event->fsm, event->eventId, event->eventInfo)) {
            ++event;
            continue;
        }
        removed.push_back(std::move(*event));
        event = mEvents.erase(event);
        if (!all) {
            break;
        }
    }
    failure = RemovePipeBytes(removed.size());
    return removed;
}

std::string AsyncEventQueue::RemovePipeBytes(std::size_t count) {
    for (; count > 0; --count) {
        unsigned char command = 0;
        const ssize_t result = read(mReadEnd, &command, 1);
        if (result != 1) {
            return FailureText("ClearAsyncEvent", " error reading pipe: ", result);
        }
        if (command == kEventInQueue) {
            continue;
        }
        // Not the byte of an event: it stays for the state method to report.
        const ssize_t written = write(mWriteEnd, &command, 1);
        if (written != 1) {
            return FailureText("ClearAsyncEvent", " error writing pipe: ", written);
        }
    }
    return {};
}

void AsyncEventQueue::Stop() {
    StopFsm();
}

void AsyncEventQueue::OnTerminate() {
    const std::lock_guard<std::mutex> lock(mMutex);
    CloseEnd(mReadEnd);
    CloseEnd(mWriteEnd);
}

void AsyncEventQueue::CloseEnd(int& descriptor) {
    if (descriptor < 0) {
        return;
    }
    if (close(descriptor) != 0) {
        QELLogging::LogError(mLogName, "close() failed");
    }
    descriptor = -1;
}

void AsyncEventQueue::LogFailure(const std::string& failure) {
    if (!failure.empty()) {
        QELLogging::LogError(failure);
    }
}

std::string AsyncEventQueue::FailureText(const char* function, const char* text) const {
    return mName + " " + function + text;
}

std::string AsyncEventQueue::FailureText(const char* function, const char* text,
                                         ssize_t result) const {
    return FailureText(function, text) + std::to_string(result);
}

}  // namespace fsm
