// The request to the backend, from a record and a container of any content.

#include <string>

#include <google/protobuf/stubs/logging.h>

#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "client/certificate_messages.h"
#include "fuzz/check.h"

namespace {

/// No complaints about inputs.
const auto gFormerHandler = google::protobuf::SetLogHandler(nullptr);

using domain::backend::proto::QUBACOKoruVintrelRequestV1;
using fuzz::Check;
using vintrel::protobuf::CertificateRequestParams;
using vintrel::protobuf::CreateProtobuffer;

std::string Varint(std::size_t value) {
    std::string bytes;
    for (; value >= 0x80; value >>= 7) {
        bytes += static_cast<char>((value & 0x7F) | 0x80);
    }
    return bytes + static_cast<char>(value);
}

/// Text that is UTF-8 or not goes out byte by byte.
void CheckContainer(const std::string& container) {
    const std::string field = container.empty() ? "" : "\x12" + Varint(container.size());
    Check(CreateProtobuffer({}, container) == field + container + std::string("\x1A\0\x22\0", 4),
          "the container is on the wire as it is");
}

CertificateRequestParams ParamsOf(const QUBACOKoruVintrelRequestV1& message) {
    CertificateRequestParams params;
    params.activation_reason = message.activation_reason();
    params.diagnostic_address = message.ecu_capability().diagnostic_address();
    params.hw_version = message.ecu_capability().hw_version();
    params.sw_version = message.ecu_capability().sw_version();
    params.part_number = message.ecu_capability().part_number();
    params.imei = message.sim_card_data().imei();
    params.msisdn = message.sim_card_data().msisdn();
    params.imsi = message.sim_card_data().imsi();
    params.euiccid = message.sim_card_data().euiccid();
    params.iccid = message.sim_card_data().iccid();
    params.operationTypeId = message.operationtypeid();
    return params;
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const std::string bytes(input);
    CheckContainer(bytes);

    QUBACOKoruVintrelRequestV1 message;
    if (!message.ParseFromString(bytes)) {
        return;
    }
    const std::string request = CreateProtobuffer(ParamsOf(message), message.csr_container());
    // What a request has that the input may lack, and the other way round.
    message.mutable_ecu_capability();
    message.mutable_sim_card_data();
    message.DiscardUnknownFields();
    Check(request == message.SerializeAsString(), "every field is in its place");
}
