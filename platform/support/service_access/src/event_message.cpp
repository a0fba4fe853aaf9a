#include <stdexcept>

#include <nlohmann/json.hpp>

#include <service_access/bounded_json.h>
#include <service_access/event_message.h>

namespace service_access {

namespace {

constexpr std::size_t kMaxNameLength = 128;

std::string Name(const nlohmann::json& message, const char* key) {
    auto name = message.at(key).get<std::string>();
    if (name.empty() || name.size() > kMaxNameLength) {
        throw std::length_error(std::string("bad length of ") + key);
    }
    return name;
}

bool Flag(const nlohmann::json& message, const char* key) {
    const auto& value = message.at(key);
    if (!value.is_boolean()) {
        throw std::invalid_argument(std::string(key) + " is no boolean");
    }
    return value.get<bool>();
}

std::uint64_t Request(const nlohmann::json& message) {
    const auto& value = message.at("request");
    if (!value.is_number_unsigned()) {
        throw std::invalid_argument("request is no unsigned number");
    }
    return value.get<std::uint64_t>();
}

}  // namespace

EventMessage ParseEventMessage(std::string_view text) {
    const auto message = ParseBoundedJson(text);
    const auto type = message.at("type").get<std::string>();
    if (type == "service") {
        return ServiceState{Name(message, "name"), Flag(message, "available")};
    }
    if (type == "element") {
        return ElementChange{Name(message, "service"), Name(message, "element"),
                             Flag(message, "value")};
    }
    if (type == "subscribed") {
        return SubscriptionAccepted{Request(message), Name(message, "subscription")};
    }
    if (type == "refused") {
        return SubscriptionRefused{Request(message)};
    }
    return UnknownMessage{};
}

}  // namespace service_access
