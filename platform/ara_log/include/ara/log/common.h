#pragma once

#include <cstdint>

/// Logging of the adaptive platform, after AUTOSAR SWS_LogAndTrace.
namespace ara::log {

/// Severity of a line; a logger passes its own level and all smaller values.
enum class LogLevel : std::uint8_t {
    kOff = 0,
    kFatal = 1,
    kError = 2,
    kWarn = 3,
    kInfo = 4,
    kDebug = 5,
    kVerbose = 6,
};

}  // namespace ara::log
