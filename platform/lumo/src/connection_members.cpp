#include <utility>

#include <lumo/connection_members.h>
#include <lumo/service_registry.h>
#include <service_access/connection.h>

namespace lumo {

using service_access::Connection;

ElementRegistry::ElementRegistry(std::shared_ptr<Connection> connection)
    : mConnection(std::move(connection)) {}

ElementRegistry::~ElementRegistry() = default;

void ElementRegistry::unsubscribeFromAll() {
    mConnection->RemoveObservers();
}

RequestManager::RequestManager(std::shared_ptr<Connection> connection)
    : mConnection(std::move(connection)) {}

RequestManager::~RequestManager() = default;

void RequestManager::stop() {
    mConnection->CancelQueries();
}

EventManager::EventManager(std::shared_ptr<ServiceRegistry> registry)
    : mRegistry(std::move(registry)) {}

EventManager::~EventManager() = default;

void EventManager::stop() {
    mRegistry->close();
}

TaskManager::TaskManager(std::shared_ptr<Connection> connection)
    : mConnection(std::move(connection)) {}

TaskManager::~TaskManager() = default;

void TaskManager::stop() {
    mConnection->StopCallbacks();
}

DefaultWebsocketManagerFactory::DefaultWebsocketManagerFactory(
    std::shared_ptr<Connection> connection)
    : mConnection(std::move(connection)) {}

DefaultWebsocketManagerFactory::~DefaultWebsocketManagerFactory() = default;

void DefaultWebsocketManagerFactory::addManager(const std::string& serviceKey) {
    const std::lock_guard lock(mMutex);
    mServiceKeys.insert(serviceKey);
}

void DefaultWebsocketManagerFactory::stopAndClearAll() {
    {
        const std::lock_guard lock(mMutex);
        mServiceKeys.clear();
    }
    mConnection->Stop();
}

void DefaultWebsocketManagerFactory::stopManager(const std::string& serviceKey) {
    {
        const std::lock_guard lock(mMutex);
        if (mServiceKeys.erase(serviceKey) == 0 || !mServiceKeys.empty()) {
            return;
        }
    }
    mConnection->Stop();
}

}  // namespace lumo
