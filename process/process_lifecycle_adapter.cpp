#include "process/process_lifecycle_adapter.h"

#include "process/process_lifecycle_adapter_impl.h"

namespace process_lifecycle_adapter {

ProcessLifecycleAdapter::ProcessLifecycleAdapter()
    : mImpl(std::make_unique<ProcessLifecycleAdapterImpl>()) {}

ProcessLifecycleAdapter::ProcessLifecycleAdapter(ProcessLifecycleAdapterCallbackIf* callback)
    : mImpl(std::make_unique<ProcessLifecycleAdapterImpl>(callback)) {}

ProcessLifecycleAdapter::~ProcessLifecycleAdapter() = default;

void ProcessLifecycleAdapter::Initialize(const std::string& name,
                                         ProcessLifecycleAdapterCallbackIf* callback) {
    mImpl->Initialize(name, callback);
}

void ProcessLifecycleAdapter::Initialize(const std::string& name,
                                         ProcessLifecycleAdapterCallbackIf* callback,
                                         ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
    mImpl->Initialize(name, callback, stateCallback);
}

void ProcessLifecycleAdapter::NotifyInit(const std::string& name,
                                         ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
    mImpl->NotifyInit(name, stateCallback);
}

void ProcessLifecycleAdapter::Configure(const ConfigParams& params) {
    mImpl->Configure(params);
}

void ProcessLifecycleAdapter::StateChanged(ProcessState state, unsigned int sequence) {
    mImpl->StateChanged(state, sequence);
}

void ProcessLifecycleAdapter::StateChanged(bool changed) {
    mImpl->StateChanged(changed);
}

}  // namespace process_lifecycle_adapter
