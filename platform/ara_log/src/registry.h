#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <ara/log/logger.h>

#include "ara_log_host/sink.h"

namespace ara::log::internal {

/// The log service of the process: registration, loggers, output. Any thread.
class Registry {
public:
    /// Never destroyed, since objects with static lifetime may log in their destructors.
    static Registry& Instance();

    void Register(std::string_view appId, LogLevel level);
    Logger& GetLogger(std::string_view contextId, std::optional<LogLevel> level);
    ara_log_host::SinkSetting ExchangeSink(ara_log_host::SinkSetting setting);

    void Write(LogLevel level, const std::string& text);

private:
    Registry();
    void ReadEnvironment();
    LogLevel EffectiveLevel(std::optional<LogLevel> own) const;
    void UpdateLoggers();

    std::mutex mMutex;
    LogLevel mApplicationLevel{LogLevel::kWarn};
    std::string mAppId{"----"};
    bool mForJournal{false};
    /// Nothing more is written then: each attempt would raise SIGPIPE, and a process that logs the
    /// signal would thereby raise the next one, without end.
    bool mReaderGone{false};
    std::optional<LogLevel> mEnvironmentLevel;
    ara_log_host::SinkSetting mSink;
    std::map<std::string, std::unique_ptr<Logger>, std::less<>> mLoggers;
};

}  // namespace ara::log::internal
