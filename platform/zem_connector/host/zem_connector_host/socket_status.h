#pragma once

#include <cstdint>

namespace zem_connector::host {

/// The values of `SocketResult::status` on the host platform.
enum SocketStatus : std::int32_t {
    kSocketConnected = 0,
    /// Whatever has no value of its own; the log tells what it was.
    kSocketFailed = 1,
    kSocketRefused = 2,
    /// The limit of the whole attempt, whatever it was waiting for.
    kSocketTimeout = 3,
    kSocketNameNotFound = 4,
    kSocketUnreachable = 5,
    /// The peers found no common protocol, or one of them broke it.
    kSocketHandshakeFailed = 6,
    /// The peer's certificate has the wrong name, no trusted issuer, has expired ...
    kSocketCertificateRejected = 7,
    /// The proxy refused, or answered with what is no answer.
    kSocketProxyFailed = 8,
};

}  // namespace zem_connector::host
