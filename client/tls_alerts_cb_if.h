#pragma once

#include <string>

#include "client/tls_alert_code.h"

namespace vintrel {

/// Receiver of accepted TLS alerts.
class TlsAlertsCbIf {
public:
    virtual ~TlsAlertsCbIf() = default;

    /// Called on the alert source's thread; must not block.
    virtual void TlsAlertNotifyCb(std::string oid, tls_alert_if::ETlsAlertCode code) = 0;
};

}  // namespace vintrel
