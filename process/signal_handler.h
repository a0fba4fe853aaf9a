#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace signal_handler {

/// Installed for SIGTERM and SIGPIPE: hands the number of the signal to the thread of the
/// SignalHandler, and does nothing where there is none. Never blocks and is safe in signal context.
/// With the pipe to the thread full, a SIGPIPE is dropped and a SIGTERM is not.
void HandleSignal(int signal);

/// Turns SIGTERM into a function call on a thread of its own; SIGPIPE is only logged.
///
/// One may exist at a time. When it is destroyed without having handled a SIGTERM, the next one
/// ends the process; after one it has handled, further ones have no effect. SIGPIPE stays caught.
class SignalHandler {
public:
    /// `terminate` is called once at most, on the handler's thread, and must not destroy the
    /// handler. If the system refuses, an error is logged and signals have no effect.
    explicit SignalHandler(std::function<void()> terminate);
    /// Waits for a call of `terminate` that is being made, and makes it itself for a SIGTERM that
    /// has come too late for the thread.
    ~SignalHandler();

    SignalHandler(const SignalHandler&) = delete;
    SignalHandler& operator=(const SignalHandler&) = delete;

private:
    void HandleMessages();
    /// The number of the next signal, or a negative value on failure.
    int ReadMessage() const;
    void StopThread();
    bool HasLateSigterm() const;

    std::function<void()> mTerminate;
    int mReadEnd = -1;  ///< stays open for good, like the write end: a late signal may use it
    std::atomic<bool> mThreadEnded{false};
    bool mSigtermHeard = false;  ///< the thread's, and after its end the destructor's
    std::thread mThread;
};

}  // namespace signal_handler
