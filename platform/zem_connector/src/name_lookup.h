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

/// Resolves a host name to addresses in the order of preference. May block for long.
using NameLookup = std::function<NameLookupResult(const std::string& host, unsigned short port)>;

/// Look-up by the system's resolver; at most 16 addresses, their families
/// interleaved. Any thread; blocks.
NameLookupResult SystemNameLookup(const std::string& host, unsigned short port);

/// Interleaves the address families, starting with that of the first address; the order within a
/// family stays (RFC 8305, section 4).
Endpoints InterleaveFamilies(const Endpoints& addresses);

}  // namespace zem_connector
