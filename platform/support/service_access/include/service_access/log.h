#pragma once

#include <string>

namespace service_access {

/// The log of the service access layer, under the platform log context "WEXA". Any thread.
void LogInfo(const std::string& text);
void LogWarning(const std::string& text);
void LogError(const std::string& text);

}  // namespace service_access
