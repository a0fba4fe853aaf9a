#include <stdexcept>

#include <gtest/gtest.h>
#include <zem_connector_host/connector_file.h>

namespace zem_connector::host {

TEST(ConnectorFile, WhatIsWrittenIsReadBack) {
    ConnectorFile written;
    written.sessionStatus = SessionStatus::kRejected;
    written.connectTimeout = std::chrono::milliseconds(1);
    written.urlTimeout = std::chrono::milliseconds(0);
    written.transactionTypes["a"] = {
        false, ZemServiceControllerCallbackIf::SCConnectionState::kNotAvailable};
    written.transactionTypes["b"] = {true,
                                     ZemServiceControllerCallbackIf::SCConnectionState::kConnected};
    written.invocationUrls["a.op"] = "https://backend:8443/x?y=\"1\"";

    ConnectorFile read;
    std::vector<std::string> warnings;
    ParseConnectorFile(written.ToJson(), read, warnings);
    EXPECT_EQ(read.ToJson(), written.ToJson());
    EXPECT_EQ(read.sessionStatus, SessionStatus::kRejected);
    EXPECT_FALSE(read.transactionTypes.at("a").activated);
    EXPECT_EQ(read.invocationUrls.at("a.op"), "https://backend:8443/x?y=\"1\"");
    EXPECT_TRUE(warnings.empty());
}

TEST(ConnectorFile, MissingKeysStandForDefaultsAndUnknownOnesAreNamed) {
    ConnectorFile file;
    std::vector<std::string> warnings;
    ParseConnectorFile(R"({"sessionState": 1, "transactionTypes": {"a": {"active": true}}})", file,
                       warnings);
    EXPECT_EQ(file.sessionStatus, SessionStatus::kStarted);
    EXPECT_EQ(file.connectTimeout, std::chrono::seconds(10));
    EXPECT_TRUE(file.transactionTypes.at("a").activated);
    ASSERT_EQ(warnings.size(), 2U);
    EXPECT_EQ(warnings[0], "unknown key file.transactionTypes.a.active");
    EXPECT_EQ(warnings[1], "unknown key file.sessionState");
}

class BadConnectorFile : public testing::TestWithParam<std::string> {};

TEST_P(BadConnectorFile, IsRefusedAndLeavesTheRecordAlone) {
    ConnectorFile file;
    file.invocationUrls["kept"] = "url";
    std::vector<std::string> warnings;
    EXPECT_THROW(ParseConnectorFile(GetParam(), file, warnings), std::runtime_error);
    EXPECT_EQ(file.invocationUrls.at("kept"), "url");
}

INSTANTIATE_TEST_SUITE_P(
    Texts, BadConnectorFile,
    testing::Values(std::string(), "{", "[]", "{} {}", R"({"sessionStatus": "Started"})",
                    R"({"sessionStatus": 2})", R"({"connectTimeoutMs": 0})",
                    R"({"connectTimeoutMs": 1.5})", R"({"connectTimeoutMs": 1e999})",
                    R"({"unknown": 1e999})", R"({"connectTimeoutMs": 18446744073709551615})",
                    R"({"urlTimeoutMs": 600001})", R"({"transactionTypes": []})",
                    R"({"transactionTypes": {"a": true}})",
                    R"({"transactionTypes": {"a": {"activated": "yes"}}})",
                    R"({"transactionTypes": {"a": {"connectionState": "OnDemand"}}})",
                    R"({"invocationUrls": {"a": 1}})", "{\"invocationUrls\": {\"\xff\": \"\"}}",
                    std::string(200000, '['), "{}" + std::string(ConnectorFile::kMaxSize, ' ')));

TEST(ConnectorFile, AWriteThatFailsReportsSo) {
    EXPECT_FALSE(ConnectorFile().WriteAtomically("/nonexistent/directory/file.json"));
}

}  // namespace zem_connector::host
