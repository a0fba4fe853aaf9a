#pragma once

#include <exception>
#include <functional>
#include <memory>

namespace lumo {

/// Callbacks that report the state of a service to its user. They run on a thread of the library,
/// one at a time and in the order of the events.
template <typename Service>
struct ServiceListener {
    /// The service is available; also called at once if it is so when the listener is registered.
    std::function<void(std::shared_ptr<Service>)> connected;
    /// The service is no longer available, or the connection to it is lost.
    std::function<void()> disconnected;
    /// The access layer received a malformed message.
    std::function<void(const std::exception&)> error;
};

}  // namespace lumo
