#pragma once

#include <string_view>

#include <ara/log/common.h>
#include <ara/log/logger.h>

namespace ara::log {

/// Registers the application with the log service: its id in each line, and the level of all
/// loggers that were made without one.
///
/// Reads the integrator's configuration (docs/logging.md), which may override the id, the
/// description and all levels, and selects the outputs. Until this call the id is "----", the
/// level `kWarn` and the output stderr. Any thread; a later call replaces the registration, except
/// the one with DLT, which is made once.
void InitLogging(std::string_view appId, std::string_view appDescription,
                 LogLevel appDefaultLevel = LogLevel::kWarn);

/// The logger of a context of this application; the same context id gives the same logger.
///
/// Without a level the logger follows the application's. Any thread; the reference stays valid
/// until the process ends.
Logger& CreateLogger(std::string_view contextId, std::string_view contextDescription);
Logger& CreateLogger(std::string_view contextId, std::string_view contextDescription,
                     LogLevel contextDefaultLevel);

}  // namespace ara::log
