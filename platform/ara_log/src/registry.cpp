#include "registry.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

#include <ara/log/logging.h>

namespace ara::log::internal {

Registry& Registry::Instance() {
    static Registry& registry = *new Registry;
    return registry;
}

Registry::Registry() {
    ReadConfig();
}

void Registry::ReadConfig() {
    mComplaints.clear();
    mConfig = ara_log_host::ReadLogConfig(mComplaints);
}

void Registry::Register(std::string_view appId, std::string_view appDescription, LogLevel level) {
    const std::lock_guard<std::mutex> lock(mMutex);
    ReadConfig();
    mConsole.LookAgain();
    mAppId = mConfig.applicationId.empty() ? appId : mConfig.applicationId;
    mApplicationLevel = level;
    if (mConfig.dlt) {
        OpenDlt(appDescription);
    }
    UpdateLoggers();
    for (const std::string& complaint : mComplaints) {
        mConsole.Write(std::chrono::system_clock::now(), LogLevel::kWarn, mAppId, complaint);
    }
}

void Registry::OpenDlt(std::string_view appDescription) {
    if (mWasDltOpened) {
        return;
    }
    const std::string description(mConfig.applicationDescription.empty()
                                      ? appDescription
                                      : std::string_view(mConfig.applicationDescription));
    mDlt = DltOutput::Open(mAppId, description, [](std::string_view context, LogLevel level) {
        Instance().TakeDltLevel(context, level);
    });
    if (!mDlt) {
        mComplaints.emplace_back("Log output dlt is not available; logging to the console");
        mConfig.console = true;
        return;
    }
    mWasDltOpened = true;
    for (const auto& [contextId, logger] : mLoggers) {
        AddToDlt(*logger);
    }
    // Runs before the library's own exit handler: a line after that would start the library again.
    std::atexit([] { Instance().CloseDlt(); });
}

void Registry::CloseDlt() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mDlt.reset();
    UpdateLoggers();
}

void Registry::TakeDltLevel(std::string_view context, LogLevel level) {
    const std::lock_guard<std::mutex> lock(mMutex);
    for (const auto& [contextId, logger] : mLoggers) {
        if (std::string_view(contextId).substr(0, 4) == context) {
            logger->mDltLevel = level;
            UpdateLevels(*logger);
        }
    }
}

void Registry::AddToDlt(Logger& logger) {
    logger.mDltLevel = ConfiguredLevel(logger);
    mDlt->AddContext(logger.mContextId, logger.mContextDescription, logger.mDltLevel);
}

void Registry::UpdateLevels(Logger& logger) const {
    logger.mConsoleLevel = mConfig.console ? ConfiguredLevel(logger) : LogLevel::kOff;
    const LogLevel outputs =
        std::max(logger.mConsoleLevel, mDlt ? logger.mDltLevel : LogLevel::kOff);
    logger.mEffectiveLevel = mSink.sink ? mSink.level : outputs;
}

void Registry::UpdateLoggers() {
    for (const auto& [contextId, logger] : mLoggers) {
        UpdateLevels(*logger);
    }
}

Logger& Registry::GetLogger(std::string_view contextId, std::string_view description,
                            std::optional<LogLevel> level) {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto known = mLoggers.find(contextId);
    if (known != mLoggers.end()) {
        return *known->second;
    }
    std::unique_ptr<Logger> made(
        new Logger(std::string(contextId), std::string(description), level));
    Logger& logger = *mLoggers.emplace(contextId, std::move(made)).first->second;
    if (mDlt) {
        AddToDlt(logger);
    }
    UpdateLevels(logger);
    return logger;
}

ara_log_host::SinkSetting Registry::ExchangeSink(ara_log_host::SinkSetting setting) {
    const std::lock_guard<std::mutex> lock(mMutex);
    std::swap(mSink, setting);
    UpdateLoggers();
    return setting;
}

LogLevel Registry::ConfiguredLevel(const Logger& logger) const {
    return mConfig.level.value_or(logger.mOwnLevel.value_or(mApplicationLevel));
}

void Registry::Write(const Logger& logger, LogLevel level, const std::string& text) {
    const auto now = std::chrono::system_clock::now();
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mSink.sink) {
        mSink.sink(level, text);
        return;
    }
    if (level <= logger.mConsoleLevel) {
        mConsole.Write(now, level, mAppId, text);
    }
    if (mDlt) {
        mDlt->Write(logger.mContextId, level, text);
    }
}

}  // namespace ara::log::internal

namespace ara::log {

void InitLogging(std::string_view appId, std::string_view appDescription,
                 LogLevel appDefaultLevel) {
    internal::Registry::Instance().Register(appId, appDescription, appDefaultLevel);
}

Logger& CreateLogger(std::string_view contextId, std::string_view contextDescription) {
    return internal::Registry::Instance().GetLogger(contextId, contextDescription, std::nullopt);
}

Logger& CreateLogger(std::string_view contextId, std::string_view contextDescription,
                     LogLevel contextDefaultLevel) {
    return internal::Registry::Instance().GetLogger(contextId, contextDescription,
                                                    contextDefaultLevel);
}

}  // namespace ara::log

namespace ara_log_host {

SinkSetting ExchangeSink(SinkSetting setting) {
    return ara::log::internal::Registry::Instance().ExchangeSink(std::move(setting));
}

}  // namespace ara_log_host
