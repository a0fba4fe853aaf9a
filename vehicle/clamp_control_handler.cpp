#include "vehicle/clamp_control_handler.h"

#include <chrono>
#include <exception>

#include "logging/qel_logging.h"

namespace nuro_common {

using qel_logging::QELLogging;

namespace {

constexpr char kClampName[] = "Clamp15";
constexpr std::chrono::milliseconds kRetryDelay{500};

}  // namespace

ClampControlHandler::ClampControlHandler(ClampControlHandlerCbIf* callback)
    : mClient(std::make_shared<clampcontrolclient::ClampControlClient>()), mCallback(callback) {}

ClampControlHandler::~ClampControlHandler() {
    {
        const std::lock_guard lock(mThreadMutex);
        mClosing = true;
        EndSubscribeThread();
    }
    // Not under the lock: the client waits for a notification that may be about to subscribe.
    if (!mSubscription.empty()) {
        mClient->UnsubscribeClampState(mSubscription);
    }
    mClient->AssignCallback(nullptr);
    mClient->Stop();
}

bool ClampControlHandler::ClampControlInit() {
    mClient->AssignCallback(this);
    mClient->Start();
    return true;
}

bool ClampControlHandler::SubscribeNB() {
    if (mSubscribeThreadId == std::this_thread::get_id()) {
        // The attempts under way go on; the thread can't wait for its own end.
        return true;
    }
    const std::lock_guard lock(mThreadMutex);
    if (mClosing) {
        return true;
    }
    EndSubscribeThread();
    mSubscribing = true;
    try {
        mSubscribeThread = std::make_unique<std::thread>([this] { SubscribeThread(); });
    } catch (...) {
        mSubscribing = false;
        throw;
    }
    return true;
}

void ClampControlHandler::EndSubscribeThread() {
    {
        const std::lock_guard lock(mWaitMutex);
        mSubscribing = false;
    }
    mWaitEnded.notify_all();
    if (!mSubscribeThread) {
        return;
    }
    if (mSubscribeThread->joinable()) {
        mSubscribeThread->join();
    }
    mSubscribeThread.reset();
}

void ClampControlHandler::SubscribeThread() {
    mSubscribeThreadId = std::this_thread::get_id();
    try {
        while (mSubscribing) {
            if (Subscribe()) {
                QELLogging::LogInfo("ClampControlHandlerNB: Subscribed to Clamp Control");
                mSubscribing = false;
            } else {
                QELLogging::LogError(
                    "ClampControlHandlerNB: FAILED to subscribe to Clamp Control!");
                WaitBeforeNextAttempt();
            }
        }
    } catch (const std::exception& exception) {
        QELLogging::LogWarning("ClampControlHandlerNB: Exception while subscribing: ",
                               exception.what());
        mSubscribing = false;
    }
    mSubscribeThreadId = std::thread::id();
}

void ClampControlHandler::WaitBeforeNextAttempt() {
    std::unique_lock lock(mWaitMutex);
    mWaitEnded.wait_for(lock, kRetryDelay, [this] { return !mSubscribing; });
}

bool ClampControlHandler::Subscribe() {
    mSubscription = mClient->SubscribeClampState();
    if (mSubscription.empty()) {
        QELLogging::LogError("ClampControlHandler: FAILED to subscribe to Clamp Control!");
        return false;
    }
    QELLogging::LogInfo("ClampControlHandler: Subscribed to Clamp Control");
    return true;
}

void ClampControlHandler::ConnectionStateNotification(bool connected) {
    QELLogging::LogDebug(
        "ClampControlHandler: Clamp Control Service connection state has changed to ",
        (connected ? "1" : "0"));
    if (mCallback != nullptr) {
        mCallback->ClampControlConnectionStateChangeCb(connected);
    }
}

void ClampControlHandler::ClampControlNotification(bool state) {
    QELLogging::LogDebug("ClampControlHandler: Received a Clamp Control state notification");
    if (mCallback != nullptr) {
        mCallback->ClampStateChangeCb(kClampName, state);
    }
}

void ClampControlHandler::ClampControlSubscribedNotification() {
    QELLogging::LogDebug("ClampControlHandler: Received a Clamp Control subscribed notification");
    if (mCallback != nullptr) {
        mCallback->ClampSubscribedCb();
    }
}

}  // namespace nuro_common
