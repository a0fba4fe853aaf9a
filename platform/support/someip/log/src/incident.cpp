#include <nlohmann/json.hpp>

#include <someip/log/incident.h>

namespace someip {

void LogIncident(const std::string& type, const std::string& service, const std::string& event,
                 const std::string& text) {
    const nlohmann::json incident{
        {"incident", type}, {"service", service}, {"event", event}, {"text", text}};
    Log().Error(incident.dump());
}

}  // namespace someip
