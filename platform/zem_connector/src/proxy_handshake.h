#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/ip/tcp.hpp>

#include <zem_connector_host/operation_settings.h>

#include "proxy_protocol.h"

namespace zem_connector {

/// Requests a connection to the target from a proxy, over a socket that is connected to the proxy.
///
/// Reads to the end of the proxy's answers and not a byte further. There is no time limit;
/// releasing the last reference cancels it. Runs on the thread of the socket's context.
class ProxyHandshake : public std::enable_shared_from_this<ProxyHandshake> {
public:
    using Socket = boost::asio::ip::tcp::socket;
    /// Called once: with `kSocketConnected`, or with a failure and its cause for the log.
    using Done = std::function<void(host::SocketStatus, const std::string& detail, Socket)>;

    ProxyHandshake(Socket socket, const host::ProxySettings& proxy, ProxyTarget target, Done done);

    void Start();

private:
    using Parser = std::function<ProxyAnswer(std::string_view)>;
    using Step = void (ProxyHandshake::*)(const ProxyAnswer&);

    void Ask(std::string request, Parser parser, Step next);
    void AwaitAnswer();
    void ReadAnswer();
    void Judge(const ProxyAnswer& answer);

    void OnSocksMethod(const ProxyAnswer& answer);
    void ConnectBySocks(const ProxyAnswer& answer);
    void Succeed(const ProxyAnswer& answer);
    void Fail(host::SocketStatus status, const std::string& detail);

    Socket mSocket;
    host::ProxyType mType;
    ProxyCredentials mCredentials;
    ProxyTarget mTarget;
    Done mDone;
    std::string mRequest;
    std::string mReceived;
    Parser mParser;
    Step mNext{nullptr};
};

}  // namespace zem_connector
