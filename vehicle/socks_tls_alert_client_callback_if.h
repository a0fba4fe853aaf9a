#pragma once

#include <string>

#include "client/tls_alert_code.h"

namespace socks_rux {

/// Receiver of what the Socks-RUX daemon reports. Both operations are called on the listening
/// thread, and may stop the listening but not start it.
class SocksTlsAlertClientCallbackIf {
public:
    virtual ~SocksTlsAlertClientCallbackIf() = default;

    virtual void SocksTlsAlertOccured(std::string operationId,
                                      tls_alert_if::ETlsAlertCode code) = 0;

    /// The connection is lost, or the daemon has sent something that is no alert; a new connection
    /// is made.
    virtual void SocksTlsAlertError() = 0;
};

}  // namespace socks_rux
