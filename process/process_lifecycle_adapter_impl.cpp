#include "process/process_lifecycle_adapter_impl.h"

#include <chrono>
#include <utility>

#include <pthread.h>

#include "logging/qel_logging.h"
#include "process/process_lifecycle_adapter_api.h"

namespace process_lifecycle_adapter {

using qel_logging::QELLogging;

namespace {

constexpr std::chrono::milliseconds kAliveTimeStep{100};

}  // namespace

ProcessLifecycleAdapterImpl::ProcessLifecycleAdapterImpl()
    : mCreateApi(&CreateApi),
      mApi(mCreateApi()),
      mCallback(nullptr),
      mSignalHandler(std::make_unique<signal_handler::SignalHandler>([this] { Terminate(); })) {}

ProcessLifecycleAdapterImpl::ProcessLifecycleAdapterImpl(
    ProcessLifecycleAdapterCallbackIf* callback, ApiFactory createApi)
    : mCreateApi(std::move(createApi)),
      mCallback(callback),
      mSignalHandler(std::make_unique<signal_handler::SignalHandler>([this] { Terminate(); })) {}

ProcessLifecycleAdapterImpl::~ProcessLifecycleAdapterImpl() {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mRunning = false;
    }
    mCondition.notify_all();
    if (mKeepAliveThread.joinable()) {
        mKeepAliveThread.join();
    }
    // A SIGTERM that has arrived is still reported to the application.
    mSignalHandler.reset();
    mCallback = nullptr;
}

void ProcessLifecycleAdapterImpl::Initialize(const std::string& name,
                                             ProcessLifecycleAdapterCallbackIf* callback) {
    Initialize(name, callback, nullptr);
}

void ProcessLifecycleAdapterImpl::Initialize(
    const std::string& name, ProcessLifecycleAdapterCallbackIf* callback,
    ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
    EndKeepAliveThread();
    if (GetApi() == nullptr) {
        auto api = mCreateApi();
        const std::lock_guard<std::mutex> lock(mApiMutex);
        mApi = std::move(api);
    }
    if (stateCallback != nullptr) {
        mApi->Initialize(name, stateCallback);
    } else {
        mApi->Initialize(name);
    }
    if (callback != nullptr) {
        mCallback = callback;
    }
    const unsigned short aliveTime = mApi->GetIAmAliveTime();
    QELLogging::LogDebug("ProcessKeepAliveSignalling, aliveTime =", aliveTime);
    if (aliveTime == 0) {
        return;
    }
    mKeepAliveThread =
        std::thread(&ProcessLifecycleAdapterImpl::ProcessKeepAliveSignalling, this, aliveTime);
    pthread_setname_np(mKeepAliveThread.native_handle(), "keepAlive");
}

void ProcessLifecycleAdapterImpl::NotifyInit(
    const std::string& name, ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
    Initialize(name, nullptr, stateCallback);
}

void ProcessLifecycleAdapterImpl::Configure(const ConfigParams& params) {
    mNotifyTerminating = params.notifyTerminating;
}

void ProcessLifecycleAdapterImpl::StateChanged(ProcessState state, unsigned int sequence) {
    if (ProcessLifecycleAdapterApiIf* api = GetApi()) {
        api->StateChanged(state, sequence);
    }
}

void ProcessLifecycleAdapterImpl::StateChanged(bool changed) {
    if (ProcessLifecycleAdapterApiIf* api = GetApi()) {
        api->StateChanged(changed);
    }
}

void ProcessLifecycleAdapterImpl::Terminate() {
    QELLogging::LogDebug("ProcessLifecycleAdapterImpl::Terminate");
    if (mTerminating.exchange(true)) {
        return;
    }
    if (mNotifyTerminating) {
        if (ProcessLifecycleAdapterApiIf* api = GetApi()) {
            api->Terminating();
        } else {
            QELLogging::LogWarning("Cannot notify Terminating, adapter not instantiated");
        }
    }
    if (ProcessLifecycleAdapterCallbackIf* callback = mCallback) {
        callback->ProcessLifecycleAdapterTerminate();
    }
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mRunning = false;
    }
    mCondition.notify_all();
}

std::unique_ptr<ProcessLifecycleAdapterApiIf> ProcessLifecycleAdapterImpl::CreateApi() {
    return std::make_unique<ProcessLifecycleAdapterApi>();
}

ProcessLifecycleAdapterApiIf* ProcessLifecycleAdapterImpl::GetApi() {
    const std::lock_guard<std::mutex> lock(mApiMutex);
    return mApi.get();
}

void ProcessLifecycleAdapterImpl::EndKeepAliveThread() {
    if (!mKeepAliveThread.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mKeepAliveEnding = true;
    }
    mCondition.notify_all();
    mKeepAliveThread.join();
    mKeepAliveEnding = false;
}

void ProcessLifecycleAdapterImpl::ProcessKeepAliveSignalling(unsigned short aliveTime) {
    mApi->Start();
    const auto period = aliveTime * kAliveTimeStep;
    while (mRunning && !mKeepAliveEnding) {
        if (ProcessLifecycleAdapterCallbackIf* callback = mCallback) {
            if (callback->ProcessLifecycleAdapterGetHealthStatus() != 0) {
                return;
            }
            QELLogging::LogDebug("ProcessKeepAliveSignalling, call IAmAlive()");
            mApi->IAmAlive();
        }
        std::unique_lock<std::mutex> lock(mMutex);
        mCondition.wait_until(lock, std::chrono::steady_clock::now() + period,
                              [this] { return !mRunning || mKeepAliveEnding; });
    }
}

}  // namespace process_lifecycle_adapter
