#include "vehicle/socks_tls_alert_client.h"

#include <string>

#include <vonta_socket/unix_stream_client_connector.h>

#include "vehicle/socks_tls_alert_client_impl.h"
#include "vehicle/tls_alerts.h"

namespace socks_rux {

namespace {

constexpr const char* kSocketDirectory = "/var/run/adaptive/qel/tarvo-hesk/socks-rux";
constexpr const char* kSocketName = "/sockstlsalertifsocket";
constexpr int kNoReadTimeout = -1;

}  // namespace

SocksTlsAlertClient::SocksTlsAlertClient()
    : mImpl(std::make_unique<SocksTlsAlertClientImpl>(
          std::make_shared<vonta_socket::UnixStreamClientConnector>(
              std::string(kSocketDirectory) + kSocketName, kNoReadTimeout,
              "SocksTlsAlertClient"))) {}

unsigned int SocksTlsAlertClient::StartListening(SocksTlsAlertClientCallbackIf* callback) {
    return mImpl->StartListening(callback);
}

void SocksTlsAlertClient::StopListening() {
    mImpl->StopListening();
}

}  // namespace socks_rux

namespace vintrel {

std::shared_ptr<socks_rux::SocksTlsAlertClientIf> CreateSocksTlsAlertClient() {
    return std::make_shared<socks_rux::SocksTlsAlertClient>();
}

}  // namespace vintrel
