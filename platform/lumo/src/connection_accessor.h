#pragma once

#include <memory>
#include <string>

#include <lumo/lumo_accessor.h>

namespace service_access {
class Connection;
}

namespace lumo {

/// Queries over a connection, which it does not keep. Any thread.
class ConnectionAccessor : public LumoAccessor {
public:
    explicit ConnectionAccessor(std::weak_ptr<service_access::Connection> connection);

protected:
    void query(const std::string& serviceName, const std::string& query,
               ResponseFunction done) const override;

private:
    const std::weak_ptr<service_access::Connection> mConnection;
};

}  // namespace lumo
