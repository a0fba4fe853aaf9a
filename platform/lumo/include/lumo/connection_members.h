#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace service_access {
class Connection;
}

namespace lumo {

class ServiceRegistry;

/// The parts of a connection that its owner stops one by one, in the order in which they stand
/// here. Each stop may be repeated, may come from any thread, and takes bounded time apart from a
/// callback that runs.

/// The listeners that were registered on the connection.
class ElementRegistry {
public:
    explicit ElementRegistry(std::shared_ptr<service_access::Connection> connection);
    virtual ~ElementRegistry();

    /// When this returns, no listener is called any more, apart from the one from which it is
    /// called.
    virtual void unsubscribeFromAll();

private:
    std::shared_ptr<service_access::Connection> mConnection;
};

/// The queries under way.
class RequestManager {
public:
    explicit RequestManager(std::shared_ptr<service_access::Connection> connection);
    virtual ~RequestManager();

    /// Ends the queries under way by their error functions.
    virtual void stop();

private:
    std::shared_ptr<service_access::Connection> mConnection;
};

/// The door for new listeners.
class EventManager {
public:
    explicit EventManager(std::shared_ptr<ServiceRegistry> registry);
    virtual ~EventManager();

    /// Lets no further listener in.
    virtual void stop();

private:
    std::shared_ptr<ServiceRegistry> mRegistry;
};

/// The thread of the callbacks.
class TaskManager {
public:
    explicit TaskManager(std::shared_ptr<service_access::Connection> connection);
    virtual ~TaskManager();

    /// When this returns, no callback runs (but the one from which it is called) and none will.
    virtual void stop();

private:
    std::shared_ptr<service_access::Connection> mConnection;
};

/// The sockets. All services of a connection share them.
class DefaultWebsocketManagerFactory {
public:
    explicit DefaultWebsocketManagerFactory(std::shared_ptr<service_access::Connection> connection);
    virtual ~DefaultWebsocketManagerFactory();

    /// Notes that the service of this key uses the connection.
    void addManager(const std::string& serviceKey);

    /// Closes the connection, whoever uses it.
    void stopAndClearAll();

    /// Notes that the service of this key no longer uses the connection, which closes with its
    /// last user. An unknown key is ignored.
    virtual void stopManager(const std::string& serviceKey);

private:
    std::shared_ptr<service_access::Connection> mConnection;
    std::mutex mMutex;
    std::set<std::string> mServiceKeys;
};

}  // namespace lumo
