#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include <nlohmann/json.hpp>

#include <service_access/bounded_json.h>
#include <service_access/client_config.h>

#include "unix_socket.h"

namespace service_access {

namespace {

constexpr std::size_t kMaxFileSize = 65536;
constexpr unsigned kMaxTimeMs = 60000;

struct TimeKey {
    const char* key;
    std::chrono::milliseconds ClientConfig::*field;
};

constexpr std::array<TimeKey, 6> kTimeKeys{{
    {"connectTimeLimitMs", &ClientConfig::connectTimeLimit},
    {"queryTimeLimitMs", &ClientConfig::queryTimeLimit},
    {"subscribeTimeLimitMs", &ClientConfig::subscribeTimeLimit},
    {"pingIntervalMs", &ClientConfig::pingInterval},
    {"reconnectInitialMs", &ClientConfig::reconnectInitial},
    {"reconnectMaxMs", &ClientConfig::reconnectMax},
}};

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("can't be opened");
    }
    std::string text(kMaxFileSize + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad()) {
        throw std::runtime_error("can't be read");
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > kMaxFileSize) {
        throw std::runtime_error("is too long");
    }
    return text;
}

std::uint64_t Number(const std::string& key, const nlohmann::json& value, std::uint64_t least,
                     std::uint64_t most) {
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() < least ||
        value.get<std::uint64_t>() > most) {
        throw std::runtime_error("\"" + key + "\" is no number from " + std::to_string(least) +
                                 " to " + std::to_string(most));
    }
    return value.get<std::uint64_t>();
}

void SetKey(ClientConfig& config, const std::string& key, const nlohmann::json& value) {
    if (key == "socketPath") {
        config.socketPath = value.get<std::string>();
        return;
    }
    if (key == "maxMessageBytes") {
        config.maxMessageBytes = Number(key, value, 256, 1048576);
        return;
    }
    for (const auto& [name, field] : kTimeKeys) {
        if (key == name) {
            config.*field = std::chrono::milliseconds(Number(key, value, 1, kMaxTimeMs));
            return;
        }
    }
    throw std::runtime_error("has the unknown key \"" + key + "\"");
}

ClientConfig Parse(const std::string& text) {
    const auto document = ParseBoundedJson(text);
    if (!document.is_object()) {
        throw std::runtime_error("is no JSON object");
    }
    ClientConfig config;
    for (const auto& [key, value] : document.items()) {
        SetKey(config, key, value);
    }
    if (!IsUsableSocketPath(config.socketPath)) {
        throw std::runtime_error("\"socketPath\" is no absolute path of at most 107 bytes");
    }
    if (config.reconnectMax < config.reconnectInitial) {
        throw std::runtime_error("\"reconnectMaxMs\" is less than \"reconnectInitialMs\"");
    }
    return config;
}

}  // namespace

std::string ResolveClientConfigPath(const std::string& path) {
    const char* const override = std::getenv("WEXA_CLIENT_CONFIG");
    return override == nullptr || *override == '\0' ? path : override;
}

ClientConfig LoadClientConfig(const std::string& path) {
    try {
        return Parse(ReadFile(path));
    } catch (const std::exception& error) {
        throw std::runtime_error("client configuration " + path + ": " + error.what());
    }
}

}  // namespace service_access
