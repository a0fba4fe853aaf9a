#pragma once

#include <memory>
#include <utility>

#include <lumo/i_service_registry.h>

namespace lumo {

/// What a client needs of the access layer.
class LumoClientServices {
public:
    explicit LumoClientServices(std::shared_ptr<IServiceRegistry> serviceRegistry)
        : mServiceRegistry(std::move(serviceRegistry)) {}

    /// Never null.
    std::shared_ptr<IServiceRegistry> getServiceRegistry() const { return mServiceRegistry; }

private:
    std::shared_ptr<IServiceRegistry> mServiceRegistry;
};

}  // namespace lumo
