#pragma once

#include <exception>
#include <functional>
#include <memory>

namespace lumo {

/// Functions by which the user of a service learns of it. They run on a thread of the library, one
/// at a time and in the order of the events.
template <typename Service>
struct ServiceListener {
    /// The service is there; also at once, if it is there when the listener is registered.
    std::function<void(std::shared_ptr<Service>)> connected;
    /// The service, or the connection to it, is gone.
    std::function<void()> disconnected;
    /// The access layer received something that it can't understand.
    std::function<void(const std::exception&)> error;
};

}  // namespace lumo
