#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <pthread.h>

#include <someip/network/worker_pool.h>

namespace someip {

/// Owned by the threads, too: they may outlive the pool for a moment.
struct WorkerPool::State {
    boost::asio::io_context context;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{
        context.get_executor()};
};

WorkerPool::WorkerPool(std::size_t threads) : mState(std::make_shared<State>()) {
    try {
        for (std::size_t i = 0; i < threads; ++i) {
            mThreads.emplace_back([state = mState] { state->context.run(); });
            pthread_setname_np(mThreads.back().native_handle(), "someip");
        }
    } catch (...) {
        Join();
        throw;
    }
}

WorkerPool::~WorkerPool() {
    Join();
}

void WorkerPool::Join() {
    mState->work.reset();
    bool onOwnThread = false;
    for (const std::thread& thread : mThreads) {
        onOwnThread = onOwnThread || thread.get_id() == std::this_thread::get_id();
    }
    for (std::thread& thread : mThreads) {
        if (onOwnThread) {
            thread.detach();
        } else {
            thread.join();
        }
    }
    mThreads.clear();
}

boost::asio::io_context& WorkerPool::Context() {
    return mState->context;
}

}  // namespace someip
