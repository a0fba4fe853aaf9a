#pragma once

#include <string>

#include "logging/qel_log_entry.h"
#include "logging/qel_logging_if.h"

namespace qel_logging {

/// Static front of the log, used by every class of the system. Any thread.
///
/// A line goes out as it is given, without time stamp, source location or level; a line of a level
/// that is not enabled is dropped before it reaches the back end. Nothing is ever reported back.
///
/// The template forms take the parts of a line, each of a type that `QELLogEntry` takes, and put
/// them together only if the level is enabled: otherwise nothing is built or copied.
class QELLogging {
public:
    QELLogging() = delete;

    /// Registers the application at level `kDebug`, or the given one. First statement of `main`.
    static void InitLogging(const std::string& appId);
    static void InitLogging(const std::string& appId, EQELLogLevel level);
    static void CreateLogger(const std::string& name);

    /// Whether lines of this level are written. Ask first where building the text costs something.
    static bool IsEnabled(EQELLogLevel level);

    static void LogFatal(const std::string& text);
    static void LogFatal(const QELLogEntry& entry);
    template <typename... Parts>
    static void LogFatal(const Parts&... parts) {
        if (IsEnabled(EQELLogLevel::kFatal)) {
            LogFatal(EntryOf(parts...));
        }
    }
    static void LogError(const std::string& text);
    static void LogError(const QELLogEntry& entry);
    template <typename... Parts>
    static void LogError(const Parts&... parts) {
        if (IsEnabled(EQELLogLevel::kError)) {
            LogError(EntryOf(parts...));
        }
    }
    static void LogWarning(const std::string& text);
    static void LogWarning(const QELLogEntry& entry);
    template <typename... Parts>
    static void LogWarning(const Parts&... parts) {
        if (IsEnabled(EQELLogLevel::kWarning)) {
            LogWarning(EntryOf(parts...));
        }
    }
    static void LogInfo(const std::string& text);
    static void LogInfo(const QELLogEntry& entry);
    template <typename... Parts>
    static void LogInfo(const Parts&... parts) {
        if (IsEnabled(EQELLogLevel::kInfo)) {
            LogInfo(EntryOf(parts...));
        }
    }
    static void LogDebug(const std::string& text);
    static void LogDebug(const QELLogEntry& entry);
    template <typename... Parts>
    static void LogDebug(const Parts&... parts) {
        if (IsEnabled(EQELLogLevel::kDebug)) {
            LogDebug(EntryOf(parts...));
        }
    }
    static void LogVerbose(const std::string& text);
    static void LogVerbose(const QELLogEntry& entry);
    template <typename... Parts>
    static void LogVerbose(const Parts&... parts) {
        if (IsEnabled(EQELLogLevel::kVerbose)) {
            LogVerbose(EntryOf(parts...));
        }
    }

private:
    template <typename... Parts>
    static QELLogEntry EntryOf(const Parts&... parts) {
        QELLogEntry entry;
        (entry << ... << parts);
        return entry;
    }
};

}  // namespace qel_logging
