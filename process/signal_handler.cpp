#include "process/signal_handler.h"

#include <array>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigaction is not in <csignal>
#include <unistd.h>

#include "logging/qel_logging.h"

namespace signal_handler {

using qel_logging::QELLogging;

namespace {

/// The real handler gets no context, so the write end of the pipe has to be found here.
std::atomic<int> gWriteEnd{-1};
/// A SIGTERM for which the pipe had no room, after SIGPIPEs that are still to be read.
std::atomic<bool> gSigtermHeldBack{false};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "a signal handler may not wait for a lock");

unsigned char StopMessage() {
    return static_cast<unsigned char>(SIGRTMIN);
}

bool WriteMessage(int fd, unsigned char message) {
    return ::write(fd, &message, sizeof(message)) == sizeof(message);
}

bool SetDisposition(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    return ::sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

void HandleSignal(int signal) {
    const int savedErrno = errno;
    const int writeEnd = gWriteEnd;
    const auto message = static_cast<unsigned char>(signal);
    if (writeEnd >= 0 && !WriteMessage(writeEnd, message) && signal == SIGTERM) {
        gSigtermHeldBack = true;
        // If the pipe has been emptied meanwhile, no reader would look at the flag.
        static_cast<void>(WriteMessage(writeEnd, message));
    }
    errno = savedErrno;
}

SignalHandler::SignalHandler(std::function<void()> terminate) : mTerminate(std::move(terminate)) {
    gSigtermHeldBack = false;
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) == 0) {
        // Without a reader, a signal must not block on a full pipe.
        static_cast<void>(::fcntl(ends[1], F_SETFL, O_WRONLY | O_NONBLOCK));
        mReadEnd = ends[0];
        gWriteEnd = ends[1];
    }
    mThread = std::thread(&SignalHandler::HandleMessages, this);
    if (!SetDisposition(SIGTERM, &HandleSignal)) {
        QELLogging::LogError("SignalHandler: Failed to set SIGTERM handler");
    }
    if (!SetDisposition(SIGPIPE, &HandleSignal)) {
        QELLogging::LogError("SignalHandler: Failed to set SIGPIPE handler");
    }
}

SignalHandler::~SignalHandler() {
    StopThread();
    if (mSigtermHeard) {
        return;
    }
    SetDisposition(SIGTERM, SIG_DFL);
    if (HasLateSigterm()) {
        SetDisposition(SIGTERM, &HandleSignal);
        mTerminate();
    }
}

bool SignalHandler::HasLateSigterm() const {
    if (mReadEnd < 0 || ::fcntl(mReadEnd, F_SETFL, O_NONBLOCK) != 0) {
        return false;
    }
    int signal = 0;
    while ((signal = ReadMessage()) >= 0) {
        if (signal == SIGTERM) {
            return true;
        }
    }
    return false;
}

void SignalHandler::StopThread() {
    const int writeEnd = gWriteEnd;
    // A full pipe is either being emptied or of no interest to anybody.
    while (writeEnd >= 0 && !WriteMessage(writeEnd, StopMessage()) &&
           (errno == EAGAIN || errno == EINTR) && !mThreadEnded) {
        std::this_thread::yield();
    }
    if (mThread.joinable()) {
        mThread.join();
    }
}

void SignalHandler::HandleMessages() {
    while (true) {
        if (mReadEnd < 0) {
            QELLogging::LogError("SignalHandler: Invalid pipe descriptor");
            break;
        }
        const int signal = ReadMessage();
        if (signal < 0) {
            QELLogging::LogError("SignalHandler: Error reading pipe");
            break;
        }
        QELLogging::LogInfo("SignalHandler: Signal ", signal, " caught");
        if (signal == StopMessage()) {
            QELLogging::LogInfo("SignalHandler: STOP message received.");
            break;
        }
        if (signal == SIGTERM) {
            QELLogging::LogInfo("SignalHandler: SIGTERM received.");
            // From here on the pipe has no reader.
            mThreadEnded = true;
            mSigtermHeard = true;
            mTerminate();
            break;
        }
    }
    mThreadEnded = true;
}

int SignalHandler::ReadMessage() const {
    unsigned char message = 0;
    ssize_t count = 0;
    do {
        count = ::read(mReadEnd, &message, sizeof(message));
    } while (count < 0 && errno == EINTR);
    if (count != 1) {
        return -1;
    }
    return gSigtermHeldBack.exchange(false) ? SIGTERM : message;
}

}  // namespace signal_handler
