#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <ara/log/common.h>

namespace ara::log::internal {

/// The lines as messages of Diagnostic Log and Trace (AUTOSAR PRS_LogAndTraceProtocol), for the
/// daemon of the unit. Waits for nobody: without a daemon, or with one that doesn't read, lines are
/// kept for it as far as the memory for them reaches. One thread at a time.
class DltOutput {
public:
    /// Told which level a context has now; of the ids only the first four characters are known
    /// here. Called on a thread of the library, for which `context` is valid during the call.
    using LevelListener = void (*)(std::string_view context, LogLevel level);

    /// Null if this build is without DLT or the library can't be used. Once per process; ends by
    /// itself when the process exits, before which the object has to go.
    static std::unique_ptr<DltOutput> Open(const std::string& appId, const std::string& description,
                                           LevelListener listener);

    DltOutput() = default;
    DltOutput(const DltOutput&) = delete;
    DltOutput& operator=(const DltOutput&) = delete;
    virtual ~DltOutput() = default;

    virtual void AddContext(const std::string& contextId, const std::string& description,
                            LogLevel level) = 0;
    /// Does nothing if the level isn't enabled for the context at the moment.
    virtual void Write(const std::string& contextId, LogLevel level, const std::string& text) = 0;
};

}  // namespace ara::log::internal
