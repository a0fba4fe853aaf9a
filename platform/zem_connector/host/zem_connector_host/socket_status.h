#pragma once

#include <cstdint>

namespace zem_connector::host {

/// The values of `SocketResult::status` on the host platform.
enum SocketStatus : std::int32_t {
    kSocketConnected = 0,
    /// Any other failure; the log has the cause.
    kSocketFailed = 1,
    kSocketRefused = 2,
    /// The time limit of the attempt has passed, in whichever step.
    kSocketTimeout = 3,
    kSocketNameNotFound = 4,
    kSocketUnreachable = 5,
    /// TLS handshake: no common version or cipher, or a protocol error.
    kSocketHandshakeFailed = 6,
    /// The peer's certificate has the wrong name, no trusted issuer, has expired ...
    kSocketCertificateRejected = 7,
    /// The proxy refused, or its answer is malformed.
    kSocketProxyFailed = 8,
};

}  // namespace zem_connector::host
