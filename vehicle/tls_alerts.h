#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "client/tls_alerts_if.h"
#include "vehicle/socks_tls_alert_client_callback_if.h"
#include "vehicle/socks_tls_alert_client_if.h"

namespace vintrel {

/// Makes the source of TlsAlerts.
std::shared_ptr<socks_rux::SocksTlsAlertClientIf> CreateSocksTlsAlertClient();

/// Passes on the alerts that concern the client certificate: certificate_revoked (44) and
/// decrypt_error (51) of RFC 8446, and the daemon's own code 200.
class TlsAlerts : public TlsAlertsIf, public socks_rux::SocksTlsAlertClientCallbackIf {
public:
    TlsAlerts();
    /// Waits for the listening thread.
    ~TlsAlerts() override;

    TlsAlerts(const TlsAlerts&) = delete;
    TlsAlerts& operator=(const TlsAlerts&) = delete;

    void Start(TlsAlertsCbIf* callback) override;
    void Stop() override;

    void SocksTlsAlertOccured(std::string operationId, tls_alert_if::ETlsAlertCode code) override;
    void SocksTlsAlertError() override;

private:
    std::shared_ptr<socks_rux::SocksTlsAlertClientIf> mSocksClient;
    std::atomic<TlsAlertsCbIf*> mCallback{nullptr};
};

}  // namespace vintrel
