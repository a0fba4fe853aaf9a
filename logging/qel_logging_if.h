#pragma once

#include <string>

namespace qel_logging {

/// Severity of a line. The value 0 is not used.
enum class EQELLogLevel : int {
    kFatal = 1,
    kError = 2,
    kWarning = 3,
    kInfo = 4,
    kDebug = 5,
    kVerbose = 6,
};

/// Back end of the log facade. Every operation may be called from several threads at once; failures
/// of the output are not reported.
class QELLoggingIf {
public:
    QELLoggingIf() = default;
    QELLoggingIf(const QELLoggingIf&) = delete;
    QELLoggingIf& operator=(const QELLoggingIf&) = delete;
    virtual ~QELLoggingIf() = default;

    /// Registers the application and its default level with the log service.
    virtual void InitLogging(const std::string& appId, EQELLogLevel level) = 0;
    virtual bool IsLoggingEnabled(EQELLogLevel level) = 0;
    virtual void LogFatal(const std::string& text) = 0;
    virtual void LogError(const std::string& text) = 0;
    virtual void LogWarning(const std::string& text) = 0;
    virtual void LogInfo(const std::string& text) = 0;
    virtual void LogDebug(const std::string& text) = 0;
    virtual void LogVerbose(const std::string& text) = 0;
    virtual void CreateLogger(const std::string& name) = 0;
};

}  // namespace qel_logging
