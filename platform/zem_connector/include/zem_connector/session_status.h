#pragma once

#include <cstdint>

namespace zem_connector {

/// State of the process's session with the connector service.
enum class SessionStatus : std::int32_t {
    /// No session, and none is being opened.
    kIdle = 0,
    kStarting = 1,
    /// URLs and sockets are available in this state only.
    kStarted = 2,
    /// Refused by the service.
    kRejected = 3,
};

}  // namespace zem_connector
