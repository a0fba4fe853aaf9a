#include "connection_accessor.h"

#include <stdexcept>
#include <utility>

#include <service_access/connection.h>

namespace lumo {

namespace {

std::shared_ptr<const LumoResponse> ToResponse(const service_access::QueryResult& result) {
    const auto status = static_cast<int>(result.status);
    if (result.failure.empty()) {
        return std::make_shared<LumoResponse>(status, result.body);
    }
    return std::make_shared<LumoResponse>(status, HttpException(result.failure));
}

}  // namespace

ConnectionAccessor::ConnectionAccessor(std::weak_ptr<service_access::Connection> connection)
    : mConnection(std::move(connection)) {}

void ConnectionAccessor::query(const std::string& serviceName, const std::string& query,
                               ResponseFunction done) const {
    const auto connection = mConnection.lock();
    if (!connection) {
        throw std::runtime_error("the connection is gone");
    }
    connection->Query(serviceName, query,
                      [done = std::move(done)](const service_access::QueryResult& result) {
                          done(ToResponse(result));
                      });
}

}  // namespace lumo
