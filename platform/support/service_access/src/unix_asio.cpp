#include "unix_asio.h"

#include <system_error>

#include "unix_socket.h"

namespace service_access {

ErrorCode OpenUnixSocket(UnixProtocol::socket& socket) {
    try {
        auto fd = MakeUnixSocket();
        ErrorCode error;
        socket.assign(UnixProtocol(), fd.Get(), error);
        if (!error) {
            fd.Release();
        }
        return error;
    } catch (const std::system_error& error) {
        return {error.code().value(), boost::system::generic_category()};
    }
}

}  // namespace service_access
