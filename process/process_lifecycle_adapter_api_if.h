#pragma once

#include <string>

#include "process/process_lifecycle_adapter_state_callback_if.h"
#include "process/process_state.h"

namespace process_lifecycle_adapter {

/// The platform client beneath the lifecycle adapter. Failures are log lines; nothing is thrown.
class ProcessLifecycleAdapterApiIf {
public:
    virtual ~ProcessLifecycleAdapterApiIf() = default;

    /// Reports the process as running and reads the health configuration of the component `name`.
    virtual void Initialize(const std::string& name) = 0;

    /// The same, and registers the component for state requests. `callback` is not owned.
    virtual void Initialize(const std::string& name,
                            ProcessLifecycleAdapterStateCallbackIf* callback) = 0;

    /// Makes the health objects; called on the thread that reports the health afterwards.
    virtual void Start() = 0;

    /// Time between two alive indications in steps of 100 ms; 0 means that none are expected.
    virtual unsigned short GetIAmAliveTime() = 0;

    /// Gives one alive indication; called on the thread that has called Start.
    virtual void IAmAlive() = 0;

    /// Reports the process as terminating. May be called from any thread.
    virtual void Terminating() = 0;

    /// Confirms the state request `sequence`. May be called from any thread.
    virtual void StateChanged(ProcessState state, unsigned int sequence) = 0;

    /// Has no effect.
    virtual void StateChanged(bool changed) = 0;
};

}  // namespace process_lifecycle_adapter
