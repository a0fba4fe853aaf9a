#include "client/certificate_messages.h"

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

namespace vintrel::protobuf {

namespace {

/// A field of bytes, of text or of another message, as it stands on the wire.
std::string Field(int number, const std::string& value) {
    return static_cast<char>(number << 3 | 2) + (static_cast<char>(value.size()) + value);
}

}  // namespace

TEST(CertificateRequest, HasEachFieldInItsPlace) {
    CertificateRequestParams params;
    params.activation_reason = 7;
    params.diagnostic_address = "C003";
    params.hw_version = "hw";
    params.sw_version = "sw";
    params.part_number = "pn";
    params.imei = "1";
    params.msisdn = "2";
    params.imsi = "3";
    params.euiccid = "4";
    params.iccid = "5";
    params.operationTypeId = "op";
    const std::string ecu = Field(1, "C003") + Field(2, "hw") + Field(3, "pn") + Field(4, "sw");
    const std::string sim =
        Field(1, "5") + Field(2, "1") + Field(3, "3") + Field(4, "4") + Field(5, "2");
    // The container goes out as it is, UTF-8 or not.
    EXPECT_EQ(CreateProtobuffer(params, "\xFF"),
              "\x08\x07" + Field(2, "\xFF") + Field(3, ecu) + Field(4, sim) + Field(5, "op"));
    EXPECT_EQ(CreateProtobuffer({}, ""), Field(3, "") + Field(4, ""));
}

TEST(CertificateResponseParsing, TakesTheThreeFieldsAndSkipsWhatItDoesNotKnow) {
    CertificateResponse response;
    // The lists are not UTF-8, and no schema names a field 9.
    ASSERT_TRUE(ParseResponse(
        Field(1, "ce") + Field(2, "m") + Field(3, "\xFF") + Field(4, "\xFE") + Field(9, "x"),
        response));
    EXPECT_EQ(response.certificate, "ce");
    EXPECT_EQ(response.signed_vehicle_transaction_type_list, "\xFF");
    EXPECT_EQ(response.signed_vehicle_transaction_activation_type_list, "\xFE");

    ASSERT_TRUE(ParseResponse("", response));
    EXPECT_EQ(response.certificate, "");
    EXPECT_EQ(response.signed_vehicle_transaction_type_list, "");
}

/// The name under which each schema registers itself is part of what others may
/// look up.
TEST(Schemas, AreRegisteredUnderTheirBareFileNames) {
    for (const char* const name :
         {"QUBA_CO_KoruVintrelRequest_v1.proto", "QUBA_CT_KoruCertificateResponse_v2.proto",
          "GenericError_V2.proto"}) {
        EXPECT_NE(google::protobuf::DescriptorPool::generated_pool()->FindFileByName(name), nullptr)
            << name;
    }
}

TEST(CertificateResponseParsing, LeavesTheResultAloneOnBadBytes) {
    CertificateResponse response;
    response.certificate = "kept";
    EXPECT_FALSE(ParseResponse(Field(1, "ce").substr(0, 3), response)) << "cut short";
    EXPECT_FALSE(ParseResponse(Field(1, "\xFF"), response)) << "certificate not UTF-8";
    EXPECT_FALSE(ParseResponse(Field(2, "\xFF"), response)) << "msisdn not UTF-8";
    EXPECT_FALSE(ParseResponse("HTTP", response)) << "no message at all";
    EXPECT_EQ(response.certificate, "kept");
}

TEST(ErrorResponseParsing, GivesThreeLines) {
    std::string text;
    ASSERT_TRUE(ParseErrorResponse("", text));
    EXPECT_EQ(text, "ErrorCode: 0\nErrorDescription: \nTransactionId: \n");
    ASSERT_TRUE(ParseErrorResponse(
        "\x08\xFB\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01" + Field(2, "bad") + Field(3, "id"), text));
    EXPECT_EQ(text, "ErrorCode: -5\nErrorDescription: bad\nTransactionId: id\n");
    EXPECT_FALSE(ParseErrorResponse(Field(2, "\xFF"), text));
    EXPECT_FALSE(ParseErrorResponse(Field(3, "\xFF"), text));
    EXPECT_EQ(text, "ErrorCode: -5\nErrorDescription: bad\nTransactionId: id\n");
}

}  // namespace vintrel::protobuf
