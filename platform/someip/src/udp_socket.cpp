#include "udp_socket.h"

#include <cerrno>

#include <sys/socket.h>
#include <unistd.h>

namespace someip {

void OpenUdp(boost::asio::ip::udp::socket& socket, const boost::asio::ip::udp& protocol,
             boost::system::error_code& error) {
    const int descriptor =
        ::socket(protocol.family(), protocol.type() | SOCK_CLOEXEC, protocol.protocol());
    if (descriptor < 0) {
        error.assign(errno, boost::system::system_category());
        return;
    }
    socket.assign(protocol, descriptor, error);
    if (error) {
        ::close(descriptor);
    }
}

}  // namespace someip
