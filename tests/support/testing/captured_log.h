#pragma once

#include <chrono>
#include <condition_variable>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include <ara_log_host/sink.h>

#include "logging/qel_logging_if.h"

namespace testing_support {

/// Captures the lines of the log, of every level and thread, in the place of stderr while it lives.
///
/// A failed test gets them on stderr at the end. Any thread.
class CapturedLog {
public:
    struct Line {
        qel_logging::EQELLogLevel level;
        std::string text;

        bool operator==(const Line& other) const {
            return level == other.level && text == other.text;
        }
    };

    CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog();

    std::vector<Line> Lines() const;
    /// The texts of the lines of one level.
    std::vector<std::string> Lines(qel_logging::EQELLogLevel level) const;
    void Clear();

    /// Whether a line of this level has exactly this text.
    bool Contains(qel_logging::EQELLogLevel level, const std::string& text) const;
    /// How many lines hold this text somewhere.
    std::size_t Count(const std::string& text) const;
    /// Waits until so many lines hold the text; false after a time that only a hang takes.
    bool WaitFor(const std::string& text, std::size_t times = 1,
                 std::chrono::milliseconds hangGuard = std::chrono::seconds(20)) const;

private:
    std::size_t CountLocked(const std::string& text) const;

    mutable std::mutex mMutex;
    mutable std::condition_variable mArrived;
    std::vector<Line> mLines;
    ara_log_host::SinkSetting mPrevious;
};

/// How failure messages show a line.
void PrintTo(const CapturedLog::Line& line, std::ostream* stream);

}  // namespace testing_support
