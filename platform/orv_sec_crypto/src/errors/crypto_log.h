#pragma once

#include <string>

/// The library's own log lines, under the context "CRYP". No line ever holds key material.
namespace orv::sec::crypto {

void LogError(const std::string& text);
void LogWarn(const std::string& text);
void LogInfo(const std::string& text);
void LogDebug(const std::string& text);

}  // namespace orv::sec::crypto
