#include "vehicle/ecu_capabilities_diag_info_impl.h"

namespace vintrel {

std::shared_ptr<EcuCapabilitiesIf> EcuCapabilitiesIf::Create() {
    return std::make_shared<EcuCapabilitiesDiagInfoImpl>();
}

EcuCapabilitiesDiagInfoImpl::EcuCapabilitiesDiagInfoImpl() : mComRuntime(false, "") {}

EcuCapabilitiesDiagInfoImpl::~EcuCapabilitiesDiagInfoImpl() = default;

void EcuCapabilitiesDiagInfoImpl::Initialize() {
    mDiagnosticInfoServices = orv::tee::DiagnosticInfoServicesIf::Create();
    mDiagnosticInfoServices->Start();
}

EcuCapabilities EcuCapabilitiesDiagInfoImpl::GetEcuCapabilities() {
    EcuCapabilities capabilities;
    if (!mDiagnosticInfoServices) {
        return capabilities;
    }
    capabilities.hardwareVersion = mDiagnosticInfoServices->GetEcuHwVersion();
    capabilities.softwareVersion = mDiagnosticInfoServices->GetEcuSwVersion();
    capabilities.partNumber = mDiagnosticInfoServices->GetEcuPartNumber();
    return capabilities;
}

}  // namespace vintrel
