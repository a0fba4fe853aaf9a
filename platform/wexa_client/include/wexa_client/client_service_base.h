#pragma once

#include <memory>

#include <lumo/connection_members.h>
#include <lumo/service_registry.h>

namespace wexa_client {

/// One connection to the access layer with all that belongs to it. No member is null. Its
/// destruction stops the connection.
struct ClientServiceBase {
    std::shared_ptr<lumo::ServiceRegistry> serviceRegistry;
    std::shared_ptr<lumo::ElementRegistry> elementRegistry;
    std::shared_ptr<lumo::RequestManager> requestManager;
    std::shared_ptr<lumo::EventManager> eventManager;
    std::shared_ptr<lumo::TaskManager> taskManager;
    std::shared_ptr<lumo::DefaultWebsocketManagerFactory> websocketManagerFactory;
};

}  // namespace wexa_client
