#pragma once

#include "vehicle/socks_tls_alert_client_callback_if.h"

namespace socks_rux {

/// Results of SocksTlsAlertClientIf::StartListening.
constexpr unsigned int kStartOk = 0;
constexpr unsigned int kAlreadyListening = 2;

/// A subscriber of the Socks-RUX daemon, which reports TLS alerts.
class SocksTlsAlertClientIf {
public:
    virtual ~SocksTlsAlertClientIf() = default;

    /// Begins to listen, on a thread of its own, which connects as soon and as often as needed.
    /// `callback` is not owned. Returns kStartOk, or kAlreadyListening without any effect. Start
    /// and destruction belong to one thread.
    virtual unsigned int StartListening(SocksTlsAlertClientCallbackIf* callback) = 0;

    /// Ends the listening without waiting for the thread: a call of the callback that is being made
    /// may still run on. May be called from any thread, from within the callback too.
    virtual void StopListening() = 0;
};

}  // namespace socks_rux
