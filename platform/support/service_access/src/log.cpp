#include <ara/log/logging.h>
#include <service_access/log.h>

namespace service_access {

namespace {

ara::log::Logger& Log() {
    static ara::log::Logger& logger = ara::log::CreateLogger("WEXA", "Service access layer");
    return logger;
}

}  // namespace

void LogInfo(const std::string& text) {
    Log().LogInfo() << text;
}

void LogWarning(const std::string& text) {
    Log().LogWarn() << text;
}

void LogError(const std::string& text) {
    Log().LogError() << text;
}

}  // namespace service_access
