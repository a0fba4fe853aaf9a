#pragma once

#include <functional>
#include <string>

#include <ara/log/common.h>

namespace ara_log_host {

/// Receives the lines instead of stderr, before any escaping. Called on the logging thread, one
/// call at a time; must not log itself.
using Sink = std::function<void(ara::log::LogLevel level, const std::string& text)>;

/// A sink, and the level of all loggers while it is installed.
struct SinkSetting {
    Sink sink;
    ara::log::LogLevel level{ara::log::LogLevel::kVerbose};
};

/// Installs a sink, or reverts to stderr if it is empty, and returns the previous setting. After
/// the return the previous sink is neither running nor called again. Any thread but a sink's.
SinkSetting ExchangeSink(SinkSetting setting);

}  // namespace ara_log_host
