#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include <lumo/i_service_registry.h>

namespace service_access {
class Connection;
}

namespace lumo {

/// The registry as the server reports it on a connection's event channel. Does not keep the
/// connection. Any thread.
class ServiceRegistry : public IServiceRegistry {
public:
    explicit ServiceRegistry(std::weak_ptr<service_access::Connection> connection);

    /// Registers no further listener.
    void close() { mClosed = true; }

protected:
    void addListener(const std::string& serviceName,
                     std::function<void(std::shared_ptr<LumoAccessor>)> connected,
                     std::function<void()> disconnected,
                     std::function<void(const std::exception&)> error) override;

private:
    const std::weak_ptr<service_access::Connection> mConnection;
    std::atomic<bool> mClosed{false};
};

}  // namespace lumo
