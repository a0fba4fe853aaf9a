#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <lumo/lumo_accessor.h>
#include <lumo/service_listener.h>

namespace lumo {

/// Reports which services are available. Any thread.
class IServiceRegistry {
public:
    virtual ~IServiceRegistry() = default;

    /// Registers a listener for the service of this class. All functions of the listener must be
    /// set; what they refer to must live until ElementRegistry::unsubscribeFromAll() has returned.
    /// Throws std::runtime_error if the registry was stopped.
    template <typename Service>
    void registerServiceListener(ServiceListener<Service> listener) {
        addListener(
            Service::getServiceName(),
            [connected = std::move(listener.connected)](std::shared_ptr<LumoAccessor> accessor) {
                connected(std::make_shared<Service>(std::move(accessor)));
            },
            std::move(listener.disconnected), std::move(listener.error));
    }

protected:
    virtual void addListener(const std::string& serviceName,
                             std::function<void(std::shared_ptr<LumoAccessor>)> connected,
                             std::function<void()> disconnected,
                             std::function<void(const std::exception&)> error) = 0;
};

}  // namespace lumo
