#pragma once

#include <functional>
#include <string>

#include <ara/log/common.h>

namespace ara_log_host {

/// Takes the lines in place of stderr, as they were logged and before any escaping. Called on the
/// thread that logs, one call at a time; it must not log itself.
using Sink = std::function<void(ara::log::LogLevel level, const std::string& text)>;

/// A sink and the level that holds for all loggers while it is installed.
struct SinkSetting {
    Sink sink;
    ara::log::LogLevel level{ara::log::LogLevel::kVerbose};
};

/// Installs a sink, or goes back to stderr if it is empty, and returns what was installed before.
/// When it returns, the former sink is not running and will not be called again.
SinkSetting ExchangeSink(SinkSetting setting);

}  // namespace ara_log_host
