#include "client/scripted_messages.h"

#include "client/certificate_messages.h"

namespace vintrel::protobuf {

namespace {

bool TakeBehind(const std::string& payload, const std::string& start, std::string& rest) {
    if (payload.compare(0, start.size(), start) != 0) {
        return false;
    }
    rest = payload.substr(start.size());
    return true;
}

}  // namespace

std::string CreateProtobuffer(const CertificateRequestParams& params, std::string csrContainer) {
    if (csrContainer == testing_support::kNoRequest) {
        return {};
    }
    const std::string sim =
        params.imei + params.msisdn + params.imsi + params.euiccid + params.iccid;
    return csrContainer.insert(
        0, "reason=" + std::to_string(params.activation_reason) + " oid=" + params.operationTypeId +
               " ecu=" + params.diagnostic_address + "," + params.hw_version + "," +
               params.sw_version + "," + params.part_number + " " + sim);
}

bool ParseResponse(const std::string& payload, CertificateResponse& response) {
    return TakeBehind(payload, "certificate ", response.certificate);
}

bool ParseErrorResponse(const std::string& payload, std::string& errorText) {
    return TakeBehind(payload, "error ", errorText);
}

}  // namespace vintrel::protobuf
