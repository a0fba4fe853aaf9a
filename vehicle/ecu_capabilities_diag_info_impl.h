#pragma once

#include <memory>

#include <ac/com/runtime/component_singleton.h>

#include "client/ecu_capabilities_if.h"
#include "vehicle/diagnostic_info_services_if.h"

namespace vintrel {

/// The unit's identity from its diagnostic service.
class EcuCapabilitiesDiagInfoImpl : public EcuCapabilitiesIf {
public:
    EcuCapabilitiesDiagInfoImpl();
    ~EcuCapabilitiesDiagInfoImpl() override;

    EcuCapabilitiesDiagInfoImpl(const EcuCapabilitiesDiagInfoImpl&) = delete;
    EcuCapabilitiesDiagInfoImpl& operator=(const EcuCapabilitiesDiagInfoImpl&) = delete;

    void Initialize() override;

    /// Before Initialize all strings are empty.
    EcuCapabilities GetEcuCapabilities() override;

private:
    ac::com::runtime::Component_singleton mComRuntime;
    std::shared_ptr<orv::tee::DiagnosticInfoServicesIf> mDiagnosticInfoServices;
};

}  // namespace vintrel
