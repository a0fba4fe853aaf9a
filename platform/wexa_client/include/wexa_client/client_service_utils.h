#pragma once

#include <memory>
#include <string>

#include <lumo/lumo_client_services.h>
#include <wexa_client/client_service_base.h>

namespace wexa_client {

/// Makes connections and what clients need of them. Any thread.
class ClientServiceUtils {
public:
    /// Makes a connection by the configuration file at `configPath`, or at the path that the
    /// environment variable WEXA_CLIENT_CONFIG holds. It connects with the first listener. Throws
    /// std::runtime_error if the file is missing or invalid.
    static std::shared_ptr<ClientServiceBase> CreateClientServiceBase(
        const std::string& configPath);

    /// `serviceName` is the service that the client uses, `clientName` a text for the log.
    static std::shared_ptr<lumo::LumoClientServices> CreateClientServices(
        const ClientServiceBase& base, const std::string& serviceName,
        const std::string& clientName);
};

/// Makes a client, a class derived from lumo::LumoClient, on its services.
template <typename Client>
std::shared_ptr<Client> CreateClient(std::shared_ptr<lumo::LumoClientServices> services) {
    return std::make_shared<Client>(std::move(services));
}

}  // namespace wexa_client
