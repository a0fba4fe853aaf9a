#pragma once

#include <boost/asio/local/stream_protocol.hpp>
#include <boost/system/error_code.hpp>

namespace service_access {

/// Unix stream sockets as Boost.Asio knows them.
using UnixProtocol = boost::asio::local::stream_protocol;
using ErrorCode = boost::system::error_code;

/// Opens a close-on-exec socket in `socket`.
ErrorCode OpenUnixSocket(UnixProtocol::socket& socket);

}  // namespace service_access
