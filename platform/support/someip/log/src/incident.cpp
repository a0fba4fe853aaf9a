#include <nlohmann/json.hpp>

#include <ara/log/logging.h>
#include <someip/log/incident.h>

namespace someip {

namespace {

ara::log::Logger& Log() {
    static ara::log::Logger& logger = ara::log::CreateLogger("COM", "Communication middleware");
    return logger;
}

}  // namespace

void LogError(const std::string& text) {
    Log().LogError() << text;
}

void LogWarn(const std::string& text) {
    Log().LogWarn() << text;
}

void LogIncident(const std::string& type, const std::string& service, const std::string& event,
                 const std::string& text) {
    const nlohmann::json incident{
        {"incident", type}, {"service", service}, {"event", event}, {"text", text}};
    LogError(incident.dump());
}

}  // namespace someip
