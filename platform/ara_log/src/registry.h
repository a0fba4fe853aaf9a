#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ara/log/logger.h>

#include "ara_log_host/log_config.h"
#include "ara_log_host/sink.h"
#include "console_output.h"
#include "dlt_output.h"

namespace ara::log::internal {

/// The log service of the process: registration, loggers, output. Any thread.
class Registry {
public:
    /// Never destroyed, since objects with static lifetime may log in their destructors.
    static Registry& Instance();

    /// See `InitLogging`.
    void Register(std::string_view appId, std::string_view appDescription, LogLevel level);
    /// See `CreateLogger`.
    Logger& GetLogger(std::string_view contextId, std::string_view description,
                      std::optional<LogLevel> level);
    /// See `ara_log_host::ExchangeSink`.
    ara_log_host::SinkSetting ExchangeSink(ara_log_host::SinkSetting setting);

    /// Writes one line to every output whose level for this logger permits it.
    void Write(const Logger& logger, LogLevel level, const std::string& text);

private:
    Registry();
    void ReadConfig();
    void OpenDlt(std::string_view appDescription);
    void CloseDlt();
    void TakeDltLevel(std::string_view context, LogLevel level);
    void AddToDlt(Logger& logger);
    void UpdateLevels(Logger& logger) const;
    void UpdateLoggers();
    LogLevel ConfiguredLevel(const Logger& logger) const;

    std::mutex mMutex;
    LogLevel mApplicationLevel{LogLevel::kWarn};
    std::string mAppId{"----"};
    ara_log_host::LogConfig mConfig;
    std::vector<std::string> mComplaints;
    ara_log_host::SinkSetting mSink;
    ConsoleOutput mConsole;
    std::unique_ptr<DltOutput> mDlt;
    bool mWasDltOpened{false};
    std::map<std::string, std::unique_ptr<Logger>, std::less<>> mLoggers;
};

}  // namespace ara::log::internal
