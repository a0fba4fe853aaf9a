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

std::string CreateProtobuffer(const CertificateRequestParams&, std::string csrContainer) {
    return csrContainer == testing_support::kNoRequest ? std::string() : csrContainer;
}

bool ParseResponse(const std::string& payload, CertificateResponse& response) {
    return TakeBehind(payload, "certificate ", response.certificate);
}

bool ParseErrorResponse(const std::string& payload, std::string& errorText) {
    return TakeBehind(payload, "error ", errorText);
}

}  // namespace vintrel::protobuf
