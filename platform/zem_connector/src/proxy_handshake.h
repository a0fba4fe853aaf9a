#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/ip/tcp.hpp>
#include <zem_connector_host/operation_settings.h>

#include "proxy_protocol.h"

namespace zem_connector {

/// Asks a proxy, to which a socket is connected already, for a connection to a target.
///
/// It reads to the end of the proxy's answers and not a byte further. There is no limit of time;
/// whoever drops the last reference ends it. All happens on the thread that runs the socket's
/// context.
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
