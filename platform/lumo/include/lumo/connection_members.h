#pragma once

#include <memory>
#include <string>

#include <lumo/i_service_registry.h>

namespace lumo {

/// The parts of a connection to the access layer that its owner stops one by one, in the order in
/// which they stand here. The parts share the connection and keep it open; it closes with the last
/// of them.
///
/// Every operation may be called from any thread, from within a callback too, and may be repeated.
/// A stop that waits takes bounded time apart from a callback that runs. None of them fails.

/// The listeners that were registered on the connection.
class ElementRegistry {
public:
    virtual ~ElementRegistry() = default;

    /// Removes all listeners. When this returns, none is called any more, apart from the one from
    /// which it is called. Listeners that are registered later are called again.
    virtual void unsubscribeFromAll() = 0;
};

/// The queries under way.
class RequestManager {
public:
    virtual ~RequestManager() = default;

    /// Ends the queries under way: the error function of each is called, on the thread of the
    /// callbacks. Does not wait for that. Later queries are served.
    virtual void stop() = 0;
};

/// Admission of new listeners.
class EventManager {
public:
    virtual ~EventManager() = default;

    /// From now on IServiceRegistry::registerServiceListener throws.
    virtual void stop() = 0;
};

/// The thread of the callbacks.
class TaskManager {
public:
    virtual ~TaskManager() = default;

    /// Removes all listeners and ends the queries under way by their error functions. When this
    /// returns, no callback runs (but the one from which it is called) and none will. Later queries
    /// throw.
    virtual void stop() = 0;
};

/// The sockets, which all services of a connection share.
class DefaultWebsocketManagerFactory {
public:
    virtual ~DefaultWebsocketManagerFactory() = default;

    /// Notes that the service of this key uses the connection.
    virtual void addManager(const std::string& serviceKey) = 0;

    /// Closes the connection, whoever uses it, as TaskManager::stop does and with it the sockets.
    virtual void stopAndClearAll() = 0;

    /// Notes that the service of this key no longer uses the connection, which closes with its
    /// last user. An unknown key is ignored.
    virtual void stopManager(const std::string& serviceKey) = 0;
};

/// One connection. No member is null.
struct ConnectionMembers {
    std::shared_ptr<IServiceRegistry> serviceRegistry;
    std::shared_ptr<ElementRegistry> elementRegistry;
    std::shared_ptr<RequestManager> requestManager;
    std::shared_ptr<EventManager> eventManager;
    std::shared_ptr<TaskManager> taskManager;
    std::shared_ptr<DefaultWebsocketManagerFactory> websocketManagerFactory;
};

}  // namespace lumo
