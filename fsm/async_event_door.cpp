#include "fsm/async_event_door.h"

#include <utility>

#include "fsm/async_event_queue.h"

namespace fsm {

std::shared_ptr<AsyncEventQueueIf> AsyncEventDoor::Queue() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mQueue;
}

void AsyncEventDoor::Open(std::shared_ptr<AsyncEventQueue> queue) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mQueue = std::move(queue);
}

std::shared_ptr<AsyncEventQueue> AsyncEventDoor::Shut() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mQueue, nullptr);
}

std::shared_ptr<AsyncEventQueue> AsyncEventDoor::ShutForever() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mDispatcherAlive = false;
    return std::exchange(mQueue, nullptr);
}

}  // namespace fsm
