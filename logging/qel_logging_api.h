#pragma once

#include <memory>
#include <string>

#include "logging/qel_logging_if.h"

namespace qel_logging {

/// The one log service of the process; forwards everything to the back end.
class QELLoggingApi final : public QELLoggingIf {
public:
    QELLoggingApi();

    /// Made on first use, destroyed at process exit. Any thread.
    static QELLoggingApi& GetInstance();

    void InitLogging(const std::string& appId, EQELLogLevel level) override;
    bool IsLoggingEnabled(EQELLogLevel level) override;
    void LogFatal(const std::string& text) override;
    void LogError(const std::string& text) override;
    void LogWarning(const std::string& text) override;
    void LogInfo(const std::string& text) override;
    void LogDebug(const std::string& text) override;
    void LogVerbose(const std::string& text) override;
    void CreateLogger(const std::string& name) override;

private:
    std::unique_ptr<QELLoggingIf> mLogging;
};

}  // namespace qel_logging
