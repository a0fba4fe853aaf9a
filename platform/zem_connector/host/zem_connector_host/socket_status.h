#pragma once

#include <cstdint>

namespace zem_connector::host {

/// The values of `SocketResult::status` on the host platform.
enum SocketStatus : std::int32_t {
    kSocketConnected = 0,
    /// Whatever has no value of its own; the log tells what it was.
    kSocketFailed = 1,
    kSocketRefused = 2,
    kSocketTimeout = 3,
    kSocketNameNotFound = 4,
    kSocketUnreachable = 5,
};

}  // namespace zem_connector::host
