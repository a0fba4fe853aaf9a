#include <stdexcept>

#include <nlohmann/json.hpp>

#include <service_access/bounded_json.h>

namespace service_access {

namespace {

constexpr int kMaxDepth = 16;

}  // namespace

nlohmann::json ParseBoundedJson(std::string_view text) {
    using Event = nlohmann::json::parse_event_t;
    return nlohmann::json::parse(text, [](int depth, Event event, const nlohmann::json&) {
        const bool opens = event == Event::object_start || event == Event::array_start;
        if (opens && depth >= kMaxDepth) {
            throw std::length_error("JSON is nested too deeply");
        }
        return true;
    });
}

std::string FormatJson(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace service_access
