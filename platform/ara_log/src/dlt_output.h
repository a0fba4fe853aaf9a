#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <ara/log/common.h>

namespace ara::log::internal {

/// The lines as messages of Diagnostic Log and Trace (AUTOSAR PRS_LogAndTraceProtocol), for the
/// daemon of the unit. Never blocks: without a daemon, or with one that doesn't read, lines are
/// buffered up to a limit. One thread at a time.
class DltOutput {
public:
    /// Receives the new level of a context, whose id is cut to four characters. Called on a thread
    /// of the DLT library; `context` is valid during the call.
    using LevelListener = void (*)(std::string_view context, LogLevel level);

    /// Null if this build is without DLT or the library is unavailable. Once per process; the
    /// object must be destroyed before the process exits.
    static std::unique_ptr<DltOutput> Open(const std::string& appId, const std::string& description,
                                           LevelListener listener);

    DltOutput() = default;
    DltOutput(const DltOutput&) = delete;
    DltOutput& operator=(const DltOutput&) = delete;
    virtual ~DltOutput() = default;

    virtual void AddContext(const std::string& contextId, const std::string& description,
                            LogLevel level) = 0;
    /// Ignored if the level isn't enabled for the context at the moment.
    virtual void Write(const std::string& contextId, LogLevel level, const std::string& text) = 0;
};

}  // namespace ara::log::internal
