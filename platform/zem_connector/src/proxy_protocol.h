#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <zem_connector_host/socket_status.h>

namespace zem_connector {

/// Result of parsing what a proxy has sent since the last request.
struct ProxyAnswer {
    enum class State { kIncomplete, kAccepted, kRefused, kMalformed };

    State state{State::kIncomplete};
    /// Bytes of the answer, if it was accepted; what follows comes from the peer behind the proxy.
    std::size_t size{0};
    /// The HTTP status, SOCKS reply, or chosen SOCKS method, if there is one.
    int code{0};
};

/// Longest answer in bytes; a longer one is `kMalformed`.
constexpr std::size_t kMaxProxyAnswerSize = 8192;

/// A host, which must satisfy `IsHostName`, and its port.
struct ProxyTarget {
    std::string host;
    unsigned short port{0};
};

/// The user's credentials at the proxy, at most 255 bytes each; an empty user stands for none.
struct ProxyCredentials {
    std::string user;
    std::string password;
};

/// RFC 9110, section 9.3.6, with the credentials of RFC 7617.
std::string HttpConnectRequest(const ProxyTarget& target, const ProxyCredentials& credentials);
/// Interim responses in front of the final one are part of the answer.
ProxyAnswer ParseHttpConnectAnswer(std::string_view bytes);

/// RFC 1928, section 3: offers the authentication methods that are supported.
std::string Socks5Greeting(bool hasCredentials);
/// `code` is the method; one that was not offered is malformed.
ProxyAnswer ParseSocks5Method(std::string_view bytes, bool hasCredentials);
constexpr int kSocks5UserPassword = 2;

/// RFC 1929.
std::string Socks5Credentials(const ProxyCredentials& credentials);
ProxyAnswer ParseSocks5CredentialsAnswer(std::string_view bytes);

/// RFC 1928, section 4. Names are resolved by the proxy.
std::string Socks5ConnectRequest(const ProxyTarget& target);
ProxyAnswer ParseSocks5ConnectAnswer(std::string_view bytes);
/// Maps a reply of RFC 1928, section 6, that reports a failure between the proxy and the target.
host::SocketStatus StatusOfSocks5Reply(int reply);

}  // namespace zem_connector
