#pragma once

#include "process/process_state.h"

namespace process_lifecycle_adapter {

/// Implemented by an application that follows the state requests of state management.
class ProcessLifecycleAdapterStateCallbackIf {
public:
    virtual ~ProcessLifecycleAdapterStateCallbackIf() = default;

    /// A new state is requested. Called on a thread of the platform. `sequence` identifies the
    /// request and is given to ProcessLifecycleAdapterIf::StateChanged once the state is taken.
    virtual void ProcessLifecycleAdapterStateRequested(ProcessState state,
                                                       unsigned int sequence) = 0;
};

}  // namespace process_lifecycle_adapter
