#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>

namespace someip {

/// Opens `socket` close-on-exec.
void OpenUdp(boost::asio::ip::udp::socket& socket, const boost::asio::ip::udp& protocol,
             boost::system::error_code& error);

}  // namespace someip
