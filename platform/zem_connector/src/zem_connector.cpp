#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

#include <pthread.h>

#include <zem_connector/zem_connector.h>

#include "connector_core.h"
#include "library_log.h"

namespace zem_connector {

namespace {

constexpr const char* kPathVariable = "ZEM_CONNECTOR_CONFIG";
constexpr const char* kDefaultPath = "/var/run/qel/config/zem-connector/ZemConnector.json";
constexpr const char* kThreadName = "zemConnector";

std::string ConfiguredPath() {
    const char* const path = std::getenv(kPathVariable);
    return path != nullptr && *path != '\0' ? path : kDefaultPath;
}

}  // namespace

class ZemConnector::Impl {
public:
    explicit Impl(ZemSessionCallbackIf* sessionCallback)
        : mCore(std::make_shared<ConnectorCore>(ConfiguredPath(), sessionCallback,
                                                SystemNameLookup)) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        Stop();
        if (mThread.joinable()) {
            // Destroyed inside a callback: the thread ends by itself right after it.
            mThread.detach();
        }
    }

    SessionStatus Start() {
        if (mStarted) {
            Log().Error("Start() may be called only once");
            return SessionStatus::kRejected;
        }
        mStarted = true;
        const SessionStatus status = mCore->Open();
        if (status != SessionStatus::kRejected) {
            mThread = std::thread([core = mCore] {
                pthread_setname_np(pthread_self(), kThreadName);
                core->Run();
            });
        }
        return status;
    }

    void Stop() {
        mStarted = true;
        mCore->Close();
        if (mCore->IsLibraryThread()) {
            return;
        }
        const std::lock_guard<std::mutex> lock(mJoinMutex);
        if (mThread.joinable()) {
            mThread.join();
        }
    }

    ConnectorCore& Core() { return *mCore; }

private:
    std::shared_ptr<ConnectorCore> mCore;
    std::thread mThread;
    std::mutex mJoinMutex;
    std::atomic<bool> mStarted{false};
};

ZemConnector::ZemConnector(ZemSessionCallbackIf* sessionCallback,
                           ZemPubSubCallbackIf* /*pubSubCallback*/)
    : mImpl(std::make_unique<Impl>(sessionCallback)) {}

ZemConnector::~ZemConnector() = default;

SessionStatus ZemConnector::Start() {
    return mImpl->Start();
}

void ZemConnector::Stop() {
    mImpl->Stop();
}

bool ZemConnector::SubscribeTransactionTypeState(std::string transactionType,
                                                 ZemServiceControllerCallbackIf* callback,
                                                 unsigned int /*options*/) {
    return mImpl->Core().Subscribe(std::move(transactionType), callback);
}

bool ZemConnector::GetInvocationUrl(std::string operationId,
                                    ZemServiceControllerCallbackIf* callback) {
    return mImpl->Core().QueryUrl(std::move(operationId), callback);
}

bool ZemConnector::SocketConnect(std::string operationId, std::string host, unsigned short port,
                                 ZemSocketCallbackIf* callback) {
    return mImpl->Core().Connect(std::move(operationId), std::move(host), port, callback);
}

}  // namespace zem_connector
