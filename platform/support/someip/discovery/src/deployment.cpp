#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <tuple>

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <someip/discovery/deployment.h>
#include <someip/wire/endpoint.h>

namespace someip {

namespace {

using nlohmann::json;

constexpr const char* kDefaultPath = "/var/run/qel/config/someip/Deployment.json";
constexpr std::uintmax_t kMaxFileSize = std::uintmax_t{1024} * 1024;
constexpr std::uint64_t kMinPause = 10;
constexpr std::uint64_t kMaxMilliseconds = 60000;
constexpr std::uint64_t kMaxRepetitions = 10;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("SOME/IP deployment: " + what);
}

/// A number, or a text such as "0x8001", since ids are commonly written in hexadecimal.
std::uint64_t Number(const json& value, const std::string& key, std::uint64_t min,
                     std::uint64_t max) {
    std::uint64_t number = 0;
    if (value.is_number_unsigned()) {
        number = value.get<std::uint64_t>();
    } else if (value.is_string()) {
        const std::string text = value.get<std::string>();
        char* end = nullptr;
        errno = 0;
        number = std::strtoull(text.c_str(), &end, 0);
        if (text.empty() || text.front() == '-' || *end != '\0' || errno != 0) {
            Fail("'" + key + "' is not a number");
        }
    } else {
        Fail("'" + key + "' is not a number");
    }
    if (number < min || number > max) {
        Fail("'" + key + "' is out of range");
    }
    return number;
}

std::uint64_t NumberOf(const json& object, const char* key, std::uint64_t min, std::uint64_t max) {
    if (!object.contains(key)) {
        Fail(std::string("'") + key + "' is missing");
    }
    return Number(object.at(key), key, min, max);
}

std::uint64_t NumberOr(const json& object, const char* key, std::uint64_t min, std::uint64_t max,
                       std::uint64_t fallback) {
    return object.contains(key) ? Number(object.at(key), key, min, max) : fallback;
}

std::string TextOf(const json& object, const char* key) {
    if (!object.contains(key) || !object.at(key).is_string()) {
        Fail(std::string("'") + key + "' is missing or no text");
    }
    return object.at(key).get<std::string>();
}

constexpr std::uint64_t kMax8 = std::numeric_limits<std::uint8_t>::max();
constexpr std::uint64_t kMax16 = std::numeric_limits<std::uint16_t>::max();
constexpr std::uint64_t kMax24 = 0xFFFFFF;
constexpr std::uint64_t kMax32 = std::numeric_limits<std::uint32_t>::max();
/// The highest id is the wildcard for services and instances.
constexpr std::uint64_t kMaxId = kMax16 - 1;

std::chrono::milliseconds DelayOr(const json& object, const char* key,
                                  std::chrono::milliseconds fallback) {
    return std::chrono::milliseconds(
        NumberOr(object, key, 0, kMaxMilliseconds, static_cast<std::uint64_t>(fallback.count())));
}

/// A pause between cyclic messages, which must not be zero.
std::chrono::milliseconds PauseOr(const json& object, const char* key,
                                  std::chrono::milliseconds fallback) {
    return std::chrono::milliseconds(NumberOr(object, key, kMinPause, kMaxMilliseconds,
                                              static_cast<std::uint64_t>(fallback.count())));
}

SdTiming ParseTiming(const json& object) {
    SdTiming timing;
    timing.initialDelayMin = DelayOr(object, "initialDelayMinMs", timing.initialDelayMin);
    timing.initialDelayMax = DelayOr(object, "initialDelayMaxMs", timing.initialDelayMax);
    timing.repetitionsBaseDelay =
        PauseOr(object, "repetitionsBaseDelayMs", timing.repetitionsBaseDelay);
    timing.repetitionsMax = static_cast<unsigned>(
        NumberOr(object, "repetitionsMax", 0, kMaxRepetitions, timing.repetitionsMax));
    timing.cyclicOfferDelay = PauseOr(object, "cyclicOfferDelayMs", timing.cyclicOfferDelay);
    timing.requestResponseDelayMin =
        DelayOr(object, "requestResponseDelayMinMs", timing.requestResponseDelayMin);
    timing.requestResponseDelayMax =
        DelayOr(object, "requestResponseDelayMaxMs", timing.requestResponseDelayMax);
    timing.subscribeRetry = PauseOr(object, "subscribeRetryMs", timing.subscribeRetry);
    timing.ttl = std::chrono::seconds(
        NumberOr(object, "ttl", 1, kMax24, static_cast<std::uint64_t>(timing.ttl.count())));
    if (timing.initialDelayMin > timing.initialDelayMax) {
        Fail("'initialDelayMaxMs' is less than 'initialDelayMinMs'");
    }
    if (timing.requestResponseDelayMin > timing.requestResponseDelayMax) {
        Fail("'requestResponseDelayMaxMs' is less than 'requestResponseDelayMinMs'");
    }
    if (timing.ttl <= timing.cyclicOfferDelay) {
        Fail("'ttl' is not longer than 'cyclicOfferDelayMs'");
    }
    if (timing.repetitionsMax > 0 &&
        timing.ttl <= timing.repetitionsBaseDelay * (1U << (timing.repetitionsMax - 1))) {
        Fail("'ttl' is not longer than the longest pause between repetitions");
    }
    return timing;
}

NetworkDeployment ParseNetwork(const json& document) {
    NetworkDeployment network;
    network.address = TextOf(document, "address");
    const auto address = ParseIpv4(network.address);
    if (!address || !IsUnicast(*address)) {
        Fail("'address' is no IPv4 address of a host");
    }
    if (document.contains("interface")) {
        network.interfaceName = TextOf(document, "interface");
    }
    const json discovery = document.value("serviceDiscovery", json::object());
    if (!discovery.is_object()) {
        Fail("'serviceDiscovery' is no object");
    }
    if (discovery.contains("multicast")) {
        network.multicastGroup = TextOf(discovery, "multicast");
    }
    const auto group = ParseIpv4(network.multicastGroup);
    if (!group || !IsMulticast(*group)) {
        Fail("'multicast' is no IPv4 multicast address");
    }
    network.sdPort =
        static_cast<std::uint16_t>(NumberOr(discovery, "port", 1, kMax16, network.sdPort));
    network.multicastHops = static_cast<std::uint8_t>(
        NumberOr(discovery, "multicastHops", 0, kMax8, network.multicastHops));
    network.timing = ParseTiming(discovery);
    return network;
}

EventDeployment ParseEvent(const json& object, const std::string& name) {
    if (!object.is_object()) {
        Fail("event '" + name + "' is no object");
    }
    EventDeployment event;
    event.id = static_cast<std::uint16_t>(NumberOf(object, "id", 0x8000, 0xFFFE));
    event.eventgroup = static_cast<std::uint16_t>(NumberOf(object, "eventgroup", 1, kMaxId));
    return event;
}

ServiceDeployment ParseService(const json& object) {
    if (!object.is_object()) {
        Fail("a service is no object");
    }
    ServiceDeployment service;
    service.name = TextOf(object, "name");
    service.serviceId = static_cast<std::uint16_t>(NumberOf(object, "serviceId", 1, kMaxId));
    service.instanceId = static_cast<std::uint16_t>(NumberOr(object, "instanceId", 1, kMaxId, 1));
    service.interfaceVersion =
        static_cast<std::uint8_t>(NumberOr(object, "interfaceVersion", 0, kMax8 - 1, 1));
    service.minorVersion =
        static_cast<std::uint32_t>(NumberOr(object, "minorVersion", 0, kMax32 - 1, 0));
    service.port = static_cast<std::uint16_t>(NumberOr(object, "port", 0, kMax16, 0));
    if (!object.contains("events") || !object.at("events").is_object()) {
        Fail("'events' is missing or no object");
    }
    for (const auto& [name, event] : object.at("events").items()) {
        service.events[name] = ParseEvent(event, name);
    }
    return service;
}

json Format(const NetworkDeployment& network) {
    const SdTiming& timing = network.timing;
    json object{{"address", network.address},
                {"serviceDiscovery",
                 {{"multicast", network.multicastGroup},
                  {"port", network.sdPort},
                  {"multicastHops", network.multicastHops},
                  {"initialDelayMinMs", timing.initialDelayMin.count()},
                  {"initialDelayMaxMs", timing.initialDelayMax.count()},
                  {"repetitionsBaseDelayMs", timing.repetitionsBaseDelay.count()},
                  {"repetitionsMax", timing.repetitionsMax},
                  {"cyclicOfferDelayMs", timing.cyclicOfferDelay.count()},
                  {"requestResponseDelayMinMs", timing.requestResponseDelayMin.count()},
                  {"requestResponseDelayMaxMs", timing.requestResponseDelayMax.count()},
                  {"subscribeRetryMs", timing.subscribeRetry.count()},
                  {"ttl", timing.ttl.count()}}}};
    if (!network.interfaceName.empty()) {
        object["interface"] = network.interfaceName;
    }
    return object;
}

json Format(const ServiceDeployment& service) {
    json events = json::object();
    for (const auto& [name, event] : service.events) {
        events[name] = {{"id", event.id}, {"eventgroup", event.eventgroup}};
    }
    return {{"name", service.name},
            {"serviceId", service.serviceId},
            {"instanceId", service.instanceId},
            {"interfaceVersion", service.interfaceVersion},
            {"minorVersion", service.minorVersion},
            {"port", service.port},
            {"events", events}};
}

}  // namespace

bool SdTiming::operator==(const SdTiming& other) const {
    const auto all = [](const SdTiming& t) {
        return std::tie(t.initialDelayMin, t.initialDelayMax, t.repetitionsBaseDelay,
                        t.repetitionsMax, t.cyclicOfferDelay, t.requestResponseDelayMin,
                        t.requestResponseDelayMax, t.subscribeRetry, t.ttl);
    };
    return all(*this) == all(other);
}

bool NetworkDeployment::operator==(const NetworkDeployment& other) const {
    const auto all = [](const NetworkDeployment& n) {
        return std::tie(n.address, n.interfaceName, n.multicastGroup, n.sdPort, n.multicastHops,
                        n.timing);
    };
    return all(*this) == all(other);
}

bool ServiceDeployment::operator==(const ServiceDeployment& other) const {
    const auto all = [](const ServiceDeployment& s) {
        return std::tie(s.name, s.serviceId, s.instanceId, s.interfaceVersion, s.minorVersion,
                        s.port, s.events);
    };
    return all(*this) == all(other);
}

const ServiceDeployment* FindService(const Deployment& deployment, const std::string& name,
                                     const std::string& instance) {
    for (const ServiceDeployment& service : deployment.services) {
        if (service.name == name &&
            (instance == kAnyInstance || instance == std::to_string(service.instanceId))) {
            return &service;
        }
    }
    return nullptr;
}

std::string DefaultDeploymentPath() {
    const char* path = std::getenv("SOMEIP_DEPLOYMENT");
    return path != nullptr && *path != '\0' ? path : kDefaultPath;
}

Deployment ParseDeployment(const std::string& text) {
    const json document = json::parse(text, nullptr, false);
    if (document.is_discarded() || !document.is_object()) {
        Fail("no JSON object");
    }
    Deployment deployment;
    deployment.network = ParseNetwork(document);
    if (!document.contains("services") || !document.at("services").is_array()) {
        Fail("'services' is missing or no array");
    }
    for (const json& service : document.at("services")) {
        deployment.services.push_back(ParseService(service));
    }
    return deployment;
}

Deployment ReadDeployment(const std::string& path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) {
        Fail("can't open '" + path + "': " + error.message());
    }
    if (size > kMaxFileSize) {
        Fail("'" + path + "' is larger than 1 MiB");
    }
    std::ifstream file(path, std::ios::binary);
    std::string text(static_cast<std::size_t>(size), '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file) {
        Fail("can't read '" + path + "'");
    }
    return ParseDeployment(text);
}

std::string FormatDeployment(const Deployment& deployment) {
    json document = Format(deployment.network);
    document["services"] = json::array();
    for (const ServiceDeployment& service : deployment.services) {
        document["services"].push_back(Format(service));
    }
    return document.dump(2) + "\n";
}

NetworkDeployment LoopbackNetwork(LoopbackEnd end) {
    // A process id has at most 22 bits; 127.0.0.0/8 and 239.0.0.0/8 leave 24.
    const auto process = static_cast<std::uint32_t>(::getpid()) & 0x3FFFFFU;
    const std::uint32_t half = end == LoopbackEnd::kProvider ? 0x7F400000U : 0x7F800000U;
    NetworkDeployment network;
    network.address = AddressText(half + process);
    network.multicastGroup = AddressText(0xEFC00000U + process);
    SdTiming& timing = network.timing;
    timing.initialDelayMin = timing.initialDelayMax = std::chrono::milliseconds(0);
    timing.requestResponseDelayMin = timing.requestResponseDelayMax = std::chrono::milliseconds(0);
    return network;
}

}  // namespace someip
