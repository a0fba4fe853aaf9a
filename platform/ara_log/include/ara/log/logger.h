#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <utility>

#include <ara/log/common.h>
#include <ara/log/log_stream.h>

namespace ara::log {

namespace internal {
class Registry;
}

/// The logger of one context of the application. Made by `CreateLogger`, lives as long as the
/// process; every operation may be called from any thread.
class Logger {
public:
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// Whether a line of this level would be written. Costs one atomic load.
    bool IsLogEnabled(LogLevel level) const noexcept {
        return level != LogLevel::kOff && level <= mEffectiveLevel.load(std::memory_order_relaxed);
    }

    /// An empty line of the level, which is written when the stream is destroyed.
    LogStream LogFatal() const { return WithLevel(LogLevel::kFatal); }
    LogStream LogError() const { return WithLevel(LogLevel::kError); }
    LogStream LogWarn() const { return WithLevel(LogLevel::kWarn); }
    LogStream LogInfo() const { return WithLevel(LogLevel::kInfo); }
    LogStream LogDebug() const { return WithLevel(LogLevel::kDebug); }
    LogStream LogVerbose() const { return WithLevel(LogLevel::kVerbose); }
    LogStream WithLevel(LogLevel level) const { return {*this, level, IsLogEnabled(level)}; }

private:
    friend class internal::Registry;
    Logger(std::string contextId, std::string description, std::optional<LogLevel> level)
        : mContextId(std::move(contextId)),
          mContextDescription(std::move(description)),
          mOwnLevel(level) {}

    const std::string mContextId;
    const std::string mContextDescription;
    const std::optional<LogLevel> mOwnLevel;
    /// The level of each output; guarded by the registry's lock.
    LogLevel mConsoleLevel{LogLevel::kOff};
    LogLevel mDltLevel{LogLevel::kOff};
    /// The most verbose level of any output.
    std::atomic<LogLevel> mEffectiveLevel{LogLevel::kOff};
};

}  // namespace ara::log
