#include "client/certificate_messages.h"

#include <cstdlib>

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include "testing/temporary_directory.h"

namespace vintrel::protobuf {

namespace {

CertificateRequestParams AllFields() {
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
    return params;
}

/// What the schema compiler itself makes of a message or its text; `action` is "encode" or
/// "decode".
std::string Convert(const std::string& action, const std::string& input, const std::string& type,
                    const std::string& schema) {
    const testing_support::TemporaryDirectory directory;
    const std::string file = directory.Write("message", input);
    const std::string command = "'" PROTOC "' '--proto_path=" PROTO_DIRECTORY "' --" + action +
                                "=domain.backend.proto." + type + " " + schema + " < '" + file +
                                "' > '" + file + ".out'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return directory.Read("message.out");
}

}  // namespace

TEST(CertificateRequest, HasBothSubMessagesEvenWhenAllIsEmpty) {
    EXPECT_EQ(CreateProtobuffer({}, ""), std::string("\x1A\x00\x22\x00", 4));
}

TEST(CertificateRequest, IsReadByTheSchemaCompiler) {
    const std::string text =
        Convert("decode", CreateProtobuffer(AllFields(), "csr"), "QUBACOKoruVintrelRequestV1",
                "QUBA_CO_KoruVintrelRequest_v1.proto");
    EXPECT_EQ(Convert("encode", text, "QUBACOKoruVintrelRequestV1",
                      "QUBA_CO_KoruVintrelRequest_v1.proto"),
              CreateProtobuffer(AllFields(), "csr"));
    EXPECT_EQ(text,
              "activation_reason: 7\n"
              "csr_container: \"csr\"\n"
              "ecu_capability {\n"
              "  diagnostic_address: \"C003\"\n"
              "  hw_version: \"hw\"\n"
              "  part_number: \"pn\"\n"
              "  sw_version: \"sw\"\n"
              "}\n"
              "sim_card_data {\n"
              "  iccid: \"5\"\n"
              "  imei: \"1\"\n"
              "  imsi: \"3\"\n"
              "  euiccid: \"4\"\n"
              "  msisdn: \"2\"\n"
              "}\n"
              "operationTypeId: \"op\"\n");
}

TEST(CertificateRequest, TextThatIsNotUtf8GoesOutAsItIs) {
    EXPECT_EQ(CreateProtobuffer({}, "\xFF"), std::string("\x12\x01\xFF\x1A\x00\x22\x00", 7));
}

TEST(CertificateResponseParsing, TakesTheThreeFieldsAndSkipsWhatItDoesNotKnow) {
    CertificateResponse response;
    // Fields 1 to 4, with lists that are not UTF-8, and a field 9 that no schema names.
    ASSERT_TRUE(
        ParseResponse("\x0A\x02"
                      "ce"
                      "\x12\x01"
                      "m"
                      "\x1A\x01\xFF"
                      "\x22\x01\xFE"
                      "\x4A\x01x",
                      response));
    EXPECT_EQ(response.certificate, "ce");
    EXPECT_EQ(response.signed_vehicle_transaction_type_list, "\xFF");
    EXPECT_EQ(response.signed_vehicle_transaction_activation_type_list, "\xFE");

    ASSERT_TRUE(ParseResponse("", response));
    EXPECT_EQ(response.certificate, "");
    EXPECT_EQ(response.signed_vehicle_transaction_type_list, "");
}

TEST(CertificateResponseParsing, TakesWhatTheSchemaCompilerWrites) {
    CertificateResponse response;
    ASSERT_TRUE(ParseResponse(
        Convert("encode",
                "certificate: 'PEM'\nmsisdn: '1'\nsigned_vehicle_transaction_type_list: '\\377'\n"
                "signed_vehicle_transaction_activation_type_list: 'a'\n",
                "QUBACTKoruCertificateResponseV2", "QUBA_CT_KoruCertificateResponse_v2.proto"),
        response));
    EXPECT_EQ(response.certificate, "PEM");
    EXPECT_EQ(response.signed_vehicle_transaction_type_list, "\xFF");
    EXPECT_EQ(response.signed_vehicle_transaction_activation_type_list, "a");

    std::string text;
    ASSERT_TRUE(ParseErrorResponse(
        Convert("encode", "error_code: -3\nerror_description: 'no'\ntransaction_id: 't'\n",
                "GenericErrorV2", "GenericError_V2.proto"),
        text));
    EXPECT_EQ(text, "ErrorCode: -3\nErrorDescription: no\nTransactionId: t\n");
}

/// The name under which each schema registers itself is part of what others may look up.
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
    EXPECT_FALSE(
        ParseResponse("\x0A\x05"
                      "ce",
                      response))
        << "cut short";
    EXPECT_FALSE(ParseResponse("\x0A\x01\xFF", response)) << "certificate not UTF-8";
    EXPECT_FALSE(ParseResponse("\x12\x01\xFF", response)) << "msisdn not UTF-8";
    EXPECT_FALSE(ParseResponse("\x0A\xFF\xFF\xFF\xFF\x0F", response)) << "huge length";
    EXPECT_FALSE(ParseResponse("HTTP", response)) << "no message at all";
    EXPECT_EQ(response.certificate, "kept");
}

TEST(ErrorResponseParsing, GivesThreeLines) {
    std::string text;
    ASSERT_TRUE(ParseErrorResponse("", text));
    EXPECT_EQ(text, "ErrorCode: 0\nErrorDescription: \nTransactionId: \n");
    ASSERT_TRUE(
        ParseErrorResponse("\x08\xFB\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01\x12\x03"
                           "bad\x1A\x02id",
                           text));
    EXPECT_EQ(text, "ErrorCode: -5\nErrorDescription: bad\nTransactionId: id\n");
    EXPECT_FALSE(ParseErrorResponse("\x12\x01\xFF", text));
    EXPECT_FALSE(ParseErrorResponse("\x1A\x01\xFF", text));
    EXPECT_EQ(text, "ErrorCode: -5\nErrorDescription: bad\nTransactionId: id\n");
}

}  // namespace vintrel::protobuf
