#pragma once

#include <memory>

#include "vehicle/socks_tls_alert_client_if.h"

namespace socks_rux {

/// The subscriber on the daemon's own socket.
class SocksTlsAlertClient : public SocksTlsAlertClientIf {
public:
    /// Opens no socket yet.
    SocksTlsAlertClient();

    unsigned int StartListening(SocksTlsAlertClientCallbackIf* callback) override;
    void StopListening() override;

private:
    std::unique_ptr<SocksTlsAlertClientIf> mImpl;
};

}  // namespace socks_rux
