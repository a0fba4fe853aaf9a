#include "logging/qel_logging_aralog_impl.h"

#include <algorithm>

#include <ara/log/logging.h>

namespace qel_logging {

namespace {

/// The two scales have the same numbers.
ara::log::LogLevel ToAraLevel(EQELLogLevel level) {
    return static_cast<ara::log::LogLevel>(
        std::clamp(static_cast<int>(level), 0, static_cast<int>(EQELLogLevel::kVerbose)));
}

}  // namespace

void QELLoggingAralogImpl::InitLogging(const std::string& appId, EQELLogLevel level) {
    ara::log::InitLogging(appId, "Client certificate service", ToAraLevel(level));
    mLogger = &ara::log::CreateLogger("MAIN", "Main context");
}

bool QELLoggingAralogImpl::IsLoggingEnabled(EQELLogLevel level) {
    const ara::log::Logger* logger = mLogger.load(std::memory_order_acquire);
    return logger != nullptr && logger->IsLogEnabled(ToAraLevel(level));
}

void QELLoggingAralogImpl::LogFatal(const std::string& text) {
    Write(EQELLogLevel::kFatal, text);
}

void QELLoggingAralogImpl::LogError(const std::string& text) {
    Write(EQELLogLevel::kError, text);
}

void QELLoggingAralogImpl::LogWarning(const std::string& text) {
    Write(EQELLogLevel::kWarning, text);
}

void QELLoggingAralogImpl::LogInfo(const std::string& text) {
    Write(EQELLogLevel::kInfo, text);
}

void QELLoggingAralogImpl::LogDebug(const std::string& text) {
    Write(EQELLogLevel::kDebug, text);
}

void QELLoggingAralogImpl::LogVerbose(const std::string& text) {
    Write(EQELLogLevel::kVerbose, text);
}

void QELLoggingAralogImpl::CreateLogger(const std::string& name) {
    ara::log::CreateLogger(name, name);
}

void QELLoggingAralogImpl::Write(EQELLogLevel level, const std::string& text) const {
    const ara::log::Logger* logger = mLogger;
    if (logger != nullptr) {
        logger->WithLevel(ToAraLevel(level)) << text;
    }
}

}  // namespace qel_logging
