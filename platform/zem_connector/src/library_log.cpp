#include "library_log.h"

#include <ara/log/logging.h>

namespace zem_connector {

namespace {

const ara::log::Logger& Log() {
    static const ara::log::Logger& logger =
        ara::log::CreateLogger("ZEMC", "Connector to the backend link");
    return logger;
}

}  // namespace

void LogInfo(const std::string& text) {
    Log().LogInfo() << "ZemConnector: " << text;
}

void LogWarning(const std::string& text) {
    Log().LogWarn() << "ZemConnector: " << text;
}

void LogError(const std::string& text) {
    Log().LogError() << "ZemConnector: " << text;
}

}  // namespace zem_connector
