#pragma once

#include <functional>
#include <string>
#include <vector>

#include <boost/asio/ip/tcp.hpp>
#include <zem_connector_host/socket_status.h>

namespace zem_connector {

using Endpoints = std::vector<boost::asio::ip::tcp::endpoint>;

/// Result of a name look-up.
struct NameLookupResult {
    /// Empty on failure.
    Endpoints addresses;
    host::SocketStatus status{host::kSocketConnected};
    /// The cause of a failure, for the log.
    std::string detail;
};

/// Finds a host's addresses in the order in which they are to be tried. May block for long.
using NameLookup = std::function<NameLookupResult(const std::string& host, unsigned short port)>;

/// Look-up by the system's resolver; at most the first 16 addresses count.
NameLookupResult SystemNameLookup(const std::string& host, unsigned short port);

/// The addresses with the families in turn, beginning with the first one's; the order within a
/// family stays (RFC 8305, section 4).
Endpoints InterleaveFamilies(const Endpoints& addresses);

}  // namespace zem_connector
