#include <stdexcept>
#include <string>

#include <gmock/gmock.h>

#include <service_access/client_config.h>

#include "testing/temporary_directory.h"

namespace service_access {

using ::testing::HasSubstr;

class ClientConfigTest : public ::testing::Test {
protected:
    ClientConfig Load(const std::string& text) const {
        return LoadClientConfig(mDirectory.Write("ClientConfig.json", text));
    }

    std::string Failure(const std::string& text) const {
        try {
            Load(text);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "none";
    }

    const testing_support::TemporaryDirectory mDirectory;
};

TEST_F(ClientConfigTest, OnlyTheSocketPathIsRequired) {
    const auto config = Load(R"({"socketPath":"/run/x.sock"})");
    EXPECT_EQ("/run/x.sock", config.socketPath);
    EXPECT_EQ(std::chrono::milliseconds(5000), config.queryTimeLimit);
    EXPECT_EQ(std::chrono::milliseconds(100), config.reconnectInitial);
    EXPECT_EQ(std::chrono::milliseconds(2000), config.reconnectMax);
}

TEST_F(ClientConfigTest, EveryKeyLandsInItsField) {
    const auto config = Load(
        R"({"socketPath":"/s","connectTimeLimitMs":1,"queryTimeLimitMs":2,
            "subscribeTimeLimitMs":3,"pingIntervalMs":4,"reconnectInitialMs":5,
            "reconnectMaxMs":60000,"maxMessageBytes":256})");
    EXPECT_EQ(1, config.connectTimeLimit.count());
    EXPECT_EQ(2, config.queryTimeLimit.count());
    EXPECT_EQ(3, config.subscribeTimeLimit.count());
    EXPECT_EQ(4, config.pingInterval.count());
    EXPECT_EQ(5, config.reconnectInitial.count());
    EXPECT_EQ(60000, config.reconnectMax.count());
    EXPECT_EQ(256U, config.maxMessageBytes);
}

TEST_F(ClientConfigTest, AnUnusableFileIsRefusedWithPathAndReason) {
    EXPECT_THAT(Failure(""), HasSubstr("ClientConfig.json: "));
    EXPECT_THAT(Failure("{"), HasSubstr("parse error"));
    EXPECT_THAT(Failure("[]"), HasSubstr("no JSON object"));
    EXPECT_THAT(Failure("{}"), HasSubstr("\"socketPath\""));
    EXPECT_THAT(Failure(R"({"socketPath":7})"), HasSubstr("must be string"));
    EXPECT_THAT(Failure(R"({"socketPath":"relative"})"), HasSubstr("\"socketPath\""));
    EXPECT_THAT(Failure(R"({"socketPath":"/)" + std::string(107, 'x') + "\"}"),
                HasSubstr("at most 107"));
    EXPECT_THAT(Failure(R"({"socketPath":"/s","queryTimeLimit":1})"),
                HasSubstr("unknown key \"queryTimeLimit\""));
    EXPECT_THAT(Failure(R"({"socketPath":"/s","queryTimeLimitMs":0})"), HasSubstr("1 to 60000"));
    EXPECT_THAT(Failure(R"({"socketPath":"/s","queryTimeLimitMs":-1})"), HasSubstr("1 to 60000"));
    EXPECT_THAT(Failure(R"({"socketPath":"/s","queryTimeLimitMs":"9"})"), HasSubstr("1 to 60000"));
    EXPECT_THAT(Failure(R"({"socketPath":"/s","maxMessageBytes":1048577})"),
                HasSubstr("256 to 1048576"));
    EXPECT_THAT(Failure(R"({"socketPath":"/s","reconnectMaxMs":99})"), HasSubstr("less than"));
    EXPECT_THAT(Failure(std::string(70000, ' ')), HasSubstr("too long"));
    EXPECT_THAT(Failure(R"({"socketPath":)" + std::string(100, '[')), HasSubstr("too deeply"));
    EXPECT_THROW(LoadClientConfig(mDirectory.File("missing")), std::runtime_error);
    EXPECT_THROW(LoadClientConfig(mDirectory.Path().string()), std::runtime_error);
}

}  // namespace service_access
