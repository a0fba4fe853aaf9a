#pragma once

#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

namespace boost::asio {
class io_context;
}

namespace someip {

/// Threads, named "someip", that run one Boost.Asio context. The owner's thread; Context from any.
class WorkerPool {
public:
    /// Throws std::system_error if a thread cannot be started.
    explicit WorkerPool(std::size_t threads);

    /// Returns when all work of the context has ended, so its users must have closed their sockets
    /// and timers. On one of the pool's own threads it does not wait for that.
    ~WorkerPool();

    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Owned by the pool and its threads.
    boost::asio::io_context& Context();

    /// Does ahead of the destructor what that would do. May be called once.
    void Join();

private:
    struct State;
    std::shared_ptr<State> mState;
    std::vector<std::thread> mThreads;
};

}  // namespace someip
