#pragma once

#include <optional>
#include <string>

namespace zem_connector::host {

enum class TlsVersion { kTls12 = 0, kTls13 = 1 };

/// How the sockets of an operation are protected (RFC 8446, RFC 5246).
struct TlsSettings {
    /// Absolute path of a file with one or more certificates in PEM. Each of them is trusted, a
    /// root or not; nothing else is. It is read anew for each connection.
    std::string trustAnchors;
    /// The name or IP address that the peer's certificate must hold; empty for the host that
    /// `SocketConnect` was given.
    std::string serverName;
    /// The highest version that both sides know is used, if it is not below this one.
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

/// How the sockets of one operation are made; by default in clear and directly.
struct OperationSettings {
    std::optional<TlsSettings> tls;
    std::optional<ProxySettings> proxy;
};

}  // namespace zem_connector::host
