#pragma once

#include <memory>
#include <string>

#include "process/process_lifecycle_adapter_api_if.h"

namespace process_lifecycle_adapter {

class ProcessLifecycleAdapterApiImpl;

/// The platform client, with the platform's own headers kept out of sight.
class ProcessLifecycleAdapterApi : public ProcessLifecycleAdapterApiIf {
public:
    ProcessLifecycleAdapterApi();
    ~ProcessLifecycleAdapterApi() override;

    ProcessLifecycleAdapterApi(const ProcessLifecycleAdapterApi&) = delete;
    ProcessLifecycleAdapterApi& operator=(const ProcessLifecycleAdapterApi&) = delete;

    void Initialize(const std::string& name) override;
    void Initialize(const std::string& name,
                    ProcessLifecycleAdapterStateCallbackIf* callback) override;
    void Start() override;
    unsigned short GetIAmAliveTime() override;
    void IAmAlive() override;
    void Terminating() override;
    void StateChanged(ProcessState state, unsigned int sequence) override;
    void StateChanged(bool changed) override;

private:
    std::unique_ptr<ProcessLifecycleAdapterApiImpl> mImpl;
};

}  // namespace process_lifecycle_adapter
