#include "vehicle/tls_alerts.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "logging/qel_logging.h"

namespace vintrel {

using qel_logging::QELLogging;
using tls_alert_if::ETlsAlertCode;

namespace {

constexpr const char* kLogName = "TlsAlerts: ";

const std::vector<ETlsAlertCode>& GetFilter() {
    static const std::vector<ETlsAlertCode> filter{ETlsAlertCode::kCertificateRevoked,
                                                   ETlsAlertCode::kProxySpecific,
                                                   ETlsAlertCode::kDecryptError};
    return filter;
}

}  // namespace

std::shared_ptr<TlsAlertsIf> TlsAlertsIf::Create() {
    return std::make_shared<TlsAlerts>();
}

TlsAlerts::TlsAlerts() : mSocksClient(CreateSocksTlsAlertClient()) {}

TlsAlerts::~TlsAlerts() {
    // The listening thread calls this object until it has been joined.
    mSocksClient.reset();
}

void TlsAlerts::Start(TlsAlertsCbIf* callback) {
    mCallback.store(callback, std::memory_order_release);
    for (const ETlsAlertCode code : GetFilter()) {
        QELLogging::LogDebug(kLogName, "Setting Filter for ", static_cast<unsigned int>(code));
    }
    if (mSocksClient->StartListening(this) != socks_rux::kStartOk) {
        QELLogging::LogError(kLogName, "Failed to connect to Socks-RUX!");
    } else {
        QELLogging::LogInfo(kLogName, "Connected to Socks-RUX!");
    }
}

void TlsAlerts::Stop() {
    mSocksClient->StopListening();
    mCallback.store(nullptr, std::memory_order_release);
}

void TlsAlerts::SocksTlsAlertOccured(std::string operationId, ETlsAlertCode code) {
    QELLogging::LogInfo(kLogName, "Received Alert: OperationId='", operationId,
                        "', TlsAlertCode=", static_cast<std::uint8_t>(code));
    const auto& filter = GetFilter();
    if (std::find(filter.begin(), filter.end(), code) == filter.end()) {
        QELLogging::LogDebug(kLogName, "TLS alert ignored");
        return;
    }
    TlsAlertsCbIf* callback = mCallback.load(std::memory_order_acquire);
    if (callback == nullptr) {
        QELLogging::LogWarning(kLogName, "Callback not set, TLS Alert is ignored");
        return;
    }
    QELLogging::LogDebug(kLogName, "TLS alert accepted");
    callback->TlsAlertNotifyCb(std::move(operationId), code);
}

void TlsAlerts::SocksTlsAlertError() {
    QELLogging::LogDebug(kLogName, "Socks-RUX Error, socks will start reconnecting");
}

}  // namespace vintrel
