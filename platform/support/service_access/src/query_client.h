#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <boost/asio/io_context.hpp>

#include <service_access/callback_thread.h>
#include <service_access/client_config.h>
#include <service_access/connection.h>

#include "unix_asio.h"

namespace service_access {

/// Queries of services, each a request on a socket of its own. Any thread may call it; the sockets
/// are served by the thread that runs `io`.
class QueryClient {
public:
    using Handler = Connection::QueryHandler;

    /// All three must outlive this object and what it has posted to `io`.
    QueryClient(boost::asio::io_context& io, const ClientConfig& config, CallbackThread& callbacks)
        : mIo(io), mConfig(config), mCallbacks(callbacks) {}

    QueryClient(const QueryClient&) = delete;
    QueryClient& operator=(const QueryClient&) = delete;

    /// Unless this throws, `handler` is called exactly once, on the callback thread, at the latest
    /// after the query time limit. Throws std::runtime_error after Close and while 64 queries are
    /// under way.
    void Query(const std::string& service, const std::string& query, Handler handler);

    /// Ends the queries under way with a failure.
    void Cancel();

    /// Cancels, and accepts no further query.
    void Close();

private:
    struct Exchange;

    std::uint64_t Register(Handler handler);
    void Complete(std::uint64_t id, QueryResult result);
    void Fail(std::uint64_t id, const std::string& reason);

    // On the thread of the sockets.
    void Run(const std::shared_ptr<Exchange>& exchange);
    void Send(const std::shared_ptr<Exchange>& exchange);
    void ReadAnswer(const std::shared_ptr<Exchange>& exchange);
    void Finish(const std::shared_ptr<Exchange>& exchange, const ErrorCode& error);

    boost::asio::io_context& mIo;
    const ClientConfig& mConfig;
    CallbackThread& mCallbacks;

    std::mutex mMutex;
    bool mClosed = false;
    std::uint64_t mNextId = 1;
    std::map<std::uint64_t, Handler> mHandlers;
};

}  // namespace service_access
