#include <service_access/client_config.h>
#include <service_access/connection.h>
#include <service_access/log.h>
#include <wexa_client/client_service_utils.h>

#include "lumo_host/connection.h"

namespace wexa_client {

std::shared_ptr<ClientServiceBase> ClientServiceUtils::CreateClientServiceBase(
    const std::string& configPath) {
    const auto connection = std::make_shared<service_access::Connection>(
        service_access::LoadClientConfig(service_access::ResolveClientConfigPath(configPath)));
    return std::make_shared<ClientServiceBase>(
        ClientServiceBase{lumo_host::MakeConnectionMembers(connection)});
}

std::shared_ptr<lumo::LumoClientServices> ClientServiceUtils::CreateClientServices(
    const ClientServiceBase& base, const std::string& serviceName, const std::string& clientName) {
    base.websocketManagerFactory->addManager(serviceName);
    service_access::Log().Info(serviceName + ": " + clientName);
    return std::make_shared<lumo::LumoClientServices>(base.serviceRegistry);
}

}  // namespace wexa_client
