#include "diagnosticinfo_host/diagnostic_info_server.h"

#include <utility>

namespace diagnosticinfo_host {

using orv::services::diagnosticinfo::DiagnosticInfo;

someip::Deployment DefaultDeployment() {
    someip::ServiceDeployment service;
    service.name = DiagnosticInfo::kServiceName;
    service.serviceId = 0x4D01;
    service.events[DiagnosticInfo::identificationData::kName] = {0x8001, 0x0001};
    return {someip::LoopbackNetwork(someip::LoopbackEnd::kProvider), {service}};
}

DiagnosticInfoServer::DiagnosticInfoServer(const someip::Deployment& deployment)
    : mServer(deployment),
      mEventId(deployment.services.at(0).events.at(DiagnosticInfo::identificationData::kName).id) {}

void DiagnosticInfoServer::Publish(const IdentificationData& records) {
    PublishRaw(SerializeIdentificationData(records));
}

void DiagnosticInfoServer::PublishRaw(std::vector<std::uint8_t> payload) {
    mServer.SetField(mEventId, std::move(payload));
}

}  // namespace diagnosticinfo_host
