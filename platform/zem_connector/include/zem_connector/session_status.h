#pragma once

#include <cstdint>

namespace zem_connector {

/// State of the process's session with the connector service.
enum class SessionStatus : std::int32_t {
    kIdle = 0,
    kStarting = 1,
    kStarted = 2,
    kRejected = 3,
};

}  // namespace zem_connector
