#include <mutex>
#include <set>
#include <utility>

#include <service_access/connection.h>

#include "lumo_host/connection.h"
#include "service_registry.h"

namespace lumo {

namespace {

using ConnectionPtr = std::shared_ptr<service_access::Connection>;

class Listeners : public ElementRegistry {
public:
    explicit Listeners(ConnectionPtr connection) : mConnection(std::move(connection)) {}

    void unsubscribeFromAll() override { mConnection->RemoveObservers(); }

private:
    const ConnectionPtr mConnection;
};

class Queries : public RequestManager {
public:
    explicit Queries(ConnectionPtr connection) : mConnection(std::move(connection)) {}

    void stop() override { mConnection->CancelQueries(); }

private:
    const ConnectionPtr mConnection;
};

class Admission : public EventManager {
public:
    explicit Admission(std::shared_ptr<ServiceRegistry> registry)
        : mRegistry(std::move(registry)) {}

    void stop() override { mRegistry->close(); }

private:
    const std::shared_ptr<ServiceRegistry> mRegistry;
};

class Callbacks : public TaskManager {
public:
    explicit Callbacks(ConnectionPtr connection) : mConnection(std::move(connection)) {}

    void stop() override { mConnection->StopCallbacks(); }

private:
    const ConnectionPtr mConnection;
};

class Sockets : public DefaultWebsocketManagerFactory {
public:
    explicit Sockets(ConnectionPtr connection) : mConnection(std::move(connection)) {}

    void addManager(const std::string& serviceKey) override {
        const std::lock_guard lock(mMutex);
        mServiceKeys.insert(serviceKey);
    }

    void stopAndClearAll() override {
        {
            const std::lock_guard lock(mMutex);
            mServiceKeys.clear();
        }
        mConnection->Stop();
    }

    void stopManager(const std::string& serviceKey) override {
        {
            const std::lock_guard lock(mMutex);
            if (mServiceKeys.erase(serviceKey) == 0 || !mServiceKeys.empty()) {
                return;
            }
        }
        mConnection->Stop();
    }

private:
    const ConnectionPtr mConnection;
    std::mutex mMutex;
    std::set<std::string> mServiceKeys;
};

}  // namespace

}  // namespace lumo

namespace lumo_host {

lumo::ConnectionMembers MakeConnectionMembers(
    const std::shared_ptr<service_access::Connection>& connection) {
    const auto registry = std::make_shared<lumo::ServiceRegistry>(connection);
    lumo::ConnectionMembers members;
    members.serviceRegistry = registry;
    members.elementRegistry = std::make_shared<lumo::Listeners>(connection);
    members.requestManager = std::make_shared<lumo::Queries>(connection);
    members.eventManager = std::make_shared<lumo::Admission>(registry);
    members.taskManager = std::make_shared<lumo::Callbacks>(connection);
    members.websocketManagerFactory = std::make_shared<lumo::Sockets>(connection);
    return members;
}

}  // namespace lumo_host
