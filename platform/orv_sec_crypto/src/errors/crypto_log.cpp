#include "errors/crypto_log.h"

#include <ara/log/logging.h>

namespace orv::sec::crypto {

namespace {

ara::log::Logger& Logger() {
    static ara::log::Logger& logger = ara::log::CreateLogger("CRYP", "Crypto library");
    return logger;
}

}  // namespace

void LogError(const std::string& text) {
    Logger().LogError() << text;
}

void LogWarn(const std::string& text) {
    Logger().LogWarn() << text;
}

void LogInfo(const std::string& text) {
    Logger().LogInfo() << text;
}

void LogDebug(const std::string& text) {
    Logger().LogDebug() << text;
}

}  // namespace orv::sec::crypto
