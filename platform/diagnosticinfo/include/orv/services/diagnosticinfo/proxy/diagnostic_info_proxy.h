#pragma once

#include <ara/com/internal/proxy/field.h>
#include <ara/com/internal/proxy/proxy.h>
#include <orv/services/diagnosticinfo/diagnostic_info.h>

namespace orv::services::diagnosticinfo::proxy {

/// Client side of one instance of the service. Its destruction ends its subscriptions as
/// Unsubscribe does.
class DiagnosticInfoProxy : public ara::com::internal::proxy::Proxy<DiagnosticInfo> {
public:
    explicit DiagnosticInfoProxy(const ara::com::ServiceHandle& handle)
        : identificationData(handle) {}

    ara::com::internal::proxy::Field<DiagnosticInfo::identificationData> identificationData;
};

}  // namespace orv::services::diagnosticinfo::proxy
