#include "someip/deployment.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

#include <nlohmann/json.hpp>

namespace someip {

namespace {

using nlohmann::json;

constexpr const char* kDefaultPath = "/var/run/qel/config/someip/Deployment.json";
constexpr std::uintmax_t kMaxFileSize = std::uintmax_t{1024} * 1024;
constexpr std::uint64_t kMinMilliseconds = 10;
constexpr std::uint64_t kMaxMilliseconds = 60000;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("SOME/IP deployment: " + what);
}

/// A number, or a text such as "0x8001", since ids are commonly written so.
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

ServiceDeployment ParseService(const json& object) {
    constexpr std::uint64_t kMax16 = std::numeric_limits<std::uint16_t>::max();
    constexpr std::uint64_t kMax8 = std::numeric_limits<std::uint8_t>::max();
    if (!object.is_object()) {
        Fail("a service is no object");
    }
    ServiceDeployment service;
    service.name = TextOf(object, "name");
    service.serviceId = static_cast<std::uint16_t>(NumberOf(object, "serviceId", 1, kMax16));
    service.instanceId = static_cast<std::uint16_t>(NumberOr(object, "instanceId", 1, kMax16, 1));
    service.interfaceVersion =
        static_cast<std::uint8_t>(NumberOr(object, "interfaceVersion", 0, kMax8, 1));
    service.address = TextOf(object, "address");
    service.port = static_cast<std::uint16_t>(NumberOf(object, "port", 1, kMax16));
    service.cycle = std::chrono::milliseconds(
        NumberOr(object, "cycleMs", kMinMilliseconds, kMaxMilliseconds, 500));
    service.ttl = std::chrono::milliseconds(
        NumberOr(object, "ttlMs", kMinMilliseconds, kMaxMilliseconds, 3000));
    if (service.ttl < service.cycle) {
        Fail("'ttlMs' is shorter than 'cycleMs'");
    }
    if (!object.contains("events") || !object.at("events").is_object()) {
        Fail("'events' is missing or no object");
    }
    for (const auto& [name, id] : object.at("events").items()) {
        service.events[name] = static_cast<std::uint16_t>(Number(id, name, 0x8000, 0xFEFF));
    }
    return service;
}

}  // namespace

bool ServiceDeployment::operator==(const ServiceDeployment& other) const {
    const auto all = [](const ServiceDeployment& s) {
        return std::tie(s.name, s.serviceId, s.instanceId, s.interfaceVersion, s.address, s.port,
                        s.events, s.cycle, s.ttl);
    };
    return all(*this) == all(other);
}

std::string DefaultDeploymentPath() {
    const char* path = std::getenv("SOMEIP_DEPLOYMENT");
    return path != nullptr && *path != '\0' ? path : kDefaultPath;
}

std::vector<ServiceDeployment> ParseDeployment(const std::string& text) {
    const json document = json::parse(text, nullptr, false);
    if (document.is_discarded() || !document.is_object()) {
        Fail("no JSON object");
    }
    if (!document.contains("services") || !document.at("services").is_array()) {
        Fail("'services' is missing or no array");
    }
    std::vector<ServiceDeployment> services;
    for (const json& service : document.at("services")) {
        services.push_back(ParseService(service));
    }
    return services;
}

std::vector<ServiceDeployment> ReadDeployment(const std::string& path) {
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

std::string FormatDeployment(const std::vector<ServiceDeployment>& services) {
    json document{{"services", json::array()}};
    for (const ServiceDeployment& service : services) {
        document["services"].push_back({{"name", service.name},
                                        {"serviceId", service.serviceId},
                                        {"instanceId", service.instanceId},
                                        {"interfaceVersion", service.interfaceVersion},
                                        {"address", service.address},
                                        {"port", service.port},
                                        {"events", service.events},
                                        {"cycleMs", service.cycle.count()},
                                        {"ttlMs", service.ttl.count()}});
    }
    return document.dump(2) + "\n";
}

DeploymentFileLocator::DeploymentFileLocator(std::string path) : mPath(std::move(path)) {}

std::optional<ServiceDeployment> DeploymentFileLocator::Locate(const std::string& name,
                                                               const std::string& instance) {
    for (ServiceDeployment& service : ReadDeployment(mPath)) {
        const bool matches =
            instance == kAnyInstance || instance == std::to_string(service.instanceId);
        if (service.name == name && matches) {
            return std::move(service);
        }
    }
    return std::nullopt;
}

}  // namespace someip
