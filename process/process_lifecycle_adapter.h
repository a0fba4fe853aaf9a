#pragma once

#include <memory>
#include <string>

#include "process/process_lifecycle_adapter_if.h"

namespace process_lifecycle_adapter {

class ProcessLifecycleAdapterImpl;

/// The application's handle on the platform's execution, state and health management.
///
/// From its construction on, SIGTERM leads to the application callback, on a thread of its own;
/// SIGPIPE is caught and logged. One adapter may exist at a time.
class ProcessLifecycleAdapter : public ProcessLifecycleAdapterIf {
public:
    ProcessLifecycleAdapter();
    /// `callback` is not owned, may be null and must outlive the adapter.
    explicit ProcessLifecycleAdapter(ProcessLifecycleAdapterCallbackIf* callback);
    ~ProcessLifecycleAdapter() override;

    ProcessLifecycleAdapter(const ProcessLifecycleAdapter&) = delete;
    ProcessLifecycleAdapter& operator=(const ProcessLifecycleAdapter&) = delete;

    void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback) override;
    void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback,
                    ProcessLifecycleAdapterStateCallbackIf* stateCallback) override;
    void NotifyInit(const std::string& name,
                    ProcessLifecycleAdapterStateCallbackIf* stateCallback) override;
    void Configure(const ConfigParams& params) override;
    void StateChanged(ProcessState state, unsigned int sequence) override;
    void StateChanged(bool changed) override;

private:
    std::unique_ptr<ProcessLifecycleAdapterImpl> mImpl;
};

}  // namespace process_lifecycle_adapter
