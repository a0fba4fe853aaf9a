#pragma once

#include <string>

#include "process/process_lifecycle_adapter_callback_if.h"
#include "process/process_lifecycle_adapter_state_callback_if.h"
#include "process/process_state.h"

namespace process_lifecycle_adapter {

/// The platform's execution, state and health management as the application sees them.
///
/// All operations are called on the application's own thread, unless said otherwise. Failures are
/// log lines; nothing is thrown.
class ProcessLifecycleAdapterIf {
public:
    struct ConfigParams {
        /// Whether the end of the process is reported to the platform as terminating.
        bool notifyTerminating;
    };

    virtual ~ProcessLifecycleAdapterIf() = default;

    /// Reports the process as running, reads the health configuration of the component `name`
    /// and, if that requires it, starts the keep-alive indications. `callback` is not owned and
    /// must outlive the adapter; null leaves the one that is set.
    virtual void Initialize(const std::string& name,
                            ProcessLifecycleAdapterCallbackIf* callback) = 0;

    /// The same, and with a non-null `stateCallback` the component takes state requests, too.
    virtual void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback,
                            ProcessLifecycleAdapterStateCallbackIf* stateCallback) = 0;

    /// Initialize without an application callback.
    virtual void NotifyInit(const std::string& name,
                            ProcessLifecycleAdapterStateCallbackIf* stateCallback) = 0;

    /// Takes effect at the next end of the process. Any thread.
    virtual void Configure(const ConfigParams& params) = 0;

    /// Confirms the state request `sequence`. May be called from any thread.
    virtual void StateChanged(ProcessState state, unsigned int sequence) = 0;

    /// Has no effect.
    virtual void StateChanged(bool changed) = 0;
};

}  // namespace process_lifecycle_adapter
