#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <zem_connector/zem_connector.h>

namespace zem_connector {

/// Receives all callbacks as one line of text each and hands them out in order.
class CallbackRecorder : public ZemSessionCallbackIf,
                         public ZemServiceControllerCallbackIf,
                         public ZemSocketCallbackIf {
public:
    void ZemConnectorStatus(SessionStatus status) override {
        Add("session " + std::to_string(static_cast<int>(status)));
    }
    void ZemSCSessionStatus(SCSessionStatus status) override {
        Add("controller " + std::to_string(static_cast<int>(status)));
    }
    void ZemSCInvocationURL(SCUrlResult result) override {
        Add("url " + std::to_string(result.result) + " " + result.operationTypeId + " " +
            result.url);
    }
    void ZemSCActivationState(SCActivationStateUpdate update) override {
        Add("activation " + update.transactionType + " " +
            (update.disabledReasons.empty() ? "on" : "off"));
    }
    void ZemSCConnectionState(SCConnectionStateUpdate update) override {
        Add("connection " + update.transactionType + " " +
            std::to_string(static_cast<int>(update.connectionState)));
    }
    void ZemSocketResult(SocketResult result) override {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mSocket = result.socketFileDescriptor;
        }
        Add("socket " + std::to_string(result.status));
    }

    /// The next callback; a failure of the test if none comes.
    std::string Next() {
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mArrived.wait_for(lock, std::chrono::seconds(30),
                               [this] { return !mLines.empty(); })) {
            ADD_FAILURE() << "no callback";
            return {};
        }
        std::string line = std::move(mLines.front());
        mLines.pop_front();
        return line;
    }

    std::size_t Waiting() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mLines.size();
    }

    /// The socket of the last result.
    int Socket() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mSocket;
    }

    /// Runs inside each callback, on the library's thread. To be set before the start.
    std::function<void()> inCallback;

private:
    void Add(const std::string& line) {
        if (inCallback) {
            inCallback();
        }
        const std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back(line);
        mArrived.notify_all();
    }

    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<std::string> mLines;
    int mSocket{-1};
};

}  // namespace zem_connector
