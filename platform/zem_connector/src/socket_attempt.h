#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <posix/unique_fd.h>
#include <zem_connector_host/operation_settings.h>
#include <zem_connector_host/socket_status.h>

#include "happy_eyeballs.h"
#include "name_lookup.h"
#include "proxy_handshake.h"
#include "tls_stream.h"

namespace zem_connector {

/// What is to be connected, and how.
struct ConnectionPlan {
    ProxyTarget target;
    std::optional<host::ProxySettings> proxy;
    /// Null for a connection without TLS.
    SslPtr tls;

    /// The host whose addresses are to be looked up.
    const std::string& NextHost() const { return proxy ? proxy->host : target.host; }
    unsigned short NextPort() const { return proxy ? proxy->port : target.port; }
};

/// How an attempt ended.
struct ConnectionResult {
    host::SocketStatus status{host::kSocketFailed};
    /// The cause of a failure, for the log.
    std::string detail;
    /// On success one of the two: a connected, blocking, close-on-exec socket that has TCP_NODELAY
    /// set and belongs to the receiver, or a stream after its handshake.
    posix::UniqueFd descriptor;
    std::unique_ptr<TlsStream> stream;
};

/// Makes one connection within a time limit: to the host or its proxy, through the proxy, and with
/// TLS where the plan has it. A step that fails ends the attempt; there is no fallback.
///
/// Runs on the thread of the context. Releasing the last reference cancels the attempt; a socket
/// that was not handed over is closed.
class SocketAttempt : public std::enable_shared_from_this<SocketAttempt> {
public:
    /// Called once.
    using Done = std::function<void(ConnectionResult)>;

    SocketAttempt(boost::asio::io_context& context, ConnectionPlan plan, Done done);

    /// The time limit, name look-up included, starts here.
    void Start(std::chrono::milliseconds limit);

    /// Passes the result of the look-up. Ignored after the attempt has ended.
    void UseAddresses(const NameLookupResult& lookup);

private:
    using Socket = boost::asio::ip::tcp::socket;

    void OnConnected(const boost::system::error_code& error, Socket socket);
    void OnReached(Socket socket);
    void Handshake();
    void HandOver(Socket socket);
    void Fail(host::SocketStatus status, const std::string& detail);
    void Finish(ConnectionResult result);

    boost::asio::io_context& mContext;
    ConnectionPlan mPlan;
    Done mDone;
    boost::asio::steady_timer mTimer;
    /// The current step, for the log.
    const char* mStep{"name look-up"};
    std::shared_ptr<HappyEyeballs> mConnecting;
    std::shared_ptr<ProxyHandshake> mProxyHandshake;
    std::unique_ptr<TlsStream> mStream;
};

}  // namespace zem_connector
