#include "client/certificate_messages.h"

#include <utility>

#include "GenericError_V2.pb.h"
#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"
#include "logging/qel_logging.h"

namespace vintrel::protobuf {

using domain::backend::proto::GenericErrorV2;
using domain::backend::proto::QUBACOKoruVintrelRequestV1;
using domain::backend::proto::QUBACTKoruCertificateResponseV2;

std::string CreateProtobuffer(const CertificateRequestParams& params, std::string csrContainer) {
    QUBACOKoruVintrelRequestV1 request;
    request.set_activation_reason(params.activation_reason);
    request.set_csr_container(std::move(csrContainer));
    request.set_operationtypeid(params.operationTypeId);

    auto& ecu = *request.mutable_ecu_capability();
    ecu.set_diagnostic_address(params.diagnostic_address);
    ecu.set_hw_version(params.hw_version);
    ecu.set_part_number(params.part_number);
    ecu.set_sw_version(params.sw_version);

    auto& sim = *request.mutable_sim_card_data();
    sim.set_iccid(params.iccid);
    sim.set_imei(params.imei);
    sim.set_imsi(params.imsi);
    sim.set_euiccid(params.euiccid);
    sim.set_msisdn(params.msisdn);

    std::string serialized = request.SerializeAsString();
    if (serialized.empty()) {
        qel_logging::QELLogging::LogError("ProtocolBuffer: Failed to create protobuffer");
    }
    return serialized;
}

bool ParseResponse(const std::string& payload, CertificateResponse& response) {
    QUBACTKoruCertificateResponseV2 message;
    if (!message.ParseFromString(payload)) {
        return false;
    }
    response.certificate = std::move(*message.mutable_certificate());
    response.signed_vehicle_transaction_type_list =
        std::move(*message.mutable_signed_vehicle_transaction_type_list());
    response.signed_vehicle_transaction_activation_type_list =
        std::move(*message.mutable_signed_vehicle_transaction_activation_type_list());
    return true;
}

bool ParseErrorResponse(const std::string& payload, std::string& errorText) {
    GenericErrorV2 message;
    if (!message.ParseFromString(payload)) {
        return false;
    }
    errorText = "ErrorCode: " + std::to_string(message.error_code()) +
                "\nErrorDescription: " + message.error_description() +
                "\nTransactionId: " + message.transaction_id() + "\n";
    return true;
}

}  // namespace vintrel::protobuf
