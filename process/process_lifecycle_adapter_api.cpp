#include "process/process_lifecycle_adapter_api.h"

#include "process/process_lifecycle_adapter_api_impl.h"

namespace process_lifecycle_adapter {

ProcessLifecycleAdapterApi::ProcessLifecycleAdapterApi()
    : mImpl(std::make_unique<ProcessLifecycleAdapterApiImpl>()) {}

ProcessLifecycleAdapterApi::~ProcessLifecycleAdapterApi() = default;

void ProcessLifecycleAdapterApi::Initialize(const std::string& name) {
    mImpl->Initialize(name);
}

void ProcessLifecycleAdapterApi::Initialize(const std::string& name,
                                            ProcessLifecycleAdapterStateCallbackIf* callback) {
    mImpl->Initialize(name, callback);
}

void ProcessLifecycleAdapterApi::Start() {
    mImpl->Start();
}

unsigned short ProcessLifecycleAdapterApi::GetIAmAliveTime() {
    return mImpl->GetIAmAliveTime();
}

void ProcessLifecycleAdapterApi::IAmAlive() {
    mImpl->IAmAlive();
}

void ProcessLifecycleAdapterApi::Terminating() {
    mImpl->Terminating();
}

void ProcessLifecycleAdapterApi::StateChanged(ProcessState state, unsigned int sequence) {
    mImpl->StateChanged(state, sequence);
}

void ProcessLifecycleAdapterApi::StateChanged(bool /*changed*/) {}

}  // namespace process_lifecycle_adapter
