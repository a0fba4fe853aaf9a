#pragma once

#include <atomic>
#include <string>

#include "logging/qel_logging_if.h"

namespace ara::log {
class Logger;
}

namespace qel_logging {

/// Log back end on the platform's `ara::log`. Until `InitLogging` no level is enabled and nothing
/// is written.
class QELLoggingAralogImpl final : public QELLoggingIf {
public:
    void InitLogging(const std::string& appId, EQELLogLevel level) override;
    bool IsLoggingEnabled(EQELLogLevel level) override;
    void LogFatal(const std::string& text) override;
    void LogError(const std::string& text) override;
    void LogWarning(const std::string& text) override;
    void LogInfo(const std::string& text) override;
    void LogDebug(const std::string& text) override;
    void LogVerbose(const std::string& text) override;

    /// Makes a logger of that name known to the platform; lines keep going to the logger that
    /// `InitLogging` made.
    void CreateLogger(const std::string& name) override;

private:
    void Write(EQELLogLevel level, const std::string& text) const;

    std::atomic<ara::log::Logger*> mLogger{nullptr};
};

}  // namespace qel_logging
