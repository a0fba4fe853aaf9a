#pragma once

#include <atomic>
#include <functional>
#include <string>

#include <zem_connector/zem_connector.h>

#include "testing/event_recorder.h"

namespace zem_connector {

/// Receives all callbacks as one line of text each and hands them out in order.
class CallbackRecorder : public testing_support::EventRecorder,
                         public ZemSessionCallbackIf,
                         public ZemServiceControllerCallbackIf,
                         public ZemSocketCallbackIf {
public:
    void ZemConnectorStatus(SessionStatus status) override {
        Note("session " + std::to_string(static_cast<int>(status)));
    }
    void ZemSCSessionStatus(SCSessionStatus status) override {
        Note("controller " + std::to_string(static_cast<int>(status)));
    }
    void ZemSCInvocationURL(SCUrlResult result) override {
        Note("url " + std::to_string(result.result) + " " + result.operationTypeId + " " +
             result.url);
    }
    void ZemSCActivationState(SCActivationStateUpdate update) override {
        Note("activation " + update.transactionType + " " +
             (update.disabledReasons.empty() ? "on" : "off"));
    }
    void ZemSCConnectionState(SCConnectionStateUpdate update) override {
        Note("connection " + update.transactionType + " " +
             std::to_string(static_cast<int>(update.connectionState)));
    }
    void ZemSocketResult(SocketResult result) override {
        mSocket = result.socketFileDescriptor;
        Note("socket " + std::to_string(result.status));
    }

    /// The socket of the last result.
    int Socket() const { return mSocket; }

    /// Runs inside each callback, on the library's thread. To be set before the start.
    std::function<void()> inCallback;

private:
    void Note(const std::string& line) {
        if (inCallback) {
            inCallback();
        }
        Add(line);
    }

    std::atomic<int> mSocket{-1};
};

}  // namespace zem_connector
