#pragma once

#include <memory>

#include "client/tls_alerts_cb_if.h"

namespace vintrel {

/// Source of TLS alerts that concern the client certificate.
class TlsAlertsIf {
public:
    virtual ~TlsAlertsIf() = default;

    static std::shared_ptr<TlsAlertsIf> Create();

    /// Begins to listen; `callback` is not owned and must outlive the source or its `Stop`.
    virtual void Start(TlsAlertsCbIf* callback) = 0;

    /// Ends the listening; the callback gets nothing that arrives later.
    virtual void Stop() = 0;
};

}  // namespace vintrel
