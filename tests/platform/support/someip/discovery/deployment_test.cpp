#include <stdexcept>

#include <gmock/gmock.h>

#include <someip/discovery/deployment.h>

namespace {

constexpr const char* kService = R"({"name": "s", "serviceId": "0x4D01", "events":
    {"f": {"id": "0x8001", "eventgroup": 1}, "g": {"id": 32770, "eventgroup": "0x0002"}})";

std::string With(const std::string& network, const std::string& service) {
    return "{" + network + R"(, "services": [)" + service + "]}";
}

std::string WithDiscovery(const std::string& members) {
    return With(R"("address": "192.0.2.1", "serviceDiscovery": {)" + members + "}", "");
}

TEST(Deployment, ReadsIdsAsNumbersAndAsHexadecimalTexts) {
    const auto deployment = someip::ParseDeployment(
        With(R"("address": "192.0.2.1", "interface": "eth0")", std::string(kService) + "}"));
    ASSERT_EQ(deployment.services.size(), 1U);
    const auto& service = deployment.services[0];
    EXPECT_EQ(service.serviceId, 0x4D01);
    EXPECT_EQ(service.instanceId, 1);
    EXPECT_EQ(service.events.at("f").id, 0x8001);
    EXPECT_EQ(service.events.at("g").eventgroup, 2);
    EXPECT_EQ(deployment.network.sdPort, 30490);
    EXPECT_EQ(deployment.network.interfaceName, "eth0");
    EXPECT_EQ(someip::ParseDeployment(someip::FormatDeployment(deployment)), deployment);

    EXPECT_EQ(someip::FindService(deployment, "s", someip::kAnyInstance), &service);
    EXPECT_EQ(someip::FindService(deployment, "s", "1"), &service);
    EXPECT_EQ(someip::FindService(deployment, "s", "2"), nullptr);
    EXPECT_EQ(someip::FindService(deployment, "t", "1"), nullptr);
}

TEST(Deployment, SaysWhatIsWrongWithAFile) {
    const std::string here = R"("address": "192.0.2.1")";
    const std::string open(kService);
    const struct {
        std::string text;
        const char* problem;
    } kBroken[] = {
        {"", "no JSON object"},
        {"[]", "no JSON object"},
        {"{}", "'address' is missing or no text"},
        {With(R"("address": "localhost")", ""), "'address' is no IPv4 address of a host"},
        {With(R"("address": "224.0.0.1")", ""), "'address' is no IPv4 address of a host"},
        {With(here + R"(, "serviceDiscovery": 1)", ""), "'serviceDiscovery' is no object"},
        {WithDiscovery(R"("multicast": "192.0.2.1")"), "'multicast' is no IPv4 multicast address"},
        {WithDiscovery(R"("port": 0)"), "'port' is out of range"},
        {WithDiscovery(R"("ttl": 0)"), "'ttl' is out of range"},
        {WithDiscovery(R"("ttl": 16777216)"), "'ttl' is out of range"},
        {WithDiscovery(R"("cyclicOfferDelayMs": 3000)"), "'ttl' is not longer than 'cyclic"},
        {WithDiscovery(R"("repetitionsBaseDelayMs": 750)"), "'ttl' is not longer than the longest"},
        {WithDiscovery(R"("initialDelayMinMs": 101)"), "'initialDelayMaxMs' is less than"},
        {WithDiscovery(R"("requestResponseDelayMaxMs": 9)"), "'requestResponseDelayMaxMs' is less"},
        {"{" + here + "}", "'services' is missing or no array"},
        {With(here, "1"), "a service is no object"},
        {With(here, "{}"), "'name' is missing or no text"},
        {With(here, open + R"(, "instanceId": 65535})"), "'instanceId' is out of range"},
        {With(here, open + R"(, "instanceId": -1})"), "'instanceId' is not a number"},
        {With(here, open + R"(, "serviceId": "0x4D01x"})"), "'serviceId' is not a number"},
        {With(here, open + R"(, "events": []})"), "'events' is missing or no object"},
        {With(here, open + R"(, "events": {"f": 32769}})"), "event 'f' is no object"},
        {With(here, open + R"(, "events": {"f": {"id": 1}}})"), "'id' is out of range"},
        {With(here, open + R"(, "events": {"f": {"id": 32769}}})"), "'eventgroup' is missing"},
    };
    for (const auto& broken : kBroken) {
        try {
            someip::ParseDeployment(broken.text);
            ADD_FAILURE() << broken.text;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr(broken.problem)) << broken.text;
        }
    }
    EXPECT_THROW(someip::ReadDeployment("/nonexistent/Deployment.json"), std::runtime_error);
}

}  // namespace
