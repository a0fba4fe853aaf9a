#include "diagnosticinfo_host/diagnostic_info_server.h"

#include <utility>

namespace diagnosticinfo_host {

using orv::services::diagnosticinfo::DiagnosticInfo;

someip::ServiceDeployment DefaultDeployment() {
    someip::ServiceDeployment service;
    service.name = DiagnosticInfo::kServiceName;
    service.serviceId = 0x4D01;
    service.events[DiagnosticInfo::identificationData::kName] = 0x8001;
    return service;
}

DiagnosticInfoServer::DiagnosticInfoServer(const someip::ServiceDeployment& service)
    : mServer(service), mEventId(service.events.at(DiagnosticInfo::identificationData::kName)) {}

void DiagnosticInfoServer::Publish(const IdentificationData& records) {
    PublishRaw(SerializeIdentificationData(records));
}

void DiagnosticInfoServer::PublishRaw(std::vector<std::uint8_t> payload) {
    mServer.SetField(mEventId, std::move(payload));
}

}  // namespace diagnosticinfo_host
