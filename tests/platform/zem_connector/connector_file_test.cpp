#include <stdexcept>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <zem_connector_host/connector_file.h>

#include "testing/temporary_directory.h"

namespace zem_connector::host {

TEST(ConnectorFile, EveryKeyIsReadAndWritten) {
    const auto json = nlohmann::json::parse(R"({
        "sessionStatus": "rejected",
        "connectTimeoutMs": 1, "urlTimeoutMs": 0, "closeTimeoutMs": 7,
        "transactionTypes": {"a": {"activated": false, "connectionState": "notAvailable"},
                             "b": {"activated": true, "connectionState": "connected"}},
        "invocationUrls": {"a.op": "https://backend:8443/x?y=\"1\""},
        "operations": {
            "a.op": {"tls": {"trustAnchors": "/ca", "serverName": "b", "minimumVersion": "1.3"},
                     "proxy": {"type": "socks5", "host": "::1", "port": 1080,
                               "user": "u", "password": "p"}},
            "b.op": {"tls": false}}})");
    ConnectorFile file;
    std::vector<std::string> warnings;
    ParseConnectorFile(json.dump(), file, warnings);
    EXPECT_EQ(nlohmann::json::parse(file.ToJson()), json);
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

TEST(ConnectorFile, AnHttpsUrlWithoutProtectionIsFound) {
    ConnectorFile file;
    std::vector<std::string> warnings;
    ParseConnectorFile(R"({"invocationUrls": {"a": "https:", "b": "https:", "c": "http:"},
                           "operations": {"a": {"tls": {"trustAnchors": "/ca"}}}})",
                       file, warnings);
    EXPECT_EQ(file.UnprotectedHttpsOperations(), std::vector<std::string>{"b"});
    EXPECT_EQ(file.operations.at("a").tls->minimumVersion, TlsVersion::kTls12);
}

/// A file with one operation whose entry is this.
std::string Operation(const std::string& entry) {
    return R"({"operations": {"a": )" + entry + "}}";
}

std::string Proxy(const std::string& members) {
    return Operation(R"({"tls": false, "proxy": {)" + members + "}}");
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
    testing::Values(
        std::string(), "{", "[]", "{} {}", R"({"sessionStatus": "Started"})",
        R"({"sessionStatus": 2})", R"({"connectTimeoutMs": 0})", R"({"connectTimeoutMs": 1.5})",
        R"({"connectTimeoutMs": 1e999})", R"({"unknown": 1e999})",
        R"({"connectTimeoutMs": 18446744073709551615})", R"({"urlTimeoutMs": 600001})",
        R"({"transactionTypes": []})", R"({"transactionTypes": {"a": true}})",
        R"({"transactionTypes": {"a": {"activated": "yes"}}})",
        R"({"transactionTypes": {"a": {"connectionState": "OnDemand"}}})",
        R"({"invocationUrls": {"a": 1}})", "{\"invocationUrls\": {\"\xff\": \"\"}}",
        R"({"operations": []})", Operation("{}"), Operation(R"({"tls": true})"),
        Operation(R"({"tsl": {"trustAnchors": "/ca"}})"), Operation(R"({"tls": {}})"),
        Operation(R"({"tls": {"trustAnchors": "ca"}})"),
        Operation(R"({"tls": {"trustAnchors": "/ca", "serverName": ""}})"),
        Operation(R"({"tls": {"trustAnchors": "/ca", "minimumVersion": "1.1"}})"), Proxy(""),
        Proxy(R"("host": "h", "port": 1)"), Proxy(R"("type": "socks4", "host": "h", "port": 1)"),
        Proxy(R"("type": "http", "host": "a b", "port": 1)"),
        Proxy(R"("type": "http", "host": "h", "port": 65536)"),
        Proxy(R"("type": "http", "host": "h", "port": 1, "user": "u")"),
        Proxy(R"("type": "http", "host": "h", "port": 1, "user": "a:b", "password": "p")"),
        Proxy(R"("type": "socks5", "host": "h", "port": 1, "user": "u\n", "password": "p")"),
        std::string(200000, '['), "{}" + std::string(ConnectorFile::kMaxSize, ' ')));

TEST(ConnectorFile, OneWithAPasswordIsForItsOwnerOnly) {
    const testing_support::TemporaryDirectory directory;
    const std::string path = directory.File("file.json");
    ConnectorFile file;
    for (const mode_t mode : {0644U, 0600U}) {
        file.WriteAtomically(path);
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, mode);
        file.operations["op"].proxy = ProxySettings{ProxyType::kHttp, "h", 1, "user", "secret"};
    }
}

}  // namespace zem_connector::host
