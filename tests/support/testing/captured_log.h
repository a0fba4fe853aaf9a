#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <ara_log_host/sink.h>

#include "testing/waiting.h"

namespace testing_support {

/// Captures the lines of the log, of every level and thread, in the place of stderr while it lives.
///
/// A failed test gets them on stderr at the end. Any thread.
class CapturedLog {
public:
    CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog();

    /// Each behind the first letter of its level: "E makeKeyId failed: 4".
    std::vector<std::string> Lines() const;
    /// The texts of one level, without its letter.
    std::vector<std::string> Lines(char level) const;
    void Clear();

    /// Whether this is a line, with its level in front.
    bool Contains(const std::string& line) const;
    /// How many lines hold this text somewhere.
    std::size_t Count(const std::string& text) const;
    /// Waits until so many lines hold the text; false after a time that only a hang takes.
    bool WaitFor(const std::string& text, std::size_t times = 1,
                 std::chrono::milliseconds hangGuard = kHangGuard) const;

private:
    std::size_t CountLocked(const std::string& text) const;

    mutable std::mutex mMutex;
    mutable std::condition_variable mArrived;
    std::vector<std::string> mLines;
    ara_log_host::SinkSetting mPrevious;
};

}  // namespace testing_support
