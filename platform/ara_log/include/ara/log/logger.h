#pragma once

#include <atomic>
#include <optional>

#include <ara/log/common.h>
#include <ara/log/log_stream.h>

namespace ara::log {

namespace internal {
class Registry;
}

/// The front end of one context of the application. Made by `CreateLogger`, lives as long as the
/// process; every operation may be called from any thread.
class Logger {
public:
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// Whether a line of this level would be written. Costs one atomic load.
    bool IsLogEnabled(LogLevel level) const noexcept {
        return level != LogLevel::kOff && level <= mEffectiveLevel.load(std::memory_order_relaxed);
    }

    LogStream LogFatal() const { return WithLevel(LogLevel::kFatal); }
    LogStream LogError() const { return WithLevel(LogLevel::kError); }
    LogStream LogWarn() const { return WithLevel(LogLevel::kWarn); }
    LogStream LogInfo() const { return WithLevel(LogLevel::kInfo); }
    LogStream LogDebug() const { return WithLevel(LogLevel::kDebug); }
    LogStream LogVerbose() const { return WithLevel(LogLevel::kVerbose); }
    LogStream WithLevel(LogLevel level) const { return {level, IsLogEnabled(level)}; }

private:
    friend class internal::Registry;
    explicit Logger(std::optional<LogLevel> level) : mOwnLevel(level) {}

    const std::optional<LogLevel> mOwnLevel;
    /// What results from this level, the application's and the ones that override both.
    std::atomic<LogLevel> mEffectiveLevel{LogLevel::kOff};
};

}  // namespace ara::log
