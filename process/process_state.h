#pragma once

namespace process_lifecycle_adapter {

/// States that the platform's state management may request.
enum ProcessState {
    kOn = 1,
    kPrepSD = 2,  ///< prepare for shutdown
};

}  // namespace process_lifecycle_adapter
