#pragma once

#include <posix/unique_fd.h>
#include <someip/wire/endpoint.h>

namespace someip {

/// The right to serve an address and port of service discovery in this network namespace, which one
/// holder has at a time, until it is destroyed or its process ends. The port itself can't be that,
/// for others may need it for the multicast group.
class AddressClaim {
public:
    /// Throws std::runtime_error if another holder has it.
    explicit AddressClaim(const Endpoint& endpoint);

private:
    posix::UniqueFd mSocket;
};

}  // namespace someip
