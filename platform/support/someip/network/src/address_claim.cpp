#include <cstddef>
#include <stdexcept>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

#include <someip/network/address_claim.h>

namespace someip {

AddressClaim::AddressClaim(const Endpoint& endpoint)
    : mSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    // An abstract name, marked by a leading zero byte, is released with its socket.
    const std::string name = "someip-sd-" + ToText(endpoint);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof(address.sun_path) - 1);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (!mSocket.IsValid() ||
        ::bind(mSocket.Get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) {
        throw std::runtime_error("another process has the service discovery of " +
                                 ToText(endpoint));
    }
}

}  // namespace someip
