#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <clampcontrolclient/clamp_control_callback_if.h>
#include <clampcontrolclient/clamp_control_client.h>

#include "vehicle/clamp_control_handler_cb_if.h"
#include "vehicle/clamp_control_handler_if.h"

namespace nuro_common {

/// Handler on the platform's clamp control client.
class ClampControlHandler : public ClampControlHandlerIf,
                            public clampcontrolclient::ClampControlCallbackIf {
public:
    /// `callback` may be null, is not owned, and must outlive the handler.
    explicit ClampControlHandler(ClampControlHandlerCbIf* callback);

    /// Ends the attempts, the subscription and the client. It waits for a notification that runs,
    /// and afterwards there is none any more.
    ~ClampControlHandler() override;

    ClampControlHandler(const ClampControlHandler&) = delete;
    ClampControlHandler& operator=(const ClampControlHandler&) = delete;

    bool ClampControlInit() override;
    bool SubscribeNB() override;

    void ConnectionStateNotification(bool connected) override;
    void ClampControlNotification(bool state) override;
    void ClampControlSubscribedNotification() override;

private:
    void SubscribeThread();
    bool Subscribe();
    void WaitBeforeNextAttempt();
    void EndSubscribeThread();

    std::shared_ptr<clampcontrolclient::ClampControlClient> mClient;
    ClampControlHandlerCbIf* mCallback;
    std::unique_ptr<std::thread> mSubscribeThread;
    std::string mSubscription;
    std::atomic<bool> mSubscribing{false};

    // Guards mSubscribeThread and mClosing; held while a former thread is joined.
    std::mutex mThreadMutex;
    bool mClosing = false;
    std::atomic<std::thread::id> mSubscribeThreadId{};

    std::mutex mWaitMutex;
    std::condition_variable mWaitEnded;
};

}  // namespace nuro_common
