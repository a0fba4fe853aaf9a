#include "logging/qel_logging_api.h"

#include "logging/qel_logging_aralog_impl.h"

namespace qel_logging {

QELLoggingApi::QELLoggingApi() : mLogging(std::make_unique<QELLoggingAralogImpl>()) {}

QELLoggingApi& QELLoggingApi::GetInstance() {
    static QELLoggingApi instance;
    return instance;
}

void QELLoggingApi::InitLogging(const std::string& appId, EQELLogLevel level) {
    mLogging->InitLogging(appId, level);
}

bool QELLoggingApi::IsLoggingEnabled(EQELLogLevel level) {
    return mLogging->IsLoggingEnabled(level);
}

void QELLoggingApi::LogFatal(const std::string& text) {
    mLogging->LogFatal(text);
}

void QELLoggingApi::LogError(const std::string& text) {
    mLogging->LogError(text);
}

void QELLoggingApi::LogWarning(const std::string& text) {
    mLogging->LogWarning(text);
}

void QELLoggingApi::LogInfo(const std::string& text) {
    mLogging->LogInfo(text);
}

void QELLoggingApi::LogDebug(const std::string& text) {
    mLogging->LogDebug(text);
}

void QELLoggingApi::LogVerbose(const std::string& text) {
    mLogging->LogVerbose(text);
}

void QELLoggingApi::CreateLogger(const std::string& name) {
    mLogging->CreateLogger(name);
}

}  // namespace qel_logging
