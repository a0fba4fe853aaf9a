#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>

#include <service_access/client_config.h>

namespace service_access {

/// Callbacks for the user of a service; any of them may be empty. All run on the connection's
/// callback thread, one at a time, in the order in which things happened.
struct ServiceObserver {
    /// The service is available; also called right after the observer was added if it is so
    /// already.
    std::function<void()> available;
    /// The service is no longer available, or the connection is lost. All subscriptions have ended.
    std::function<void()> unavailable;
    /// The server sent a malformed message. The connection stays, or is made again.
    std::function<void(const std::exception&)> error;
    /// A subscription to an element of the service was accepted.
    std::function<void()> subscribed;
    /// A subscribed element has this value.
    std::function<void(const std::string& element, bool value)> elementChanged;
};

/// The outcome of a query. Either `failure` is empty and the server answered with `status` and
/// `body`, or `failure` is the reason why there is no answer.
struct QueryResult {
    unsigned status = 0;
    std::string body;
    std::string failure;
};

/// A client's connection to the service access layer, by the protocol of docs/service-access.md.
///
/// Once started it connects by itself, and again when the connection is lost, after a wait that
/// doubles from failure to failure and starts small again after a success. It has one thread for
/// the sockets and one for the callbacks. A callback may block; events queue up to a limit, beyond
/// which nothing more is read from the server.
///
/// Every operation may be called from any thread, from within a callback too.
class Connection {
public:
    using QueryHandler = std::function<void(const QueryResult&)>;

    explicit Connection(ClientConfig config);

    /// Stops. May run within a callback.
    ~Connection();

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Begins to connect; has no effect when called again or after Stop.
    void Start();

    /// Ends everything within bounded time, apart from the duration of a callback that runs.
    /// Queries under way end with a failure and blocked subscribers return. When this returns, no
    /// callback runs (but the one from which it is called) and none will.
    void Stop();

    /// Adds an observer of the service of that name.
    void AddObserver(const std::string& service, ServiceObserver observer);

    /// When this returns, no observer is called any more, apart from the one from which it is
    /// called.
    void RemoveObservers();

    /// Returns when the callback that runs at the moment has ended; at once within a callback.
    void WaitForCallback() const;

    /// Asks a service for a record. `query` is the query part of the URL, in its wire form. Unless
    /// this throws, `handler` is called exactly once, on the callback thread, at the latest after
    /// the query time limit. Throws std::runtime_error if the connection was stopped or 64 queries
    /// are under way.
    void Query(const std::string& service, const std::string& query, QueryHandler handler);

    /// Ends the queries under way with a failure.
    void CancelQueries();

    /// Subscribes to an element of a service. Blocks until the server has answered, the connection
    /// is lost, the time limit has passed or Stop is called. Returns the id of the subscription,
    /// which is empty if there is none. A subscription ends with its connection.
    std::string Subscribe(const std::string& service, const std::string& element);

    /// Ends a subscription; does not block. An unknown id is ignored.
    void Unsubscribe(const std::string& subscription);

    /// Does what Stop does, but leaves the sockets open.
    void StopCallbacks();

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace service_access
