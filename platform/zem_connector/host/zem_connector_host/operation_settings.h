#pragma once

#include <optional>
#include <string>

namespace zem_connector::host {

enum class TlsVersion { kTls12 = 0, kTls13 = 1 };

/// TLS for the sockets of an operation (RFC 8446, RFC 5246).
struct TlsSettings {
    /// Absolute path of a file with one or more certificates in PEM. Each is a
    /// trust anchor, self-signed or not; there are no others. Read for each connection.
    std::string trustAnchors;
    /// The name or IP address that the peer's certificate must have; empty for the host of
    /// `SocketConnect`.
    std::string serverName;
    /// The lowest version that is negotiated.
    TlsVersion minimumVersion{TlsVersion::kTls12};
};

enum class ProxyType { kHttp = 0, kSocks5 = 1 };

/// A proxy that connects on behalf of an operation: HTTP CONNECT (RFC 9110) or SOCKS5 (RFC 1928).
struct ProxySettings {
    ProxyType type{ProxyType::kHttp};
    std::string host;
    unsigned short port{0};
    /// For RFC 7617 or RFC 1929, 1 to 255 bytes each; an empty user stands for none.
    std::string user;
    std::string password;
};

/// How the sockets of one operation are connected; by default directly, without TLS.
struct OperationSettings {
    std::optional<TlsSettings> tls;
    std::optional<ProxySettings> proxy;
};

}  // namespace zem_connector::host
