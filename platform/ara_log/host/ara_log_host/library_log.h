#pragma once

#include <cerrno>
#include <string>
#include <string_view>

#include <ara/log/logging.h>

namespace ara_log_host {

/// A library's own messages, as lines under a log context of its own. Any thread.
class LibraryLog {
public:
    /// `lead` begins each line.
    LibraryLog(std::string_view contextId, std::string_view description, const char* lead = "")
        : mLogger(CreateLogger(contextId, description)), mLead(lead) {}

    void Error(const std::string& text) const { mLogger.LogError() << mLead << text; }
    void Warn(const std::string& text) const { mLogger.LogWarn() << mLead << text; }
    void Info(const std::string& text) const { mLogger.LogInfo() << mLead << text; }
    void Debug(const std::string& text) const { mLogger.LogDebug() << mLead << text; }

private:
    /// The first line may be about `errno`, which is read only after this.
    static const ara::log::Logger& CreateLogger(std::string_view contextId,
                                                std::string_view description) {
        const int error = errno;
        const ara::log::Logger& logger = ara::log::CreateLogger(contextId, description);
        errno = error;
        return logger;
    }

    const ara::log::Logger& mLogger;
    const char* mLead;
};

}  // namespace ara_log_host
