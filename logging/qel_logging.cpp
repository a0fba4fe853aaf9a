#include "logging/qel_logging.h"

#include "logging/qel_logging_api.h"

namespace qel_logging {

void QELLogging::InitLogging(const std::string& appId) {
    InitLogging(appId, EQELLogLevel::kDebug);
}

void QELLogging::InitLogging(const std::string& appId, EQELLogLevel level) {
    QELLoggingApi::GetInstance().InitLogging(appId, level);
}

void QELLogging::CreateLogger(const std::string& name) {
    QELLoggingApi::GetInstance().CreateLogger(name);
}

bool QELLogging::IsEnabled(EQELLogLevel level) {
    return QELLoggingApi::GetInstance().IsLoggingEnabled(level);
}

void QELLogging::LogFatal(const std::string& text) {
    if (IsEnabled(EQELLogLevel::kFatal)) {
        QELLoggingApi::GetInstance().LogFatal(text);
    }
}

void QELLogging::LogFatal(const QELLogEntry& entry) {
    LogFatal(entry.Get());
}

void QELLogging::LogError(const std::string& text) {
    if (IsEnabled(EQELLogLevel::kError)) {
        QELLoggingApi::GetInstance().LogError(text);
    }
}

void QELLogging::LogError(const QELLogEntry& entry) {
    LogError(entry.Get());
}

void QELLogging::LogWarning(const std::string& text) {
    if (IsEnabled(EQELLogLevel::kWarning)) {
        QELLoggingApi::GetInstance().LogWarning(text);
    }
}

void QELLogging::LogWarning(const QELLogEntry& entry) {
    LogWarning(entry.Get());
}

void QELLogging::LogInfo(const std::string& text) {
    if (IsEnabled(EQELLogLevel::kInfo)) {
        QELLoggingApi::GetInstance().LogInfo(text);
    }
}

void QELLogging::LogInfo(const QELLogEntry& entry) {
    LogInfo(entry.Get());
}

void QELLogging::LogDebug(const std::string& text) {
    if (IsEnabled(EQELLogLevel::kDebug)) {
        QELLoggingApi::GetInstance().LogDebug(text);
    }
}

void QELLogging::LogDebug(const QELLogEntry& entry) {
    LogDebug(entry.Get());
}

void QELLogging::LogVerbose(const std::string& text) {
    if (IsEnabled(EQELLogLevel::kVerbose)) {
        QELLoggingApi::GetInstance().LogVerbose(text);
    }
}

void QELLogging::LogVerbose(const QELLogEntry& entry) {
    LogVerbose(entry.Get());
}

}  // namespace qel_logging
