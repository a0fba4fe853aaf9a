#include "registry.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <utility>

#include <unistd.h>

#include <ara/log/logging.h>

#include "ara_log_host/line_format.h"

namespace ara::log::internal {

namespace {

std::optional<LogLevel> LevelByName(const char* name) {
    static constexpr std::array<std::string_view, 7> kNames{"off",  "fatal", "error",  "warn",
                                                            "info", "debug", "verbose"};
    for (std::size_t i = 0; name != nullptr && i < kNames.size(); ++i) {
        if (kNames.at(i) == name) {
            return static_cast<LogLevel>(i);
        }
    }
    return std::nullopt;
}

/// False if nobody will ever read what is written.
bool WriteToStderr(std::string_view entry) {
    while (!entry.empty()) {
        const ssize_t written = write(STDERR_FILENO, entry.data(), entry.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return written == 0 || errno != EPIPE;
        }
        entry.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

Registry& Registry::Instance() {
    static Registry& registry = *new Registry;
    return registry;
}

Registry::Registry() {
    ReadEnvironment();
}

void Registry::ReadEnvironment() {
    mEnvironmentLevel = LevelByName(std::getenv("ARA_LOG_LEVEL"));
    mForJournal = ara_log_host::IsJournalStream(std::getenv("JOURNAL_STREAM"), STDERR_FILENO);
    UpdateLoggers();
}

void Registry::UpdateLoggers() {
    for (const auto& [contextId, logger] : mLoggers) {
        logger->mEffectiveLevel = EffectiveLevel(logger->mOwnLevel);
    }
}

void Registry::Register(std::string_view appId, LogLevel level) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mAppId = appId;
    mApplicationLevel = level;
    ReadEnvironment();
}

Logger& Registry::GetLogger(std::string_view contextId, std::optional<LogLevel> level) {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto known = mLoggers.find(contextId);
    if (known != mLoggers.end()) {
        return *known->second;
    }
    std::unique_ptr<Logger> logger(new Logger(level));
    logger->mEffectiveLevel = EffectiveLevel(level);
    return *mLoggers.emplace(contextId, std::move(logger)).first->second;
}

ara_log_host::SinkSetting Registry::ExchangeSink(ara_log_host::SinkSetting setting) {
    const std::lock_guard<std::mutex> lock(mMutex);
    std::swap(mSink, setting);
    UpdateLoggers();
    return setting;
}

LogLevel Registry::EffectiveLevel(std::optional<LogLevel> own) const {
    if (mSink.sink) {
        return mSink.level;
    }
    return mEnvironmentLevel.value_or(own.value_or(mApplicationLevel));
}

void Registry::Write(LogLevel level, const std::string& text) {
    const auto now = std::chrono::system_clock::now();
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mSink.sink) {
        mSink.sink(level, text);
        return;
    }
    if (mReaderGone) {
        return;
    }
    mReaderGone = !WriteToStderr(ara_log_host::FormatEntry(mForJournal, now, level, mAppId, text));
}

}  // namespace ara::log::internal

namespace ara::log {

void InitLogging(std::string_view appId, std::string_view /*appDescription*/,
                 LogLevel appDefaultLevel) {
    internal::Registry::Instance().Register(appId, appDefaultLevel);
}

Logger& CreateLogger(std::string_view contextId, std::string_view /*contextDescription*/) {
    return internal::Registry::Instance().GetLogger(contextId, std::nullopt);
}

Logger& CreateLogger(std::string_view contextId, std::string_view /*contextDescription*/,
                     LogLevel contextDefaultLevel) {
    return internal::Registry::Instance().GetLogger(contextId, contextDefaultLevel);
}

}  // namespace ara::log

namespace ara_log_host {

SinkSetting ExchangeSink(SinkSetting setting) {
    return ara::log::internal::Registry::Instance().ExchangeSink(std::move(setting));
}

}  // namespace ara_log_host
