#pragma once

#include <zem_connector/session_status.h>

namespace zem_connector {

/// Receiver of session changes. Called on threads of the library, one call at a time.
class ZemSessionCallbackIf {
public:
    virtual ~ZemSessionCallbackIf() = default;

    /// With each change after `Start`.
    virtual void ZemConnectorStatus(SessionStatus status) = 0;
};

}  // namespace zem_connector
