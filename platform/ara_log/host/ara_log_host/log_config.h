#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ara/log/common.h>

namespace ara_log_host {

/// The integrator's configuration of a process; docs/logging.md describes file and environment.
struct LogConfig {
    bool console{true};
    bool dlt{false};
    /// Overrides the levels of the application and of all loggers.
    std::optional<ara::log::LogLevel> level;
    /// In place of what the application registers, unless empty.
    std::string applicationId;
    std::string applicationDescription;
};

/// Parses a configuration file. Throws std::runtime_error with a text for the log.
LogConfig ParseLogConfig(const std::string& text);

/// The configuration of this process, from its file and its environment. Unusable values are
/// ignored, each with a text for the log in `complaints`.
LogConfig ReadLogConfig(std::vector<std::string>& complaints);

}  // namespace ara_log_host
