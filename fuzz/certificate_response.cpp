// The backend's answer to a request that it granted.

#include <string>

#include <google/protobuf/stubs/logging.h>

#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"
#include "client/certificate_messages.h"
#include "fuzz/check.h"

namespace {

/// No complaints about inputs.
const auto gFormerHandler = google::protobuf::SetLogHandler(nullptr);

using fuzz::Check;
using vintrel::protobuf::CertificateResponse;
using vintrel::protobuf::ParseResponse;

const CertificateResponse kBefore{"chain of before", "types of before", "activations of before"};

bool operator==(const CertificateResponse& left, const CertificateResponse& right) {
    return left.certificate == right.certificate &&
           left.signed_vehicle_transaction_type_list ==
               right.signed_vehicle_transaction_type_list &&
           left.signed_vehicle_transaction_activation_type_list ==
               right.signed_vehicle_transaction_activation_type_list;
}

std::string Serialize(const CertificateResponse& response) {
    domain::backend::proto::QUBACTKoruCertificateResponseV2 message;
    message.set_certificate(response.certificate);
    message.set_signed_vehicle_transaction_type_list(response.signed_vehicle_transaction_type_list);
    message.set_signed_vehicle_transaction_activation_type_list(
        response.signed_vehicle_transaction_activation_type_list);
    return message.SerializeAsString();
}

void CheckParsesTo(const std::string& payload, const CertificateResponse& expected,
                   const char* property) {
    CertificateResponse response = kBefore;
    Check(ParseResponse(payload, response) && response == expected, property);
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const std::string payload(input);
    CertificateResponse response = kBefore;
    if (!ParseResponse(payload, response)) {
        Check(response == kBefore, "a failure leaves the record as it was");
        return;
    }
    const std::size_t taken = response.certificate.size() +
                              response.signed_vehicle_transaction_type_list.size() +
                              response.signed_vehicle_transaction_activation_type_list.size();
    Check(taken <= input.size(), "nothing comes out that did not come in");
    CheckParsesTo(Serialize(response), response, "the record survives the wire");
    CheckParsesTo(payload + payload, response, "of a field that comes twice the last one counts");
    CheckParsesTo(payload + "\x4A\x01x", response, "an unknown field changes nothing");
}
