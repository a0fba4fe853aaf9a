#pragma once

#include <atomic>
#include <thread>

namespace fsm {

/// Remembers the thread that an object belongs to, for assertions.
class OwningThread {
public:
    /// From now on the object belongs to the calling thread.
    void Adopt() { mId = std::this_thread::get_id(); }
    bool IsCurrent() const { return mId == std::this_thread::get_id(); }

private:
    std::atomic<std::thread::id> mId{std::this_thread::get_id()};
};

}  // namespace fsm
