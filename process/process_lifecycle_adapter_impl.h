#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "process/process_lifecycle_adapter_api_if.h"
#include "process/process_lifecycle_adapter_if.h"
#include "process/signal_handler.h"

namespace process_lifecycle_adapter {

/// The adapter itself: SIGTERM handling, and the keep-alive thread.
class ProcessLifecycleAdapterImpl : public ProcessLifecycleAdapterIf {
public:
    using ApiFactory = std::function<std::unique_ptr<ProcessLifecycleAdapterApiIf>()>;

    /// Creates the platform client at once.
    ProcessLifecycleAdapterImpl();
    /// Leaves the platform client, which `createApi` makes, to Initialize.
    explicit ProcessLifecycleAdapterImpl(ProcessLifecycleAdapterCallbackIf* callback,
                                         ApiFactory createApi = &CreateApi);
    ~ProcessLifecycleAdapterImpl() override;

    ProcessLifecycleAdapterImpl(const ProcessLifecycleAdapterImpl&) = delete;
    ProcessLifecycleAdapterImpl& operator=(const ProcessLifecycleAdapterImpl&) = delete;

    void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback) override;
    /// A keep-alive thread of an earlier call is ended first.
    void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback,
                    ProcessLifecycleAdapterStateCallbackIf* stateCallback) override;
    void NotifyInit(const std::string& name,
                    ProcessLifecycleAdapterStateCallbackIf* stateCallback) override;
    void Configure(const ConfigParams& params) override;
    /// Without effect before the first Initialize.
    void StateChanged(ProcessState state, unsigned int sequence) override;
    void StateChanged(bool changed) override;

    /// Tells the platform and the application that the process ends; called on the signal thread.
    void Terminate();

private:
    static std::unique_ptr<ProcessLifecycleAdapterApiIf> CreateApi();

    /// The platform client or null. Once made, it stays until the destruction.
    ProcessLifecycleAdapterApiIf* GetApi();
    void EndKeepAliveThread();
    void ProcessKeepAliveSignalling(unsigned short aliveTime);

    ApiFactory mCreateApi;
    std::mutex mApiMutex;  ///< guards the making of mApi, during which a signal may arrive
    std::unique_ptr<ProcessLifecycleAdapterApiIf> mApi;
    std::atomic<ProcessLifecycleAdapterCallbackIf*> mCallback;  ///< not owned; may be null
    std::thread mKeepAliveThread;
    std::atomic<bool> mRunning{true};       ///< written under mMutex, so that no wake-up is missed
    std::atomic<bool> mTerminating{false};  ///< one request is enough
    std::atomic<bool> mKeepAliveEnding{false};  ///< likewise; ends the thread but not the rest
    std::condition_variable mCondition;
    std::mutex mMutex;
    std::atomic<bool> mNotifyTerminating{true};
    std::unique_ptr<signal_handler::SignalHandler> mSignalHandler;
};

}  // namespace process_lifecycle_adapter
