#include "someip/deployment.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

constexpr const char* kService = R"({"name": "s", "serviceId": "0x4D01", "address": "127.0.0.1",
                                     "port": 30509, "events": {"f": "0x8001", "g": 32770})";

std::string WithService(const std::string& service) {
    return R"({"services": [)" + service + "]}";
}

TEST(Deployment, ReadsIdsAsNumbersAndAsHexadecimalTexts) {
    const auto services = someip::ParseDeployment(WithService(std::string(kService) + "}"));
    ASSERT_EQ(services.size(), 1U);
    EXPECT_EQ(services[0].serviceId, 0x4D01);
    EXPECT_EQ(services[0].instanceId, 1);
    EXPECT_EQ(services[0].events.at("f"), 0x8001);
    EXPECT_EQ(services[0].events.at("g"), 0x8002);
    EXPECT_EQ(services[0].cycle, std::chrono::milliseconds(500));
    EXPECT_EQ(someip::ParseDeployment(someip::FormatDeployment(services)), services);
}

TEST(Deployment, SaysWhatIsWrongWithAFile) {
    const std::string open(kService);
    const struct {
        std::string text;
        const char* problem;
    } kBroken[] = {
        {"", "no JSON object"},
        {"[]", "no JSON object"},
        {"{}", "'services' is missing or no array"},
        {WithService("1"), "a service is no object"},
        {WithService("{}"), "'name' is missing or no text"},
        {WithService(open + R"(, "instanceId": 0})"), "'instanceId' is out of range"},
        {WithService(open + R"(, "instanceId": -1})"), "'instanceId' is not a number"},
        {WithService(open + R"(, "port": 65536})"), "'port' is out of range"},
        {WithService(open + R"(, "serviceId": "0x4D01x"})"), "'serviceId' is not a number"},
        {WithService(open + R"(, "events": []})"), "'events' is missing or no object"},
        {WithService(open + R"(, "events": {"f": 1}})"), "'f' is out of range"},
        {WithService(open + R"(, "ttlMs": 100})"), "'ttlMs' is shorter than 'cycleMs'"},
        {WithService(open + R"(, "ttlMs": 1e9})"), "'ttlMs' is not a number"},
    };
    for (const auto& broken : kBroken) {
        try {
            someip::ParseDeployment(broken.text);
            ADD_FAILURE() << broken.text;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr(broken.problem));
        }
    }
    EXPECT_THROW(someip::ReadDeployment("/nonexistent/Deployment.json"), std::runtime_error);
}

}  // namespace
