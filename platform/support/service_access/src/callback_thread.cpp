#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <utility>

#include <service_access/callback_thread.h>
#include <service_access/log.h>

namespace service_access {

namespace {

void RunGuarded(const std::function<void()>& task) {
    try {
        task();
    } catch (const std::exception& error) {
        Log().Error(std::string("exception out of a callback: ") + error.what());
    } catch (...) {
        Log().Error("unknown exception out of a callback");
    }
}

}  // namespace

/// Shared with the thread, which outlives the owner if that is destroyed within a task.
struct CallbackThread::State {
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::deque<std::function<void()>> tasks;
    std::thread::id worker;
    std::uint64_t ended = 0;
    bool running = false;
    bool stopping = false;
    bool finished = false;

    bool OnWorker() const { return std::this_thread::get_id() == worker; }

    void RunNext(std::unique_lock<std::mutex>& lock) {
        auto task = std::move(tasks.front());
        tasks.pop_front();
        lock.unlock();
        RunGuarded(task);
        task = nullptr;
        lock.lock();
    }

    void Work() {
        std::unique_lock lock(mutex);
        worker = std::this_thread::get_id();
        while (true) {
            changed.wait(lock, [this] { return stopping || !tasks.empty(); });
            if (tasks.empty()) {
                break;
            }
            running = true;
            RunNext(lock);
            running = false;
            ++ended;
            changed.notify_all();
        }
        finished = true;
        changed.notify_all();
    }
};

CallbackThread::CallbackThread() : mState(std::make_shared<State>()) {
    mThread = std::thread([state = mState] { state->Work(); });
}

CallbackThread::~CallbackThread() {
    Stop();
    if (mThread.get_id() == std::this_thread::get_id()) {
        mThread.detach();
        return;
    }
    mThread.join();
}

bool CallbackThread::Post(std::function<void()> task) {
    const std::lock_guard lock(mState->mutex);
    if (mState->stopping) {
        return false;
    }
    mState->tasks.push_back(std::move(task));
    mState->changed.notify_all();
    return true;
}

void CallbackThread::Stop() {
    std::unique_lock lock(mState->mutex);
    mState->stopping = true;
    mState->changed.notify_all();
    if (!mState->OnWorker()) {
        mState->changed.wait(lock, [this] { return mState->finished; });
        return;
    }
    while (!mState->tasks.empty()) {
        mState->RunNext(lock);
    }
}

void CallbackThread::WaitForRunningTask() const {
    std::unique_lock lock(mState->mutex);
    if (mState->OnWorker()) {
        return;
    }
    const auto ended = mState->ended;
    mState->changed.wait(lock,
                         [this, ended] { return !mState->running || mState->ended != ended; });
}

std::size_t CallbackThread::QueueLength() const {
    const std::lock_guard lock(mState->mutex);
    return mState->tasks.size();
}

}  // namespace service_access
