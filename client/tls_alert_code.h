#pragma once

#include <cstdint>

namespace tls_alert_if {

/// A TLS alert description (RFC 8446, section 6), or a value of the reporting daemon outside the
/// published range. One byte on the wire.
enum class ETlsAlertCode : std::uint32_t {
    kCertificateRevoked = 44,
    kDecryptError = 51,
    kProxySpecific = 200,
};

}  // namespace tls_alert_if
