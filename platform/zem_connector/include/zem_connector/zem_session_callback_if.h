#pragma once

#include <zem_connector/session_status.h>

namespace zem_connector {

/// Receiver of session changes. Called on threads of the library.
class ZemSessionCallbackIf {
public:
    virtual ~ZemSessionCallbackIf() = default;

    virtual void ZemConnectorStatus(SessionStatus status) = 0;
};

}  // namespace zem_connector
