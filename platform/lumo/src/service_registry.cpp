#include "service_registry.h"

#include <stdexcept>
#include <utility>

#include <service_access/connection.h>

#include "connection_accessor.h"

namespace lumo {

ServiceRegistry::ServiceRegistry(std::weak_ptr<service_access::Connection> connection)
    : mConnection(std::move(connection)) {}

void ServiceRegistry::addListener(const std::string& serviceName,
                                  std::function<void(std::shared_ptr<LumoAccessor>)> connected,
                                  std::function<void()> disconnected,
                                  std::function<void(const std::exception&)> error) {
    const auto connection = mConnection.lock();
    if (!connection || mClosed) {
        throw std::runtime_error("the service registry was stopped");
    }
    service_access::ServiceObserver observer;
    observer.available = [accessor = std::make_shared<ConnectionAccessor>(mConnection),
                          connected = std::move(connected)] { connected(accessor); };
    observer.unavailable = std::move(disconnected);
    observer.error = std::move(error);
    connection->AddObserver(serviceName, std::move(observer));
    connection->Start();
}

}  // namespace lumo
