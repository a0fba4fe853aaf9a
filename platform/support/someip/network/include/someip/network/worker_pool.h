#pragma once

#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

namespace boost::asio {
class io_context;
}

namespace someip {

/// A few threads that run one Boost.Asio context.
class WorkerPool {
public:
    explicit WorkerPool(std::size_t threads);

    /// Ends when all that was begun on the context has ended, so its users must have closed their
    /// sockets and timers. On one of the pool's own threads it doesn't wait for that.
    ~WorkerPool();

    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    boost::asio::io_context& Context();

    /// What the destructor does, ahead of it. May be called once.
    void Join();

private:
    struct State;
    std::shared_ptr<State> mState;
    std::vector<std::thread> mThreads;
};

}  // namespace someip
