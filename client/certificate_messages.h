#pragma once

#include <cstdint>
#include <string>

namespace vintrel::protobuf {

/// What the client knows of one request; the container comes separately.
struct CertificateRequestParams {
    std::int32_t activation_reason{0};
    std::string diagnostic_address;
    std::string hw_version;
    std::string sw_version;
    std::string part_number;
    std::string imei;
    std::string msisdn;
    std::string imsi;
    std::string euiccid;
    std::string iccid;
    /// The operation id that a TLS alert came with; otherwise empty.
    std::string operationTypeId;
};

/// A parsed certificate response. The two lists are opaque byte strings.
struct CertificateResponse {
    std::string certificate;
    std::string signed_vehicle_transaction_type_list;
    std::string signed_vehicle_transaction_activation_type_list;
};

/// Serializes a certificate request; an empty result is a failure, which has been logged.
///
/// Both sub-messages are always on the wire, so a success is never empty. Text that is not UTF-8
/// goes out as it is.
std::string CreateProtobuffer(const CertificateRequestParams& params, std::string csrContainer);

/// Parses a certificate response. False leaves `response` as it was. An empty payload is an empty
/// response, not a failure.
bool ParseResponse(const std::string& payload, CertificateResponse& response);

/// Parses an error response into three lines of text, each ended by a line feed. False leaves
/// `errorText` as it was.
bool ParseErrorResponse(const std::string& payload, std::string& errorText);

}  // namespace vintrel::protobuf
