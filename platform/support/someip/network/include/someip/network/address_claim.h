#pragma once

#include <posix/unique_fd.h>
#include <someip/wire/endpoint.h>

namespace someip {

/// The exclusive right to serve an address and port of service discovery in this network namespace,
/// held until the object is destroyed or its process ends. Binding the port cannot serve for that,
/// since other processes share it for the multicast group.
class AddressClaim {
public:
    /// Throws std::runtime_error if another holder has it, or the system grants no socket.
    explicit AddressClaim(const Endpoint& endpoint);

private:
    posix::UniqueFd mSocket;
};

}  // namespace someip
