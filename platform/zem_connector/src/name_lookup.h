#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <zem_connector_host/socket_status.h>

namespace zem_connector {

/// An address to connect to.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length{0};
};

/// Result of a name look-up.
struct NameLookupResult {
    /// Empty on failure.
    std::vector<SocketAddress> addresses;
    host::SocketStatus status{host::kSocketConnected};
    /// The cause of a failure, for the log.
    std::string detail;
};

/// Finds a host's addresses in the order in which they are to be tried. May block for long.
using NameLookup = std::function<NameLookupResult(const std::string& host, unsigned short port)>;

/// Look-up by the system's resolver; at most the first 16 addresses count.
NameLookupResult SystemNameLookup(const std::string& host, unsigned short port);

}  // namespace zem_connector
